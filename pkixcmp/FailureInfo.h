#pragma once

#include <cstdint>
#include <string>

#include "platform/Export.h"

// The enumerations and bit sets of the message records. Records hold them as 32-bit integers.

/// What a request asks for. The numbers are the library's own and never on the wire; 7 is not used
/// and refused.
enum RequestType : std::int32_t {
    REQUEST_TYPE_GET_CERTIFICATE = 0,     // p10cr
    REQUEST_TYPE_REVOKE_CERTIFICATE = 1,  // rr
    REQUEST_TYPE_GET_CRL = 2,             // genm with id_it_CurrentCRL
    REQUEST_TYPE_INIT_CERTIFICATE = 3,    // ir, unprotected, with proof of possession
    REQUEST_TYPE_CROSS = 4,               // ccr
    REQUEST_TYPE_CONFIRM = 5,             // pkiconf
    REQUEST_TYPE_UPDATE_KEY = 6,          // kur
    REQUEST_TYPE_RESUME_CERTIFICATE = 8,  // genm with id_Quorvex_it_ResumeCertificate
    REQUEST_TYPE_GEN_MSG_CONTENT = 9,     // any other genm
    REQUEST_TYPE_CHANGE_NAME = 10,        // genm with id_Quorvex_it_ChangeNameReq
};

/// How far the processing of a request has come; set by the caller, printed by the dumps.
enum RequestStatus : std::int32_t {
    REQUEST_STATUS_ENTERED = 0,
    REQUEST_STATUS_PENDING = 1,
    REQUEST_STATUS_DECLINED = 2,
    REQUEST_STATUS_ACCEPTED = 3,
    REQUEST_STATUS_PROCESSED = 4,
    REQUEST_STATUS_COMPLETED = 5,
};

/// PKIStatus of RFC 4210 5.2.3.
enum PKIStatusEnum : std::int32_t {
    PKI_STATUS_GRANTED = 0,
    PKI_STATUS_GRANTEDWITHMODS = 1,
    PKI_STATUS_REJECTION = 2,
    PKI_STATUS_WAITING = 3,
    PKI_STATUS_REVOCATIONWARNING = 4,
    PKI_STATUS_REVOCATIONNOTIFICATION = 5,
    PKI_STATUS_KEYUPDATEWARNING = 6,
};

/// A set of failure bits. In memory a mask is 1 shifted by the bit number of RFC 4210's
/// PKIFailureInfo; on the wire the bit is the mask's position in `sequence`, so the last five go
/// out at 10 to 14 and not at the RFC's 14 to 17 and 25.
class PKIXCMP_API FailureInfo {
public:
    static constexpr std::uint32_t badAlg = 0x1;
    static constexpr std::uint32_t badMessageCheck = 0x2;
    static constexpr std::uint32_t badRequest = 0x4;
    static constexpr std::uint32_t badTime = 0x8;
    static constexpr std::uint32_t badCertId = 0x10;
    static constexpr std::uint32_t badDataFormat = 0x20;
    static constexpr std::uint32_t wrongAuthority = 0x40;
    static constexpr std::uint32_t incorrectData = 0x80;
    static constexpr std::uint32_t missingTimeStamp = 0x100;
    static constexpr std::uint32_t badPOP = 0x200;
    static constexpr std::uint32_t timeNotAvailable = 0x4000;
    static constexpr std::uint32_t unacceptedPolicy = 0x8000;
    static constexpr std::uint32_t unacceptedExtension = 0x10000;
    static constexpr std::uint32_t addInfoNotAvailable = 0x20000;
    static constexpr std::uint32_t systemFailure = 0x2000000;

    static constexpr int count = 15;
    static constexpr std::uint32_t sequence[count] = {badAlg,
                                                      badMessageCheck,
                                                      badRequest,
                                                      badTime,
                                                      badCertId,
                                                      badDataFormat,
                                                      wrongAuthority,
                                                      incorrectData,
                                                      missingTimeStamp,
                                                      badPOP,
                                                      timeNotAvailable,
                                                      unacceptedPolicy,
                                                      unacceptedExtension,
                                                      addInfoNotAvailable,
                                                      systemFailure};

    FailureInfo() = default;
    FailureInfo(std::uint32_t bits) : value(bits) {}  // NOLINT: records hold the plain word
    operator std::uint32_t() const { return value; }

    /// The names of the bits joined by "|", and "0x%x" for bits that have none.
    std::string toString() const;
    /// Sets the bits named, also as numbers, and gives them back. Null or empty text is 0.
    std::uint32_t fromString(const char* text);

    std::uint32_t value = 0;
};

/// A set of revocation reasons (RFC 5280 4.2.1.13); bit and wire position agree.
class PKIXCMP_API ReasonFlags {
public:
    static constexpr std::uint32_t unused = 1;
    static constexpr std::uint32_t keyCompromise = 2;
    static constexpr std::uint32_t caCompromise = 4;
    static constexpr std::uint32_t affiliationChanged = 8;
    static constexpr std::uint32_t superseded = 0x10;
    static constexpr std::uint32_t cessationOfOperation = 0x20;
    static constexpr std::uint32_t certificateHold = 0x40;

    static constexpr int count = 7;
    static constexpr std::uint32_t sequence[count] = {
        unused,     keyCompromise,        caCompromise,   affiliationChanged,
        superseded, cessationOfOperation, certificateHold};

    ReasonFlags() = default;
    ReasonFlags(std::uint32_t bits) : value(bits) {}  // NOLINT: records hold the plain word
    operator std::uint32_t() const { return value; }

    std::string toString() const;
    std::uint32_t fromString(const char* text);

    std::uint32_t value = 0;
};
