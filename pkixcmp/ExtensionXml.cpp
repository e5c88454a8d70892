#include "pkixcmp/ExtensionXml.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "capilite/BigInt.h"
#include "capilite/CAException.h"
#include "capilite/Oid.h"
#include "pkixcmp/Extensions.h"
#include "platform/asn1/asn1data.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/CA_CMP_Util"

using namespace asn1data;
using pkixcmp_detail::XmlCursor;

const char* const KeyUsageNames[KEY_USAGE_BITS] = {
    "digitalSignature", "nonRepudiation", "keyEncipherment", "dataEncipherment", "keyAgreement",
    "keyCertSign",      "cRLSign",        "encipherOnly",    "decipherOnly"};

const char* const CRLReasonNames[CRL_REASON_NAMES] = {
    "unspecified",  "keyCompromise",        "caCompromise",    "affiliationChanged",
    "superseded",   "cessationOfOperation", "certificateHold", "",
    "removeFromCRL"};

namespace pkixcmp_detail {

std::string_view stripped(std::string_view text) {
    constexpr std::string_view white = " \t\n\r";
    const std::size_t begin = text.find_first_not_of(white);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(white) - begin + 1);
}

namespace {

constexpr std::string_view betweenTags = " \n";

std::string_view withoutLeading(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(betweenTags), text.size()));
}

}  // namespace

bool XmlCursor::tag(std::string_view& inner) {
    const std::string_view text = withoutLeading(rest_);
    const std::size_t end = text.find('>');
    if (!text.starts_with('<') || end == text.npos) return false;
    inner = text.substr(1, end - 1);
    rest_ = withoutLeading(text.substr(end + 1));
    return true;
}

bool XmlCursor::endTag(std::string_view& name) {
    const XmlCursor before = *this;
    std::string_view inner;
    if (tag(inner) && stripped(inner).starts_with('/')) {
        name = stripped(stripped(inner).substr(1));
        return true;
    }
    *this = before;
    return false;
}

bool XmlCursor::emptyTag(std::string_view& name) {
    const XmlCursor before = *this;
    std::string_view inner;
    if (tag(inner) && stripped(inner).ends_with('/')) {
        inner = stripped(inner);
        name = stripped(inner.substr(0, inner.size() - 1));
        return true;
    }
    *this = before;
    return false;
}

std::string_view XmlCursor::text() {
    const std::string_view found = rest_.substr(0, rest_.find('<'));
    rest_.remove_prefix(found.size());
    return found;
}

namespace {

template <class T>
T* newValue(ASN1CTXT* context) {
    T* value = asn1New<T>(context);
    if (value == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return value;
}

bool opens(XmlCursor& text, std::string_view name) {
    std::string_view tag;
    return text.tag(tag) && tag == name;
}

bool closes(XmlCursor& text, std::string_view name) {
    std::string_view tag;
    return text.endTag(tag) && tag == name && text.atEnd();
}

int keyUsageBit(std::string_view name) {
    for (int i = 0; i < KEY_USAGE_BITS; ++i) {
        if (name == KeyUsageNames[i]) return i;
    }
    return -1;
}

// Reads what stands inside a tag as the runtime does.
template <class T>
bool readByRuntime(ASN1CTXT* context, const std::string& name, std::string_view inner, T& out) {
    const std::string text = "<" + name + ">" + std::string(inner) + "</" + name + ">";
    return rtDecodeXer(context, Schema<T>::type, text, &out) >= 0;
}

// The digits that the bits are written as when one of them has no name.
bool readBinaryKeyUsage(ASN1CTXT* context, XmlCursor text, void*& value) {
    if (!opens(text, "KeyUsage")) return false;
    const std::string_view digits = stripped(text.text());
    if (digits.empty() || digits.find_first_not_of("01") != digits.npos) return false;
    auto* usage = newValue<ASN1T_KeyUsage>(context);
    value = usage;
    return closes(text, "KeyUsage") && readByRuntime(context, "KeyUsage", digits, *usage);
}

// The tags of the bits up to the end tag; `last` becomes the highest bit, 0 when there is none.
bool readKeyUsageBits(XmlCursor& text, std::uint8_t (&bits)[2], int& last) {
    std::string_view name;
    while (text.emptyTag(name)) {
        const int bit = keyUsageBit(name);
        if (bit < 0) return false;
        bits[bit / 8] = static_cast<std::uint8_t>(bits[bit / 8] | 0x80 >> bit % 8);
        last = std::max(last, bit);
    }
    return closes(text, "KeyUsage");
}

bool readKeyUsage(ASN1CTXT* context, XmlCursor& text, void*& value) {
    std::uint8_t bits[2] = {};
    int count = KEY_USAGE_BITS;
    if (readBinaryKeyUsage(context, text, value)) return true;
    if (!text.atEnd()) {
        int last = 0;
        std::string_view name;
        const bool empty = text.emptyTag(name) && name == "KeyUsage" && text.atEnd();
        if (!empty && !(opens(text, "KeyUsage") && readKeyUsageBits(text, bits, last))) {
            return false;
        }
        count = last + 1;
    }
    auto* usage = newValue<ASN1T_KeyUsage>(context);
    usage->numbits = static_cast<std::uint32_t>(count);
    usage->data = rtCopyBytes(context, bits, sizeof bits);
    if (usage->data == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    value = usage;
    return true;
}

// A reason by its name; any other text is a number, 0 when it is none.
std::int32_t reasonFromText(std::string_view text) {
    const std::string word(text);
    for (int i = 0; i < CRL_REASON_NAMES; ++i) {
        if (*CRLReasonNames[i] != '\0' && word == CRLReasonNames[i]) return i;
    }
    return static_cast<std::int32_t>(std::strtoul(word.c_str(), nullptr, 0));
}

bool readReason(ASN1CTXT* context, XmlCursor& text, void*& value) {
    std::int32_t reason = 0;
    if (!text.atEnd()) {
        std::string_view name;
        if (!opens(text, "CRLReason")) return false;
        if (!text.emptyTag(name)) name = stripped(text.text());
        if (name.empty() || !closes(text, "CRLReason")) return false;
        reason = reasonFromText(name);
    }
    auto* record = newValue<ASN1T_CRLReason>(context);
    record->value = reason;
    value = record;
    return true;
}

// The text inside the one tag of the name.
bool readInner(XmlCursor& text, std::string_view name, std::string_view& inner) {
    if (!opens(text, name)) return false;
    inner = stripped(text.text());
    return closes(text, name);
}

bool readHoldInstruction(ASN1CTXT* context, XmlCursor& text, void*& value) {
    if (text.atEnd()) return true;
    std::string_view inner;
    auto* record = newValue<ASN1T_HoldInstruction>(context);
    value = record;
    return readInner(text, "HoldInstruction", inner) &&
           !str2oid(context, std::string(inner).c_str(), &record->value);
}

bool readInvalidityDate(ASN1CTXT* context, XmlCursor& text, void*& value) {
    if (text.atEnd()) return true;
    std::string_view inner;
    if (!readInner(text, "InvalidityDate", inner)) return false;
    ASN1BEREncodeBuffer buffer;
    if (ASN1CGeneralizedTime(buffer, inner, false).status() != 0) return false;
    auto* record = newValue<ASN1T_InvalidityDate>(context);
    const char* copy = rtCopyCharStr(context, inner);
    if (copy == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    record->value = ASN1TString(std::string_view(copy, inner.size()));
    value = record;
    return true;
}

// Hexadecimal digits of a number in the form of the records; null when they are none.
const char* numberText(ASN1CTXT* context, std::string_view digits) {
    ASN1BigInt number;
    if (rtBigIntSetStr(context, &number, std::string(digits).c_str(), 16) < 0 || number.sign < 0) {
        return nullptr;
    }
    if (number.mag.empty()) number.mag.push_back('\0');
    std::string canonical(2 * number.mag.size() + 4, '\0');
    ASN1T_BigInt_set(canonical.data(), reinterpret_cast<unsigned char*>(number.mag.data()),
                     static_cast<int>(number.mag.size()));
    const char* copy = rtCopyCharStr(context, canonical.c_str());
    if (copy == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return copy;
}

bool readCrlNumber(ASN1CTXT* context, XmlCursor& text, void*& value) {
    if (text.atEnd()) return true;
    std::string_view inner;
    if (!readInner(text, "CRLNumber", inner)) return false;
    auto* record = newValue<ASN1T_CRLNumber>(context);
    value = record;
    if (!inner.starts_with("0x") && !inner.starts_with("0X")) {
        return readByRuntime(context, "CRLNumber", inner, *record);
    }
    record->value = numberText(context, inner.substr(2));
    return record->value != nullptr;
}

bool readNoCheck(ASN1CTXT* context, XmlCursor& text, void*& value) {
    std::string_view name;
    if (!text.emptyTag(name) || name != "NULLParams" || !text.atEnd()) return false;
    value = newValue<ASN1T_NULLParams>(context);
    return true;
}

constexpr ExtensionTextForm forms[] = {
    {id_ce_keyUsage, "Invalid key usage format", readKeyUsage},
    {id_ce_reasonCode, "Invalid CRLReason format", readReason},
    {id_ce_instructionCode, "Invalid HoldInstruction format", readHoldInstruction},
    {id_ce_invalidityDate, "Invalid InvalidityDate format", readInvalidityDate},
    {id_ce_cRLNumber, "Invalid CRLNumber format", readCrlNumber},
    {id_pkix_ocsp_nocheck, "Invalid NULLParams format", readNoCheck},
};

}  // namespace

const ExtensionTextForm* findExtensionTextForm(const ASN1TObjId& id) {
    for (const ExtensionTextForm& form : forms) {
        if (form.id == id) return &form;
    }
    return nullptr;
}

}  // namespace pkixcmp_detail

namespace {

// Gives what the operation reads and takes it off the text.
std::string consume(std::string& text, bool (XmlCursor::*operation)(std::string_view&)) {
    XmlCursor cursor(text);
    std::string_view found;
    if (!(cursor.*operation)(found)) PKIXCMP_THROW(Asn1DecodeException, "Invalid xml format");
    std::string result(found);
    text.erase(0, text.size() - cursor.rest().size());
    return result;
}

}  // namespace

std::string get_sub_xml(std::string& text) { return consume(text, &XmlCursor::tag); }

std::string get_sub_xml_lend(std::string& text) { return consume(text, &XmlCursor::endTag); }

std::string get_sub_xml_rend(std::string& text) { return consume(text, &XmlCursor::emptyTag); }

std::string get_not_xml(std::string& text) {
    std::string result(XmlCursor(text).text());
    text.erase(0, result.size());
    return result;
}

bool is_lend(const std::string& tag) { return pkixcmp_detail::stripped(tag).starts_with('/'); }
