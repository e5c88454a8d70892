#include "capilite/AttributeRegister.h"

#include <cwctype>
#include <string_view>

#include "capilite/CAException.h"
#include "capilite/NameSyntax.h"
#include "capilite/Strings.h"
#include "platform/support/LastError.h"

namespace {

constexpr unsigned long MAX_LENGTH = 32768;

/// Equal but for case, by the mapping of the process locale.
bool sameName(const std::wstring& a, const std::wstring& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) {
        return std::towupper(static_cast<std::wint_t>(x)) ==
               std::towupper(static_cast<std::wint_t>(y));
    });
}

bool isDottedDigits(const std::wstring& text) {
    return text.find_first_not_of(L"0123456789.") == text.npos;
}

[[noreturn]] void throwSyntax() { PKIXCMP_THROW(CryptException, CRYPT_E_INVALID_X500_STRING); }

/// The identifier of an attribute by its text, which is a dotted identifier or a known name.
std::string chooseType(const std::wstring& typeText) {
    std::wstring text = TrimWhitespace(typeText);
    if (text.empty()) throwSyntax();
    if (isDottedDigits(text)) return tostring(text);
    std::string oid = CACMPT_ATAVRegister::typeFromStr(text);
    if (CACMPT_ATAVRegister::find(oid) == CACMPT_ATAVRegister::registered.end()) throwSyntax();
    return oid;
}

}  // namespace

// The list stands in front of the objects, which add themselves to it in this order.
std::list<CACMPT_ATAVRegister> CACMPT_ATAVRegister::registered;

const CACMPT_ATAVRegister commonNameAttribute("2.5.4.3", L"CN", CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister countryNameAttribute("2.5.4.6", L"C", CACMPT_PrintableString, MAX_LENGTH);
const CACMPT_ATAVRegister localityNameAttribute("2.5.4.7", L"L", CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister stateOrProvinceNameAttribute("2.5.4.8", L"S", L"ST", CACMPT_UTF8String,
                                                       MAX_LENGTH);
const CACMPT_ATAVRegister emailAddressAttribute("1.2.840.113549.1.9.1", L"E", L"Email",
                                                CACMPT_IA5String, MAX_LENGTH);
const CACMPT_ATAVRegister organizationNameAttribute("2.5.4.10", L"O", CACMPT_UTF8String,
                                                    MAX_LENGTH);
const CACMPT_ATAVRegister organizationUnitNameAttribute("2.5.4.11", L"OU", CACMPT_UTF8String,
                                                        MAX_LENGTH);
const CACMPT_ATAVRegister titleAttribute("2.5.4.12", L"T", L"Title", CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister givenNameAttribute("2.5.4.42", L"G", L"GivenName", CACMPT_UTF8String,
                                             MAX_LENGTH);
const CACMPT_ATAVRegister initialsAttribute("2.5.4.43", L"I", L"Initials", CACMPT_UTF8String,
                                            MAX_LENGTH);
const CACMPT_ATAVRegister surnameAttribute("2.5.4.4", L"SN", CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister pseudonymAttribute("2.5.4.65", L"PS", CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister domainComponentAttribute("0.9.2342.19200300.100.1.25", L"DC",
                                                   CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister streetAddressAttribute("2.5.4.9", L"STREET", CACMPT_UTF8String,
                                                 MAX_LENGTH);
const CACMPT_ATAVRegister x21AddressAttribute("2.5.4.24", L"", CACMPT_NumericString, MAX_LENGTH);
const CACMPT_ATAVRegister OGRNAttribute("1.2.643.100.1", L"OGRN", CACMPT_NumericString, MAX_LENGTH);
const CACMPT_ATAVRegister OGRNIPAttribute("1.2.643.100.5", L"OGRNIP", CACMPT_NumericString,
                                          MAX_LENGTH);
const CACMPT_ATAVRegister INNAttribute("1.2.643.3.131.1.1", L"INN", CACMPT_NumericString,
                                       MAX_LENGTH);
const CACMPT_ATAVRegister SNILSAttribute("1.2.643.100.3", L"SNILS", CACMPT_NumericString,
                                         MAX_LENGTH);
const CACMPT_ATAVRegister UnstructuredNameAttribute("1.2.840.113549.1.9.2", L"UnstructuredName",
                                                    CACMPT_UTF8String, MAX_LENGTH);
const CACMPT_ATAVRegister PostalAddressAttribute("2.5.4.16", L"PostalAddress", CACMPT_UTF8String,
                                                 MAX_LENGTH);
const CACMPT_ATAVRegister PostalCodeAttribute("2.5.4.17", L"PostalCode", CACMPT_UTF8String,
                                              MAX_LENGTH);

CACMPT_ATAVRegister::CACMPT_ATAVRegister(const char* type, const wchar_t* outputName,
                                         const wchar_t* inputName, CACMPT_StringType first,
                                         unsigned long limit)
    : oid(type),
      name(outputName),
      otherName(inputName),
      stringType(first),
      otherStringType(CACMPT_NoString),
      maxLength(limit) {
    registered.push_back(*this);
}

CACMPT_ATAVRegister::CACMPT_ATAVRegister(const char* type, const wchar_t* outputName,
                                         CACMPT_StringType first, CACMPT_StringType second,
                                         unsigned long limit)
    : oid(type), name(outputName), stringType(first), otherStringType(second), maxLength(limit) {
    registered.push_back(*this);
}

CACMPT_ATAVRegister::CACMPT_ATAVRegister(const char* type, const wchar_t* outputName,
                                         CACMPT_StringType first, unsigned long limit)
    : CACMPT_ATAVRegister(type, outputName, first, CACMPT_NoString, limit) {}

CACMPT_ATAVRegister::const_iterator CACMPT_ATAVRegister::find(const std::string& type) {
    return std::find_if(registered.cbegin(), registered.cend(),
                        [&type](const CACMPT_ATAVRegister& entry) { return entry.oid == type; });
}

CACMPT_ATAVRegister::const_iterator CACMPT_ATAVRegister::find(const std::wstring& text) {
    return std::find_if(registered.cbegin(), registered.cend(),
                        [&text](const CACMPT_ATAVRegister& entry) {
                            return sameName(entry.name, text) ||
                                   (!entry.otherName.empty() && sameName(entry.otherName, text));
                        });
}

std::wstring CACMPT_ATAVRegister::typeToStr(const std::string& type) {
    const_iterator entry = find(type);
    return entry != registered.cend() ? entry->name : towstring(type);
}

std::string CACMPT_ATAVRegister::typeFromStr(const std::wstring& text) {
    constexpr std::wstring_view prefix = L"OID.";
    bool prefixed = text.size() > prefix.size() && text.starts_with(prefix);
    std::wstring rest = prefixed ? text.substr(prefix.size()) : text;
    const_iterator entry = find(rest);
    return entry != registered.cend() ? entry->oid : tostring(rest);
}

CACMPT_StringType CACMPT_ATAVRegister::typeForString(const std::wstring& text) const {
    if (otherStringType == CACMPT_NoString) return stringType;
    return CanEncodeStringInStringType(text, stringType, nullptr) ? stringType : otherStringType;
}

CACMPT_AttrValue CACMPT_ATAVRegister::makeATAV(const std::wstring& text, unsigned long& position,
                                               CACMPT_StringType type, unsigned int flags) {
    std::size_t start = text.find_first_not_of(capilite::NAME_WHITE_SPACE, position);
    if (start == text.npos) throwSyntax();
    std::size_t equals = text.find(L'=', start);
    if (equals == text.npos || equals == start) {
        position = start;
        throwSyntax();
    }
    std::string attribute;
    try {
        attribute = chooseType(text.substr(start, equals - start));
    } catch (const CryptException&) {
        position = start;
        throw;
    }
    position = equals + 1;
    CACMPT_BLOB value = valueFromStr(attribute, text, position, type, flags);
    return {std::move(attribute), std::move(value)};
}

CACMPT_AttrValue CACMPT_ATAVRegister::makeATAV(const std::wstring& typeText,
                                               const std::wstring& valueText,
                                               unsigned long& position, CACMPT_StringType type,
                                               unsigned int flags) {
    std::string attribute = chooseType(typeText);
    CACMPT_BLOB value = valueFromStr(attribute, valueText, position, type, flags);
    return {std::move(attribute), std::move(value)};
}

CACMPT_AttrStringValue::CACMPT_AttrStringValue(const std::string& oid, const std::wstring& text)
    : CACMPT_AttrValue(oid,
                       CACMPT_ATAVRegister::valueFromPlainText(oid, text, CACMPT_NoString, 0)) {}
