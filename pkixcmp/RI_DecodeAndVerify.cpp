#include "capilite/CAException.h"
#include "capilite/DefaultProvider.h"
#include "capilite/PublicKeyRecord.h"
#include "capilite/RecordHelpers.h"
#include "capilite/Strings.h"
#include "pkixcmp/MessageBuilding.h"
#include "pkixcmp/MessageCoding.h"
#include "pkixcmp/MessageDecoding.h"
#include "pkixcmp/Party.h"
#include "pkixcmp/Protection.h"

using namespace asn1data;

namespace {

[[noreturn]] void throwRuntime(ASN1CTXT* context) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(context));
}

template <class Record>
void decode(ASN1BERDecodeBuffer& buffer, const CACMPT_BLOB& encoded, Record& record) {
    if (!pkixcmp_detail::readDer(buffer, encoded, record)) throwRuntime(buffer.getCtxtPtr());
}

// The only message of a request; the texts name the type, as others of the family do.
template <class List>
auto& onlyOne(List* list, const char* empty, const char* multiple) {
    if (list == nullptr || list->empty()) PKIXCMP_THROW(Asn1DecodeException, empty);
    if (list->count > 1) PKIXCMP_THROW(Asn1DecodeException, multiple);
    return list->front();
}

void parseTemplateKeyAndSubject(const ASN1T_CertTemplate& certTemplate, RequestInfo& request) {
    if (certTemplate.m.publicKeyPresent) {
        SubjectPublicKeyInfo_Parse(certTemplate.publicKey, request.SubjectPublicKey);
    }
    if (certTemplate.m.subjectPresent) request.Subject.assign(certTemplate.subject);
}

// The decoded value beside an open type. Bytes that did not decode are told with the runtime's
// text, by decoding them once more.
template <class T, class Record>
T* decodedValue(ASN1CTXT* context, Record& record, ASN1OpenType& value,
                int (*decodeStrictly)(ASN1CTXT*, Record*)) {
    if (value.as<T>() == nullptr && decodeStrictly(context, &record) < 0) throwRuntime(context);
    return value.as<T>();
}

void parseRequestedExtensions(ASN1CTXT* context, ASN1T_Attributes& attributes,
                              CACMPT_Extensions& out) {
    ASN1T_Attribute* attribute = pkixcmp_detail::extensionRequest(attributes);
    if (attribute == nullptr) return;
    auto* extensions = decodedValue<ASN1T_Extensions>(context, *attribute,
                                                      attribute->values.front(), asn1DTC_Attribute);
    if (extensions != nullptr) ASN1T_Extensions_get(*extensions, out);
}

void parsePkcs10(ASN1CTXT* context, ASN1T_CertificationRequest& in, RequestInfo& request) {
    auto& info = in.certificationRequestInfo;
    SubjectPublicKeyInfo_Parse(info.subjectPKInfo, request.SubjectPublicKey);
    str1cpy(request.RequestSignatureAlgorithm, in.signatureAlgorithm.algorithm,
            sizeof request.RequestSignatureAlgorithm,
            "p10cr.RequestSignatureAlgorithm.algorithm too long");
    request.RequestSignature.assign(in.signature.data, in.signature.numocts());
    request.Subject.assign(info.subject);
    parseRequestedExtensions(context, info.attributes, request.Extensions);
}

// A general message about the sender itself names it nowhere else.
void takeSender(const ASN1T_PKIHeader& header, RequestInfo& request) {
    GeneralizedNameParse(header.sender, request.Subject);
    copyNameText(request.Subject, request.SenderGeneralName);
}

void parseChangeName(ASN1CTXT* context, const ASN1T_ChangeNameReq& change, RequestInfo& request) {
    request.RequestType = REQUEST_TYPE_CHANGE_NAME;
    request.Subject.assign(change.oldName);
    request.NewSubject.assign(change.newName);
    if (change.m.oldTextPresent) {
        FreeText_Parse(context, request.ChangeNameTextOld, change.oldText);
    }
    if (change.m.newTextPresent) {
        FreeText_Parse(context, request.ChangeNameTextNew, change.newText);
    }
}

void parseResume(ASN1T_RevDetails& details, const ASN1T_PKIHeader& header, RequestInfo& request) {
    if (!details.certDetails.m.serialNumberPresent) {
        PKIXCMP_THROW(CAException, "Missing serial number");
    }
    CertReq_Parse(details, &request);
    takeSender(header, request);
    request.RequestType = REQUEST_TYPE_RESUME_CERTIFICATE;
}

template <class T>
T& itemValue(ASN1CTXT* context, ASN1T_InfoTypeAndValue& item) {
    T* value = nullptr;
    if (item.m.infoValuePresent) {
        value = decodedValue<T>(context, item, item.infoValue, asn1DTC_InfoTypeAndValue);
    }
    if (value == nullptr) PKIXCMP_THROW(Asn1DecodeException, "empty ASN1T_InfoTypeAndValue");
    return *value;
}

// A later item overrides the type that an earlier one set.
void parseGeneralMessage(ASN1CTXT* context, ASN1T_PKIMessage& message, RequestInfo& request) {
    request.RequestType = REQUEST_TYPE_GEN_MSG_CONTENT;
    if (message.body.u.genm == nullptr) {
        PKIXCMP_THROW(Asn1DecodeException, "empty ASN1T_GenMsgContent");
    }
    for (ASN1T_InfoTypeAndValue& item : *message.body.u.genm) {
        if (item.infoType == id_Quorvex_it_ChangeNameReq) {
            parseChangeName(context, itemValue<ASN1T_ChangeNameReq>(context, item), request);
        } else if (item.infoType == id_it_CurrentCRL) {
            request.RequestType = REQUEST_TYPE_GET_CRL;
            takeSender(message.header, request);
        } else if (item.infoType == id_Quorvex_it_ResumeCertificate) {
            parseResume(itemValue<ASN1T_RevDetails>(context, item), message.header, request);
        }
    }
}

void parseRequestBody(ASN1CTXT* context, ASN1T_PKIMessage& message, RequestInfo& request) {
    ASN1T_PKIBody& body = message.body;
    switch (body.t) {
        case ASN1T_PKIBody::T_ir:
            request.RequestType = REQUEST_TYPE_INIT_CERTIFICATE;
            return CertReq_Parse(body.u.ir, &request);
        case ASN1T_PKIBody::T_p10cr:
            request.RequestType = REQUEST_TYPE_GET_CERTIFICATE;
            return parsePkcs10(context, *body.u.p10cr, request);
        case ASN1T_PKIBody::T_kur:
            request.RequestType = REQUEST_TYPE_UPDATE_KEY;
            return CertReq_Parse(body.u.kur, &request);
        case ASN1T_PKIBody::T_rr:
            request.RequestType = REQUEST_TYPE_REVOKE_CERTIFICATE;
            return CertReq_Parse(
                onlyOne(body.u.rr, "empty ASN1T_RevReqContent", "multiple ASN1T_RevReqContent"),
                &request);
        case ASN1T_PKIBody::T_ccr:
            request.RequestType = REQUEST_TYPE_CROSS;
            return CertReq_Parse(body.u.ccr, &request);
        case ASN1T_PKIBody::T_genm:
            return parseGeneralMessage(context, message, request);
        default:
            PKIXCMP_THROW(Asn1DecodeException, "unsupported ASN1C_PKIMessage message type");
    }
}

// What a record shows of a certificate beside its raw bytes.
void parseCertificate(ASN1T_Certificate& in, CertificateInfo& out) {
    out.CertificateSignature.assign(in.signature.data, in.signature.numocts());
    str1cpy(out.CertificateSignatureAlgorithm, in.signatureAlgorithm.algorithm,
            sizeof out.CertificateSignatureAlgorithm,
            "CertificateSignatureAlgorithm.algorithm too long");
    tbsCertificateParse(in.tbsCertificate, &out);
}

void parseKeyIdentifiers(const ASN1T_Extensions& extensions, CertificateInfo& out) {
    bool critical = false;
    const ASN1OpenType* found =
        ASN1T_Extensions_find(extensions, id_ce_subjectKeyIdentifier, critical);
    if (found != nullptr) {
        const auto* subject = found->as<ASN1T_SubjectKeyIdentifier>();
        if (subject != nullptr) out.SubjectKeyIdentifier.assign(*subject);
    }
    found = ASN1T_Extensions_find(extensions, id_ce_authorityKeyIdentifier, critical);
    if (found != nullptr) {
        const auto* authority = found->as<ASN1T_AuthorityKeyIdentifier>();
        if (authority != nullptr && authority->m.keyIdentifierPresent) {
            out.AuthorityKeyIdentifier.assign(authority->keyIdentifier);
        }
    }
}

void fillErrorContent(ASN1CTXT* context, const ErrorMsgInfo& error, ASN1T_ErrorMsgContent& out) {
    if (error.ErrorCode != 0) {
        out.m.errorCodePresent = true;
        out.errorCode = error.ErrorCode;
    }
    if (!error.ErrorDetails.empty()) {
        FreeText_Encode(context, out.errorDetails, error.ErrorDetails);
        out.m.errorDetailsPresent = true;
    }
    pkixcmp_detail::setStatus(context, out.pKIStatusInfo, error.PKIStatus, error.ErrorText,
                              error.FailureInfo);
}

}  // namespace

lSimpleCryptProv::lSimpleCryptProv(const ASN1T_AlgorithmIdentifier& algorithm) {
    char oid[255];
    str1cpy(oid, algorithm.algorithm, sizeof oid, "Invalid ASN1T_AlgorithmIdentifier");
    handle = Quorvex::QXGetDefaultCSP(CertOIDToAlgId(oid));
    if (handle == 0) {
        SetLastError(CRYPT_E_NOT_FOUND);
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

bool VerifyProofOfPosession(unsigned long long provider, ASN1BEREncodeBuffer& buffer,
                            ASN1T_CertReqMsg& message) {
    if (!message.m.popoPresent) PKIXCMP_THROW(Asn1DecodeException, "no proof-of-posession");
    if (message.popo.t == ASN1T_ProofOfPossession::T_raVerified) return false;
    if (message.popo.t != ASN1T_ProofOfPossession::T_signature) {
        PKIXCMP_THROW(Asn1DecodeException, "unsupported proof-of-posession");
    }
    ASN1T_CertTemplate& certTemplate = message.certReq.certTemplate;
    if (!certTemplate.m.subjectPresent || !certTemplate.m.publicKeyPresent) {
        PKIXCMP_THROW(Asn1DecodeException, "proof-of-posession missing public key or subject DN");
    }
    // The hash follows from the key: the identifier inside the proof is not read.
    const PublicKeyRecord key(certTemplate.publicKey, 255, "Invalid ASN1T_AlgorithmIdentifier");
    PCCRYPT_OID_INFO hash = QXCryptGetDefaultHashOIDInfo(key.get());
    if (hash == nullptr) {
        PKIXCMP_THROW(Asn1DecodeException, "proof-of-posession invalid public key algorithm");
    }
    ASN1C_CertTemplate control(buffer, certTemplate);
    return ASN1EncodeBuffer_EncodeAndVerify(buffer, control, message.popo.u.signature->signature,
                                            certTemplate.publicKey, provider, hash->Algid);
}

void SubjectPublicKeyInfo_Parse(const ASN1T_SubjectPublicKeyInfo& info, CACMPT_PublicKeyInfo& out) {
    str1cpy(out.algorithm, info.algorithm.algorithm, sizeof out.algorithm,
            "SubjectPublicKeyInfo.algorithm too long");
    out.parameters.size = 0;
    if (info.algorithm.m.parametersPresent) {
        out.parameters.assign(info.algorithm.parameters.data, info.algorithm.parameters.numocts);
    }
    out.key.assign(info.subjectPublicKey.data, info.subjectPublicKey.numocts());
}

void CertReq_Parse(ASN1T_CertReqMessages* messages, RequestInfo* request) {
    const ASN1T_CertTemplate& certTemplate =
        onlyOne(messages, "empty ASN1T_CertReqMessages", "multiple ASN1T_CertReqMessages")
            .certReq.certTemplate;
    parseTemplateKeyAndSubject(certTemplate, *request);
    if (certTemplate.m.extensionsPresent) {
        ASN1T_Extensions_get(certTemplate.extensions, request->Extensions);
    }
}

void CertReq_Parse(ASN1T_RevDetails& details, RequestInfo* request) {
    parseTemplateKeyAndSubject(details.certDetails, *request);
    if (details.certDetails.m.serialNumberPresent) {
        str1cpy(request->SerialNumber, details.certDetails.serialNumber, 128,
                "SerialNumber too long");
    }
    request->RevokedReason = 0;
    if (details.m.revocationReasonPresent) {
        request->RevokedReason = ReasonFlags_Parse(details.revocationReason);
    }
}

void tbsCertificateParse(ASN1T_TBSCertificate& tbs, CertificateInfo* certificate) {
    CertificateInfo& out = *certificate;
    str1cpy(out.SerialNumber, tbs.serialNumber, 128, "SerialNumber too long");
    out.Issuer.assign(tbs.issuer);
    out.Subject.assign(tbs.subject);
    date1cpy(out.NotAfter, tbs.validity.notAfter.u.text, tbs.validity.notAfter.t);
    date1cpy(out.NotBefore, tbs.validity.notBefore.u.text, tbs.validity.notBefore.t);
    SubjectPublicKeyInfo_Parse(tbs.subjectPublicKeyInfo, out.SubjectPublicKey);
    out.SubjectKeyIdentifier.size = 0;
    out.AuthorityKeyIdentifier.size = 0;
    if (tbs.m.extensionsPresent) {
        ASN1T_Extensions_get(tbs.extensions, out.Extensions);
        parseKeyIdentifiers(tbs.extensions, out);
    }
}

ASN1T_Name* get_server_name(const CACMPT_BLOB& certificate, ASN1BERDecodeBuffer& buffer) {
    ASN1T_Certificate decoded;
    decode(buffer, certificate, decoded);
    auto* name = pkixcmp_detail::make<ASN1T_Name>(buffer.getCtxtPtr());
    *name = decoded.tbsCertificate.subject;
    return name;
}

int PKIXCMP_Base::CertReqMessage_Decode(const CACMPT_BLOB& message, RequestInfo* request) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_PKIMessage decoded;
    decode(buffer, message, decoded);
    parseRequestBody(buffer.getCtxtPtr(), decoded, *request);
    // The whole message, also where the body holds a request of its own.
    request->RawRequest.assign(message);
    ASN1CMPMessage_Parse(decoded, *request);
    return 0;
}

int PKIXCMP_Base::CertRepMessage_Decode(const CACMPT_BLOB& message, CertificateInfo* certificate) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_PKIMessage decoded;
    decode(buffer, message, decoded);
    const int t = decoded.body.t;
    if (t != ASN1T_PKIBody::T_ip && t != ASN1T_PKIBody::T_cp && t != ASN1T_PKIBody::T_kup &&
        t != ASN1T_PKIBody::T_ccp) {
        PKIXCMP_THROW(Asn1DecodeException, "ASN1C_PKIMessage decode failed");
    }
    ASN1CMPMessage_Parse(decoded, *certificate);
    ASN1T_CertRepMessage& reply = *decoded.body.u.ip;  // the four kinds are one type
    if (reply.response.empty()) return 0;
    if (reply.response.count > 1) PKIXCMP_THROW(Asn1DecodeException, "Too many answers.");
    ASN1T_CertResponse& response = reply.response.front();
    certificate->RequestID = response.certReqId;
    if (!response.m.certifiedKeyPairPresent) return 0;
    ASN1T_CertOrEncCert& issued = response.certifiedKeyPair.certOrEncCert;
    if (issued.t != ASN1T_CertOrEncCert::T_certificate) {
        PKIXCMP_THROW(Asn1DecodeException, "Unknown ASN1T_CertOrEncCert format.");
    }
    ASN1BEREncodeBuffer encoded;
    if (!pkixcmp_detail::writeDer(encoded, *issued.u.certificate, certificate->RawCertificate)) {
        throwRuntime(encoded.getCtxtPtr());
    }
    parseCertificate(*issued.u.certificate, *certificate);
    return 0;
}

int PKIXCMP_Base::Cert_Decode(const CACMPT_BLOB& encoded, CertificateInfo* certificate) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_Certificate decoded;
    decode(buffer, encoded, decoded);
    certificate->RawCertificate.assign(encoded);
    parseCertificate(decoded, *certificate);
    return 0;
}

int PKIXCMP_Base::ErrorMsgInfo_Decode(const CACMPT_BLOB& message, ErrorMsgInfo* error) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_PKIMessage decoded;
    decode(buffer, message, decoded);
    if (decoded.body.t != ASN1T_PKIBody::T_error) {
        PKIXCMP_THROW(Asn1DecodeException, "ASN1C_PKIMessage decode failed");
    }
    const ASN1T_ErrorMsgContent& content = *decoded.body.u.error;
    const ASN1T_PKIStatusInfo& status = content.pKIStatusInfo;
    ASN1CTXT* context = buffer.getCtxtPtr();
    if (content.m.errorCodePresent) error->ErrorCode = content.errorCode;
    if (content.m.errorDetailsPresent) {
        FreeText_Parse(context, error->ErrorDetails, content.errorDetails);
    }
    if (status.m.statusStringPresent) {
        FreeText_Parse(context, error->ErrorText, status.statusString);
    }
    if (status.m.failInfoPresent) error->FailureInfo |= FailureInfo_Parse(status.failInfo);
    error->PKIStatus = status.status;
    ASN1CMPMessage_Parse(decoded, *error);
    return 0;
}

int PKIXCMP_Base::ErrorMsgInfo_EncodeAndSign(const ErrorMsgInfo* error, CACMPT_BLOB& out,
                                             unsigned long provider, unsigned long keySpec,
                                             CACMPT_BLOB& certificate) {
    ASN1BEREncodeBuffer buffer;
    CACMPT_ASN1BERDecodeBuffer decodeBuffer(buffer.getContext());
    ASN1T_PKIMessage message;
    ASN1T_ErrorMsgContent content;
    fillErrorContent(buffer.getCtxtPtr(), *error, content);
    message.body.t = ASN1T_PKIBody::T_error;
    message.body.u.error = &content;
    ASN1CMPMessage_Encode(*error, message, buffer, decodeBuffer);
    if (error->SenderGeneralName[0] == L'\0') {
        pkixcmp_detail::setDirectoryName(message.header.sender,
                                         *get_server_name(certificate, decodeBuffer));
    }
    if (error->RecipientGeneralName[0] == L'\0') {
        PKIXCMP_THROW(Asn1DecodeException, "RecipientGeneralName not specified");
    }
    out = ASN1CMPMessage_Sign(message, buffer, provider, static_cast<unsigned int>(keySpec),
                              error->ExtraCerts);
    return 0;
}
