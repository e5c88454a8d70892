#include "tools/pkixcmp/Ca.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>

#include "capilite/ASN1Util.h"
#include "config/Ini.h"
#include "platform/support/Text.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

using namespace asn1data;

/// Identifier and nonce of the request go into the answer.
void copyIdentifiers(Message& request, PKIXCMP_Message& answer) {
    const ASN1T_PKIHeader& header = request->header;
    if (header.m.transactionIDPresent) answer.transactionID.assign(header.transactionID);
    if (header.m.senderNoncePresent) answer.sender_nonce.assign(header.senderNonce);
}

/// The sender of a message; fails when it is no distinguished name, or one that cannot be read.
CACMPT_PARSED_RDN senderOf(Message& message) {
    CACMPT_PARSED_RDN sender;
    GeneralizedNameParse(message->header.sender, sender);
    return sender;
}

const ASN1T_CertTemplate* certTemplateOf(Message& message) {
    ASN1T_PKIBody& body = message->body;
    if (body.t == ASN1T_PKIBody::T_p10cr || body.u.ir->empty()) return nullptr;
    return &body.u.ir->front().certReq.certTemplate;
}

/// The subject that the request asks for, empty when it names none.
std::string requestedSubject(Message& message) {
    const ASN1T_Name* name = nullptr;
    if (message->body.t == ASN1T_PKIBody::T_p10cr) {
        name = &message->body.u.p10cr->certificationRequestInfo.subject;
    } else if (auto wanted = certTemplateOf(message); wanted && wanted->m.subjectPresent) {
        name = &wanted->subject;
    }
    if (name == nullptr) return {};
    CACMPT_PARSED_RDN parsed;
    parsed.assign(*name);
    return nameText(parsed);
}

/// Whether the names of a request can be read; its subject goes into `subject`.
bool readNames(Message& message, std::string& subject) {
    try {
        subject = requestedSubject(message);
        senderOf(message);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool requestSignatureHolds(ASN1T_CertificationRequest& request) {
    ASN1BEREncodeBuffer buffer;
    ASN1C_CertificationRequest_certificationRequestInfo control(buffer,
                                                                request.certificationRequestInfo);
    return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(buffer, control, request.signature,
                                                  request.certificationRequestInfo.subjectPKInfo,
                                                  request.signatureAlgorithm);
}

bool proofHolds(ASN1T_CertReqMsg& request) {
    lSimpleCryptProv found(request.certReq.certTemplate.publicKey.algorithm);
    prov_handle provider(found.handle);
    ASN1BEREncodeBuffer buffer;
    return VerifyProofOfPosession(provider, buffer, request);
}

/// Whether the sender of the request has the key: empty, or why that was not shown.
std::string faultOfProof(Message& message) {
    ASN1T_PKIBody& body = message->body;
    try {
        if (body.t == ASN1T_PKIBody::T_p10cr) {
            return requestSignatureHolds(*body.u.p10cr)
                       ? ""
                       : "the signature of the PKCS#10 request does not hold, or its algorithm is "
                         "not known here";
        }
        if (body.u.ir->count != 1) return "the message must hold one request";
        if (!body.u.ir->front().certReq.certTemplate.m.publicKeyPresent) return "no public key";
        return proofHolds(body.u.ir->front()) ? "" : "the proof of possession does not hold";
    } catch (const std::exception& failure) {
        return "the proof of possession cannot be checked: " + meaningOf(failure);
    }
}

/// Whether the extensions ask for a CA's rights: cA, or signing certificates or CRLs.
bool asksForCa(const CACMPT_Extensions& extensions) {
    for (const CACMPT_Extension& extension : extensions) {
        ASN1BERDecodeBuffer buffer(extension.value.data, extension.value.size);
        if (extension.oid == "2.5.29.19") {
            ASN1T_BasicConstraintsSyntax constraints;
            if (buffer.decode(Schema<ASN1T_BasicConstraintsSyntax>::type, &constraints) < 0 ||
                constraints.cA) {
                return true;
            }
        } else if (extension.oid == "2.5.29.15") {
            ASN1T_KeyUsage usage;
            if (buffer.decode(Schema<ASN1T_KeyUsage>::type, &usage) < 0 || usage.test(5) ||
                usage.test(6)) {
                return true;
            }
        }
    }
    return false;
}

/// RFC 5280 4.2: a certificate must not hold two extensions of one kind.
bool repeatsAnExtension(const CACMPT_Extensions& extensions) {
    std::set<std::string> seen;
    for (const CACMPT_Extension& extension : extensions) {
        if (!seen.insert(extension.oid).second) return true;
    }
    return false;
}

/// The certificate of an answer that was just made, as DER and by its serial number.
void noteCertificate(CaAnswer& out) {
    Message reply(out.reply, "the answer");
    ASN1T_Certificate& issued =
        *reply->body.u.ip->response.front().certifiedKeyPair.certOrEncCert.u.certificate;
    out.certificate = encodeDer(issued);
    out.serial = issued.tbsCertificate.serialNumber;
}

}  // namespace

Responder::Responder(PKIXCMP_Server& ca, const IssuePolicy& policy) : ca_(ca), policy_(policy) {
    CertificateInfo root;
    PKIXCMP_Base::Cert_Decode(ca_.Certificate, &root);
    end_ = root.NotAfter;
}

CaAnswer Responder::answer(const CACMPT_BLOB& request) {
    CaAnswer out;
    std::unique_ptr<Message> message;
    try {
        message = std::make_unique<Message>(request, "the request");
    } catch (const Failure& failure) {
        fail(nullptr, FailureInfo::badDataFormat, failure.what(), out);
        return out;
    }
    out.type = message->type();
    try {
        certify(*message, request, out);
    } catch (const Asn1DecodeException& failure) {
        refuse(*message, request, FailureInfo::badDataFormat, meaningOf(failure), out);
    } catch (const std::exception& failure) {
        fail(message.get(), FailureInfo::systemFailure, meaningOf(failure), out);
    }
    return out;
}

void Responder::certify(Message& message, const CACMPT_BLOB& request, CaAnswer& out) {
    switch (message->body.t) {
        case ASN1T_PKIBody::T_ir:
        case ASN1T_PKIBody::T_p10cr:
            break;
        case ASN1T_PKIBody::T_kur:
        case ASN1T_PKIBody::T_ccr:
            return refuse(message, request, FailureInfo::badRequest,
                          out.type +
                              " rests on the signature of the message, which this CA cannot "
                              "trace to a certificate yet",
                          out);
        default:
            return fail(&message, FailureInfo::badRequest,
                        "a message of type " + out.type + " is not answered here", out);
    }
    if (!readNames(message, out.subject)) {
        return refuse(message, request, FailureInfo::badDataFormat,
                      "the sender or the subject is a name that cannot be read here", out);
    }
    if (!policy_.approve) {
        return refuse(message, request, FailureInfo::badRequest,
                      "this CA approves no request by itself", out);
    }
    if (std::string fault = faultOfProof(message); !fault.empty()) {
        return refuse(message, request, FailureInfo::badPOP, fault, out);
    }
    issue(message, request, out);
}

void Responder::checkState() const {
    if (end_ < CACMPT_Date::Now()) {
        throw Failure("the CA's certificate ended at " + dateText(end_) + "; make a new root");
    }
    IniValue stored;
    if (!Ini(ca_.configPath()).find("cert", stored) || !(stored.get_binary() == ca_.Certificate)) {
        throw Failure("the CA's configuration is gone or another CA's; it must be started anew");
    }
}

void Responder::setValidity(CertificateInfo& certificate) const {
    if (policy_.days == 0) return;
    CACMPT_Period days(static_cast<unsigned int>(policy_.days) * 86400u, 0);
    certificate.NotBefore = CACMPT_Date::Now();
    certificate.NotAfter = std::min(certificate.NotBefore + days, end_);
    certificate.ValidityOverride = true;
}

// Refusals take failure bits among the first ten alone: these have the same place on the wire here
// and in RFC 4210, so that every client reads what is meant.

void Responder::issue(Message& message, const CACMPT_BLOB& request, CaAnswer& out) {
    CertificateInfo certificate;
    ca_.CertReqMessage_PreProcess(request, &certificate);
    if (repeatsAnExtension(certificate.Extensions)) {
        return refuse(message, request, FailureInfo::badRequest,
                      "the request names an extension twice", out);
    }
    if (!policy_.allowCa && asksForCa(certificate.Extensions)) {
        return refuse(message, request, FailureInfo::badRequest,
                      "the request asks for the rights of a CA, which are not given here", out);
    }
    checkState();
    setValidity(certificate);
    copyIdentifiers(message, certificate);
    ca_.CertReqMessage_Process(&certificate, out.reply);
    noteCertificate(out);
    out.result = "issued";
}

CaAnswer Responder::reject(const CACMPT_BLOB& request, int status, std::uint32_t failures,
                           const std::string& text) {
    CaAnswer out;
    Message message(request, "the request");
    out.type = message.type();
    refuse(message, request, failures, text, out, status);
    return out;
}

void Responder::refuse(Message& message, const CACMPT_BLOB& request, std::uint32_t failures,
                       const std::string& text, CaAnswer& out, int status) {
    RequestInfo refused;
    refused.RawRequest = request;
    refused.RejectStatus = status;
    refused.RejectText = freeText(text);
    refused.RejectFailureInfo = failures;
    copyIdentifiers(message, refused);
    try {
        ca_.CertReqMessage_Reject(refused, out.reply, true);
    } catch (const std::exception&) {  // of no shape that has a place for a rejection
        return fail(&message, failures, text, out);
    }
    out.result = "rejected";
    out.text = text;
}

void Responder::fail(Message* message, std::uint32_t failures, const std::string& text,
                     CaAnswer& out) {
    ErrorMsgInfo error;
    error.PKIStatus = PKI_STATUS_REJECTION;
    error.FailureInfo = failures;
    error.ErrorText = freeText(text);
    auto signTo = [&](const CACMPT_PARSED_RDN& recipient) {
        setHeaderName(error.RecipientGeneralName, recipient);
        PKIXCMP_Base::ErrorMsgInfo_EncodeAndSign(&error, out.reply, ca_.ProviderHandle, ca_.KeySpec,
                                                 ca_.Certificate);
    };
    out.result = "error";
    out.text = text;
    if (message != nullptr) {
        copyIdentifiers(*message, error);
        try {
            return signTo(senderOf(*message));
        } catch (const std::exception&) {  // it names none that can be read, or written again
        }
    }
    signTo({});
}

}  // namespace tool
