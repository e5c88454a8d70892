#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/asn1/Buffers.h"
#include "platform/asn1/Numbers.h"
#include "platform/asn1/ObjectIdentifier.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"

// The DER encoder: one interpreter of schemas. It writes from the back of a growing array, so every
// length is known when its header is written. What was decoded is written as it stood.

namespace asn1 {
namespace {

class Encoder {
public:
    explicit Encoder(std::vector<std::uint8_t>& bytes) : bytes_(bytes) {
        if (bytes_.empty()) bytes_.resize(1024);
        p_ = bytes_.data() + bytes_.size();
    }

    bool value(const Type& type, const void* in) {
        if (type.kind == Kind::choice) return choice(type, in);
        if (type.kind == Kind::any) return openType(at<ASN1OpenType>(in));
        return tagged(type, type.id, in);
    }

    std::size_t length() const { return static_cast<std::size_t>(end() - p_); }
    std::size_t start() const { return static_cast<std::size_t>(p_ - bytes_.data()); }
    void report(ASN1CTXT* ctxt) const {
        ctxt->setError(code_, errorName(code_), 0);
        path_.addTo(*ctxt);
    }
    int code() const { return code_; }

private:
    const std::uint8_t* end() const { return bytes_.data() + bytes_.size(); }
    bool fail(int code) {
        code_ = code;
        return false;
    }

    /// Room for `size` octets in front of what is written.
    bool room(std::size_t size) {
        if (size <= start()) [[likely]] {
            p_ -= size;
            return true;
        }
        std::size_t used = length();
        if (size > maxInput - used) return fail(ASN_E_TOOBIG);
        std::vector<std::uint8_t> grown(std::max(2 * bytes_.size(), used + size));
        if (used != 0) std::memcpy(grown.data() + (grown.size() - used), p_, used);
        bytes_ = std::move(grown);
        p_ = bytes_.data() + (bytes_.size() - used - size);
        return true;
    }
    bool put(const void* data, std::size_t size) {
        if (!room(size)) return false;
        if (size != 0) std::memcpy(p_, data, size);
        return true;
    }
    /// Identifier and length of what has been written since there were `before` octets.
    bool header(std::uint8_t id, std::size_t before) {
        std::size_t content = length() - before;
        if (!room(1 + lengthOctets(content))) return false;
        p_[0] = id;
        putLength(p_ + 1, content);
        return true;
    }

    bool tagged(const Type& type, std::uint8_t id, const void* in) {
        if (type.kind == Kind::raw) return whole(at<ASN1TDynOctStr>(in), id);
        std::size_t before = length();
        return content(type, in) && header(id, before);
    }

    bool fieldValue(const Field& f, const void* in) {
        if (f.explicitTag) {
            std::size_t before = length();
            DepthGuard guard(depth_);
            if (guard.tooDeep()) return fail(ASN_E_DEPTH);
            return value(*f.type, in) && header(f.id, before);
        }
        return f.id == 0 ? value(*f.type, in) : tagged(*f.type, f.id, in);
    }

    bool content(const Type& type, const void* in) {
        switch (type.kind) {
            case Kind::boolean:
                return put(&at<ASN1TBool>(in).octet, 1);
            case Kind::integer:
            case Kind::enumerated:
                return number(at<std::int32_t>(in));
            case Kind::unsignedInteger:
                return number(at<std::uint32_t>(in));
            case Kind::bigInteger:
                return bigNumber(at<ASN1TBigInt>(in));
            case Kind::bitString:
                return bits(at<ASN1TDynBitStr>(in));
            case Kind::octetString: {
                const auto& s = at<ASN1TDynOctStr>(in);
                return put(s.data, s.numocts);
            }
            case Kind::null:
                return true;
            case Kind::objectIdentifier: {
                const auto& id = at<ASN1TObjId>(in);
                return isObjectIdentifier(id) ? put(id.data, id.numocts) : fail(ASN_E_INVVAL);
            }
            case Kind::string: {
                const auto& s = at<ASN1TString>(in);
                return put(s.data, s.length);
            }
            case Kind::wrapped: {
                const auto& open = at<ASN1OpenType>(in);
                return open.decoded && open.numocts == 0 ? decodedValue(open)
                                                         : put(open.data, open.numocts);
            }
            case Kind::sequence:
                return fields(type, in);
            case Kind::sequenceOf:
                return list(type, at<ASN1CSeqOfList>(in));
            case Kind::setOf:
                return set(type, at<ASN1CSeqOfList>(in));
            case Kind::revoked:
                return revoked(type, in);
            case Kind::any:
            case Kind::raw:
            case Kind::choice:
                break;
        }
        return fail(ASN_E_INVTAG);
    }

    bool number(std::int64_t number) {
        do {
            if (!room(1)) return false;
            *p_ = static_cast<std::uint8_t>(number);
            number >>= 8;
        } while (number != (*p_ >= 0x80 ? -1 : 0));
        return true;
    }

    bool bigNumber(const char* text) {
        long count = bigIntLength(text);
        if (count < 0) return fail(static_cast<int>(count));
        if (!room(static_cast<std::size_t>(count))) return false;
        bigIntContent(text, p_);
        return true;
    }

    bool bits(const ASN1TDynBitStr& s) {
        auto unused = static_cast<std::uint8_t>((8 - s.numbits % 8) % 8);
        return put(s.data, s.numocts()) && put(&unused, 1);
    }

    /// An encoding that is kept whole; its identifier must be the one expected.
    bool whole(const ASN1TDynOctStr& s, std::uint8_t id) {
        Header h;
        if (s.numocts == 0) return fail(ASN_E_MISSING);
        if (readHeader(s.data, s.data + s.numocts, h) != ASN_OK || h.next != s.data + s.numocts ||
            (id != 0 && h.id != id)) {
            return fail(ASN_E_INVVAL);
        }
        return put(s.data, s.numocts);
    }

    bool openType(const ASN1OpenType& open) {
        if (open.decoded && open.numocts == 0) return decodedValue(open);
        return whole(ASN1TDynOctStr(open.numocts, open.data), 0);
    }
    bool decodedValue(const ASN1OpenType& open) {
        if (open.type == nullptr) return fail(ASN_E_MISSING);
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        return value(*open.type, open.decoded);
    }

    bool fields(const Type& type, const void* in) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        for (const Field* f = type.fields + type.fieldCount; f-- != type.fields;) {
            if (!isWritten(*f, in)) continue;
            if (!fieldValue(*f, static_cast<const char*>(in) + f->offset)) {
                path_.name(f->name);
                return false;
            }
        }
        return true;
    }

    bool choice(const Type& type, const void* in) {
        int t = at<int>(in);
        if (t < 1 || t > type.fieldCount) return fail(ASN_E_CHOICE);
        const Field& f = type.fields[t - 1];
        const void* chosen = alternativeValue(f, in);
        if (chosen == nullptr ? !fail(ASN_E_MISSING) : !fieldValue(f, chosen)) {
            path_.name(f.name);
            return false;
        }
        return true;
    }

    bool element(const Type& type, const ASN1CSeqOfList::NodeBase* node, std::uint32_t index) {
        if (value(*type.element, reinterpret_cast<const char*>(node) + nodeValueOffset))
            return true;
        path_.index(index);
        return false;
    }

    bool list(const Type& type, const ASN1CSeqOfList& in) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        std::uint32_t index = in.count;
        for (const auto* node = in.tail; node != nullptr; node = node->prev) {
            if (!element(type, node, --index)) return false;
        }
        return true;
    }

    /// X.690 11.6: the encodings of a SET OF stand in ascending order.
    bool set(const Type& type, const ASN1CSeqOfList& in) {
        std::size_t before = length();
        if (!list(type, in)) return false;
        if (in.decoded || in.count < 2) return true;
        std::vector<std::string_view> parts;
        const std::uint8_t* last = end() - before;
        for (const std::uint8_t* p = p_; p != last;) {
            Header h;
            if (readHeader(p, last, h) != ASN_OK) return fail(ASN_E_INVVAL);
            parts.emplace_back(reinterpret_cast<const char*>(p), h.next - p);
            p = h.next;
        }
        std::ranges::sort(parts);
        std::string sorted;
        for (std::string_view part : parts) sorted += part;
        std::memcpy(p_, sorted.data(), sorted.size());
        return true;
    }

    bool revoked(const Type& type, const void* in) {
        const auto& entries = at<asn1data::ASN1T_RevokedCertificates>(in);
        return list(type, entries.built) && put(entries.raw.data, entries.raw.numocts);
    }

    std::vector<std::uint8_t>& bytes_;
    std::uint8_t* p_;
    int code_ = 0;
    int depth_ = 0;
    FaultPath path_;
};

}  // namespace
}  // namespace asn1

int ASN1BEREncodeBuffer::encode(const asn1::Type& type, const void* value) {
    asn1::Encoder encoder(bytes_);
    bool good = encoder.value(type, value);
    start_ = good ? encoder.start() : bytes_.size();
    if (good) return static_cast<int>(encoder.length());
    encoder.report(getCtxtPtr());
    return encoder.code();
}

const std::uint8_t* ASN1BEREncodeBuffer::getMsgCopy() const {
    return rtCopyBytes(getCtxtPtr(), getMsgPtr(), getMsgLen());
}

int rtEncodeDer(ASN1CTXT* ctxt, const asn1::Type& type, const void* value,
                const std::uint8_t** out) {
    std::vector<std::uint8_t> bytes;
    asn1::Encoder encoder(bytes);
    if (!encoder.value(type, value)) {
        encoder.report(ctxt);
        return encoder.code();
    }
    *out = rtCopyBytes(ctxt, bytes.data() + encoder.start(), encoder.length());
    if (*out == nullptr) {
        ctxt->setError(ASN_E_NOMEM, asn1::errorName(ASN_E_NOMEM), 0);
        return ASN_E_NOMEM;
    }
    return static_cast<int>(encoder.length());
}
