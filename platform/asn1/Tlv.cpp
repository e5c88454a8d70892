#include "platform/asn1/Tlv.h"

namespace asn1 {
namespace {

/// Reads identifier and length octets alone. `length` stays as it was for an indefinite length.
int readIdentifierAndLength(const std::uint8_t* p, const std::uint8_t* end, Header& header,
                            std::size_t& length) {
    if (p == end) return ASN_E_ENDOFBUF;
    header.id = *p++;
    header.longer = header.indefinite = false;
    if ((header.id & 0x1F) == 0x1F) {
        do {
            if (p == end) return ASN_E_ENDOFBUF;
        } while ((*p++ & 0x80) != 0);
    }
    if (p == end) return ASN_E_ENDOFBUF;
    std::uint8_t first = *p++;
    if (first == 0x80) {
        if ((header.id & constructed) == 0) return ASN_E_INVLEN;
        header.indefinite = header.longer = true;
    } else if (first > 0x80) {
        std::size_t count = first & 0x7FU;
        if (count > static_cast<std::size_t>(end - p)) return ASN_E_ENDOFBUF;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (length >= maxInput) return ASN_E_INVLEN;
            length = length << 8 | *p++;
        }
        header.longer = lengthOctets(length) != count + 1;
    } else {
        length = first;
    }
    header.content = p;
    return ASN_OK;
}

/// Finds the end-of-contents octets that close an indefinite length. Linear in what it passes.
int findEndOfContents(const std::uint8_t* p, const std::uint8_t* end, const std::uint8_t** found) {
    for (int open = 1;;) {
        if (end - p >= 2 && p[0] == 0 && p[1] == 0) {
            if (--open == 0) {
                *found = p;
                return ASN_OK;
            }
            p += 2;
            continue;
        }
        Header header;
        std::size_t length = 0;
        int code = readIdentifierAndLength(p, end, header, length);
        if (code != ASN_OK) return code;
        p = header.content;
        if (header.indefinite) {
            if (++open > maxDepth) return ASN_E_DEPTH;
        } else if (length > static_cast<std::size_t>(end - p)) {
            return ASN_E_ENDOFBUF;
        } else {
            p += length;
        }
    }
}

}  // namespace

int readLongHeader(const std::uint8_t* p, const std::uint8_t* end, Header& header) {
    std::size_t length = 0;
    int code = readIdentifierAndLength(p, end, header, length);
    if (code != ASN_OK) return code;
    if (header.indefinite) {
        code = findEndOfContents(header.content, end, &header.end);
        if (code == ASN_OK) header.next = header.end + 2;
        return code;
    }
    if (length > static_cast<std::size_t>(end - header.content)) return ASN_E_ENDOFBUF;
    header.next = header.end = header.content + length;
    return ASN_OK;
}

const char* errorName(int code) {
    switch (code) {
        case ASN_E_BUFOVFLW:
            return "no room in the buffer";
        case ASN_E_ENDOFBUF:
            return "the input ends inside a value";
        case ASN_E_INVTAG:
            return "unexpected tag";
        case ASN_E_INVLEN:
            return "invalid length";
        case ASN_E_INVVAL:
            return "content is no value of the type";
        case ASN_E_NOMEM:
            return "out of memory";
        case ASN_E_DEPTH:
            return "nested too deeply";
        case ASN_E_TRAILING:
            return "bytes behind the value";
        case ASN_E_CHOICE:
            return "no such alternative";
        case ASN_E_MISSING:
            return "a required field is absent";
        case ASN_E_XML:
            return "malformed XML text";
        case ASN_E_TOOBIG:
            return "value is too big";
        default:
            return "failure";
    }
}

}  // namespace asn1
