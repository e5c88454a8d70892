#include "platform/crypt/Context.h"

#include <openssl/evp.h>

#include "platform/asn1/Runtime.h"
#include "platform/crypt/Algorithms.h"
#include "platform/crypt/StoreGuard.h"

namespace certstore {

using provider::fail;
using provider::require;

Hash sha1(View bytes) {
    static const EVP_MD* const digest = provider::digestOf(*provider::findAlgorithm(CALG_SHA1));
    Hash hash{};
    int good = EVP_Digest(bytes.data(), bytes.size(), hash.data(), nullptr, digest, nullptr);
    require(good == 1, NTE_FAIL);
    return hash;
}

storage::Access Origin::openForChange() const {
    require(!store->readOnly && place == 0, ERROR_ACCESS_DENIED);
    return stands().openForWriting();
}

template <class Kind>
Held<Kind>* Held<Kind>::create(View encoded, HCERTSTORE store, std::optional<Origin> origin) {
    require(encoded.data() != nullptr && !encoded.empty(), E_INVALIDARG);
    Held* held = new Held;
    try {
        ASN1CTXT* arena = held->arena_.get();
        const std::uint8_t* copy = rtCopyBytes(arena, encoded.data(), encoded.size());
        require(copy != nullptr, NTE_NO_MEMORY);
        View own(copy, encoded.size());
        Kind::fill(arena, own, held->info_, held->keys_);
        Kind::publish(*held, own, &held->info_, store);
        held->origin_ = std::move(origin);
    } catch (...) {
        delete held;
        throw;
    }
    return held;
}

template <class Kind>
Held<Kind>& Held<Kind>::of(const typename Kind::Context* context) {
    require(context != nullptr, E_INVALIDARG);
    auto* held = static_cast<Held*>(const_cast<typename Kind::Context*>(context));
    require(held->mark_.load(std::memory_order_relaxed) == alive, E_INVALIDARG);
    return *held;
}

template <class Kind>
void Held<Kind>::release() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    mark_.store(0, std::memory_order_relaxed);
    delete this;
}

template <class Kind>
std::optional<Bytes> Held<Kind>::property(DWORD id) const {
    if (origin_) {
        storage::Access state = origin_->stands().openForReading();
        return state ? state.stores().property(origin_->row, id) : std::nullopt;
    }
    std::lock_guard guard(lock_);
    auto found = properties_.find(id);
    return found != properties_.end() ? std::optional(found->second) : std::nullopt;
}

template <class Kind>
std::vector<storage::Property> Held<Kind>::properties() const {
    if (origin_) {
        storage::Access state = origin_->stands().openForReading();
        return state ? state.stores().properties(origin_->row) : std::vector<storage::Property>();
    }
    std::lock_guard guard(lock_);
    std::vector<storage::Property> all;
    for (const auto& [id, content] : properties_) all.push_back({id, content});
    return all;
}

template <class Kind>
void Held<Kind>::setProperty(DWORD id, const Bytes* content) {
    if (origin_) {
        bool set = origin_->openForChange().stores().setProperty(origin_->row, id, content);
        require(set, CRYPT_E_NOT_FOUND);
        return;
    }
    std::lock_guard guard(lock_);
    if (content != nullptr) {
        properties_[id] = *content;
    } else {
        properties_.erase(id);
    }
}

template class Held<CertificateKind>;
template class Held<CrlKind>;

}  // namespace certstore

using certstore::CertificateKind;
using certstore::CrlKind;
using certstore::guarded;
using certstore::guardedPointer;
using certstore::Held;

namespace {

/// The low word says how certificates are encoded; what messages are in does not matter here.
template <class Kind>
const typename Kind::Context* createContext(DWORD encodingType, const BYTE* encoded, DWORD length) {
    return guardedPointer([&]() -> const typename Kind::Context* {
        provider::require((encodingType & 0xFFFF) == X509_ASN_ENCODING, E_INVALIDARG);
        return Held<Kind>::create({encoded, length});
    });
}

template <class Kind>
const typename Kind::Context* duplicateContext(const typename Kind::Context* context) {
    return guardedPointer([&] {
        Held<Kind>::of(context).addReference();
        return context;
    });
}

template <class Kind>
BOOL freeContext(const typename Kind::Context* context) {
    if (context == nullptr) return 1;
    return guarded([&] { Held<Kind>::of(context).release(); });
}

}  // namespace

PCCERT_CONTEXT CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded, DWORD length) {
    return createContext<CertificateKind>(encodingType, encoded, length);
}

PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT context) {
    return duplicateContext<CertificateKind>(context);
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT context) {
    return freeContext<CertificateKind>(context);
}

PCCRL_CONTEXT CertCreateCRLContext(DWORD encodingType, const BYTE* encoded, DWORD length) {
    return createContext<CrlKind>(encodingType, encoded, length);
}

PCCRL_CONTEXT CertDuplicateCRLContext(PCCRL_CONTEXT context) {
    return duplicateContext<CrlKind>(context);
}

BOOL CertFreeCRLContext(PCCRL_CONTEXT context) { return freeContext<CrlKind>(context); }
