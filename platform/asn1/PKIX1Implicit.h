#pragma once

#include "platform/asn1/PKIX1Explicit.h"

// Types of PKIX1Implicit88 (RFC 5280 A.2): the values of certificate and CRL extensions. XER names
// follow the X.509 modules (`CRLDistPointsSyntax`, `BasicConstraintsSyntax`).

namespace asn1data {

struct ASN1T_KeyIdentifier : ASN1TDynOctStr {};
struct ASN1T_SubjectKeyIdentifier : ASN1TDynOctStr {};

struct ASN1T_KeyUsage : ASN1TDynBitStr {};
struct ASN1T_ReasonFlags : ASN1TDynBitStr {};

struct ASN1T_AnotherName {
    ASN1TObjId type_id;
    ASN1OpenType value;
};

struct ASN1T_EDIPartyName {
    struct {
        bool nameAssignerPresent = false;
    } m;
    ASN1T_DirectoryString nameAssigner;
    ASN1T_DirectoryString partyName;
};

struct ASN1T_GeneralName {
    static constexpr int T_otherName = 1, T_rfc822Name = 2, T_dNSName = 3, T_x400Address = 4,
                         T_directoryName = 5, T_ediPartyName = 6, T_uniformResourceIdentifier = 7,
                         T_iPAddress = 8, T_registeredID = 9;
    int t = 0;
    union U {
        ASN1T_AnotherName* otherName;
        ASN1TString rfc822Name;
        ASN1TString dNSName;
        ASN1TDynOctStr x400Address;  // the whole encoding, kept as it stands
        ASN1T_Name* directoryName;
        ASN1T_EDIPartyName* ediPartyName;
        ASN1TString uniformResourceIdentifier;
        ASN1TDynOctStr iPAddress;
        ASN1TObjId registeredID;
        constexpr U() : otherName(nullptr) {}
    } u;
};

struct ASN1T_GeneralNames : ASN1TSeqOf<ASN1T_GeneralName> {};

struct ASN1T_AuthorityKeyIdentifier {
    struct {
        bool keyIdentifierPresent = false;
        bool authorityCertIssuerPresent = false;
        bool authorityCertSerialNumberPresent = false;
    } m;
    ASN1TDynOctStr keyIdentifier;
    ASN1T_GeneralNames authorityCertIssuer;
    ASN1TBigInt authorityCertSerialNumber = nullptr;
};

struct ASN1T_PrivateKeyUsagePeriod {
    struct {
        bool notBeforePresent = false;
        bool notAfterPresent = false;
    } m;
    ASN1TString notBefore;  // GeneralizedTime
    ASN1TString notAfter;
};

struct ASN1T_PolicyQualifierInfo {
    ASN1TObjId policyQualifierId;
    ASN1OpenType qualifier;
};
struct ASN1T_PolicyQualifiers : ASN1TSeqOf<ASN1T_PolicyQualifierInfo> {};
struct ASN1T_PolicyInformation {
    struct {
        bool policyQualifiersPresent = false;
    } m;
    ASN1TObjId policyIdentifier;
    ASN1T_PolicyQualifiers policyQualifiers;
};
struct ASN1T_CertificatePoliciesSyntax : ASN1TSeqOf<ASN1T_PolicyInformation> {};

/// Qualifier of id-qt-cps.
struct ASN1T_CPSuri : ASN1TString {};
/// DisplayText: 1 ia5String, 2 visibleString, 3 bmpString, 4 utf8String.
struct ASN1T_DisplayText {
    int t = 0;
    struct {
        ASN1TString text;
    } u;
};
struct ASN1T_NoticeReference {
    ASN1T_DisplayText organization;
    ASN1TSeqOf<std::int32_t> noticeNumbers;
};
/// Qualifier of id-qt-unotice.
struct ASN1T_UserNotice {
    struct {
        bool noticeRefPresent = false;
        bool explicitTextPresent = false;
    } m;
    ASN1T_NoticeReference noticeRef;
    ASN1T_DisplayText explicitText;
};

struct ASN1T_PolicyMapping {
    ASN1TObjId issuerDomainPolicy;
    ASN1TObjId subjectDomainPolicy;
};
struct ASN1T_PolicyMappingsSyntax : ASN1TSeqOf<ASN1T_PolicyMapping> {};

struct ASN1T_SubjectDirectoryAttributes : ASN1TSeqOf<ASN1T_Attribute> {};

struct ASN1T_BasicConstraintsSyntax {
    struct {
        bool cAPresent = false;
        bool pathLenConstraintPresent = false;
    } m;
    ASN1TBool cA;
    std::int32_t pathLenConstraint = 0;
};

struct ASN1T_GeneralSubtree {
    struct {
        bool minimumPresent = false;
        bool maximumPresent = false;
    } m;
    ASN1T_GeneralName base;
    std::int32_t minimum = 0;
    std::int32_t maximum = 0;
};
struct ASN1T_GeneralSubtrees : ASN1TSeqOf<ASN1T_GeneralSubtree> {};
struct ASN1T_NameConstraintsSyntax {
    struct {
        bool permittedSubtreesPresent = false;
        bool excludedSubtreesPresent = false;
    } m;
    ASN1T_GeneralSubtrees permittedSubtrees;
    ASN1T_GeneralSubtrees excludedSubtrees;
};

struct ASN1T_PolicyConstraintsSyntax {
    struct {
        bool requireExplicitPolicyPresent = false;
        bool inhibitPolicyMappingPresent = false;
    } m;
    std::int32_t requireExplicitPolicy = 0;
    std::int32_t inhibitPolicyMapping = 0;
};

/// 1 fullName, 2 nameRelativeToCRLIssuer.
struct ASN1T_DistributionPointName {
    static constexpr int T_fullName = 1, T_nameRelativeToCRLIssuer = 2;
    int t = 0;
    union U {
        ASN1T_GeneralNames* fullName;
        ASN1T_RelativeDistinguishedName* nameRelativeToCRLIssuer;
        constexpr U() : fullName(nullptr) {}
    } u;
};
struct ASN1T_DistributionPoint {
    struct {
        bool distributionPointPresent = false;
        bool reasonsPresent = false;
        bool cRLIssuerPresent = false;
    } m;
    ASN1T_DistributionPointName distributionPoint;
    ASN1TDynBitStr reasons;
    ASN1T_GeneralNames cRLIssuer;
};
/// cRLDistributionPoints and freshestCRL.
struct ASN1T_CRLDistPointsSyntax : ASN1TSeqOf<ASN1T_DistributionPoint> {};

struct ASN1T_ExtKeyUsageSyntax : ASN1TSeqOf<ASN1TObjId> {};

struct ASN1T_InhibitAnyPolicy {
    std::int32_t value = 0;
};

struct ASN1T_AccessDescription {
    ASN1TObjId accessMethod;
    ASN1T_GeneralName accessLocation;
};
struct ASN1T_AuthorityInfoAccessSyntax : ASN1TSeqOf<ASN1T_AccessDescription> {};
struct ASN1T_SubjectInfoAccessSyntax : ASN1TSeqOf<ASN1T_AccessDescription> {};

/// cRLNumber.
struct ASN1T_CRLNumber {
    ASN1TBigInt value = nullptr;
};
/// deltaCRLIndicator.
struct ASN1T_BaseCRLNumber {
    ASN1TBigInt value = nullptr;
};
struct ASN1T_IssuingDistributionPoint {
    struct {
        bool distributionPointPresent = false;
        bool onlyContainsUserCertsPresent = false;
        bool onlyContainsCACertsPresent = false;
        bool onlySomeReasonsPresent = false;
        bool indirectCRLPresent = false;
        bool onlyContainsAttributeCertsPresent = false;
    } m;
    ASN1T_DistributionPointName distributionPoint;
    ASN1TBool onlyContainsUserCerts;
    ASN1TBool onlyContainsCACerts;
    ASN1TDynBitStr onlySomeReasons;
    ASN1TBool indirectCRL;
    ASN1TBool onlyContainsAttributeCerts;
};

/// ENUMERATED, RFC 5280 5.3.1.
struct ASN1T_CRLReason {
    std::int32_t value = 0;
};
struct ASN1T_HoldInstruction {
    ASN1TObjId value;
};
struct ASN1T_InvalidityDate {
    ASN1TString value;  // GeneralizedTime
};
/// certificateIssuer (CRL entry), subjectAltName and issuerAltName are GeneralNames of their own
/// names in XER.
struct ASN1T_CertificateIssuer : ASN1TSeqOf<ASN1T_GeneralName> {};
struct ASN1T_SubjectAltName : ASN1TSeqOf<ASN1T_GeneralName> {};
struct ASN1T_IssuerAltName : ASN1TSeqOf<ASN1T_GeneralName> {};

/// The private-arc extensions: caVersion is an INTEGER.
struct ASN1T_CAVersion {
    std::int32_t value = 0;
};

}  // namespace asn1data

// The types of this module, for whoever must walk them all.
// clang-format off
#define PKIXCMP_PKIX1IMPLICIT_TYPES(X)                                                            \
    X(KeyIdentifier) X(SubjectKeyIdentifier) X(KeyUsage) X(ReasonFlags) X(AnotherName)            \
    X(EDIPartyName) X(GeneralName) X(GeneralNames) X(AuthorityKeyIdentifier)                      \
    X(PrivateKeyUsagePeriod) X(PolicyQualifierInfo) X(PolicyQualifiers) X(PolicyInformation)      \
    X(CertificatePoliciesSyntax) X(CPSuri) X(DisplayText) X(NoticeReference) X(UserNotice)        \
    X(PolicyMapping) X(PolicyMappingsSyntax) X(SubjectDirectoryAttributes)                        \
    X(BasicConstraintsSyntax) X(GeneralSubtree) X(GeneralSubtrees) X(NameConstraintsSyntax)       \
    X(PolicyConstraintsSyntax) X(DistributionPointName) X(DistributionPoint)                      \
    X(CRLDistPointsSyntax) X(ExtKeyUsageSyntax) X(InhibitAnyPolicy) X(AccessDescription)          \
    X(AuthorityInfoAccessSyntax) X(SubjectInfoAccessSyntax) X(CRLNumber) X(BaseCRLNumber)         \
    X(IssuingDistributionPoint) X(CRLReason) X(HoldInstruction) X(InvalidityDate)                 \
    X(CertificateIssuer) X(SubjectAltName) X(IssuerAltName) X(CAVersion)
// clang-format on
PKIXCMP_PKIX1IMPLICIT_TYPES(PKIXCMP_ASN1_SCHEMA)

namespace asn1data {

PKIXCMP_PKIX1IMPLICIT_TYPES(PKIXCMP_ASN1_CONTROL)

}  // namespace asn1data
