#pragma once

#include <string>

#include "platform/Export.h"

// Names of the bits of a small bit string. A table is two arrays of `count` entries: values (masks)
// and names.

/// Names of the values that are set, joined by "|", and what no name covers as "0x%x".
template <class Char>
std::basic_string<Char> SmallBitStringToBasicString(const unsigned int* values,
                                                    const Char* const* names, unsigned long count,
                                                    unsigned int bits) {
    std::basic_string<Char> text;
    unsigned int uncovered = bits;
    auto add = [&text](const auto& word) {
        if (!text.empty()) text += Char('|');
        text += word;
    };
    for (unsigned long i = 0; i < count; ++i) {
        if (values[i] == 0 || (bits & values[i]) != values[i]) continue;
        add(names[i]);
        uncovered &= ~values[i];
    }
    if (uncovered != 0) {
        std::basic_string<Char> digits;
        for (; uncovered != 0; uncovered >>= 4) {
            digits.insert(digits.begin(), static_cast<Char>("0123456789abcdef"[uncovered & 15]));
        }
        digits.insert(0, {Char('0'), Char('x')});
        add(digits);
    }
    return text;
}

PKIXCMP_API std::string SmallBitStringToString(const unsigned int* values, const char* const* names,
                                               unsigned long count, unsigned int bits);
/// The OR of the words between "|". A word that is no name is read as a number; nothing is refused.
/// Null, empty text and `emptyName` give 0.
PKIXCMP_API unsigned int SmallBitStringFromString(const unsigned int* values,
                                                  const char* const* names, unsigned long count,
                                                  const char* text, const char* emptyName);
