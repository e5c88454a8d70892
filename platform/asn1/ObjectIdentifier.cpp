#include "platform/asn1/ObjectIdentifier.h"

#include <cstdio>
#include <limits>

#include "platform/asn1/Numbers.h"
#include "platform/asn1/Runtime.h"

namespace asn1 {
namespace {

/// Calls `take` with the octets of each subidentifier in turn until it returns false.
template <class F>
bool eachSubidentifier(const ASN1TObjId& oid, F take) {
    std::uint32_t start = 0;
    for (std::uint32_t i = 0; i < oid.numocts; ++i) {
        if ((oid.data[i] & 0x80) != 0) continue;
        if (!take(oid.data + start, i + 1 - start)) return false;
        start = i + 1;
    }
    return true;
}

/// The value of a subidentifier, when it fits 63 bits.
bool smallValue(const std::uint8_t* octets, std::uint32_t count, std::uint64_t& value) {
    if (count > 9) return false;
    value = 0;
    for (std::uint32_t i = 0; i < count; ++i) value = value << 7 | (octets[i] & 0x7FU);
    return true;
}

/// The value as big-endian octets, whatever its size.
std::string repack(const std::uint8_t* octets, std::uint32_t count) {
    std::string out;
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (std::uint32_t i = count; i-- > 0;) {
        pending |= (octets[i] & 0x7FU) << bits;
        bits += 7;
        if (bits >= 8) {
            out.push_back(static_cast<char>(pending));
            pending >>= 8;
            bits -= 8;
        }
    }
    out.push_back(static_cast<char>(pending));
    return {out.rbegin(), out.rend()};
}

void putSubidentifier(std::uint64_t value, std::string& out) {
    int groups = 1;
    for (std::uint64_t rest = value >> 7; rest != 0; rest >>= 7) ++groups;
    while (groups-- > 0) {
        out.push_back(static_cast<char>((value >> (7 * groups) & 0x7F) | (groups ? 0x80 : 0)));
    }
}

/// Adds a subidentifier given as big-endian octets.
void putBigSubidentifier(const std::string& octets, std::string& out) {
    std::string reversed;
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (std::size_t i = octets.size(); i-- > 0;) {
        pending |= static_cast<std::uint32_t>(static_cast<unsigned char>(octets[i])) << bits;
        bits += 8;
        for (; bits >= 7; bits -= 7, pending >>= 7) {
            reversed.push_back(static_cast<char>((pending & 0x7F) | (reversed.empty() ? 0 : 0x80)));
        }
    }
    reversed.push_back(static_cast<char>((pending & 0x7F) | (reversed.empty() ? 0 : 0x80)));
    while (reversed.size() > 1 && static_cast<unsigned char>(reversed.back()) == 0x80) {
        reversed.pop_back();
    }
    out.append(reversed.rbegin(), reversed.rend());
}

/// Under the first arc 2, so that both together fit the 63 bits of `smallValue`.
constexpr std::uint64_t largestSecondArc = (std::uint64_t{1} << 63) - 1 - 80;

bool joinFirstArcs(std::uint64_t first, std::uint64_t second, std::string& out) {
    if (first > 2 || (first < 2 && second > 39)) return false;
    putSubidentifier(first * 40 + second, out);
    return true;
}

}  // namespace

bool oidText(const ASN1TObjId& oid, std::string& out) {
    if (!isObjectIdentifier(oid)) return false;
    out.clear();
    return eachSubidentifier(oid, [&](const std::uint8_t* octets, std::uint32_t count) {
        std::uint64_t value = 0;
        if (!smallValue(octets, count, value)) {
            if (out.empty() || count > maxDecimalOctets * 8 / 7 + 1) return false;
            std::string big = repack(octets, count);
            big.erase(0, big.find_first_not_of('\0'));
            if (big.size() > maxDecimalOctets) return false;
            out.append(".").append(decimalFromOctets(big));
        } else if (out.empty()) {
            std::uint64_t first = value < 40 ? 0 : value < 80 ? 1 : 2;
            out = std::to_string(first) + "." + std::to_string(value - 40 * first);
        } else {
            out.append(".").append(std::to_string(value));
        }
        return true;
    });
}

bool oidFromText(std::string_view text, std::string& out, std::size_t most) {
    out.clear();
    std::uint64_t first = 0;
    for (std::size_t index = 0;; ++index) {
        std::size_t dot = text.find('.');
        std::string octets;
        if (!octetsFromDigits(text.substr(0, dot), 10, octets)) return false;
        std::uint64_t value = 0;
        for (char c : octets) value = value << 8 | static_cast<unsigned char>(c);
        if (index < 2 && (octets.size() > 8 || value > largestSecondArc)) return false;
        if (index == 1 && !joinFirstArcs(first, value, out)) return false;
        if (index == 0) first = value;
        if (index > 1) putBigSubidentifier(octets, out);
        if (dot == std::string_view::npos) return index >= 1;
        if (index + 1 >= most) return false;
        text.remove_prefix(dot + 1);
    }
}

}  // namespace asn1

int rtOidFromOctets(const ASN1TObjId& source, ASN1OBJID* target) {
    *target = ASN1OBJID{};
    if (!asn1::isObjectIdentifier(source)) return ASN_E_INVVAL;
    ASN1OBJID arcs;
    bool fits = asn1::eachSubidentifier(source, [&](const std::uint8_t* p, std::uint32_t count) {
        std::uint64_t value = 0;
        if (!asn1::smallValue(p, count, value)) return false;
        if (arcs.numids == 0) {
            arcs.subid[arcs.numids++] = value < 40 ? 0 : value < 80 ? 1 : 2;
            value -= 40 * arcs.subid[0];
        }
        if (arcs.numids == ASN1_K_MAXSUBIDS) return false;
        arcs.subid[arcs.numids++] = static_cast<std::uint32_t>(value);
        return value <= std::numeric_limits<std::uint32_t>::max();
    });
    if (!fits) return ASN_E_TOOBIG;
    *target = arcs;
    return ASN_OK;
}

ASN1TObjId::operator ASN1OBJID() const {
    ASN1OBJID arcs;
    rtOidFromOctets(*this, &arcs);
    return arcs;
}

bool operator==(const ASN1TObjId& a, const ASN1OBJID& b) {
    ASN1OBJID arcs;
    return rtOidFromOctets(a, &arcs) == ASN_OK && arcs == b;
}

int rtSetOID(ASN1CTXT* ctxt, ASN1TObjId* target, const ASN1OBJID* source) {
    std::string octets;
    if (source->numids < 2 || source->numids > ASN1_K_MAXSUBIDS ||
        !asn1::joinFirstArcs(source->subid[0], source->subid[1], octets)) {
        ctxt->setError(ASN_E_INVVAL, "arcs are no object identifier", 0);
        return ASN_E_INVVAL;
    }
    for (std::uint32_t i = 2; i < source->numids; ++i) {
        asn1::putSubidentifier(source->subid[i], octets);
    }
    const std::uint8_t* copy = rtCopyBytes(ctxt, octets.data(), octets.size());
    if (copy == nullptr) return ASN_E_NOMEM;
    *target = ASN1TObjId(static_cast<std::uint32_t>(octets.size()), copy);
    return ASN_OK;
}

int rtOidToStr(const ASN1OBJID* oid, char* buffer, std::size_t size) {
    if (oid->numids == 0 || oid->numids > ASN1_K_MAXSUBIDS) return ASN_E_INVVAL;
    std::size_t at = 0;
    for (std::uint32_t i = 0; i < oid->numids; ++i) {
        int n = std::snprintf(buffer + at, size - at, i == 0 ? "%u" : ".%u", oid->subid[i]);
        if (n < 0 || static_cast<std::size_t>(n) >= size - at) return ASN_E_BUFOVFLW;
        at += static_cast<std::size_t>(n);
    }
    return ASN_OK;
}

int rtOidToStr(const ASN1TObjId& oid, char* buffer, std::size_t size) {
    // An octet takes one character at least: what cannot fit is not turned into decimal first.
    if (oid.numocts >= size && asn1::isObjectIdentifier(oid)) return ASN_E_BUFOVFLW;
    std::string text;
    if (!asn1::oidText(oid, text)) return ASN_E_INVVAL;
    if (text.size() >= size) return ASN_E_BUFOVFLW;
    text.copy(buffer, text.size());
    buffer[text.size()] = '\0';
    return ASN_OK;
}

std::string rtOidToString(const ASN1TObjId& oid) {
    std::string text;
    return asn1::oidText(oid, text) ? text : std::string();
}
