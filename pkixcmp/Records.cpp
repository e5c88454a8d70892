#include "pkixcmp/Records.h"

PKIXCMP_Message::PKIXCMP_Message() { clear(); }

void PKIXCMP_Message::clear() {
    SenderGeneralName[0] = L'\0';
    RecipientGeneralName[0] = L'\0';
    SubmittedWhen = CACMPT_Date(0, 0);
    GeneralInfo.clear();
    ExtraCerts.clear();
    sender_nonce.size = 0;
    transactionID.size = 0;
    sender_kid.size = 0;
}

// RejectStatus is left to whoever rejects.
RequestInfo::RequestInfo() {
    RequestSignatureAlgorithm[0] = '\0';
    OldCertificateSerialNumber[0] = '\0';
    SerialNumber[0] = '\0';
}

void RequestInfo::clear() {
    PKIXCMP_Message::clear();
    RequestID = 0;
    RawRequest.size = 0;
    Subject = CACMPT_PARSED_RDN();
    SubjectPublicKey.algorithm[0] = '\0';
    SubjectPublicKey.parameters.size = 0;
    SubjectPublicKey.key.size = 0;
    Extensions.clear();
    RequestSignatureAlgorithm[0] = '\0';
    RequestSignature.size = 0;
    RawOldCertificate.size = 0;
    OldCertificateSerialNumber[0] = '\0';
    RequestType = 0;
    Status = 0;
    ResolvedWhen = CACMPT_Date(0, 0);
    RevokedWhen = CACMPT_Date(0, 0);
    RevokedEffectiveWhen = CACMPT_Date(0, 0);
    RevokedReason = 0;
    SerialNumber[0] = '\0';
}

CertificateInfo::CertificateInfo() {
    CertificateSignatureAlgorithm[0] = '\0';
    SerialNumber[0] = '\0';
}

CertificateInfo::~CertificateInfo() { delete Template; }

CertificateTemplate::CertificateTemplate() : decodeBuffer(encodeBuffer.getContext()) {}

CertificateTemplate::~CertificateTemplate() = default;

ErrorMsgInfo::ErrorMsgInfo() = default;
