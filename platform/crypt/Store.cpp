#include <type_traits>

#include "platform/crypt/Context.h"
#include "platform/crypt/StoreGuard.h"

using certstore::Ahead;
using certstore::CertificateKind;
using certstore::CrlKind;
using certstore::guarded;
using certstore::guardedPointer;
using certstore::Held;
using certstore::Origin;
using certstore::Place;
using certstore::StoreHandle;
using certstore::View;
using certstore::viewOf;
using provider::fail;
using provider::require;
using storage::SearchBy;

// Adding to stores, deleting from them, and searching them.

namespace {

// A walk fetches a few objects first, since most searches want one, then runs of this many.
constexpr std::size_t firstRun = 4;
constexpr std::size_t furtherRun = 64;

/// Drops the reference that a function takes over, also when it fails.
template <class Kind>
struct TakenOver {
    const typename Kind::Context* context;
    ~TakenOver() {
        if (context == nullptr) return;
        guarded([&] { Held<Kind>::of(context).release(); });
    }
};

storage::IfPresent ifPresent(DWORD disposition) {
    switch (disposition) {
        case CERT_STORE_ADD_NEW:
            return storage::IfPresent::refuse;
        case CERT_STORE_ADD_USE_EXISTING:
        case CERT_STORE_ADD_ALWAYS:
            return storage::IfPresent::keep;
        case CERT_STORE_ADD_REPLACE_EXISTING:
            return storage::IfPresent::replace;
        default:
            fail(E_INVALIDARG);
    }
}

template <class Kind>
BOOL addToStore(HCERTSTORE handle, const typename Kind::Context* context, DWORD disposition,
                const typename Kind::Context** added) {
    return guarded([&] {
        if (added != nullptr) *added = nullptr;
        std::shared_ptr<StoreHandle> store = certstore::storeOf(handle);
        const auto& held = Held<Kind>::of(context);
        storage::IfPresent wanted = ifPresent(disposition);
        require(!store->readOnly, ERROR_ACCESS_DENIED);
        certstore::Hash hash = certstore::sha1(held.encoded());
        storage::NewObject object{Kind::kind,
                                  held.encoded(),
                                  hash,
                                  held.keys().keyIdentifier,
                                  held.keys().subject,
                                  held.keys().issuer,
                                  held.properties()};
        storage::Added row =
            store->places.front().openForWriting().stores().add(store->name, object, wanted);
        require(!row.wasPresent || wanted != storage::IfPresent::refuse, CRYPT_E_EXISTS);
        if (added == nullptr) return;
        Origin origin{std::move(store), 0, row.row, nullptr, 0};
        *added = Held<Kind>::create(held.encoded(), handle, std::move(origin));
    });
}

template <class Kind>
BOOL deleteFromStore(const typename Kind::Context* context) {
    TakenOver<Kind> taken{context};
    return guarded([&] {
        const Origin* origin = Held<Kind>::of(context).origin();
        require(origin != nullptr, E_INVALIDARG);
        require(origin->openForChange().stores().erase(origin->row), CRYPT_E_NOT_FOUND);
    });
}

/// One search through a store: what leads to candidates, and what a candidate must be besides.
template <class Kind>
class Finder {
public:
    Finder(std::shared_ptr<StoreHandle> store, HCERTSTORE handle)
        : store_(std::move(store)), handle_(handle) {}

    void by(SearchBy what, View value) {
        by_ = what;
        value_.assign(value.begin(), value.end());
    }
    void mustBe(std::function<bool(const Held<Kind>&)> condition) {
        condition_ = std::move(condition);
    }

    /// Fails with CRYPT_E_NOT_FOUND behind the last.
    Held<Kind>* next(const typename Kind::Context* previous) {
        if (previous != nullptr) continueBehind(Held<Kind>::of(previous).origin());
        for (;;) {
            Held<Kind>* held = candidate();
            if (held == nullptr) continue;
            if (!condition_ || condition_(*held)) return held;
            held->release();
        }
    }

private:
    void continueBehind(const Origin* origin) {
        require(origin != nullptr && origin->store == store_, E_INVALIDARG);
        place_ = origin->place;
        row_ = origin->row;
        bool same =
            origin->ahead != nullptr && origin->ahead->by == by_ && origin->ahead->value == value_;
        if (!same) return;
        ahead_ = origin->ahead;
        position_ = origin->position + 1;
    }

    /// The next object that the index leads to; null for one that does not decode, which is passed
    /// over like one that is not there.
    Held<Kind>* candidate() {
        while (ahead_ == nullptr || position_ == ahead_->page.objects.size()) fetch();
        const storage::StoredObject& object = ahead_->page.objects[position_];
        Origin origin{store_, place_, object.row, ahead_, position_};
        ++position_;
        row_ = object.row;
        try {
            return Held<Kind>::create(object.encoded, handle_, std::move(origin));
        } catch (const provider::Failure& failure) {
            if (failure.code != CRYPT_E_ASN1_BADTAG) throw;
            return nullptr;
        }
    }

    void fetch() {
        if (ahead_ != nullptr && !ahead_->page.more) {
            ++place_;
            row_ = 0;
        }
        require(place_ < store_->places.size(), CRYPT_E_NOT_FOUND);
        auto fetched = std::make_shared<Ahead>();
        fetched->by = by_;
        fetched->value = value_;
        if (storage::Access state = store_->places[place_].openForReading()) {
            storage::Search search{store_->name, Kind::kind, by_, value_};
            fetched->page = state.stores().find(search, row_, row_ == 0 ? firstRun : furtherRun);
        }
        ahead_ = std::move(fetched);
        position_ = 0;
    }

    const std::shared_ptr<StoreHandle> store_;
    const HCERTSTORE handle_;
    SearchBy by_ = SearchBy::any;
    certstore::Bytes value_;
    std::function<bool(const Held<Kind>&)> condition_;

    std::size_t place_ = 0;
    std::int64_t row_ = 0;
    std::shared_ptr<const Ahead> ahead_;
    std::size_t position_ = 0;
};

template <class Kind>
void findSame(Finder<Kind>& finder, const typename Kind::Context* wanted) {
    View encoded = Held<Kind>::of(wanted).encoded();
    finder.by(SearchBy::hash, certstore::sha1(encoded));
    finder.mustBe(
        [encoded](const auto& held) { return certstore::isEqual(held.encoded(), encoded); });
}

View blobParameter(const void* parameter) {
    require(parameter != nullptr, E_INVALIDARG);
    return viewOf(*static_cast<const CRYPT_DATA_BLOB*>(parameter));
}

void findKey(Finder<CertificateKind>& finder, const void* parameter) {
    require(parameter != nullptr, E_INVALIDARG);
    const auto& wanted = *static_cast<const CERT_PUBLIC_KEY_INFO*>(parameter);
    finder.mustBe([&wanted](const Held<CertificateKind>& held) {
        const CERT_PUBLIC_KEY_INFO& key = held.pCertInfo->SubjectPublicKeyInfo;
        bool sameAlgorithm = wanted.Algorithm.pszObjId == nullptr ||
                             std::string_view(wanted.Algorithm.pszObjId) == key.Algorithm.pszObjId;
        return sameAlgorithm &&
               certstore::isEqual({wanted.PublicKey.pbData, wanted.PublicKey.cbData},
                                  {key.PublicKey.pbData, key.PublicKey.cbData});
    });
}

void setUp(Finder<CertificateKind>& finder, DWORD type, const void* parameter) {
    switch (type) {
        case CERT_FIND_ANY:
            return;
        case CERT_FIND_SHA1_HASH:
            return finder.by(SearchBy::hash, blobParameter(parameter));
        case CERT_FIND_SUBJECT_NAME:
            return finder.by(SearchBy::subject, blobParameter(parameter));
        case CERT_FIND_ISSUER_NAME:
            return finder.by(SearchBy::issuer, blobParameter(parameter));
        case CERT_FIND_KEY_IDENTIFIER:
            return finder.by(SearchBy::keyIdentifier, blobParameter(parameter));
        case CERT_FIND_PUBLIC_KEY:
            return findKey(finder, parameter);
        case CERT_FIND_EXISTING:
            return findSame(finder, static_cast<PCCERT_CONTEXT>(parameter));
        default:
            fail(E_INVALIDARG);
    }
}

void setUp(Finder<CrlKind>& finder, DWORD type, const void* parameter) {
    switch (type) {
        case CRL_FIND_ANY:
            return;
        case CRL_FIND_EXISTING:
            return findSame(finder, static_cast<PCCRL_CONTEXT>(parameter));
        default:
            fail(E_INVALIDARG);
    }
}

template <class Kind>
const typename Kind::Context* findInStore(HCERTSTORE handle, DWORD type, const void* parameter,
                                          const typename Kind::Context* previous) {
    TakenOver<Kind> taken{previous};
    return guardedPointer([&]() -> const typename Kind::Context* {
        Finder<Kind> finder(certstore::storeOf(handle), handle);
        setUp(finder, type, parameter);
        return finder.next(previous);
    });
}

}  // namespace

BOOL CertAddCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context, DWORD disposition,
                                      PCCERT_CONTEXT* added) {
    return addToStore<CertificateKind>(store, context, disposition, added);
}

BOOL CertAddCRLContextToStore(HCERTSTORE store, PCCRL_CONTEXT context, DWORD disposition,
                              PCCRL_CONTEXT* added) {
    return addToStore<CrlKind>(store, context, disposition, added);
}

BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT context) {
    return deleteFromStore<CertificateKind>(context);
}

BOOL CertDeleteCRLFromStore(PCCRL_CONTEXT context) { return deleteFromStore<CrlKind>(context); }

PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE store, DWORD, DWORD, DWORD findType,
                                          const void* parameter, PCCERT_CONTEXT previous) {
    return findInStore<CertificateKind>(store, findType, parameter, previous);
}

PCCRL_CONTEXT CertFindCRLInStore(HCERTSTORE store, DWORD, DWORD, DWORD findType,
                                 const void* parameter, PCCRL_CONTEXT previous) {
    return findInStore<CrlKind>(store, findType, parameter, previous);
}

PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous) {
    return findInStore<CertificateKind>(store, CERT_FIND_ANY, nullptr, previous);
}

PCCRL_CONTEXT CertEnumCRLsInStore(HCERTSTORE store, PCCRL_CONTEXT previous) {
    return findInStore<CrlKind>(store, CRL_FIND_ANY, nullptr, previous);
}
