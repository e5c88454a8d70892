#include <algorithm>
#include <array>
#include <vector>

#include "capilite/Ascii.h"
#include "capilite/AttributeRegister.h"
#include "capilite/CAException.h"
#include "capilite/Handles.h"
#include "capilite/NameSyntax.h"
#include "capilite/RecordCoding.h"
#include "capilite/Strings.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Runtime.h"
#include "platform/support/LastError.h"

// The rules between the text of an attribute's value and its encoding.

namespace {

using asn1data::ASN1T_DirectoryString;
using asn1data::ASN1T_PostalAddress;
using capilite::NAME_WHITE_SPACE;

constexpr const char* UNSUPPORTED = "Unsupported string type";
constexpr const char* INVALID = "invalid string";

constexpr std::uint8_t TAG_UTF8 = 12, TAG_NUMERIC = 18, TAG_PRINTABLE = 19, TAG_TELETEX = 20,
                       TAG_IA5 = 22, TAG_UNIVERSAL = 28, TAG_BMP = 30, TAG_SEQUENCE = 0x30;

/// Universal tags by `CACMPT_StringType`.
constexpr std::array<std::uint8_t, 8> TAGS = {0,       TAG_UTF8, TAG_PRINTABLE, TAG_TELETEX,
                                              TAG_BMP, TAG_IA5,  TAG_UNIVERSAL, TAG_NUMERIC};
/// Universal tags by the alternatives of a directory string.
constexpr std::array<std::uint8_t, 8> CHOICE_TAGS = {
    0, TAG_UTF8, TAG_NUMERIC, TAG_PRINTABLE, TAG_TELETEX, TAG_IA5, TAG_UNIVERSAL, TAG_BMP};

[[noreturn]] void throwSyntax() { PKIXCMP_THROW(CryptException, CRYPT_E_INVALID_X500_STRING); }

[[noreturn]] void throwRuntime(ASN1CTXT* ctxt) { PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt)); }

void initialise(ctxt_handle& ctxt) {
    if (!ctxt.init()) PKIXCMP_THROW(CAException, "Cannot initialize context.");
}

bool isAlphanumeric(wchar_t c) {
    return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

bool mayStandIn(wchar_t c, CACMPT_StringType type) {
    switch (type) {
        case CACMPT_PrintableString:
            return isAlphanumeric(c) ||
                   (c != 0 && std::wstring_view(L" '()+,-./:=?").find(c) != std::wstring::npos);
        case CACMPT_IA5String:
            return static_cast<std::uint32_t>(c) <= 0x7F;
        case CACMPT_NumericString:
            return c == L' ' || (c >= L'0' && c <= L'9');
        default:
            return true;
    }
}

std::uint32_t badCharacterCode(CACMPT_StringType type) {
    switch (type) {
        case CACMPT_NumericString:
            return CRYPT_E_INVALID_NUMERIC_STRING;
        case CACMPT_PrintableString:
            return CRYPT_E_INVALID_PRINTABLE_STRING;
        case CACMPT_IA5String:
            return CRYPT_E_INVALID_IA5_STRING;
        default:
            return CRYPT_E_INVALID_X500_STRING;
    }
}

// ---- From text ----

/// Where the value at `position` ends: at a separator outside quotes or at the end of the text.
std::size_t findValueEnd(const std::wstring& text, unsigned long& position, unsigned int flags) {
    const std::wstring_view separators = capilite::inputSeparators(flags);
    const bool quoting = (flags & CACMPT_NAME_NO_QUOTING) == 0;
    const bool plus = (flags & CACMPT_NAME_NO_PLUS) == 0;
    const std::size_t start = capilite::indexOf(position, text);
    std::size_t quote = text.npos;  // the open one
    for (std::size_t i = start; i < text.size(); ++i) {
        wchar_t c = text[i];
        if (quote != text.npos) {
            if (c != L'"') continue;
            if (i + 1 < text.size() && text[i + 1] == L'"') {
                ++i;
            } else {
                quote = text.npos;
            }
        } else if (c == L'"' && quoting) {
            quote = i;
        } else if (separators.find(c) != separators.npos || (c == L'+' && plus)) {
            if (i == start || text[i - 1] != L'\\') return i;
        }
    }
    if (quote != text.npos) {
        position = quote;
        throwSyntax();
    }
    return text.size();
}

std::wstring removeQuoting(const std::wstring& text, unsigned int flags) {
    const bool quoting = (flags & CACMPT_NAME_NO_QUOTING) == 0;
    std::wstring plain;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        wchar_t c = text[i];
        if (quoted && c == L'"' && i + 1 < text.size() && text[i + 1] == L'"') {
            plain += text[i++];
        } else if (c == L'"' && (quoted || quoting)) {
            quoted = !quoted;
        } else if (c != L'\\' || quoted) {
            plain += c;
        }
    }
    return plain;
}

/// Reads "#" and hexadecimal digits, white space among them. False for text of another form.
bool readHexadecimal(const std::wstring& text, CACMPT_BLOB& bytes) {
    if (text.empty() || text[0] != L'#') return false;
    std::vector<unsigned char> digits;
    for (wchar_t c : std::wstring_view(text).substr(1)) {
        if (NAME_WHITE_SPACE.find(c) != NAME_WHITE_SPACE.npos) continue;
        int value = capilite::hexDigitValue(c);
        if (value < 0) return false;
        digits.push_back(static_cast<unsigned char>(value));
    }
    if (digits.empty() || digits.size() % 2 != 0) return false;
    bytes.resize(digits.size() / 2);
    for (std::uint32_t i = 0; i < bytes.size; ++i) {
        bytes.data[i] = static_cast<unsigned char>(digits[2 * i] << 4 | digits[2 * i + 1]);
    }
    return true;
}

std::string toUtf8(const std::wstring& text) {
    std::string utf8(4 * text.size() + 1, '\0');
    int length = rtWCSToUTF8(std::wstring_view(text), utf8.data(), utf8.size());
    if (length < 0) PKIXCMP_THROW(CAException, INVALID);
    utf8.resize(static_cast<std::size_t>(length));
    return utf8;
}

/// The octets of the text in the string type, in the context or in `narrow`.
std::string_view contentOctets(ASN1CTXT* ctxt, const std::wstring& text, CACMPT_StringType type,
                               std::string& narrow) {
    ASN1TString wide;
    switch (type) {
        case CACMPT_UTF8String:
            narrow = toUtf8(text);
            return narrow;
        case CACMPT_PrintableString:
        case CACMPT_TeletexString:
        case CACMPT_IA5String:
        case CACMPT_NumericString:
            narrow = tostring(text);
            return narrow;
        case CACMPT_BMPString:
            if (rtWCSToBMPString(ctxt, text, &wide) < 0) throwRuntime(ctxt);
            return wide.view();
        case CACMPT_UniversalString:
            if (rtWCSToUCSString(ctxt, text, &wide) < 0) throwRuntime(ctxt);
            return wide.view();
        default:
            PKIXCMP_THROW(CAException, UNSUPPORTED);
    }
}

/// What `xe_*` has written; a length below zero is its failure.
CACMPT_BLOB takeEncoding(ctxt_handle& ctxt, int length) {
    if (length < 0) throwRuntime(ctxt);
    return CACMPT_BLOB(xe_getp(ctxt), static_cast<std::size_t>(length));
}

CACMPT_BLOB encodeString(const std::wstring& text, CACMPT_StringType type) {
    ctxt_handle ctxt;
    initialise(ctxt);
    std::string narrow;
    std::string_view octets = contentOctets(ctxt, text, type, narrow);
    xe_setp(ctxt, nullptr, 0);
    return takeEncoding(ctxt, xe_charstr(ctxt, octets, ASN1EXPL, TAGS[type]));
}

/// The string type that a text is written in: the one asked for, or the register's choice. An
/// identifier outside the register has neither a choice nor a limit.
CACMPT_StringType chooseStringType(const std::string& oid, const std::wstring& text,
                                   CACMPT_StringType type, unsigned int flags) {
    auto entry = CACMPT_ATAVRegister::find(oid);
    bool known = entry != CACMPT_ATAVRegister::registered.cend();
    if (known ? text.size() > entry->maxLength : type == CACMPT_NoString) throwSyntax();
    if (type == CACMPT_NoString) type = entry->typeForString(text);
    bool utf8ForBmp = (flags & CACMPT_NAME_UTF8_FOR_BMP) != 0 && type == CACMPT_BMPString;
    return utf8ForBmp ? CACMPT_UTF8String : type;
}

// ---- To text ----

std::wstring wideFromUtf8Octets(std::string_view octets) {
    std::wstring wide(octets.size() + 1, L'\0');
    int length = rtUTF8ToWCS(octets, wide.data(), wide.size());
    if (length < 0) PKIXCMP_THROW(CAException, INVALID);
    wide.resize(static_cast<std::size_t>(length));
    return wide;
}

/// The text of a string by its universal tag. False for a tag that is no string type.
bool readString(std::uint8_t tag, std::string_view octets, std::wstring& text) {
    switch (tag) {
        case TAG_UTF8:
            text = wideFromUtf8Octets(octets);
            return true;
        case TAG_NUMERIC:
        case TAG_PRINTABLE:
        case TAG_TELETEX:
        case TAG_IA5:
            text = towstring(octets);
            return true;
        case TAG_UNIVERSAL:
            if (rtUCSToWCSString(ASN1TString(octets), text) < 0) {
                PKIXCMP_THROW(CAException, INVALID);
            }
            return true;
        case TAG_BMP:
            if (rtBMPToWCSString(ASN1TString(octets), text) < 0) {
                PKIXCMP_THROW(CAException, INVALID);
            }
            return true;
        default:
            return false;
    }
}

std::wstring postalAddressText(const CACMPT_BLOB& value) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_PostalAddress address;
    asn1DecodeRecord(buffer, value, address);
    std::wstring text;
    for (const ASN1T_DirectoryString& line : address) {
        if (&line != &address.front()) text += L'|';
        std::uint8_t tag =
            line.t >= 1 && line.t < static_cast<int>(CHOICE_TAGS.size()) ? CHOICE_TAGS[line.t] : 0;
        std::wstring part;
        if (!readString(tag, line.u.text.view(), part)) {
            PKIXCMP_THROW(CAException, "Unsupported string type in PostalAddres");
        }
        text += part;
    }
    return text;
}

}  // namespace

bool CanEncodeStringInStringType(const std::wstring& text, CACMPT_StringType type,
                                 unsigned long* firstBad) {
    if (text.empty()) return true;
    if (type < CACMPT_UTF8String || type > CACMPT_NumericString || type == CACMPT_TeletexString) {
        PKIXCMP_THROW(CryptException, E_NOTIMPL);
    }
    auto bad =
        std::find_if(text.begin(), text.end(), [type](wchar_t c) { return !mayStandIn(c, type); });
    bool good = bad == text.end();
    if (firstBad != nullptr) {
        *firstBad = good ? ~0UL : static_cast<unsigned long>(bad - text.begin());
    }
    return good;
}

std::wstring TrimWhitespace(const std::wstring& text, unsigned long* skipped) {
    std::size_t first = std::min(text.find_first_not_of(NAME_WHITE_SPACE), text.size());
    std::size_t last = text.find_last_not_of(NAME_WHITE_SPACE);
    if (skipped != nullptr) *skipped = first;
    return first == text.size() ? std::wstring() : text.substr(first, last + 1 - first);
}

CACMPT_BLOB toOctetString(const CACMPT_BLOB& bytes) {
    ctxt_handle ctxt;
    initialise(ctxt);
    xe_setp(ctxt, nullptr, 0);
    return takeEncoding(ctxt, xe_octstr(ctxt, bytes.data, bytes.size, ASN1EXPL));
}

CACMPT_BLOB CACMPT_ATAVRegister::valueFromStr(const std::string& oid, const std::wstring& text,
                                              unsigned long& position, CACMPT_StringType type,
                                              unsigned int flags) {
    const std::size_t start = capilite::indexOf(position, text);
    const std::size_t end = findValueEnd(text, position, flags);
    const std::wstring raw = TrimWhitespace(text.substr(start, end - start));
    if (raw.empty()) {
        position = end;
        throwSyntax();
    }
    CACMPT_BLOB bytes;
    if (readHexadecimal(raw, bytes)) {
        position = capilite::positionOf(end, text);
        return toOctetString(bytes);
    }
    const std::wstring plain = removeQuoting(raw, flags);
    type = chooseStringType(oid, plain, type, flags);
    unsigned long firstBad = 0;
    if (!CanEncodeStringInStringType(plain, type, &firstBad)) {
        position = text.find(plain[firstBad], start);
        PKIXCMP_THROW(CryptException, badCharacterCode(type));
    }
    CACMPT_BLOB encoded = encodeString(plain, type);
    position = capilite::positionOf(end, text);
    return encoded;
}

CACMPT_BLOB CACMPT_ATAVRegister::valueFromStr(const std::string& oid, const std::wstring& text,
                                              CACMPT_StringType type, unsigned int flags) {
    unsigned long position = 0;
    return valueFromStr(oid, text, position, type, flags);
}

CACMPT_BLOB CACMPT_ATAVRegister::valueFromPlainText(const std::string& oid,
                                                    const std::wstring& text,
                                                    CACMPT_StringType type, unsigned int flags) {
    type = chooseStringType(oid, text, type, flags);
    if (!CanEncodeStringInStringType(text, type, nullptr)) {
        PKIXCMP_THROW(CryptException, badCharacterCode(type));
    }
    return encodeString(text, type);
}

std::wstring CACMPT_ATAVRegister::valueToStr(const std::string& oid, const CACMPT_BLOB& value) {
    if (find(oid) == registered.cend()) return L"#" + towstring(value.writeToHexString());
    ctxt_handle ctxt;
    initialise(ctxt);
    xd_setp(ctxt, value.data, value.size);
    std::uint8_t tag = 0;
    std::size_t length = 0;
    if (xd_tag_len(ctxt, &tag, &length) < 0) throwRuntime(ctxt);
    if (tag == TAG_SEQUENCE) return postalAddressText(value);
    const std::uint8_t* content = xd_content(ctxt, length);
    if (content == nullptr) throwRuntime(ctxt);
    std::wstring text;
    if (!readString(tag, {reinterpret_cast<const char*>(content), length}, text)) {
        PKIXCMP_THROW(CAException, UNSUPPORTED);
    }
    return text;
}
