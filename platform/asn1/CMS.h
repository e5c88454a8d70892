#pragma once

#include "platform/asn1/PKIX1Explicit.h"

// Types of CryptographicMessageSyntax2004 (RFC 5652).

namespace asn1data {

struct ASN1T_IssuerAndSerialNumber {
    ASN1T_Name issuer;
    ASN1TBigInt serialNumber = nullptr;
};

}  // namespace asn1data

// The types of this module, for whoever must walk them all.
#define PKIXCMP_CMS_TYPES(X) X(IssuerAndSerialNumber)
PKIXCMP_CMS_TYPES(PKIXCMP_ASN1_SCHEMA)

namespace asn1data {

PKIXCMP_CMS_TYPES(PKIXCMP_ASN1_CONTROL)

}  // namespace asn1data
