#include <memory>
#include <string>

#include "capilite/AsnTime.h"
#include "capilite/RecordHelpers.h"
#include "config/Ini.h"
#include "pkixcmp/MessageBuilding.h"
#include "pkixcmp/MessageCoding.h"
#include "pkixcmp/Protection.h"
#include "pkixcmp/SerialNumber.h"
#include "pkixcmp/Server.h"
#include "platform/crypt/CryptApi.h"

using namespace asn1data;
using namespace pkixcmp_detail;

namespace {

/// What a root certificate is made from.
struct RootSpecification {
    const wchar_t* subject;
    const CACMPT_Extensions& extensions;
    const CACMPT_Period& validity;
    const CACMPT_Date& notBefore;
    std::string_view cdp;
};

void setNames(const RootSpecification& root, ASN1T_TBSCertificate& tbs,
              ASN1BEREncodeBuffer& buffer) {
    if (root.subject == nullptr) PKIXCMP_THROW(Asn1DecodeException, "invalid subject dn");
    try {
        str2dn(root.subject, tbs.subject, buffer);
    } catch (const CAException&) {
        PKIXCMP_THROW(Asn1DecodeException, "invalid subject dn");
    }
    tbs.issuer = tbs.subject;
}

/// The end is worked out from the text of the beginning as a UTCTime and written as one, also when
/// it lies behind the year 2049.
void setValidity(const RootSpecification& root, ASN1T_Validity& validity,
                 ASN1BEREncodeBuffer& buffer) {
    validity.notBefore = root.notBefore == CACMPT_Date(0, 0)
                             ? utcTime(ASN1UTCTime_current(buffer))
                             : certificateTime(buffer, root.notBefore);
    validity.notAfter =
        utcTime(ASN1UTCTime_add(buffer, validity.notBefore.u.text.view(), root.validity));
}

void setExtensions(const RootSpecification& root, ASN1T_TBSCertificate& tbs,
                   unsigned long long provider, ASN1CTXT* ctxt) {
    tbs.m.extensionsPresent = true;
    ASN1T_Extensions_set(ctxt, tbs.extensions, root.extensions);
    ASN1T_Extensions_add_basicConstraints(ctxt, tbs.extensions);
    ASN1T_Extensions_add_subjectKeyIdentifier(provider, ctxt, tbs.extensions,
                                              tbs.subjectPublicKeyInfo.subjectPublicKey, true);
    if (root.cdp.empty()) return;
    const CACMPT_ExtCDP cdp{std::string(root.cdp)};
    ASN1T_Extensions_replace(ctxt, tbs.extensions, CACMPT_Extension(cdp, false));
}

/// The certificate of the provider's signature key, signed by that key.
CACMPT_BLOB selfSigned(const RootSpecification& root, unsigned long long provider) {
    ASN1BEREncodeBuffer buffer;
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    ASN1T_Certificate certificate;
    ASN1T_TBSCertificate& tbs = certificate.tbsCertificate;
    tbs.serialNumber = randomSerial(provider, ctxt);
    tbs.m.versionPresent = true;
    tbs.version = ASN1T_TBSCertificate::v3;
    tbs.signature = *ASN1T_AlgorithmIdentifier_set(ctxt, provider, AT_SIGNATURE);
    setNames(root, tbs, buffer);
    setValidity(root, tbs.validity, buffer);
    tbs.subjectPublicKeyInfo = *ASN1T_SubjectPublicKeyInfo_set(provider, AT_SIGNATURE, ctxt);
    setExtensions(root, tbs, provider, ctxt);
    certificate.signatureAlgorithm = tbs.signature;
    ASN1C_TBSCertificate control(buffer, tbs);
    certificate.signature =
        *ASN1EncodeBuffer_EncodeAndSign(provider, AT_SIGNATURE, buffer, control);
    CACMPT_BLOB encoded;
    if (!writeDer(buffer, certificate, encoded)) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt));
    }
    return encoded;
}

}  // namespace

void PKIXCMP_Server::GenerateRoot(const wchar_t* subject, const CACMPT_Extensions& extensions,
                                  const char* providerName, int providerType, const char* container,
                                  bool split, const CACMPT_Period& validity,
                                  const CACMPT_Date& notBefore, const char* cdp, WndProv* wnd) {
    const auto type = static_cast<unsigned int>(providerType);
    void* parts = nullptr;
    const unsigned long long handle =
        create_container_root(wnd, container, providerName, type, split, parts, ProviderHandle);
    close_container_root(ProviderHandle, parts_);
    ProviderHandle = handle;
    parts_ = parts;
    ProviderType = type;
    Certificate.clear();  // that of an earlier key, with which nothing may be issued from here on
    Certificate = selfSigned({subject, extensions, validity, notBefore, cdp ? cdp : ""}, handle);
    InstallCertificateToContainer(Certificate, handle, AT_SIGNATURE);
    InstallCertificateToStore(Certificate, handle, AT_SIGNATURE, L"My",
                              CERT_SYSTEM_STORE_CURRENT_USER);
    CertStore_Add(L"Root", Certificate, true);
}

PKIXCMP_Server* PKIXCMP_Server::GenerateRoot(const char* configPath, const wchar_t* subject,
                                             const CACMPT_Extensions& extensions,
                                             const wchar_t* caName, bool split,
                                             const char* providerName, int providerType,
                                             const char* container, const CACMPT_Period& validity,
                                             const CACMPT_Date& notBefore, const char* cdp,
                                             const CACMPT_Period& crlUpdate, WndProv* wnd) {
    auto server = std::make_unique<PKIXCMP_Server>(nullptr, PROV_ECDSA_P256);
    const std::string path = configPath ? configPath : "";
    const Ini settings(path);
    server->GenerateRoot(subject, extensions, providerName, providerType, container, split,
                         validity, notBefore, cdp, wnd);
    settings.insert("caname", caName);
    settings.insert("cert", server->Certificate);
    if (cdp != nullptr && *cdp != 0) settings.insert("cdp", cdp);
    settings.insert("crl_update", crlUpdate);
    server->configPath_ = path;
    return server.release();
}
