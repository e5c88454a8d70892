#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "capilite/Blob.h"
#include "platform/Export.h"
#include "platform/asn1/asn1data.h"

// Extensions in their three forms: decoded value, DER of the value, XER text.

inline constexpr int KEY_USAGE_BITS = 9;
inline constexpr int CRL_REASONS_BITS = 7;
inline constexpr unsigned int CRL_REASONS_ALL = 0x7F;

/// The most extensions, and items of generalInfo, that a record takes from one list: each holds a
/// blob, which is a thousand times the size of a small encoding.
inline constexpr std::uint32_t PKIXCMP_LIST_ITEMS = 1024;

/// Names of the key usage bits in XML text, by bit.
PKIXCMP_API extern const char* const KeyUsageNames[KEY_USAGE_BITS];
/// Names of the reason codes in XML text, by code; 7 is no code and empty.
inline constexpr int CRL_REASON_NAMES = 9;
PKIXCMP_API extern const char* const CRLReasonNames[CRL_REASON_NAMES];

/// The value of an extension as DER and as XER text, with its identifier.
class PKIXCMP_API CACMPT_ExtValue {
public:
    CACMPT_ExtValue() = default;
    /// Both forms of a decoded value.
    CACMPT_ExtValue(const ASN1OBJID& id, void* decoded);
    /// The bytes as they are, and the text of the decoded value beside them; null when the type is
    /// not known, and the text is then empty.
    CACMPT_ExtValue(const ASN1OBJID& id, const unsigned char* bytes, unsigned int length,
                    void* decoded);
    /// From a dotted identifier and XER text.
    CACMPT_ExtValue(const std::string& id, const std::string& text);

    /// Fills identifier and text, and with `withBytes` the DER, from a decoded value of the type
    /// that belongs to the identifier. A null value fills the identifier alone.
    void Encode(ASN1MessageBufferIF& buffer, const ASN1OBJID& id, void* decoded, bool withBytes);
    /// Fills all fields from XER text. `Asn1DecodeException` for text that is not the identifier's.
    void Decode(const ASN1OBJID& id, const std::string& text);

    std::string oid;    // dotted, at most 31 characters
    std::string xml;    // empty for an unknown identifier
    CACMPT_BLOB value;  // DER
};

class PKIXCMP_API CACMPT_Extension : public CACMPT_ExtValue {
public:
    CACMPT_Extension() = default;
    CACMPT_Extension(const CACMPT_ExtValue& extension, bool isCritical)
        : CACMPT_ExtValue(extension), critical(isCritical) {}
    CACMPT_Extension(const std::string& id, const std::string& text, bool isCritical)
        : CACMPT_ExtValue(id, text), critical(isCritical) {}
    bool critical = false;
};

/// cRLDistributionPoints with one URL, which stands in XML text unescaped.
class PKIXCMP_API CACMPT_ExtCDP : public CACMPT_ExtValue {
public:
    explicit CACMPT_ExtCDP(const std::string& url);
};

/// Extensions in insertion order; filled by `Insert`, at most one of an identifier.
class PKIXCMP_API CACMPT_Extensions : public std::list<CACMPT_Extension> {
public:
    using std::list<CACMPT_Extension>::list;
    /// Overwrites the entry of the same identifier in its place, or appends.
    void Insert(const CACMPT_Extension& extension);
    /// Removes the first entry of the identifier, if there is one.
    void Delete(const std::string& oid);
};

/// Moves one extension between the list's form and the record.
struct PKIXCMP_API ASN1T_Extension_traits {
    using value_type = CACMPT_Extension;
    using record_type = asn1data::ASN1T_Extension;
    /// Identifier, criticality and a copy of the bytes, with the value decoded beside them.
    static void set(ASN1CTXT* ctxt, record_type& target, const value_type& source);
    static void get(const record_type& source, value_type& target);
    static void copy(ASN1CTXT* ctxt, const record_type& source, record_type& target);
};

/// Rebuilds the record's list from `source`, in the context.
PKIXCMP_API void ASN1T_Extensions_set(ASN1CTXT* context, asn1data::ASN1T_Extensions& target,
                                      const CACMPT_Extensions& source);
/// Appends the extensions of the record; duplicates stay. More than `PKIXCMP_LIST_ITEMS` are an
/// `Asn1DecodeException`.
PKIXCMP_API void ASN1T_Extensions_get(const asn1data::ASN1T_Extensions& source,
                                      CACMPT_Extensions& target);
/// Replaces the extension of the identifier in its place, or appends. The value is a decoded one of
/// the identifier's type; it is encoded at once and need not outlive the call.
PKIXCMP_API void ASN1T_Extensions_replace(ASN1CTXT* context, asn1data::ASN1T_Extensions& extensions,
                                          const ASN1OBJID& oid, void* value, bool critical);
PKIXCMP_API void ASN1T_Extensions_replace(ASN1CTXT* context, asn1data::ASN1T_Extensions& extensions,
                                          const CACMPT_Extension& extension);
/// authorityKeyIdentifier from the issuer's subjectKeyIdentifier, issuerAltName from its
/// subjectAltName. What the issuer lacks is left alone.
PKIXCMP_API void ASN1T_Extensions_add_aKI_and_iAN(ASN1CTXT* context,
                                                  asn1data::ASN1T_Extensions& extensions,
                                                  const asn1data::ASN1T_Certificate& issuer);
/// authorityInfoAccess from the caRepository entries of the issuer's subjectInfoAccess, as
/// caIssuers.
PKIXCMP_API void ASN1T_Extensions_add_AIA(ASN1CTXT* context, asn1data::ASN1T_Extensions& extensions,
                                          const asn1data::ASN1T_Certificate& issuer);
/// cA true, critical, no path length.
PKIXCMP_API void ASN1T_Extensions_add_basicConstraints(ASN1CTXT* context,
                                                       asn1data::ASN1T_Extensions& extensions);
/// subjectKeyIdentifier of the key bits (RFC 5280 4.2.1.2, method 1). Without `replace` one that is
/// there stays.
PKIXCMP_API void ASN1T_Extensions_add_subjectKeyIdentifier(unsigned long long provider,
                                                           ASN1CTXT* context,
                                                           asn1data::ASN1T_Extensions& extensions,
                                                           const ASN1TDynBitStr& key, bool replace);

/// Appends an attribute with one value, given as DER.
PKIXCMP_API void ASN1T_Attributes_add(ASN1CTXT* context, asn1data::ASN1T_Attributes& attributes,
                                      const ASN1TObjId& type, const unsigned char* value,
                                      unsigned int length);
/// The same, the value as it stands: bytes, or a decoded value to be encoded.
PKIXCMP_API void ASN1T_Attributes_add(ASN1CTXT* context, asn1data::ASN1T_Attributes& attributes,
                                      const ASN1TObjId& type, const ASN1OpenType& value);

// A reader of the XML that extensions are written in: tags without attributes, no comments, no
// entities. Each consumes what it gives from the front of the text; "Invalid xml format"
// (`Asn1DecodeException`) when the text does not begin so.

/// The text between "<" and ">" of the first tag, with a slash where it has one.
PKIXCMP_API std::string get_sub_xml(std::string& text);
/// The text in front of the next tag.
PKIXCMP_API std::string get_not_xml(std::string& text);
/// The name of an end tag.
PKIXCMP_API std::string get_sub_xml_lend(std::string& text);
/// The name of an empty tag.
PKIXCMP_API std::string get_sub_xml_rend(std::string& text);
/// True when the text of a tag is that of an end tag.
PKIXCMP_API bool is_lend(const std::string& tag);
