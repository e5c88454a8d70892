#include <algorithm>

#include "capilite/CAException.h"
#include "capilite/Oid.h"
#include "capilite/RecordHelpers.h"
#include "pkixcmp/ExtensionXml.h"
#include "pkixcmp/Extensions.h"

using namespace asn1data;

namespace {

constexpr std::size_t oidRoom = 32;

constexpr const char* cdpPrefix =
    "<CRLDistPointsSyntax><DistributionPoint><distributionPoint><fullName>"
    "<uniformResourceIdentifier>";
constexpr const char* cdpSuffix =
    "</uniformResourceIdentifier></fullName></distributionPoint></DistributionPoint>"
    "</CRLDistPointsSyntax>";

[[noreturn]] void throwRuntime(ASN1CTXT* context) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(context));
}

const std::uint8_t* copyBytes(ASN1CTXT* context, const void* bytes, std::size_t length) {
    const std::uint8_t* copy = rtCopyBytes(context, bytes, length);
    if (copy == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return copy;
}

template <class Oid>
std::string shortOidText(const Oid& oid) {
    char text[oidRoom];
    if (rtOidToStr(oid, text, sizeof text) < 0) {
        PKIXCMP_THROW(Asn1DecodeException, "oid too long");
    }
    return text;
}

void encodeXml(ASN1CTXT* context, const ASN1T_Extension& extension, std::string& xml) {
    if (asn1XETC_Extension(context, &extension, xml) < 0) {
        PKIXCMP_THROW(Asn1EncodeException, "asn1XETC_Extension failed");
    }
    xml.resize(std::min(xml.find('\0'), xml.size()));
}

// Value of a type that the runtime reads by itself.
void* decodeXml(ASN1CTXT* context, const ASN1TObjId& id, const std::string& text) {
    const asn1::Type* type = ExtensionSet::lookupObject(id);
    void* value = type != nullptr ? rtNewValue(context, *type) : nullptr;
    const int result = value != nullptr ? rtDecodeXer(context, *type, text, value) : ASN_E_XML;
    if (result == ASN_E_XML) {
        PKIXCMP_THROW(Asn1DecodeException, "unknown XER-encoded extension");
    }
    if (result < 0) throwRuntime(context);
    return value;
}

void* readXml(ASN1CTXT* context, const ASN1TObjId& id, const std::string& text) {
    const pkixcmp_detail::ExtensionTextForm* form = pkixcmp_detail::findExtensionTextForm(id);
    if (form == nullptr) return decodeXml(context, id, text);
    pkixcmp_detail::XmlCursor cursor(pkixcmp_detail::stripped(text));
    void* value = nullptr;
    if (!form->read(context, cursor, value)) PKIXCMP_THROW(Asn1DecodeException, form->failure);
    return value;
}

void decodeValue(ASN1CTXT* context, ASN1T_Extension& extension) {
    if (asn1DTC_Extension(context, &extension) < 0) throwRuntime(context);
}

// Puts an extension that lives in the context into the list.
void place(ASN1CTXT* context, ASN1T_Extensions& extensions, const ASN1T_Extension& extension) {
    ASN1T_Extension* target = ASN1T_Extensions_find_item(extensions, extension.extnID);
    if (target == nullptr) target = extensions.append(context);
    if (target == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    *target = extension;
}

// The same from a decoded value, which need not outlive the call: what stands in the list is
// decoded from its encoding.
void replaceValue(ASN1CTXT* context, ASN1T_Extensions& extensions, const ASN1TObjId& id,
                  void* value, bool critical) {
    ASN1T_Extension extension;
    extension.extnID = id;
    extension.critical = critical;
    extension.extnValue.type = ExtensionSet::lookupObject(id);
    extension.extnValue.decoded = value;
    if (asn1ETC_Extension(context, &extension) <= 0) throwRuntime(context);
    decodeValue(context, extension);
    place(context, extensions, extension);
}

// The decoded value of an extension, null when the list has none of the identifier.
template <class T>
const T* findValue(ASN1CTXT* context, const ASN1T_Extensions& extensions, const ASN1TObjId& id) {
    const ASN1T_Extension* item = ASN1T_Extensions_find_item(extensions, id);
    if (item == nullptr) return nullptr;
    if (const T* value = item->extnValue.as<T>()) return value;
    ASN1T_Extension copy = *item;
    decodeValue(context, copy);
    return copy.extnValue.as<T>();
}

}  // namespace

CACMPT_ExtValue::CACMPT_ExtValue(const ASN1OBJID& id, void* decoded) {
    ASN1BEREncodeBuffer buffer;
    Encode(buffer, id, decoded, true);
}

CACMPT_ExtValue::CACMPT_ExtValue(const ASN1OBJID& id, const unsigned char* bytes,
                                 unsigned int length, void* decoded)
    : value(bytes, length) {
    ASN1BEREncodeBuffer buffer;
    Encode(buffer, id, decoded, false);
}

CACMPT_ExtValue::CACMPT_ExtValue(const std::string& id, const std::string& text) {
    ASN1OBJID parsed;
    if (str2oid(id.c_str(), &parsed)) PKIXCMP_THROW(Asn1DecodeException, "Invalid oid");
    Decode(parsed, text);
}

void CACMPT_ExtValue::Encode(ASN1MessageBufferIF& buffer, const ASN1OBJID& id, void* decoded,
                             bool withBytes) {
    oid = shortOidText(&id);
    if (decoded == nullptr) return;
    ASN1CTXT* context = buffer.getCtxtPtr();
    ASN1T_Extension extension;
    if (rtSetOID(context, &extension.extnID, &id) < 0) throwRuntime(context);
    extension.extnValue.type = ExtensionSet::lookupObject(extension.extnID);
    extension.extnValue.decoded = decoded;
    if (withBytes) {
        if (asn1ETC_Extension(context, &extension) <= 0) throwRuntime(context);
        value.assign(extension.extnValue.data, extension.extnValue.numocts);
    }
    encodeXml(context, extension, xml);
}

void CACMPT_ExtValue::Decode(const ASN1OBJID& id, const std::string& text) {
    ASN1BEREncodeBuffer buffer;
    ASN1CTXT* context = buffer.getCtxtPtr();
    ASN1TObjId octets;
    if (rtSetOID(context, &octets, &id) < 0) {
        PKIXCMP_THROW(Asn1DecodeException, "unknown XER-encoded extension");
    }
    void* decoded = readXml(context, octets, text);
    xml.clear();
    value.clear();
    Encode(buffer, id, decoded, true);
}

CACMPT_ExtCDP::CACMPT_ExtCDP(const std::string& url) {
    Decode(id_ce_cRLDistributionPoints, cdpPrefix + url + cdpSuffix);
}

void CACMPT_Extensions::Insert(const CACMPT_Extension& extension) {
    auto same =
        std::find_if(begin(), end(), [&](const auto& other) { return other.oid == extension.oid; });
    if (same == end()) {
        push_back(extension);
    } else {
        *same = extension;
    }
}

void CACMPT_Extensions::Delete(const std::string& oid) {
    auto found = std::find_if(begin(), end(), [&](const auto& other) { return other.oid == oid; });
    if (found != end()) erase(found);
}

void ASN1T_Extension_traits::set(ASN1CTXT* ctxt, record_type& target, const value_type& source) {
    target = ASN1T_Extension();
    if (str2oid(ctxt, source.oid.c_str(), &target.extnID)) {
        PKIXCMP_THROW(Asn1DecodeException, "str2oid failed");
    }
    target.critical = source.critical;
    target.extnValue =
        ASN1OpenType(source.value.size, copyBytes(ctxt, source.value.data, source.value.size));
    decodeValue(ctxt, target);
}

void ASN1T_Extension_traits::get(const record_type& source, value_type& target) {
    ASN1CtxtRef context;
    target.oid = shortOidText(source.extnID);
    target.critical = source.critical;
    target.value.assign(source.extnValue.data, source.extnValue.numocts);
    target.xml.clear();
    if (source.extnValue.decoded == nullptr) return;
    if (source.extnValue.numocts == 0) {
        ASN1T_Extension encoded = source;
        if (asn1ETC_Extension(context.get(), &encoded) <= 0) throwRuntime(context.get());
        target.value.assign(encoded.extnValue.data, encoded.extnValue.numocts);
    }
    encodeXml(context.get(), source, target.xml);
}

void ASN1T_Extension_traits::copy(ASN1CTXT* ctxt, const record_type& source, record_type& target) {
    if (asn1Copy(ctxt, source, target) < 0) throwRuntime(ctxt);
}

void ASN1T_Extensions_set(ASN1CTXT* context, ASN1T_Extensions& target,
                          const CACMPT_Extensions& source) {
    target.clear();
    for (const CACMPT_Extension& extension : source) {
        ASN1T_Extension* added = target.append(context);
        if (added == nullptr) PKIXCMP_THROW(CAException, "out of memory");
        ASN1T_Extension_traits::set(context, *added, extension);
    }
}

void ASN1T_Extensions_get(const ASN1T_Extensions& source, CACMPT_Extensions& target) {
    if (source.count > PKIXCMP_LIST_ITEMS) {
        PKIXCMP_THROW(Asn1DecodeException, "too many extensions");
    }
    for (const ASN1T_Extension& extension : source) {
        CACMPT_Extension read;
        ASN1T_Extension_traits::get(extension, read);
        target.push_back(std::move(read));
    }
}

void ASN1T_Extensions_replace(ASN1CTXT* context, ASN1T_Extensions& extensions, const ASN1OBJID& oid,
                              void* value, bool critical) {
    ASN1TObjId id;
    if (rtSetOID(context, &id, &oid) < 0) throwRuntime(context);
    replaceValue(context, extensions, id, value, critical);
}

void ASN1T_Extensions_replace(ASN1CTXT* context, ASN1T_Extensions& extensions,
                              const CACMPT_Extension& extension) {
    ASN1T_Extension record;
    ASN1T_Extension_traits::set(context, record, extension);
    place(context, extensions, record);
}

void ASN1T_Extensions_add_aKI_and_iAN(ASN1CTXT* context, ASN1T_Extensions& extensions,
                                      const ASN1T_Certificate& issuer) {
    if (!issuer.tbsCertificate.m.extensionsPresent) return;
    const ASN1T_Extensions& own = issuer.tbsCertificate.extensions;
    if (const auto* keyId =
            findValue<ASN1T_SubjectKeyIdentifier>(context, own, id_ce_subjectKeyIdentifier)) {
        ASN1T_AuthorityKeyIdentifier authority;
        authority.m.keyIdentifierPresent = true;
        authority.keyIdentifier = *keyId;
        replaceValue(context, extensions, id_ce_authorityKeyIdentifier, &authority, false);
    }
    if (const ASN1T_Extension* name = ASN1T_Extensions_find_item(own, id_ce_subjectAltName)) {
        ASN1T_Extension extension;
        extension.extnID = id_ce_issuerAltName;
        extension.extnValue =
            ASN1OpenType(name->extnValue.numocts,
                         copyBytes(context, name->extnValue.data, name->extnValue.numocts));
        decodeValue(context, extension);
        place(context, extensions, extension);
    }
}

void ASN1T_Extensions_add_AIA(ASN1CTXT* context, ASN1T_Extensions& extensions,
                              const ASN1T_Certificate& issuer) {
    if (!issuer.tbsCertificate.m.extensionsPresent) return;
    const auto* access = findValue<ASN1T_SubjectInfoAccessSyntax>(
        context, issuer.tbsCertificate.extensions, id_pe_subjectInfoAccess);
    if (access == nullptr) return;
    ASN1T_AuthorityInfoAccessSyntax places;
    for (const ASN1T_AccessDescription& description : *access) {
        if (!(description.accessMethod == id_ad_caRepository)) continue;
        ASN1T_AccessDescription* added = places.append(context);
        if (added == nullptr) PKIXCMP_THROW(CAException, "out of memory");
        added->accessMethod = id_ad_caIssuers;
        added->accessLocation = description.accessLocation;
    }
    if (!places.empty()) {
        replaceValue(context, extensions, id_pe_authorityInfoAccess, &places, false);
    }
}

void ASN1T_Extensions_add_basicConstraints(ASN1CTXT* context, ASN1T_Extensions& extensions) {
    ASN1T_BasicConstraintsSyntax constraints;
    constraints.cA = true;
    replaceValue(context, extensions, id_ce_basicConstraints, &constraints, true);
}

void ASN1T_Extensions_add_subjectKeyIdentifier(unsigned long long provider, ASN1CTXT* context,
                                               ASN1T_Extensions& extensions,
                                               const ASN1TDynBitStr& key, bool replace) {
    if (!replace && ASN1T_Extensions_find_item(extensions, id_ce_subjectKeyIdentifier) != nullptr) {
        return;
    }
    ASN1T_SubjectKeyIdentifier keyId;
    static_cast<ASN1TDynOctStr&>(keyId) = *ASN1T_KeyIdentifier_set(provider, context, key);
    replaceValue(context, extensions, id_ce_subjectKeyIdentifier, &keyId, false);
}

void ASN1T_Attributes_add(ASN1CTXT* context, ASN1T_Attributes& attributes, const ASN1TObjId& type,
                          const ASN1OpenType& value) {
    ASN1T_Attribute* attribute = attributes.append(context);
    ASN1OpenType* added = attribute != nullptr ? attribute->values.append(context) : nullptr;
    if (added == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    attribute->type = type;
    *added = value;
}

void ASN1T_Attributes_add(ASN1CTXT* context, ASN1T_Attributes& attributes, const ASN1TObjId& type,
                          const unsigned char* value, unsigned int length) {
    ASN1T_Attributes_add(context, attributes, type,
                         ASN1OpenType(length, copyBytes(context, value, length)));
}
