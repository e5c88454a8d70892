#pragma once

#include "capilite/Blob.h"
#include "pkixcmp/Records.h"
#include "platform/Export.h"
#include "platform/asn1/asn1data.h"

// Parts of decoded messages into records. All believe what they read: signatures and proofs are
// checked elsewhere. Failures are `Asn1DecodeException` unless said otherwise.

/// The one CertReqMsg of an ir, kur or ccr: public key, subject and extensions of its template.
/// What the template lacks leaves the record's field as it was.
PKIXCMP_API void CertReq_Parse(asn1data::ASN1T_CertReqMessages* messages, RequestInfo* request);
/// One RevDetails: public key, subject and serial number of its template, and the reason bits.
PKIXCMP_API void CertReq_Parse(asn1data::ASN1T_RevDetails& details, RequestInfo* request);
/// Everything that a record shows of a certificate but signature and raw bytes.
PKIXCMP_API void tbsCertificateParse(asn1data::ASN1T_TBSCertificate& tbs,
                                     CertificateInfo* certificate);
/// Algorithm, parameters and key bytes.
PKIXCMP_API void SubjectPublicKeyInfo_Parse(const asn1data::ASN1T_SubjectPublicKeyInfo& info,
                                            CACMPT_PublicKeyInfo& out);
/// The subject of a DER certificate, in the context of the buffer. `Asn1Exception` when it does not
/// decode.
PKIXCMP_API asn1data::ASN1T_Name* get_server_name(const CACMPT_BLOB& certificate,
                                                  ASN1BERDecodeBuffer& buffer);
