#include "platform/asn1/Numbers.h"
#include "platform/asn1/ObjectIdentifier.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"
#include "platform/asn1/TableConstraints.h"
#include "platform/asn1/Xer.h"

// XER text of values: one interpreter of schemas. Canonical (X.693 9): no white space, integers in
// decimal, upper-case hexadecimal, empty elements as one tag, no DEFAULT written out. Two things
// follow this system's own readers instead: a bit string without named bits is an empty pair of
// tags, and an ENUMERATED value without a name is an empty element named by its number.

namespace asn1 {
namespace {

class XerWriter {
public:
    XerWriter(ASN1CTXT* ctxt, std::string& out) : ctxt_(ctxt), out_(out) {}

    bool element(const char* name, const Type& type, const void* in) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        tag("<", name, ">");
        std::size_t before = out_.size();
        if (!content(type, in)) return false;
        if (out_.size() == before && type.names == nullptr) {
            out_.back() = '/';
            out_ += '>';
        } else {
            tag("</", name, ">");
        }
        return true;
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
    void tag(const char* begin, std::string_view name, const char* end) {
        out_.append(begin).append(name).append(end);
    }

    bool content(const Type& type, const void* in) {
        switch (type.kind) {
            case Kind::boolean:
                out_ += at<ASN1TBool>(in) ? "<true/>" : "<false/>";
                return true;
            case Kind::integer:
                out_ += std::to_string(at<std::int32_t>(in));
                return true;
            case Kind::unsignedInteger:
                out_ += std::to_string(at<std::uint32_t>(in));
                return true;
            case Kind::bigInteger:
                return bigNumber(at<ASN1TBigInt>(in));
            case Kind::enumerated:
                return enumerated(type, at<std::int32_t>(in));
            case Kind::bitString:
                return bits(type, at<ASN1TDynBitStr>(in));
            case Kind::octetString:
            case Kind::raw: {
                const auto& s = at<ASN1TDynOctStr>(in);
                return hex(s.data, s.numocts);
            }
            case Kind::null:
                return true;
            case Kind::objectIdentifier: {
                std::string text;
                if (!oidText(at<ASN1TObjId>(in), text)) return fail(ASN_E_INVVAL);
                out_ += text;
                return true;
            }
            case Kind::string:
                return string(type, at<ASN1TString>(in));
            case Kind::any:
            case Kind::wrapped:
                return open(at<ASN1OpenType>(in));
            case Kind::sequence:
                return fields(type, in);
            case Kind::choice:
                return choice(type, in);
            case Kind::sequenceOf:
            case Kind::setOf:
                return list(type, at<ASN1CSeqOfList>(in));
            case Kind::revoked:
                return revoked(type, in);
        }
        return fail(ASN_E_INVVAL);
    }

    /// Numbers too long for decimal keep their hexadecimal text.
    bool bigNumber(const char* text) {
        long count = bigIntLength(text);
        if (count < 0) return fail(static_cast<int>(count));
        std::string octets(static_cast<std::size_t>(count), '\0');
        if (octets.size() > maxDecimalOctets) {
            out_ += text;
            return true;
        }
        bigIntContent(text, reinterpret_cast<std::uint8_t*>(octets.data()));
        if ((octets[0] & 0x80) != 0) {
            out_ += '-';
            unsigned carry = 1;
            for (std::size_t i = octets.size(); i-- > 0;) {
                carry += static_cast<unsigned char>(~octets[i]);
                octets[i] = static_cast<char>(carry);
                carry >>= 8;
            }
        }
        out_ += decimalFromOctets(octets);
        return true;
    }

    bool enumerated(const Type& type, std::int32_t value) {
        bool named = value >= 0 && value < type.nameCount && type.names[value] != nullptr;
        tag("<", named ? type.names[value] : std::to_string(value), "/>");
        return true;
    }

    bool bits(const Type& type, const ASN1TDynBitStr& s) {
        bool named = type.names != nullptr;
        for (std::uint32_t i = type.nameCount; named && i < s.numbits; ++i) named = !s.test(i);
        for (std::uint32_t i = 0; i < s.numbits; ++i) {
            if (!named) {
                out_ += s.test(i) ? '1' : '0';
            } else if (s.test(i)) {
                tag("<", type.names[i], "/>");
            }
        }
        return true;
    }

    bool hex(const std::uint8_t* data, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i) {
            out_ += "0123456789ABCDEF"[data[i] >> 4];
            out_ += "0123456789ABCDEF"[data[i] & 15];
        }
        return true;
    }

    bool string(const Type& type, const ASN1TString& s) {
        if (type.id == tagUtf8String) {
            if (rtUTF8Len(s.view()) < 0) return fail(ASN_E_INVVAL);
            for (char c : s.view()) character(static_cast<unsigned char>(c), true);
            return true;
        }
        unsigned width = characterWidth(type.id);
        if (s.length % width != 0) return fail(ASN_E_INVLEN);
        for (std::uint32_t i = 0; i < s.length; i += width) {
            std::uint32_t c = 0;
            for (unsigned k = 0; k < width; ++k) {
                c = c << 8 | static_cast<unsigned char>(s.data[i + k]);
            }
            if (!character(c, false)) return fail(ASN_E_INVVAL);
        }
        return true;
    }

    /// One character; `octet` says that it is an octet of text that is UTF-8 already.
    bool character(std::uint32_t c, bool octet) {
        if (c == '&' || c == '<' || c == '>') {
            out_ += c == '&' ? "&amp;" : c == '<' ? "&lt;" : "&gt;";
        } else if (c == '\r') {
            out_ += "&#13;";  // which an XML reader would turn into a line feed
        } else if (c < 32 && controlNames[c] != nullptr) {
            tag("<", controlNames[c], "/>");
        } else if (octet || c < 0x80) {
            out_ += static_cast<char>(c);
        } else {
            wchar_t wide = c <= 0x10FFFF ? static_cast<wchar_t>(c) : L'\xD800';
            char utf8[5];
            int length = rtWCSToUTF8(std::wstring_view(&wide, 1), utf8, sizeof utf8);
            if (length < 0) return false;
            out_.append(utf8, static_cast<std::size_t>(length));
        }
        return true;
    }

    /// An element of the type's name where the value is known, otherwise the octets.
    bool open(const ASN1OpenType& in) {
        if (in.decoded != nullptr && in.type != nullptr) {
            std::size_t before = out_.size();
            if (element(in.type->name, *in.type, in.decoded)) return true;
            if (in.numocts == 0 || code_ == ASN_E_DEPTH) return false;
            out_.resize(before);  // a value without XER text, such as a broken string
            path_.clear();
        }
        return hex(in.data, in.numocts);
    }

    bool fields(const Type& type, const void* in) {
        for (const Field* f = type.fields; f != type.fields + type.fieldCount; ++f) {
            if (!isWritten(*f, in) || isDefault(*f, in)) continue;
            if (!element(f->name, *f->type, static_cast<const char*>(in) + f->offset)) {
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
        if (chosen == nullptr ? !fail(ASN_E_MISSING) : !element(f.name, *f.type, chosen)) {
            path_.name(f.name);
            return false;
        }
        return true;
    }

    /// X.680 26.5: the alternatives of a CHOICE stand in a list without an element around them.
    bool item(const Type& type, const void* in) {
        return type.kind == Kind::choice ? content(type, in) : element(type.name, type, in);
    }

    bool list(const Type& type, const ASN1CSeqOfList& in) {
        std::uint32_t index = 0;
        for (const auto* node = in.head; node != nullptr; node = node->next, ++index) {
            if (item(*type.element, reinterpret_cast<const char*>(node) + nodeValueOffset))
                continue;
            path_.index(index);
            return false;
        }
        return true;
    }

    bool revoked(const Type& type, const void* in) {
        asn1data::ASN1T_RevokedCertificates::Reader reader(
            at<asn1data::ASN1T_RevokedCertificates>(in));
        ASN1CtxtRef scratch;
        asn1data::ASN1T_RevokedCertificate entry;
        for (std::uint32_t index = 0; reader.next(scratch.get(), entry); ++index) {
            if (!item(*type.element, &entry)) {
                path_.index(index);
                return false;
            }
            scratch->reset();
        }
        return scratch->errorCode() == ASN_OK || fail(scratch->errorCode());
    }

    ASN1CTXT* ctxt_;
    std::string& out_;
    int code_ = 0;
    int depth_ = 0;
    FaultPath path_;
};

}  // namespace
}  // namespace asn1

int rtEncodeXer(ASN1CTXT* ctxt, const asn1::Type& type, const void* value, std::string& out) {
    out.clear();
    asn1::XerWriter writer(ctxt, out);
    if (writer.element(type.name, type, value)) return ASN_OK;
    out.clear();
    return writer.report();
}

int asn1data::asn1XETC_Extension(ASN1CTXT* ctxt, const ASN1T_Extension* value, std::string& out) {
    const asn1::Type* type = asn1::decodedType(ctxt, *value);
    if (type == nullptr) return ASN_E_MISSING;
    return rtEncodeXer(ctxt, *type, value->extnValue.decoded, out);
}
