#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/asn1/BasicTypes.h"
#include "platform/asn1/Context.h"

// The operations of the ASN.1 runtime. Codes: 0 or above is success, below zero a failure whose
// text `rtErrGetText` gives.

inline constexpr int ASN_OK = 0;
inline constexpr int ASN_E_BUFOVFLW = -1;  // no room in the caller's buffer
inline constexpr int ASN_E_ENDOFBUF = -2;  // input ends inside a value
inline constexpr int ASN_E_INVTAG = -3;    // another tag was expected
inline constexpr int ASN_E_INVLEN = -4;    // a length that does not fit
inline constexpr int ASN_E_INVVAL = -5;    // content that is no value of the type
inline constexpr int ASN_E_NOMEM = -6;     // no memory, or the byte budget is spent
inline constexpr int ASN_E_DEPTH = -7;     // nested deeper than the limit
inline constexpr int ASN_E_TRAILING = -8;  // bytes behind the value
inline constexpr int ASN_E_CHOICE = -9;    // no such alternative
inline constexpr int ASN_E_MISSING = -10;  // a required field is absent
inline constexpr int ASN_E_XML = -11;      // XER text that cannot be read
inline constexpr int ASN_E_TOOBIG = -12;   // a number or text too big for where it must go

/// How a string is tagged by `xe_charstr` and its kin: `ASN1EXPL` writes tag and length in front,
/// `ASN1IMPL` the content alone, for a caller who writes a tag of his own.
enum ASN1TagType { ASN1IMPL, ASN1EXPL };

// Contexts and memory.
PKIXCMP_API int rtInitContext(ASN1CTXT* ctxt);
PKIXCMP_API void rtFreeContext(ASN1CTXT* ctxt);
/// Copies the encode and decode cursors of `xe_*` and `xd_*`, so that they can be put back.
PKIXCMP_API void rtCopyContext(ASN1CTXT* target, const ASN1CTXT* source);
PKIXCMP_API void* rtMemHeapAlloc(ASN1CTXT* ctxt, std::size_t size);
/// As `rtMemHeapAlloc`, cleared.
PKIXCMP_API void* rtMemHeapAllocZ(ASN1CTXT* ctxt, std::size_t size);
PKIXCMP_API std::string rtErrGetText(ASN1CTXT* ctxt);
/// A zero-terminated copy in the context, null when there is no memory left.
PKIXCMP_API const char* rtCopyCharStr(ASN1CTXT* ctxt, std::string_view text);
PKIXCMP_API const std::uint8_t* rtCopyBytes(ASN1CTXT* ctxt, const void* data, std::size_t length);

// Identifiers.
/// Encodes the arcs into the context. Fails on fewer than two arcs or arcs out of X.660's range.
PKIXCMP_API int rtSetOID(ASN1CTXT* ctxt, ASN1TObjId* target, const ASN1OBJID* source);
PKIXCMP_API int rtOidFromOctets(const ASN1TObjId& source, ASN1OBJID* target);
/// Dotted text with a terminating zero.
PKIXCMP_API int rtOidToStr(const ASN1OBJID* oid, char* buffer, std::size_t size);
PKIXCMP_API int rtOidToStr(const ASN1TObjId& oid, char* buffer, std::size_t size);
PKIXCMP_API std::string rtOidToString(const ASN1TObjId& oid);

// Characters. Lengths without a terminating zero unless said otherwise.
/// Count of characters of UTF-8 text, or below zero for text that is not UTF-8 (RFC 3629).
PKIXCMP_API int rtUTF8Len(std::string_view text);
PKIXCMP_API int rtUTF8Len(const char* text);
/// Octets that the character takes in UTF-8, or below zero for a code point that has none.
PKIXCMP_API int rtUTF8CharSize(wchar_t c);
/// Writes the characters and a terminating zero; the count written, or below zero for text that is
/// not UTF-8 or does not fit `size` characters with the zero.
PKIXCMP_API int rtUTF8ToWCS(std::string_view text, wchar_t* out, std::size_t size);
PKIXCMP_API int rtUTF8ToWCS(const char* text, wchar_t* out, std::size_t size);
/// Writes UTF-8 and a terminating zero; octets without the zero, or below zero for a character that
/// has no UTF-8 form or a text that does not fit `size` octets with the zero.
PKIXCMP_API int rtWCSToUTF8(std::wstring_view text, char* out, std::size_t size);
PKIXCMP_API int rtWCSToUTF8(const wchar_t* text, char* out, std::size_t size);
/// Between wide characters and the big-endian octets of a UniversalString or BMPString. The string
/// made lives in the context. BMP keeps the low 16 bits of each character.
PKIXCMP_API int rtWCSToUCSString(ASN1CTXT* ctxt, std::wstring_view text, ASN1TString* out);
PKIXCMP_API int rtWCSToBMPString(ASN1CTXT* ctxt, std::wstring_view text, ASN1TString* out);
PKIXCMP_API int rtUCSToWCSString(const ASN1TString& text, std::wstring& out);
PKIXCMP_API int rtBMPToWCSString(const ASN1TString& text, std::wstring& out);

// Big integers as sign and magnitude.
struct ASN1BigInt {
    std::string mag;  // big-endian octets without leading zeros; empty for zero
    int sign = 0;     // -1, 0 or 1
};
PKIXCMP_API void rtBigIntInit(ASN1BigInt* number);
/// Reads decimal, "0x" hexadecimal or "0" octal text when radix is 0. Surrounding white space is
/// refused, as is anything that is no digit.
PKIXCMP_API int rtBigIntSetStr(ASN1CTXT* ctxt, ASN1BigInt* number, const char* text, int radix);
PKIXCMP_API void rtBigIntFree(ASN1BigInt* number);

// Single values through the context's own cursor. `xe_*` writes back to front; the return value is
// the length of what was written, or below zero.
/// Starts a new encoding in the caller's buffer, or for a null buffer in memory of the context,
/// which grows.
PKIXCMP_API int xe_setp(ASN1CTXT* ctxt, std::uint8_t* buffer, std::size_t size);
/// Where the encoding begins.
PKIXCMP_API std::uint8_t* xe_getp(ASN1CTXT* ctxt);
PKIXCMP_API int xe_charstr(ASN1CTXT* ctxt, std::string_view text, ASN1TagType tagging,
                           std::uint8_t universalTag);
PKIXCMP_API int xe_octstr(ASN1CTXT* ctxt, const std::uint8_t* data, std::size_t length,
                          ASN1TagType tagging);
/// Points the read cursor at bytes.
PKIXCMP_API int xd_setp(ASN1CTXT* ctxt, const std::uint8_t* data, std::size_t length);
/// Reads identifier octets and a definite length, both checked against what is left; gives the
/// first identifier octet and leaves the cursor at the content.
PKIXCMP_API int xd_tag_len(ASN1CTXT* ctxt, std::uint8_t* firstOctet, std::size_t* length);
/// The content octets at the cursor, which moves past them; null when fewer are left.
PKIXCMP_API const std::uint8_t* xd_content(ASN1CTXT* ctxt, std::size_t length);

// Whole values by their schema.
/// A deep copy of the value into the context: nothing in the copy points outside it.
PKIXCMP_API int rtCopyValue(ASN1CTXT* ctxt, const asn1::Type& type, const void* source,
                            void* target);
template <class T>
int asn1Copy(ASN1CTXT* ctxt, const T& source, T& target) {
    return rtCopyValue(ctxt, Schema<T>::type, &source, &target);
}
/// XER text of a value (X.693 canonical form, no white space), with the type's name outermost.
PKIXCMP_API int rtEncodeXer(ASN1CTXT* ctxt, const asn1::Type& type, const void* value,
                            std::string& out);
/// Reads the XER text of one value; unread text behind it is an error.
PKIXCMP_API int rtDecodeXer(ASN1CTXT* ctxt, const asn1::Type& type, std::string_view text,
                            void* value);
/// DER of a value into memory of the context; length, or below zero.
PKIXCMP_API int rtEncodeDer(ASN1CTXT* ctxt, const asn1::Type& type, const void* value,
                            const std::uint8_t** out);
/// Decodes bytes into a value in the context.
PKIXCMP_API int rtDecodeBer(ASN1CTXT* ctxt, const asn1::Type& type, const std::uint8_t* data,
                            std::size_t length, void* value);
/// Every type of the published modules, in the order of the modules' lists.
PKIXCMP_API std::span<const asn1::Type* const> rtAllTypes();
/// Memory in the context for a value of a type that is known only at run time, cleared; null when
/// there is none left.
PKIXCMP_API void* rtNewValue(ASN1CTXT* ctxt, const asn1::Type& type);
/// The name of a type as it stands in XER text and in dumps.
PKIXCMP_API const char* rtTypeName(const asn1::Type& type);
