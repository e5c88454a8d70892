#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "platform/asn1/Buffers.h"
#include "platform/crypt/StoreHandle.h"

// Certificate and CRL contexts: a counted record of the bytes, what they say, and where the object
// stands. Everything that the record points at lives in one arena that goes with it.

namespace certstore {

using Bytes = std::vector<BYTE>;
using View = std::span<const BYTE>;
using Hash = std::array<BYTE, 20>;

Hash sha1(View bytes);
inline View viewOf(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }
inline bool isEqual(View a, View b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

/// What a search has found and not yet given out, with the search it belongs to. Shared by the
/// contexts of a walk and never changed.
struct Ahead {
    storage::SearchBy by = storage::SearchBy::any;
    Bytes value;
    storage::Page page;
};

/// Where a context's object stands, and the walk that found it.
struct Origin {
    std::shared_ptr<StoreHandle> store;
    std::size_t place = 0;  // of the store's places
    std::int64_t row = 0;
    std::shared_ptr<const Ahead> ahead;
    std::size_t position = 0;  // in `ahead`

    const Place& stands() const { return store->places[place]; }
    /// Fails with ERROR_ACCESS_DENIED for a store that was opened to be read, and for an object of
    /// the machine's that the user's view shows: changes go to the side that was asked for.
    storage::Access openForChange() const;
};

/// What an object of the store is found by, beside its hash.
struct SearchKeys {
    View keyIdentifier;
    View subject;
    View issuer;
};

struct CertificateKind {
    using Context = _CERT_CONTEXT;
    using Info = CERT_INFO;
    static constexpr storage::ObjectKind kind = storage::ObjectKind::certificate;
    static void fill(ASN1CTXT* arena, View encoded, Info& info, SearchKeys& keys);
    static void publish(Context& context, View encoded, Info* info, HCERTSTORE store) {
        context = {CERT_ENCODING, const_cast<BYTE*>(encoded.data()),
                   static_cast<DWORD>(encoded.size()), info, store};
    }
    static View encoded(const Context& context) {
        return {context.pbCertEncoded, context.cbCertEncoded};
    }
};

struct CrlKind {
    using Context = _CRL_CONTEXT;
    using Info = CRL_INFO;
    static constexpr storage::ObjectKind kind = storage::ObjectKind::crl;
    static void fill(ASN1CTXT* arena, View encoded, Info& info, SearchKeys& keys);
    static void publish(Context& context, View encoded, Info* info, HCERTSTORE store) {
        context = {CERT_ENCODING, const_cast<BYTE*>(encoded.data()),
                   static_cast<DWORD>(encoded.size()), info, store};
    }
    static View encoded(const Context& context) {
        return {context.pbCrlEncoded, context.cbCrlEncoded};
    }
};

/// A context and what stands behind it.
template <class Kind>
class Held : public Kind::Context {
public:
    /// Decodes the bytes; fails with CRYPT_E_ASN1_BADTAG. The caller has the first reference.
    static Held* create(View encoded, HCERTSTORE store = nullptr,
                        std::optional<Origin> origin = std::nullopt);
    /// Fails with E_INVALIDARG for null and for what was freed or never was a context.
    static Held& of(const typename Kind::Context* context);

    void addReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void release();

    View encoded() const { return Kind::encoded(*this); }
    const SearchKeys& keys() const { return keys_; }
    /// Null for a context that stands in no store.
    const Origin* origin() const { return origin_ ? &*origin_ : nullptr; }

    std::optional<Bytes> property(DWORD id) const;
    std::vector<storage::Property> properties() const;
    /// Null removes. Changes the store of a context that stands in one.
    void setProperty(DWORD id, const Bytes* content);

private:
    Held() = default;
    ~Held() = default;

    static constexpr std::uint32_t alive = 0x43545854;

    std::atomic<std::uint32_t> mark_{alive};
    std::atomic<std::uint32_t> references_{1};
    ASN1CtxtRef arena_;
    typename Kind::Info info_{};
    SearchKeys keys_;
    std::optional<Origin> origin_;
    mutable std::mutex lock_;
    std::map<DWORD, Bytes> properties_;  // of a context that stands in no store
};

extern template class Held<CertificateKind>;
extern template class Held<CrlKind>;

}  // namespace certstore
