#pragma once

#include <cstdint>
#include <string>

#include "platform/Export.h"

namespace asn1data {

/// Reasons of a revocation (RFC 5280 5.3.1). Results of a revocation check use two further values.
struct CRLReason {
    enum Root : std::uint32_t {
        unspecified = 0,
        keyCompromise = 1,
        cACompromise = 2,
        affiliationChanged = 3,
        superseded = 4,
        cessationOfOperation = 5,
        certificateHold = 6,
        removeFromCRL = 8,
        privilegeWithdrawn = 9,
        aACompromise = 10,
    };
};

}  // namespace asn1data

using asn1data::CRLReason;

/// Texts of the reasons 0 to 8; the one of 7 is empty.
PKIXCMP_API extern const char* const CRLReasonValues[9];

/// The text of the table, empty for a reason outside it.
PKIXCMP_API std::string CRLReasonToString(const CRLReason::Root& reason);
