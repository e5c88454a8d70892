#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Export.h"

// Text conversion. Code pages: 0 and 65001 are UTF-8, 1251 is Windows-1251. A wide character is a
// code point of 32 bits.

/// With `targetSize` 0 only the size needed is returned. A length of -1 means zero-terminated text,
/// and the zero is then counted and written. Returns characters or bytes written, 0 on failure with
/// the last error set: 122 when the target is too small, 1113 for text that has no such form.
PKIXCMP_API int WideCharToMultiByte(std::uint32_t codePage, std::uint32_t flags,
                                    const wchar_t* text, int length, char* target, int targetSize,
                                    const char* defaultChar, int* usedDefault);
PKIXCMP_API int MultiByteToWideChar(std::uint32_t codePage, std::uint32_t flags, const char* text,
                                    int length, wchar_t* target, int targetSize);

/// UTF-8, ill-formed code points replaced by U+FFFD.
PKIXCMP_API std::string utf8FromWide(std::wstring_view text);
PKIXCMP_API std::wstring wideFromUtf8(std::string_view text);
/// For printing texts that the interface fixes in Windows-1251.
PKIXCMP_API std::string utf8FromWindows1251(std::string_view text);
/// Characters that Windows-1251 lacks become "?".
PKIXCMP_API std::string windows1251FromWide(std::wstring_view text);

/// As `wcsrtombs` to UTF-8, never writing more than `size` bytes including the terminating zero,
/// and always terminating when size is above 0. Returns the bytes written without the zero, or
/// (size_t)-1 for text that cannot be converted or does not fit.
PKIXCMP_API std::size_t safe_wcsrtombs(char* target, const wchar_t* source, std::size_t size);

namespace support {

/// Windows-1251 bytes of a UTF-8 literal, worked out at compile time. Holds the terminating zero.
template <std::size_t N>
struct Windows1251 {
    char bytes[N] = {};
    consteval Windows1251(const char (&utf8)[N]) {
        std::size_t out = 0;
        for (std::size_t i = 0; utf8[i] != 0;) {
            unsigned c = static_cast<unsigned char>(utf8[i]);
            if (c < 0x80) {
                ++i;
            } else if ((c & 0xE0) == 0xC0) {
                c = (c & 0x1F) << 6 | (static_cast<unsigned char>(utf8[i + 1]) & 0x3F);
                i += 2;
            } else {
                throw "only ASCII and Cyrillic letters are used";
            }
            if (c >= 0x410 && c <= 0x44F) {
                c = c - 0x410 + 0xC0;
            } else if (c == 0x401) {
                c = 0xA8;
            } else if (c == 0x451) {
                c = 0xB8;
            } else if (c >= 0x80) {
                throw "only ASCII and Cyrillic letters are used";
            }
            bytes[out++] = static_cast<char>(c);
        }
    }
    constexpr const char* c_str() const { return bytes; }
};

/// `support::cp1251<"Ошибка 0x%x: ">` is a zero-terminated array of Windows-1251 bytes.
template <Windows1251 Text>
inline constexpr const char* cp1251 = Text.bytes;

}  // namespace support
