#pragma once

#include "platform/asn1/PKCS10.h"
#include "platform/asn1/PKIX1ExplicitSchema.h"

// Schemas of PKCS-10 (RFC 2986, IMPLICIT TAGS). Included by Schemas.cpp alone.

// CertificationRequestInfo ::= SEQUENCE {
//     version        INTEGER { v1(0) },
//     subject        Name,
//     subjectPKInfo  SubjectPublicKeyInfo,
//     attributes [0] Attributes }
template <>
constexpr Type Schema<ASN1T_CertificationRequest_certificationRequestInfo>::type = sequence<
    ASN1T_CertificationRequest_certificationRequestInfo,
    Required<&ASN1T_CertificationRequest_certificationRequestInfo::version>,
    Required<&ASN1T_CertificationRequest_certificationRequestInfo::subject>,
    Required<&ASN1T_CertificationRequest_certificationRequestInfo::subjectPKInfo>,
    Required<&ASN1T_CertificationRequest_certificationRequestInfo::attributes, implicit(0)>>(
    "CertificationRequestInfo");

// CertificationRequest ::= SEQUENCE {
//     certificationRequestInfo  CertificationRequestInfo,
//     signatureAlgorithm        AlgorithmIdentifier,
//     signature                 BIT STRING }
template <>
constexpr Type Schema<ASN1T_CertificationRequest>::type = sequence<
    ASN1T_CertificationRequest, Required<&ASN1T_CertificationRequest::certificationRequestInfo>,
    Required<&ASN1T_CertificationRequest::signatureAlgorithm>,
    Required<&ASN1T_CertificationRequest::signature>>("CertificationRequest");
