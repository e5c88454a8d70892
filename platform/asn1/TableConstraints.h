#pragma once

#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"

namespace asn1 {

/// The type of an extension's decoded value; null, with an error in the context, when there is no
/// decoded value or nobody knows its type.
const Type* decodedType(ASN1CTXT* ctxt, const asn1data::ASN1T_Extension& extension);

}  // namespace asn1
