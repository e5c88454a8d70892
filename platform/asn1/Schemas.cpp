#include <algorithm>

#include "platform/asn1/CMSSchema.h"
#include "platform/asn1/PKIXCMPSchema.h"

// The one source that holds all schemas: builders look into the schemas of parts.

namespace asn1 {
namespace {

#define PKIXCMP_SCHEMA_ADDRESS(name) &Schema<asn1data::ASN1T_##name>::type,
constexpr const Type* everyType[] = {PKIXCMP_PKIX1EXPLICIT_TYPES(PKIXCMP_SCHEMA_ADDRESS)  //
                                     PKIXCMP_PKIX1IMPLICIT_TYPES(PKIXCMP_SCHEMA_ADDRESS)  //
                                     PKIXCMP_PKCS10_TYPES(PKIXCMP_SCHEMA_ADDRESS)         //
                                     PKIXCMP_PKIXCRMF_TYPES(PKIXCMP_SCHEMA_ADDRESS)       //
                                     PKIXCMP_PKIXCMP_TYPES(PKIXCMP_SCHEMA_ADDRESS)        //
                                     PKIXCMP_CMS_TYPES(PKIXCMP_SCHEMA_ADDRESS)};
#undef PKIXCMP_SCHEMA_ADDRESS

}  // namespace

bool accepts(const Type& type, std::uint8_t octet) {
    if (type.kind == Kind::choice) return findAlternative(type, octet) >= 0;
    return type.id == 0 || type.id == octet;
}

}  // namespace asn1

std::span<const asn1::Type* const> rtAllTypes() { return asn1::everyType; }

const char* rtTypeName(const asn1::Type& type) { return type.name; }

void* rtNewValue(ASN1CTXT* ctxt, const asn1::Type& type) {
    return rtMemHeapAllocZ(ctxt, type.size);
}
