#pragma once

#include "platform/asn1/PKCS10Schema.h"
#include "platform/asn1/PKIXCMP.h"
#include "platform/asn1/PKIXCRMFSchema.h"

// Schemas of PKIXCMP (RFC 4210 appendix F, EXPLICIT TAGS) and of this system's own types. Included
// by Schemas.cpp alone. CMPCertificate is its one untagged alternative, Certificate.

namespace asn1 {

inline constexpr const char* failureNames[] = {"badAlg",
                                               "badMessageCheck",
                                               "badRequest",
                                               "badTime",
                                               "badCertId",
                                               "badDataFormat",
                                               "wrongAuthority",
                                               "incorrectData",
                                               "missingTimeStamp",
                                               "badPOP",
                                               "certRevoked",
                                               "certConfirmed",
                                               "wrongIntegrity",
                                               "badRecipientNonce",
                                               "timeNotAvailable",
                                               "unacceptedPolicy",
                                               "unacceptedExtension",
                                               "addInfoNotAvailable",
                                               "badSenderNonce",
                                               "badCertTemplate",
                                               "signerNotTrusted",
                                               "transactionIdInUse",
                                               "unsupportedVersion",
                                               "notAuthorized",
                                               "systemUnavail",
                                               "systemFailure",
                                               "duplicateCertReq"};
/// PKIFailureInfo ::= BIT STRING { badAlg (0), ... }
inline constexpr Type failureInfo =
    renamed<ASN1TDynBitStr>(bitString, "PKIFailureInfo", failureNames);

}  // namespace asn1

// PKIFreeText ::= SEQUENCE SIZE (1..MAX) OF UTF8String
template <>
constexpr Type Schema<ASN1T_PKIFreeText>::type = sequenceOf<ASN1T_PKIFreeText>(utf8String,
                                                                               "PKIFreeText");

// InfoTypeAndValue ::= SEQUENCE {
//     infoType   OBJECT IDENTIFIER,
//     infoValue  ANY DEFINED BY infoType OPTIONAL }
template <>
constexpr Type Schema<ASN1T_InfoTypeAndValue>::type =
    sequence<ASN1T_InfoTypeAndValue, Required<&ASN1T_InfoTypeAndValue::infoType>,
             Open<Optional<&ASN1T_InfoTypeAndValue::infoValue>, &ASN1T_InfoTypeAndValue::infoType,
                  infoType>>("InfoTypeAndValue");

// GenMsgContent, GenRepContent ::= SEQUENCE OF InfoTypeAndValue
template <>
constexpr Type Schema<ASN1T_GenMsgContent>::type =
    sequenceOf<ASN1T_GenMsgContent>(Schema<ASN1T_InfoTypeAndValue>::type, "GenMsgContent");

template <>
constexpr Type Schema<ASN1T_GenRepContent>::type =
    sequenceOf<ASN1T_GenRepContent>(Schema<ASN1T_InfoTypeAndValue>::type, "GenRepContent");

// PKIHeader ::= SEQUENCE {
//     pvno              INTEGER,
//     sender            GeneralName,
//     recipient         GeneralName,
//     messageTime   [0] GeneralizedTime OPTIONAL,
//     protectionAlg [1] AlgorithmIdentifier OPTIONAL,
//     senderKID     [2] KeyIdentifier OPTIONAL,
//     recipKID      [3] KeyIdentifier OPTIONAL,
//     transactionID [4] OCTET STRING OPTIONAL,
//     senderNonce   [5] OCTET STRING OPTIONAL,
//     recipNonce    [6] OCTET STRING OPTIONAL,
//     freeText      [7] PKIFreeText OPTIONAL,
//     generalInfo   [8] SEQUENCE SIZE (1..MAX) OF InfoTypeAndValue OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PKIHeader>::type =
    sequence<ASN1T_PKIHeader, Required<&ASN1T_PKIHeader::pvno>, Required<&ASN1T_PKIHeader::sender>,
             Required<&ASN1T_PKIHeader::recipient>,
             Optional<&ASN1T_PKIHeader::messageTime, explicitly(0), &generalizedTime>,
             Optional<&ASN1T_PKIHeader::protectionAlg, explicitly(1)>,
             Optional<&ASN1T_PKIHeader::senderKID, explicitly(2)>,
             Optional<&ASN1T_PKIHeader::recipKID, explicitly(3)>,
             Optional<&ASN1T_PKIHeader::transactionID, explicitly(4)>,
             Optional<&ASN1T_PKIHeader::senderNonce, explicitly(5)>,
             Optional<&ASN1T_PKIHeader::recipNonce, explicitly(6)>,
             Optional<&ASN1T_PKIHeader::freeText, explicitly(7)>,
             Optional<&ASN1T_PKIHeader::generalInfo, explicitly(8)>>("PKIHeader");

// PKIStatusInfo ::= SEQUENCE {
//     status        PKIStatus,
//     statusString  PKIFreeText OPTIONAL,
//     failInfo      PKIFailureInfo OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PKIStatusInfo>::type =
    sequence<ASN1T_PKIStatusInfo, Required<&ASN1T_PKIStatusInfo::status>,
             Optional<&ASN1T_PKIStatusInfo::statusString>,
             Optional<&ASN1T_PKIStatusInfo::failInfo, untagged, &failureInfo>>("PKIStatusInfo");

// SEQUENCE SIZE (1..MAX) OF CMPCertificate
template <>
constexpr Type Schema<ASN1T_Certificates>::type =
    sequenceOf<ASN1T_Certificates>(Schema<ASN1T_Certificate>::type, "Certificates");

// OOBCertHash ::= SEQUENCE {
//     hashAlg [0] AlgorithmIdentifier OPTIONAL,
//     certId  [1] CertId OPTIONAL,
//     hashVal     BIT STRING }
template <>
constexpr Type Schema<ASN1T_OOBCertHash>::type =
    sequence<ASN1T_OOBCertHash, Optional<&ASN1T_OOBCertHash::hashAlg, explicitly(0)>,
             Optional<&ASN1T_OOBCertHash::certId, explicitly(1)>,
             Required<&ASN1T_OOBCertHash::hashVal>>("OOBCertHash");

// DHBMParameter ::= SEQUENCE {
//     owf  AlgorithmIdentifier,
//     mac  AlgorithmIdentifier }
template <>
constexpr Type Schema<ASN1T_DHBMParameter>::type =
    sequence<ASN1T_DHBMParameter, Required<&ASN1T_DHBMParameter::owf>,
             Required<&ASN1T_DHBMParameter::mac>>("DHBMParameter");

// CertOrEncCert ::= CHOICE {
//     certificate   [0] CMPCertificate,
//     encryptedCert [1] EncryptedValue }
template <>
constexpr Type Schema<ASN1T_CertOrEncCert>::type =
    choice<ASN1T_CertOrEncCert, Alternative<&ASN1T_CertOrEncCert::U::certificate, explicitly(0)>,
           Alternative<&ASN1T_CertOrEncCert::U::encryptedCert, explicitly(1)>>("CertOrEncCert");

// CertifiedKeyPair ::= SEQUENCE {
//     certOrEncCert       CertOrEncCert,
//     privateKey      [0] EncryptedValue OPTIONAL,
//     publicationInfo [1] PKIPublicationInfo OPTIONAL }
template <>
constexpr Type Schema<ASN1T_CertifiedKeyPair>::type =
    sequence<ASN1T_CertifiedKeyPair, Required<&ASN1T_CertifiedKeyPair::certOrEncCert>,
             Optional<&ASN1T_CertifiedKeyPair::privateKey, explicitly(0)>,
             Optional<&ASN1T_CertifiedKeyPair::publicationInfo, explicitly(1)>>("CertifiedKeyPair");

// CertResponse ::= SEQUENCE {
//     certReqId         INTEGER,
//     status            PKIStatusInfo,
//     certifiedKeyPair  CertifiedKeyPair OPTIONAL,
//     rspInfo           OCTET STRING OPTIONAL }
template <>
constexpr Type Schema<ASN1T_CertResponse>::type =
    sequence<ASN1T_CertResponse, Required<&ASN1T_CertResponse::certReqId>,
             Required<&ASN1T_CertResponse::status>, Optional<&ASN1T_CertResponse::certifiedKeyPair>,
             Optional<&ASN1T_CertResponse::rspInfo>>("CertResponse");

// CertRepMessage ::= SEQUENCE {
//     caPubs [1] SEQUENCE SIZE (1..MAX) OF CMPCertificate OPTIONAL,
//     response   SEQUENCE OF CertResponse }
template <>
constexpr Type Schema<ASN1T_CertRepMessage>::type =
    sequence<ASN1T_CertRepMessage, Optional<&ASN1T_CertRepMessage::caPubs, explicitly(1)>,
             Required<&ASN1T_CertRepMessage::response>>("CertRepMessage");

// Challenge ::= SEQUENCE {
//     owf        AlgorithmIdentifier OPTIONAL,
//     witness    OCTET STRING,
//     challenge  OCTET STRING }
template <>
constexpr Type Schema<ASN1T_Challenge>::type =
    sequence<ASN1T_Challenge, Optional<&ASN1T_Challenge::owf>, Required<&ASN1T_Challenge::witness>,
             Required<&ASN1T_Challenge::challenge>>("Challenge");

// POPODecKeyChallContent ::= SEQUENCE OF Challenge
template <>
constexpr Type Schema<ASN1T_POPODecKeyChallContent>::type =
    sequenceOf<ASN1T_POPODecKeyChallContent>(Schema<ASN1T_Challenge>::type,
                                             "POPODecKeyChallContent");

// POPODecKeyRespContent ::= SEQUENCE OF INTEGER
template <>
constexpr Type Schema<ASN1T_POPODecKeyRespContent>::type =
    sequenceOf<ASN1T_POPODecKeyRespContent>(bigInteger, "POPODecKeyRespContent");

// KeyRecRepContent ::= SEQUENCE {
//     status          PKIStatusInfo,
//     newSigCert  [0] CMPCertificate OPTIONAL,
//     caCerts     [1] SEQUENCE SIZE (1..MAX) OF CMPCertificate OPTIONAL,
//     keyPairHist [2] SEQUENCE SIZE (1..MAX) OF CertifiedKeyPair OPTIONAL }
template <>
constexpr Type Schema<ASN1T_KeyRecRepContent>::type =
    sequence<ASN1T_KeyRecRepContent, Required<&ASN1T_KeyRecRepContent::status>,
             Optional<&ASN1T_KeyRecRepContent::newSigCert, explicitly(0)>,
             Optional<&ASN1T_KeyRecRepContent::caCerts, explicitly(1)>,
             Optional<&ASN1T_KeyRecRepContent::keyPairHist, explicitly(2)>>("KeyRecRepContent");

// RevDetails ::= SEQUENCE {
//     certDetails       CertTemplate,
//     revocationReason  ReasonFlags OPTIONAL,      -- RFC 2510
//     badSinceDate      GeneralizedTime OPTIONAL,  -- RFC 2510
//     crlEntryDetails   Extensions OPTIONAL }
template <>
constexpr Type Schema<ASN1T_RevDetails>::type = sequence<
    ASN1T_RevDetails, Required<&ASN1T_RevDetails::certDetails>,
    Optional<&ASN1T_RevDetails::revocationReason, untagged, &Schema<ASN1T_ReasonFlags>::type>,
    Optional<&ASN1T_RevDetails::badSinceDate, untagged, &generalizedTime>,
    Optional<&ASN1T_RevDetails::crlEntryDetails>>("RevDetails");

// RevReqContent ::= SEQUENCE OF RevDetails
template <>
constexpr Type Schema<ASN1T_RevReqContent>::type =
    sequenceOf<ASN1T_RevReqContent>(Schema<ASN1T_RevDetails>::type, "RevReqContent");

// RevRepContent ::= SEQUENCE {
//     status       SEQUENCE SIZE (1..MAX) OF PKIStatusInfo,
//     revCerts [0] SEQUENCE SIZE (1..MAX) OF CertId OPTIONAL,
//     crls     [1] SEQUENCE SIZE (1..MAX) OF CertificateList OPTIONAL }
template <>
constexpr Type Schema<ASN1T_RevRepContent>::type =
    sequence<ASN1T_RevRepContent, Required<&ASN1T_RevRepContent::status>,
             Optional<&ASN1T_RevRepContent::revCerts, explicitly(0)>,
             Optional<&ASN1T_RevRepContent::crls, explicitly(1)>>("RevRepContent");

// CAKeyUpdAnnContent ::= SEQUENCE {
//     oldWithNew  CMPCertificate,
//     newWithOld  CMPCertificate,
//     newWithNew  CMPCertificate }
template <>
constexpr Type Schema<ASN1T_CAKeyUpdAnnContent>::type =
    sequence<ASN1T_CAKeyUpdAnnContent, Required<&ASN1T_CAKeyUpdAnnContent::oldWithNew>,
             Required<&ASN1T_CAKeyUpdAnnContent::newWithOld>,
             Required<&ASN1T_CAKeyUpdAnnContent::newWithNew>>("CAKeyUpdAnnContent");

// RevAnnContent ::= SEQUENCE {
//     status           PKIStatus,
//     certId           CertId,
//     willBeRevokedAt  GeneralizedTime,
//     badSinceDate     GeneralizedTime,
//     crlDetails       Extensions OPTIONAL }
template <>
constexpr Type Schema<ASN1T_RevAnnContent>::type =
    sequence<ASN1T_RevAnnContent, Required<&ASN1T_RevAnnContent::status>,
             Required<&ASN1T_RevAnnContent::certId>,
             Required<&ASN1T_RevAnnContent::willBeRevokedAt, untagged, &generalizedTime>,
             Required<&ASN1T_RevAnnContent::badSinceDate, untagged, &generalizedTime>,
             Optional<&ASN1T_RevAnnContent::crlDetails>>("RevAnnContent");

// CRLAnnContent ::= SEQUENCE OF CertificateList
template <>
constexpr Type Schema<ASN1T_CRLAnnContent>::type =
    sequenceOf<ASN1T_CRLAnnContent>(Schema<ASN1T_CertificateList>::type, "CRLAnnContent");

// CertStatus ::= SEQUENCE {
//     certHash    OCTET STRING,
//     certReqId   INTEGER,
//     statusInfo  PKIStatusInfo OPTIONAL }
template <>
constexpr Type Schema<ASN1T_CertStatus>::type =
    sequence<ASN1T_CertStatus, Required<&ASN1T_CertStatus::certHash>,
             Required<&ASN1T_CertStatus::certReqId>, Optional<&ASN1T_CertStatus::statusInfo>>(
        "CertStatus");

// CertConfirmContent ::= SEQUENCE OF CertStatus
template <>
constexpr Type Schema<ASN1T_CertConfirmContent>::type =
    sequenceOf<ASN1T_CertConfirmContent>(Schema<ASN1T_CertStatus>::type, "CertConfirmContent");

// ErrorMsgContent ::= SEQUENCE {
//     pKIStatusInfo  PKIStatusInfo,
//     errorCode      INTEGER OPTIONAL,
//     errorDetails   PKIFreeText OPTIONAL }
template <>
constexpr Type Schema<ASN1T_ErrorMsgContent>::type =
    sequence<ASN1T_ErrorMsgContent, Required<&ASN1T_ErrorMsgContent::pKIStatusInfo>,
             Optional<&ASN1T_ErrorMsgContent::errorCode>,
             Optional<&ASN1T_ErrorMsgContent::errorDetails>>("ErrorMsgContent");

// PollReqContent ::= SEQUENCE OF SEQUENCE { certReqId INTEGER }
template <>
constexpr Type Schema<ASN1T_PollReq>::type =
    sequence<ASN1T_PollReq, Required<&ASN1T_PollReq::certReqId>>("SEQUENCE");

template <>
constexpr Type Schema<ASN1T_PollReqContent>::type =
    sequenceOf<ASN1T_PollReqContent>(Schema<ASN1T_PollReq>::type, "PollReqContent");

// PollRepContent ::= SEQUENCE OF SEQUENCE {
//     certReqId   INTEGER,
//     checkAfter  INTEGER,
//     reason      PKIFreeText OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PollRep>::type =
    sequence<ASN1T_PollRep, Required<&ASN1T_PollRep::certReqId>,
             Required<&ASN1T_PollRep::checkAfter>, Optional<&ASN1T_PollRep::reason>>("SEQUENCE");

template <>
constexpr Type Schema<ASN1T_PollRepContent>::type =
    sequenceOf<ASN1T_PollRepContent>(Schema<ASN1T_PollRep>::type, "PollRepContent");

// PKIMessages ::= SEQUENCE SIZE (1..MAX) OF PKIMessage
template <>
constexpr Type Schema<ASN1T_PKIMessages>::type =
    sequenceOf<ASN1T_PKIMessages>(Schema<ASN1T_PKIMessage>::type, "PKIMessages");

// PKIBody ::= CHOICE {
//     ir       [0]  CertReqMessages,
//     ip       [1]  CertRepMessage,
//     cr       [2]  CertReqMessages,
//     cp       [3]  CertRepMessage,
//     p10cr    [4]  CertificationRequest,
//     popdecc  [5]  POPODecKeyChallContent,
//     popdecr  [6]  POPODecKeyRespContent,
//     kur      [7]  CertReqMessages,
//     kup      [8]  CertRepMessage,
//     krr      [9]  CertReqMessages,
//     krp      [10] KeyRecRepContent,
//     rr       [11] RevReqContent,
//     rp       [12] RevRepContent,
//     ccr      [13] CertReqMessages,
//     ccp      [14] CertRepMessage,
//     ckuann   [15] CAKeyUpdAnnContent,
//     cann     [16] CertAnnContent,
//     rann     [17] RevAnnContent,
//     crlann   [18] CRLAnnContent,
//     pkiconf  [19] PKIConfirmContent,  -- NULL
//     nested   [20] NestedMessageContent,
//     genm     [21] GenMsgContent,
//     genp     [22] GenRepContent,
//     error    [23] ErrorMsgContent,
//     certConf [24] CertConfirmContent,
//     pollReq  [25] PollReqContent,
//     pollRep  [26] PollRepContent }
template <>
constexpr Type Schema<ASN1T_PKIBody>::type =
    choice<ASN1T_PKIBody, Alternative<&ASN1T_PKIBody::U::ir, explicitly(0)>,
           Alternative<&ASN1T_PKIBody::U::ip, explicitly(1)>,
           Alternative<&ASN1T_PKIBody::U::cr, explicitly(2)>,
           Alternative<&ASN1T_PKIBody::U::cp, explicitly(3)>,
           Alternative<&ASN1T_PKIBody::U::p10cr, explicitly(4)>,
           Alternative<&ASN1T_PKIBody::U::popdecc, explicitly(5)>,
           Alternative<&ASN1T_PKIBody::U::popdecr, explicitly(6)>,
           Alternative<&ASN1T_PKIBody::U::kur, explicitly(7)>,
           Alternative<&ASN1T_PKIBody::U::kup, explicitly(8)>,
           Alternative<&ASN1T_PKIBody::U::krr, explicitly(9)>,
           Alternative<&ASN1T_PKIBody::U::krp, explicitly(10)>,
           Alternative<&ASN1T_PKIBody::U::rr, explicitly(11)>,
           Alternative<&ASN1T_PKIBody::U::rp, explicitly(12)>,
           Alternative<&ASN1T_PKIBody::U::ccr, explicitly(13)>,
           Alternative<&ASN1T_PKIBody::U::ccp, explicitly(14)>,
           Alternative<&ASN1T_PKIBody::U::ckuann, explicitly(15)>,
           Alternative<&ASN1T_PKIBody::U::cann, explicitly(16)>,
           Alternative<&ASN1T_PKIBody::U::rann, explicitly(17)>,
           Alternative<&ASN1T_PKIBody::U::crlann, explicitly(18)>,
           Shared<"pkiconf", &null, explicitly(19)>,
           Alternative<&ASN1T_PKIBody::U::nested, explicitly(20)>,
           Alternative<&ASN1T_PKIBody::U::genm, explicitly(21)>,
           Alternative<&ASN1T_PKIBody::U::genp, explicitly(22)>,
           Alternative<&ASN1T_PKIBody::U::error, explicitly(23)>,
           Alternative<&ASN1T_PKIBody::U::certConf, explicitly(24)>,
           Alternative<&ASN1T_PKIBody::U::pollReq, explicitly(25)>,
           Alternative<&ASN1T_PKIBody::U::pollRep, explicitly(26)>>("PKIBody");

// PKIMessage ::= SEQUENCE {
//     header         PKIHeader,
//     body           PKIBody,
//     protection [0] PKIProtection OPTIONAL,
//     extraCerts [1] SEQUENCE SIZE (1..MAX) OF CMPCertificate OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PKIMessage>::type = sequence<
    ASN1T_PKIMessage, Required<&ASN1T_PKIMessage::header>, Required<&ASN1T_PKIMessage::body>,
    Optional<&ASN1T_PKIMessage::protection, explicitly(0)>,
    Optional<&ASN1T_PKIMessage::extraCerts, explicitly(1)>>("PKIMessage");

// ProtectedPart ::= SEQUENCE {
//     header  PKIHeader,
//     body    PKIBody }
template <>
constexpr Type Schema<ASN1T_ProtectedPart>::type =
    sequence<ASN1T_ProtectedPart, Required<&ASN1T_ProtectedPart::header>,
             Required<&ASN1T_ProtectedPart::body>>("ProtectedPart");

// Values of info types (RFC 4210 5.3.19)
template <>
constexpr Type Schema<ASN1T_SignKeyPairTypesValue>::type = sequenceOf<ASN1T_SignKeyPairTypesValue>(
    Schema<ASN1T_AlgorithmIdentifier>::type, "SignKeyPairTypesValue");

template <>
constexpr Type Schema<ASN1T_EncKeyPairTypesValue>::type = sequenceOf<ASN1T_EncKeyPairTypesValue>(
    Schema<ASN1T_AlgorithmIdentifier>::type, "EncKeyPairTypesValue");

template <>
constexpr Type Schema<ASN1T_UnsupportedOIDsValue>::type =
    sequenceOf<ASN1T_UnsupportedOIDsValue>(objectIdentifier, "UnsupportedOIDsValue");

template <>
constexpr Type Schema<ASN1T_KeyPairParamReqValue>::type =
    renamed<ASN1T_KeyPairParamReqValue>(objectIdentifier, "KeyPairParamReqValue");

template <>
constexpr Type Schema<ASN1T_ConfirmWaitTimeValue>::type =
    renamed<ASN1T_ConfirmWaitTimeValue>(generalizedTime, "ConfirmWaitTimeValue");

template <>
constexpr Type Schema<ASN1T_SuppLangTagsValue>::type =
    sequenceOf<ASN1T_SuppLangTagsValue>(utf8String, "SuppLangTagsValue");

// PKIAudit ::= SEQUENCE {
//     type           INTEGER (0..4294967295),
//     session        INTEGER (0..4294967295),
//     event-counter  INTEGER (0..4294967295),
//     success        BOOLEAN }
template <>
constexpr Type Schema<ASN1T_PKIAudit>::type =
    sequence<ASN1T_PKIAudit, Required<&ASN1T_PKIAudit::type>, Required<&ASN1T_PKIAudit::session>,
             Required<&ASN1T_PKIAudit::event_counter>, Required<&ASN1T_PKIAudit::success>>(
        "PKIAudit");

// ChangeNameReq ::= SEQUENCE {
//     oldName      Name,
//     newName      Name,
//     oldText  [0] PKIFreeText OPTIONAL,
//     newText  [1] PKIFreeText OPTIONAL }
template <>
constexpr Type Schema<ASN1T_ChangeNameReq>::type = sequence<
    ASN1T_ChangeNameReq, Required<&ASN1T_ChangeNameReq::oldName>,
    Required<&ASN1T_ChangeNameReq::newName>, Optional<&ASN1T_ChangeNameReq::oldText, explicitly(0)>,
    Optional<&ASN1T_ChangeNameReq::newText, explicitly(1)>>("ChangeNameReq");
