#include <cstring>

#include "platform/asn1/Numbers.h"
#include "platform/asn1/ObjectIdentifier.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/RevokedEntries.h"
#include "platform/asn1/Schema.h"

// The BER decoder: one interpreter of schemas. Every function takes the octets that it may read and
// gives where it stopped, or null after a fault, which is recorded where it was found.

namespace asn1 {
namespace {

using Octets = const std::uint8_t*;

/// What a decode may take from the arena: the copy of the input and records that, for real input,
/// grow to about a dozen times its size.
constexpr std::size_t budgetBase = 64 * 1024, budgetFactor = 16;

class Decoder {
public:
    Decoder(ASN1CTXT* ctxt, Octets begin, Octets end) : ctxt_(ctxt), begin_(begin), end_(end) {}

    /// Decodes the one value that fills the input.
    int run(const Type& type, void* out) {
        std::memset(out, 0, type.size);
        Octets next = value(type, begin_, end_, out, nullptr);
        if (next == nullptr) return report();
        if (next != end_) {
            fail(ASN_E_TRAILING, next);
            return report();
        }
        return ASN_OK;
    }
    bool lossy() const { return lossy_; }

private:
    Octets fail(int code, Octets where) {
        code_ = code;
        where_ = where;
        return nullptr;
    }
    int report() {
        // Reassembled strings lie outside the input and have no offset in it.
        bool inside = where_ >= begin_ && where_ <= end_;
        ctxt_->setError(code_, errorName(code_), inside ? where_ - begin_ : 0);
        path_.addTo(*ctxt_);
        return code_;
    }
    void* newCleared(std::size_t size, Octets where) {
        auto* p = static_cast<std::uint8_t*>(ctxt_->alloc(size));
        if (p == nullptr) {
            fail(ASN_E_NOMEM, where);
            return nullptr;
        }
        // The arena hands out multiples of sixteen octets.
        for (std::size_t i = 0; i < size; i += 16) std::memset(p + i, 0, 16);
        return p;
    }

    /// A value with its own identifier.
    Octets value(const Type& type, Octets p, Octets end, void* out, const Type* open) {
        if (type.kind == Kind::choice) return choice(type, p, end, out);
        if (type.kind == Kind::any) return anyValue(p, end, at<ASN1OpenType>(out), open);
        return tagged(type, type.id, p, end, out, open);
    }

    /// A value whose identifier octet is `id`.
    Octets tagged(const Type& type, std::uint8_t id, Octets p, Octets end, void* out,
                  const Type* open) {
        Header h;
        int code = readHeader(p, end, h);
        if (code != ASN_OK) return fail(code, p);
        if (type.kind == Kind::raw) {
            at<ASN1TDynOctStr>(out) = {static_cast<std::uint32_t>(h.next - p), p};
            return h.next;
        }
        lossy_ |= h.longer;
        if (h.id != id) {
            if (h.id != (id | constructed) || !isStringKind(type.kind)) {
                return fail(ASN_E_INVTAG, p);
            }
            return segmented(type, h, out, open) ? h.next : nullptr;
        }
        return content(type, h.content, h.end, out, open) ? h.next : nullptr;
    }

    Octets fieldValue(const Field& f, Octets p, Octets end, void* out, const Type* open) {
        if (f.explicitTag) {
            Header h;
            int code = readHeader(p, end, h);
            if (code != ASN_OK) return fail(code, p);
            lossy_ |= h.longer;
            DepthGuard guard(depth_);
            if (guard.tooDeep()) return fail(ASN_E_DEPTH, p);
            Octets next = value(*f.type, h.content, h.end, out, open);
            if (next == nullptr) return nullptr;
            return next == h.end ? h.next : fail(ASN_E_TRAILING, next);
        }
        return f.id == 0 ? value(*f.type, p, end, out, open)
                         : tagged(*f.type, f.id, p, end, out, open);
    }

    bool content(const Type& type, Octets p, Octets end, void* out, const Type* open) {
        std::size_t length = static_cast<std::size_t>(end - p);
        switch (type.kind) {
            case Kind::boolean:
                if (length != 1) return fail(ASN_E_INVLEN, p);
                at<ASN1TBool>(out).octet = *p;
                return true;
            case Kind::integer:
            case Kind::enumerated:
                return number(p, length, 4, at<std::int32_t>(out));
            case Kind::unsignedInteger:
                return number(p, length, 5, at<std::uint32_t>(out));
            case Kind::bigInteger:
                return bigNumber(p, length, at<ASN1TBigInt>(out));
            case Kind::bitString:
                return bits(p, length, at<ASN1TDynBitStr>(out));
            case Kind::octetString:
                at<ASN1TDynOctStr>(out) = {static_cast<std::uint32_t>(length), p};
                return true;
            case Kind::null:
                return length == 0 || fail(ASN_E_INVLEN, p);
            case Kind::objectIdentifier:
                if (!isObjectIdentifier(p, length)) return fail(ASN_E_INVVAL, p);
                at<ASN1TObjId>(out) = {static_cast<std::uint32_t>(length), p};
                return true;
            case Kind::string:
                at<ASN1TString>(out) = {static_cast<std::uint32_t>(length),
                                        reinterpret_cast<const char*>(p)};
                return true;
            case Kind::wrapped:
                return wrappedValue(p, end, at<ASN1OpenType>(out), open);
            case Kind::sequence:
                return fields(type, p, end, out);
            case Kind::sequenceOf:
            case Kind::setOf:
                return list(type, p, end, at<ASN1CSeqOfList>(out), open);
            case Kind::revoked:
                return revoked(p, end, out);
            case Kind::any:
            case Kind::raw:
            case Kind::choice:
                break;
        }
        return fail(ASN_E_INVTAG, p);
    }

    template <class T>
    bool number(Octets p, std::size_t length, std::size_t most, T& out) {
        if (length == 0) return fail(ASN_E_INVLEN, p);
        auto redundant = [](Octets q) { return q[0] == (q[1] >= 0x80 ? 0xFF : 0); };
        for (; length > 1 && redundant(p); ++p, --length) lossy_ = true;
        if (length > most) return fail(ASN_E_TOOBIG, p);
        std::int64_t number = static_cast<std::int8_t>(*p);
        for (std::size_t i = 1; i < length; ++i) number = number * 256 + p[i];
        out = static_cast<T>(number);
        return out == number || fail(ASN_E_TOOBIG, p);
    }

    bool bigNumber(Octets p, std::size_t length, ASN1TBigInt& out) {
        if (length == 0) return fail(ASN_E_INVLEN, p);
        out = bigIntText(ctxt_, p, length);
        return out != nullptr || fail(ASN_E_NOMEM, p);
    }

    /// X.690 8.6.2: a bit string starts with how many bits of its last octet are unused, of none
    /// where there is no octet.
    static bool countsUnusedBits(Octets p, Octets end) {
        return p != end && *p <= (end - p == 1 ? 0 : 7);
    }

    bool bits(Octets p, std::size_t length, ASN1TDynBitStr& out) {
        if (!countsUnusedBits(p, p + length)) return fail(ASN_E_INVVAL, p);
        out = {static_cast<std::uint32_t>((length - 1) * 8 - p[0]), p + 1};
        return true;
    }

    /// A string in parts (X.690 8.6.4, 8.7.3): joined in the arena.
    bool segmented(const Type& type, const Header& h, void* out, const Type* open) {
        lossy_ = true;
        bool bitwise = type.kind == Kind::bitString;
        auto* joined = static_cast<std::uint8_t*>(
            newCleared(static_cast<std::size_t>(h.end - h.content) + 1, h.content));
        if (joined == nullptr) return false;
        std::uint8_t* tail = joined + (bitwise ? 1 : 0);
        std::uint8_t* unused = bitwise ? joined : nullptr;
        if (!join(type.id, h.content, h.end, tail, unused)) return false;
        return content(type, joined, tail, out, open);
    }

    /// `unused` collects the unused bits of a bit string's last part; in the others there are none.
    bool join(std::uint8_t id, Octets p, Octets end, std::uint8_t*& tail, std::uint8_t* unused) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH, p);
        while (p != end) {
            Header h;
            int code = readHeader(p, end, h);
            if (code != ASN_OK) return fail(code, p);
            std::uint8_t primitive = h.id & static_cast<std::uint8_t>(~constructed);
            if (primitive != id && (unused || primitive != tagOctetString)) {
                return fail(ASN_E_INVTAG, p);
            }
            if (h.id != primitive) {
                if (!join(id, h.content, h.end, tail, unused)) return false;
            } else {
                if (unused && (*unused != 0 || !countsUnusedBits(h.content, h.end))) {
                    return fail(ASN_E_INVVAL, p);
                }
                if (unused) *unused = *h.content++;
                std::memcpy(tail, h.content, static_cast<std::size_t>(h.end - h.content));
                tail += h.end - h.content;
            }
            p = h.next;
        }
        return true;
    }

    bool fields(const Type& type, Octets p, Octets end, void* out) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH, p);
        const Field* f = type.fields;
        const Field* last = f + type.fieldCount;
        for (; f != last && p != end; ++f) {
            if (f->presence != Presence::required) {
                if (!isPresent(*f, *p)) continue;
                at<bool>(out, f->mark) = true;
            } else if ((*p & f->idMask) != f->id) {
                break;
            }
            const Type* open = f->set ? f->set(at<ASN1TObjId>(out, f->idOffset)) : nullptr;
            p = fieldValue(*f, p, end, static_cast<char*>(out) + f->offset, open);
            if (p == nullptr) {
                path_.name(f->name);
                return false;
            }
        }
        for (; f != last; ++f) {
            if (f->presence != Presence::required) continue;
            path_.name(f->name);
            return fail(ASN_E_MISSING, p);
        }
        return p == end || fail(ASN_E_TRAILING, p);
    }

    static bool isPresent(const Field& f, std::uint8_t octet) {
        if ((octet & f.idMask) != f.id) return false;
        return f.id != 0 || accepts(*f.type, octet);
    }

    Octets choice(const Type& type, Octets p, Octets end, void* out) {
        if (p == end) return fail(ASN_E_ENDOFBUF, p);
        int i = findAlternative(type, *p);
        if (i < 0) return fail(ASN_E_CHOICE, p);
        const Field& f = type.fields[i];
        at<int>(out) = i + 1;
        void* slot = static_cast<char*>(out) + f.offset;
        if (f.pointer) {
            void* target = newCleared(f.type->size, p);
            if (target == nullptr) return nullptr;
            *static_cast<void**>(slot) = target;
            slot = target;
        }
        Octets next = fieldValue(f, p, end, slot, nullptr);
        if (next == nullptr) path_.name(f.name);
        return next;
    }

    bool list(const Type& type, Octets p, Octets end, ASN1CSeqOfList& out, const Type* open) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH, p);
        out.decoded = true;
        std::size_t nodeSize = nodeValueOffset + type.element->size;
        while (p != end) {
            auto* node = static_cast<ASN1CSeqOfList::NodeBase*>(newCleared(nodeSize, p));
            if (node == nullptr) return false;
            p = value(*type.element, p, end, reinterpret_cast<char*>(node) + nodeValueOffset, open);
            if (p == nullptr) {
                path_.index(out.count);
                return false;
            }
            out.link(node);
        }
        return true;
    }

    bool revoked(Octets p, Octets end, void* out) {
        Octets where = p;
        int code = checkRevokedEntries(where, end);
        if (code != ASN_OK) return fail(code, where);
        at<asn1data::ASN1T_RevokedCertificates>(out).raw = {static_cast<std::uint32_t>(end - p), p};
        return true;
    }

    Octets anyValue(Octets p, Octets end, ASN1OpenType& out, const Type* open) {
        Header h;
        int code = readHeader(p, end, h);
        if (code != ASN_OK) return fail(code, p);
        return wrappedValue(p, h.next, out, open) ? h.next : nullptr;
    }

    /// The octets of an open type, and its value beside them where the type is known and the octets
    /// are one of its values. Since the octets win on encoding, nothing in them is lossy.
    bool wrappedValue(Octets p, Octets end, ASN1OpenType& out, const Type* open) {
        out.numocts = static_cast<std::uint32_t>(end - p);
        out.data = p;
        if (open == nullptr || p == end) return true;
        void* decoded = newCleared(open->size, p);
        if (decoded == nullptr) return false;
        bool lossy = lossy_;
        Octets next = value(*open, p, end, decoded, nullptr);
        lossy_ = lossy;
        if (next == end) {
            out.type = open;
            out.decoded = decoded;
        } else if (next == nullptr) {
            if (code_ == ASN_E_NOMEM || code_ == ASN_E_DEPTH) return false;
            path_.clear();
        }
        return true;
    }

    ASN1CTXT* ctxt_;
    Octets begin_;
    Octets end_;
    Octets where_ = nullptr;
    int code_ = 0;
    int depth_ = 0;
    bool lossy_ = false;
    FaultPath path_;
};

}  // namespace

int decodeBer(ASN1CTXT* ctxt, const Type& type, const std::uint8_t* data, std::size_t length,
              void* value, bool* lossy) {
    if (length >= maxInput) {
        ctxt->setError(ASN_E_TOOBIG, errorName(ASN_E_TOOBIG), 0);
        return ASN_E_TOOBIG;
    }
    const std::uint8_t* copy = rtCopyBytes(ctxt, data, length);
    if (copy == nullptr) {
        ctxt->setError(ASN_E_NOMEM, errorName(ASN_E_NOMEM), 0);
        return ASN_E_NOMEM;
    }
    Budget budget(*ctxt, budgetBase + budgetFactor * length);
    Decoder decoder(ctxt, copy, copy + length);
    int code = decoder.run(type, value);
    if (lossy != nullptr) *lossy = decoder.lossy();
    return code;
}

}  // namespace asn1

int rtDecodeBer(ASN1CTXT* ctxt, const asn1::Type& type, const std::uint8_t* data,
                std::size_t length, void* value) {
    return asn1::decodeBer(ctxt, type, data, length, value, nullptr);
}
