#include "pkixcmp/MessageCoding.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "capilite/AsnTime.h"
#include "capilite/CAException.h"
#include "capilite/Name.h"
#include "capilite/Oid.h"
#include "capilite/Strings.h"
#include "pkixcmp/MessageBuilding.h"
#include "platform/support/Text.h"

using namespace asn1data;

namespace {

void* checked(void* memory) {
    if (memory == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return memory;
}

[[noreturn]] void throwRuntime(ASN1CTXT* context) {
    PKIXCMP_THROW(Asn1Exception, rtErrGetText(context));
}

// Text behind the keyword and its colon, in UTF-8 in the context; false when it has no such form.
bool narrowValue(const wchar_t* value, ASN1CTXT* context, ASN1TString& out) {
    const int size = WideCharToMultiByte(0, 0, value, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return false;
    auto* text = static_cast<char*>(checked(context->alloc(static_cast<std::size_t>(size))));
    if (WideCharToMultiByte(0, 0, value, -1, text, size, nullptr, nullptr) <= 0) return false;
    out = ASN1TString(static_cast<std::uint32_t>(size - 1), text);
    return true;
}

void refer(const CACMPT_BLOB& blob, ASN1TDynOctStr& field, bool& present) {
    if (blob.size == 0) return;
    field = blob.octets();
    present = true;
}

void encodeGeneralInfo(ASN1CTXT* context, ASN1T_GenMsgContent& out, const CACMPT_GeneralInfo& in) {
    out.clear();
    for (const CACMPT_InfoTypeAndValue& item : in) {
        ASN1T_InfoTypeAndValue node;
        if (item.value.size != 0) {
            const std::uint8_t* bytes = rtCopyBytes(context, item.value.data, item.value.size);
            if (bytes == nullptr) PKIXCMP_THROW(CAException, "out of memory");
            node.infoValue = ASN1OpenType(item.value.size, bytes);
            node.m.infoValuePresent = true;
        }
        if (str2oid(context, item.oid.c_str(), &node.infoType)) {
            PKIXCMP_THROW(Asn1DecodeException, "Invalid oid");
        }
        if (asn1DTC_InfoTypeAndValue(context, &node) < 0) throwRuntime(context);
        pkixcmp_detail::add(context, out) = node;
    }
}

void parseGeneralInfo(const ASN1T_GenMsgContent& in, CACMPT_GeneralInfo& out) {
    if (in.count > PKIXCMP_LIST_ITEMS) {
        PKIXCMP_THROW(Asn1DecodeException, "too many items of generalInfo");
    }
    char oid[128];
    for (const ASN1T_InfoTypeAndValue& item : in) {
        str1cpy(oid, item.infoType, sizeof oid, "oid too long");
        out.emplace_back();
        out.back().oid = oid;
        if (item.m.infoValuePresent) {
            out.back().value.assign(item.infoValue.data, item.infoValue.numocts);
        }
    }
}

void parseName(const ASN1T_GeneralName& name, wchar_t (&out)[PKIXCMP_NAME_CHARS]) {
    CACMPT_PARSED_RDN der;
    GeneralizedNameParse(name, der);
    copyNameText(der, out);
}

ASN1TString encodeElement(ASN1CTXT* context, const FreeTextItem& item) {
    std::wstring text = item.language.toUnicode();
    text += item.text.c_str();  // an element has no zero inside
    std::size_t size = 1;
    for (wchar_t c : text) size += static_cast<std::size_t>(std::max(rtUTF8CharSize(c), 0));
    auto* utf8 = static_cast<char*>(checked(context->alloc(size)));
    const int length = rtWCSToUTF8(text, utf8, size);
    if (length < 0) PKIXCMP_THROW(Asn1EncodeException, "invalid ASN1T_PKIFreeText");
    return ASN1TString(static_cast<std::uint32_t>(length), utf8);
}

template <int Count>
std::uint32_t parseBits(const ASN1TDynBitStr& in, const std::uint32_t (&masks)[Count]) {
    std::uint32_t set = 0;
    for (std::uint32_t i = 0; i < Count; ++i) {
        if (in.test(i)) set |= masks[i];
    }
    return set;
}

}  // namespace

void ASN1CMPMessage_Encode(const PKIXCMP_Message& message, ASN1T_PKIMessage& out,
                           ASN1BEREncodeBuffer& encodeBuffer, ASN1BERDecodeBuffer& decodeBuffer) {
    ASN1T_PKIHeader& header = out.header;
    header.pvno = 0;
    if (message.RecipientGeneralName[0] != L'\0' &&
        str2general(message.RecipientGeneralName, header.recipient, encodeBuffer) != 0) {
        PKIXCMP_THROW(Asn1DecodeException, "invalid RecipientGeneralName");
    }
    if (message.SenderGeneralName[0] != L'\0' &&
        str2general(message.SenderGeneralName, header.sender, encodeBuffer) != 0) {
        PKIXCMP_THROW(Asn1DecodeException, "invalid SenderGeneralName");
    }
    header.m.messageTimePresent = true;
    header.messageTime = ASN1TString(std::string_view(ASN1GeneralizedTime_current(encodeBuffer)));
    refer(message.transactionID, header.transactionID, header.m.transactionIDPresent);
    refer(message.sender_nonce, header.senderNonce, header.m.senderNoncePresent);
    refer(message.sender_kid, header.senderKID, header.m.senderKIDPresent);
    if (!message.GeneralInfo.empty()) {
        encodeGeneralInfo(decodeBuffer.getCtxtPtr(), header.generalInfo, message.GeneralInfo);
        header.m.generalInfoPresent = true;
    }
    if (!message.FreeText.empty()) {
        FreeText_Encode(encodeBuffer.getCtxtPtr(), header.freeText, message.FreeText);
        header.m.freeTextPresent = true;
    }
}

void ASN1CMPMessage_Parse(ASN1T_PKIMessage& in, PKIXCMP_Message& message) {
    const ASN1T_PKIHeader& header = in.header;
    parseName(header.recipient, message.RecipientGeneralName);
    parseName(header.sender, message.SenderGeneralName);
    message.SubmittedWhen = CACMPT_Date(0, 0);
    if (header.m.messageTimePresent) {
        date1cpy(message.SubmittedWhen, header.messageTime, ASN1T_Time::T_generalTime);
    }
    const auto octets = [](CACMPT_BLOB& target, bool present, const ASN1TDynOctStr& source) {
        target.size = 0;
        if (present) target.assign(source);
    };
    octets(message.sender_kid, header.m.senderKIDPresent, header.senderKID);
    octets(message.transactionID, header.m.transactionIDPresent, header.transactionID);
    octets(message.sender_nonce, header.m.senderNoncePresent, header.senderNonce);
    message.GeneralInfo.clear();
    if (header.m.generalInfoPresent) parseGeneralInfo(header.generalInfo, message.GeneralInfo);
    if (header.m.freeTextPresent) {
        ASN1CtxtRef context;
        FreeText_Parse(context.get(), message.FreeText, header.freeText);
    }
}

int str2general(const wchar_t* text, ASN1T_GeneralName& out, ASN1BEREncodeBuffer& buffer) {
    if (text == nullptr) return 1;
    const std::wstring_view whole(text);
    const std::size_t colon = whole.find(L':');
    if (colon == whole.npos) return 1;
    const std::size_t begin = whole.find_first_not_of(L" \t\n\v\f\r", colon + 1);
    const wchar_t* value = text + std::min(begin, whole.size());
    ASN1CTXT* context = buffer.getCtxtPtr();
    if (whole.starts_with(L"rfc:")) {
        if (!narrowValue(value, context, out.u.rfc822Name)) return 1;
        out.t = ASN1T_GeneralName::T_rfc822Name;
    } else if (whole.starts_with(L"dns:")) {
        if (!narrowValue(value, context, out.u.dNSName)) return 1;
        out.t = ASN1T_GeneralName::T_dNSName;
    } else if (whole.starts_with(L"dn:")) {
        auto* name = pkixcmp_detail::make<ASN1T_Name>(context);
        str2dn(value, *name, buffer);
        out.t = ASN1T_GeneralName::T_directoryName;
        out.u.directoryName = name;
    } else {
        return 1;
    }
    return 0;
}

int str2dn(const wchar_t* text, ASN1T_Name& out, ASN1BEREncodeBuffer& buffer) {
    const CACMPT_BLOB der = CACMPT_Name(text, 0).encode();
    // Decoding copies its input into the context, where the name then lives with the message.
    CACMPT_ASN1BERDecodeBuffer decodeBuffer(buffer.getContext());
    decodeBuffer.setBuffer(der.data, der.size);
    if (ASN1C_Name(decodeBuffer, out).Decode() < 0) throwRuntime(decodeBuffer.getCtxtPtr());
    return 0;
}

void GeneralizedNameParse(const ASN1T_GeneralName& name, CACMPT_PARSED_RDN& out) {
    if (name.t != ASN1T_GeneralName::T_directoryName || name.u.directoryName == nullptr) {
        PKIXCMP_THROW(Asn1DecodeException, "Unsupported GeneralName.t");
    }
    out.assign(*name.u.directoryName);
}

void copyNameText(const CACMPT_PARSED_RDN& name, wchar_t (&out)[PKIXCMP_NAME_CHARS]) {
    const std::wstring text = name.tostring(3);
    const std::size_t length = std::min(text.size(), PKIXCMP_NAME_CHARS - 1);
    text.copy(out, length);
    out[length] = L'\0';
}

void FreeText_Encode(ASN1CTXT* context, ASN1T_PKIFreeText& out, const FreeText& text) {
    out.clear();
    for (const FreeTextItem& item : text) {
        const ASN1TString element = encodeElement(context, item);
        pkixcmp_detail::add(context, out) = element;
    }
}

void FreeText_Parse(ASN1CTXT* context, FreeText& out, const ASN1T_PKIFreeText& in) {
    wchar_t text[FREE_TEXT_CHARS];
    for (const ASN1TString& element : in) {
        const std::string_view utf8 = element.view();
        str1cpy8(text, utf8.substr(0, utf8.find('\0')), FREE_TEXT_CHARS, "Free text too long",
                 context);
        const wchar_t* rest = text;
        const Encoding language = Encoding::fromUnicode(rest);
        out.emplace_back(rest, language);
    }
}

void add_extra_certs(ASN1BERDecodeBuffer& buffer, ASN1T_PKIMessage& message,
                     const std::list<CACMPT_BLOB>& certificates) {
    if (certificates.empty()) return;
    if (!message.m.extraCertsPresent) {
        message.m.extraCertsPresent = true;
        message.extraCerts.clear();
    }
    for (const CACMPT_BLOB& encoded : certificates) {
        ASN1T_Certificate certificate;
        buffer.setBuffer(encoded.data, encoded.size);
        if (ASN1C_Certificate(buffer, certificate).Decode() < 0) throwRuntime(buffer.getCtxtPtr());
        pkixcmp_detail::add(buffer.getCtxtPtr(), message.extraCerts) = certificate;
    }
}

bool FailureInfo_Encode(ASN1CTXT* context, ASN1TDynBitStr& out, std::uint32_t failures) {
    return pkixcmp_detail::setBits(context, out, FailureInfo::sequence, failures);
}

std::uint32_t FailureInfo_Parse(const ASN1TDynBitStr& in) {
    return parseBits(in, FailureInfo::sequence);
}

bool ReasonFlags_Encode(ASN1CTXT* context, ASN1TDynBitStr& out, std::uint32_t reasons) {
    return pkixcmp_detail::setBits(context, out, ReasonFlags::sequence, reasons);
}

std::uint32_t ReasonFlags_Parse(const ASN1TDynBitStr& in) {
    return parseBits(in, ReasonFlags::sequence);
}
