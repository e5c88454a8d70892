#include "tools/pkixcmp/AsnTypes.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdint>

#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

template <class T>
void* makeValue(ASN1CTXT* ctxt) {
    return asn1New<T>(ctxt);
}

struct Label {
    const char* label;
    const char* type;
};
/// The first label of a type is the one that is written.
constexpr Label labels[] = {
    {"CERTIFICATE", "Certificate"},
    {"X509 CERTIFICATE", "Certificate"},
    {"CERTIFICATE REQUEST", "CertificationRequest"},
    {"NEW CERTIFICATE REQUEST", "CertificationRequest"},
    {"X509 CRL", "CertificateList"},
    {"PUBLIC KEY", "SubjectPublicKeyInfo"},
};

/// What stands in files, the likelier and the more distinct first. Values of extensions look alike
/// too much to be told apart.
constexpr const char* guesses[] = {"PKIMessage",
                                   "Certificate",
                                   "CertificateList",
                                   "CertificationRequest",
                                   "PKIMessages",
                                   "CertReqMessages",
                                   "CertReqMsg",
                                   "PKIHeader",
                                   "CertRepMessage",
                                   "CertResponse",
                                   "CertRequest",
                                   "TBSCertificate",
                                   "TBSCertList",
                                   "CertificationRequestInfo",
                                   "ErrorMsgContent",
                                   "RevReqContent",
                                   "RevRepContent",
                                   "RevAnnContent",
                                   "CAKeyUpdAnnContent",
                                   "KeyRecRepContent",
                                   "PKIStatusInfo",
                                   "SubjectPublicKeyInfo",
                                   "CertTemplate",
                                   "PBMParameter",
                                   "Name",
                                   "Extensions",
                                   "GenMsgContent",
                                   "Certificates",
                                   "GeneralNames",
                                   "AlgorithmIdentifier",
                                   "PKIFreeText"};

/// Decodes without a failure: on a fault its place and text are given instead.
bool tryDecode(const std::string& der, const AsnType& type, AsnObject& out, std::size_t& offset,
               std::string& fault) {
    AsnObject object;
    object.type = &type;
    object.value = type.make(object.ctxt.get());
    auto bytes = reinterpret_cast<const std::uint8_t*>(der.data());
    if (object.value != nullptr &&
        rtDecodeBer(object.ctxt.get(), *type.type, bytes, der.size(), object.value) >= 0) {
        out = object;
        return true;
    }
    offset = object.ctxt->errorOffset();
    fault = printable(rtErrGetText(object.ctxt.get()));
    return false;
}

[[noreturn]] void codingFailure(const AsnObject& object) {
    throw Failure("cannot write the " + std::string(object.type->name()) + ": " +
                  printable(rtErrGetText(object.ctxt.get())));
}

}  // namespace

const std::vector<AsnType>& asnTypes() {
#define PKIXCMP_TOOL_ROW(Name) \
    {&Schema<asn1data::ASN1T_##Name>::type, &makeValue<asn1data::ASN1T_##Name>},
    static const std::vector<AsnType> types = {
        PKIXCMP_PKIX1EXPLICIT_TYPES(PKIXCMP_TOOL_ROW) PKIXCMP_PKIX1IMPLICIT_TYPES(PKIXCMP_TOOL_ROW)
            PKIXCMP_PKCS10_TYPES(PKIXCMP_TOOL_ROW) PKIXCMP_PKIXCRMF_TYPES(PKIXCMP_TOOL_ROW)
                PKIXCMP_PKIXCMP_TYPES(PKIXCMP_TOOL_ROW) PKIXCMP_CMS_TYPES(PKIXCMP_TOOL_ROW)};
#undef PKIXCMP_TOOL_ROW
    return types;
}

const AsnType* findAsnType(const std::string& name) {
    auto found = std::find_if(asnTypes().begin(), asnTypes().end(), [&](const AsnType& type) {
        return ::strcasecmp(type.name(), name.c_str()) == 0;
    });
    return found == asnTypes().end() ? nullptr : &*found;
}

std::string AsnObject::xer() const {
    std::string text;
    if (rtEncodeXer(ctxt.get(), *type->type, value, text) < 0) codingFailure(*this);
    return text;
}

std::string AsnObject::der() const {
    const std::uint8_t* bytes = nullptr;
    int length = rtEncodeDer(ctxt.get(), *type->type, value, &bytes);
    if (length < 0) codingFailure(*this);
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

AsnObject decodeAs(const std::string& der, const AsnType& type, const std::string& what) {
    AsnObject object;
    std::size_t offset = 0;
    std::string fault;
    if (!tryDecode(der, type, object, offset, fault)) {
        throw Failure(what + " is no " + type.name() + ": " + fault);
    }
    return object;
}

AsnObject decodeAny(const std::string& der, const std::string& label, const std::string& what) {
    for (const Label& row : labels) {
        if (label == row.label) return decodeAs(der, *findAsnType(row.type), what);
    }
    // Of the types that do not fit, the one that was read the furthest is the likeliest.
    std::size_t furthest = 0;
    const AsnType* nearest = nullptr;
    std::string nearestFault;
    for (const char* name : guesses) {
        const AsnType* type = findAsnType(name);
        AsnObject object;
        std::size_t offset = 0;
        std::string fault;
        if (tryDecode(der, *type, object, offset, fault)) return object;
        if (nearest == nullptr || offset > furthest) {
            nearest = type;
            furthest = offset;
            nearestFault = fault;
        }
    }
    throw Failure(what + " is of no type that is known; as " + nearest->name() + ": " +
                  nearestFault);
}

std::string labelOf(const AsnType& type) {
    for (const Label& row : labels) {
        if (std::string(type.name()) == row.type) return row.label;
    }
    std::string label = type.name();
    std::transform(label.begin(), label.end(), label.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return label;
}

}  // namespace tool
