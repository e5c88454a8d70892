#include "platform/crypt/KeyPair.h"

#include <openssl/core_names.h>
#include <openssl/params.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <bit>
#include <functional>

namespace provider {
namespace {

constexpr unsigned smallestModulus = 1024;  // bits; old certificates have such keys
constexpr std::size_t largestModulus = largestSignature * 8;  // bits; libcrypto's own limit
constexpr std::size_t longestExponent = 8;                    // octets

/// An INTEGER that is positive and minimal, without its leading zero octet.
Bytes positiveInteger(DerReader& reader) {
    const auto item = reader.next(0x02);
    require(item && !item->content.empty(), NTE_BAD_KEY);
    Bytes octets = item->content;
    require((octets[0] & 0x80) == 0, NTE_BAD_KEY);
    if (octets[0] == 0) {
        require(octets.size() > 1 && (octets[1] & 0x80) != 0, NTE_BAD_KEY);
        octets = octets.subspan(1);
    }
    return octets;
}

std::size_t bitLength(Bytes number) {
    std::size_t bits = number.size() * 8;
    for (BYTE top = number[0]; (top & 0x80) == 0; top = static_cast<BYTE>(top << 1)) --bits;
    return bits;
}

/// libcrypto takes integers in the machine's order.
std::vector<BYTE> nativeOrder(Bytes number) {
    static_assert(std::endian::native == std::endian::little);
    return {number.rbegin(), number.rend()};
}

EVP_PKEY_CTX* rsaImporter() {
    thread_local const PkeyContextPtr context = [] {
        PkeyContextPtr made(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
        if (made && EVP_PKEY_fromdata_init(made.get()) != 1) made.reset();
        return made;
    }();
    require(context != nullptr, NTE_NO_MEMORY);
    return context.get();
}

PkeyPtr importRsa(const KeyParts& parts) {
    constexpr BYTE null[] = {0x05, 0x00};
    require(parts.parameters.empty() || std::ranges::equal(parts.parameters, null), NTE_BAD_KEY);
    DerReader outer(parts.key);
    const auto sequence = outer.next(0x30);
    require(sequence && outer.atEnd(), NTE_BAD_KEY);
    DerReader inner(sequence->content);
    const Bytes modulus = positiveInteger(inner);
    const Bytes exponent = positiveInteger(inner);
    const std::size_t bits = bitLength(modulus);
    require(inner.atEnd() && bits >= smallestModulus && bits <= largestModulus, NTE_BAD_KEY);
    const bool oddExponent = (exponent.back() & 1) != 0 && bitLength(exponent) > 1;
    require((modulus.back() & 1) != 0 && oddExponent && exponent.size() <= longestExponent,
            NTE_BAD_KEY);
    std::vector<BYTE> n = nativeOrder(modulus);
    std::vector<BYTE> e = nativeOrder(exponent);
    OSSL_PARAM values[] = {
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_N, n.data(), n.size()),
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_E, e.data(), e.size()),
        OSSL_PARAM_construct_end(),
    };
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_fromdata(rsaImporter(), &key, EVP_PKEY_PUBLIC_KEY, values) == 1, NTE_BAD_KEY);
    return PkeyPtr(key);
}

EVP_PKEY* makeCurveTemplate(const char* curve) {
    const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    OSSL_PARAM values[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, const_cast<char*>(curve), 0),
        OSSL_PARAM_construct_end(),
    };
    EVP_PKEY* key = nullptr;
    if (!context || EVP_PKEY_fromdata_init(context.get()) != 1) return nullptr;
    EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_KEY_PARAMETERS, values);
    return key;
}

/// A key of the curve without a point, to be duplicated; kept for the process.
EVP_PKEY* curveTemplate(const KeyShape& shape) {
    static const std::vector<EVP_PKEY*>* const templates = [] {
        auto* made = new std::vector<EVP_PKEY*>;
        for (const KeyShape& each : keyShapes()) {
            made->push_back(each.curve == nullptr ? nullptr : makeCurveTemplate(each.curve));
        }
        return made;
    }();
    EVP_PKEY* key = (*templates)[static_cast<std::size_t>(&shape - keyShapes().data())];
    require(key != nullptr, NTE_BAD_ALGID);
    return key;
}

const KeyShape& curveOf(const Algorithm& algorithm, const KeyParts& parts) {
    const KeyShape* shape = findShape(algorithm, parts.parameters);
    require(shape != nullptr, NTE_BAD_ALGID);
    return *shape;
}

/// Puts a point into a key of its curve; libcrypto checks that it lies on the curve.
void setPoint(EVP_PKEY* key, const KeyShape& shape, Bytes point) {
    // Compressed and uncompressed points only: neither the hybrid form nor the point at infinity.
    const std::size_t width = (shape.bits + 7) / 8;
    const BYTE form = point.empty() ? BYTE{0} : point[0];
    const bool uncompressed = form == 4 && point.size() == 1 + 2 * width;
    const bool compressed = (form == 2 || form == 3) && point.size() == 1 + width;
    require(uncompressed || compressed, NTE_BAD_KEY);
    require(EVP_PKEY_set1_encoded_public_key(key, point.data(), point.size()) == 1, NTE_BAD_KEY);
}

PkeyPtr importPoint(const Algorithm& algorithm, const KeyParts& parts) {
    const KeyShape& shape = curveOf(algorithm, parts);
    PkeyPtr key(EVP_PKEY_dup(curveTemplate(shape)));
    require(key != nullptr, NTE_NO_MEMORY);
    setPoint(key.get(), shape, parts.key);
    return key;
}

/// The keys that a thread imported lately, found by their bytes: verifying often meets the same
/// few.
class ImportCache {
public:
    std::shared_ptr<PublicKey>& entry(const KeyParts& parts) {
        const std::string_view bytes(reinterpret_cast<const char*>(parts.key.data()),
                                     parts.key.size());
        return entries_[std::hash<std::string_view>()(bytes) % entries_.size()];
    }

private:
    std::array<std::shared_ptr<PublicKey>, 32> entries_;
};

}  // namespace

SignatureContexts::~SignatureContexts() {
    for (auto& context : ready_) EVP_PKEY_CTX_free(context.load(std::memory_order_acquire));
}

PkeyContextPtr SignatureContexts::make(const Algorithm& hash) const {
    PkeyContextPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key_, nullptr));
    require(context != nullptr, NTE_NO_MEMORY);
    const int begun =
        use_ == Use::sign ? EVP_PKEY_sign_init(context.get()) : EVP_PKEY_verify_init(context.get());
    require(begun == 1, NTE_BAD_ALGID);
    // An RSA signature names its hash; one on a curve does not, and setting it takes a fetch.
    if (EVP_PKEY_is_a(key_, "RSA") == 1) {
        require(EVP_PKEY_CTX_set_signature_md(context.get(), digestOf(hash)) == 1, NTE_BAD_ALGID);
    }
    return context;
}

PkeyContextPtr SignatureContexts::context(const Algorithm& hash) const {
    std::atomic<EVP_PKEY_CTX*>& slot = ready_[indexOf(hash)];
    EVP_PKEY_CTX* ready = slot.load(std::memory_order_acquire);
    if (ready == nullptr) {
        PkeyContextPtr made = make(hash);
        if (slot.compare_exchange_strong(ready, made.get(), std::memory_order_acq_rel)) {
            ready = made.release();
        }
    }
    PkeyContextPtr copy(EVP_PKEY_CTX_dup(ready));
    require(copy != nullptr, NTE_NO_MEMORY);
    return copy;
}

PublicKey::PublicKey(const Algorithm& algorithm, const KeyParts& parts, PkeyPtr key)
    : algorithm_(algorithm),
      parameters_(parts.parameters.begin(), parts.parameters.end()),
      bits_(parts.key.begin(), parts.key.end()),
      key_(std::move(key)),
      contexts_(key_.get(), SignatureContexts::Use::verify) {}

bool PublicKey::consistsOf(const Algorithm& algorithm, const KeyParts& parts) const {
    return &algorithm == &algorithm_ && std::ranges::equal(bits_, parts.key) &&
           std::ranges::equal(parameters_, parts.parameters);
}

bool PublicKey::hasCurveOf(const Algorithm& algorithm, const KeyParts& parts) const {
    return algorithm.id == CALG_ECDSA && &algorithm == &algorithm_ &&
           std::ranges::equal(parameters_, parts.parameters);
}

void PublicKey::replacePoint(const KeyParts& parts) {
    setPoint(key_.get(), curveOf(algorithm_, parts), parts.key);
    bits_.assign(parts.key.begin(), parts.key.end());
}

std::shared_ptr<const PublicKey> PublicKey::import(const KeyParts& parts) {
    const Algorithm* algorithm = findAlgorithm(Group::key, parts.oid);
    require(algorithm != nullptr, NTE_BAD_ALGID);
    thread_local ImportCache cache;
    std::shared_ptr<PublicKey>& entry = cache.entry(parts);
    if (entry != nullptr && entry->consistsOf(*algorithm, parts)) return entry;
    std::shared_ptr<PublicKey> old = std::move(entry);
    if (old != nullptr && old.use_count() == 1 && old->hasCurveOf(*algorithm, parts)) {
        // Whoever had the key before, maybe in another thread, is done with it.
        std::atomic_thread_fence(std::memory_order_acquire);
        old->replacePoint(parts);
        entry = std::move(old);
    } else {
        const bool curve = algorithm->id == CALG_ECDSA;
        PkeyPtr key = curve ? importPoint(*algorithm, parts) : importRsa(parts);
        entry = std::make_shared<PublicKey>(*algorithm, parts, std::move(key));
    }
    return entry;
}

std::shared_ptr<const PublicKey> PublicKey::import(const CERT_PUBLIC_KEY_INFO& info) {
    const CRYPT_DATA_BLOB& parameters = info.Algorithm.Parameters;
    const CRYPT_BIT_BLOB& key = info.PublicKey;
    require(info.Algorithm.pszObjId != nullptr, ERROR_INVALID_PARAMETER);
    require(parameters.cbData == 0 || parameters.pbData != nullptr, ERROR_INVALID_PARAMETER);
    require(key.cbData != 0 && key.pbData != nullptr && key.cUnusedBits == 0, NTE_BAD_KEY);
    return import(KeyParts{
        info.Algorithm.pszObjId, {parameters.pbData, parameters.cbData}, {key.pbData, key.cbData}});
}

std::shared_ptr<const PublicKey> PublicKey::import(Bytes spki) {
    DerReader outer(spki);
    const auto info = outer.next(0x30);
    require(info && outer.atEnd(), NTE_BAD_KEY);
    DerReader fields(info->content);
    const auto algorithm = fields.next(0x30);
    const auto bits = fields.next(0x03);
    require(algorithm && bits && fields.atEnd(), NTE_BAD_KEY);
    DerReader inner(algorithm->content);
    const auto oid = inner.next(0x06);
    require(oid && bits->content.size() > 1 && bits->content[0] == 0, NTE_BAD_KEY);
    const auto parameters = inner.next();
    require(inner.atEnd(), NTE_BAD_KEY);
    const std::string dotted = dottedOid(oid->content);
    return import(
        KeyParts{dotted, parameters ? parameters->whole : Bytes(), bits->content.subspan(1)});
}

bool PublicKey::verify(const Algorithm& hash, Bytes digest, Bytes signature) const {
    if (signature.empty() || signature.size() > largestSignature) return false;
    const PkeyContextPtr context = contexts_.context(hash);
    const int result = EVP_PKEY_verify(context.get(), signature.data(), signature.size(),
                                       digest.data(), digest.size());
    if (result != 1) ERR_clear_error();
    return result == 1;
}

std::shared_ptr<const PrivateKey> PrivateKey::generate(const KeyShape& shape) {
    EVP_PKEY* key = nullptr;
    const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(nullptr, shape.libcrypto, nullptr));
    require(context && EVP_PKEY_keygen_init(context.get()) == 1, NTE_BAD_ALGID);
    const int set = shape.curve != nullptr ? EVP_PKEY_CTX_set_group_name(context.get(), shape.curve)
                                           : EVP_PKEY_CTX_set_rsa_keygen_bits(
                                                 context.get(), static_cast<int>(shape.bits));
    require(set > 0, NTE_BAD_ALGID);
    require(EVP_PKEY_generate(context.get(), &key) == 1, NTE_FAIL);
    return std::make_shared<const PrivateKey>(PkeyPtr(key));
}

PrivateKey::PrivateKey(PkeyPtr key)
    : key_(std::move(key)), contexts_(key_.get(), SignatureContexts::Use::sign) {}

std::vector<BYTE> PrivateKey::publicKeyInfo() const {
    unsigned char* encoded = nullptr;
    const int length = i2d_PUBKEY(key_.get(), &encoded);
    require(length > 0, NTE_BAD_KEY);
    std::vector<BYTE> info(encoded, encoded + length);
    OPENSSL_free(encoded);
    return info;
}

std::vector<BYTE> PrivateKey::sign(const Algorithm& hash, Bytes digest) const {
    require(hash.signs, NTE_BAD_ALGID);
    const PkeyContextPtr context = contexts_.context(hash);
    std::vector<BYTE> signature(static_cast<std::size_t>(EVP_PKEY_get_size(key_.get())));
    std::size_t length = signature.size();
    require(
        EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size()) == 1,
        NTE_FAIL);
    signature.resize(length);
    return signature;
}

Bytes publicKeyOfCertificate(Bytes certificate) {
    DerReader outer(certificate);
    const auto whole = outer.next(0x30);
    require(whole && outer.atEnd(), NTE_BAD_DATA);
    DerReader parts(whole->content);
    const auto tbs = parts.next(0x30);
    require(tbs.has_value(), NTE_BAD_DATA);
    DerReader fields(tbs->content);
    fields.next(0xA0);  // version
    // serialNumber, signature, issuer, validity, subject
    for (const BYTE tag : {BYTE{0x02}, BYTE{0x30}, BYTE{0x30}, BYTE{0x30}, BYTE{0x30}}) {
        require(fields.next(tag).has_value(), NTE_BAD_DATA);
    }
    const auto key = fields.next(0x30);
    require(key.has_value(), NTE_BAD_DATA);
    return key->whole;
}

}  // namespace provider
