#include <cstring>

#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"

// Deep copies: one interpreter of schemas. Fields that are absent are left cleared, so that nothing
// in a copy points outside its context. Records and lists count as nesting, which every value that
// lies in itself passes; what was decoded is never too deep to be copied.

namespace asn1 {
namespace {

class Copier {
public:
    explicit Copier(ASN1CTXT* ctxt) : ctxt_(ctxt) {}

    bool value(const Type& type, const void* in, void* out) {
        switch (type.kind) {
            case Kind::boolean:
            case Kind::integer:
            case Kind::unsignedInteger:
            case Kind::enumerated:
                std::memcpy(out, in, type.size);
                return true;
            case Kind::null:
                return true;
            case Kind::bigInteger:
                return text(at<ASN1TBigInt>(in), at<ASN1TBigInt>(out));
            case Kind::bitString: {
                const auto& s = at<ASN1TDynBitStr>(in);
                auto& copy = at<ASN1TDynBitStr>(out);
                copy.numbits = s.numbits;
                return octets(s.data, s.numocts(), copy.data);
            }
            case Kind::octetString:
            case Kind::raw:
                return slice(at<ASN1TDynOctStr>(in), at<ASN1TDynOctStr>(out));
            case Kind::objectIdentifier:
                return slice(at<ASN1TObjId>(in), at<ASN1TObjId>(out));
            case Kind::string:
                return string(at<ASN1TString>(in), at<ASN1TString>(out));
            case Kind::any:
            case Kind::wrapped:
                return open(at<ASN1OpenType>(in), at<ASN1OpenType>(out));
            case Kind::sequence:
                return fields(type, in, out);
            case Kind::choice:
                return choice(type, in, out);
            case Kind::sequenceOf:
            case Kind::setOf:
                return list(type, at<ASN1CSeqOfList>(in), at<ASN1CSeqOfList>(out));
            case Kind::revoked:
                return revoked(type, in, out);
        }
        return fail(ASN_E_INVVAL);
    }

    int report() {
        ctxt_->setError(code_, errorName(code_), 0);
        path_.addTo(*ctxt_);
        return code_;
    }

private:
    bool fail(int code) {
        code_ = code;
        return false;
    }
    void* newCleared(std::size_t size) {
        void* p = rtMemHeapAllocZ(ctxt_, size);
        if (p == nullptr) fail(ASN_E_NOMEM);
        return p;
    }
    bool octets(const std::uint8_t* data, std::size_t length, const std::uint8_t*& out) {
        out = rtCopyBytes(ctxt_, data, length);
        return out != nullptr || fail(ASN_E_NOMEM);
    }
    template <class T>
    bool slice(const T& in, T& out) {
        out.numocts = in.numocts;
        return octets(in.data, in.numocts, out.data);
    }
    bool string(const ASN1TString& in, ASN1TString& out) {
        const std::uint8_t* data = nullptr;
        if (!octets(reinterpret_cast<const std::uint8_t*>(in.data), in.length, data)) return false;
        out = ASN1TString(in.length, reinterpret_cast<const char*>(data));
        return true;
    }
    bool text(ASN1TBigInt in, ASN1TBigInt& out) {
        if (in == nullptr) return true;
        out = rtCopyCharStr(ctxt_, in);
        return out != nullptr || fail(ASN_E_NOMEM);
    }

    bool open(const ASN1OpenType& in, ASN1OpenType& out) {
        out.numocts = in.numocts;
        if (!octets(in.data, in.numocts, out.data)) return false;
        if (in.decoded == nullptr || in.type == nullptr) return true;
        out.type = in.type;
        out.decoded = newCleared(in.type->size);
        return out.decoded != nullptr && value(*in.type, in.decoded, out.decoded);
    }

    bool fields(const Type& type, const void* in, void* out) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        for (const Field* f = type.fields; f != type.fields + type.fieldCount; ++f) {
            if (f->mark != noOffset) at<bool>(out, f->mark) = at<bool>(in, f->mark);
            if (f->presence == Presence::optional && !at<bool>(in, f->mark)) continue;
            if (!value(*f->type, static_cast<const char*>(in) + f->offset,
                       static_cast<char*>(out) + f->offset)) {
                path_.name(f->name);
                return false;
            }
        }
        return true;
    }

    bool choice(const Type& type, const void* in, void* out) {
        int t = at<int>(in);
        at<int>(out) = t;
        if (t < 1 || t > type.fieldCount) return true;
        const Field& f = type.fields[t - 1];
        const void* from = alternativeValue(f, in);
        void* to = static_cast<char*>(out) + f.offset;
        if (f.pointer) {
            if (from == nullptr) return true;
            void* target = newCleared(f.type->size);
            if (target == nullptr) return false;
            *static_cast<void**>(to) = target;
            to = target;
        }
        if (value(*f.type, from, to)) return true;
        path_.name(f.name);
        return false;
    }

    bool list(const Type& type, const ASN1CSeqOfList& in, ASN1CSeqOfList& out) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        out.decoded = in.decoded;
        for (const auto* node = in.head; node != nullptr; node = node->next) {
            void* copy = newCleared(nodeValueOffset + type.element->size);
            if (copy == nullptr) return false;
            if (!value(*type.element, reinterpret_cast<const char*>(node) + nodeValueOffset,
                       static_cast<char*>(copy) + nodeValueOffset)) {
                path_.index(out.count);
                return false;
            }
            out.link(static_cast<ASN1CSeqOfList::NodeBase*>(copy));
        }
        return true;
    }

    bool revoked(const Type& type, const void* in, void* out) {
        const auto& from = at<asn1data::ASN1T_RevokedCertificates>(in);
        auto& to = at<asn1data::ASN1T_RevokedCertificates>(out);
        return slice(from.raw, to.raw) && list(type, from.built, to.built);
    }

    ASN1CTXT* ctxt_;
    int code_ = 0;
    int depth_ = 0;
    FaultPath path_;
};

}  // namespace
}  // namespace asn1

int rtCopyValue(ASN1CTXT* ctxt, const asn1::Type& type, const void* source, void* target) {
    if (source == target) {
        void* shallow = ctxt->alloc(type.size);
        if (shallow == nullptr) return ASN_E_NOMEM;
        std::memcpy(shallow, source, type.size);
        source = shallow;
    }
    std::memset(target, 0, type.size);
    asn1::Copier copier(ctxt);
    return copier.value(type, source, target) ? ASN_OK : copier.report();
}
