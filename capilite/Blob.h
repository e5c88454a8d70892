#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/asn1/BasicTypes.h"

/// The byte buffer of the whole system: every encoded certificate, request, CRL, key identifier and
/// hash travels in one. Owns its bytes, is copied by value and is not safe for concurrent change.
///
/// Capacity starts at 262144 bytes however small the content and doubles from there, so that one
/// allocation serves almost every object; first allocations come from a short list of spare arrays
/// that each thread keeps. A blob never shrinks, except that assigning nothing frees the array.
class PKIXCMP_API CACMPT_BLOB {
public:
    /// Capacity of a first allocation.
    static constexpr std::uint32_t FIRST_CAPACITY = 262144;

    CACMPT_BLOB() noexcept = default;
    CACMPT_BLOB(const void* bytes, std::size_t n) { assign(bytes, n); }
    CACMPT_BLOB(const CACMPT_BLOB& other) { assign(other.data, other.size); }
    CACMPT_BLOB(CACMPT_BLOB&& other) noexcept { swap(other); }
    CACMPT_BLOB& operator=(const CACMPT_BLOB& other) {
        if (this != &other) assign(other.data, other.size);
        return *this;
    }
    CACMPT_BLOB& operator=(CACMPT_BLOB&& other) noexcept {
        swap(other);
        return *this;
    }
    ~CACMPT_BLOB() { clear(); }

    std::uint32_t size = 0;         // bytes in use
    unsigned char* data = nullptr;  // owned array, null while capacity is 0
    std::uint32_t capacity = 0;     // bytes allocated

    /// Replaces the content. No bytes: the array is freed. The bytes may lie in this blob.
    void assign(const void* bytes, std::size_t n);
    void assign(const CACMPT_BLOB& other) { *this = other; }
    void assign(const ASN1TDynOctStr& octets) { assign(octets.data, octets.numocts); }
    void assign(std::string_view text) { assign(text.data(), text.size()); }
    /// Adds bytes at the end. They may lie in this blob.
    void append(const void* bytes, std::size_t n);
    /// Makes room for n bytes by the capacity rule, keeping the content.
    void reserve(std::size_t n);
    /// Sets the size; bytes beyond the old content are not initialised.
    void resize(std::size_t n) {
        reserve(n);
        size = static_cast<std::uint32_t>(n);
    }
    /// Frees the array.
    void clear() noexcept;
    void swap(CACMPT_BLOB& other) noexcept;

    /// Replaces the content with the whole file. `Asn1Exception` when it cannot be opened or
    /// measured; the blob is then of size 0.
    void readFromFile(const char* name);
    /// Writes the content; an empty blob creates no file. The result of the write is not checked.
    void writeToFile(const char* name) const;
    /// Replaces the content with the bytes of hexadecimal text. White space may stand between
    /// bytes. Reading ends without a failure at the first thing that is no pair of digits.
    void readFromHexString(const char* text);
    /// Upper-case digits without separators.
    std::string writeToHexString() const;

    // Base64 text, which has no terminating zero. `CAException` for what cannot be converted: text
    // that is no base64, and a blob without bytes.
    CACMPT_BLOB toBase64() const;
    CACMPT_BLOB fromBase64() const;
    CACMPT_BLOB toBase64Hdr(const char* header, const char* footer) const;
    /// Skips any armour, whatever the lines given.
    CACMPT_BLOB fromBase64Hdr(const char* header, const char* footer) const;

    // Armour lines.
    static const char* const Base64CertificateHeader;
    static const char* const Base64CertificateFooter;
    static const char* const Base64RequestHeader;
    static const char* const Base64RequestFooter;
    static const char* const Base64CRLHeader;
    static const char* const Base64CRLFooter;

    bool empty() const noexcept { return size == 0; }
    const unsigned char* begin() const noexcept { return data; }
    const unsigned char* end() const noexcept { return data + size; }
    std::span<const unsigned char> bytes() const noexcept { return {data, size}; }
    std::string_view view() const noexcept {
        return {size != 0 ? reinterpret_cast<const char*>(data) : "", size};
    }
    /// A view for records; it lasts as long as the blob is not changed.
    ASN1TDynOctStr octets() const noexcept { return {size, data}; }
    friend bool operator==(const CACMPT_BLOB& a, const CACMPT_BLOB& b) noexcept {
        return a.view() == b.view();
    }

private:
    enum class Content { kept, dropped };
    void grow(std::size_t n, Content content);
};

/// A big-endian unsigned number in the bytes of a blob. Its length never changes by counting.
class PKIXCMP_API CACMPT_BigInteger : public CACMPT_BLOB {
public:
    using CACMPT_BLOB::CACMPT_BLOB;
    CACMPT_BigInteger() noexcept = default;

    /// Adds one, carrying no further than the byte at index `lowest`; a carry out of it is lost.
    void increment(int lowest);
    CACMPT_BigInteger& operator++();
    CACMPT_BigInteger operator++(int);
};

/// An algorithm: dotted identifier and encoded parameters.
class PKIXCMP_API CACMPT_AlgorithmIdentifier {
public:
    CACMPT_AlgorithmIdentifier() noexcept : algorithm{} {}
    CACMPT_AlgorithmIdentifier(const CACMPT_AlgorithmIdentifier& other) { assign(other); }
    CACMPT_AlgorithmIdentifier& operator=(const CACMPT_AlgorithmIdentifier& other) {
        assign(other);
        return *this;
    }
    void assign(const CACMPT_AlgorithmIdentifier& other);

    char algorithm[256];  // zero-terminated
    CACMPT_BLOB parameters;
};

/// A public key: algorithm, encoded parameters, and the octets of the key's bit string.
class PKIXCMP_API CACMPT_PublicKeyInfo {
public:
    CACMPT_PublicKeyInfo() noexcept : algorithm{} {}
    CACMPT_PublicKeyInfo(const CACMPT_PublicKeyInfo& other) { assign(other); }
    CACMPT_PublicKeyInfo& operator=(const CACMPT_PublicKeyInfo& other) {
        assign(other);
        return *this;
    }
    void assign(const CACMPT_PublicKeyInfo& other);

    char algorithm[256];  // zero-terminated
    CACMPT_BLOB parameters;
    CACMPT_BLOB key;
};
