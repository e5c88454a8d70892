#pragma once

#include <list>

#include "capilite/Blob.h"
#include "capilite/EncodeAnd.h"
#include "platform/Export.h"
#include "platform/asn1/asn1data.h"

// Protection of messages (RFC 4210 5.1.3) and proof of possession (RFC 4211 4), by signature alone.

/// A provider context for the algorithm of a request's key. The user releases the handle with
/// `CryptReleaseContext`; `CryptException` when there is none.
struct PKIXCMP_API lSimpleCryptProv {
    explicit lSimpleCryptProv(const asn1data::ASN1T_AlgorithmIdentifier& algorithm);
    unsigned long long handle = 0;
};

/// Signs a message that has its header and body and gives the DER of the whole. Sets protectionAlg;
/// certificates already in the message stay in front of `extraCerts`, and an empty list removes
/// them.
PKIXCMP_API CACMPT_BLOB ASN1CMPMessage_Sign(asn1data::ASN1T_PKIMessage& message,
                                            ASN1BEREncodeBuffer& buffer,
                                            unsigned long long provider, unsigned int keySpec,
                                            const std::list<CACMPT_BLOB>& extraCerts);

/// The proof of possession over the CertTemplate alone; its algorithmIdentifier is that of the key.
PKIXCMP_API void MakeProofOfPosession(unsigned long long provider, ASN1BEREncodeBuffer& buffer,
                                      asn1data::ASN1T_CertReqMsg& message, unsigned int keySpec);
/// Checks such a proof. False for a wrong signature and for raVerified; a request without proof,
/// subject or key is an `Asn1DecodeException`.
PKIXCMP_API bool VerifyProofOfPosession(unsigned long long provider, ASN1BEREncodeBuffer& buffer,
                                        asn1data::ASN1T_CertReqMsg& message);
