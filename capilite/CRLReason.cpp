#include "capilite/CRLReason.h"

const char* const CRLReasonValues[9] = {
    "unspecified",   "keyCompromise",        "cACompromise",    "affiliationChanged",
    "superseded",    "cessationOfOperation", "certificateHold", "",
    "removeFromCRL",
};

std::string CRLReasonToString(const CRLReason::Root& reason) {
    auto index = static_cast<std::uint32_t>(reason);
    constexpr std::uint32_t count = sizeof CRLReasonValues / sizeof *CRLReasonValues;
    return index < count ? CRLReasonValues[index] : "";
}
