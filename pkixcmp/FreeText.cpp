#include "pkixcmp/FreeText.h"

#include <algorithm>

#include "capilite/CAException.h"

namespace {

// The characters that stand around a language tag, and the block that its bytes are moved into.
constexpr wchar_t tagBegin = 0x0E01;
constexpr wchar_t tagEnd = 0x0E7E;
constexpr wchar_t tagBlock = 0x0E00;

bool isTagCharacter(wchar_t c) { return (c & 0xFF00) == tagBlock && c != tagEnd; }

}  // namespace

const Encoding Encoding::DEFAULT_WRITE("ru-ru");
const Encoding Encoding::DEFAULT_READ("*");

std::string Encoding::normalize(const char* text) {
    std::string lower(text != nullptr ? text : "");
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

std::wstring Encoding::toUnicode() const {
    std::wstring tag;
    if (*this == DEFAULT_READ) return tag;
    tag += tagBegin;
    // Only ASCII tags are meant: any other byte gives a character that no encoding takes.
    for (char c : value) tag += static_cast<wchar_t>(static_cast<signed char>(c)) | tagBlock;
    tag += tagEnd;
    return tag;
}

Encoding Encoding::fromUnicode(const wchar_t*& text) {
    if (*text != tagBegin) return DEFAULT_READ;
    std::string tag;
    for (++text; isTagCharacter(*text); ++text) tag += static_cast<char>(*text & 0xFF);
    if (*text != tagEnd) PKIXCMP_THROW(CAException, "Invalid Encoding format");
    ++text;
    return tag;
}

FreeText::const_iterator FreeText::find(Encoding language) const {
    if (language == Encoding::DEFAULT_READ) return begin();
    return std::find_if(begin(), end(),
                        [&](const FreeTextItem& item) { return item.language == language; });
}

FreeText::iterator FreeText::find(Encoding language) {
    // An empty range turns the position into one through which the list can be changed.
    const const_iterator found = static_cast<const FreeText&>(*this).find(std::move(language));
    return erase(found, found);
}
