#include "platform/support/Text.h"

#include <cstring>
#include <limits>

#include "platform/support/LastError.h"

namespace {

constexpr std::uint32_t codePageUtf8 = 65001;
constexpr std::uint32_t codePage1251 = 1251;
constexpr char32_t noCharacter = 0xFFFFFFFF;
constexpr char32_t replacement = 0xFFFD;

/// The upper half of Windows-1251. 0x98 is unassigned and stands for itself.
constexpr char16_t upper1251[128] = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021, 0x20AC, 0x2030, 0x0409, 0x2039,
    0x040A, 0x040C, 0x040B, 0x040F, 0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x0098, 0x2122, 0x0459, 0x203A, 0x045A, 0x045C, 0x045B, 0x045F, 0x00A0, 0x040E, 0x045E, 0x0408,
    0x00A4, 0x0490, 0x00A6, 0x00A7, 0x0401, 0x00A9, 0x0404, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x0407,
    0x00B0, 0x00B1, 0x0406, 0x0456, 0x0491, 0x00B5, 0x00B6, 0x00B7, 0x0451, 0x2116, 0x0454, 0x00BB,
    0x0458, 0x0405, 0x0455, 0x0457, 0x0410, 0x0411, 0x0412, 0x0413, 0x0414, 0x0415, 0x0416, 0x0417,
    0x0418, 0x0419, 0x041A, 0x041B, 0x041C, 0x041D, 0x041E, 0x041F, 0x0420, 0x0421, 0x0422, 0x0423,
    0x0424, 0x0425, 0x0426, 0x0427, 0x0428, 0x0429, 0x042A, 0x042B, 0x042C, 0x042D, 0x042E, 0x042F,
    0x0430, 0x0431, 0x0432, 0x0433, 0x0434, 0x0435, 0x0436, 0x0437, 0x0438, 0x0439, 0x043A, 0x043B,
    0x043C, 0x043D, 0x043E, 0x043F, 0x0440, 0x0441, 0x0442, 0x0443, 0x0444, 0x0445, 0x0446, 0x0447,
    0x0448, 0x0449, 0x044A, 0x044B, 0x044C, 0x044D, 0x044E, 0x044F};

char32_t from1251(unsigned char c) { return c < 0x80 ? c : upper1251[c - 0x80]; }

/// The byte of a code point, or -1.
int to1251(char32_t c) {
    if (c < 0x80) return static_cast<int>(c);
    for (int i = 0; i < 128; ++i) {
        if (upper1251[i] == c) return 0x80 + i;
    }
    return -1;
}

bool hasUtf8Form(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

/// Octets of a code point that has a UTF-8 form; at most four.
int encodeUtf8(char32_t c, char* out) {
    auto tail = [&](int shift) { return static_cast<char>(0x80 | (c >> shift & 0x3F)); };
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = static_cast<char>(0xC0 | c >> 6);
        out[1] = tail(0);
        return 2;
    }
    if (c < 0x10000) {
        out[0] = static_cast<char>(0xE0 | c >> 12);
        out[1] = tail(6);
        out[2] = tail(0);
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | c >> 18);
    out[1] = tail(12);
    out[2] = tail(6);
    out[3] = tail(0);
    return 4;
}

/// Reads one code point of UTF-8 (RFC 3629) at `at` and steps over it. What is ill-formed gives
/// `noCharacter` and steps over its longest well-formed beginning, one octet at least.
char32_t decodeUtf8(std::string_view text, std::size_t& at) {
    unsigned char first = static_cast<unsigned char>(text[at++]);
    if (first < 0x80) return first;
    if (first < 0xC2 || first > 0xF4) return noCharacter;
    int more = first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    char32_t c = first & (0x3F >> more);
    // The second octet's range keeps out overlong forms, surrogates and what lies above 0x10FFFF.
    unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    for (; more > 0; --more) {
        if (at == text.size()) return noCharacter;
        unsigned char next = static_cast<unsigned char>(text[at]);
        if (next < low || next > high) return noCharacter;
        c = c << 6 | (next & 0x3F);
        ++at;
        low = 0x80;
        high = 0xBF;
    }
    return c;
}

int fail(std::uint32_t code) {
    SetLastError(code);
    return 0;
}

bool isKnown(std::uint32_t codePage) {
    return codePage == 0 || codePage == codePageUtf8 || codePage == codePage1251;
}

/// Receives converted characters: counts them, and writes them as long as there is a target.
template <class Char>
class Target {
public:
    Target(Char* data, int size) : data_(data), size_(static_cast<std::size_t>(size)) {}
    bool put(const Char* from, int count) {
        if (size_ != 0) {
            if (size_ - written_ < static_cast<std::size_t>(count)) return false;
            std::memcpy(data_ + written_, from, static_cast<std::size_t>(count) * sizeof(Char));
        }
        written_ += static_cast<std::size_t>(count);
        return true;
    }
    int result() const {
        if (written_ > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
            return fail(ERROR_INVALID_PARAMETER);
        }
        return static_cast<int>(written_);
    }

private:
    Char* data_;
    std::size_t size_;
    std::size_t written_ = 0;
};

/// The octets of one character, 0 when it has none and no default is given.
int encodeCharacter(std::uint32_t codePage, char32_t c, char* out, const char* defaultChar,
                    int* usedDefault) {
    if (codePage == codePage1251) {
        int octet = to1251(c);
        if (octet < 0 && defaultChar != nullptr) {
            octet = static_cast<unsigned char>(*defaultChar);
            if (usedDefault != nullptr) *usedDefault = 1;
        }
        out[0] = static_cast<char>(octet);
        return octet >= 0;
    }
    return hasUtf8Form(c) ? encodeUtf8(c, out) : 0;
}

}  // namespace

int WideCharToMultiByte(std::uint32_t codePage, std::uint32_t, const wchar_t* text, int length,
                        char* target, int targetSize, const char* defaultChar, int* usedDefault) {
    if (usedDefault != nullptr) *usedDefault = 0;
    if (text == nullptr || length == 0 || length < -1 || targetSize < 0 || !isKnown(codePage) ||
        (targetSize > 0 && target == nullptr)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    std::size_t count =
        length < 0 ? std::char_traits<wchar_t>::length(text) + 1 : static_cast<std::size_t>(length);
    Target<char> out(target, targetSize);
    for (std::size_t i = 0; i < count; ++i) {
        char octets[4];
        int n = encodeCharacter(codePage, static_cast<char32_t>(text[i]), octets, defaultChar,
                                usedDefault);
        if (n == 0) return fail(ERROR_NO_UNICODE_TRANSLATION);
        if (!out.put(octets, n)) return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    return out.result();
}

int MultiByteToWideChar(std::uint32_t codePage, std::uint32_t, const char* text, int length,
                        wchar_t* target, int targetSize) {
    if (text == nullptr || length == 0 || length < -1 || targetSize < 0 || !isKnown(codePage) ||
        (targetSize > 0 && target == nullptr)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    std::string_view source(text,
                            length < 0 ? std::strlen(text) + 1 : static_cast<std::size_t>(length));
    Target<wchar_t> out(target, targetSize);
    for (std::size_t at = 0; at < source.size();) {
        char32_t c = codePage == codePage1251 ? from1251(static_cast<unsigned char>(source[at++]))
                                              : decodeUtf8(source, at);
        if (c == noCharacter) return fail(ERROR_NO_UNICODE_TRANSLATION);
        wchar_t wide = static_cast<wchar_t>(c);
        if (!out.put(&wide, 1)) return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    return out.result();
}

std::string utf8FromWide(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t w : text) {
        char32_t c = static_cast<char32_t>(w);
        char octets[4];
        int n = encodeUtf8(hasUtf8Form(c) ? c : replacement, octets);
        out.append(octets, static_cast<std::size_t>(n));
    }
    return out;
}

std::wstring wideFromUtf8(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        char32_t c = decodeUtf8(text, at);
        out.push_back(static_cast<wchar_t>(c == noCharacter ? replacement : c));
    }
    return out;
}

std::string utf8FromWindows1251(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char b : text) {
        char octets[4];
        int n = encodeUtf8(from1251(static_cast<unsigned char>(b)), octets);
        out.append(octets, static_cast<std::size_t>(n));
    }
    return out;
}

std::string windows1251FromWide(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t w : text) {
        int octet = to1251(static_cast<char32_t>(w));
        out.push_back(octet < 0 ? '?' : static_cast<char>(octet));
    }
    return out;
}

std::size_t safe_wcsrtombs(char* target, const wchar_t* source, std::size_t size) {
    if (target == nullptr || size == 0) return static_cast<std::size_t>(-1);
    target[0] = 0;
    if (source == nullptr) return static_cast<std::size_t>(-1);
    std::size_t length = 0;
    for (; *source != 0; ++source) {
        char octets[4];
        char32_t c = static_cast<char32_t>(*source);
        std::size_t n = hasUtf8Form(c) ? static_cast<std::size_t>(encodeUtf8(c, octets)) : size;
        if (n >= size - length) {
            target[length] = 0;
            return static_cast<std::size_t>(-1);
        }
        std::memcpy(target + length, octets, n);
        length += n;
    }
    target[length] = 0;
    return length;
}
