#pragma once

#include "platform/asn1/PKIX1Implicit.h"

// Types of PKIXCRMF-2005 (RFC 4211). EnvelopedData of CMS is kept as its whole encoding.

namespace asn1data {

struct ASN1T_OptionalValidity {
    struct {
        bool notBeforePresent = false;
        bool notAfterPresent = false;
    } m;
    ASN1T_Time notBefore;
    ASN1T_Time notAfter;
};

struct ASN1T_CertTemplate {
    struct {
        bool versionPresent = false;
        bool serialNumberPresent = false;
        bool signingAlgPresent = false;
        bool issuerPresent = false;
        bool validityPresent = false;
        bool subjectPresent = false;
        bool publicKeyPresent = false;
        bool issuerUIDPresent = false;
        bool subjectUIDPresent = false;
        bool extensionsPresent = false;
    } m;
    std::int32_t version = 0;
    ASN1TBigInt serialNumber = nullptr;
    ASN1T_AlgorithmIdentifier signingAlg;
    ASN1T_Name issuer;
    ASN1T_OptionalValidity validity;
    ASN1T_Name subject;
    ASN1T_SubjectPublicKeyInfo publicKey;
    ASN1TDynBitStr issuerUID;
    ASN1TDynBitStr subjectUID;
    ASN1T_Extensions extensions;
};

struct ASN1T_Controls : ASN1TSeqOf<ASN1T_AttributeTypeAndValue> {};

struct ASN1T_CertRequest {
    struct {
        bool controlsPresent = false;
    } m;
    std::int32_t certReqId = 0;
    ASN1T_CertTemplate certTemplate;
    ASN1T_Controls controls;
};

struct ASN1T_PKMACValue {
    ASN1T_AlgorithmIdentifier algId;
    ASN1TDynBitStr value;
};

/// authInfo: 1 sender, 2 publicKeyMAC.
struct ASN1T_POPOSigningKeyInput_authInfo {
    int t = 0;
    union U {
        ASN1T_GeneralName* sender;
        ASN1T_PKMACValue* publicKeyMAC;
        constexpr U() : sender(nullptr) {}
    } u;
};
struct ASN1T_POPOSigningKeyInput {
    ASN1T_POPOSigningKeyInput_authInfo authInfo;
    ASN1T_SubjectPublicKeyInfo publicKey;
};
struct ASN1T_POPOSigningKey {
    struct {
        bool poposkInputPresent = false;
    } m;
    ASN1T_POPOSigningKeyInput poposkInput;
    ASN1T_AlgorithmIdentifier algorithmIdentifier;
    ASN1TDynBitStr signature;
};

/// 1 thisMessage, 2 subsequentMessage, 3 dhMAC, 4 agreeMAC, 5 encryptedKey.
struct ASN1T_POPOPrivKey {
    int t = 0;
    union U {
        ASN1TDynBitStr thisMessage;
        std::int32_t subsequentMessage;
        ASN1TDynBitStr dhMAC;
        ASN1T_PKMACValue* agreeMAC;
        ASN1TDynOctStr encryptedKey;  // the whole encoding
        constexpr U() : agreeMAC(nullptr) {}
    } u;
};

/// 1 raVerified, 2 signature, 3 keyEncipherment, 4 keyAgreement.
struct ASN1T_ProofOfPossession {
    static constexpr int T_raVerified = 1, T_signature = 2, T_keyEncipherment = 3,
                         T_keyAgreement = 4;
    int t = 0;
    union U {
        ASN1T_POPOSigningKey* signature;
        ASN1T_POPOPrivKey* keyEncipherment;
        ASN1T_POPOPrivKey* keyAgreement;
        constexpr U() : signature(nullptr) {}
    } u;
};

struct ASN1T_CertReqMsg {
    struct {
        bool popoPresent = false;
        bool regInfoPresent = false;
    } m;
    ASN1T_CertRequest certReq;
    ASN1T_ProofOfPossession popo;
    ASN1T_Controls regInfo;
};
struct ASN1T_CertReqMessages : ASN1TSeqOf<ASN1T_CertReqMsg> {};

struct ASN1T_SinglePubInfo {
    struct {
        bool pubLocationPresent = false;
    } m;
    std::int32_t pubMethod = 0;
    ASN1T_GeneralName pubLocation;
};
struct ASN1T_PKIPublicationInfo {
    struct {
        bool pubInfosPresent = false;
    } m;
    std::int32_t action = 0;
    ASN1TSeqOf<ASN1T_SinglePubInfo> pubInfos;
};

struct ASN1T_EncryptedValue {
    struct {
        bool intendedAlgPresent = false;
        bool symmAlgPresent = false;
        bool encSymmKeyPresent = false;
        bool keyAlgPresent = false;
        bool valueHintPresent = false;
    } m;
    ASN1T_AlgorithmIdentifier intendedAlg;
    ASN1T_AlgorithmIdentifier symmAlg;
    ASN1TDynBitStr encSymmKey;
    ASN1T_AlgorithmIdentifier keyAlg;
    ASN1TDynOctStr valueHint;
    ASN1TDynBitStr encValue;
};
/// 1 encryptedValue, 2 envelopedData (the whole encoding).
struct ASN1T_EncryptedKey {
    int t = 0;
    union U {
        ASN1T_EncryptedValue* encryptedValue;
        ASN1TDynOctStr envelopedData;
        constexpr U() : encryptedValue(nullptr) {}
    } u;
};
/// 1 encryptedPrivKey, 2 keyGenParameters, 3 archiveRemGenPrivKey.
struct ASN1T_PKIArchiveOptions {
    int t = 0;
    union U {
        ASN1T_EncryptedKey* encryptedPrivKey;
        ASN1TDynOctStr keyGenParameters;
        ASN1TBool archiveRemGenPrivKey;
        constexpr U() : encryptedPrivKey(nullptr) {}
    } u;
};

struct ASN1T_CertId {
    ASN1T_GeneralName issuer;
    ASN1TBigInt serialNumber = nullptr;
};

/// PBMParameter, the same in RFC 4210 and RFC 4211.
struct ASN1T_PBMParameter {
    ASN1TDynOctStr salt;
    ASN1T_AlgorithmIdentifier owf;
    std::int32_t iterationCount = 0;
    ASN1T_AlgorithmIdentifier mac;
};

/// Values of the controls and registration infos that are a UTF8String.
struct ASN1T_RegToken : ASN1TString {};
struct ASN1T_Authenticator : ASN1TString {};
struct ASN1T_UTF8Pairs : ASN1TString {};

}  // namespace asn1data

// The types of this module, for whoever must walk them all.
// clang-format off
#define PKIXCMP_PKIXCRMF_TYPES(X)                                                                 \
    X(OptionalValidity) X(CertTemplate) X(Controls) X(CertRequest) X(PKMACValue)                  \
    X(POPOSigningKeyInput_authInfo) X(POPOSigningKeyInput) X(POPOSigningKey) X(POPOPrivKey)       \
    X(ProofOfPossession) X(CertReqMsg) X(CertReqMessages) X(SinglePubInfo)                        \
    X(PKIPublicationInfo) X(EncryptedValue) X(EncryptedKey) X(PKIArchiveOptions) X(CertId)        \
    X(PBMParameter) X(RegToken) X(Authenticator) X(UTF8Pairs)
// clang-format on
PKIXCMP_PKIXCRMF_TYPES(PKIXCMP_ASN1_SCHEMA)

namespace asn1data {

PKIXCMP_PKIXCRMF_TYPES(PKIXCMP_ASN1_CONTROL)

}  // namespace asn1data
