#pragma once

#include <cstddef>

#include "capilite/Blob.h"
#include "capilite/DecodeBuffer.h"
#include "platform/Export.h"
#include "platform/asn1/CMS.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/PKIX1Implicit.h"

// Builders of records. A record returned lives in the context. A context without memory is
// `CAException` "out of memory", a refusal of the cryptographic interface `CryptException`.

/// The first extension of the identifier, or null.
PKIXCMP_API asn1data::ASN1T_Extension* ASN1T_Extensions_find_item(
    asn1data::ASN1T_Extensions& extensions, const ASN1TObjId& oid);
PKIXCMP_API asn1data::ASN1T_Extension* ASN1T_Extensions_find_item(
    asn1data::ASN1T_Extensions& extensions, const ASN1OBJID& oid);
PKIXCMP_API const asn1data::ASN1T_Extension* ASN1T_Extensions_find_item(
    const asn1data::ASN1T_Extensions& extensions, const ASN1TObjId& oid);
PKIXCMP_API const asn1data::ASN1T_Extension* ASN1T_Extensions_find_item(
    const asn1data::ASN1T_Extensions& extensions, const ASN1OBJID& oid);
/// Its value, or null and `critical` as it was.
PKIXCMP_API const ASN1OpenType* ASN1T_Extensions_find(const asn1data::ASN1T_Extensions& extensions,
                                                      const ASN1TObjId& oid, bool& critical);
PKIXCMP_API const ASN1OpenType* ASN1T_Extensions_find(const asn1data::ASN1T_Extensions& extensions,
                                                      const ASN1OBJID& oid, bool& critical);

/// The public key of the provider's key.
PKIXCMP_API asn1data::ASN1T_SubjectPublicKeyInfo* ASN1T_SubjectPublicKeyInfo_set(
    unsigned long long prov, unsigned int keySpec, ASN1CTXT* context);

/// From dotted text and encoded parameters; without parameters the field is absent.
/// `Asn1DecodeException` "str2oid failed".
PKIXCMP_API asn1data::ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(
    ASN1CTXT* context, const char* oidText, const unsigned char* parameters, unsigned int length);
PKIXCMP_API asn1data::ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(
    ASN1CTXT* context, const char* oidText, const CACMPT_BLOB* parameters);
/// The signature algorithm of the provider's key; an RSA one has the NULL parameters of RFC 4055.
/// `CAException` "oid info not found".
PKIXCMP_API asn1data::ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(
    ASN1CTXT* context, unsigned long long prov, unsigned int keySpec);
PKIXCMP_API void ASN1T_AlgorithmIdentifier_get(CACMPT_AlgorithmIdentifier& target,
                                               const asn1data::ASN1T_AlgorithmIdentifier& record);

/// SHA-1 of the octets of a public key's bit string (RFC 5280 4.2.1.2, method 1).
PKIXCMP_API asn1data::ASN1T_KeyIdentifier* ASN1T_KeyIdentifier_set(unsigned long long prov,
                                                                   ASN1CTXT* context,
                                                                   const ASN1TDynBitStr& bits);

/// The issuer is the DER of a name, the serial the little-endian number of the cryptographic
/// interface.
PKIXCMP_API void fillIssuerAndSerialNumber(ASN1CTXT* context,
                                           asn1data::ASN1T_IssuerAndSerialNumber** record,
                                           const CACMPT_BLOB& issuer, const CACMPT_BLOB& serial);

/// NULL parameters; the octets live in the decode buffer's context.
PKIXCMP_API void fillNullParams(ASN1BEREncodeBuffer& encodeBuffer,
                                ASN1BERDecodeBuffer& decodeBuffer,
                                asn1data::ASN1T_AlgorithmIdentifier& record);
