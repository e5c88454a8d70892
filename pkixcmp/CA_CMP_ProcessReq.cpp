#include <cstring>
#include <string>

#include "capilite/Strings.h"
#include "config/Ini.h"
#include "pkixcmp/CaRequests.h"
#include "pkixcmp/MessageBuilding.h"
#include "pkixcmp/MessageCoding.h"
#include "pkixcmp/Protection.h"
#include "pkixcmp/SerialNumber.h"
#include "platform/crypt/CryptApi.h"
#include "platform/support/Support.h"

// The second half of issuing: serial number, signature and reply; and the refusal of a request.

using namespace asn1data;
using namespace pkixcmp_detail;

namespace {

[[noreturn]] void throwRuntime(const ASN1MessageBufferIF& buffer) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
}

/// The number that the text of "certnum" holds.
SerialNumber lastNumber(const char* certnum) {
    SerialNumber number;
    if (!number.read(certnum)) PKIXCMP_THROW(Asn1DecodeException, "decode integer failed");
    return number;
}

/// A serial number counted on from a text in the caller's hands, which moves at once.
class CallersCounter {
public:
    explicit CallersCounter(char* certnum) : certnum_(certnum) {}

    const SerialNumber& prepare(unsigned long long provider) {
        number_ = lastNumber(certnum_);
        number_.draw(provider);
        number_.count();
        number_.print(certnum_);
        return number_;
    }
    const SerialNumber& take() { return number_; }
    void giveBack() noexcept {}

private:
    char* certnum_;
    SerialNumber number_;
};

/// A serial number counted on from the setting "certnum", which any number of processes share.
///
/// `prepare` only looks: it gives a number that may not be the one in the end, and fails where the
/// setting cannot be read. `take` counts the setting on as one step that no other process can come
/// between, after everything that can refuse the request has been tried. So no number is given out
/// twice. A process that dies between `take` and the reply leaves a gap; so does a failed signature
/// when another process has counted on in the meantime, otherwise `giveBack` undoes the step.
class StoredCounter {
public:
    explicit StoredCounter(const std::string& configPath) : settings_(configPath) {
        settings_.build_param_path("certnum", path_);
        before_ = settings_.find_def("certnum", "");
    }

    const SerialNumber& prepare(unsigned long long provider) {
        number_ = lastNumber(before_.c_str());
        number_.draw(provider);
        number_.count();
        return number_;
    }

    const SerialNumber& take() {
        update(&StoredCounter::countOn);
        if (unreadable_) PKIXCMP_THROW(Asn1DecodeException, "decode integer failed");
        return number_;
    }

    void giveBack() noexcept {
        try {
            update(&StoredCounter::restore);
        } catch (...) {  // what is left is a gap, and the failure that led here goes on
        }
    }

private:
    /// Runs a change of the present text; a null result leaves the setting alone.
    void update(const char* (StoredCounter::*change)(const char*)) {
        change_ = change;
        const int code = support_registry_update_string(
            path_.c_str(),
            [](const char* present, void* context) {
                auto* self = static_cast<StoredCounter*>(context);
                return (self->*self->change_)(present ? present : "");
            },
            this);
        if (code != SUPPORT_OK) ini_throw::throw_code(code);
    }

    // Runs inside the settings' transaction, which no exception may leave.
    const char* countOn(const char* present) noexcept {
        try {
            before_ = present;
            SerialNumber next = lastNumber(present);
            next.count();
            number_.takeCounter(next);
            number_.print(taken_);
            return taken_;
        } catch (...) {
            unreadable_ = true;
            return nullptr;
        }
    }
    const char* restore(const char* present) noexcept {
        return std::strcmp(present, taken_) == 0 ? before_.c_str() : nullptr;
    }

    Ini settings_;
    std::string path_;
    std::string before_;  // the text that the number is counted on from
    SerialNumber number_;
    char taken_[SerialNumber::TextRoom] = {};
    bool unreadable_ = false;
    const char* (StoredCounter::*change_)(const char*) = nullptr;
};

/// A reply with one response. Its parts refer to one another, so it stays where it is made.
struct Reply {
    ASN1BEREncodeBuffer buffer;
    CACMPT_ASN1BERDecodeBuffer decodeBuffer{buffer.getContext()};
    ASN1T_PKIMessage message;
    ASN1T_CertRepMessage content;
    ASN1T_CertResponse& response = add(buffer.getCtxtPtr(), content.response);

    Reply() { response.certReqId = -1; }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    /// The header of the record; without a sender of its own it comes from the CA, without a
    /// recipient it goes to the sender of the request.
    void address(const PKIXCMP_Message& record, const ASN1T_PKIMessage& request,
                 const ASN1T_Certificate& ca) {
        ASN1CMPMessage_Encode(record, message, buffer, decodeBuffer);
        if (record.SenderGeneralName[0] == 0) {
            setDirectoryName(message.header.sender, ca.tbsCertificate.subject);
        }
        if (record.RecipientGeneralName[0] == 0) message.header.recipient = request.header.sender;
    }

    void answer(int requestKind) {
        message.body.t = replyKind(requestKind);
        switch (message.body.t) {
            case ASN1T_PKIBody::T_ip:
                message.body.u.ip = &content;
                break;
            case ASN1T_PKIBody::T_cp:
                message.body.u.cp = &content;
                break;
            case ASN1T_PKIBody::T_kup:
                message.body.u.kup = &content;
                break;
            case ASN1T_PKIBody::T_ccp:
                message.body.u.ccp = &content;
                break;
            default:
                PKIXCMP_THROW(Asn1DecodeException, "unsupported ASN1C_PKIMessage type");
        }
    }
};

/// What the record decides about the certificate: its extensions, and its dates when they override.
void takeFromRecord(const CertificateInfo& record, CertificateTemplate& work) {
    ASN1T_TBSCertificate& tbs = work.certificate.tbsCertificate;
    ASN1T_Extensions_set(work.encodeBuffer.getCtxtPtr(), tbs.extensions, record.Extensions);
    tbs.m.extensionsPresent = !tbs.extensions.empty();
    if (!record.ValidityOverride) return;
    tbs.validity.notBefore = certificateTime(work.encodeBuffer, record.NotBefore);
    tbs.validity.notAfter = certificateTime(work.encodeBuffer, record.NotAfter);
}

/// Issues under a number of the counter. The certificate is encoded and the reply addressed before
/// a number is taken, so that what can be refused is refused before.
template <class Counter>
CACMPT_BLOB issue(const PKIXCMP_Server& ca, CertificateInfo& record, Counter& counter) {
    if (!record.Template) PKIXCMP_THROW(Asn1DecodeException, "not preprocessed cert");
    requireKey(ca);
    CertificateTemplate& work = *record.Template;
    ASN1CTXT* ctxt = work.encodeBuffer.getCtxtPtr();
    ASN1T_TBSCertificate& tbs = work.certificate.tbsCertificate;
    tbs.serialNumber = counter.prepare(ca.ProviderHandle).text(ctxt);
    takeFromRecord(record, work);
    ASN1C_TBSCertificate control(work.encodeBuffer, tbs);
    if (control.Encode() <= 0) throwRuntime(work.encodeBuffer);
    work.certificate.signatureAlgorithm = tbs.signature;

    Reply reply;
    reply.response.m.certifiedKeyPairPresent = true;
    ASN1T_CertOrEncCert& issued = reply.response.certifiedKeyPair.certOrEncCert;
    issued.t = ASN1T_CertOrEncCert::T_certificate;
    issued.u.certificate = &work.certificate;
    reply.address(record, work.request, work.caCertificate);
    reply.answer(work.request.body.t);

    tbs.serialNumber = counter.take().text(ctxt);
    try {
        work.certificate.signature = *ASN1EncodeBuffer_EncodeAndSign(
            ca.ProviderHandle, AT_SIGNATURE, work.encodeBuffer, control);
        return ASN1CMPMessage_Sign(reply.message, reply.buffer, ca.ProviderHandle, AT_SIGNATURE,
                                   record.ExtraCerts);
    } catch (...) {
        counter.giveBack();
        throw;
    }
}

void refuse(Reply& reply, const RequestInfo& record) {
    setStatus(reply.buffer.getCtxtPtr(), reply.response.status, record.RejectStatus,
              record.RejectText, record.RejectFailureInfo);
}

/// The certReqId that a refusal answers: that of the request; a PKCS#10 request has none.
std::int32_t answeredId(const ASN1T_PKIBody& body) {
    switch (body.t) {
        case ASN1T_PKIBody::T_ir:
            return onlyRequest(*body.u.ir).certReq.certReqId;
        case ASN1T_PKIBody::T_kur:
            return onlyRequest(*body.u.kur).certReq.certReqId;
        case ASN1T_PKIBody::T_ccr:
            return onlyRequest(*body.u.ccr).certReq.certReqId;
        default:
            return -1;
    }
}

}  // namespace

int pkixcmp_detail::replyKind(int requestKind) {
    switch (requestKind) {
        case ASN1T_PKIBody::T_ir:
            return ASN1T_PKIBody::T_ip;
        case ASN1T_PKIBody::T_p10cr:
            return ASN1T_PKIBody::T_cp;
        case ASN1T_PKIBody::T_kur:
            return ASN1T_PKIBody::T_kup;
        case ASN1T_PKIBody::T_ccr:
            return ASN1T_PKIBody::T_ccp;
        default:
            return 0;
    }
}

void PKIXCMP_Server::CertReqMessage_Process(CertificateInfo* certificate, CACMPT_BLOB& reply) {
    StoredCounter counter(configPath_);
    reply = issue(*this, *certificate, counter);
}

void PKIXCMP_Server::CertReqMessage_Process(CertificateInfo* certificate, CACMPT_BLOB& reply,
                                            char* certnum) {
    CallersCounter counter(certnum);
    reply = issue(*this, *certificate, counter);
}

void PKIXCMP_Server::CertReqMessage_Reject(RequestInfo& request, CACMPT_BLOB& reply, bool sign) {
    requireKey(*this);
    Reply refusal;
    ASN1T_Certificate own;
    ASN1T_PKIMessage asked;
    if (!readDer(refusal.decodeBuffer, Certificate, own) ||
        !readDer(refusal.decodeBuffer, request.RawRequest, asked)) {
        throwRuntime(refusal.decodeBuffer);
    }
    refusal.address(request, asked, own);
    if (replyKind(asked.body.t) == 0) {
        PKIXCMP_THROW(Asn1DecodeException, "unsupported ASN1C_PKIMessage type");
    }
    refuse(refusal, request);
    refusal.response.certReqId = answeredId(asked.body);
    refusal.answer(asked.body.t);
    if (sign) {
        reply = ASN1CMPMessage_Sign(refusal.message, refusal.buffer, ProviderHandle, AT_SIGNATURE,
                                    request.ExtraCerts);
    } else if (!writeDer(refusal.buffer, refusal.message, reply)) {
        throwRuntime(refusal.buffer);
    }
}
