#include "capilite/Base64.h"

#include <array>
#include <cassert>
#include <cstdint>
#include <cstring>

#include "capilite/Ascii.h"
#include "platform/support/LastError.h"

namespace {

constexpr char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint32_t LINE_BYTES = 48;
constexpr std::uint32_t LINE_CHARACTERS = 64;

// Classes of characters beside the values 0 to 63.
constexpr std::uint8_t WHITE = 0x80, LINE_END = 0x81, END_OF_TEXT = 0x82, INVALID = 0xFF;

constexpr std::array<std::uint8_t, 128> makeTable() {
    std::array<std::uint8_t, 128> table{};
    table.fill(INVALID);
    for (std::uint8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(ALPHABET[i])] = i;
    table['='] = 0;
    table['\t'] = table[' '] = WHITE;
    table['\n'] = table['\r'] = LINE_END;
    table['-'] = END_OF_TEXT;
    return table;
}
constexpr std::array<std::uint8_t, 128> TABLE = makeTable();

int finish(std::uint32_t error, int result) {
    SetLastError(error);
    return result;
}

std::uint64_t encodedSize(std::uint32_t length) {
    std::uint64_t size = std::uint64_t{length / LINE_BYTES} * (LINE_CHARACTERS + 1);
    std::uint32_t rest = length % LINE_BYTES;
    if (rest != 0) size += 1 + rest / 3 * 4 + (rest % 3 != 0 ? 4 : 0);
    return size;
}

/// Writes one line of at most 48 bytes with its line feed; returns the place behind it.
char* encodeLine(const unsigned char* in, std::uint32_t n, char* out) {
    for (; n >= 3; n -= 3, in += 3) {
        *out++ = ALPHABET[in[0] >> 2];
        *out++ = ALPHABET[(in[0] & 3) << 4 | in[1] >> 4];
        *out++ = ALPHABET[(in[1] & 15) << 2 | in[2] >> 6];
        *out++ = ALPHABET[in[2] & 63];
    }
    if (n != 0) {
        unsigned second = n == 2 ? in[1] : 0;
        *out++ = ALPHABET[in[0] >> 2];
        *out++ = ALPHABET[(in[0] & 3) << 4 | second >> 4];
        *out++ = n == 2 ? ALPHABET[(second & 15) << 2] : '=';
        *out++ = '=';
    }
    *out++ = '\n';
    return out;
}

/// The decoder of one text: a line of up to 64 characters is collected, then decoded.
class LineDecoder {
public:
    LineDecoder(unsigned char* out, std::uint32_t capacity) : out_(out), capacity_(capacity) {}

    void add(std::uint8_t value, bool padding) {
        values_[count_++] = value;
        padding_ += padding;
    }
    bool full() const { return count_ == LINE_CHARACTERS; }
    bool complete() const { return padding_ != 0 || count_ % 4 == 0; }
    bool overflowed() const { return overflowed_; }
    std::uint64_t length() const { return static_cast<std::uint64_t>(length_); }

    /// False for a line that is no base64. An empty line decodes to nothing.
    bool decode() {
        std::uint32_t count = count_;
        count_ = 0;
        if (count % 4 != 0) return false;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (values_[i] > 63) return false;
        }
        if (count == 0) return true;
        store(count / 4);
        // All padding seen so far counts, in this line and before it.
        std::int64_t produced = std::int64_t{count} / 4 * 3 - padding_;
        if (!overflowed_ && produced > std::int64_t{capacity_} - length_) overflowed_ = true;
        length_ = length_ + produced < 0 ? 0 : length_ + produced;
        return true;
    }

private:
    void store(std::uint32_t groups) {
        if (out_ == nullptr || overflowed_) return;
        std::int64_t at = length_;
        for (std::uint32_t g = 0; g < groups; ++g) {
            const std::uint8_t* v = values_ + 4 * g;
            put(at++, v[0] << 2 | v[1] >> 4);
            put(at++, v[1] << 4 | v[2] >> 2);
            put(at++, v[2] << 6 | v[3]);
        }
    }
    void put(std::int64_t at, int byte) {
        if (at < std::int64_t{capacity_}) out_[at] = static_cast<unsigned char>(byte);
    }

    unsigned char* out_;
    std::uint32_t capacity_;
    std::uint8_t values_[LINE_CHARACTERS];
    std::uint32_t count_ = 0;
    std::int64_t length_ = 0;  // reported; also where the next line is stored
    std::int64_t padding_ = 0;
    bool overflowed_ = false;
};

}  // namespace

extern "C" {

const Base64HeaderPair _Base64CertificateHdrs = {
    sizeof(Base64HeaderPair), "-----BEGIN CERTIFICATE-----", "-----END CERTIFICATE-----"};
const Base64HeaderPair _Base64RequestHdrs = {sizeof(Base64HeaderPair),
                                             "-----BEGIN NEW CERTIFICATE REQUEST-----",
                                             "-----END NEW CERTIFICATE REQUEST-----"};

int base64_encode(const unsigned char* bytes, unsigned int length, char* text,
                  unsigned int* pcb64) {
    if (bytes == nullptr || pcb64 == nullptr) return finish(ERROR_BAD_ARGUMENTS, 0);
    std::uint64_t size = encodedSize(length);
    if (size > 0xFFFFFFFF) return finish(ERROR_BAD_ARGUMENTS, 0);
    auto cb64 = static_cast<std::uint32_t>(size);
    std::uint32_t capacity = *pcb64;
    *pcb64 = cb64;
    if (text == nullptr) return finish(ERROR_SUCCESS, 1);
    if (capacity < cb64) return finish(ERROR_MORE_DATA, 0);
    char* end = text;
    while (length != 0) {
        std::uint32_t n = length < LINE_BYTES ? length : LINE_BYTES;
        end = encodeLine(bytes, n, end);
        bytes += n;
        length -= n;
    }
    *pcb64 = static_cast<std::uint32_t>(end - text);
    assert(*pcb64 == cb64);
    return finish(ERROR_SUCCESS, 1);
}

int base64_decode(const char* text, unsigned int length, unsigned char* bytes,
                  unsigned int* bytesLength) {
    if (text == nullptr || bytesLength == nullptr) return finish(ERROR_BAD_ARGUMENTS, 0);
    LineDecoder decoder(bytes, *bytesLength);
    *bytesLength = 0;
    bool ended = false;
    for (std::uint32_t i = 0; i < length && !ended; ++i) {
        unsigned char c = text[i] & 0x7F;
        std::uint8_t value = TABLE[c];
        ended = value == END_OF_TEXT;
        if (value <= 63 || value == INVALID) decoder.add(value, c == '=');
        bool last = i + 1 == length;
        if ((decoder.full() || ended || (last && decoder.complete())) && !decoder.decode()) {
            return finish(CRYPT_E_BAD_ENCODE, 0);
        }
    }
    *bytesLength = static_cast<std::uint32_t>(decoder.length());
    if (bytes == nullptr) return finish(ERROR_SUCCESS, 1);
    if (decoder.overflowed()) return finish(ERROR_MORE_DATA, 0);
    return finish(ended ? ERROR_HANDLE_EOF : ERROR_SUCCESS, 1);
}

int skip_base64_header(const char* text, unsigned int length, const char** bodyOut,
                       unsigned int* bodyLengthOut) {
    if (bodyOut == nullptr || bodyLengthOut == nullptr) return finish(ERROR_BAD_ARGUMENTS, 0);
    *bodyLengthOut = length;
    if (text == nullptr || length == 0) return 0;
    enum { start, openingDashes, words, closingDashes } state = start;
    for (std::uint32_t i = 0; i < length; ++i) {
        if (text[i] == '-') {
            if (state == start) state = openingDashes;
            if (state == words) state = closingDashes;
        } else if (capilite::isAsciiSpace(text[i])) {
            continue;
        } else if (state == start || state == closingDashes) {
            *bodyOut = text + i;
            *bodyLengthOut = length - i;
            return 1;
        } else {
            state = words;
        }
    }
    return finish(CRYPT_E_BAD_ENCODE, 0);
}

int base64hdr_encode(const Base64HeaderPair* pair, const unsigned char* bytes, unsigned int length,
                     char* text, unsigned int* textLength) {
    if (pair == nullptr || pair->size != sizeof(Base64HeaderPair) || pair->header == nullptr ||
        pair->footer == nullptr || bytes == nullptr || textLength == nullptr) {
        return finish(ERROR_BAD_ARGUMENTS, 0);
    }
    std::size_t header = std::strlen(pair->header), footer = std::strlen(pair->footer);
    std::uint64_t lines = std::uint64_t{header} + 1 + footer + 1;
    std::uint64_t needed = lines + encodedSize(length);
    if (needed > 0xFFFFFFFF) return finish(ERROR_BAD_ARGUMENTS, 0);
    std::uint32_t capacity = *textLength;
    *textLength = static_cast<std::uint32_t>(needed);
    if (text == nullptr) return finish(ERROR_SUCCESS, 1);
    if (capacity < lines) return finish(ERROR_MORE_DATA, 0);
    std::memcpy(text, pair->header, header);
    text[header] = '\n';
    char* body = text + header + 1;
    auto bodyLength = static_cast<std::uint32_t>(capacity - lines);
    if (!base64_encode(bytes, length, body, &bodyLength)) return 0;
    std::memcpy(body + bodyLength, pair->footer, footer);
    body[bodyLength + footer] = '\n';
    return finish(ERROR_SUCCESS, 1);
}

int base64hdr_decode(const char* text, unsigned int length, unsigned char* bytes,
                     unsigned int* bytesLength) {
    const char* body = nullptr;
    unsigned int bodyLength = 0;
    if (!skip_base64_header(text, length, &body, &bodyLength)) {
        if (bytesLength != nullptr) *bytesLength = 0;
        return finish(CRYPT_E_BAD_ENCODE, 0);
    }
    return base64_decode(body, bodyLength, bytes, bytesLength);
}

}  // extern "C"
