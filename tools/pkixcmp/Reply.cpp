#include "tools/pkixcmp/Reply.h"

#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

using namespace asn1data;

const ASN1T_SubjectPublicKeyInfo* requestedKey(Message& request) {
    ASN1T_PKIBody& body = request->body;
    if (body.t == ASN1T_PKIBody::T_p10cr) {
        return &body.u.p10cr->certificationRequestInfo.subjectPKInfo;
    }
    if (body.t != ASN1T_PKIBody::T_ir || body.u.ir->count != 1) return nullptr;
    const ASN1T_CertTemplate& wanted = body.u.ir->front().certReq.certTemplate;
    return wanted.m.publicKeyPresent ? &wanted.publicKey : nullptr;
}

void checkTransaction(Message& request, Message& reply) {
    if (request->header.m.transactionIDPresent &&
        !(reply->header.m.transactionIDPresent &&
          reply->header.transactionID == request->header.transactionID)) {
        throw Failure("the answer belongs to another transaction; nothing was installed");
    }
}

void checkProtection(Message& reply, DecodedCertificate* trusted) {
    if (trusted != nullptr && !protectionHolds(reply, *trusted)) {
        throw Failure("the answer is not signed by the CA of --trust; nothing was installed");
    }
}

Outcome refusal(const Status& status) {
    Outcome out;
    out.kind = status.status == PKI_STATUS_WAITING ? Outcome::waiting : Outcome::refused;
    out.text = status.line();
    return out;
}

Outcome errorOf(Message& reply) {
    const ASN1T_ErrorMsgContent& error = *reply->body.u.error;
    Outcome out = refusal(readStatus(error.pKIStatusInfo));
    if (error.m.errorCodePresent) out.text += ", error code " + std::to_string(error.errorCode);
    return out;
}

Outcome grant(Message& request, ASN1T_CertResponse& response, DecodedCertificate* trusted) {
    ASN1T_CertOrEncCert& given = response.certifiedKeyPair.certOrEncCert;
    if (!response.m.certifiedKeyPairPresent || given.t != ASN1T_CertOrEncCert::T_certificate) {
        throw Failure("the CA says granted and sends no certificate that can be read");
    }
    const ASN1T_SubjectPublicKeyInfo* key = requestedKey(request);
    if (key == nullptr ||
        !(encodeDer(*key) == encodeDer(given.u.certificate->tbsCertificate.subjectPublicKeyInfo))) {
        throw Failure("the CA certified another key than the one asked for; nothing was installed");
    }
    Outcome out;
    out.kind = Outcome::granted;
    out.certificate = encodeDer(*given.u.certificate);
    DecodedCertificate issued(out.certificate, "the certificate");
    if (trusted != nullptr && !issuedBy(issued, *trusted)) {
        throw Failure("the certificate was not issued by the CA of --trust; nothing was installed");
    }
    return out;
}

}  // namespace

Outcome readReply(const CACMPT_BLOB& request, const CACMPT_BLOB& reply,
                  DecodedCertificate* trusted) {
    Message asked(request, "the request");
    Message answer(reply, "the answer");
    checkProtection(answer, trusted);
    checkTransaction(asked, answer);
    if (answer->body.t == ASN1T_PKIBody::T_error) return errorOf(answer);
    bool fits = (asked->body.t == ASN1T_PKIBody::T_ir && answer->body.t == ASN1T_PKIBody::T_ip) ||
                (asked->body.t == ASN1T_PKIBody::T_p10cr && answer->body.t == ASN1T_PKIBody::T_cp);
    if (!fits) {
        throw Failure("the answer to " + asked.type() + " is a " + answer.type() +
                      ", which does not belong to it");
    }
    auto& responses = answer->body.u.ip->response;
    if (responses.count != 1) throw Failure("the CA's message holds no single answer");
    Status status = readStatus(responses.front().status);
    return status.status > PKI_STATUS_GRANTEDWITHMODS ? refusal(status)
                                                      : grant(asked, responses.front(), trusted);
}

}  // namespace tool
