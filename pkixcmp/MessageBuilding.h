#pragma once

#include "capilite/Blob.h"
#include "capilite/CAException.h"
#include "capilite/Date.h"
#include "capilite/DecodeBuffer.h"
#include "pkixcmp/MessageCoding.h"
#include "platform/asn1/asn1data.h"

// What client and CA share in building messages. Internal to the library. Failures are the
// caller's to throw, so that they carry the caller's source.

namespace pkixcmp_detail {

/// Reads a DER value into the context of the buffer; false with the error in the context.
template <class T>
bool readDer(ASN1BERDecodeBuffer& buffer, const CACMPT_BLOB& der, T& value) {
    buffer.setBuffer(der.data, der.size);
    return buffer.decode(Schema<T>::type, &value) == ASN_OK;
}

/// Encodes a value and gives its bytes to the blob; false with the error in the context.
template <class T>
bool writeDer(ASN1BEREncodeBuffer& buffer, const T& value, CACMPT_BLOB& der) {
    if (buffer.encode(Schema<T>::type, &value) <= 0) return false;
    der.assign(buffer.getMsgPtr(), buffer.getMsgLen());
    return true;
}

/// A new value in the context; throws when the context has no memory left.
template <class T>
T* make(ASN1CTXT* ctxt) {
    T* value = asn1New<T>(ctxt);
    if (value == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return value;
}
/// A new element at the end of a list.
template <class List>
typename List::value_type& add(ASN1CTXT* ctxt, List& list) {
    auto* value = list.append(ctxt);
    if (value == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return *value;
}

/// A bit string with one bit for each mask of a table, set where the flags hold the mask; true when
/// any is.
template <std::size_t N>
bool setBits(ASN1CTXT* ctxt, ASN1TDynBitStr& target, const std::uint32_t (&masks)[N],
             std::uint32_t flags) {
    std::uint8_t bits[(N + 7) / 8] = {};
    bool any = false;
    for (std::size_t i = 0; i < N; ++i) {
        if ((flags & masks[i]) == 0) continue;
        bits[i / 8] |= static_cast<std::uint8_t>(0x80 >> i % 8);
        any = true;
    }
    target = ASN1TDynBitStr(N, rtCopyBytes(ctxt, bits, sizeof bits));
    if (target.data == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return any;
}

/// PKIStatusInfo of a refusal: the text goes out when it has items, the failures when there are
/// any.
inline void setStatus(ASN1CTXT* ctxt, asn1data::ASN1T_PKIStatusInfo& out, int status,
                      const FreeText& text, std::uint32_t failures) {
    out.m.statusStringPresent = !text.empty();
    if (!text.empty()) FreeText_Encode(ctxt, out.statusString, text);
    out.status = status;
    out.m.failInfoPresent = FailureInfo_Encode(ctxt, out.failInfo, failures);
}

/// The first attribute of a PKCS#10 request that asks for extensions and has a value; null when
/// none does.
template <class Attributes>
auto extensionRequest(Attributes& attributes) -> decltype(&attributes.front()) {
    for (auto& attribute : attributes) {
        bool asks = attribute.type == asn1data::id_ms_certExtensions ||
                    attribute.type == asn1data::pkcs_9_at_extensionRequest;
        if (asks && !attribute.values.empty()) return &attribute;
    }
    return nullptr;
}

/// UTCTime text, which is referred to.
inline asn1data::ASN1T_Time utcTime(std::string_view text) {
    asn1data::ASN1T_Time time;
    time.t = asn1data::ASN1T_Time::T_utcTime;
    time.u.text = ASN1TString(text);
    return time;
}
/// UTCTime up to the year 2049, GeneralizedTime from 2050 (RFC 5280 4.1.2.5), in the context of the
/// buffer.
inline asn1data::ASN1T_Time certificateTime(ASN1BEREncodeBuffer& buffer, const CACMPT_Date& date) {
    asn1data::ASN1T_Time time;
    time.t =
        date.year() < 2050 ? asn1data::ASN1T_Time::T_utcTime : asn1data::ASN1T_Time::T_generalTime;
    time.u.text = ASN1TString(std::string_view(date2cpy(buffer, date, time.t)));
    return time;
}

/// Makes a general name a directory name; the name is referred to.
inline void setDirectoryName(asn1data::ASN1T_GeneralName& general,
                             const asn1data::ASN1T_Name& name) {
    general.t = asn1data::ASN1T_GeneralName::T_directoryName;
    general.u.directoryName = const_cast<asn1data::ASN1T_Name*>(&name);
}

}  // namespace pkixcmp_detail
