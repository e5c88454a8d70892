#pragma once

#include <string>
#include <string_view>

#include "platform/asn1/BasicTypes.h"

namespace asn1 {

/// Whether content octets are an OBJECT IDENTIFIER (X.690 8.19): at least one subidentifier, each
/// ended and none with a leading 0x80.
inline bool isObjectIdentifier(const std::uint8_t* data, std::size_t length) {
    if (length == 0 || (data[length - 1] & 0x80) != 0) return false;
    bool starts = true;
    for (std::size_t i = 0; i < length; ++i) {
        if (starts && data[i] == 0x80) return false;
        starts = data[i] < 0x80;
    }
    return true;
}
inline bool isObjectIdentifier(const ASN1TObjId& oid) {
    return isObjectIdentifier(oid.data, oid.numocts);
}

/// Dotted text, with arcs of any size after the first two. False for octets that are none.
bool oidText(const ASN1TObjId& oid, std::string& out);
/// Content octets of dotted text. False for anything but digits and dots, fewer than two arcs, more
/// than `most`, or arcs out of X.660's range.
bool oidFromText(std::string_view text, std::string& out, std::size_t most = ASN1_K_MAXSUBIDS);

}  // namespace asn1
