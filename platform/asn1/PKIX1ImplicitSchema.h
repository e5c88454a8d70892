#pragma once

#include "platform/asn1/PKIX1ExplicitSchema.h"
#include "platform/asn1/PKIX1Implicit.h"

// Schemas of PKIX1Implicit88 (RFC 5280 A.2, IMPLICIT TAGS). Included by Schemas.cpp alone. Lists
// are read empty too where the module says SIZE (1..MAX). Names of types are those of X.509.

namespace asn1 {

inline constexpr const char* keyUsageNames[] = {
    "digitalSignature", "nonRepudiation", "keyEncipherment", "dataEncipherment", "keyAgreement",
    "keyCertSign",      "cRLSign",        "encipherOnly",    "decipherOnly"};
inline constexpr const char* reasonFlagNames[] = {
    "unused",      "keyCompromise",        "cACompromise",    "affiliationChanged",
    "superseded",  "cessationOfOperation", "certificateHold", "privilegeWithdrawn",
    "aACompromise"};
/// The names that XER texts of this system use; a number stands for the reasons without one.
inline constexpr const char* crlReasonNames[] = {
    "unspecified",          "keyCompromise",   "caCompromise", "affiliationChanged", "superseded",
    "cessationOfOperation", "certificateHold", nullptr,        "removeFromCRL"};

inline constexpr Type keyPurposeId = renamed<ASN1TObjId>(objectIdentifier, "KeyPurposeId");

}  // namespace asn1

// KeyIdentifier ::= OCTET STRING
template <>
constexpr Type Schema<ASN1T_KeyIdentifier>::type = renamed<ASN1T_KeyIdentifier>(octetString,
                                                                                "KeyIdentifier");

template <>
constexpr Type Schema<ASN1T_SubjectKeyIdentifier>::type =
    renamed<ASN1T_SubjectKeyIdentifier>(octetString, "SubjectKeyIdentifier");

// KeyUsage ::= BIT STRING { digitalSignature (0), ... }
template <>
constexpr Type Schema<ASN1T_KeyUsage>::type = renamed<ASN1T_KeyUsage>(bitString, "KeyUsage",
                                                                      keyUsageNames);

// ReasonFlags ::= BIT STRING { unused (0), ... }
template <>
constexpr Type Schema<ASN1T_ReasonFlags>::type = renamed<ASN1T_ReasonFlags>(bitString,
                                                                            "ReasonFlags",
                                                                            reasonFlagNames);

// AnotherName ::= SEQUENCE {
//     type-id    OBJECT IDENTIFIER,
//     value  [0] EXPLICIT ANY DEFINED BY type-id }
template <>
constexpr Type Schema<ASN1T_AnotherName>::type =
    sequence<ASN1T_AnotherName, Required<&ASN1T_AnotherName::type_id>,
             Required<&ASN1T_AnotherName::value, explicitly(0)>>("AnotherName");

// EDIPartyName ::= SEQUENCE {
//     nameAssigner  [0] DirectoryString OPTIONAL,
//     partyName     [1] DirectoryString }
template <>
constexpr Type Schema<ASN1T_EDIPartyName>::type =
    sequence<ASN1T_EDIPartyName, Optional<&ASN1T_EDIPartyName::nameAssigner, explicitly(0)>,
             Required<&ASN1T_EDIPartyName::partyName, explicitly(1)>>("EDIPartyName");

// GeneralName ::= CHOICE {
//     otherName                 [0] AnotherName,
//     rfc822Name                [1] IA5String,
//     dNSName                   [2] IA5String,
//     x400Address               [3] ORAddress,
//     directoryName             [4] Name,
//     ediPartyName              [5] EDIPartyName,
//     uniformResourceIdentifier [6] IA5String,
//     iPAddress                 [7] OCTET STRING,
//     registeredID              [8] OBJECT IDENTIFIER }
template <>
constexpr Type Schema<ASN1T_GeneralName>::type =
    choice<ASN1T_GeneralName, Alternative<&ASN1T_GeneralName::U::otherName, implicit(0)>,
           Alternative<&ASN1T_GeneralName::U::rfc822Name, implicit(1), &ia5String>,
           Alternative<&ASN1T_GeneralName::U::dNSName, implicit(2), &ia5String>,
           Alternative<&ASN1T_GeneralName::U::x400Address, implicit(3), &raw>,
           Alternative<&ASN1T_GeneralName::U::directoryName, explicitly(4)>,
           Alternative<&ASN1T_GeneralName::U::ediPartyName, implicit(5)>,
           Alternative<&ASN1T_GeneralName::U::uniformResourceIdentifier, implicit(6), &ia5String>,
           Alternative<&ASN1T_GeneralName::U::iPAddress, implicit(7)>,
           Alternative<&ASN1T_GeneralName::U::registeredID, implicit(8)>>("GeneralName");

// GeneralNames ::= SEQUENCE SIZE (1..MAX) OF GeneralName
template <>
constexpr Type Schema<ASN1T_GeneralNames>::type =
    sequenceOf<ASN1T_GeneralNames>(Schema<ASN1T_GeneralName>::type, "GeneralNames");

// SubjectAltName, IssuerAltName, CertificateIssuer ::= GeneralNames
template <>
constexpr Type Schema<ASN1T_SubjectAltName>::type =
    sequenceOf<ASN1T_SubjectAltName>(Schema<ASN1T_GeneralName>::type, "SubjectAltName");

template <>
constexpr Type Schema<ASN1T_IssuerAltName>::type =
    sequenceOf<ASN1T_IssuerAltName>(Schema<ASN1T_GeneralName>::type, "IssuerAltName");

template <>
constexpr Type Schema<ASN1T_CertificateIssuer>::type =
    sequenceOf<ASN1T_CertificateIssuer>(Schema<ASN1T_GeneralName>::type, "CertificateIssuer");

// AuthorityKeyIdentifier ::= SEQUENCE {
//     keyIdentifier             [0] KeyIdentifier OPTIONAL,
//     authorityCertIssuer       [1] GeneralNames OPTIONAL,
//     authorityCertSerialNumber [2] CertificateSerialNumber OPTIONAL }
template <>
constexpr Type Schema<ASN1T_AuthorityKeyIdentifier>::type =
    sequence<ASN1T_AuthorityKeyIdentifier,
             Optional<&ASN1T_AuthorityKeyIdentifier::keyIdentifier, implicit(0)>,
             Optional<&ASN1T_AuthorityKeyIdentifier::authorityCertIssuer, implicit(1)>,
             Optional<&ASN1T_AuthorityKeyIdentifier::authorityCertSerialNumber, implicit(2)>>(
        "AuthorityKeyIdentifier");

// PrivateKeyUsagePeriod ::= SEQUENCE {
//     notBefore [0] GeneralizedTime OPTIONAL,
//     notAfter  [1] GeneralizedTime OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PrivateKeyUsagePeriod>::type =
    sequence<ASN1T_PrivateKeyUsagePeriod,
             Optional<&ASN1T_PrivateKeyUsagePeriod::notBefore, implicit(0), &generalizedTime>,
             Optional<&ASN1T_PrivateKeyUsagePeriod::notAfter, implicit(1), &generalizedTime>>(
        "PrivateKeyUsagePeriod");

// PolicyQualifierInfo ::= SEQUENCE {
//     policyQualifierId  PolicyQualifierId,
//     qualifier          ANY DEFINED BY policyQualifierId }
template <>
constexpr Type Schema<ASN1T_PolicyQualifierInfo>::type =
    sequence<ASN1T_PolicyQualifierInfo, Required<&ASN1T_PolicyQualifierInfo::policyQualifierId>,
             Open<Required<&ASN1T_PolicyQualifierInfo::qualifier>,
                  &ASN1T_PolicyQualifierInfo::policyQualifierId, policyQualifierType>>(
        "PolicyQualifierInfo");

template <>
constexpr Type Schema<ASN1T_PolicyQualifiers>::type =
    sequenceOf<ASN1T_PolicyQualifiers>(Schema<ASN1T_PolicyQualifierInfo>::type, "PolicyQualifiers");

// PolicyInformation ::= SEQUENCE {
//     policyIdentifier  CertPolicyId,
//     policyQualifiers  SEQUENCE SIZE (1..MAX) OF PolicyQualifierInfo OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PolicyInformation>::type =
    sequence<ASN1T_PolicyInformation, Required<&ASN1T_PolicyInformation::policyIdentifier>,
             Optional<&ASN1T_PolicyInformation::policyQualifiers>>("PolicyInformation");

// CertificatePoliciesSyntax ::= SEQUENCE SIZE (1..MAX) OF PolicyInformation
template <>
constexpr Type Schema<ASN1T_CertificatePoliciesSyntax>::type =
    sequenceOf<ASN1T_CertificatePoliciesSyntax>(Schema<ASN1T_PolicyInformation>::type,
                                                "CertificatePoliciesSyntax");

// CPSuri ::= IA5String
template <>
constexpr Type Schema<ASN1T_CPSuri>::type = renamed<ASN1T_CPSuri>(ia5String, "CPSuri");

// DisplayText ::= CHOICE {
//     ia5String      IA5String,
//     visibleString  VisibleString,
//     bmpString      BMPString,
//     utf8String     UTF8String }
template <>
constexpr Type Schema<ASN1T_DisplayText>::type = choice<
    ASN1T_DisplayText, Shared<"ia5String", &ia5String>, Shared<"visibleString", &visibleString>,
    Shared<"bmpString", &bmpString>, Shared<"utf8String", &utf8String>>("DisplayText");

// NoticeReference ::= SEQUENCE {
//     organization   DisplayText,
//     noticeNumbers  SEQUENCE OF INTEGER }
template <>
constexpr Type Schema<ASN1T_NoticeReference>::type =
    sequence<ASN1T_NoticeReference, Required<&ASN1T_NoticeReference::organization>,
             Required<&ASN1T_NoticeReference::noticeNumbers>>("NoticeReference");

// UserNotice ::= SEQUENCE {
//     noticeRef     NoticeReference OPTIONAL,
//     explicitText  DisplayText OPTIONAL }
template <>
constexpr Type Schema<ASN1T_UserNotice>::type =
    sequence<ASN1T_UserNotice, Optional<&ASN1T_UserNotice::noticeRef>,
             Optional<&ASN1T_UserNotice::explicitText>>("UserNotice");

// PolicyMappingsSyntax ::= SEQUENCE SIZE (1..MAX) OF SEQUENCE {
//     issuerDomainPolicy   CertPolicyId,
//     subjectDomainPolicy  CertPolicyId }
template <>
constexpr Type Schema<ASN1T_PolicyMapping>::type =
    sequence<ASN1T_PolicyMapping, Required<&ASN1T_PolicyMapping::issuerDomainPolicy>,
             Required<&ASN1T_PolicyMapping::subjectDomainPolicy>>("SEQUENCE");

template <>
constexpr Type Schema<ASN1T_PolicyMappingsSyntax>::type = sequenceOf<ASN1T_PolicyMappingsSyntax>(
    Schema<ASN1T_PolicyMapping>::type, "PolicyMappingsSyntax");

// SubjectDirectoryAttributes ::= SEQUENCE SIZE (1..MAX) OF Attribute
template <>
constexpr Type Schema<ASN1T_SubjectDirectoryAttributes>::type =
    sequenceOf<ASN1T_SubjectDirectoryAttributes>(Schema<ASN1T_Attribute>::type,
                                                 "SubjectDirectoryAttributes");

// BasicConstraintsSyntax ::= SEQUENCE {
//     cA                 BOOLEAN DEFAULT FALSE,
//     pathLenConstraint  INTEGER (0..MAX) OPTIONAL }
template <>
constexpr Type Schema<ASN1T_BasicConstraintsSyntax>::type =
    sequence<ASN1T_BasicConstraintsSyntax, Defaulted<&ASN1T_BasicConstraintsSyntax::cA, 0>,
             Optional<&ASN1T_BasicConstraintsSyntax::pathLenConstraint>>("BasicConstraintsSyntax");

// GeneralSubtree ::= SEQUENCE {
//     base         GeneralName,
//     minimum  [0] BaseDistance DEFAULT 0,
//     maximum  [1] BaseDistance OPTIONAL }
template <>
constexpr Type Schema<ASN1T_GeneralSubtree>::type =
    sequence<ASN1T_GeneralSubtree, Required<&ASN1T_GeneralSubtree::base>,
             Defaulted<&ASN1T_GeneralSubtree::minimum, 0, implicit(0)>,
             Optional<&ASN1T_GeneralSubtree::maximum, implicit(1)>>("GeneralSubtree");

// GeneralSubtrees ::= SEQUENCE SIZE (1..MAX) OF GeneralSubtree
template <>
constexpr Type Schema<ASN1T_GeneralSubtrees>::type =
    sequenceOf<ASN1T_GeneralSubtrees>(Schema<ASN1T_GeneralSubtree>::type, "GeneralSubtrees");

// NameConstraintsSyntax ::= SEQUENCE {
//     permittedSubtrees [0] GeneralSubtrees OPTIONAL,
//     excludedSubtrees  [1] GeneralSubtrees OPTIONAL }
template <>
constexpr Type Schema<ASN1T_NameConstraintsSyntax>::type =
    sequence<ASN1T_NameConstraintsSyntax,
             Optional<&ASN1T_NameConstraintsSyntax::permittedSubtrees, implicit(0)>,
             Optional<&ASN1T_NameConstraintsSyntax::excludedSubtrees, implicit(1)>>(
        "NameConstraintsSyntax");

// PolicyConstraintsSyntax ::= SEQUENCE {
//     requireExplicitPolicy [0] SkipCerts OPTIONAL,
//     inhibitPolicyMapping  [1] SkipCerts OPTIONAL }
template <>
constexpr Type Schema<ASN1T_PolicyConstraintsSyntax>::type =
    sequence<ASN1T_PolicyConstraintsSyntax,
             Optional<&ASN1T_PolicyConstraintsSyntax::requireExplicitPolicy, implicit(0)>,
             Optional<&ASN1T_PolicyConstraintsSyntax::inhibitPolicyMapping, implicit(1)>>(
        "PolicyConstraintsSyntax");

// DistributionPointName ::= CHOICE {
//     fullName                [0] GeneralNames,
//     nameRelativeToCRLIssuer [1] RelativeDistinguishedName }
template <>
constexpr Type Schema<ASN1T_DistributionPointName>::type =
    choice<ASN1T_DistributionPointName,
           Alternative<&ASN1T_DistributionPointName::U::fullName, implicit(0)>,
           Alternative<&ASN1T_DistributionPointName::U::nameRelativeToCRLIssuer, implicit(1)>>(
        "DistributionPointName");

// DistributionPoint ::= SEQUENCE {
//     distributionPoint [0] DistributionPointName OPTIONAL,
//     reasons           [1] ReasonFlags OPTIONAL,
//     cRLIssuer         [2] GeneralNames OPTIONAL }
template <>
constexpr Type Schema<ASN1T_DistributionPoint>::type = sequence<
    ASN1T_DistributionPoint, Optional<&ASN1T_DistributionPoint::distributionPoint, explicitly(0)>,
    Optional<&ASN1T_DistributionPoint::reasons, implicit(1), &Schema<ASN1T_ReasonFlags>::type>,
    Optional<&ASN1T_DistributionPoint::cRLIssuer, implicit(2)>>("DistributionPoint");

// CRLDistPointsSyntax ::= SEQUENCE SIZE (1..MAX) OF DistributionPoint
template <>
constexpr Type Schema<ASN1T_CRLDistPointsSyntax>::type = sequenceOf<ASN1T_CRLDistPointsSyntax>(
    Schema<ASN1T_DistributionPoint>::type, "CRLDistPointsSyntax");

// ExtKeyUsageSyntax ::= SEQUENCE SIZE (1..MAX) OF KeyPurposeId
template <>
constexpr Type Schema<ASN1T_ExtKeyUsageSyntax>::type =
    sequenceOf<ASN1T_ExtKeyUsageSyntax>(keyPurposeId, "ExtKeyUsageSyntax");

// InhibitAnyPolicy ::= SkipCerts
template <>
constexpr Type Schema<ASN1T_InhibitAnyPolicy>::type =
    renamed<ASN1T_InhibitAnyPolicy>(integer, "InhibitAnyPolicy");

// AccessDescription ::= SEQUENCE {
//     accessMethod    OBJECT IDENTIFIER,
//     accessLocation  GeneralName }
template <>
constexpr Type Schema<ASN1T_AccessDescription>::type =
    sequence<ASN1T_AccessDescription, Required<&ASN1T_AccessDescription::accessMethod>,
             Required<&ASN1T_AccessDescription::accessLocation>>("AccessDescription");

// AuthorityInfoAccessSyntax, SubjectInfoAccessSyntax ::= SEQUENCE OF AccessDescription
template <>
constexpr Type Schema<ASN1T_AuthorityInfoAccessSyntax>::type =
    sequenceOf<ASN1T_AuthorityInfoAccessSyntax>(Schema<ASN1T_AccessDescription>::type,
                                                "AuthorityInfoAccessSyntax");

template <>
constexpr Type Schema<ASN1T_SubjectInfoAccessSyntax>::type =
    sequenceOf<ASN1T_SubjectInfoAccessSyntax>(Schema<ASN1T_AccessDescription>::type,
                                              "SubjectInfoAccessSyntax");

// CRLNumber ::= INTEGER (0..MAX)
template <>
constexpr Type Schema<ASN1T_CRLNumber>::type = renamed<ASN1T_CRLNumber>(bigInteger, "CRLNumber");

template <>
constexpr Type Schema<ASN1T_BaseCRLNumber>::type = renamed<ASN1T_BaseCRLNumber>(bigInteger,
                                                                                "BaseCRLNumber");

// IssuingDistributionPoint ::= SEQUENCE {
//     distributionPoint          [0] DistributionPointName OPTIONAL,
//     onlyContainsUserCerts      [1] BOOLEAN DEFAULT FALSE,
//     onlyContainsCACerts        [2] BOOLEAN DEFAULT FALSE,
//     onlySomeReasons            [3] ReasonFlags OPTIONAL,
//     indirectCRL                [4] BOOLEAN DEFAULT FALSE,
//     onlyContainsAttributeCerts [5] BOOLEAN DEFAULT FALSE }
template <>
constexpr Type Schema<ASN1T_IssuingDistributionPoint>::type = sequence<
    ASN1T_IssuingDistributionPoint,
    Optional<&ASN1T_IssuingDistributionPoint::distributionPoint, explicitly(0)>,
    Defaulted<&ASN1T_IssuingDistributionPoint::onlyContainsUserCerts, 0, implicit(1)>,
    Defaulted<&ASN1T_IssuingDistributionPoint::onlyContainsCACerts, 0, implicit(2)>,
    Optional<&ASN1T_IssuingDistributionPoint::onlySomeReasons, implicit(3),
             &Schema<ASN1T_ReasonFlags>::type>,
    Defaulted<&ASN1T_IssuingDistributionPoint::indirectCRL, 0, implicit(4)>,
    Defaulted<&ASN1T_IssuingDistributionPoint::onlyContainsAttributeCerts, 0, implicit(5)>>(
    "IssuingDistributionPoint");

// CRLReason ::= ENUMERATED { unspecified (0), ... }
template <>
constexpr Type Schema<ASN1T_CRLReason>::type = renamed<ASN1T_CRLReason>(enumerated, "CRLReason",
                                                                        crlReasonNames);

// HoldInstructionCode ::= OBJECT IDENTIFIER
template <>
constexpr Type Schema<ASN1T_HoldInstruction>::type =
    renamed<ASN1T_HoldInstruction>(objectIdentifier, "HoldInstruction");

// InvalidityDate ::= GeneralizedTime
template <>
constexpr Type Schema<ASN1T_InvalidityDate>::type = renamed<ASN1T_InvalidityDate>(generalizedTime,
                                                                                  "InvalidityDate");

// The CA version of the private arc: INTEGER
template <>
constexpr Type Schema<ASN1T_CAVersion>::type = renamed<ASN1T_CAVersion>(integer, "CAVersion");
