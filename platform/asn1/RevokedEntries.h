#pragma once

#include <cstdint>

#include "platform/asn1/Tlv.h"

// revokedCertificates of a CRL as the content octets of their SEQUENCE OF. A CRL may have a million
// entries, so these are checked once and then walked where they lie.

namespace asn1 {

/// Where the parts of an entry lie.
struct RevokedEntry {
    Header whole;
    Header serial;
};

/// Reads the frame of the entry at `p`: a SEQUENCE of an INTEGER, a UTCTime or GeneralizedTime, and
/// maybe a SEQUENCE. 0, or a code below zero with `p` at the fault.
int readRevokedEntry(const std::uint8_t*& p, const std::uint8_t* end, RevokedEntry& entry);

/// Checks the frames of all entries; `p` moves to the end or to the fault.
int checkRevokedEntries(const std::uint8_t*& p, const std::uint8_t* end);

}  // namespace asn1
