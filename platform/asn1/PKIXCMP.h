#pragma once

#include "platform/asn1/PKCS10.h"
#include "platform/asn1/PKIXCRMF.h"

// Types of PKIXCMP (RFC 4210 appendix F) and the few of this system. CMPCertificate is a
// Certificate (its CHOICE has one untagged alternative). Every context tag here is explicit.

namespace asn1data {

struct ASN1T_PKIFreeText : ASN1TSeqOf<ASN1TString> {};  // UTF8String

/// InfoTypeAndValue. The decoded value stands beside the bytes for the info types of RFC
/// 4210 5.3.19 and those of this system (`ASN1T_ChangeNameReq`, `ASN1T_RevDetails`,
/// `ASN1T_PKIAudit`).
struct ASN1T_InfoTypeAndValue {
    struct {
        bool infoValuePresent = false;
    } m;
    ASN1TObjId infoType;
    ASN1OpenType infoValue;
};
struct ASN1T_GenMsgContent : ASN1TSeqOf<ASN1T_InfoTypeAndValue> {};
struct ASN1T_GenRepContent : ASN1TSeqOf<ASN1T_InfoTypeAndValue> {};

struct ASN1T_PKIHeader {
    struct {
        bool messageTimePresent = false;
        bool protectionAlgPresent = false;
        bool senderKIDPresent = false;
        bool recipKIDPresent = false;
        bool transactionIDPresent = false;
        bool senderNoncePresent = false;
        bool recipNoncePresent = false;
        bool freeTextPresent = false;
        bool generalInfoPresent = false;
    } m;
    std::int32_t pvno = 0;
    ASN1T_GeneralName sender;
    ASN1T_GeneralName recipient;
    ASN1TString messageTime;  // GeneralizedTime
    ASN1T_AlgorithmIdentifier protectionAlg;
    ASN1TDynOctStr senderKID;
    ASN1TDynOctStr recipKID;
    ASN1TDynOctStr transactionID;
    ASN1TDynOctStr senderNonce;
    ASN1TDynOctStr recipNonce;
    ASN1T_PKIFreeText freeText;
    ASN1T_GenMsgContent generalInfo;
};

struct ASN1T_PKIStatusInfo {
    struct {
        bool statusStringPresent = false;
        bool failInfoPresent = false;
    } m;
    std::int32_t status = 0;
    ASN1T_PKIFreeText statusString;
    ASN1TDynBitStr failInfo;
};

struct ASN1T_Certificates : ASN1TSeqOf<ASN1T_Certificate> {};

/// What a root's certificate is checked against when it comes by another way (RFC 4210 5.2.5).
struct ASN1T_OOBCertHash {
    struct {
        bool hashAlgPresent = false;
        bool certIdPresent = false;
    } m;
    ASN1T_AlgorithmIdentifier hashAlg;
    ASN1T_CertId certId;
    ASN1TDynBitStr hashVal;
};

/// Parameters of id-DHBasedMac (RFC 4210 5.1.3.2).
struct ASN1T_DHBMParameter {
    ASN1T_AlgorithmIdentifier owf;
    ASN1T_AlgorithmIdentifier mac;
};

/// 1 certificate, 2 encryptedCert.
struct ASN1T_CertOrEncCert {
    static constexpr int T_certificate = 1, T_encryptedCert = 2;
    int t = 0;
    union U {
        ASN1T_Certificate* certificate;
        ASN1T_EncryptedValue* encryptedCert;
        constexpr U() : certificate(nullptr) {}
    } u;
};
struct ASN1T_CertifiedKeyPair {
    struct {
        bool privateKeyPresent = false;
        bool publicationInfoPresent = false;
    } m;
    ASN1T_CertOrEncCert certOrEncCert;
    ASN1T_EncryptedValue privateKey;
    ASN1T_PKIPublicationInfo publicationInfo;
};
struct ASN1T_CertResponse {
    struct {
        bool certifiedKeyPairPresent = false;
        bool rspInfoPresent = false;
    } m;
    std::int32_t certReqId = 0;
    ASN1T_PKIStatusInfo status;
    ASN1T_CertifiedKeyPair certifiedKeyPair;
    ASN1TDynOctStr rspInfo;
};
struct ASN1T_CertRepMessage {
    struct {
        bool caPubsPresent = false;
    } m;
    ASN1T_Certificates caPubs;
    ASN1TSeqOf<ASN1T_CertResponse> response;
};

struct ASN1T_Challenge {
    struct {
        bool owfPresent = false;
    } m;
    ASN1T_AlgorithmIdentifier owf;
    ASN1TDynOctStr witness;
    ASN1TDynOctStr challenge;
};
struct ASN1T_POPODecKeyChallContent : ASN1TSeqOf<ASN1T_Challenge> {};
struct ASN1T_POPODecKeyRespContent : ASN1TSeqOf<ASN1TBigInt> {};

struct ASN1T_KeyRecRepContent {
    struct {
        bool newSigCertPresent = false;
        bool caCertsPresent = false;
        bool keyPairHistPresent = false;
    } m;
    ASN1T_PKIStatusInfo status;
    ASN1T_Certificate newSigCert;
    ASN1T_Certificates caCerts;
    ASN1TSeqOf<ASN1T_CertifiedKeyPair> keyPairHist;
};

/// The fields of both RFC 2510 and RFC 4210: certDetails, revocationReason ReasonFlags OPTIONAL,
/// badSinceDate GeneralizedTime OPTIONAL, crlEntryDetails Extensions OPTIONAL.
struct ASN1T_RevDetails {
    struct {
        bool revocationReasonPresent = false;
        bool badSinceDatePresent = false;
        bool crlEntryDetailsPresent = false;
    } m;
    ASN1T_CertTemplate certDetails;
    ASN1TDynBitStr revocationReason;
    ASN1TString badSinceDate;
    ASN1T_Extensions crlEntryDetails;
};
struct ASN1T_RevReqContent : ASN1TSeqOf<ASN1T_RevDetails> {};

struct ASN1T_RevRepContent {
    struct {
        bool revCertsPresent = false;
        bool crlsPresent = false;
    } m;
    ASN1TSeqOf<ASN1T_PKIStatusInfo> status;
    ASN1TSeqOf<ASN1T_CertId> revCerts;
    ASN1TSeqOf<ASN1T_CertificateList> crls;
};

struct ASN1T_CAKeyUpdAnnContent {
    ASN1T_Certificate oldWithNew;
    ASN1T_Certificate newWithOld;
    ASN1T_Certificate newWithNew;
};
struct ASN1T_RevAnnContent {
    struct {
        bool crlDetailsPresent = false;
    } m;
    std::int32_t status = 0;
    ASN1T_CertId certId;
    ASN1TString willBeRevokedAt;
    ASN1TString badSinceDate;
    ASN1T_Extensions crlDetails;
};
struct ASN1T_CRLAnnContent : ASN1TSeqOf<ASN1T_CertificateList> {};

struct ASN1T_CertStatus {
    struct {
        bool statusInfoPresent = false;
    } m;
    ASN1TDynOctStr certHash;
    std::int32_t certReqId = 0;
    ASN1T_PKIStatusInfo statusInfo;
};
struct ASN1T_CertConfirmContent : ASN1TSeqOf<ASN1T_CertStatus> {};

struct ASN1T_ErrorMsgContent {
    struct {
        bool errorCodePresent = false;
        bool errorDetailsPresent = false;
    } m;
    ASN1T_PKIStatusInfo pKIStatusInfo;
    std::int32_t errorCode = 0;
    ASN1T_PKIFreeText errorDetails;
};

struct ASN1T_PollReq {
    std::int32_t certReqId = 0;
};
struct ASN1T_PollReqContent : ASN1TSeqOf<ASN1T_PollReq> {};
struct ASN1T_PollRep {
    struct {
        bool reasonPresent = false;
    } m;
    std::int32_t certReqId = 0;
    std::int32_t checkAfter = 0;
    ASN1T_PKIFreeText reason;
};
struct ASN1T_PollRepContent : ASN1TSeqOf<ASN1T_PollRep> {};

struct ASN1T_PKIMessage;
struct ASN1T_PKIMessages : ASN1TSeqOf<ASN1T_PKIMessage> {};

/// The body; `t` is the context tag of RFC 4210 plus one.
struct ASN1T_PKIBody {
    static constexpr int T_ir = 1, T_ip = 2, T_cr = 3, T_cp = 4, T_p10cr = 5, T_popdecc = 6,
                         T_popdecr = 7, T_kur = 8, T_kup = 9, T_krr = 10, T_krp = 11, T_rr = 12,
                         T_rp = 13, T_ccr = 14, T_ccp = 15, T_ckuann = 16, T_cann = 17, T_rann = 18,
                         T_crlann = 19, T_pkiconf = 20, T_nested = 21, T_genm = 22, T_genp = 23,
                         T_error = 24, T_certConf = 25, T_pollReq = 26, T_pollRep = 27;
    int t = 0;
    union U {
        ASN1T_CertReqMessages* ir;
        ASN1T_CertRepMessage* ip;
        ASN1T_CertReqMessages* cr;
        ASN1T_CertRepMessage* cp;
        ASN1T_CertificationRequest* p10cr;
        ASN1T_POPODecKeyChallContent* popdecc;
        ASN1T_POPODecKeyRespContent* popdecr;
        ASN1T_CertReqMessages* kur;
        ASN1T_CertRepMessage* kup;
        ASN1T_CertReqMessages* krr;
        ASN1T_KeyRecRepContent* krp;
        ASN1T_RevReqContent* rr;
        ASN1T_RevRepContent* rp;
        ASN1T_CertReqMessages* ccr;
        ASN1T_CertRepMessage* ccp;
        ASN1T_CAKeyUpdAnnContent* ckuann;
        ASN1T_Certificate* cann;
        ASN1T_RevAnnContent* rann;
        ASN1T_CRLAnnContent* crlann;
        ASN1T_PKIMessages* nested;
        ASN1T_GenMsgContent* genm;
        ASN1T_GenRepContent* genp;
        ASN1T_ErrorMsgContent* error;
        ASN1T_CertConfirmContent* certConf;
        ASN1T_PollReqContent* pollReq;
        ASN1T_PollRepContent* pollRep;
        void* any;  // pkiconf has no value
        constexpr U() : any(nullptr) {}
    } u;
};

struct ASN1T_PKIMessage {
    struct {
        bool protectionPresent = false;
        bool extraCertsPresent = false;
    } m;
    ASN1T_PKIHeader header;
    ASN1T_PKIBody body;
    ASN1TDynBitStr protection;
    ASN1T_Certificates extraCerts;
};

/// What `protection` is computed over.
struct ASN1T_ProtectedPart {
    ASN1T_PKIHeader header;
    ASN1T_PKIBody body;
};

// Values of info types that have no name of their own elsewhere (RFC 4210 5.3.19).
struct ASN1T_SignKeyPairTypesValue : ASN1TSeqOf<ASN1T_AlgorithmIdentifier> {};
struct ASN1T_EncKeyPairTypesValue : ASN1TSeqOf<ASN1T_AlgorithmIdentifier> {};
struct ASN1T_UnsupportedOIDsValue : ASN1TSeqOf<ASN1TObjId> {};
struct ASN1T_KeyPairParamReqValue {
    ASN1TObjId value;
};
struct ASN1T_ConfirmWaitTimeValue {
    ASN1TString value;  // GeneralizedTime
};
struct ASN1T_SuppLangTagsValue : ASN1TSeqOf<ASN1TString> {};  // UTF8String

// This system's own.

/// Audit record in generalInfo: SEQUENCE { type, session, eventCounter INTEGER (0..4294967295),
/// success BOOLEAN }.
struct ASN1T_PKIAudit {
    std::uint32_t type = 0;
    std::uint32_t session = 0;
    std::uint32_t event_counter = 0;
    ASN1TBool success;
};

/// SEQUENCE { oldName Name, newName Name, oldText [0] EXPLICIT PKIFreeText OPTIONAL,
/// newText [1] EXPLICIT PKIFreeText OPTIONAL }.
struct ASN1T_ChangeNameReq {
    struct {
        bool oldTextPresent = false;
        bool newTextPresent = false;
    } m;
    ASN1T_Name oldName;
    ASN1T_Name newName;
    ASN1T_PKIFreeText oldText;
    ASN1T_PKIFreeText newText;
};

}  // namespace asn1data

// The types of this module, for whoever must walk them all.
// clang-format off
#define PKIXCMP_PKIXCMP_TYPES(X)                                                                  \
    X(PKIFreeText) X(InfoTypeAndValue) X(GenMsgContent) X(GenRepContent) X(PKIHeader)             \
    X(PKIStatusInfo) X(Certificates) X(CertOrEncCert) X(CertifiedKeyPair) X(CertResponse)         \
    X(CertRepMessage) X(Challenge) X(POPODecKeyChallContent) X(POPODecKeyRespContent)             \
    X(KeyRecRepContent) X(RevDetails) X(RevReqContent) X(RevRepContent) X(CAKeyUpdAnnContent)     \
    X(RevAnnContent) X(CRLAnnContent) X(CertStatus) X(CertConfirmContent) X(ErrorMsgContent)      \
    X(PollReq) X(PollReqContent) X(PollRep) X(PollRepContent) X(PKIBody) X(PKIMessage)            \
    X(PKIMessages) X(ProtectedPart) X(SignKeyPairTypesValue) X(EncKeyPairTypesValue)              \
    X(UnsupportedOIDsValue) X(KeyPairParamReqValue) X(ConfirmWaitTimeValue)                       \
    X(SuppLangTagsValue) X(PKIAudit) X(ChangeNameReq) X(OOBCertHash) X(DHBMParameter)
// clang-format on
PKIXCMP_PKIXCMP_TYPES(PKIXCMP_ASN1_SCHEMA)

namespace asn1data {

PKIXCMP_PKIXCMP_TYPES(PKIXCMP_ASN1_CONTROL)

inline int asn1Copy_PKIMessage(ASN1CTXT* ctxt, const ASN1T_PKIMessage& source,
                               ASN1T_PKIMessage& target) {
    return asn1Copy(ctxt, source, target);
}

/// Fills the table-constraint field; see `asn1DTC_Extension`.
PKIXCMP_API int asn1DTC_InfoTypeAndValue(ASN1CTXT* ctxt, ASN1T_InfoTypeAndValue* value);

}  // namespace asn1data
