#pragma once

#include <string>

#include "capilite/Blob.h"
#include "platform/Export.h"
#include "platform/asn1/Context.h"

// Big integers as text: "0x", then two lower-case digits a byte, one more "0" in front where the
// top bit is set. Text that is no such number is `Asn1DecodeException` "decode integer failed".

/// Writes the text and a terminating zero; no bytes give "0x0" without one, so the caller clears
/// the buffer first. Room needed: 2n + 4.
PKIXCMP_API void ASN1T_BigInt_set(char* text, const unsigned char* bytes, int n);
/// Fills n bytes from the end; what does not fit in front is left out. Empty text gives zeros.
PKIXCMP_API void ASN1T_BigInt_get(const char* text, unsigned char* bytes, int n);
/// The value of one hexadecimal digit.
PKIXCMP_API int hextodgt(char digit);
/// Adds one to a big-endian number, carrying no further than the byte at index `lowest`.
PKIXCMP_API void ASN1T_BigInt_inc(unsigned char* bytes, int n, int lowest);

PKIXCMP_API CACMPT_BigInteger StringToBigInteger(const std::string& text);
PKIXCMP_API std::string BigIntegerToString(const CACMPT_BigInteger& number);
PKIXCMP_API CACMPT_BigInteger ASN1StringToBigInteger(const char* text);
/// Zero-terminated text in the context.
PKIXCMP_API const char* BigIntegerToASN1String(ASN1CTXT* context, const CACMPT_BigInteger& number);
/// The little-endian form of the cryptographic interface. `Asn1Exception` for text that is no
/// number.
PKIXCMP_API void Serial2Blob(ASN1CTXT* context, CACMPT_BLOB& blob, const char* text);
