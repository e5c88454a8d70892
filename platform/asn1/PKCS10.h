#pragma once

#include "platform/asn1/PKIX1Implicit.h"

// Types of PKCS-10 (RFC 2986).

namespace asn1data {

struct ASN1T_CertificationRequest_certificationRequestInfo {
    std::int32_t version = 0;
    ASN1T_Name subject;
    ASN1T_SubjectPublicKeyInfo subjectPKInfo;
    ASN1T_Attributes attributes;
};

struct ASN1T_CertificationRequest {
    ASN1T_CertificationRequest_certificationRequestInfo certificationRequestInfo;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signature;
};

}  // namespace asn1data

// The types of this module, for whoever must walk them all.
// clang-format off
#define PKIXCMP_PKCS10_TYPES(X)                                                                   \
    X(CertificationRequest_certificationRequestInfo) X(CertificationRequest)
// clang-format on
PKIXCMP_PKCS10_TYPES(PKIXCMP_ASN1_SCHEMA)

namespace asn1data {

PKIXCMP_PKCS10_TYPES(PKIXCMP_ASN1_CONTROL)

}  // namespace asn1data
