#include "capilite/Base64.h"

#include <algorithm>
#include <vector>

#include "fuzz/Fuzz.h"
#include "platform/support/LastError.h"

// Base64 text with and without armour: the sizing call and the writing call agree, nothing is
// written behind the capacity, and what was decoded encodes to text that decodes to the same.

namespace {

constexpr unsigned char UNTOUCHED = 0xA5;

/// Octets are looked up by their low seven bits.
bool hasPadding(const char* text, unsigned int size) {
    return std::any_of(text, text + size, [](char c) { return (c & 0x7F) == '='; });
}

using Decode = int (*)(const char*, unsigned int, unsigned char*, unsigned int*);

/// Decodes into a buffer of the capacity and checks that the octet behind it is left alone.
int decodeInto(Decode decode, const char* text, unsigned int size, std::vector<unsigned char>& out,
               unsigned int capacity, unsigned int& length) {
    out.assign(capacity + 1, UNTOUCHED);
    length = capacity;
    int result = decode(text, size, out.data(), &length);
    require(out[capacity] == UNTOUCHED);
    return result;
}

void checkDecoder(Decode decode, const char* text, unsigned int size) {
    unsigned int needed = 0, length = 0;
    if (!decode(text, size, nullptr, &needed)) {
        require(needed == 0);
        return;
    }
    require(needed <= 3 * (std::uint64_t{size} / 4));
    std::vector<unsigned char> bytes;
    int fits = decodeInto(decode, text, size, bytes, needed, length);
    require(length == needed);
    // Padding in the middle takes octets back, and the buffer may have to be larger meanwhile.
    require(fits || (GetLastError() == ERROR_MORE_DATA && hasPadding(text, size)));
    std::vector<unsigned char> small;
    if (needed > 0) require(!decodeInto(decode, text, size, small, needed - 1, length));

    bytes.resize(needed);
    std::vector<char> encoded(2 * std::size_t{needed} + 100);
    auto room = static_cast<unsigned int>(encoded.size());
    if (needed == 0) return;
    require(base64_encode(bytes.data(), needed, encoded.data(), &room));
    std::vector<unsigned char> again;
    require(decodeInto(base64_decode, encoded.data(), room, again, needed, length));
    again.resize(length);
    require(again == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A copy of its own size, so that reading behind the text is found.
    std::vector<char> text(data, data + size);
    if (text.empty()) return 0;
    checkDecoder(base64_decode, text.data(), static_cast<unsigned int>(size));
    checkDecoder(base64hdr_decode, text.data(), static_cast<unsigned int>(size));
    return 0;
}
