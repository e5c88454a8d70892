#pragma once

#include <list>
#include <string>
#include <utility>

#include "platform/Export.h"

/// The language of a free text: a tag in lower case ("ru-ru"), or "*" for any language or none.
class PKIXCMP_API Encoding {
public:
    static const Encoding DEFAULT_WRITE;  // "ru-ru"
    static const Encoding DEFAULT_READ;   // "*"

    Encoding() = default;
    Encoding(const char* tag) : value(normalize(tag)) {}         // NOLINT: a tag is written as text
    Encoding(const std::string& tag) : Encoding(tag.c_str()) {}  // NOLINT: the same

    /// The text with its bytes A to Z in lower case.
    static std::string normalize(const char* text);
    /// The tag as it stands in front of a text on the wire: U+0E01, a character 0x0E00 | byte for
    /// each byte, U+0E7E. Empty for `DEFAULT_READ`.
    std::wstring toUnicode() const;
    /// Reads the tag in front of zero-terminated text and moves `text` behind it. Without a tag
    /// gives `DEFAULT_READ` and does not move. A tag that is not closed is a `CAException`.
    static Encoding fromUnicode(const wchar_t*& text);

    friend bool operator==(const Encoding& a, const Encoding& b) { return a.value == b.value; }

    std::string value = "*";
};

/// One element of a free text.
struct PKIXCMP_API FreeTextItem {
    FreeTextItem() = default;
    FreeTextItem(std::wstring itemText, Encoding itemLanguage)
        : text(std::move(itemText)), language(std::move(itemLanguage)) {}
    std::wstring text;
    Encoding language;
};

/// PKIFreeText (RFC 4210 5.1.1): elements in message order, one a language.
class PKIXCMP_API FreeText : public std::list<FreeTextItem> {
public:
    using std::list<FreeTextItem>::list;
    /// The first element of the language; for `DEFAULT_READ` the first of all. `end()` when there
    /// is none.
    const_iterator find(Encoding language) const;
    iterator find(Encoding language);
};
