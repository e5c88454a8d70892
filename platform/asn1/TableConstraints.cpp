#include "platform/asn1/TableConstraints.h"

#include "platform/asn1/ObjectSets.h"
#include "platform/asn1/PKIXCMP.h"
#include "platform/asn1/Runtime.h"

// Open types between their bytes and the value of the type that their identifier names.

const asn1::Type* asn1::decodedType(ASN1CTXT* ctxt, const asn1data::ASN1T_Extension& extension) {
    const ASN1OpenType& open = extension.extnValue;
    const Type* type = open.type ? open.type : extensionType(extension.extnID);
    if (open.decoded != nullptr && type != nullptr) return type;
    ctxt->setError(ASN_E_MISSING, "the extension has no decoded value", 0);
    return nullptr;
}

namespace asn1data {
namespace {

int decodeOpen(ASN1CTXT* ctxt, const asn1::Type* type, ASN1OpenType& open, const char* field) {
    open.type = nullptr;
    open.decoded = nullptr;
    if (type == nullptr) return ASN_OK;
    void* value = rtNewValue(ctxt, *type);
    if (value == nullptr) {
        ctxt->setError(ASN_E_NOMEM, "out of memory", 0);
        return ASN_E_NOMEM;
    }
    int code = rtDecodeBer(ctxt, *type, open.data, open.numocts, value);
    if (code < 0) {
        ctxt->addPath(field);
        return code;
    }
    open.type = type;
    open.decoded = value;
    return ASN_OK;
}

}  // namespace

int asn1DTC_AttributeTypeAndValue(ASN1CTXT* ctxt, ASN1T_AttributeTypeAndValue* value) {
    return decodeOpen(ctxt, asn1::attributeTypeAndValueType(value->type), value->value, "value");
}

int asn1DTC_Extension(ASN1CTXT* ctxt, ASN1T_Extension* value) {
    return decodeOpen(ctxt, asn1::extensionType(value->extnID), value->extnValue, "extnValue");
}

int asn1DTC_Attribute(ASN1CTXT* ctxt, ASN1T_Attribute* value) {
    const asn1::Type* type = asn1::attributeType(value->type);
    for (ASN1OpenType& open : value->values) {
        int code = decodeOpen(ctxt, type, open, "values");
        if (code < 0) return code;
    }
    return ASN_OK;
}

int asn1DTC_InfoTypeAndValue(ASN1CTXT* ctxt, ASN1T_InfoTypeAndValue* value) {
    if (!value->m.infoValuePresent) return ASN_OK;
    return decodeOpen(ctxt, asn1::infoType(value->infoType), value->infoValue, "infoValue");
}

int asn1ETC_Extension(ASN1CTXT* ctxt, ASN1T_Extension* value) {
    ASN1OpenType& open = value->extnValue;
    const asn1::Type* type = asn1::decodedType(ctxt, *value);
    if (type == nullptr) return ASN_E_MISSING;
    const std::uint8_t* bytes = nullptr;
    int length = rtEncodeDer(ctxt, *type, open.decoded, &bytes);
    if (length < 0) {
        ctxt->addPath("extnValue");
        return length;
    }
    open.numocts = static_cast<std::uint32_t>(length);
    open.data = bytes;
    return length;
}

const asn1::Type* ExtensionSet::lookupObject(const ASN1TObjId& id) {
    return asn1::extensionType(id);
}

const asn1::Type* ExtensionSet::lookupObject(const ASN1OBJID& id) {
    ASN1CtxtRef scratch;
    ASN1TObjId octets;
    if (rtSetOID(scratch.get(), &octets, &id) != ASN_OK) return nullptr;
    return asn1::extensionType(octets);
}

}  // namespace asn1data
