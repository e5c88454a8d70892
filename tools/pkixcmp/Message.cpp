#include "tools/pkixcmp/Message.h"

#include <cstdint>
#include <iterator>

#include "platform/support/Text.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

constexpr const char* bodyNames[] = {"?",       "ir",       "ip",      "cr",     "cp",     "p10cr",
                                     "popdecc", "popdecr",  "kur",     "kup",    "krr",    "krp",
                                     "rr",      "rp",       "ccr",     "ccp",    "ckuann", "cann",
                                     "rann",    "crlann",   "pkiconf", "nested", "genm",   "genp",
                                     "error",   "certConf", "pollReq", "pollRep"};

constexpr const char* statusNames[] = {
    "granted",           "grantedWithMods",        "rejection",       "waiting",
    "revocationWarning", "revocationNotification", "keyUpdateWarning"};

template <class T>
void decode(ASN1BERDecodeBuffer& buffer, const CACMPT_BLOB& encoded, T& value,
            const std::string& what) {
    buffer.setBuffer(encoded.data, encoded.size);
    if (buffer.decode(Schema<T>::type, &value) < 0) {
        throw Failure(what + " is no " + rtTypeName(Schema<T>::type) + ": " +
                      printable(rtErrGetText(buffer.getCtxtPtr())));
    }
}

}  // namespace

Message::Message(const CACMPT_BLOB& encoded, const std::string& what) {
    decode(buffer_, encoded, value_, what);
}

std::string Message::type() const {
    bool known = value_.body.t > 0 && value_.body.t < static_cast<int>(std::size(bodyNames));
    return known ? bodyNames[value_.body.t] : bodyNames[0];
}

DecodedCertificate::DecodedCertificate(const CACMPT_BLOB& encoded, const std::string& what) {
    decode(buffer_, encoded, value_, what);
}

void checkRequest(const CACMPT_BLOB& encoded, const std::string& what) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    asn1data::ASN1T_CertificationRequest request;
    decode(buffer, encoded, request, what);
}

std::string Status::name() const {
    bool known = status >= 0 && status < static_cast<int>(std::size(statusNames));
    return known ? statusNames[status] : "status " + std::to_string(status);
}

std::string Status::line() const {
    return name() + (text.empty() ? "" : ": " + text) +
           (failures.empty() ? "" : " (" + failures + ")");
}

Status readStatus(const asn1data::ASN1T_PKIStatusInfo& info) {
    Status out;
    out.status = info.status;
    if (info.m.statusStringPresent) {
        ASN1CtxtRef ctxt;
        FreeText text;
        FreeText_Parse(ctxt.get(), text, info.statusString);
        out.text = freeTextOf(text);
    }
    if (info.m.failInfoPresent) {
        FailureInfo failures;
        for (std::uint32_t i = 0; i < FailureInfo::count; ++i) {
            if (info.failInfo.test(i)) failures.value |= FailureInfo::sequence[i];
        }
        out.failures = failures.toString();
    }
    return out;
}

bool protectionHolds(Message& message, DecodedCertificate& signer) {
    if (!message->m.protectionPresent || !message->header.m.protectionAlgPresent) return false;
    // What is signed is header and body: a message without its two optional parts.
    asn1data::ASN1T_PKIMessage part = message.value();
    part.m.protectionPresent = false;
    part.m.extraCertsPresent = false;
    ASN1BEREncodeBuffer buffer;
    asn1data::ASN1C_PKIMessage control(buffer, part);
    return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(buffer, control, message->protection,
                                                  signer->tbsCertificate.subjectPublicKeyInfo,
                                                  message->header.protectionAlg);
}

bool issuedBy(DecodedCertificate& certificate, DecodedCertificate& issuer) {
    if (!(encodeDer(certificate->tbsCertificate.issuer) ==
          encodeDer(issuer->tbsCertificate.subject))) {
        return false;
    }
    ASN1BEREncodeBuffer buffer;
    asn1data::ASN1C_TBSCertificate control(buffer, certificate->tbsCertificate);
    return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(buffer, control, certificate->signature,
                                                  issuer->tbsCertificate.subjectPublicKeyInfo,
                                                  certificate->signatureAlgorithm);
}

}  // namespace tool
