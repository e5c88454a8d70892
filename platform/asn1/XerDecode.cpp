#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "platform/asn1/Numbers.h"
#include "platform/asn1/ObjectIdentifier.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"
#include "platform/asn1/Xer.h"

// XER text back to values: one interpreter of schemas. Reads what XerEncode.cpp writes, with white
// space between tags and integers in "0x" form besides. There are no attributes, comments,
// declarations or entities but the five of XML and character references.

namespace asn1 {
namespace {

/// What reading may take from the arena, by the length of the text.
constexpr std::size_t budgetBase = 64 * 1024, budgetFactor = 32;

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
    while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
    return s;
}

class XerReader {
public:
    XerReader(ASN1CTXT* ctxt, std::string_view text)
        : ctxt_(ctxt), begin_(text.data()), rest_(text) {}

    int run(const Type& type, void* out) {
        std::memset(out, 0, type.size);
        bool good = element(type.name, type, out, nullptr) &&
                    (trimmed(rest_).empty() || fail(ASN_E_TRAILING));
        if (good) return ASN_OK;
        ctxt_->setError(code_, errorName(code_), where_);
        path_.addTo(*ctxt_);
        return code_;
    }

private:
    enum class TagKind { none, open, close, empty };
    struct Tag {
        TagKind kind = TagKind::none;
        std::string_view name;
        std::size_t length = 0;  // of the tag and the white space in front
    };

    bool fail(int code) {
        code_ = code;
        where_ = static_cast<std::size_t>(rest_.data() - begin_);
        return false;
    }
    void* newCleared(std::size_t size) {
        void* p = rtMemHeapAllocZ(ctxt_, size);
        if (p == nullptr) fail(ASN_E_NOMEM);
        return p;
    }
    bool keep(std::string_view octets, const std::uint8_t*& out) {
        out = rtCopyBytes(ctxt_, octets.data(), octets.size());
        return out != nullptr || fail(ASN_E_NOMEM);
    }

    /// The tag that comes next, kind none where there is none.
    Tag peek() const {
        Tag tag;
        std::size_t i = 0;
        while (i < rest_.size() && isSpace(rest_[i])) ++i;
        if (i == rest_.size() || rest_[i] != '<') return tag;
        std::size_t end = rest_.find_first_of("<>", i + 1);
        if (end == std::string_view::npos || rest_[end] != '>') return tag;
        std::string_view inner = rest_.substr(i + 1, end - i - 1);
        tag.kind = TagKind::open;
        if (inner.starts_with('/')) {
            tag.kind = TagKind::close;
            inner.remove_prefix(1);
        } else if (inner.ends_with('/')) {
            tag.kind = TagKind::empty;
            inner.remove_suffix(1);
        }
        tag.name = trimmed(inner);
        tag.length = end + 1;
        return tag;
    }
    void skip(const Tag& tag) { rest_.remove_prefix(tag.length); }
    bool atEnd() const {
        return std::ranges::all_of(rest_, isSpace) || peek().kind == TagKind::close;
    }

    bool element(std::string_view name, const Type& type, void* out, const Type* open) {
        DepthGuard guard(depth_);
        if (guard.tooDeep()) return fail(ASN_E_DEPTH);
        Tag tag = peek();
        if ((tag.kind != TagKind::open && tag.kind != TagKind::empty) || tag.name != name) {
            return fail(ASN_E_XML);
        }
        skip(tag);
        if (tag.kind == TagKind::empty) {
            std::string_view behind = rest_;
            rest_ = rest_.substr(0, 0);
            if (!content(type, out, open)) return false;
            rest_ = behind;
            return true;
        }
        if (!content(type, out, open)) return false;
        tag = peek();
        if (tag.kind != TagKind::close || tag.name != name) return fail(ASN_E_XML);
        skip(tag);
        return true;
    }

    /// Text up to the next tag.
    std::string_view plainText() {
        std::string_view text = rest_.substr(0, rest_.find('<'));
        rest_.remove_prefix(text.size());
        return trimmed(text);
    }

    bool content(const Type& type, void* out, const Type* open) {
        switch (type.kind) {
            case Kind::boolean:
                return boolean(at<ASN1TBool>(out));
            case Kind::integer:
                return number(plainText(), at<std::int32_t>(out));
            case Kind::unsignedInteger:
                return number(plainText(), at<std::uint32_t>(out));
            case Kind::bigInteger:
                return bigNumber(plainText(), at<ASN1TBigInt>(out));
            case Kind::enumerated:
                return enumerated(type, at<std::int32_t>(out));
            case Kind::bitString:
                return bits(type, at<ASN1TDynBitStr>(out));
            case Kind::octetString:
            case Kind::raw:
                return octets(at<ASN1TDynOctStr>(out));
            case Kind::null:
                return true;
            case Kind::objectIdentifier: {
                std::string content;
                auto& id = at<ASN1TObjId>(out);
                if (!oidFromText(plainText(), content, SIZE_MAX)) return fail(ASN_E_INVVAL);
                id.numocts = static_cast<std::uint32_t>(content.size());
                return keep(content, id.data);
            }
            case Kind::string:
                return string(type, at<ASN1TString>(out));
            case Kind::any:
            case Kind::wrapped:
                return openType(type, at<ASN1OpenType>(out), open);
            case Kind::sequence:
                return fields(type, out);
            case Kind::choice:
                return choice(type, out);
            case Kind::sequenceOf:
            case Kind::setOf:
                return list(type, at<ASN1CSeqOfList>(out), open);
            case Kind::revoked:
                return list(type, at<asn1data::ASN1T_RevokedCertificates>(out).built, nullptr);
        }
        return fail(ASN_E_INVVAL);
    }

    bool boolean(ASN1TBool& out) {
        Tag tag = peek();
        if (tag.kind != TagKind::empty || (tag.name != "true" && tag.name != "false")) {
            return fail(ASN_E_XML);
        }
        out = ASN1TBool(tag.name == "true");
        skip(tag);
        return true;
    }

    template <class T>
    bool number(std::string_view text, T& out) {
        bool negative = text.starts_with('-');
        if (negative) text.remove_prefix(1);
        bool hex = text.starts_with("0x");
        std::string magnitude;
        if (!octetsFromDigits(hex ? text.substr(2) : text, hex ? 16 : 10, magnitude)) {
            return fail(ASN_E_INVVAL);
        }
        if (magnitude.size() > sizeof(T)) return fail(ASN_E_TOOBIG);
        std::int64_t number = 0;
        for (char c : magnitude) number = number * 256 + static_cast<unsigned char>(c);
        if (negative) number = -number;
        if (number < std::numeric_limits<T>::min() || number > std::numeric_limits<T>::max()) {
            return fail(ASN_E_TOOBIG);
        }
        out = static_cast<T>(number);
        return true;
    }

    /// Hexadecimal text is as ASN1TBigInt holds it, for any content octets; decimal becomes the
    /// shortest ones.
    bool bigNumber(std::string_view text, ASN1TBigInt& out) {
        if (text.starts_with("0x")) {
            std::string digits(text);
            long count = bigIntLength(digits.c_str());
            if (count < 0 || text.find('\0') != std::string_view::npos) return fail(ASN_E_INVVAL);
            std::vector<std::uint8_t> content(static_cast<std::size_t>(count));
            bigIntContent(digits.c_str(), content.data());
            out = bigIntText(ctxt_, content.data(), content.size());
            return out != nullptr || fail(ASN_E_NOMEM);
        }
        bool negative = text.starts_with('-');
        std::string content;
        if (!octetsFromDigits(text.substr(negative ? 1 : 0), 10, content)) {
            return fail(ASN_E_INVVAL);
        }
        content.insert(0, 1, '\0');
        if (negative) negate(content);
        std::size_t extra = 0;
        while (extra + 1 < content.size() &&
               content[extra] == ((content[extra + 1] & 0x80) != 0 ? '\xFF' : '\0')) {
            ++extra;
        }
        out = bigIntText(ctxt_, reinterpret_cast<const std::uint8_t*>(content.data()) + extra,
                         content.size() - extra);
        return out != nullptr || fail(ASN_E_NOMEM);
    }
    static void negate(std::string& octets) {
        unsigned carry = 1;
        for (std::size_t i = octets.size(); i-- > 0;) {
            carry += static_cast<unsigned char>(~octets[i]);
            octets[i] = static_cast<char>(carry);
            carry >>= 8;
        }
    }

    static int findName(const Type& type, std::string_view name) {
        for (int i = 0; i < type.nameCount; ++i) {
            if (type.names[i] != nullptr && name == type.names[i]) return i;
        }
        return -1;
    }

    bool enumerated(const Type& type, std::int32_t& out) {
        Tag tag = peek();
        if (tag.kind != TagKind::empty) return number(plainText(), out);
        int value = findName(type, tag.name);
        if (value < 0) return number(tag.name, out) && (skip(tag), true);
        out = value;
        skip(tag);
        return true;
    }

    bool bits(const Type& type, ASN1TDynBitStr& out) {
        std::string content;
        std::uint32_t count = 0;
        auto set = [&](std::uint32_t i) {
            if (content.size() <= i / 8) content.resize(i / 8 + 1);
            content[i / 8] = static_cast<char>(content[i / 8] | (0x80 >> i % 8));
            count = std::max(count, i + 1);
        };
        if (type.names != nullptr) {
            for (Tag tag = peek(); tag.kind == TagKind::empty; skip(tag), tag = peek()) {
                int bit = findName(type, tag.name);
                if (bit < 0) return fail(ASN_E_INVVAL);
                set(static_cast<std::uint32_t>(bit));
            }
        }
        std::string_view digits = plainText();
        if (count != 0 && !digits.empty()) return fail(ASN_E_XML);
        for (std::uint32_t i = 0; i < digits.size(); ++i) {
            if (digits[i] != '0' && digits[i] != '1') return fail(ASN_E_INVVAL);
            if (digits[i] == '1') set(i);
        }
        out.numbits = std::max(count, static_cast<std::uint32_t>(digits.size()));
        content.resize(out.numocts());
        return keep(content, out.data);
    }

    template <class T>
    bool octets(T& out) {
        std::string content;
        int half = -1;
        for (char c : plainText()) {
            if (isSpace(c)) continue;
            int digit = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                               : -1;
            if (digit < 0) return fail(ASN_E_INVVAL);
            if (half >= 0) content.push_back(static_cast<char>(half << 4 | digit));
            half = half < 0 ? digit : -1;
        }
        if (half >= 0) return fail(ASN_E_INVLEN);
        out.numocts = static_cast<std::uint32_t>(content.size());
        return keep(content, out.data);
    }

    bool string(const Type& type, ASN1TString& out) {
        std::string utf8;
        if (!escapedText(utf8)) return false;
        if (rtUTF8Len(utf8) < 0) return fail(ASN_E_INVVAL);
        std::string content;
        if (type.id == tagUtf8String) {
            content = std::move(utf8);
        } else if (!narrow(utf8, characterWidth(type.id), content)) {
            return fail(ASN_E_INVVAL);
        }
        const std::uint8_t* data = nullptr;
        if (!keep(content, data)) return false;
        out = ASN1TString(static_cast<std::uint32_t>(content.size()),
                          reinterpret_cast<const char*>(data));
        return true;
    }
    /// Writes each character as `width` big-endian octets.
    static bool narrow(const std::string& utf8, unsigned width, std::string& out) {
        std::wstring wide(utf8.size() + 1, L'\0');
        wide.resize(static_cast<std::size_t>(rtUTF8ToWCS(utf8, wide.data(), wide.size())));
        for (wchar_t w : wide) {
            auto c = static_cast<std::uint32_t>(w);
            if (width < 4 && c >> (8 * width) != 0) return false;
            for (unsigned k = width; k-- > 0;) out.push_back(static_cast<char>(c >> (8 * k)));
        }
        return true;
    }

    /// Text with references and control characters, up to the end tag.
    bool escapedText(std::string& out) {
        for (;;) {
            std::size_t plain = std::min(rest_.find_first_of("<&"), rest_.size());
            out.append(rest_.substr(0, plain));
            rest_.remove_prefix(plain);
            if (rest_.empty() || rest_.starts_with("</")) return true;
            if (rest_.front() == '&' ? !reference(out) : !control(out)) return false;
        }
    }
    bool control(std::string& out) {
        Tag tag = peek();
        for (int i = 0; i < 32; ++i) {
            if (tag.kind != TagKind::empty || !controlNames[i] || tag.name != controlNames[i]) {
                continue;
            }
            out.push_back(static_cast<char>(i));
            skip(tag);
            return true;
        }
        return fail(ASN_E_XML);
    }
    bool reference(std::string& out) {
        std::size_t end = rest_.substr(0, 12).find(';');
        if (end == std::string_view::npos) return fail(ASN_E_XML);
        std::string_view name = rest_.substr(1, end - 1);
        static constexpr struct {
            std::string_view name;
            char character;
        } entities[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
        for (const auto& entity : entities) {
            if (name != entity.name) continue;
            out.push_back(entity.character);
            rest_.remove_prefix(end + 1);
            return true;
        }
        bool hex = name.starts_with("#x");
        std::string octets;
        if (!name.starts_with('#') ||
            !octetsFromDigits(name.substr(hex ? 2 : 1), hex ? 16 : 10, octets) ||
            octets.size() > 3) {
            return fail(ASN_E_XML);
        }
        std::uint32_t c = 0;
        for (char octet : octets) c = c << 8 | static_cast<unsigned char>(octet);
        auto wide = static_cast<wchar_t>(c);
        char utf8[5];
        int length = rtWCSToUTF8(std::wstring_view(&wide, 1), utf8, sizeof utf8);
        if (length < 0) return fail(ASN_E_XML);
        out.append(utf8, static_cast<std::size_t>(length));
        rest_.remove_prefix(end + 1);
        return true;
    }

    /// An element of the known type's name, or octets, beside which the value is set where they are
    /// one.
    bool openType(const Type& type, ASN1OpenType& out, const Type* open) {
        if (peek().kind == TagKind::open || peek().kind == TagKind::empty) {
            if (open == nullptr) return fail(ASN_E_INVVAL);
            out.type = open;
            out.decoded = newCleared(open->size);
            return out.decoded != nullptr && element(open->name, *open, out.decoded, nullptr);
        }
        if (!octets(out)) return false;
        if (out.numocts == 0) return type.kind == Kind::wrapped || fail(ASN_E_MISSING);
        if (open == nullptr) return true;
        void* decoded = newCleared(open->size);
        if (decoded == nullptr) return false;
        int code = rtDecodeBer(ctxt_, *open, out.data, out.numocts, decoded);
        ctxt_->clearError();
        if (code == ASN_OK) {
            out.type = open;
            out.decoded = decoded;
        }
        return code != ASN_E_NOMEM || fail(code);
    }

    bool fields(const Type& type, void* out) {
        for (const Field* f = type.fields; f != type.fields + type.fieldCount; ++f) {
            Tag tag = peek();
            bool present =
                (tag.kind == TagKind::open || tag.kind == TagKind::empty) && tag.name == f->name;
            if (!present && f->presence != Presence::required) continue;
            const Type* open =
                f->idOffset != noOffset ? f->set(at<ASN1TObjId>(out, f->idOffset)) : nullptr;
            if (!(present || fail(ASN_E_MISSING)) ||
                !element(f->name, *f->type, static_cast<char*>(out) + f->offset, open)) {
                path_.name(f->name);
                return false;
            }
            if (f->presence != Presence::required) {
                at<bool>(out, f->mark) = !isDefault(*f, out);  // DER leaves a DEFAULT out
            }
        }
        return atEnd() || fail(ASN_E_XML);
    }

    bool choice(const Type& type, void* out) {
        Tag tag = peek();
        for (int i = 0; i < type.fieldCount; ++i) {
            const Field& f = type.fields[i];
            if (tag.name != f.name || tag.name.empty()) continue;
            at<int>(out) = i + 1;
            void* slot = static_cast<char*>(out) + f.offset;
            if (f.pointer) {
                void* target = newCleared(f.type->size);
                if (target == nullptr) return false;
                *static_cast<void**>(slot) = target;
                slot = target;
            }
            if (element(f.name, *f.type, slot, nullptr)) return true;
            path_.name(f.name);
            return false;
        }
        return fail(ASN_E_CHOICE);
    }

    bool list(const Type& type, ASN1CSeqOfList& out, const Type* open) {
        const Type& item = *type.element;
        while (!atEnd()) {
            void* node = newCleared(nodeValueOffset + item.size);
            if (node == nullptr) return false;
            void* value = static_cast<char*>(node) + nodeValueOffset;
            if (item.kind == Kind::choice ? !choice(item, value)
                                          : !element(item.name, item, value, open)) {
                path_.index(out.count);
                return false;
            }
            out.link(static_cast<ASN1CSeqOfList::NodeBase*>(node));
        }
        return true;
    }

    ASN1CTXT* ctxt_;
    const char* begin_;
    std::string_view rest_;
    std::size_t where_ = 0;
    int code_ = 0;
    int depth_ = 0;
    FaultPath path_;
};

}  // namespace
}  // namespace asn1

int rtDecodeXer(ASN1CTXT* ctxt, const asn1::Type& type, std::string_view text, void* value) {
    if (text.size() >= asn1::maxInput) {
        ctxt->setError(ASN_E_TOOBIG, asn1::errorName(ASN_E_TOOBIG), 0);
        return ASN_E_TOOBIG;
    }
    asn1::Budget budget(*ctxt, asn1::budgetBase + asn1::budgetFactor * text.size());
    return asn1::XerReader(ctxt, text).run(type, value);
}
