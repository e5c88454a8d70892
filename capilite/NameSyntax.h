#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "capilite/AttributeRegister.h"

// What the readers of names and of attribute values share.

namespace capilite {

inline constexpr std::wstring_view NAME_WHITE_SPACE = L" \t\n\r";
/// The end marker of a position.
inline constexpr unsigned long NAME_END = std::wstring::npos;

/// The characters that separate RDNs on input.
constexpr std::wstring_view inputSeparators(unsigned int flags) {
    if (flags & CACMPT_NAME_CRLF) return L"\r\n";
    if (flags & CACMPT_NAME_SEMICOLON) return L";";
    if (flags & CACMPT_NAME_COMMA) return L",";
    return L",;";
}

/// The index that a position stands for: the end marker is the end of the text.
inline std::size_t indexOf(unsigned long position, const std::wstring& text) {
    return std::min<std::size_t>(position, text.size());
}

/// The position of an index: the end of the text is the end marker.
inline unsigned long positionOf(std::size_t index, const std::wstring& text) {
    return index >= text.size() ? NAME_END : index;
}

}  // namespace capilite
