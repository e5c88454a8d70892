#pragma once

#include <optional>
#include <span>
#include <string>

#include "platform/crypt/CryptApi.h"

namespace provider {

using Bytes = std::span<const BYTE>;

/// Walks the TLVs of a DER value, for the few shapes that a key or a certificate is picked apart by
/// here. Definite, minimal lengths of at most four octets. Views point into what was given.
class DerReader {
public:
    struct Item {
        BYTE tag;
        Bytes whole;
        Bytes content;
    };

    explicit DerReader(Bytes bytes) : rest_(bytes) {}

    bool atEnd() const { return rest_.empty(); }
    /// The next item, or nothing at the end and for malformed input.
    std::optional<Item> next();
    /// The next item if it has this tag; otherwise nothing is used up.
    std::optional<Item> next(BYTE tag);

private:
    Bytes rest_;
};

/// The length of a header and its content from the octets of the header alone; reads no more than
/// `available` octets. Nothing when the header is malformed or not whole.
struct DerLength {
    std::size_t header;
    std::size_t content;
};
std::optional<DerLength> readDerLength(const BYTE* bytes, std::size_t available);

/// Dotted text of the content of an OBJECT IDENTIFIER; empty for a malformed or oversized one.
std::string dottedOid(Bytes content);

}  // namespace provider
