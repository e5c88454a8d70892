#pragma once

#include <string>
#include <vector>

#include "platform/asn1/asn1data.h"

namespace tool {

/// One type of the ASN.1 layer, without its C++ type.
struct AsnType {
    const asn1::Type* type;
    /// A value in the context, null when there is no memory left.
    void* (*make)(ASN1CTXT* ctxt);
    const char* name() const { return rtTypeName(*type); }
};

/// All types of the published modules and of this system.
const std::vector<AsnType>& asnTypes();
/// Null for a name that no type has; case does not matter.
const AsnType* findAsnType(const std::string& name);

/// A decoded object with the memory it lives in.
struct AsnObject {
    ASN1CtxtRef ctxt;
    const AsnType* type = nullptr;
    void* value = nullptr;

    std::string xer() const;
    std::string der() const;
};

/// Decodes bytes as a type, or as what they turn out to be: the label of the armour says it, or the
/// first of the types that stand in files which they fit. `what` names the bytes in failures.
AsnObject decodeAs(const std::string& der, const AsnType& type, const std::string& what);
AsnObject decodeAny(const std::string& der, const std::string& label, const std::string& what);
/// The armour label of a type, as other programs know it, else its name in capitals.
std::string labelOf(const AsnType& type);

}  // namespace tool
