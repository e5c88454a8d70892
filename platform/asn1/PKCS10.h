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

using ASN1C_CertificationRequest_certificationRequestInfo =
    ASN1Control<ASN1T_CertificationRequest_certificationRequestInfo>;
using ASN1C_CertificationRequest = ASN1Control<ASN1T_CertificationRequest>;

}  // namespace asn1data
