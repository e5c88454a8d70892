#include "capilite/AttributeTypeAndValue.h"

#include "capilite/CAException.h"
#include "capilite/NameSyntax.h"
#include "capilite/Oid.h"
#include "capilite/RecordCoding.h"
#include "capilite/Strings.h"
#include "platform/support/LastError.h"

namespace {

/// Whether a value would not read back as it stands.
bool needsQuotes(const std::wstring& text) {
    if (text.empty()) return true;
    auto isWhite = [](wchar_t c) {
        return capilite::NAME_WHITE_SPACE.find(c) != std::wstring_view::npos;
    };
    return isWhite(text.front()) || isWhite(text.back()) ||
           text.find_first_of(L",+=\"<>#;\n") != text.npos;
}

std::wstring quote(const std::wstring& text) {
    std::wstring quoted = L"\"";
    for (wchar_t c : text) {
        if (c == L'"') quoted += c;
        quoted += c;
    }
    return quoted + L'"';
}

}  // namespace

CACMPT_AttributeTypeAndValue::CACMPT_AttributeTypeAndValue(const std::wstring& typeText,
                                                           const std::wstring& valueText,
                                                           unsigned long& position,
                                                           CACMPT_StringType stringType,
                                                           unsigned int flags)
    : CACMPT_AttributeTypeAndValue(
          CACMPT_ATAVRegister::makeATAV(typeText, valueText, position, stringType, flags)) {}

CACMPT_AttributeTypeAndValue::CACMPT_AttributeTypeAndValue(const std::wstring& text,
                                                           unsigned long& position,
                                                           CACMPT_StringType stringType,
                                                           unsigned int flags)
    : CACMPT_AttributeTypeAndValue(
          CACMPT_ATAVRegister::makeATAV(text, position, stringType, flags)) {}

std::wstring CACMPT_AttributeTypeAndValue::get_type_str(unsigned int flags) const {
    if ((flags & CACMPT_NAME_TYPE_MASK) == CACMPT_NAME_OID_TYPE) return towstring(type);
    return CACMPT_ATAVRegister::typeToStr(type);
}

std::wstring CACMPT_AttributeTypeAndValue::get_value_str(unsigned int flags) const {
    std::wstring text = CACMPT_ATAVRegister::valueToStr(type, value);
    bool bare = (flags & CACMPT_NAME_NO_QUOTING) != 0 || !needsQuotes(text);
    return bare ? text : quote(text);
}

void CACMPT_AttributeTypeAndValue::set_type_str(const std::wstring& text) {
    type = CACMPT_ATAVRegister::typeFromStr(text);
}

void CACMPT_AttributeTypeAndValue::set_value_str(const std::wstring& text,
                                                 CACMPT_StringType stringType) {
    unsigned long position = 0;
    CACMPT_BLOB encoded = CACMPT_ATAVRegister::valueFromStr(type, text, position, stringType, 0);
    if (position != capilite::NAME_END) {
        PKIXCMP_THROW(CryptException, CRYPT_E_INVALID_X500_STRING);
    }
    value = std::move(encoded);
}

std::wstring CACMPT_AttributeTypeAndValue::toString(unsigned int flags) const {
    std::wstring text = get_value_str(flags);
    if ((flags & CACMPT_NAME_TYPE_MASK) == CACMPT_NAME_VALUE_ONLY) return text;
    return get_type_str(flags) + L'=' + text;
}

void CACMPT_AttributeTypeAndValue::fromString(const std::wstring& text, unsigned long& position,
                                              CACMPT_StringType stringType, unsigned int flags) {
    *this = CACMPT_AttributeTypeAndValue(text, position, stringType, flags);
}

CACMPT_BLOB CACMPT_AttributeTypeAndValue::encode() const {
    return asn1Encode<ASN1T_AttributeTypeAndValue_traits>(*this);
}

void CACMPT_AttributeTypeAndValue::decode(const CACMPT_BLOB& encoded) {
    asn1Decode<ASN1T_AttributeTypeAndValue_traits>(encoded, *this);
}

void ASN1T_AttributeTypeAndValue_traits::set(ASN1CTXT* ctxt, record_type& target,
                                             const value_type& source) {
    if (str2oid(ctxt, source.get_type().c_str(), &target.type)) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt));
    }
    const CACMPT_BLOB& value = source.get_value();
    const std::uint8_t* bytes = rtCopyBytes(ctxt, value.data, value.size);
    if (bytes == nullptr && value.size != 0) PKIXCMP_THROW(CAException, "out of memory");
    target.value = ASN1OpenType(value.size, bytes);
}

void ASN1T_AttributeTypeAndValue_traits::get(const record_type& source, value_type& target) {
    const ASN1OpenType& open = source.value;
    // A record that was built may hold the value without its bytes.
    bool built = open.numocts == 0 && open.type != nullptr && open.decoded != nullptr;
    target.set_type(rtOidToString(source.type));
    target.set_value(built ? asn1EncodeRecord(*open.type, open.decoded)
                           : CACMPT_BLOB(open.data, open.numocts));
}

void ASN1T_AttributeTypeAndValue_traits::copy(ASN1CTXT* ctxt, const record_type& source,
                                              record_type& target) {
    asn1CopyRecord(ctxt, source, target);
}
