#include <cstring>

#include "fuzz/Fuzz.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/MessageCoding.h"

// Bytes as a request, a reply, an error message, an announcement and a certificate. Only failures
// of the library may come out, and what was read must be of use: texts and extensions go back into
// records.

namespace {

void checkText(const FreeText& text) {
    ASN1CtxtRef context;
    asn1data::ASN1T_PKIFreeText record;
    FreeText again;
    // A received tag may have octets that no tag going out has.
    if (!accepted([&] { FreeText_Encode(context.get(), record, text); })) return;
    if (!accepted([&] { FreeText_Parse(context.get(), again, record); })) return;
    require(again.size() == text.size());
    auto item = again.begin();
    for (const FreeTextItem& sent : text) require((item++)->text.size() <= sent.text.size() + 300);
}

void checkExtensions(const CACMPT_Extensions& extensions) {
    ASN1CtxtRef context;
    asn1data::ASN1T_Extensions record;
    if (!accepted([&] { ASN1T_Extensions_set(context.get(), record, extensions); })) return;
    CACMPT_Extensions again;
    ASN1T_Extensions_get(record, again);
    require(again.size() == extensions.size());
    auto item = again.begin();
    for (const CACMPT_Extension& sent : extensions) {
        require(item->value == sent.value && item->xml == sent.xml);
        require((item++)->critical == sent.critical);
    }
}

void checkHead(const PKIXCMP_Message& head) {
    require(std::wcslen(head.SenderGeneralName) < PKIXCMP_NAME_CHARS);
    checkText(head.FreeText);
    GeneralAudit audit;
    accepted([&] { head.GeneralInfo.get_audit(audit); });
}

void checkCertificate(const CertificateInfo& info) {
    checkExtensions(info.Extensions);
    if (info.RawCertificate.empty()) return;
    CertificateInfo again;
    PKIXCMP_Base::Cert_Decode(info.RawCertificate, &again);
    require(std::strcmp(again.SerialNumber, info.SerialNumber) == 0);
    require(again.Subject == info.Subject && again.NotAfter == info.NotAfter);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CACMPT_BLOB der(data, size);
    RequestInfo request;
    if (accepted([&] { PKIXCMP_Base::CertReqMessage_Decode(der, &request); })) {
        require(request.RawRequest == der);
        checkHead(request);
        checkExtensions(request.Extensions);
        checkText(request.ChangeNameTextOld);
    }
    CertificateInfo reply;
    if (accepted([&] { PKIXCMP_Base::CertRepMessage_Decode(der, &reply); })) {
        checkHead(reply);
        checkCertificate(reply);
    }
    ErrorMsgInfo error;
    if (accepted([&] { PKIXCMP_Base::ErrorMsgInfo_Decode(der, &error); })) {
        checkHead(error);
        checkText(error.ErrorText);
    }
    CACMPT_BLOB announced;
    if (accepted([&] { PKIXCMP_Client::CertAnnContent_DecodeAndVerify(der, announced); })) {
        CACMPT_ASN1BERDecodeBuffer buffer;
        get_server_name(announced, buffer);
    }
    CertificateInfo certificate;
    if (accepted([&] { PKIXCMP_Base::Cert_Decode(der, &certificate); })) {
        checkCertificate(certificate);
    }
    return 0;
}
