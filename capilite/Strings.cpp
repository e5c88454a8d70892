#include "capilite/Strings.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "capilite/Ascii.h"
#include "capilite/CAException.h"
#include "platform/asn1/Runtime.h"
#include "platform/support/Text.h"

namespace {

constexpr std::uint32_t CODE_PAGE = 0;
constexpr const char* NO_TEXT = nullptr;

/// The text as a slice that may be copied: below `max` and without a zero inside.
std::string_view checked(std::string_view source, unsigned long max, const char* message) {
    if (source.size() >= max || source.find('\0') != source.npos) {
        PKIXCMP_THROW(Asn1DecodeException, message);
    }
    return source;
}

std::string_view checked(const char* source, unsigned long max, const char* message) {
    if (source == nullptr) PKIXCMP_THROW(Asn1DecodeException, message);
    return checked(std::string_view(source), max, message);
}

/// Widens each octet by sign extension.
constexpr auto widen = [](char c) { return static_cast<wchar_t>(static_cast<signed char>(c)); };

void put(char* target, std::string_view text) {
    std::copy(text.begin(), text.end(), target);
    target[text.size()] = '\0';
}

void put(wchar_t* target, std::string_view text) {
    std::transform(text.begin(), text.end(), target, widen);
    target[text.size()] = L'\0';
}

void put(std::wstring& target, std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    std::transform(text.begin(), text.end(), wide.begin(), widen);
    target.swap(wide);
}

std::wstring widenOctets(std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    std::transform(text.begin(), text.end(), wide.begin(),
                   [](char c) { return static_cast<wchar_t>(static_cast<unsigned char>(c)); });
    return wide;
}

}  // namespace

// ---- Bounded copies ----

void str1cpy(char* target, const char* source, unsigned long max, const char* message) {
    put(target, checked(source, max, message));
}
void str1cpy(char* target, std::string_view source, unsigned long max, const char* message) {
    put(target, checked(source, max, message));
}
void str1cpy(char* target, const ASN1TString& source, unsigned long max, const char* message) {
    put(target, checked(source.view(), max, message));
}
void str1cpy(wchar_t* target, const char* source, unsigned long max, const char* message) {
    put(target, checked(source, max, message));
}
void str1cpy(wchar_t* target, std::string_view source, unsigned long max, const char* message) {
    put(target, checked(source, max, message));
}
void str1cpy(wchar_t* target, const ASN1TString& source, unsigned long max, const char* message) {
    put(target, checked(source.view(), max, message));
}
void str1cpy(std::wstring& target, const char* source, unsigned long max, const char* message) {
    put(target, checked(source, max, message));
}
void str1cpy(std::wstring& target, std::string_view source, unsigned long max,
             const char* message) {
    put(target, checked(source, max, message));
}
void str1cpy(std::wstring& target, const ASN1TString& source, unsigned long max,
             const char* message) {
    put(target, checked(source.view(), max, message));
}

void str1cpy(char* target, const ASN1OBJID& oid, unsigned long max, const char* message) {
    if (max == 0) PKIXCMP_THROW(Asn1DecodeException, message);
    target[0] = '\0';
    std::uint32_t count = std::min(oid.numids, ASN1_K_MAXSUBIDS);
    for (std::uint32_t i = 0; i < count; ++i) {
        char piece[16];
        int length = std::snprintf(piece, sizeof piece, i == 0 ? "%u" : ".%u", oid.subid[i]);
        if (static_cast<unsigned long>(length) >= max) PKIXCMP_THROW(Asn1DecodeException, message);
        put(target, piece);
        target += length;
        max -= static_cast<unsigned long>(length);
    }
}

void str1cpy(char* target, const ASN1TObjId& oid, unsigned long max, const char* message) {
    // Not by way of `ASN1OBJID`, which has no room for arcs of more than 32 bits.
    const bool none = oid.numocts == 0;
    if (max == 0 || (!none && rtOidToStr(oid, target, max) < 0)) {
        PKIXCMP_THROW(Asn1DecodeException, message);
    }
    if (none) target[0] = '\0';
}

void str1cpy8(wchar_t* target, std::string_view source, unsigned long max, const char* message,
              ASN1CTXT*) {
    int length = rtUTF8Len(source);
    if (length < 0 || static_cast<unsigned long>(length) >= max ||
        source.find('\0') != source.npos || rtUTF8ToWCS(source, target, max) < 0) {
        PKIXCMP_THROW(Asn1DecodeException, message);
    }
    target[length] = L'\0';
}

void str1cpy8(wchar_t* target, const char* const& source, unsigned long max, const char* message,
              ASN1CTXT* context) {
    if (source == nullptr) PKIXCMP_THROW(Asn1DecodeException, message);
    str1cpy8(target, std::string_view(source), max, message, context);
}

void str1cpy8(wchar_t* target, const ASN1TString& source, unsigned long max, const char* message,
              ASN1CTXT* context) {
    str1cpy8(target, source.view(), max, message, context);
}

// ---- Conversions ----

std::string tostring(std::wstring_view text) {
    if (text.empty()) return {};
    auto length = static_cast<int>(text.size());
    int size = WideCharToMultiByte(CODE_PAGE, 0, text.data(), length, nullptr, 0, NO_TEXT, nullptr);
    if (size <= 0) return utf8FromWide(text);
    std::string out(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CODE_PAGE, 0, text.data(), length, out.data(), size, NO_TEXT, nullptr);
    return out;
}

std::string tostring(const wchar_t* text) { return tostring(std::wstring_view(text ? text : L"")); }

std::wstring towstring(std::string_view text) {
    if (text.empty()) return {};
    auto length = static_cast<int>(text.size());
    int size = MultiByteToWideChar(CODE_PAGE, 0, text.data(), length, nullptr, 0);
    if (size <= 0) return widenOctets(text);
    std::wstring out(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CODE_PAGE, 0, text.data(), length, out.data(), size);
    return out;
}

std::wstring towstring(const char* text) { return towstring(std::string_view(text ? text : "")); }

std::wstring towstring(int number) { return towstring(std::string_view(std::to_string(number))); }

std::string strip_white_space(const std::string& text) {
    auto first = std::find_if_not(text.begin(), text.end(), capilite::isBlankOrBreak);
    auto last = std::find_if_not(text.rbegin(), text.rend(), capilite::isBlankOrBreak).base();
    return first < last ? std::string(first, last) : std::string();
}
