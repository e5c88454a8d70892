#include "platform/support/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

#include "platform/support/LastError.h"

using namespace std::string_literals;

namespace {

/// The C library's own conversion, as a judge.
std::string iconvert(const char* to, const char* from, std::string in) {
    iconv_t converter = iconv_open(to, from);
    std::string out(in.size() * 6 + 16, 0);
    char* source = in.data();
    char* target = out.data();
    std::size_t sourceLeft = in.size();
    std::size_t targetLeft = out.size();
    bool ok =
        iconv(converter, &source, &sourceLeft, &target, &targetLeft) != static_cast<size_t>(-1);
    iconv_close(converter);
    out.resize(ok ? out.size() - targetLeft : 0);
    return out;
}

TEST(Text, AgreesWithTheCLibraryOnEveryByteOfWindows1251) {
    for (int b = 1; b < 256; ++b) {
        if (b == 0x98) continue;  // unassigned
        std::string octet(1, static_cast<char>(b));
        std::string utf8 = utf8FromWindows1251(octet);
        EXPECT_EQ(utf8, iconvert("UTF-8", "WINDOWS-1251", octet)) << b;
        EXPECT_EQ(windows1251FromWide(wideFromUtf8(utf8)), octet) << b;
    }
    EXPECT_EQ(windows1251FromWide(L"a\u4e2d\u044f"), "a?\xFF");
    EXPECT_STREQ(support::cp1251<"Ошибка ёЁ 0x%x">, windows1251FromWide(L"Ошибка ёЁ 0x%x").c_str());
}

TEST(Text, Utf8RoundTripsAtEveryLengthBoundary) {
    for (char32_t c :
         {0x1u, 0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD7FFu, 0xE000u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
        std::u32string one(1, c);
        std::string judged = iconvert("UTF-8", "UTF-32LE",
                                      std::string(reinterpret_cast<const char*>(one.data()), 4));
        std::wstring wide(1, static_cast<wchar_t>(c));
        EXPECT_EQ(utf8FromWide(wide), judged) << std::uint32_t{c};
        EXPECT_EQ(wideFromUtf8(judged), wide) << std::uint32_t{c};
    }
}

TEST(Text, IllFormedUtf8IsReplacedOrRefused) {
    // What replaces them: one character for each maximal well-formed beginning.
    const std::pair<std::string, std::wstring> cases[] = {
        {"\x80", L"\uFFFD"},
        {"a\xC0\x80z", L"a\uFFFD\uFFFDz"},
        {"\xC2", L"\uFFFD"},
        {"\xC2z", L"\uFFFDz"},
        {"\xE0\x80\x80", L"\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
        {"\xE4\xB8", L"\uFFFD"},
        {"\xF0\x8F\xBF\xBF", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9F\x98z", L"\uFFFDz"},
        {"\xFF", L"\uFFFD"},
    };
    for (const auto& [bytes, replaced] : cases) {
        EXPECT_EQ(wideFromUtf8(bytes), replaced) << testing::PrintToString(bytes);
        SetLastError(0);
        wchar_t out[8];
        EXPECT_EQ(MultiByteToWideChar(0, 0, bytes.data(), static_cast<int>(bytes.size()), out, 8),
                  0);
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
    EXPECT_EQ(utf8FromWide(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
    EXPECT_EQ(utf8FromWide(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
}

TEST(Text, ConversionSizesAndRefusals) {
    const wchar_t* text = L"я€";  // two octets and three
    char out[16];
    struct {
        std::uint32_t page;
        int length, size, result;
        std::uint32_t error;
    } cases[] = {
        {0, -1, 0, 6, 0},   {65001, 2, 0, 5, 0}, {0, 2, 5, 5, 0},      {0, 2, 4, 0, 122},
        {0, -1, 5, 0, 122}, {1251, -1, 3, 3, 0}, {1251, 2, 1, 0, 122}, {1252, 2, 16, 0, 87},
        {0, 0, 16, 0, 87},  {0, -2, 16, 0, 87},  {0, 2, -1, 0, 87},
    };
    for (auto& c : cases) {
        SetLastError(0);
        EXPECT_EQ(WideCharToMultiByte(c.page, 0, text, c.length, out, c.size, nullptr, nullptr),
                  c.result)
            << c.page << " " << c.length << " " << c.size;
        EXPECT_EQ(GetLastError(), c.error);
    }
    int used = 7;
    EXPECT_EQ(WideCharToMultiByte(1251, 0, L"\u4e2d", 1, out, 16, nullptr, &used), 0);
    EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(used, 0);
    EXPECT_EQ(WideCharToMultiByte(1251, 0, L"\u4e2d", 1, out, 16, "!", &used), 1);
    EXPECT_EQ(out[0], '!');
    EXPECT_EQ(used, 1);
    EXPECT_EQ(WideCharToMultiByte(0, 0, nullptr, -1, out, 16, nullptr, nullptr), 0);
    wchar_t wide[8];
    EXPECT_EQ(MultiByteToWideChar(0, 0, "яz", -1, wide, 8), 3);
    EXPECT_STREQ(wide, L"яz");
    EXPECT_EQ(MultiByteToWideChar(0, 0, "яz", -1, wide, 2), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(MultiByteToWideChar(0, 0, "яz", -1, nullptr, 0), 3);
}

TEST(Text, BoundedConversionNeverWritesBehindItsSize) {
    struct {
        std::wstring text;
        std::size_t size;
        std::size_t result;
        std::string written;
    } cases[] = {
        {L"abc", 4, 3, "abc"},
        {L"abc", 3, SIZE_MAX, "ab"},
        {L"яя", 5, 4, "яя"},
        {L"яя", 4, SIZE_MAX, "я"},
        {L"", 1, 0, ""},
        {L"a", 1, SIZE_MAX, ""},
        {std::wstring(1, static_cast<wchar_t>(0xDC00)), 8, SIZE_MAX, ""},
    };
    for (auto& c : cases) {
        std::string buffer(16, '#');
        EXPECT_EQ(safe_wcsrtombs(buffer.data(), c.text.c_str(), c.size), c.result);
        EXPECT_EQ(buffer.c_str(), c.written);
        EXPECT_EQ(buffer.substr(c.size), std::string(16 - c.size, '#'));
    }
    char untouched = '#';
    EXPECT_EQ(safe_wcsrtombs(&untouched, L"", 0), SIZE_MAX);
    EXPECT_EQ(untouched, '#');
}

}  // namespace
