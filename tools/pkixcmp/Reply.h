#pragma once

#include <string>

#include "tools/pkixcmp/Message.h"

namespace tool {

/// What became of a request, read out of the answer to it.
struct Outcome {
    enum Kind { granted, waiting, refused } kind = refused;
    std::string text;         // why it was refused
    CACMPT_BLOB certificate;  // DER, when it was granted
};

/// Checks an answer against its request and reads it: the body belongs to the request's, the
/// transaction is the same, one answer, and a certificate is for the key that was asked for. With
/// the CA's certificate also the signatures of message and certificate, and the issuer. A Failure
/// for an answer that is not to be believed.
Outcome readReply(const CACMPT_BLOB& request, const CACMPT_BLOB& reply,
                  DecodedCertificate* trusted);

}  // namespace tool
