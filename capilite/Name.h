#pragma once

#include <list>
#include <string>
#include <vector>

#include "capilite/AttributeTypeAndValue.h"
#include "capilite/Blob.h"
#include "platform/Export.h"
#include "platform/asn1/PKIX1Explicit.h"

// Distinguished names (X.501, RFC 5280 4.1.2.4) with a text syntax in both directions. The flags
// are those of capilite/AttributeRegister.h. Faults of text are `CryptException`, with the index of
// the fault in the position; decoding fails with `Asn1Exception`.

/// One RDN: attributes in order.
///
/// A decoded RDN keeps its order when it is encoded again; one that was built is sorted, as DER
/// asks of a SET OF.
class PKIXCMP_API CACMPT_RelativeDistinguishedName
    : public std::vector<CACMPT_AttributeTypeAndValue> {
public:
    CACMPT_RelativeDistinguishedName() = default;
    CACMPT_RelativeDistinguishedName(const std::wstring& text, unsigned int flags) {
        fromString(text, flags);
    }
    CACMPT_RelativeDistinguishedName(const std::wstring& text, unsigned int flags,
                                     unsigned long& position) {
        fromString(text, flags, position);
    }

    void fromString(const std::wstring& text, unsigned int flags);
    /// Reads from the position and leaves it behind what was read, npos at the end.
    void fromString(const std::wstring& text, unsigned int flags, unsigned long& position);
    std::wstring toString(unsigned int flags) const;
    CACMPT_BLOB encode() const;
    void decode(const CACMPT_BLOB& encoded);

    /// Whether encoding keeps the vector's order.
    bool keepsOrder() const { return keepsOrder_; }
    void keepOrder(bool keep) { keepsOrder_ = keep; }

private:
    bool keepsOrder_ = false;
};

/// A name: RDNs in the order of the encoding.
class PKIXCMP_API CACMPT_Name : public std::list<CACMPT_RelativeDistinguishedName> {
public:
    CACMPT_Name() = default;
    CACMPT_Name(const std::wstring& text, unsigned int flags, unsigned long* position = nullptr) {
        fromString(text, flags, position);
    }

    /// Replaces the content; a failure leaves it as it was. Reading starts at the front of the
    /// text; the position, if given, receives where it ended.
    void fromString(const std::wstring& text, unsigned int flags,
                    unsigned long* position = nullptr);
    /// Reads from the position on, and leaves it behind what was read, npos at the end.
    void fromString(const std::wstring& text, unsigned int flags, unsigned long& position);
    std::wstring toString(unsigned int flags) const;
    CACMPT_BLOB encode() const;
    void decode(const CACMPT_BLOB& encoded);
};

/// Compares the texts of the RDNs and not their encodings, in any order; a text of b may serve
/// twice, so the comparison is not symmetric. The number of RDNs must be the same.
PKIXCMP_API bool operator==(const CACMPT_Name& a, const CACMPT_Name& b);
// C++20 would also try the operands reversed, which is another comparison.
inline bool operator!=(const CACMPT_Name& a, const CACMPT_Name& b) { return !(a == b); }

struct PKIXCMP_API ASN1T_RelativeDistinguishedName_traits {
    using value_type = CACMPT_RelativeDistinguishedName;
    using record_type = asn1data::ASN1T_RelativeDistinguishedName;
    static void set(ASN1CTXT* ctxt, record_type& target, const value_type& source);
    static void get(const record_type& source, value_type& target);
    static void copy(ASN1CTXT* ctxt, const record_type& source, record_type& target);
};

struct PKIXCMP_API ASN1T_Name_traits {
    using value_type = CACMPT_Name;
    using record_type = asn1data::ASN1T_Name;
    static void set(ASN1CTXT* ctxt, record_type& target, const value_type& source);
    static void get(const record_type& source, value_type& target);
    static void copy(ASN1CTXT* ctxt, const record_type& source, record_type& target);
};
