#include "platform/asn1/RevokedEntries.h"

#include <cstring>

#include "platform/asn1/Numbers.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"

namespace asn1 {

int readRevokedEntry(const std::uint8_t*& p, const std::uint8_t* end, RevokedEntry& entry) {
    int code = readHeader(p, end, entry.whole);
    if (code != ASN_OK) return code;
    if (entry.whole.id != tagSequence) return ASN_E_INVTAG;
    p = entry.whole.content;
    end = entry.whole.end;
    code = readHeader(p, end, entry.serial);
    if (code != ASN_OK) return code;
    if (entry.serial.id != tagInteger) return ASN_E_INVTAG;
    if (entry.serial.content == entry.serial.end) return ASN_E_INVLEN;
    p = entry.serial.next;
    Header h;
    code = readHeader(p, end, h);
    if (code != ASN_OK) return code;
    std::uint8_t id = h.id & static_cast<std::uint8_t>(~constructed);
    if (id != tagUtcTime && id != tagGeneralizedTime) return ASN_E_INVTAG;
    p = h.next;
    if (p != end) {
        code = readHeader(p, end, h);
        if (code != ASN_OK) return code;
        if (h.id != tagSequence) return ASN_E_INVTAG;
        p = h.next;
        if (p != end) return ASN_E_TRAILING;
    }
    p = entry.whole.next;
    return ASN_OK;
}

int checkRevokedEntries(const std::uint8_t*& p, const std::uint8_t* end) {
    RevokedEntry entry;
    while (p != end) {
        int code = readRevokedEntry(p, end, entry);
        if (code != ASN_OK) return code;
    }
    return ASN_OK;
}

}  // namespace asn1

namespace asn1data {
namespace {

int fail(ASN1CTXT* ctxt, int code) {
    ctxt->setError(code, asn1::errorName(code), 0);
    return code;
}

int decodeEntry(ASN1CTXT* ctxt, const asn1::Header& entry, const std::uint8_t* begin,
                ASN1T_RevokedCertificate& out) {
    return asn1::decodeBer(ctxt, Schema<ASN1T_RevokedCertificate>::type, begin,
                           static_cast<std::size_t>(entry.next - begin), &out, nullptr);
}

}  // namespace

ASN1T_RevokedCertificates::Reader::Reader(const ASN1T_RevokedCertificates& list)
    : at_(list.raw.data), end_(list.raw.data + list.raw.numocts), node_(list.built.head) {}

bool ASN1T_RevokedCertificates::Reader::next(ASN1CTXT* ctxt, ASN1T_RevokedCertificate& out) {
    if (at_ != end_) {
        const std::uint8_t* begin = at_;
        asn1::RevokedEntry entry;
        int code = asn1::readRevokedEntry(at_, end_, entry);
        if (code != ASN_OK) fail(ctxt, code);
        if (code == ASN_OK && decodeEntry(ctxt, entry.whole, begin, out) == ASN_OK) return true;
        at_ = end_ = nullptr;
        node_ = nullptr;
        return false;
    }
    if (node_ == nullptr) return false;
    out = static_cast<const ASN1TSeqOf<ASN1T_RevokedCertificate>::Node*>(node_)->value;
    node_ = node_->next;
    return true;
}

int ASN1T_RevokedCertificates::find(ASN1CTXT* ctxt, const ASN1TDynOctStr& serial,
                                    ASN1T_RevokedCertificate& out) const {
    const std::uint8_t* p = raw.data;
    const std::uint8_t* end = p + raw.numocts;
    while (p != end) {
        const std::uint8_t* begin = p;
        asn1::RevokedEntry entry;
        int code = asn1::readRevokedEntry(p, end, entry);
        if (code != ASN_OK) return fail(ctxt, code);
        std::size_t length = static_cast<std::size_t>(entry.serial.end - entry.serial.content);
        if (length == serial.numocts && !std::memcmp(entry.serial.content, serial.data, length)) {
            code = decodeEntry(ctxt, entry.whole, begin, out);
            return code == ASN_OK ? 1 : code;
        }
    }
    if (built.empty()) return 0;
    const char* text = asn1::bigIntText(ctxt, serial.data, serial.numocts);
    if (text == nullptr) return fail(ctxt, ASN_E_NOMEM);
    for (const ASN1T_RevokedCertificate& entry : built) {
        if (entry.userCertificate == nullptr || std::strcmp(entry.userCertificate, text) != 0) {
            continue;
        }
        out = entry;
        return 1;
    }
    return 0;
}

}  // namespace asn1data
