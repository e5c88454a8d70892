#pragma once

#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/asn1/BasicTypes.h"
#include "platform/asn1/Context.h"

// Bounded copies into fixed fields, and text conversions.
//
// In each copy `max` counts the terminating zero, so a source of exactly `max` characters fails.
// All failures are `Asn1DecodeException` with `message`, which names the field. A null source
// fails, and so does a slice with a zero inside, since the target could not hold it whole.

PKIXCMP_API void str1cpy(char* target, const char* source, unsigned long max, const char* message);
PKIXCMP_API void str1cpy(char* target, std::string_view source, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(char* target, const ASN1TString& source, unsigned long max,
                         const char* message);
/// Each octet becomes one character by sign extension, without conversion.
PKIXCMP_API void str1cpy(wchar_t* target, const char* source, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(wchar_t* target, std::string_view source, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(wchar_t* target, const ASN1TString& source, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(std::wstring& target, const char* source, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(std::wstring& target, std::string_view source, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(std::wstring& target, const ASN1TString& source, unsigned long max,
                         const char* message);
/// The arcs in decimal, joined by ".".
PKIXCMP_API void str1cpy(char* target, const ASN1OBJID& oid, unsigned long max,
                         const char* message);
PKIXCMP_API void str1cpy(char* target, const ASN1TObjId& oid, unsigned long max,
                         const char* message);
/// From UTF-8; `max` counts wide characters. Text that is not UTF-8 fails with the same message.
PKIXCMP_API void str1cpy8(wchar_t* target, const char* const& source, unsigned long max,
                          const char* message, ASN1CTXT* context);
PKIXCMP_API void str1cpy8(wchar_t* target, std::string_view source, unsigned long max,
                          const char* message, ASN1CTXT* context);
PKIXCMP_API void str1cpy8(wchar_t* target, const ASN1TString& source, unsigned long max,
                          const char* message, ASN1CTXT* context);

/// To and from code page 0. A character without a form there becomes U+FFFD; text that is not of
/// the code page is widened octet by octet.
PKIXCMP_API std::string tostring(const wchar_t* text);
PKIXCMP_API std::string tostring(std::wstring_view text);
PKIXCMP_API std::wstring towstring(const char* text);
PKIXCMP_API std::wstring towstring(std::string_view text);
/// Decimal.
PKIXCMP_API std::wstring towstring(int number);
inline std::string tostring(const std::wstring& text) { return tostring(std::wstring_view(text)); }
inline std::wstring towstring(const std::string& text) { return towstring(std::string_view(text)); }

/// Without blanks, tabs, line feeds and carriage returns at both ends.
PKIXCMP_API std::string strip_white_space(const std::string& text);
