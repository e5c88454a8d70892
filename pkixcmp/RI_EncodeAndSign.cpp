#include <algorithm>
#include <cstring>

#include "capilite/AsnTime.h"
#include "capilite/BigInt.h"
#include "capilite/RecordHelpers.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/MessageBuilding.h"
#include "pkixcmp/MessageCoding.h"
#include "pkixcmp/Protection.h"
#include "pkixcmp/SerialNumber.h"
#include "platform/crypt/CryptApi.h"

// Requests of a client: messages by kind, PKCS#10, the template that ties a key to its open
// request, and key updates.

using namespace asn1data;
using namespace pkixcmp_detail;

namespace {

[[noreturn]] void throwRuntime(const ASN1MessageBufferIF& buffer) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
}

/// A request under construction. Everything built for it lives in the one context.
struct Draft {
    const PKIXCMP_Client& client;
    RequestInfo& request;
    ASN1BEREncodeBuffer buffer;
    CACMPT_ASN1BERDecodeBuffer decodeBuffer{buffer.getContext()};
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    ASN1T_PKIMessage message;
    ASN1T_Certificate own;                                   // the client's certificate
    const ASN1T_Name* sender = &own.tbsCertificate.subject;  // for a record without one

    Draft(const PKIXCMP_Client& from, RequestInfo& record) : client(from), request(record) {}
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    ASN1T_PKIBody& body(int kind) {
        message.body.t = kind;
        return message.body;
    }
};

/// The text of a serial number as records hold it, also from decimal digits and from hexadecimal
/// ones without the zero in front. Any other is left for the encoder to judge: decimal digits
/// behind a zero might be meant as octal.
const char* serialText(ASN1CTXT* ctxt, const char* text) {
    const std::string_view digits(text);
    const bool decimal = digits[0] >= '1' && digits[0] <= '9';
    const bool unpadded = digits.starts_with("0x") && digits.size() % 2 != 0 && digits[2] != '0';
    ASN1BigInt number;
    if (!(decimal || unpadded) || rtBigIntSetStr(ctxt, &number, text, 0) != 0) return text;
    return BigIntegerToASN1String(ctxt, CACMPT_BigInteger(number.mag.data(), number.mag.size()));
}

/// Subject and serial number of the certificate that a request is about.
void identify(Draft& draft, ASN1T_CertTemplate& details) {
    const RequestInfo& request = draft.request;
    details.m.subjectPresent = true;
    request.Subject.parse(draft.decodeBuffer, details.subject);
    if (request.SerialNumber[0] == 0) return;
    if (!std::memchr(request.SerialNumber, 0, sizeof request.SerialNumber)) {
        PKIXCMP_THROW(Asn1EncodeException, "SerialNumber too long");
    }
    details.m.serialNumberPresent = true;
    details.serialNumber = serialText(draft.ctxt, request.SerialNumber);
}

/// The one CertReqMsg of an ir or kur. Its key and proof come from the provider given; `proofKey`
/// is the key spec that the proof is made with.
ASN1T_CertReqMessages* certReqMessages(Draft& draft, const PKIXCMP_Base& key,
                                       std::uint32_t proofKey) {
    auto* messages = make<ASN1T_CertReqMessages>(draft.ctxt);
    ASN1T_CertReqMsg& message = add(draft.ctxt, *messages);
    ASN1T_CertTemplate& wanted = message.certReq.certTemplate;
    wanted.m.subjectPresent = true;
    draft.request.Subject.parse(draft.decodeBuffer, wanted.subject);
    wanted.m.publicKeyPresent = true;
    wanted.publicKey = *ASN1T_SubjectPublicKeyInfo_set(key.ProviderHandle, key.KeySpec, draft.ctxt);
    if (!draft.request.Extensions.empty()) {
        wanted.m.extensionsPresent = true;
        ASN1T_Extensions_set(draft.ctxt, wanted.extensions, draft.request.Extensions);
    }
    MakeProofOfPosession(key.ProviderHandle, draft.buffer, message, proofKey);
    draft.sender = &wanted.subject;
    return messages;
}

void putInit(Draft& draft) {
    draft.body(ASN1T_PKIBody::T_ir).u.ir =
        certReqMessages(draft, draft.client, draft.client.KeySpec);
}

// The proof is made by the new key's provider under the key spec of the present key.
void putUpdateKey(Draft& draft) {
    if (!draft.client.NewKeyClient) PKIXCMP_THROW(Asn1DecodeException, "no private key");
    draft.body(ASN1T_PKIBody::T_kur).u.kur =
        certReqMessages(draft, *draft.client.NewKeyClient, draft.client.KeySpec);
}

void putPkcs10(Draft& draft) {
    auto* request = make<ASN1T_CertificationRequest>(draft.ctxt);
    if (!readDer(draft.decodeBuffer, draft.request.RawRequest, *request)) {
        throwRuntime(draft.decodeBuffer);
    }
    draft.body(ASN1T_PKIBody::T_p10cr).u.p10cr = request;
}

void putRevocation(Draft& draft) {
    auto* content = make<ASN1T_RevReqContent>(draft.ctxt);
    ASN1T_RevDetails& details = add(draft.ctxt, *content);
    identify(draft, details.certDetails);
    if (draft.request.RevokedReason != 0) {
        details.m.revocationReasonPresent = true;
        ReasonFlags_Encode(draft.ctxt, details.revocationReason, draft.request.RevokedReason);
    }
    draft.body(ASN1T_PKIBody::T_rr).u.rr = content;
}

void putConfirmation(Draft& draft) { draft.body(ASN1T_PKIBody::T_pkiconf).u.any = nullptr; }

/// The one item of a general message.
ASN1T_InfoTypeAndValue& putGeneral(Draft& draft, const ASN1TObjId& type) {
    auto* content = make<ASN1T_GenMsgContent>(draft.ctxt);
    ASN1T_InfoTypeAndValue& item = add(draft.ctxt, *content);
    item.infoType = type;
    draft.body(ASN1T_PKIBody::T_genm).u.genm = content;
    return item;
}

void putGetCrl(Draft& draft) { putGeneral(draft, id_it_CurrentCRL); }

void putResume(Draft& draft) {
    ASN1T_InfoTypeAndValue& item = putGeneral(draft, id_Quorvex_it_ResumeCertificate);
    auto* details = make<ASN1T_RevDetails>(draft.ctxt);
    identify(draft, details->certDetails);
    item.m.infoValuePresent = true;
    item.infoValue.set(details);
}

void putChangeName(Draft& draft) {
    ASN1T_InfoTypeAndValue& item = putGeneral(draft, id_Quorvex_it_ChangeNameReq);
    const RequestInfo& request = draft.request;
    auto* change = make<ASN1T_ChangeNameReq>(draft.ctxt);
    request.Subject.parse(draft.decodeBuffer, change->oldName);
    request.NewSubject.parse(draft.decodeBuffer, change->newName);
    change->m.oldTextPresent = !request.ChangeNameTextOld.empty();
    if (change->m.oldTextPresent) {
        FreeText_Encode(draft.ctxt, change->oldText, request.ChangeNameTextOld);
    }
    change->m.newTextPresent = !request.ChangeNameTextNew.empty();
    if (change->m.newTextPresent) {
        FreeText_Encode(draft.ctxt, change->newText, request.ChangeNameTextNew);
    }
    item.m.infoValuePresent = true;
    item.infoValue.set(change);
}

struct BodyOfType {
    std::int32_t requestType;
    void (*put)(Draft&);
};
constexpr BodyOfType bodies[] = {{REQUEST_TYPE_GET_CERTIFICATE, putPkcs10},
                                 {REQUEST_TYPE_REVOKE_CERTIFICATE, putRevocation},
                                 {REQUEST_TYPE_GET_CRL, putGetCrl},
                                 {REQUEST_TYPE_INIT_CERTIFICATE, putInit},
                                 {REQUEST_TYPE_CONFIRM, putConfirmation},
                                 {REQUEST_TYPE_UPDATE_KEY, putUpdateKey},
                                 {REQUEST_TYPE_RESUME_CERTIFICATE, putResume},
                                 {REQUEST_TYPE_CHANGE_NAME, putChangeName}};

void putBody(Draft& draft) {
    const auto* body = std::find_if(std::begin(bodies), std::end(bodies), [&](const auto& b) {
        return b.requestType == draft.request.RequestType;
    });
    if (body == std::end(bodies)) PKIXCMP_THROW(CAException, "unsupported RequestType.");
    body->put(draft);
}

CACMPT_BLOB encodeDraft(Draft& draft) {
    CACMPT_BLOB encoded;
    if (!writeDer(draft.buffer, draft.message, encoded)) throwRuntime(draft.buffer);
    return encoded;
}

}  // namespace

void PKIXCMP_Client::CertReqMessage_EncodeAndSign(RequestInfo* request, CACMPT_BLOB& out) {
    Draft draft(*this, *request);
    if (!Certificate.empty() && !readDer(draft.decodeBuffer, Certificate, draft.own)) {
        throwRuntime(draft.decodeBuffer);
    }
    ASN1CMPMessage_Encode(*request, draft.message, draft.buffer, draft.decodeBuffer);
    putBody(draft);
    if (request->SenderGeneralName[0] == 0) {
        setDirectoryName(draft.message.header.sender, *draft.sender);
    }
    if (request->RecipientGeneralName[0] == 0) {
        PKIXCMP_THROW(Asn1DecodeException, "RecipientGeneralName not specified");
    }
    const bool unprotected = request->RequestType == REQUEST_TYPE_INIT_CERTIFICATE;
    out = unprotected ? encodeDraft(draft)
                      : ASN1CMPMessage_Sign(draft.message, draft.buffer, ProviderHandle, KeySpec,
                                            request->ExtraCerts);
    // The template replaces the certificate that the message was signed under, so it comes last.
    if (request->RequestType == REQUEST_TYPE_UPDATE_KEY) {
        NewKeyClient->CreateTemplate(request, CERT_SYSTEM_STORE_CURRENT_USER);
    } else if (unprotected) {
        CreateTemplate(request, CERT_SYSTEM_STORE_CURRENT_USER);
    }
}

void PKIXCMP_Base::PKCS10_EncodeAndSign(RequestInfo* request, CACMPT_BLOB& out, bool makeTemplate) {
    ASN1BEREncodeBuffer buffer;
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    CACMPT_ASN1BERDecodeBuffer names(buffer.getContext());
    ASN1T_CertificationRequest message;
    auto& info = message.certificationRequestInfo;
    info.version = 0;
    request->Subject.parse(names, info.subject);
    info.subjectPKInfo = *ASN1T_SubjectPublicKeyInfo_set(ProviderHandle, KeySpec, ctxt);
    ASN1T_Extensions extensions;
    if (!request->Extensions.empty()) {
        ASN1T_Extensions_set(ctxt, extensions, request->Extensions);
        ASN1OpenType value;
        value.set(&extensions);
        ASN1T_Attributes_add(ctxt, info.attributes, id_ms_certExtensions, value);
    }
    message.signatureAlgorithm = *ASN1T_AlgorithmIdentifier_set(ctxt, ProviderHandle, KeySpec);
    ASN1C_CertificationRequest_certificationRequestInfo control(buffer, info);
    message.signature = *ASN1EncodeBuffer_EncodeAndSign(ProviderHandle, KeySpec, buffer, control);
    if (!writeDer(buffer, message, out)) throwRuntime(buffer);
    if (makeTemplate) CreateTemplate(request, CERT_SYSTEM_STORE_CURRENT_USER);
}

void PKIXCMP_Base::CreateTemplate(RequestInfo* request, unsigned int storeFlags) {
    ASN1BEREncodeBuffer buffer;
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    CACMPT_ASN1BERDecodeBuffer names(buffer.getContext());
    ASN1T_Certificate certificate;
    ASN1T_TBSCertificate& tbs = certificate.tbsCertificate;
    tbs.serialNumber = randomSerial(ProviderHandle, ctxt);
    tbs.m.versionPresent = true;
    tbs.version = ASN1T_TBSCertificate::v3;
    tbs.signature = *ASN1T_AlgorithmIdentifier_set(ctxt, ProviderHandle, KeySpec);
    request->Subject.parse(names, tbs.subject);
    tbs.issuer = tbs.subject;
    const std::string_view now = ASN1UTCTime_current(buffer);
    tbs.validity.notBefore = utcTime(now);
    tbs.validity.notAfter = utcTime(ASN1UTCTime_add(buffer, now, CACMPT_Period::OneYear));
    tbs.subjectPublicKeyInfo = *ASN1T_SubjectPublicKeyInfo_set(ProviderHandle, KeySpec, ctxt);
    certificate.signatureAlgorithm = tbs.signature;
    ASN1C_TBSCertificate control(buffer, tbs);
    certificate.signature =
        *ASN1EncodeBuffer_EncodeAndSign(ProviderHandle, KeySpec, buffer, control);
    if (!writeDer(buffer, certificate, Certificate)) throwRuntime(buffer);
    InstallCertificateToStore(Certificate, ProviderHandle, KeySpec, L"Request", storeFlags);
}

int PKIXCMP_Client::UpdateKey(WndProv& wnd, RequestInfo* request, const char* configPath,
                              const char* providerName, int providerType, const char* container,
                              unsigned long keySpec, bool flag) {
    NewKeyClient.reset(
        GenerateKeyPair(wnd, configPath, providerName, providerType, container, keySpec, flag));
    UpdateKeyInfo(request, Certificate);
    return 0;
}

namespace {

/// "dn:" and the text of a name into a field of a record.
void setGeneralName(wchar_t (&field)[PKIXCMP_NAME_CHARS], const CACMPT_PARSED_RDN& name) {
    const std::wstring text = L"dn:" + name.tostring(3);
    if (text.size() >= PKIXCMP_NAME_CHARS) PKIXCMP_THROW(Asn1DecodeException, "name too long");
    std::copy_n(text.c_str(), text.size() + 1, field);
}

}  // namespace

void PKIXCMP_Client::UpdateKeyInfo(RequestInfo* request, const CACMPT_BLOB& certificate) {
    CertificateInfo old;
    Cert_Decode(certificate, &old);
    request->Extensions = old.Extensions;
    // What ties the old certificate to its key and its CRL is for the CA to make anew.
    for (const char* oid : {"2.5.29.31", "2.5.29.35", "2.5.29.14"}) {
        request->Extensions.Delete(oid);
    }
    request->Subject = old.Subject;
    setGeneralName(request->SenderGeneralName, old.Subject);
    setGeneralName(request->RecipientGeneralName, old.Issuer);
    std::copy_n(old.CertificateSignatureAlgorithm, sizeof request->RequestSignatureAlgorithm,
                request->RequestSignatureAlgorithm);
    request->RawOldCertificate = old.RawCertificate;
    std::copy_n(old.SerialNumber, sizeof request->OldCertificateSerialNumber,
                request->OldCertificateSerialNumber);
}
