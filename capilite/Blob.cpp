#include "capilite/Blob.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "capilite/Ascii.h"
#include "capilite/Base64.h"
#include "capilite/BigInt.h"
#include "capilite/CAException.h"
#include "capilite/FileOpen.h"

#if defined(__SANITIZE_ADDRESS__)
#define CAPILITE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CAPILITE_ASAN 1
#endif
#endif
#if CAPILITE_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace {

constexpr std::uint64_t MAX_SIZE = 0xFFFFFFFF;

/// Parked arrays are out of bounds for everyone, so that using a blob after its end is found.
void setAccessible([[maybe_unused]] const void* p, [[maybe_unused]] std::size_t n,
                   [[maybe_unused]] bool accessible) {
#if CAPILITE_ASAN
    if (accessible) {
        ASAN_UNPOISON_MEMORY_REGION(p, n);
    } else {
        ASAN_POISON_MEMORY_REGION(p, n);
    }
#endif
}

/// Arrays of the first capacity that this thread has done with. Most blobs live shortly and one
/// after the other; taking such an array from the list costs a few nanoseconds where the allocator
/// may go to the system for pages.
class SpareArrays {
public:
    static constexpr unsigned LIMIT = 32;

    unsigned char* take() {
        if (count_ == 0) return new unsigned char[CACMPT_BLOB::FIRST_CAPACITY];
        unsigned char* array = slots_[--count_];
        setAccessible(array, CACMPT_BLOB::FIRST_CAPACITY, true);
        return array;
    }
    void give(unsigned char* array) {
        if (ended_ || count_ == LIMIT) {
            delete[] array;
            return;
        }
        if (count_ == 0) registerDrain();
        setAccessible(array, CACMPT_BLOB::FIRST_CAPACITY, false);
        slots_[count_++] = array;
    }

private:
    /// Frees the list when the thread ends. Blobs that are destroyed later free their own arrays.
    struct Drain {
        SpareArrays* list;
        ~Drain() {
            list->ended_ = true;
            while (list->count_ != 0) delete[] list->take();
        }
    };
    void registerDrain() { [[maybe_unused]] thread_local Drain drain{this}; }

    unsigned char* slots_[LIMIT];
    unsigned count_;
    bool ended_;
};

// Without a destructor of its own, so that it can be used until the thread's memory is gone.
constinit thread_local SpareArrays spareArrays{};

unsigned char* newArray(std::uint32_t capacity) {
    return capacity == CACMPT_BLOB::FIRST_CAPACITY ? spareArrays.take()
                                                   : new unsigned char[capacity];
}

void freeArray(unsigned char* array, std::uint32_t capacity) noexcept {
    if (capacity == CACMPT_BLOB::FIRST_CAPACITY) {
        spareArrays.give(array);
    } else {
        delete[] array;
    }
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Length of the file, left at its start; below zero for what has no length.
long fileLength(std::FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return -1;
    long length = std::ftell(file);
    if (length < 0 || std::fseek(file, 0, SEEK_SET) != 0) return -1;
    return length;
}

void copyText(char (&target)[256], const char (&source)[256]) {
    std::size_t n = strnlen(source, sizeof source - 1);
    std::memcpy(target, source, n);
    target[n] = '\0';
}

}  // namespace

void CACMPT_BLOB::grow(std::size_t n, Content content) {
    if (n > MAX_SIZE) throw std::bad_alloc();
    std::uint64_t wanted = capacity != 0 ? capacity : FIRST_CAPACITY;
    while (wanted < n) wanted *= 2;
    if (wanted > MAX_SIZE) wanted = MAX_SIZE;
    auto newCapacity = static_cast<std::uint32_t>(wanted);
    unsigned char* array = newArray(newCapacity);
    if (content == Content::kept && size != 0) std::memcpy(array, data, size);
    if (data != nullptr) freeArray(data, capacity);
    data = array;
    capacity = newCapacity;
}

void CACMPT_BLOB::assign(const void* bytes, std::size_t n) {
    if (n == 0 || bytes == nullptr) {
        clear();
        return;
    }
    if (n <= capacity) {
        std::memmove(data, bytes, n);
    } else {
        CACMPT_BLOB larger;
        larger.grow(n, Content::dropped);
        std::memcpy(larger.data, bytes, n);
        swap(larger);
    }
    size = static_cast<std::uint32_t>(n);
}

void CACMPT_BLOB::append(const void* bytes, std::size_t n) {
    if (n == 0) return;
    std::uint64_t total = std::uint64_t{size} + n;
    if (total <= capacity) {
        std::memmove(data + size, bytes, n);
    } else {
        CACMPT_BLOB longer;
        longer.grow(total, Content::dropped);
        if (size != 0) std::memcpy(longer.data, data, size);
        std::memcpy(longer.data + size, bytes, n);
        longer.size = size;
        swap(longer);
    }
    size = static_cast<std::uint32_t>(total);
}

void CACMPT_BLOB::reserve(std::size_t n) {
    if (capacity < n) grow(n, Content::kept);
}

void CACMPT_BLOB::clear() noexcept {
    if (data != nullptr) freeArray(data, capacity);
    size = 0;
    data = nullptr;
    capacity = 0;
}

void CACMPT_BLOB::swap(CACMPT_BLOB& other) noexcept {
    std::swap(size, other.size);
    std::swap(data, other.data);
    std::swap(capacity, other.capacity);
}

void CACMPT_BLOB::readFromFile(const char* name) {
    if (name == nullptr) name = "";
    File file(support_an_fopen(name, "rb"));
    long length = file ? fileLength(file.get()) : -1;
    // A folder opens like a file, but its length is a number that no file has.
    if (length < 0 || static_cast<std::uint64_t>(length) > MAX_SIZE) {
        size = 0;
        PKIXCMP_THROW(Asn1Exception, std::string("couldn't open file ") + name);
    }
    auto n = static_cast<std::size_t>(length);
    if (capacity < n) grow(n, Content::dropped);
    size = n == 0 ? 0 : static_cast<std::uint32_t>(std::fread(data, 1, n, file.get()));
}

void CACMPT_BLOB::writeToFile(const char* name) const {
    if (size == 0) return;
    if (name == nullptr) name = "";
    File file(support_an_fopen(name, "wb"));
    if (!file) PKIXCMP_THROW(Asn1Exception, std::string("couldn't open file ") + name);
    [[maybe_unused]] std::size_t written = std::fwrite(data, 1, size, file.get());
}

void CACMPT_BLOB::readFromHexString(const char* text) {
    if (text == nullptr) text = "";
    std::size_t room = std::strlen(text) / 2 + 1;
    if (capacity < room) grow(room, Content::dropped);
    size = 0;
    auto skipSpace = [&text] {
        while (capilite::isAsciiSpace(*text)) ++text;
    };
    for (skipSpace(); *text != '\0'; skipSpace()) {
        int high = capilite::hexDigitValue(text[0]);
        int low = high < 0 ? -1 : capilite::hexDigitValue(text[1]);
        if (low < 0) return;
        data[size++] = static_cast<unsigned char>(high << 4 | low);
        text += 2;
    }
}

std::string CACMPT_BLOB::writeToHexString() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(std::size_t{2} * size);
    for (unsigned char byte : bytes()) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

namespace {

/// Runs a conversion of the base64 functions twice, for the size and for the bytes.
template <class Convert>
CACMPT_BLOB convertTwice(Convert convert, const char* failure) {
    CACMPT_BLOB result;
    unsigned int length = 0;
    if (!convert(nullptr, &length)) PKIXCMP_THROW(CAException, failure);
    if (length == 0) return result;
    result.resize(length);
    if (!convert(result.data, &length)) PKIXCMP_THROW(CAException, failure);
    result.size = length;
    return result;
}

constexpr const char* ENCODE_FAILED = "base64_encode failed";
constexpr const char* DECODE_FAILED = "invalid base 64 format";

char* asText(unsigned char* p) { return reinterpret_cast<char*>(p); }

}  // namespace

CACMPT_BLOB CACMPT_BLOB::toBase64() const {
    return convertTwice(
        [this](unsigned char* out, unsigned int* n) {
            return base64_encode(data, size, asText(out), n);
        },
        ENCODE_FAILED);
}

CACMPT_BLOB CACMPT_BLOB::fromBase64() const {
    return convertTwice(
        [this](unsigned char* out, unsigned int* n) {
            return base64_decode(asText(data), size, out, n);
        },
        DECODE_FAILED);
}

CACMPT_BLOB CACMPT_BLOB::toBase64Hdr(const char* header, const char* footer) const {
    Base64HeaderPair pair = {sizeof pair, header, footer};
    return convertTwice(
        [this, &pair](unsigned char* out, unsigned int* n) {
            return base64hdr_encode(&pair, data, size, asText(out), n);
        },
        ENCODE_FAILED);
}

CACMPT_BLOB CACMPT_BLOB::fromBase64Hdr(const char*, const char*) const {
    return convertTwice(
        [this](unsigned char* out, unsigned int* n) {
            return base64hdr_decode(asText(data), size, out, n);
        },
        DECODE_FAILED);
}

const char* const CACMPT_BLOB::Base64CertificateHeader = _Base64CertificateHdrs.header;
const char* const CACMPT_BLOB::Base64CertificateFooter = _Base64CertificateHdrs.footer;
const char* const CACMPT_BLOB::Base64RequestHeader = _Base64RequestHdrs.header;
const char* const CACMPT_BLOB::Base64RequestFooter = _Base64RequestHdrs.footer;
const char* const CACMPT_BLOB::Base64CRLHeader = "-----BEGIN X509 CRL-----";
const char* const CACMPT_BLOB::Base64CRLFooter = "-----END X509 CRL-----";

void CACMPT_BigInteger::increment(int lowest) {
    ASN1T_BigInt_inc(data, static_cast<int>(size), lowest);
}

CACMPT_BigInteger& CACMPT_BigInteger::operator++() {
    ASN1T_BigInt_inc(data, static_cast<int>(size), 0);
    return *this;
}

CACMPT_BigInteger CACMPT_BigInteger::operator++(int) {
    CACMPT_BigInteger old = *this;
    ++*this;
    return old;
}

void CACMPT_AlgorithmIdentifier::assign(const CACMPT_AlgorithmIdentifier& other) {
    if (this == &other) return;
    copyText(algorithm, other.algorithm);
    parameters.assign(other.parameters);
}

void CACMPT_PublicKeyInfo::assign(const CACMPT_PublicKeyInfo& other) {
    if (this == &other) return;
    copyText(algorithm, other.algorithm);
    parameters.assign(other.parameters);
    key.assign(other.key);
}
