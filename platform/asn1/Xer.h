#pragma once

#include <cstdint>

#include "platform/asn1/Tlv.h"

// What writing and reading of XER (X.693) share.

namespace asn1 {

/// Empty elements that stand for control characters (X.680 12.15.5); those that stand for
/// themselves are null.
inline constexpr const char* controlNames[32] = {
    "nul", "soh", "stx",   "etx", "eot", "enq", "ack", "bel", "bs",  nullptr, nullptr,
    "vt",  "ff",  nullptr, "so",  "si",  "dle", "dc1", "dc2", "dc3", "dc4",   "nak",
    "syn", "etb", "can",   "em",  "sub", "esc", "is4", "is3", "is2", "is1"};

/// Octets of a character of a string type: a code point in two or four for BMPString and
/// UniversalString, in one otherwise. UTF8String holds its text as it stands and is no concern
/// here.
inline unsigned characterWidth(std::uint8_t universalTag) {
    return universalTag == tagUniversalString ? 4 : universalTag == tagBmpString ? 2 : 1;
}

}  // namespace asn1
