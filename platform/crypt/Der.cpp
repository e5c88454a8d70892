#include "platform/crypt/Der.h"

namespace provider {

std::optional<DerLength> readDerLength(const BYTE* bytes, std::size_t available) {
    if (available < 2 || (bytes[0] & 0x1F) == 0x1F) return std::nullopt;
    const std::size_t first = bytes[1];
    if (first < 0x80) return DerLength{2, first};
    const std::size_t octets = first & 0x7F;
    if (octets == 0 || octets > 4 || available < 2 + octets || bytes[2] == 0) return std::nullopt;
    std::size_t content = 0;
    for (std::size_t i = 0; i < octets; ++i) content = content << 8 | bytes[2 + i];
    if (content < 0x80) return std::nullopt;
    return DerLength{2 + octets, content};
}

std::optional<DerReader::Item> DerReader::next() {
    const auto length = readDerLength(rest_.data(), rest_.size());
    if (!length || length->content > rest_.size() - length->header) return std::nullopt;
    const Item item{rest_[0], rest_.first(length->header + length->content),
                    rest_.subspan(length->header, length->content)};
    rest_ = rest_.subspan(item.whole.size());
    return item;
}

std::optional<DerReader::Item> DerReader::next(BYTE tag) {
    if (rest_.empty() || rest_[0] != tag) return std::nullopt;
    return next();
}

std::string dottedOid(Bytes content) {
    std::string text;
    std::uint64_t arc = 0;
    bool inside = false;
    for (const BYTE octet : content) {
        if ((!inside && octet == 0x80) || arc > (UINT64_MAX >> 7)) return {};
        arc = arc << 7 | (octet & 0x7F);
        inside = (octet & 0x80) != 0;
        if (inside) continue;
        if (text.empty()) {
            const std::uint64_t root = arc < 40 ? 0 : arc < 80 ? 1 : 2;
            text = std::to_string(root) + "." + std::to_string(arc - root * 40);
        } else {
            text += "." + std::to_string(arc);
        }
        arc = 0;
    }
    return inside ? std::string() : text;
}

}  // namespace provider
