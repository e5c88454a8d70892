#pragma once

#include <list>
#include <string>
#include <utility>

#include "capilite/Blob.h"
#include "platform/Export.h"

/// String types of attribute values.
enum CACMPT_StringType : int {
    CACMPT_NoString = 0,  // the register chooses
    CACMPT_UTF8String = 1,
    CACMPT_PrintableString = 2,
    CACMPT_TeletexString = 3,
    CACMPT_BMPString = 4,  // each character keeps its low 16 bits
    CACMPT_IA5String = 5,
    CACMPT_UniversalString = 6,
    CACMPT_NumericString = 7,
};

// Format flags of names as text, passed everywhere in one word. The separator flags stand in their
// order of precedence on input.
inline constexpr unsigned int CACMPT_NAME_TYPE_MASK = 3;
inline constexpr unsigned int CACMPT_NAME_VALUE_ONLY = 1;
inline constexpr unsigned int CACMPT_NAME_OID_TYPE = 2;
inline constexpr unsigned int CACMPT_NAME_UTF8_FOR_BMP = 0x00040000;
inline constexpr unsigned int CACMPT_NAME_REVERSE = 0x02000000;
inline constexpr unsigned int CACMPT_NAME_CRLF = 0x08000000;
inline constexpr unsigned int CACMPT_NAME_SEMICOLON = 0x40000000;
inline constexpr unsigned int CACMPT_NAME_COMMA = 0x04000000;
inline constexpr unsigned int CACMPT_NAME_NO_QUOTING = 0x10000000;
inline constexpr unsigned int CACMPT_NAME_NO_PLUS = 0x20000000;

/// One attribute as a pair of identifier and encoded value, the tag included.
class PKIXCMP_API CACMPT_AttrValue {
public:
    CACMPT_AttrValue() = default;
    CACMPT_AttrValue(std::string oid, CACMPT_BLOB encoded)
        : type(std::move(oid)), value(std::move(encoded)) {}

    std::string type;
    CACMPT_BLOB value;
};

/// The same made from an identifier and a plain text, which is taken as it stands: no character of
/// it has a meaning of its own. The register chooses the string type.
class PKIXCMP_API CACMPT_AttrStringValue : public CACMPT_AttrValue {
public:
    CACMPT_AttrStringValue(const std::string& oid, const std::wstring& text);
};

/// The table of attribute types that have names, and the rules that turn the text of a value into
/// its encoding and back (X.520, RFC 4519 with names of this system).
///
/// The table is filled while the library loads and only read after that. Faults of text are
/// `CryptException` with 0x80092020 to 0x80092023. Where a position is passed it says where to read
/// on: behind what was read, npos at the end of the text, or the index of the fault.
class PKIXCMP_API CACMPT_ATAVRegister {
public:
    /// Each adds a copy of the object to `registered`.
    CACMPT_ATAVRegister(const char* oid, const wchar_t* name, CACMPT_StringType stringType,
                        CACMPT_StringType otherStringType, unsigned long maxLength);
    CACMPT_ATAVRegister(const char* oid, const wchar_t* name, const wchar_t* otherName,
                        CACMPT_StringType stringType, unsigned long maxLength);
    CACMPT_ATAVRegister(const char* oid, const wchar_t* name, CACMPT_StringType stringType,
                        unsigned long maxLength);

    std::string oid;         // dotted
    std::wstring name;       // written, and read
    std::wstring otherName;  // read too; may be empty
    CACMPT_StringType stringType;
    CACMPT_StringType otherStringType;  // 0 when there is none
    unsigned long maxLength;            // characters

    static std::list<CACMPT_ATAVRegister> registered;
    using const_iterator = std::list<CACMPT_ATAVRegister>::const_iterator;

    /// The end of the list when absent.
    static const_iterator find(const std::string& oid);
    /// Without regard to case.
    static const_iterator find(const std::wstring& name);
    /// The name, or the identifier when it is not registered.
    static std::wstring typeToStr(const std::string& oid);
    /// The identifier of a name, or the text itself; a leading "OID." is dropped.
    static std::string typeFromStr(const std::wstring& text);
    /// The first of the two types that can hold the text, or the second.
    CACMPT_StringType typeForString(const std::wstring& text) const;

    /// The text of an encoded value; "#" and hexadecimal digits of the encoding when the identifier
    /// is not registered. `Asn1Exception`, `CAException` "Unsupported string type".
    static std::wstring valueToStr(const std::string& oid, const CACMPT_BLOB& value);
    /// Reads one value and encodes it. A type of 0 lets the register choose.
    static CACMPT_BLOB valueFromStr(const std::string& oid, const std::wstring& text,
                                    unsigned long& position, CACMPT_StringType type,
                                    unsigned int flags);
    static CACMPT_BLOB valueFromStr(const std::string& oid, const std::wstring& text,
                                    CACMPT_StringType type, unsigned int flags);
    /// Encodes a plain text, in which no character has a meaning of its own.
    static CACMPT_BLOB valueFromPlainText(const std::string& oid, const std::wstring& text,
                                          CACMPT_StringType type, unsigned int flags);
    /// Reads "type=value".
    static CACMPT_AttrValue makeATAV(const std::wstring& text, unsigned long& position,
                                     CACMPT_StringType type, unsigned int flags);
    /// The position is that in the text of the value.
    static CACMPT_AttrValue makeATAV(const std::wstring& typeText, const std::wstring& valueText,
                                     unsigned long& position, CACMPT_StringType type,
                                     unsigned int flags);
};

PKIXCMP_API extern const CACMPT_ATAVRegister commonNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister countryNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister localityNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister stateOrProvinceNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister emailAddressAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister organizationNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister organizationUnitNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister titleAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister givenNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister initialsAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister surnameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister pseudonymAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister domainComponentAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister streetAddressAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister x21AddressAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister OGRNAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister OGRNIPAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister INNAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister SNILSAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister UnstructuredNameAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister PostalAddressAttribute;
PKIXCMP_API extern const CACMPT_ATAVRegister PostalCodeAttribute;

/// Whether every character may stand in the type. The index of the first that may not goes to
/// `firstBad`, all bits set when there is none. Empty text always may. `CryptException` 0x80004001
/// for TeletexString and for a type out of range, which cannot be checked.
PKIXCMP_API bool CanEncodeStringInStringType(const std::wstring& text, CACMPT_StringType type,
                                             unsigned long* firstBad);
/// Without blanks, tabs, line feeds and carriage returns at both ends. The number of characters
/// taken off the front goes to `skipped` if given.
PKIXCMP_API std::wstring TrimWhitespace(const std::wstring& text, unsigned long* skipped = nullptr);
/// The bytes as the DER of an OCTET STRING.
PKIXCMP_API CACMPT_BLOB toOctetString(const CACMPT_BLOB& bytes);
