#pragma once

#include <cstdint>
#include <list>

#include "capilite/Blob.h"
#include "capilite/Date.h"
#include "capilite/DecodeBuffer.h"
#include "capilite/ParsedRdn.h"
#include "pkixcmp/Extensions.h"
#include "pkixcmp/FailureInfo.h"
#include "pkixcmp/FreeText.h"
#include "pkixcmp/GeneralInfo.h"
#include "platform/Export.h"
#include "platform/asn1/asn1data.h"

// The records that callers fill in and read back: one message in friendly form. They check nothing;
// every check is made by the operations that encode, decode, pre-process and install. A decoder
// fills a record without clearing it first. The name arrays make a record large: do not copy one
// casually. A record belongs to one thread at a time.

/// Room of a name as text, with the terminating zero.
inline constexpr std::size_t PKIXCMP_NAME_CHARS = 8192;

/// The head that all messages have; a general message is this alone.
class PKIXCMP_API PKIXCMP_Message {
public:
    PKIXCMP_Message();
    /// Empties all but `FreeText`.
    void clear();

    // Texts of the form "dn:…", "dns:…" or "rfc:…" going out, a plain name as read.
    wchar_t SenderGeneralName[PKIXCMP_NAME_CHARS];
    wchar_t RecipientGeneralName[PKIXCMP_NAME_CHARS];
    CACMPT_GeneralInfo GeneralInfo;
    CACMPT_Date SubmittedWhen;          // messageTime as read; encoding stamps the present time
    std::list<CACMPT_BLOB> ExtraCerts;  // DER, in the order of extraCerts
    CACMPT_BLOB sender_nonce;
    CACMPT_BLOB transactionID;
    CACMPT_BLOB sender_kid;
    ::FreeText FreeText;
};

/// A request: what is asked, and what the answer to it shall say.
class PKIXCMP_API RequestInfo : public PKIXCMP_Message {
public:
    RequestInfo();
    /// Empties the head and the request. `NewSubject`, the texts of a name change and the three
    /// reject fields stay: who reuses a record sets them anew.
    void clear();

    std::int32_t RequestID = 0;
    /// The PKCS#10 request to send; the whole message after decoding.
    CACMPT_BLOB RawRequest;
    CACMPT_PARSED_RDN Subject;     // in a name change the old name
    CACMPT_PARSED_RDN NewSubject;  // of a name change
    CACMPT_PublicKeyInfo SubjectPublicKey;
    CACMPT_Extensions Extensions;
    char RequestSignatureAlgorithm[254];  // dotted identifier
    CACMPT_BLOB RequestSignature;         // of a PKCS#10 request
    CACMPT_BLOB RawOldCertificate;        // DER of the certificate that a key update replaces
    char OldCertificateSerialNumber[128];
    std::int32_t RequestType = 0;  // `::RequestType`
    std::int32_t Status = 0;       // `RequestStatus`
    CACMPT_Date ResolvedWhen;
    CACMPT_Date RevokedWhen;
    CACMPT_Date RevokedEffectiveWhen;
    std::uint32_t RevokedReason = 0;  // bits of `ReasonFlags`
    char SerialNumber[130];           // to revoke or resume
    ::FreeText ChangeNameTextOld;
    ::FreeText ChangeNameTextNew;
    std::int32_t RejectStatus;  // `PKIStatusEnum`; whoever rejects sets it
    ::FreeText RejectText;
    std::uint32_t RejectFailureInfo = 0;  // bits of `FailureInfo`
};

/// The work set between pre-processing and issuing. Everything decoded or built for one certificate
/// lives in the context of the buffers and dies with the template.
class PKIXCMP_API CertificateTemplate {
public:
    CertificateTemplate();
    ~CertificateTemplate();
    CertificateTemplate(const CertificateTemplate&) = delete;
    CertificateTemplate& operator=(const CertificateTemplate&) = delete;

    ASN1BEREncodeBuffer encodeBuffer;
    CACMPT_ASN1BERDecodeBuffer decodeBuffer;  // shares the context of `encodeBuffer`
    asn1data::ASN1T_PKIMessage request;
    asn1data::ASN1T_Certificate certificate;  // the one being built
    asn1data::ASN1T_Certificate caCertificate;
};

/// A certificate, issued or to be issued, or the answer that carries it.
class PKIXCMP_API CertificateInfo : public PKIXCMP_Message {
public:
    CertificateInfo();
    ~CertificateInfo();
    CertificateInfo(const CertificateInfo&) = delete;
    CertificateInfo& operator=(const CertificateInfo&) = delete;

    std::int32_t RequestID = -1;  // -1 while there is no answer
    std::uint32_t ReservedWord = 0;
    CACMPT_PARSED_RDN Subject;
    CACMPT_PARSED_RDN Issuer;
    CACMPT_BLOB RawCertificate;
    CACMPT_BLOB CertificateSignature;
    char CertificateSignatureAlgorithm[254];  // dotted identifier
    char SerialNumber[130];                   // "0x…"
    CACMPT_Date NotBefore;
    CACMPT_Date NotAfter;
    CACMPT_PublicKeyInfo SubjectPublicKey;
    std::int32_t IssuerUniqueID = 0;  // printed by the dumps and otherwise unused
    CACMPT_Extensions Extensions;
    CACMPT_BLOB SubjectKeyIdentifier;         // the octets of the identifier
    CACMPT_BLOB AuthorityKeyIdentifier;       // the keyIdentifier alone
    bool ValidityOverride = false;            // issuing takes the two dates from here
    CertificateTemplate* Template = nullptr;  // owned: the destructor deletes it
};

/// The content of an error message (RFC 4210 5.3.21).
class PKIXCMP_API ErrorMsgInfo : public PKIXCMP_Message {
public:
    ErrorMsgInfo();

    std::int32_t PKIStatus = 0;     // `PKIStatusEnum`
    std::uint32_t FailureInfo = 0;  // bits of `::FailureInfo`
    std::int32_t ErrorCode = 0;     // 0 is absent
    ::FreeText ErrorText;           // statusString
    ::FreeText ErrorDetails;
};
