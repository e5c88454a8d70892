#include <climits>

#include "platform/asn1/Runtime.h"

// Conversions between UTF-8 (RFC 3629), wide characters, UniversalString and BMPString.

namespace {

bool isScalarValue(std::uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

/// Reads one character at `i` and moves past it; a value above 0x10FFFF for octets that are none.
std::uint32_t nextCharacter(std::string_view text, std::size_t& i) {
    constexpr std::uint32_t none = 0xFFFFFFFF;
    auto octet = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    std::uint32_t first = octet(i);
    if (first < 0x80) {
        ++i;
        return first;
    }
    std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    if (first < 0xC2 || first > 0xF4 || text.size() - i <= more) return none;
    std::uint32_t c = first & (0x3FU >> more);
    for (std::size_t k = 1; k <= more; ++k) {
        if ((octet(i + k) & 0xC0) != 0x80) return none;
        c = c << 6 | (octet(i + k) & 0x3FU);
    }
    static constexpr std::uint32_t smallest[] = {0, 0x80, 0x800, 0x10000};
    if (c < smallest[more] || !isScalarValue(c)) return none;
    i += more + 1;
    return c;
}

char* putUtf8(std::uint32_t c, int size, char* out) {
    static constexpr unsigned char mark[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (int k = size - 1; k > 0; --k) {
        out[k] = static_cast<char>(0x80 | (c & 0x3F));
        c >>= 6;
    }
    out[0] = static_cast<char>(mark[size] | c);
    return out + size;
}

/// Writes each character as `width` big-endian octets.
int toBigEndian(ASN1CTXT* ctxt, std::wstring_view text, unsigned width, ASN1TString* out) {
    if (text.size() > INT_MAX / width) return ASN_E_TOOBIG;
    auto* p = static_cast<char*>(ctxt->alloc(text.size() * width));
    if (p == nullptr) return ASN_E_NOMEM;
    *out = ASN1TString(static_cast<std::uint32_t>(text.size() * width), p);
    for (wchar_t w : text) {
        auto c = static_cast<std::uint32_t>(w);
        for (unsigned k = width; k-- > 0;) *p++ = static_cast<char>(c >> (8 * k));
    }
    return ASN_OK;
}

int fromBigEndian(const ASN1TString& text, unsigned width, std::wstring& out) {
    if (text.length % width != 0) return ASN_E_INVLEN;
    std::wstring result;
    result.reserve(text.length / width);
    for (std::size_t i = 0; i < text.length; i += width) {
        std::uint32_t c = 0;
        for (unsigned k = 0; k < width; ++k) {
            c = c << 8 | static_cast<unsigned char>(text.data[i + k]);
        }
        if (c > 0x10FFFF) return ASN_E_INVVAL;
        result.push_back(static_cast<wchar_t>(c));
    }
    out = std::move(result);
    return ASN_OK;
}

}  // namespace

int rtUTF8Len(std::string_view text) {
    int count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) {
        if (nextCharacter(text, i) > 0x10FFFF) return ASN_E_INVVAL;
        if (count == INT_MAX) return ASN_E_TOOBIG;
    }
    return count;
}

int rtUTF8Len(const char* text) { return rtUTF8Len(std::string_view(text)); }

int rtUTF8CharSize(wchar_t c) {
    auto u = static_cast<std::uint32_t>(c);
    if (!isScalarValue(u)) return ASN_E_INVVAL;
    return u < 0x80 ? 1 : u < 0x800 ? 2 : u < 0x10000 ? 3 : 4;
}

int rtUTF8ToWCS(std::string_view text, wchar_t* out, std::size_t size) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) {
        std::uint32_t c = nextCharacter(text, i);
        if (c > 0x10FFFF) return ASN_E_INVVAL;
        if (count + 1 >= size) return ASN_E_BUFOVFLW;
        out[count] = static_cast<wchar_t>(c);
    }
    if (count >= size || count > INT_MAX) return ASN_E_BUFOVFLW;
    out[count] = L'\0';
    return static_cast<int>(count);
}

int rtUTF8ToWCS(const char* text, wchar_t* out, std::size_t size) {
    return rtUTF8ToWCS(std::string_view(text), out, size);
}

int rtWCSToUTF8(std::wstring_view text, char* out, std::size_t size) {
    char* p = out;
    for (wchar_t c : text) {
        int need = rtUTF8CharSize(c);
        if (need < 0) return need;
        if (size - static_cast<std::size_t>(p - out) <= static_cast<std::size_t>(need)) {
            return ASN_E_BUFOVFLW;
        }
        p = putUtf8(static_cast<std::uint32_t>(c), need, p);
    }
    if (size == 0 || p - out > INT_MAX) return ASN_E_BUFOVFLW;
    *p = '\0';
    return static_cast<int>(p - out);
}

int rtWCSToUTF8(const wchar_t* text, char* out, std::size_t size) {
    return rtWCSToUTF8(std::wstring_view(text), out, size);
}

int rtWCSToUCSString(ASN1CTXT* ctxt, std::wstring_view text, ASN1TString* out) {
    return toBigEndian(ctxt, text, 4, out);
}
int rtWCSToBMPString(ASN1CTXT* ctxt, std::wstring_view text, ASN1TString* out) {
    return toBigEndian(ctxt, text, 2, out);
}
int rtUCSToWCSString(const ASN1TString& text, std::wstring& out) {
    return fromBigEndian(text, 4, out);
}
int rtBMPToWCSString(const ASN1TString& text, std::wstring& out) {
    return fromBigEndian(text, 2, out);
}
