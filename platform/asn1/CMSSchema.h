#pragma once

#include "platform/asn1/CMS.h"
#include "platform/asn1/PKIX1ExplicitSchema.h"

// Schemas of CryptographicMessageSyntax2004 (RFC 5652, IMPLICIT TAGS). Included by Schemas.cpp
// alone.

// IssuerAndSerialNumber ::= SEQUENCE {
//     issuer        Name,
//     serialNumber  CertificateSerialNumber }
template <>
constexpr Type Schema<ASN1T_IssuerAndSerialNumber>::type =
    sequence<ASN1T_IssuerAndSerialNumber, Required<&ASN1T_IssuerAndSerialNumber::issuer>,
             Required<&ASN1T_IssuerAndSerialNumber::serialNumber>>("IssuerAndSerialNumber");
