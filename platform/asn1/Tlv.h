#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/asn1/Runtime.h"

// Identifier and length octets (X.690 8.1). Every read of an encoding starts here.

namespace asn1 {

inline constexpr std::uint8_t tagBoolean = 0x01, tagInteger = 0x02, tagBitString = 0x03,
                              tagOctetString = 0x04, tagNull = 0x05, tagObjectIdentifier = 0x06,
                              tagEnumerated = 0x0A, tagUtf8String = 0x0C, tagNumericString = 0x12,
                              tagPrintableString = 0x13, tagTeletexString = 0x14,
                              tagIa5String = 0x16, tagUtcTime = 0x17, tagGeneralizedTime = 0x18,
                              tagVisibleString = 0x1A, tagUniversalString = 0x1C,
                              tagBmpString = 0x1E, tagSequence = 0x30, tagSet = 0x31;
inline constexpr std::uint8_t constructed = 0x20;

/// The deepest nesting that is read or written.
inline constexpr int maxDepth = 64;
/// Inputs from this size on are refused, so that every length, also in bits, fits 32 bits.
inline constexpr std::size_t maxInput = std::size_t{1} << 29;

/// One value's identifier and extent. With an indefinite length, `end` is where its end-of-contents
/// octets begin.
struct Header {
    std::uint8_t id;  // the first identifier octet
    bool indefinite;
    bool longer;  // identifier or length took more octets than DER allows
    const std::uint8_t* content;
    const std::uint8_t* end;
    const std::uint8_t* next;  // what follows the value
};

/// Reads where high tag numbers, long and indefinite lengths are concerned.
int readLongHeader(const std::uint8_t* p, const std::uint8_t* end, Header& header);

/// Reads a header at `p`, all of whose value must lie in front of `end`. 0 or a code below zero.
inline int readHeader(const std::uint8_t* p, const std::uint8_t* end, Header& header) {
    if (end - p >= 2 && (p[0] & 0x1F) != 0x1F && p[1] < 0x80) [[likely]] {
        header.id = p[0];
        header.indefinite = header.longer = false;
        header.content = p + 2;
        if (p[1] > end - header.content) return ASN_E_ENDOFBUF;
        header.next = header.end = header.content + p[1];
        return ASN_OK;
    }
    return readLongHeader(p, end, header);
}

/// How many octets the length takes in DER.
inline std::size_t lengthOctets(std::size_t length) {
    std::size_t count = 1;
    if (length >= 0x80) {
        for (; length != 0; length >>= 8) ++count;
    }
    return count;
}

inline void putLength(std::uint8_t* p, std::size_t length) {
    std::size_t count = lengthOctets(length) - 1;
    if (count == 0) {
        *p = static_cast<std::uint8_t>(length);
        return;
    }
    *p = static_cast<std::uint8_t>(0x80 | count);
    for (std::size_t i = count; i > 0; length >>= 8) p[i--] = static_cast<std::uint8_t>(length);
}

/// What a code means, for error texts.
const char* errorName(int code);

}  // namespace asn1
