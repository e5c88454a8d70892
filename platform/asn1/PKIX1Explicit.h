#pragma once

#include "platform/asn1/Buffers.h"
#include "platform/asn1/Runtime.h"

// Types of PKIX1Explicit88 (RFC 5280 A.1). In every record `m` says which optional fields are
// present; for a field with a DEFAULT the mark means that it was written. A CHOICE counts its
// alternatives from 1 in module order, `t` 0 is no alternative.

namespace asn1data {

struct ASN1T_NULLParams {};

struct ASN1T_AlgorithmIdentifier {
    struct {
        bool parametersPresent = false;
    } m;
    ASN1TObjId algorithm;
    ASN1OpenType parameters;
};

/// A value of a naming attribute, and a DirectoryString: alternatives in the order of their
/// universal tags. `u` is the text in any of them; for 6 and 7 its octets are big-endian.
struct ASN1T_DirectoryString {
    static constexpr int T_utf8String = 1, T_numericString = 2, T_printableString = 3,
                         T_teletexString = 4, T_ia5String = 5, T_universalString = 6,
                         T_bmpString = 7;
    int t = 0;
    struct {
        ASN1TString text;
    } u;
};

/// X.520 PostalAddress: SEQUENCE OF DirectoryString.
struct ASN1T_PostalAddress : ASN1TSeqOf<ASN1T_DirectoryString> {};

/// AttributeTypeAndValue of a name and of CRMF controls. The decoded value stands beside the bytes
/// for known types: `ASN1T_DirectoryString` for naming attributes, `ASN1T_PostalAddress` for
/// postalAddress, the types of RFC 4211 section 6 for controls.
struct ASN1T_AttributeTypeAndValue {
    ASN1TObjId type;
    ASN1OpenType value;
};

struct ASN1T_RelativeDistinguishedName : ASN1TSeqOf<ASN1T_AttributeTypeAndValue> {};  // SET OF
struct ASN1T_RDNSequence : ASN1TSeqOf<ASN1T_RelativeDistinguishedName> {};

struct ASN1T_Name {
    static constexpr int T_rdnSequence = 1;
    int t = T_rdnSequence;
    struct {
        ASN1T_RDNSequence rdnSequence;
    } u;
};

struct ASN1T_AttributeValues : ASN1TSeqOf<ASN1OpenType> {};  // SET OF

/// Attribute. The decoded value of each known one stands beside its bytes: `ASN1T_Extensions` for
/// the extension requests, `ASN1T_DirectoryString` for challengePassword and naming attributes.
struct ASN1T_Attribute {
    ASN1TObjId type;
    ASN1T_AttributeValues values;
};
struct ASN1T_Attributes : ASN1TSeqOf<ASN1T_Attribute> {};  // SET OF

/// Time: 1 UTCTime, 2 GeneralizedTime, the text as it stands on the wire.
struct ASN1T_Time {
    static constexpr int T_utcTime = 1, T_generalTime = 2;
    int t = 0;
    struct {
        ASN1TString text;
    } u;
};

struct ASN1T_Validity {
    ASN1T_Time notBefore;
    ASN1T_Time notAfter;
};

struct ASN1T_SubjectPublicKeyInfo {
    ASN1T_AlgorithmIdentifier algorithm;
    ASN1TDynBitStr subjectPublicKey;
};

/// Extension: `extnValue` holds the DER inside the OCTET STRING, with the decoded value beside it
/// for known identifiers (see PKIX1Implicit.h).
struct ASN1T_Extension {
    struct {
        bool criticalPresent = false;
    } m;
    ASN1TObjId extnID;
    ASN1TBool critical;
    ASN1OpenType extnValue;
};
struct ASN1T_Extensions : ASN1TSeqOf<ASN1T_Extension> {};

struct ASN1T_TBSCertificate {
    static constexpr int v1 = 0, v2 = 1, v3 = 2;
    struct {
        bool versionPresent = false;
        bool issuerUniqueIDPresent = false;
        bool subjectUniqueIDPresent = false;
        bool extensionsPresent = false;
    } m;
    std::int32_t version = v1;
    ASN1TBigInt serialNumber = nullptr;
    ASN1T_AlgorithmIdentifier signature;
    ASN1T_Name issuer;
    ASN1T_Validity validity;
    ASN1T_Name subject;
    ASN1T_SubjectPublicKeyInfo subjectPublicKeyInfo;
    ASN1TDynBitStr issuerUniqueID;
    ASN1TDynBitStr subjectUniqueID;
    ASN1T_Extensions extensions;
};

struct ASN1T_Certificate {
    ASN1T_TBSCertificate tbsCertificate;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signature;
};

struct ASN1T_CertificateSerialNumber {
    ASN1TBigInt value = nullptr;
};

/// One entry of a CRL; see `ASN1T_RevokedCertificates`.
struct ASN1T_RevokedCertificate {
    struct {
        bool crlEntryExtensionsPresent = false;
    } m;
    ASN1TBigInt userCertificate = nullptr;
    ASN1T_Time revocationDate;
    ASN1T_Extensions crlEntryExtensions;
};

/// revokedCertificates of a CRL. A decoded list is kept as the checked content octets of the
/// SEQUENCE OF and walked raw, since a CRL may have a million entries; a list that is built holds
/// nodes. `raw.numocts` 0 with no nodes is an empty list.
struct PKIXCMP_API ASN1T_RevokedCertificates {
    ASN1TDynOctStr raw;
    ASN1TSeqOf<ASN1T_RevokedCertificate> built;

    /// Walks entries in order, decoded ones and then built ones, one decoded at a time.
    class PKIXCMP_API Reader {
    public:
        explicit Reader(const ASN1T_RevokedCertificates& list);
        /// Decodes the next entry into the context; false at the end. A fault ends the walk and
        /// stands in the context's error.
        bool next(ASN1CTXT* ctxt, ASN1T_RevokedCertificate& out);

    private:
        const std::uint8_t* at_;
        const std::uint8_t* end_;
        const ASN1CSeqOfList::NodeBase* node_;
    };
    /// Decodes the entry of a serial number given as the content octets of its INTEGER: 1, or 0
    /// when there is none. Below zero, with the error in the context, when the entry is there and
    /// cannot be read, which must not pass for its absence.
    int find(ASN1CTXT* ctxt, const ASN1TDynOctStr& serial, ASN1T_RevokedCertificate& out) const;
    bool empty() const { return raw.numocts == 0 && built.empty(); }
};

struct ASN1T_TBSCertList {
    static constexpr int v2 = 1;
    struct {
        bool versionPresent = false;
        bool nextUpdatePresent = false;
        bool revokedCertificatesPresent = false;
        bool crlExtensionsPresent = false;
    } m;
    std::int32_t version = v2;
    ASN1T_AlgorithmIdentifier signature;
    ASN1T_Name issuer;
    ASN1T_Time thisUpdate;
    ASN1T_Time nextUpdate;
    ASN1T_RevokedCertificates revokedCertificates;
    ASN1T_Extensions crlExtensions;
};

struct ASN1T_CertificateList {
    ASN1T_TBSCertList tbsCertList;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signature;
};

}  // namespace asn1data

// The types of this module, for whoever must walk them all.
// clang-format off
#define PKIXCMP_PKIX1EXPLICIT_TYPES(X)                                                            \
    X(NULLParams) X(AlgorithmIdentifier) X(DirectoryString) X(PostalAddress)                      \
    X(AttributeTypeAndValue) X(RelativeDistinguishedName) X(RDNSequence) X(Name)                  \
    X(AttributeValues) X(Attribute) X(Attributes) X(Time) X(Validity) X(SubjectPublicKeyInfo)     \
    X(Extension) X(Extensions) X(TBSCertificate) X(Certificate) X(CertificateSerialNumber)        \
    X(RevokedCertificate) X(RevokedCertificates) X(TBSCertList) X(CertificateList)
// clang-format on
PKIXCMP_PKIX1EXPLICIT_TYPES(PKIXCMP_ASN1_SCHEMA)

namespace asn1data {

PKIXCMP_PKIX1EXPLICIT_TYPES(PKIXCMP_ASN1_CONTROL)

inline int asn1Copy_Time(ASN1CTXT* ctxt, const ASN1T_Time& source, ASN1T_Time& target) {
    return asn1Copy(ctxt, source, target);
}

/// Each fills the table-constraint field of the record: decodes the bytes of its open type when the
/// identifier is known. Unknown identifiers leave a null value and succeed. A known value that does
/// not decode is a failure here, while decoding a whole tree keeps the bytes and a null value.
PKIXCMP_API int asn1DTC_AttributeTypeAndValue(ASN1CTXT* ctxt, ASN1T_AttributeTypeAndValue* value);
PKIXCMP_API int asn1DTC_Extension(ASN1CTXT* ctxt, ASN1T_Extension* value);
PKIXCMP_API int asn1DTC_Attribute(ASN1CTXT* ctxt, ASN1T_Attribute* value);
/// Encodes the decoded value of an extension to DER in its `extnValue` bytes; the length.
PKIXCMP_API int asn1ETC_Extension(ASN1CTXT* ctxt, ASN1T_Extension* value);
/// Encodes the decoded value of an extension to XER text.
PKIXCMP_API int asn1XETC_Extension(ASN1CTXT* ctxt, const ASN1T_Extension* value, std::string& out);

/// The object set of extensions: which type stands behind an identifier.
class PKIXCMP_API ExtensionSet {
public:
    /// The type of the extension's value, or null for an unknown identifier.
    static const asn1::Type* lookupObject(const ASN1TObjId& id);
    static const asn1::Type* lookupObject(const ASN1OBJID& id);
};

}  // namespace asn1data
