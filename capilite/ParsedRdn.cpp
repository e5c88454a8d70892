#include "capilite/ParsedRdn.h"

#include <algorithm>
#include <utility>

#include "capilite/CAException.h"
#include "capilite/Name.h"
#include "capilite/Oid.h"
#include "capilite/RecordCoding.h"
#include "capilite/Strings.h"
#include "platform/asn1/Runtime.h"

namespace {

using namespace asn1data;
using Old = CACMPT_PARSED_RDN_OLD;

constexpr unsigned long WIDE_LIMIT = 32769;    // wide text stays below it
constexpr unsigned long LETTER_LIMIT = 32769;  // 8-bit text may reach it
constexpr unsigned long NUMBER_LIMIT = 32768;
constexpr unsigned long EMAIL_LIMIT = 32769;  // on reading, stays below
constexpr unsigned long NUMBER_CUT = 32769;   // on reading

constexpr unsigned int TAG_UTF8 = 12, TAG_NUMERIC = 18, TAG_PRINTABLE = 19, TAG_IA5 = 22;
constexpr const char* OUT_OF_MEMORY = "out of memory";
constexpr const char* INVALID_LENGTH = "Invalid RDN length.";

/// How the value of a field is read.
enum class Reading { email, country, number, wide };

struct Field {
    const char* oid;
    std::string Old::*narrow;
    std::wstring Old::*wide;
    unsigned int tag;
    unsigned long limit;
    Reading reading;
    const char* message;
};

constexpr Field narrowField(const char* oid, std::string Old::*member, unsigned int tag,
                            Reading reading, const char* message) {
    return {oid,     member, nullptr, tag, reading == Reading::number ? NUMBER_LIMIT : LETTER_LIMIT,
            reading, message};
}

constexpr Field wideField(const char* oid, std::wstring Old::*member, const char* message) {
    return {oid, nullptr, member, TAG_UTF8, WIDE_LIMIT, Reading::wide, message};
}

/// All fields in the order in which a name is built from them and its attributes are looked up.
constexpr Field FIELDS[] = {
    narrowField("1.2.840.113549.1.9.1", &Old::EMail, TAG_IA5, Reading::email, "name.E"),
    narrowField("2.5.4.6", &Old::Country, TAG_PRINTABLE, Reading::country, nullptr),
    wideField("2.5.4.8", &Old::State, "name.ST too long"),
    wideField("2.5.4.7", &Old::Locality, "name.L too long"),
    wideField("2.5.4.9", &Old::Street, "name.Street too long"),
    wideField("2.5.4.10", &Old::Organization, "name.O too long"),
    wideField("2.5.4.11", &Old::OrgUnit, "name.OU too long"),
    wideField("2.5.4.12", &Old::Title, "name.T too long"),
    wideField("2.5.4.42", &Old::GivenName, "name.GivenName too long"),
    wideField("2.5.4.43", &Old::Initials, "name.Initials too long"),
    wideField("2.5.4.4", &Old::SurName, "name.SurName too long"),
    wideField("2.5.4.65", &Old::Pseudonym, "name.Pseudonym too long"),
    narrowField("1.2.643.100.1", &Old::OGRN, TAG_NUMERIC, Reading::number,
                "Invalid CN.OGRN encoding"),
    narrowField("1.2.643.100.5", &Old::OGRNIP, TAG_NUMERIC, Reading::number,
                "Invalid CN.OGRNIP encoding"),
    narrowField("1.2.643.3.131.1.1", &Old::INN, TAG_NUMERIC, Reading::number,
                "Invalid CN.INN encoding"),
    narrowField("1.2.643.100.3", &Old::SNILS, TAG_NUMERIC, Reading::number,
                "Invalid CN.SNILS encoding"),
    wideField("2.5.4.3", &Old::CommonName, "name.CN too long"),
    wideField("1.2.840.113549.1.9.2", &Old::UnstructuredName, "name.UnstructuredName too long"),
    // The message is that of the field above.
    wideField("2.5.4.17", &Old::PostalCode, "name.UnstructuredName too long"),
};

/// Puts the encoding cursor of a context back, so that the encoder can be used between steps of
/// another encoding.
class CursorGuard {
public:
    explicit CursorGuard(ASN1CTXT* context) : context_(context) {
        rtCopyContext(&saved_, context);
        xe_setp(context, nullptr, 0);
    }
    ~CursorGuard() { rtCopyContext(context_, &saved_); }
    CursorGuard(const CursorGuard&) = delete;
    CursorGuard& operator=(const CursorGuard&) = delete;

private:
    ASN1CTXT* context_;
    ASN1CTXT saved_;
};

[[noreturn]] void throwRuntime(ASN1CTXT* context) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(context));
}

template <class T>
T* newPart(ASN1CTXT* context) {
    T* part = asn1New<T>(context);
    if (part == nullptr) PKIXCMP_THROW(CAException, OUT_OF_MEMORY);
    return part;
}

/// Encodes text under a universal tag and appends it as one RDN.
void addText(ASN1CTXT* context, ASN1OBJID& type, std::string_view text, unsigned int tag,
             ASN1CSeqOfList& list) {
    CursorGuard guard(context);
    int length = xe_charstr(context, text, ASN1EXPL, static_cast<std::uint8_t>(tag));
    if (length < 0) throwRuntime(context);
    ASN1OpenType value(static_cast<std::uint32_t>(length), xe_getp(context));
    pkiAddRDNToList(context, &type, value, list);
}

void addField(ASN1CTXT* context, const Field& field, const Old& record, ASN1CSeqOfList& list) {
    // The list takes zero-terminated text, which a zero inside would cut.
    auto check = [](const auto& text) {
        if (text.find(typename std::decay_t<decltype(text)>::value_type()) != text.npos) {
            PKIXCMP_THROW(Asn1DecodeException, INVALID_LENGTH);
        }
    };
    if (field.narrow != nullptr) {
        const std::string& text = record.*field.narrow;
        check(text);
        if (text.empty()) return;
        pkiAddRDNToListA(context, field.oid, text.c_str(), list, field.tag, field.limit);
    } else {
        const std::wstring& text = record.*field.wide;
        check(text);
        if (text.empty()) return;
        pkiAddRDNToListW(context, field.oid, text.c_str(), list, field.limit);
    }
}

bool isNarrow(int choice) {
    return choice >= ASN1T_DirectoryString::T_utf8String &&
           choice <= ASN1T_DirectoryString::T_ia5String;
}

/// The text of a 16-bit or 32-bit value.
std::wstring wideText(const ASN1T_DirectoryString& value, const char* message) {
    std::wstring text;
    int code = value.t == ASN1T_DirectoryString::T_bmpString ? rtBMPToWCSString(value.u.text, text)
                                                             : rtUCSToWCSString(value.u.text, text);
    if (code < 0) PKIXCMP_THROW(Asn1DecodeException, message);
    return text;
}

void readEmail(std::string& out, const ASN1T_DirectoryString* value, const char* message) {
    if (value == nullptr || !isNarrow(value->t) || value->u.text.length >= EMAIL_LIMIT) {
        PKIXCMP_THROW(Asn1DecodeException, message);
    }
    out = value->u.text.view();
}

/// Never measured and never refused: a value that is no string leaves the field empty.
void readCountry(std::string& out, const ASN1T_DirectoryString* value) {
    if (value == nullptr) return;
    out = isNarrow(value->t) ? std::string(value->u.text.view())
                             : tostring(wideText(*value, "name.C"));
}

void readNumber(std::string& out, const ASN1T_DirectoryString* value, const char* message) {
    if (value == nullptr || (value->t != ASN1T_DirectoryString::T_numericString &&
                             value->t != ASN1T_DirectoryString::T_printableString)) {
        PKIXCMP_THROW(Asn1DecodeException, message);
    }
    out = value->u.text.view().substr(0, NUMBER_CUT);
}

void readField(const Field& field, ASN1T_AttributeTypeAndValue& attribute, Old& out,
               ASN1CTXT* context) {
    const auto* value = attribute.value.as<ASN1T_DirectoryString>();
    switch (field.reading) {
        case Reading::email:
            return readEmail(out.*field.narrow, value, field.message);
        case Reading::country:
            return readCountry(out.*field.narrow, value);
        case Reading::number:
            return readNumber(out.*field.narrow, value, field.message);
        case Reading::wide:
            return add_rdn18(out.*field.wide, WIDE_LIMIT, &attribute, field.message, context);
    }
}

}  // namespace

// ---- Records ----

void CACMPT_PARSED_RDN_OLD::swap(CACMPT_PARSED_RDN_OLD& other) noexcept { std::swap(*this, other); }

const unsigned char CACMPT_PARSED_RDN::m_empty_der[2] = {0x30, 0x00};
const unsigned int CACMPT_PARSED_RDN::m_empty_der_len = sizeof m_empty_der;

void CACMPT_PARSED_RDN::assign(const std::wstring& text) {
    CACMPT_BLOB::operator=(CACMPT_Name(text, 0).encode());
}

void CACMPT_PARSED_RDN::assign(const ASN1T_Name& name) {
    CACMPT_BLOB::operator=(asn1EncodeRecord(name));
}

void CACMPT_PARSED_RDN::assign(const CACMPT_PARSED_RDN_OLD& record) {
    ASN1CtxtRef context;
    ASN1T_Name name;
    for (const Field& field : FIELDS) {
        addField(context.get(), field, record, name.u.rdnSequence);
    }
    assign(name);
}

std::wstring CACMPT_PARSED_RDN::tostring(unsigned int flags) const {
    CACMPT_Name name;
    name.decode(*this);
    return name.toString(flags);
}

void CACMPT_PARSED_RDN::parse(CACMPT_ASN1BERDecodeBuffer& buffer, ASN1T_Name& out) const {
    asn1DecodeRecord(buffer, *this, out);
}

void CACMPT_PARSED_RDN::parse(CACMPT_PARSED_RDN_OLD& out) const {
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_Name name;
    parse(buffer, name);
    if (name.t != ASN1T_Name::T_rdnSequence) {
        PKIXCMP_THROW(Asn1DecodeException, "name.t invalid.");
    }
    CACMPT_PARSED_RDN_OLD().swap(out);
    for (ASN1T_RelativeDistinguishedName& rdn : name.u.rdnSequence) {
        for (ASN1T_AttributeTypeAndValue& attribute : rdn) {
            const std::string oid = rtOidToString(attribute.type);
            auto field = std::find_if(std::begin(FIELDS), std::end(FIELDS),
                                      [&oid](const Field& f) { return oid == f.oid; });
            if (field != std::end(FIELDS)) {
                readField(*field, attribute, out, buffer.getCtxtPtr());
            }
        }
    }
}

// ---- Building and reading parts ----

void pkiAddRDNToList(ASN1CTXT* context, ASN1OBJID* type, ASN1OpenType& value,
                     ASN1CSeqOfList& list) {
    CursorGuard guard(context);
    auto* rdn = newPart<ASN1T_RDNSequence::Node>(context);
    ASN1T_AttributeTypeAndValue* attribute = rdn->value.append(context);
    if (attribute == nullptr) PKIXCMP_THROW(CAException, OUT_OF_MEMORY);
    if (rtSetOID(context, &attribute->type, type) < 0) throwRuntime(context);
    attribute->value = value;
    if (asn1DTC_AttributeTypeAndValue(context, attribute) < 0) throwRuntime(context);
    list.link(rdn);
}

void pkiAddRDNToListA(ASN1CTXT* context, const char* oid, const char* text, ASN1CSeqOfList& list,
                      unsigned int tag, unsigned long limit) {
    ASN1OBJID type = str2oid(oid);
    std::string_view view(text ? text : "");
    if (view.size() > limit) PKIXCMP_THROW(Asn1DecodeException, INVALID_LENGTH);
    addText(context, type, view, tag, list);
}

void pkiAddRDNToListW(ASN1CTXT* context, const char* oid, const wchar_t* text, ASN1CSeqOfList& list,
                      unsigned long limit) {
    constexpr std::size_t utf8Octets = 4;
    ASN1OBJID type = str2oid(oid);
    std::wstring_view view(text ? text : L"");
    if (view.size() >= std::min<unsigned long>(limit, WIDE_LIMIT)) {
        PKIXCMP_THROW(Asn1DecodeException, INVALID_LENGTH);
    }
    const std::size_t room = utf8Octets * view.size() + 1;
    auto* utf8 = static_cast<char*>(rtMemHeapAlloc(context, room));
    if (utf8 == nullptr) PKIXCMP_THROW(CAException, OUT_OF_MEMORY);
    int length = rtWCSToUTF8(view, utf8, room);
    if (length < 0) PKIXCMP_THROW(Asn1Exception, "text has no UTF-8 form");
    addText(context, type, {utf8, static_cast<std::size_t>(length)}, TAG_UTF8, list);
}

void add_rdn18(std::wstring& out, unsigned long limit, ASN1T_AttributeTypeAndValue* value,
               const char* tooLongMessage, ASN1CTXT* context) {
    const auto* string = value->value.as<ASN1T_DirectoryString>();
    std::wstring text;
    switch (string ? string->t : 0) {
        case ASN1T_DirectoryString::T_utf8String:
            text.resize(string->u.text.length + std::size_t{1});
            str1cpy8(text.data(), string->u.text, std::min<unsigned long>(limit, text.size()),
                     tooLongMessage, context);
            text.resize(text.find(L'\0'));
            break;
        case ASN1T_DirectoryString::T_printableString:
        case ASN1T_DirectoryString::T_teletexString:
            str1cpy(text, string->u.text, limit, tooLongMessage);
            break;
        case ASN1T_DirectoryString::T_universalString:
        case ASN1T_DirectoryString::T_bmpString:
            text = wideText(*string, tooLongMessage);
            if (text.size() >= limit || text.find(L'\0') != text.npos) {
                PKIXCMP_THROW(Asn1DecodeException, tooLongMessage);
            }
            break;
        default:
            PKIXCMP_THROW(Asn1DecodeException, tooLongMessage);
    }
    out.swap(text);
}

ASN1T_Name* ASN1T_Name_set(CACMPT_ASN1BERDecodeBuffer& buffer, const CACMPT_PARSED_RDN& name) {
    auto* record = newPart<ASN1T_Name>(buffer.getCtxtPtr());
    name.parse(buffer, *record);
    return record;
}
