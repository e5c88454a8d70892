#include "tools/pkixcmp/Failure.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "capilite/CAException.h"
#include "config/IniExceptions.h"
#include "platform/support/LastError.h"
#include "platform/support/Text.h"

namespace tool {
namespace {

struct CodeMeaning {
    unsigned int code;
    const char* text;
};
constexpr const char* denied =
    "access denied; check the rights of the state folder, or set PKIXCMP_HOME to one of your own";
constexpr const char* unreadable =
    "the state folder cannot be read or written; check its path (PKIXCMP_HOME) and its disk";
constexpr CodeMeaning codeMeanings[] = {
    {SCARD_W_WRONG_CHV, "wrong PIN; give the right one with --pin"},
    {SCARD_W_CHV_BLOCKED,
     "the container is blocked after too many wrong PINs; its key cannot be used any more"},
    {SCARD_W_CANCELLED_BY_USER, "cancelled; give the PIN with --pin"},
    {SCARD_E_NO_SUCH_READER,
     "no such reader; see the readers with 'pkixcmp container ls --readers'"},
    {NTE_BAD_KEYSET, "no such container; see the containers with 'pkixcmp container ls'"},
    {NTE_KEYSET_NOT_DEF, "no such container; see the containers with 'pkixcmp container ls'"},
    {NTE_KEYSET_ENTRY_BAD,
     "the container is damaged, was left half-made or belongs to another vault.key; bring it back "
     "from a copy, or remove it with 'pkixcmp container rm'"},
    {NTE_BAD_KEYSET_PARAM,
     "no name for a container: it must not be empty, begin with a dot, hold slashes or control "
     "characters, or be longer than 200 bytes"},
    {NTE_SYS_ERR, unreadable},
    {CRYPT_E_FILE_ERROR, unreadable},
    {NTE_EXISTS, "it exists already; choose another name"},
    {NTE_NO_KEY, "the container holds no such key"},
    {NTE_PERM, denied},
    {ERROR_ACCESS_DENIED, denied},
    {NTE_BAD_PROV_TYPE, "no such provider type; take 1, 16, 75, 76, 80 or 81"},
    {NTE_PROV_TYPE_NOT_DEF, "no such provider type; take 1, 16, 75, 76, 80 or 81"},
    {CRYPT_E_NOT_FOUND, "not found"},
    {CRYPT_E_EXISTS, "it exists already"},
    {CRYPT_E_NO_KEY_PROPERTY, "the certificate has no private key here"},
    {CRYPT_E_INVALID_X500_STRING, "the name cannot be read; write it as 'CN=Alice, O=Trial'"},
    {CRYPT_E_INVALID_NUMERIC_STRING, "an attribute of the name takes digits alone"},
    {CRYPT_E_INVALID_PRINTABLE_STRING, "an attribute of the name takes printable ASCII alone"},
    {CRYPT_E_INVALID_IA5_STRING, "an attribute of the name takes ASCII alone"},
    {CRYPT_E_ASN1_BADTAG, "not of the expected ASN.1 type"},
    {CRYPT_E_BAD_ENCODE, "the encoding cannot be read"},
};

std::string bareText(const std::string& what) {
    const std::string head = "Exception :'";
    std::size_t begin = what.find(head);
    std::size_t end = what.rfind("' at file:'");
    if (begin == std::string::npos || end == std::string::npos) return what;
    begin += head.size();
    return end < begin ? what : what.substr(begin, end - begin);
}

std::string utf8Text(const std::exception& failure, const std::string& text) {
    bool cyrillic = dynamic_cast<const CryptException*>(&failure) != nullptr ||
                    dynamic_cast<const StoreException*>(&failure) != nullptr;
    return cyrillic ? utf8FromWindows1251(text) : text;
}

/// One line of UTF-8 whatever stands in the text.
std::string oneLine(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return utf8FromWide(wideFromUtf8(text));
}

/// The text of a failed store holds the code ("0x5") and the name ('Root').
std::string meaningOfStore(const std::exception& failure) {
    const std::string text = oneLine(bareText(utf8Text(failure, failure.what())));
    const std::size_t code = text.find("0x"), open = text.find('\'');
    const std::size_t close = open == text.npos ? open : text.find("': ", open);
    if (code == text.npos || close == text.npos) return text;
    return "store " + text.substr(open + 1, close - open - 1) + ": " +
           meaningOfCode(static_cast<unsigned int>(std::strtoul(&text[code], nullptr, 16)));
}

}  // namespace

std::string meaningOfCode(unsigned int code) {
    for (const CodeMeaning& row : codeMeanings) {
        if (row.code == code) return row.text;
    }
    char number[16];
    std::snprintf(number, sizeof number, "0x%X", code);
    char text[256] = {};
    FormatMessage(0x1200, nullptr, code, 0, text, sizeof text, nullptr);
    std::string meaning = oneLine(utf8FromWindows1251(text));
    return meaning.empty() ? "failure " + std::string(number)
                           : meaning + " (" + std::string(number) + ")";
}

std::string meaningOf(const std::exception& failure) {
    if (auto crypt = dynamic_cast<const CryptException*>(&failure)) {
        return meaningOfCode(crypt->code);
    }
    if (dynamic_cast<const rights_exception*>(&failure) != nullptr) {
        return meaningOfCode(ERROR_ACCESS_DENIED);
    }
    if (typeid(failure) == typeid(config_exception)) return unreadable;
    if (dynamic_cast<const StoreException*>(&failure) != nullptr) return meaningOfStore(failure);
    return oneLine(bareText(utf8Text(failure, failure.what())));
}

std::string fullTextOf(const std::exception& failure) {
    if (auto told = dynamic_cast<const Failure*>(&failure)) return told->detail;
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(typeid(failure).name(), nullptr, nullptr, &status), std::free);
    return std::string(name ? name.get() : "failure") + ": " + utf8Text(failure, failure.what());
}

}  // namespace tool
