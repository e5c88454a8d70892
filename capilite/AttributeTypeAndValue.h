#pragma once

#include <string>
#include <utility>

#include "capilite/AttributeRegister.h"
#include "capilite/Blob.h"
#include "platform/Export.h"
#include "platform/asn1/PKIX1Explicit.h"

/// One attribute of a name. Text goes through `CACMPT_ATAVRegister`, with its failures.
class PKIXCMP_API CACMPT_AttributeTypeAndValue {
public:
    CACMPT_AttributeTypeAndValue() = default;
    CACMPT_AttributeTypeAndValue(CACMPT_AttrValue attribute)
        : type(std::move(attribute.type)), value(std::move(attribute.value)) {}
    CACMPT_AttributeTypeAndValue(std::string oid, CACMPT_BLOB encoded)
        : type(std::move(oid)), value(std::move(encoded)) {}
    CACMPT_AttributeTypeAndValue(const std::wstring& typeText, const std::wstring& valueText,
                                 unsigned long& position, CACMPT_StringType stringType,
                                 unsigned int flags);
    CACMPT_AttributeTypeAndValue(const std::wstring& text, unsigned long& position,
                                 CACMPT_StringType stringType, unsigned int flags);
    CACMPT_AttributeTypeAndValue(const CACMPT_AttributeTypeAndValue&) = default;
    CACMPT_AttributeTypeAndValue(CACMPT_AttributeTypeAndValue&&) = default;
    CACMPT_AttributeTypeAndValue& operator=(const CACMPT_AttributeTypeAndValue&) = default;
    CACMPT_AttributeTypeAndValue& operator=(CACMPT_AttributeTypeAndValue&&) = default;

    const std::string& get_type() const { return type; }
    /// The name of the type, or its identifier when low flag bits are 2 or it has no name.
    std::wstring get_type_str(unsigned int flags) const;
    const CACMPT_BLOB& get_value() const { return value; }
    /// The text of the value, quoted where reading it back needs quotes.
    std::wstring get_value_str(unsigned int flags) const;
    void set_type(const std::string& oid) { type = oid; }
    void set_type_str(const std::wstring& text);
    void set_value(const CACMPT_BLOB& encoded) { value = encoded; }
    /// Reads text in the syntax of `get_value_str`. More text behind the value is 0x80092023.
    void set_value_str(const std::wstring& text, CACMPT_StringType stringType);

    std::wstring toString(unsigned int flags) const;
    void fromString(const std::wstring& text, unsigned long& position, CACMPT_StringType stringType,
                    unsigned int flags);
    CACMPT_BLOB encode() const;
    void decode(const CACMPT_BLOB& encoded);

    std::string type;   // dotted
    CACMPT_BLOB value;  // the whole encoding with its tag
};

struct PKIXCMP_API ASN1T_AttributeTypeAndValue_traits {
    using value_type = CACMPT_AttributeTypeAndValue;
    using record_type = asn1data::ASN1T_AttributeTypeAndValue;
    static void set(ASN1CTXT* ctxt, record_type& target, const value_type& source);
    static void get(const record_type& source, value_type& target);
    static void copy(ASN1CTXT* ctxt, const record_type& source, record_type& target);
};
