#pragma once

#include "platform/asn1/ObjectSets.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/SchemaBuilder.h"

// Schemas of PKIX1Explicit88 (RFC 5280 A.1, EXPLICIT TAGS). Included by Schemas.cpp alone.

using namespace asn1;
using namespace asn1data;

template <>
constexpr Type Schema<ASN1T_NULLParams>::type = renamed<ASN1T_NULLParams>(null, "NULLParams");

// AlgorithmIdentifier ::= SEQUENCE {
//     algorithm   OBJECT IDENTIFIER,
//     parameters  ANY DEFINED BY algorithm OPTIONAL }
template <>
constexpr Type Schema<ASN1T_AlgorithmIdentifier>::type =
    sequence<ASN1T_AlgorithmIdentifier, Required<&ASN1T_AlgorithmIdentifier::algorithm>,
             Optional<&ASN1T_AlgorithmIdentifier::parameters>>("AlgorithmIdentifier");

// DirectoryString ::= CHOICE of the types that occur in naming attributes.
template <>
constexpr Type Schema<ASN1T_DirectoryString>::type =
    choice<ASN1T_DirectoryString, Shared<"utf8String", &utf8String>,
           Shared<"numericString", &numericString>, Shared<"printableString", &printableString>,
           Shared<"teletexString", &teletexString>, Shared<"ia5String", &ia5String>,
           Shared<"universalString", &universalString>, Shared<"bmpString", &bmpString>>(
        "DirectoryString");

// PostalAddress ::= SEQUENCE SIZE (1..6) OF DirectoryString (X.520 6.5.1)
template <>
constexpr Type Schema<ASN1T_PostalAddress>::type =
    sequenceOf<ASN1T_PostalAddress>(Schema<ASN1T_DirectoryString>::type, "PostalAddress");

// AttributeTypeAndValue ::= SEQUENCE {
//     type   AttributeType,
//     value  AttributeValue }
template <>
constexpr Type Schema<ASN1T_AttributeTypeAndValue>::type =
    sequence<ASN1T_AttributeTypeAndValue, Required<&ASN1T_AttributeTypeAndValue::type>,
             Open<Required<&ASN1T_AttributeTypeAndValue::value>, &ASN1T_AttributeTypeAndValue::type,
                  attributeTypeAndValueType>>("AttributeTypeAndValue");

// RelativeDistinguishedName ::= SET SIZE (1..MAX) OF AttributeTypeAndValue
template <>
constexpr Type Schema<ASN1T_RelativeDistinguishedName>::type =
    setOf<ASN1T_RelativeDistinguishedName>(Schema<ASN1T_AttributeTypeAndValue>::type,
                                           "RelativeDistinguishedName");

// RDNSequence ::= SEQUENCE OF RelativeDistinguishedName
template <>
constexpr Type Schema<ASN1T_RDNSequence>::type =
    sequenceOf<ASN1T_RDNSequence>(Schema<ASN1T_RelativeDistinguishedName>::type, "RDNSequence");

// Name ::= CHOICE { rdnSequence RDNSequence }
template <>
constexpr Type Schema<ASN1T_Name>::type =
    choice<ASN1T_Name, Shared<"rdnSequence", &Schema<ASN1T_RDNSequence>::type>>("Name");

template <>
constexpr Type Schema<ASN1T_AttributeValues>::type =
    setOf<ASN1T_AttributeValues>(any, "AttributeValues");

// Attribute ::= SEQUENCE {
//     type    AttributeType,
//     values  SET OF AttributeValue }
template <>
constexpr Type Schema<ASN1T_Attribute>::type =
    sequence<ASN1T_Attribute, Required<&ASN1T_Attribute::type>,
             Open<Required<&ASN1T_Attribute::values>, &ASN1T_Attribute::type, attributeType>>(
        "Attribute");

// Attributes ::= SET OF Attribute
template <>
constexpr Type Schema<ASN1T_Attributes>::type =
    setOf<ASN1T_Attributes>(Schema<ASN1T_Attribute>::type, "Attributes");

// Time ::= CHOICE {
//     utcTime      UTCTime,
//     generalTime  GeneralizedTime }
template <>
constexpr Type Schema<ASN1T_Time>::type = choice<ASN1T_Time, Shared<"utcTime", &utcTime>,
                                                 Shared<"generalTime", &generalizedTime>>("Time");

// Validity ::= SEQUENCE {
//     notBefore  Time,
//     notAfter   Time }
template <>
constexpr Type Schema<ASN1T_Validity>::type =
    sequence<ASN1T_Validity, Required<&ASN1T_Validity::notBefore>,
             Required<&ASN1T_Validity::notAfter>>("Validity");

// SubjectPublicKeyInfo ::= SEQUENCE {
//     algorithm         AlgorithmIdentifier,
//     subjectPublicKey  BIT STRING }
template <>
constexpr Type Schema<ASN1T_SubjectPublicKeyInfo>::type =
    sequence<ASN1T_SubjectPublicKeyInfo, Required<&ASN1T_SubjectPublicKeyInfo::algorithm>,
             Required<&ASN1T_SubjectPublicKeyInfo::subjectPublicKey>>("SubjectPublicKeyInfo");

// Extension ::= SEQUENCE {
//     extnID     OBJECT IDENTIFIER,
//     critical   BOOLEAN DEFAULT FALSE,
//     extnValue  OCTET STRING  -- contains the DER of the type that extnID identifies -- }
template <>
constexpr Type Schema<ASN1T_Extension>::type = sequence<
    ASN1T_Extension, Required<&ASN1T_Extension::extnID>, Defaulted<&ASN1T_Extension::critical, 0>,
    Open<Required<&ASN1T_Extension::extnValue, untagged, &wrapped>, &ASN1T_Extension::extnID,
         extensionType>>("Extension");

// Extensions ::= SEQUENCE SIZE (1..MAX) OF Extension
template <>
constexpr Type Schema<ASN1T_Extensions>::type =
    sequenceOf<ASN1T_Extensions>(Schema<ASN1T_Extension>::type, "Extensions");

// TBSCertificate ::= SEQUENCE {
//     version         [0] Version DEFAULT v1,
//     serialNumber        CertificateSerialNumber,
//     signature           AlgorithmIdentifier,
//     issuer              Name,
//     validity            Validity,
//     subject             Name,
//     subjectPublicKeyInfo SubjectPublicKeyInfo,
//     issuerUniqueID  [1] IMPLICIT UniqueIdentifier OPTIONAL,
//     subjectUniqueID [2] IMPLICIT UniqueIdentifier OPTIONAL,
//     extensions      [3] Extensions OPTIONAL }
template <>
constexpr Type Schema<ASN1T_TBSCertificate>::type = sequence<
    ASN1T_TBSCertificate,
    Defaulted<&ASN1T_TBSCertificate::version, ASN1T_TBSCertificate::v1, explicitly(0)>,
    Required<&ASN1T_TBSCertificate::serialNumber>, Required<&ASN1T_TBSCertificate::signature>,
    Required<&ASN1T_TBSCertificate::issuer>, Required<&ASN1T_TBSCertificate::validity>,
    Required<&ASN1T_TBSCertificate::subject>, Required<&ASN1T_TBSCertificate::subjectPublicKeyInfo>,
    Optional<&ASN1T_TBSCertificate::issuerUniqueID, implicit(1)>,
    Optional<&ASN1T_TBSCertificate::subjectUniqueID, implicit(2)>,
    Optional<&ASN1T_TBSCertificate::extensions, explicitly(3)>>("TBSCertificate");

// Certificate ::= SEQUENCE {
//     tbsCertificate      TBSCertificate,
//     signatureAlgorithm  AlgorithmIdentifier,
//     signature           BIT STRING }
template <>
constexpr Type Schema<ASN1T_Certificate>::type =
    sequence<ASN1T_Certificate, Required<&ASN1T_Certificate::tbsCertificate>,
             Required<&ASN1T_Certificate::signatureAlgorithm>,
             Required<&ASN1T_Certificate::signature>>("Certificate");

// CertificateSerialNumber ::= INTEGER
template <>
constexpr Type Schema<ASN1T_CertificateSerialNumber>::type =
    renamed<ASN1T_CertificateSerialNumber>(bigInteger, "CertificateSerialNumber");

// revokedCertificates SEQUENCE OF SEQUENCE {
//     userCertificate     CertificateSerialNumber,
//     revocationDate      Time,
//     crlEntryExtensions  Extensions OPTIONAL }
template <>
constexpr Type Schema<ASN1T_RevokedCertificate>::type =
    sequence<ASN1T_RevokedCertificate, Required<&ASN1T_RevokedCertificate::userCertificate>,
             Required<&ASN1T_RevokedCertificate::revocationDate>,
             Optional<&ASN1T_RevokedCertificate::crlEntryExtensions>>("SEQUENCE");

template <>
constexpr Type Schema<ASN1T_RevokedCertificates>::type =
    revokedCertificates(Schema<ASN1T_RevokedCertificate>::type, "revokedCertificates");

// TBSCertList ::= SEQUENCE {
//     version                 Version OPTIONAL,
//     signature               AlgorithmIdentifier,
//     issuer                  Name,
//     thisUpdate              Time,
//     nextUpdate              Time OPTIONAL,
//     revokedCertificates     SEQUENCE OF ... OPTIONAL,
//     crlExtensions       [0] Extensions OPTIONAL }
template <>
constexpr Type Schema<ASN1T_TBSCertList>::type =
    sequence<ASN1T_TBSCertList, Optional<&ASN1T_TBSCertList::version>,
             Required<&ASN1T_TBSCertList::signature>, Required<&ASN1T_TBSCertList::issuer>,
             Required<&ASN1T_TBSCertList::thisUpdate>, Optional<&ASN1T_TBSCertList::nextUpdate>,
             Optional<&ASN1T_TBSCertList::revokedCertificates>,
             Optional<&ASN1T_TBSCertList::crlExtensions, explicitly(0)>>("TBSCertList");

// CertificateList ::= SEQUENCE {
//     tbsCertList         TBSCertList,
//     signatureAlgorithm  AlgorithmIdentifier,
//     signature           BIT STRING }
template <>
constexpr Type Schema<ASN1T_CertificateList>::type =
    sequence<ASN1T_CertificateList, Required<&ASN1T_CertificateList::tbsCertList>,
             Required<&ASN1T_CertificateList::signatureAlgorithm>,
             Required<&ASN1T_CertificateList::signature>>("CertificateList");
