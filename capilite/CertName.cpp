#include "capilite/CertName.h"

#include <cctype>
#include <iterator>

#include "capilite/CAException.h"
#include "capilite/ParsedRdn.h"
#include "capilite/RecordCoding.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/Runtime.h"

namespace {

using namespace asn1data;

constexpr std::uint8_t TAG_PRINTABLE = 0x13;

/// Attributes whose value is a directory string of several types.
constexpr ASN1TObjId DIRECTORY_STRINGS[] = {id_at_stateOrProvinceName,
                                            id_at_localityName,
                                            id_at_organizationName,
                                            id_at_organizationalUnitName,
                                            id_at_title,
                                            id_at_givenName,
                                            id_at_initials,
                                            id_at_surname,
                                            id_at_commonName};

/// Whether the attribute's value is one that case and runs of blanks do not count in. The tag of
/// the raw value decides for country and e-mail, the alternative for directory strings; both are
/// PrintableString.
bool isNormalised(ASN1CTXT* ctxt, const ASN1T_AttributeTypeAndValue& attribute) {
    if (attribute.type == id_at_countryName || attribute.type == id_emailAddress) {
        std::uint8_t tag = 0;
        std::size_t length = 0;
        xd_setp(ctxt, attribute.value.data, attribute.value.numocts);
        if (xd_tag_len(ctxt, &tag, &length) < 0) PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt));
        return tag == TAG_PRINTABLE;
    }
    for (const ASN1TObjId& id : DIRECTORY_STRINGS) {
        if (attribute.type != id) continue;
        const auto* value = attribute.value.as<ASN1T_DirectoryString>();
        return value != nullptr && value->t == ASN1T_DirectoryString::T_printableString;
    }
    return false;
}

/// Without blanks in front and behind, one blank for each run of them, in lower case. Only the
/// character 0x20 is a blank.
void normalise(ASN1CTXT* ctxt, ASN1T_AttributeTypeAndValue& attribute) {
    auto* value = attribute.value.as<ASN1T_DirectoryString>();
    if (value == nullptr) return;
    ASN1TString& text = value->u.text;
    auto* out = static_cast<char*>(rtMemHeapAlloc(ctxt, text.length + std::size_t{1}));
    if (out == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    std::uint32_t length = 0;
    for (char c : text.view()) {
        if (c == ' ' && (length == 0 || out[length - 1] == ' ')) continue;
        out[length++] = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    if (length != 0 && out[length - 1] == ' ') --length;
    text = ASN1TString(length, out);
    attribute.value.set(value);  // the value counts now and not its old bytes
}

}  // namespace

void CACMPT_CERT_NAME::assign(const void* bytes, std::size_t n) {
    CACMPT_BLOB::assign(bytes, n);
    norm.reset();
}

void CACMPT_CERT_NAME::assign(const CACMPT_BLOB& der) { assign(der.data, der.size); }

void CACMPT_CERT_NAME::assign(const CACMPT_CERT_NAME& other) {
    if (this == &other) return;
    CACMPT_BLOB::assign(other.data, other.size);
    norm = other.norm ? std::make_unique<CACMPT_BLOB>(*other.norm) : nullptr;
}

const CACMPT_BLOB& CACMPT_CERT_NAME::fill_norm() const {
    if (norm) return *norm;
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_Name name;
    asn1DecodeRecord(buffer, *this, name);
    if (name.t != ASN1T_Name::T_rdnSequence) {
        PKIXCMP_THROW(Asn1DecodeException, "Invalid name format");
    }
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    for (ASN1T_RelativeDistinguishedName& rdn : name.u.rdnSequence) {
        for (ASN1T_AttributeTypeAndValue& attribute : rdn) {
            if (isNormalised(ctxt, attribute)) normalise(ctxt, attribute);
        }
    }
    norm = std::make_unique<CACMPT_BLOB>(asn1EncodeRecord(name));
    return *norm;
}

std::wstring CACMPT_CERT_NAME::toString() const {
    constexpr unsigned int withNames = 3;
    return CACMPT_PARSED_RDN(fill_norm()).tostring(withNames);
}
