#pragma once

#include "platform/asn1/PKIX1ImplicitSchema.h"
#include "platform/asn1/PKIXCRMF.h"

// Schemas of PKIXCRMF-2005 (RFC 4211, IMPLICIT TAGS; a tagged CHOICE is explicit all the same).
// Included by Schemas.cpp alone.

// OptionalValidity ::= SEQUENCE {
//     notBefore [0] Time OPTIONAL,
//     notAfter  [1] Time OPTIONAL }
template <>
constexpr Type Schema<ASN1T_OptionalValidity>::type =
    sequence<ASN1T_OptionalValidity, Optional<&ASN1T_OptionalValidity::notBefore, explicitly(0)>,
             Optional<&ASN1T_OptionalValidity::notAfter, explicitly(1)>>("OptionalValidity");

// CertTemplate ::= SEQUENCE {
//     version      [0] Version OPTIONAL,
//     serialNumber [1] INTEGER OPTIONAL,
//     signingAlg   [2] AlgorithmIdentifier OPTIONAL,
//     issuer       [3] Name OPTIONAL,
//     validity     [4] OptionalValidity OPTIONAL,
//     subject      [5] Name OPTIONAL,
//     publicKey    [6] SubjectPublicKeyInfo OPTIONAL,
//     issuerUID    [7] UniqueIdentifier OPTIONAL,
//     subjectUID   [8] UniqueIdentifier OPTIONAL,
//     extensions   [9] Extensions OPTIONAL }
template <>
constexpr Type Schema<ASN1T_CertTemplate>::type =
    sequence<ASN1T_CertTemplate, Optional<&ASN1T_CertTemplate::version, implicit(0)>,
             Optional<&ASN1T_CertTemplate::serialNumber, implicit(1)>,
             Optional<&ASN1T_CertTemplate::signingAlg, implicit(2)>,
             Optional<&ASN1T_CertTemplate::issuer, explicitly(3)>,
             Optional<&ASN1T_CertTemplate::validity, implicit(4)>,
             Optional<&ASN1T_CertTemplate::subject, explicitly(5)>,
             Optional<&ASN1T_CertTemplate::publicKey, implicit(6)>,
             Optional<&ASN1T_CertTemplate::issuerUID, implicit(7)>,
             Optional<&ASN1T_CertTemplate::subjectUID, implicit(8)>,
             Optional<&ASN1T_CertTemplate::extensions, implicit(9)>>("CertTemplate");

// Controls ::= SEQUENCE SIZE (1..MAX) OF AttributeTypeAndValue
template <>
constexpr Type Schema<ASN1T_Controls>::type =
    sequenceOf<ASN1T_Controls>(Schema<ASN1T_AttributeTypeAndValue>::type, "Controls");

// CertRequest ::= SEQUENCE {
//     certReqId     INTEGER,
//     certTemplate  CertTemplate,
//     controls      Controls OPTIONAL }
template <>
constexpr Type Schema<ASN1T_CertRequest>::type =
    sequence<ASN1T_CertRequest, Required<&ASN1T_CertRequest::certReqId>,
             Required<&ASN1T_CertRequest::certTemplate>, Optional<&ASN1T_CertRequest::controls>>(
        "CertRequest");

// PKMACValue ::= SEQUENCE {
//     algId  AlgorithmIdentifier,
//     value  BIT STRING }
template <>
constexpr Type Schema<ASN1T_PKMACValue>::type =
    sequence<ASN1T_PKMACValue, Required<&ASN1T_PKMACValue::algId>,
             Required<&ASN1T_PKMACValue::value>>("PKMACValue");

// authInfo CHOICE {
//     sender       [0] GeneralName,
//     publicKeyMAC     PKMACValue }
template <>
constexpr Type Schema<ASN1T_POPOSigningKeyInput_authInfo>::type =
    choice<ASN1T_POPOSigningKeyInput_authInfo,
           Alternative<&ASN1T_POPOSigningKeyInput_authInfo::U::sender, explicitly(0)>,
           Alternative<&ASN1T_POPOSigningKeyInput_authInfo::U::publicKeyMAC>>("authInfo");

// POPOSigningKeyInput ::= SEQUENCE {
//     authInfo   CHOICE { ... },
//     publicKey  SubjectPublicKeyInfo }
template <>
constexpr Type Schema<ASN1T_POPOSigningKeyInput>::type =
    sequence<ASN1T_POPOSigningKeyInput, Required<&ASN1T_POPOSigningKeyInput::authInfo>,
             Required<&ASN1T_POPOSigningKeyInput::publicKey>>("POPOSigningKeyInput");

// POPOSigningKey ::= SEQUENCE {
//     poposkInput     [0] POPOSigningKeyInput OPTIONAL,
//     algorithmIdentifier AlgorithmIdentifier,
//     signature           BIT STRING }
template <>
constexpr Type Schema<ASN1T_POPOSigningKey>::type =
    sequence<ASN1T_POPOSigningKey, Optional<&ASN1T_POPOSigningKey::poposkInput, implicit(0)>,
             Required<&ASN1T_POPOSigningKey::algorithmIdentifier>,
             Required<&ASN1T_POPOSigningKey::signature>>("POPOSigningKey");

// POPOPrivKey ::= CHOICE {
//     thisMessage       [0] BIT STRING,
//     subsequentMessage [1] SubsequentMessage,
//     dhMAC             [2] BIT STRING,
//     agreeMAC          [3] PKMACValue,
//     encryptedKey      [4] EnvelopedData }
template <>
constexpr Type Schema<ASN1T_POPOPrivKey>::type =
    choice<ASN1T_POPOPrivKey, Alternative<&ASN1T_POPOPrivKey::U::thisMessage, implicit(0)>,
           Alternative<&ASN1T_POPOPrivKey::U::subsequentMessage, implicit(1)>,
           Alternative<&ASN1T_POPOPrivKey::U::dhMAC, implicit(2)>,
           Alternative<&ASN1T_POPOPrivKey::U::agreeMAC, implicit(3)>,
           Alternative<&ASN1T_POPOPrivKey::U::encryptedKey, implicit(4), &raw>>("POPOPrivKey");

// ProofOfPossession ::= CHOICE {
//     raVerified      [0] NULL,
//     signature       [1] POPOSigningKey,
//     keyEncipherment [2] POPOPrivKey,
//     keyAgreement    [3] POPOPrivKey }
template <>
constexpr Type Schema<ASN1T_ProofOfPossession>::type =
    choice<ASN1T_ProofOfPossession, Shared<"raVerified", &null, implicit(0)>,
           Alternative<&ASN1T_ProofOfPossession::U::signature, implicit(1)>,
           Alternative<&ASN1T_ProofOfPossession::U::keyEncipherment, explicitly(2)>,
           Alternative<&ASN1T_ProofOfPossession::U::keyAgreement, explicitly(3)>>(
        "ProofOfPossession");

// CertReqMsg ::= SEQUENCE {
//     certReq  CertRequest,
//     popo     ProofOfPossession OPTIONAL,
//     regInfo  SEQUENCE SIZE (1..MAX) OF AttributeTypeAndValue OPTIONAL }
template <>
constexpr Type Schema<ASN1T_CertReqMsg>::type =
    sequence<ASN1T_CertReqMsg, Required<&ASN1T_CertReqMsg::certReq>,
             Optional<&ASN1T_CertReqMsg::popo>, Optional<&ASN1T_CertReqMsg::regInfo>>("CertReqMsg");

// CertReqMessages ::= SEQUENCE SIZE (1..MAX) OF CertReqMsg
template <>
constexpr Type Schema<ASN1T_CertReqMessages>::type =
    sequenceOf<ASN1T_CertReqMessages>(Schema<ASN1T_CertReqMsg>::type, "CertReqMessages");

// SinglePubInfo ::= SEQUENCE {
//     pubMethod    INTEGER,
//     pubLocation  GeneralName OPTIONAL }
template <>
constexpr Type Schema<ASN1T_SinglePubInfo>::type =
    sequence<ASN1T_SinglePubInfo, Required<&ASN1T_SinglePubInfo::pubMethod>,
             Optional<&ASN1T_SinglePubInfo::pubLocation>>("SinglePubInfo");

// PKIPublicationInfo ::= SEQUENCE {
//     action    INTEGER,
//     pubInfos  SEQUENCE SIZE (1..MAX) OF SinglePubInfo OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PKIPublicationInfo>::type =
    sequence<ASN1T_PKIPublicationInfo, Required<&ASN1T_PKIPublicationInfo::action>,
             Optional<&ASN1T_PKIPublicationInfo::pubInfos>>("PKIPublicationInfo");

// EncryptedValue ::= SEQUENCE {
//     intendedAlg [0] AlgorithmIdentifier OPTIONAL,
//     symmAlg     [1] AlgorithmIdentifier OPTIONAL,
//     encSymmKey  [2] BIT STRING OPTIONAL,
//     keyAlg      [3] AlgorithmIdentifier OPTIONAL,
//     valueHint   [4] OCTET STRING OPTIONAL,
//     encValue        BIT STRING }
template <>
constexpr Type Schema<ASN1T_EncryptedValue>::type =
    sequence<ASN1T_EncryptedValue, Optional<&ASN1T_EncryptedValue::intendedAlg, implicit(0)>,
             Optional<&ASN1T_EncryptedValue::symmAlg, implicit(1)>,
             Optional<&ASN1T_EncryptedValue::encSymmKey, implicit(2)>,
             Optional<&ASN1T_EncryptedValue::keyAlg, implicit(3)>,
             Optional<&ASN1T_EncryptedValue::valueHint, implicit(4)>,
             Required<&ASN1T_EncryptedValue::encValue>>("EncryptedValue");

// EncryptedKey ::= CHOICE {
//     encryptedValue     EncryptedValue,
//     envelopedData  [0] EnvelopedData }
template <>
constexpr Type Schema<ASN1T_EncryptedKey>::type =
    choice<ASN1T_EncryptedKey, Alternative<&ASN1T_EncryptedKey::U::encryptedValue>,
           Alternative<&ASN1T_EncryptedKey::U::envelopedData, implicit(0), &raw>>("EncryptedKey");

// PKIArchiveOptions ::= CHOICE {
//     encryptedPrivKey     [0] EncryptedKey,
//     keyGenParameters     [1] KeyGenParameters,
//     archiveRemGenPrivKey [2] BOOLEAN }
template <>
constexpr Type Schema<ASN1T_PKIArchiveOptions>::type =
    choice<ASN1T_PKIArchiveOptions,
           Alternative<&ASN1T_PKIArchiveOptions::U::encryptedPrivKey, explicitly(0)>,
           Alternative<&ASN1T_PKIArchiveOptions::U::keyGenParameters, implicit(1)>,
           Alternative<&ASN1T_PKIArchiveOptions::U::archiveRemGenPrivKey, implicit(2)>>(
        "PKIArchiveOptions");

// CertId ::= SEQUENCE {
//     issuer        GeneralName,
//     serialNumber  INTEGER }
template <>
constexpr Type Schema<ASN1T_CertId>::type =
    sequence<ASN1T_CertId, Required<&ASN1T_CertId::issuer>, Required<&ASN1T_CertId::serialNumber>>(
        "CertId");

// PBMParameter ::= SEQUENCE {
//     salt            OCTET STRING,
//     owf             AlgorithmIdentifier,
//     iterationCount  INTEGER,
//     mac             AlgorithmIdentifier }
template <>
constexpr Type Schema<ASN1T_PBMParameter>::type =
    sequence<ASN1T_PBMParameter, Required<&ASN1T_PBMParameter::salt>,
             Required<&ASN1T_PBMParameter::owf>, Required<&ASN1T_PBMParameter::iterationCount>,
             Required<&ASN1T_PBMParameter::mac>>("PBMParameter");

// RegToken, Authenticator, UTF8Pairs ::= UTF8String
template <>
constexpr Type Schema<ASN1T_RegToken>::type = renamed<ASN1T_RegToken>(utf8String, "RegToken");

template <>
constexpr Type Schema<ASN1T_Authenticator>::type = renamed<ASN1T_Authenticator>(utf8String,
                                                                                "Authenticator");

template <>
constexpr Type Schema<ASN1T_UTF8Pairs>::type = renamed<ASN1T_UTF8Pairs>(utf8String, "UTF8Pairs");
