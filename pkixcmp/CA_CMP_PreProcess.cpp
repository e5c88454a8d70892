#include <utility>

#include "capilite/AsnTime.h"
#include "capilite/RecordHelpers.h"
#include "config/Ini.h"
#include "pkixcmp/CaRequests.h"
#include "pkixcmp/MessageBuilding.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/CA_CMP_ProcessReq"

// The first half of issuing: from a request to a certificate that lacks serial number and
// signature. Parts of the request and of the CA's certificate are referred to, not copied: all
// three live in the context of the template.

using namespace asn1data;
using namespace pkixcmp_detail;

namespace {

[[noreturn]] void throwRuntime(const ASN1MessageBufferIF& buffer) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
}

template <class T>
void decode(CertificateTemplate& work, const CACMPT_BLOB& der, T& value) {
    if (!readDer(work.decodeBuffer, der, value)) throwRuntime(work.decodeBuffer);
}

/// Gives the record a new template, in place of one that it has, and reads the CA's certificate.
CertificateTemplate& begin(const PKIXCMP_Server& ca, CertificateInfo& certificate) {
    // A record that is used again would otherwise gather the extensions of both requests.
    if (certificate.Template) certificate.Extensions.clear();
    delete std::exchange(certificate.Template, nullptr);
    certificate.Template = new CertificateTemplate;
    requireKey(ca);
    decode(*certificate.Template, ca.Certificate, certificate.Template->caCertificate);
    return *certificate.Template;
}

/// Everything that does not come from the request. The validity is a year, cut where the CA's own
/// certificate ends.
void fillFromCa(const PKIXCMP_Server& ca, CertificateTemplate& work) {
    ASN1T_TBSCertificate& tbs = work.certificate.tbsCertificate;
    const ASN1T_TBSCertificate& issuer = work.caCertificate.tbsCertificate;
    ASN1BEREncodeBuffer& buffer = work.encodeBuffer;
    tbs.m.versionPresent = true;
    tbs.version = ASN1T_TBSCertificate::v3;
    tbs.serialNumber = "0";
    tbs.signature =
        *ASN1T_AlgorithmIdentifier_set(buffer.getCtxtPtr(), ca.ProviderHandle, AT_SIGNATURE);
    tbs.issuer = issuer.subject;
    const std::string_view now = ASN1UTCTime_current(buffer);
    const std::string_view inAYear = ASN1UTCTime_add(buffer, now, CACMPT_Period::OneYear);
    tbs.validity.notBefore = utcTime(now);
    tbs.validity.notAfter =
        utcTime(ASN1UTCTime_min(buffer, inAYear, issuer.validity.notAfter.u.text.view()));
    tbs.m.issuerUniqueIDPresent = false;
    tbs.m.subjectUniqueIDPresent = false;
    tbs.m.extensionsPresent = true;
    tbs.extensions.clear();
}

void appendExtensions(CertificateTemplate& work, const ASN1T_Extensions& requested) {
    for (const ASN1T_Extension& extension : requested) {
        add(work.encodeBuffer.getCtxtPtr(), work.certificate.tbsCertificate.extensions) = extension;
    }
}

void fillFromCertReq(CertificateTemplate& work, const ASN1T_CertReqMessages& messages) {
    const ASN1T_CertTemplate& requested = onlyRequest(messages).certReq.certTemplate;
    ASN1T_TBSCertificate& tbs = work.certificate.tbsCertificate;
    tbs.subject = requested.subject;
    tbs.subjectPublicKeyInfo = requested.publicKey;
    if (requested.m.extensionsPresent) appendExtensions(work, requested.extensions);
}

/// The extensions that an attribute's first value holds. One that was no list of extensions when
/// the request was read is read again for the reason.
const ASN1T_Extensions& requestedExtensions(CertificateTemplate& work, const ASN1OpenType& value) {
    if (const auto* known = value.as<ASN1T_Extensions>()) return *known;
    ASN1CTXT* ctxt = work.decodeBuffer.getCtxtPtr();
    auto* extensions = make<ASN1T_Extensions>(ctxt);
    if (rtDecodeBer(ctxt, Schema<ASN1T_Extensions>::type, value.data, value.numocts, extensions) !=
        ASN_OK) {
        throwRuntime(work.decodeBuffer);
    }
    return *extensions;
}

void fillFromPkcs10(CertificateTemplate& work, const ASN1T_CertificationRequest& request) {
    const auto& info = request.certificationRequestInfo;
    ASN1T_TBSCertificate& tbs = work.certificate.tbsCertificate;
    tbs.subject = info.subject;
    tbs.subjectPublicKeyInfo = info.subjectPKInfo;
    if (const ASN1T_Attribute* attribute = extensionRequest(info.attributes)) {
        appendExtensions(work, requestedExtensions(work, attribute->values.front()));
    }
}

/// Whether the computed subject key identifier replaces one that was asked for.
enum class KeyId { kept, forced };

KeyId fillFromRequest(CertificateTemplate& work) {
    const ASN1T_PKIBody& body = work.request.body;
    switch (body.t) {
        case ASN1T_PKIBody::T_ir:
            fillFromCertReq(work, *body.u.ir);
            return KeyId::forced;
        case ASN1T_PKIBody::T_kur:
            fillFromCertReq(work, *body.u.kur);
            return KeyId::forced;
        case ASN1T_PKIBody::T_ccr:
            fillFromCertReq(work, *body.u.ccr);
            return KeyId::kept;
        case ASN1T_PKIBody::T_p10cr:
            fillFromPkcs10(work, *body.u.p10cr);
            return KeyId::kept;
        default:
            PKIXCMP_THROW(Asn1DecodeException, "unsupported ASN1C_PKIMessage type");
    }
}

/// The extensions by which the CA ties the certificate to itself and to its key.
void addOwnExtensions(const PKIXCMP_Server& ca, CertificateTemplate& work, KeyId keyId) {
    ASN1CTXT* ctxt = work.encodeBuffer.getCtxtPtr();
    ASN1T_TBSCertificate& tbs = work.certificate.tbsCertificate;
    ASN1T_Extensions_add_aKI_and_iAN(ctxt, tbs.extensions, work.caCertificate);
    ASN1T_Extensions_add_AIA(ctxt, tbs.extensions, work.caCertificate);
    ASN1T_Extensions_add_subjectKeyIdentifier(ca.ProviderHandle, ctxt, tbs.extensions,
                                              tbs.subjectPublicKeyInfo.subjectPublicKey,
                                              keyId == KeyId::forced);
}

/// Adds the place of the CA's CRL to the record; issuing takes it from there.
void addDistributionPoint(const std::string& configPath, CertificateInfo& certificate) {
    if (configPath.empty()) return;
    std::string url;
    if (!Ini(configPath).find("cdp", url) || url.empty()) return;
    certificate.Extensions.Insert(CACMPT_Extension(CACMPT_ExtCDP(url), false));
}

}  // namespace

namespace pkixcmp_detail {

void requireKey(const PKIXCMP_Server& ca) {
    if (ca.ProviderHandle == 0 || ca.Certificate.empty()) {
        PKIXCMP_THROW(Asn1DecodeException, "no CA private key");
    }
}

const ASN1T_CertReqMsg& onlyRequest(const ASN1T_CertReqMessages& messages) {
    if (messages.empty()) PKIXCMP_THROW(Asn1DecodeException, "empty ASN1T_CertReqMessages");
    if (messages.count > 1) PKIXCMP_THROW(Asn1DecodeException, "multiple ASN1T_CertReqMessages");
    const ASN1T_CertReqMsg& request = messages.front();
    if (!request.certReq.certTemplate.m.publicKeyPresent) {
        PKIXCMP_THROW(Asn1DecodeException, "no public key");
    }
    if (!request.certReq.certTemplate.m.subjectPresent) {
        PKIXCMP_THROW(Asn1DecodeException, "no subject");
    }
    return request;
}

}  // namespace pkixcmp_detail

void PKIXCMP_Server::CertReqMessage_PreProcess(const CACMPT_BLOB& message,
                                               CertificateInfo* certificate, int) {
    CertificateTemplate& work = begin(*this, *certificate);
    decode(work, message, work.request);
    fillFromCa(*this, work);
    addOwnExtensions(*this, work, fillFromRequest(work));
    tbsCertificateParse(work.certificate.tbsCertificate, certificate);
}

void PKIXCMP_Server::CertReqMessage_PreProcess(const CACMPT_BLOB& message,
                                               CertificateInfo* certificate) {
    CertReqMessage_PreProcess(message, certificate, 0);
    addDistributionPoint(configPath_, *certificate);
}

void PKIXCMP_Server::CertReqCert_PreProcess(const CACMPT_BLOB& encoded,
                                            CertificateInfo* certificate, int) {
    CertificateTemplate& work = begin(*this, *certificate);
    decode(work, encoded, work.certificate);
    // The reply goes to the certificate's own subject, as if it had asked for it in a ccr.
    work.request.body.t = ASN1T_PKIBody::T_ccr;
    setDirectoryName(work.request.header.sender, work.certificate.tbsCertificate.subject);
    setDirectoryName(work.request.header.recipient, work.caCertificate.tbsCertificate.subject);
    fillFromCa(*this, work);
    addOwnExtensions(*this, work, KeyId::kept);
    tbsCertificateParse(work.certificate.tbsCertificate, certificate);
}

void PKIXCMP_Server::CertReqCert_PreProcess(const CACMPT_BLOB& encoded,
                                            CertificateInfo* certificate) {
    CertReqCert_PreProcess(encoded, certificate, 0);
    addDistributionPoint(configPath_, *certificate);
}
