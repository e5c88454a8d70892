#pragma once

#include "pkixcmp/Server.h"
#include "platform/asn1/asn1data.h"

// What the CA's operations share about requests. Internal to the library.

namespace pkixcmp_detail {

/// Fails with "no CA private key" unless the CA has a provider handle and a certificate.
void requireKey(const PKIXCMP_Server& ca);

/// The certificate request of an ir, kur or ccr. Its list must hold exactly one, and the template a
/// public key and a subject.
const asn1data::ASN1T_CertReqMsg& onlyRequest(const asn1data::ASN1T_CertReqMessages& messages);

/// Body of the reply to a request body, 0 for what the CA does not answer with a certificate.
int replyKind(int requestKind);

}  // namespace pkixcmp_detail
