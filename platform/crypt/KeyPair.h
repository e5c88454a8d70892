#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/crypt/Algorithms.h"
#include "platform/crypt/Der.h"
#include "platform/crypt/Libcrypto.h"

// Public and private keys. Neither changes once it was given out, so both may be used from several
// threads at once. Key bytes are picked apart here and checked before libcrypto sees them.

namespace provider {

/// Of the largest RSA key that is taken.
inline constexpr std::size_t largestSignature = 16384 / 8;

/// Signing or verifying contexts of one key, one a hash, made when first needed and duplicated for
/// each use: that costs a small part of setting one up.
class SignatureContexts {
public:
    enum class Use { sign, verify };

    SignatureContexts(EVP_PKEY* key, Use use) : key_(key), use_(use) {}
    ~SignatureContexts();
    SignatureContexts(const SignatureContexts&) = delete;
    SignatureContexts& operator=(const SignatureContexts&) = delete;

    PkeyContextPtr context(const Algorithm& hash) const;

private:
    PkeyContextPtr make(const Algorithm& hash) const;

    EVP_PKEY* key_;  // of the owner
    Use use_;
    mutable std::array<std::atomic<EVP_PKEY_CTX*>, algorithmLimit> ready_{};
};

/// The parts of a SubjectPublicKeyInfo (RFC 5280 4.1.2.7).
struct KeyParts {
    std::string_view oid;
    Bytes parameters;
    Bytes key;
};

class PublicKey {
public:
    /// RSA (RFC 8017 A.1.1) and named curves (RFC 5480). Fails with NTE_BAD_ALGID for an unknown
    /// algorithm or curve, NTE_BAD_KEY for a key that is none: a point not on the curve, a modulus
    /// or exponent of an odd shape. Lately imported keys are kept per thread.
    static std::shared_ptr<const PublicKey> import(const KeyParts& parts);
    static std::shared_ptr<const PublicKey> import(const CERT_PUBLIC_KEY_INFO& info);
    /// From the DER of a SubjectPublicKeyInfo.
    static std::shared_ptr<const PublicKey> import(Bytes spki);

    PublicKey(const Algorithm& algorithm, const KeyParts& parts, PkeyPtr key);

    const Algorithm& algorithm() const { return algorithm_; }
    Bytes parameters() const { return parameters_; }
    Bytes bits() const { return bits_; }
    unsigned size() const { return static_cast<unsigned>(EVP_PKEY_get_bits(key_.get())); }
    std::size_t longestSignature() const {
        return static_cast<std::size_t>(EVP_PKEY_get_size(key_.get()));
    }
    bool matches(const EVP_PKEY* other) const { return EVP_PKEY_eq(key_.get(), other) == 1; }
    bool matches(const PublicKey& other) const { return matches(other.key_.get()); }
    bool verify(const Algorithm& hash, Bytes digest, Bytes signature) const;

private:
    bool consistsOf(const Algorithm& algorithm, const KeyParts& parts) const;
    bool hasCurveOf(const Algorithm& algorithm, const KeyParts& parts) const;
    /// Makes this another key of its curve, for much less than a new one costs: its contexts stay.
    /// Only while nobody else has it; after a failure it is no key any more.
    void replacePoint(const KeyParts& parts);

    const Algorithm& algorithm_;
    std::vector<BYTE> parameters_;
    std::vector<BYTE> bits_;
    PkeyPtr key_;
    SignatureContexts contexts_;
};

class PrivateKey {
public:
    static std::shared_ptr<const PrivateKey> generate(const KeyShape& shape);

    explicit PrivateKey(PkeyPtr key);

    EVP_PKEY* get() const { return key_.get(); }
    /// DER of the SubjectPublicKeyInfo.
    std::vector<BYTE> publicKeyInfo() const;
    /// The signature in its wire form: an ECDSA-Sig-Value or the RSA integer.
    std::vector<BYTE> sign(const Algorithm& hash, Bytes digest) const;

private:
    PkeyPtr key_;
    SignatureContexts contexts_;
};

/// The DER of the SubjectPublicKeyInfo inside the DER of a certificate; fails with NTE_BAD_DATA.
Bytes publicKeyOfCertificate(Bytes certificate);

}  // namespace provider
