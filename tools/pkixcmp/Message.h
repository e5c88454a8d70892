#pragma once

#include <string>

#include "capilite/CAException.h"
#include "pkixcmp/PKIXCMP_Base.h"

namespace tool {

/// A decoded message together with the buffer that its values live in.
class Message {
public:
    /// A Failure with `what` ("the answer") and the place of the fault when it does not decode.
    Message(const CACMPT_BLOB& encoded, const std::string& what);
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    asn1data::ASN1T_PKIMessage* operator->() { return &value_; }
    asn1data::ASN1T_PKIMessage& value() { return value_; }
    ASN1BERDecodeBuffer& buffer() { return buffer_; }
    /// "ir", "p10cr", …
    std::string type() const;

private:
    CACMPT_ASN1BERDecodeBuffer buffer_;
    asn1data::ASN1T_PKIMessage value_;
};

/// The same for a certificate.
class DecodedCertificate {
public:
    DecodedCertificate(const CACMPT_BLOB& encoded, const std::string& what);
    DecodedCertificate(const DecodedCertificate&) = delete;
    DecodedCertificate& operator=(const DecodedCertificate&) = delete;

    asn1data::ASN1T_Certificate* operator->() { return &value_; }
    asn1data::ASN1T_Certificate& value() { return value_; }

private:
    CACMPT_ASN1BERDecodeBuffer buffer_;
    asn1data::ASN1T_Certificate value_;
};

/// A Failure when the bytes of `what` are no PKCS#10 request.
void checkRequest(const CACMPT_BLOB& encoded, const std::string& what);

/// DER of a decoded value.
template <class T>
CACMPT_BLOB encodeDer(const T& value) {
    ASN1BEREncodeBuffer buffer;
    int length = buffer.encode(Schema<T>::type, &value);
    if (length < 0) PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()).c_str());
    return CACMPT_BLOB(buffer.getMsgPtr(), buffer.getMsgLen());
}

/// What a status says (RFC 4210 5.2.3).
struct Status {
    int status = 0;
    std::string text;          // statusString
    std::string failures;      // names of the failure bits, joined by "|"
    std::string name() const;  // "granted", "rejection", …
    /// "rejection: no such customer (badRequest)".
    std::string line() const;
};
Status readStatus(const asn1data::ASN1T_PKIStatusInfo& info);

/// Whether the message's signature is good by a certificate's key.
bool protectionHolds(Message& message, DecodedCertificate& signer);
/// Whether a certificate was signed by the key of another, and names it as its issuer.
bool issuedBy(DecodedCertificate& certificate, DecodedCertificate& issuer);

}  // namespace tool
