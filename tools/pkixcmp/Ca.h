#pragma once

#include <cstdint>
#include <string>

#include "pkixcmp/PKIXCMP_Base.h"
#include "tools/pkixcmp/Message.h"

namespace tool {

/// What the CA lets through.
struct IssuePolicy {
    bool approve = false;  // without it every request is refused
    int days = 0;          // validity of what is issued; 0 is the library's year
    bool allowCa = false;  // requests that ask for the rights of a CA
};

/// A CA's answer to one message, with what a log says of it.
struct CaAnswer {
    CACMPT_BLOB reply;
    CACMPT_BLOB certificate;  // empty unless one was issued
    std::string type = "?";   // body of the request
    std::string subject;
    std::string result;  // "issued", "rejected", "error"
    std::string serial;
    std::string text;  // why not
    bool issued() const { return result == "issued"; }
};

/// Answers requests with one CA object, and belongs to one thread like it. Every message gets a
/// signed answer: a certificate, a rejection, or an error for what is no request that can be
/// rejected. Throws only when not even that can be signed.
class Responder {
public:
    Responder(PKIXCMP_Server& ca, const IssuePolicy& policy);

    CaAnswer answer(const CACMPT_BLOB& request);
    /// A refusal of a request whatever it says, with the status, text and failure bits given.
    CaAnswer reject(const CACMPT_BLOB& request, int status, std::uint32_t failures,
                    const std::string& text);

private:
    void certify(Message& message, const CACMPT_BLOB& request, CaAnswer& out);
    void issue(Message& message, const CACMPT_BLOB& request, CaAnswer& out);
    void refuse(Message& message, const CACMPT_BLOB& request, std::uint32_t failures,
                const std::string& text, CaAnswer& out, int status = PKI_STATUS_REJECTION);
    void fail(Message* message, std::uint32_t failures, const std::string& text, CaAnswer& out);
    /// A Failure when the CA's time is over, or its settings were taken away or replaced while it
    /// runs: serial numbers would be counted from the beginning again.
    void checkState() const;
    void setValidity(CertificateInfo& certificate) const;

    PKIXCMP_Server& ca_;
    IssuePolicy policy_;
    CACMPT_Date end_;  // of the CA's certificate
};

}  // namespace tool
