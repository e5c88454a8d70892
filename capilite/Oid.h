#pragma once

#include <string>

#include "platform/Export.h"
#include "platform/asn1/BasicTypes.h"
#include "platform/asn1/Context.h"

// Dotted text of object identifiers.

/// False for success. Arcs are read as decimal, "0x" hexadecimal or "0" octal numbers; white space
/// may stand around them. More than 128 arcs and arcs of more than 32 bits fail.
PKIXCMP_API bool str2oid(const char* text, ASN1OBJID* oid);
/// The same in encoded form, which also holds decimal arcs of more than 32 bits. The octets live in
/// the context. Arcs that X.660 does not allow fail too, with the error in the context.
PKIXCMP_API bool str2oid(ASN1CTXT* context, const char* text, ASN1TObjId* oid);
/// `CAException` "Can't convert str to oid.".
PKIXCMP_API ASN1OBJID str2oid(const char* text);
/// 1 and the text, or 0 and the text as it was.
PKIXCMP_API int oid2str(std::string& text, const ASN1OBJID* oid);
/// The same for an identifier in its encoded form.
PKIXCMP_API int oid2str(std::string& text, const ASN1TObjId& oid);
