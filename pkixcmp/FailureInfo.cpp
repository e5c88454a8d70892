#include "pkixcmp/FailureInfo.h"

#include "capilite/BitStringNames.h"

namespace {

constexpr const char* failureNames[FailureInfo::count] = {"badAlg",
                                                          "badMessageCheck",
                                                          "badRequest",
                                                          "badTime",
                                                          "badCertId",
                                                          "badDataFormat",
                                                          "wrongAuthority",
                                                          "incorrectData",
                                                          "missingTimeStamp",
                                                          "badPOP",
                                                          "timeNotAvailable",
                                                          "unacceptedPolicy",
                                                          "unacceptedExtension",
                                                          "addInfoNotAvailable",
                                                          "systemFailure"};

constexpr const char* reasonNames[ReasonFlags::count] = {
    "unused",     "keyCompromise",        "caCompromise",   "affiliationChanged",
    "superseded", "cessationOfOperation", "certificateHold"};

}  // namespace

std::string FailureInfo::toString() const {
    return SmallBitStringToString(sequence, failureNames, count, value);
}

std::uint32_t FailureInfo::fromString(const char* text) {
    return value = SmallBitStringFromString(sequence, failureNames, count, text, "");
}

std::string ReasonFlags::toString() const {
    return SmallBitStringToString(sequence, reasonNames, count, value);
}

std::uint32_t ReasonFlags::fromString(const char* text) {
    return value = SmallBitStringFromString(sequence, reasonNames, count, text, "");
}
