#pragma once

#include "platform/Export.h"

// Base64 text with and without armour lines.
//
// Each function returns non-zero for success and zero for failure, and tells more by
// `SetLastError`: 0 success, 0x26 success with a text that ended at a "-", 0xA0 bad arguments, 0xEA
// output too small, 0x80092002 text that is no base64. On entry the length argument holds the
// capacity of the output, on return the bytes needed or written; a null output asks for the size
// only. Nothing is allocated.

extern "C" {

/// Lines of 64 characters, each with a line feed, the last one too.
PKIXCMP_API int base64_encode(const unsigned char* bytes, unsigned int length, char* text,
                              unsigned int* pcb64);
/// White space is skipped and "-" ends the text. Last characters without padding that are no group
/// of four are dropped. Input octets are looked up by their low seven bits.
PKIXCMP_API int base64_decode(const char* text, unsigned int length, unsigned char* bytes,
                              unsigned int* bytesLength);
/// Finds the text behind an armour line and leading white space. Fails when nothing stands there.
PKIXCMP_API int skip_base64_header(const char* text, unsigned int length, const char** bodyOut,
                                   unsigned int* bodyLengthOut);

/// The armour lines of one kind of object.
struct Base64HeaderPair {
    unsigned int size;  // of this record
    const char* header;
    const char* footer;
};
PKIXCMP_API extern const struct Base64HeaderPair _Base64CertificateHdrs;
PKIXCMP_API extern const struct Base64HeaderPair _Base64RequestHdrs;

PKIXCMP_API int base64hdr_encode(const struct Base64HeaderPair* pair, const unsigned char* bytes,
                                 unsigned int length, char* text, unsigned int* textLength);
/// Skips any armour, then decodes.
PKIXCMP_API int base64hdr_decode(const char* text, unsigned int length, unsigned char* bytes,
                                 unsigned int* bytesLength);
}
