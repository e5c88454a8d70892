#pragma once

#include "platform/asn1/Schema.h"

// The object sets: which type stands behind an identifier. Null for an unknown one.

namespace asn1 {

const Type* extensionType(const ASN1TObjId& id);
/// Naming attributes and the controls of RFC 4211 section 6.
const Type* attributeTypeAndValueType(const ASN1TObjId& id);
/// Attributes of certification requests and directory attributes.
const Type* attributeType(const ASN1TObjId& id);
const Type* policyQualifierType(const ASN1TObjId& id);
const Type* infoType(const ASN1TObjId& id);

}  // namespace asn1
