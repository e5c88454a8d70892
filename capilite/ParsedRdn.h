#pragma once

#include <string>

#include "capilite/Blob.h"
#include "capilite/DecodeBuffer.h"
#include "platform/Export.h"
#include "platform/asn1/PKIX1Explicit.h"

/// A name as one string an attribute type, for callers that fill it in attribute by attribute.
/// Empty strings are absent attributes. 8-bit strings are plain text, wide ones characters of 32
/// bits.
struct PKIXCMP_API CACMPT_PARSED_RDN_OLD {
    std::string EMail;
    std::string Country;
    std::wstring State;
    std::wstring Locality;
    std::wstring Street;
    std::wstring Organization;
    std::wstring OrgUnit;
    std::wstring Title;
    std::wstring GivenName;
    std::wstring Initials;
    std::wstring SurName;
    std::wstring Pseudonym;
    std::wstring CommonName;
    std::string OGRN;
    std::string OGRNIP;
    std::string INN;
    std::string SNILS;
    std::wstring UnstructuredName;
    std::wstring PostalCode;

    void swap(CACMPT_PARSED_RDN_OLD& other) noexcept;
};

/// A name as its DER. A new value is the empty name, which is two bytes long.
class PKIXCMP_API CACMPT_PARSED_RDN : public CACMPT_BLOB {
public:
    static const unsigned char m_empty_der[2];
    static const unsigned int m_empty_der_len;

    CACMPT_PARSED_RDN() : CACMPT_BLOB(m_empty_der, m_empty_der_len) {}
    explicit CACMPT_PARSED_RDN(const CACMPT_BLOB& der) : CACMPT_BLOB(der) {}

    using CACMPT_BLOB::assign;
    /// From the text syntax of names. `CryptException`.
    void assign(const std::wstring& text);
    void assign(const asn1data::ASN1T_Name& name);
    /// One RDN for each field that is not empty, in the order email, country, state, locality,
    /// street, organization, unit, title, given name, initials, surname, pseudonym, the four
    /// numbers, common name, unstructured name, postal code. `Asn1DecodeException` "Invalid RDN
    /// length.".
    void assign(const CACMPT_PARSED_RDN_OLD& record);

    /// The text of the name; flags as in `CACMPT_Name::toString`.
    std::wstring tostring(unsigned int flags) const;
    /// The record lives in the buffer's context.
    void parse(CACMPT_ASN1BERDecodeBuffer& buffer, asn1data::ASN1T_Name& out) const;
    /// Attributes of other types are passed over; of several of one type the last stays. A failure
    /// leaves what was read so far.
    void parse(CACMPT_PARSED_RDN_OLD& out) const;
};

// Building a list of RDNs of one attribute each. All parts live in the context, whose encoding
// cursor is put back. `list` is the list of an `ASN1T_RDNSequence`.

PKIXCMP_API void pkiAddRDNToList(ASN1CTXT* context, ASN1OBJID* type, ASN1OpenType& value,
                                 ASN1CSeqOfList& list);
/// 8-bit text under a universal tag; text longer than the limit is refused.
PKIXCMP_API void pkiAddRDNToListA(ASN1CTXT* context, const char* oid, const char* text,
                                  ASN1CSeqOfList& list, unsigned int tag, unsigned long limit);
/// Wide text as UTF8String; text that is not below the limit and 32769 is refused.
PKIXCMP_API void pkiAddRDNToListW(ASN1CTXT* context, const char* oid, const wchar_t* text,
                                  ASN1CSeqOfList& list, unsigned long limit);
/// The value of an attribute as wide text, which must be below the limit. `Asn1DecodeException`
/// with the message, also for a string type that is not taken here.
PKIXCMP_API void add_rdn18(std::wstring& out, unsigned long limit,
                           asn1data::ASN1T_AttributeTypeAndValue* value, const char* tooLongMessage,
                           ASN1CTXT* context);
/// Decodes a name into the context of the buffer.
PKIXCMP_API asn1data::ASN1T_Name* ASN1T_Name_set(CACMPT_ASN1BERDecodeBuffer& buffer,
                                                 const CACMPT_PARSED_RDN& name);
