#include <climits>
#include <cstring>

#include "platform/asn1/Runtime.h"
#include "platform/asn1/Tlv.h"

// Single values through the cursors that a context carries.

struct ASN1CtxtCursor {
    /// Room for `size` octets in front of what has been written, or null.
    static std::uint8_t* room(ASN1CTXT& c, std::size_t size) {
        if (size > c.encodeCapacity_ - c.encodeLength_ && !grow(c, size)) return nullptr;
        c.encodeLength_ += size;
        return start(c);
    }
    static std::uint8_t* start(ASN1CTXT& c) {
        return c.encodeBuffer_ + (c.encodeCapacity_ - c.encodeLength_);
    }
    static bool grow(ASN1CTXT& c, std::size_t size) {
        if (c.encodeFixed_ || size > INT_MAX) return false;
        std::size_t capacity = 2 * (c.encodeLength_ + size) + 64;
        auto* buffer = static_cast<unsigned char*>(c.alloc(capacity));
        if (buffer == nullptr) return false;
        if (c.encodeLength_ != 0) {
            std::memcpy(buffer + (capacity - c.encodeLength_), start(c), c.encodeLength_);
        }
        c.encodeBuffer_ = buffer;
        c.encodeCapacity_ = capacity;
        return true;
    }
    static void set(ASN1CTXT& c, std::uint8_t* buffer, std::size_t size) {
        c.encodeBuffer_ = buffer;
        c.encodeCapacity_ = buffer ? size : 0;
        c.encodeLength_ = 0;
        c.encodeFixed_ = buffer != nullptr;
    }
    static void copy(ASN1CTXT& to, const ASN1CTXT& from) {
        to.encodeBuffer_ = from.encodeBuffer_;
        to.encodeCapacity_ = from.encodeCapacity_;
        to.encodeLength_ = from.encodeLength_;
        to.encodeFixed_ = from.encodeFixed_;
        to.decodePtr_ = from.decodePtr_;
        to.decodeEnd_ = from.decodeEnd_;
    }
    static const std::uint8_t*& at(ASN1CTXT& c) { return c.decodePtr_; }
    static const std::uint8_t*& end(ASN1CTXT& c) { return c.decodeEnd_; }
};

namespace {

int fail(ASN1CTXT* ctxt, int code, const char* text) {
    ctxt->setError(code, text, 0);
    return code;
}

int writeString(ASN1CTXT* ctxt, const void* data, std::size_t length, ASN1TagType tagging,
                std::uint8_t tag) {
    if (length > INT_MAX - 8) return fail(ctxt, ASN_E_TOOBIG, "string is too long");
    std::size_t header = tagging == ASN1EXPL ? 1 + asn1::lengthOctets(length) : 0;
    std::uint8_t* p = ASN1CtxtCursor::room(*ctxt, header + length);
    if (p == nullptr) return fail(ctxt, ASN_E_BUFOVFLW, "no room for the encoding");
    if (header != 0) {
        p[0] = tag;
        asn1::putLength(p + 1, length);
    }
    if (length != 0) std::memcpy(p + header, data, length);
    return static_cast<int>(header + length);
}

}  // namespace

void rtCopyContext(ASN1CTXT* target, const ASN1CTXT* source) {
    ASN1CtxtCursor::copy(*target, *source);
}

int xe_setp(ASN1CTXT* ctxt, std::uint8_t* buffer, std::size_t size) {
    ASN1CtxtCursor::set(*ctxt, buffer, size);
    return ASN_OK;
}

std::uint8_t* xe_getp(ASN1CTXT* ctxt) { return ASN1CtxtCursor::start(*ctxt); }

int xe_charstr(ASN1CTXT* ctxt, std::string_view text, ASN1TagType tagging,
               std::uint8_t universalTag) {
    return writeString(ctxt, text.data(), text.size(), tagging, universalTag);
}

int xe_octstr(ASN1CTXT* ctxt, const std::uint8_t* data, std::size_t length, ASN1TagType tagging) {
    return writeString(ctxt, data, length, tagging, asn1::tagOctetString);
}

int xd_setp(ASN1CTXT* ctxt, const std::uint8_t* data, std::size_t length) {
    ASN1CtxtCursor::at(*ctxt) = data;
    ASN1CtxtCursor::end(*ctxt) = data + length;
    return ASN_OK;
}

int xd_tag_len(ASN1CTXT* ctxt, std::uint8_t* firstOctet, std::size_t* length) {
    const std::uint8_t*& at = ASN1CtxtCursor::at(*ctxt);
    asn1::Header header;
    int code = asn1::readHeader(at, ASN1CtxtCursor::end(*ctxt), header);
    if (code == ASN_OK && header.indefinite) code = ASN_E_INVLEN;
    if (code != ASN_OK) return fail(ctxt, code, asn1::errorName(code));
    *firstOctet = header.id;
    *length = static_cast<std::size_t>(header.end - header.content);
    at = header.content;
    return ASN_OK;
}

const std::uint8_t* xd_content(ASN1CTXT* ctxt, std::size_t length) {
    const std::uint8_t*& at = ASN1CtxtCursor::at(*ctxt);
    if (length > static_cast<std::size_t>(ASN1CtxtCursor::end(*ctxt) - at)) {
        fail(ctxt, ASN_E_ENDOFBUF, asn1::errorName(ASN_E_ENDOFBUF));
        return nullptr;
    }
    const std::uint8_t* content = at;
    at += length;
    return content;
}
