#pragma once

// Character classes of ASCII, whatever the locale of the process.

namespace capilite {

/// Blank, tab, line feed, vertical tab, form feed, carriage return.
constexpr bool isAsciiSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The four characters that count as white space in names and words.
constexpr bool isBlankOrBreak(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r';
}

/// The value of a hexadecimal digit of either case, -1 for anything else.
template <class Char>
constexpr int hexDigitValue(Char c) {
    if (c >= Char('0') && c <= Char('9')) return static_cast<int>(c - Char('0'));
    if (c >= Char('a') && c <= Char('f')) return static_cast<int>(c - Char('a') + 10);
    if (c >= Char('A') && c <= Char('F')) return static_cast<int>(c - Char('A') + 10);
    return -1;
}

}  // namespace capilite
