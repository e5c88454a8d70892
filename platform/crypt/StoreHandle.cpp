#include "platform/crypt/StoreHandle.h"

#include "platform/crypt/StoreGuard.h"
#include "platform/support/Text.h"

using certstore::fromHandle;
using certstore::guarded;
using certstore::guardedPointer;
using certstore::Place;
using certstore::StoreHandle;
using certstore::toHandle;
using provider::fail;
using provider::require;
using support::Side;

// Opening, closing and naming stores.

namespace certstore {

StoreHandle::StoreHandle(std::string storeName, Side side, bool isReadOnly)
    : HandleObject(handleKind), name(std::move(storeName)), readOnly(isReadOnly) {
    if (side == Side::user) places.push_back({Side::user, support::home(Side::user)});
    places.push_back({Side::machine, support::home(Side::machine)});
}

HCERTSTORE toHandle(provider::Handle handle) {
    return reinterpret_cast<HCERTSTORE>(static_cast<std::uintptr_t>(handle));
}

provider::Handle fromHandle(HCERTSTORE store) { return reinterpret_cast<std::uintptr_t>(store); }

std::shared_ptr<StoreHandle> storeOf(HCERTSTORE store) {
    return provider::handled<StoreHandle>(fromHandle(store));
}

}  // namespace certstore

namespace {

constexpr DWORD sideMask = 0xFFFF0000;

Side sideOf(DWORD flags) {
    switch (flags & sideMask) {
        case 0:
        case CERT_SYSTEM_STORE_CURRENT_USER:
            return Side::user;
        case CERT_SYSTEM_STORE_LOCAL_MACHINE:
            return Side::machine;
        default:
            fail(E_INVALIDARG);
    }
}

std::string nameOf(const wchar_t* wide) {
    require(wide != nullptr && *wide != 0, E_INVALIDARG);
    int size = WideCharToMultiByte(65001, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    require(size > 1, E_INVALIDARG);
    std::string name(static_cast<std::size_t>(size), 0);
    WideCharToMultiByte(65001, 0, wide, -1, name.data(), size, nullptr, nullptr);
    name.pop_back();
    return name;
}

bool exists(const StoreHandle& store) {
    for (const Place& place : store.places) {
        storage::Access state = place.openForReading();
        if (state && state.stores().exists(store.name)) return true;
    }
    return false;
}

/// Makes the store on the side that was asked for; false when it is there.
bool create(const StoreHandle& store) {
    {
        storage::Access state = store.places.front().openForReading();
        if (state && state.stores().exists(store.name)) return false;
    }
    return store.places.front().openForWriting().stores().create(store.name);
}

}  // namespace

HCERTSTORE CertOpenStore(const char* storeProvider, DWORD, HCRYPTPROV, DWORD flags,
                         const void* name) {
    return guardedPointer([&] {
        require(reinterpret_cast<std::size_t>(storeProvider) == CERT_STORE_PROV_SYSTEM,
                E_INVALIDARG);
        auto store =
            std::make_shared<StoreHandle>(nameOf(static_cast<const wchar_t*>(name)), sideOf(flags),
                                          (flags & CERT_STORE_READONLY) != 0);
        if ((flags & CERT_STORE_CREATE_NEW) != 0) {
            require(!store->readOnly, ERROR_ACCESS_DENIED);
            require(create(*store), ERROR_FILE_EXISTS);
        } else if ((flags & CERT_STORE_OPEN_EXISTING) != 0) {
            require(exists(*store), ERROR_FILE_NOT_FOUND);
        } else if (!store->readOnly) {
            create(*store);
        }
        return toHandle(provider::addHandle(std::move(store)));
    });
}

HCERTSTORE CertDuplicateStore(HCERTSTORE store) {
    return guardedPointer([&] {
        require(provider::referHandle(fromHandle(store), StoreHandle::handleKind),
                ERROR_INVALID_HANDLE);
        return store;
    });
}

BOOL CertCloseStore(HCERTSTORE store, DWORD flags) {
    return guarded([&] {
        std::weak_ptr<StoreHandle> left = certstore::storeOf(store);
        require(provider::releaseHandle(fromHandle(store), StoreHandle::handleKind),
                ERROR_INVALID_HANDLE);
        // Contexts taken from a store keep it; only the check for them is told about it.
        bool closed = !provider::findHandle(fromHandle(store), StoreHandle::handleKind);
        bool pending = closed && !left.expired() && (flags & CERT_CLOSE_CHECK) != 0;
        require(!pending, CRYPT_E_PENDING_CLOSE);
    });
}

BOOL CertEnumSystemStoreNames(DWORD side, DWORD index, wchar_t* name, DWORD* length) {
    return guarded([&] {
        require(length != nullptr, ERROR_INVALID_PARAMETER);
        Side chosen = sideOf(side);
        Place place{chosen, support::home(chosen)};
        std::optional<std::string> found;
        if (storage::Access state = place.openForReading()) found = state.stores().nameAt(index);
        require(found.has_value(), ERROR_NO_MORE_ITEMS);
        std::wstring wide = wideFromUtf8(*found);
        DWORD room = *length;
        *length = static_cast<DWORD>(wide.size() + 1);
        if (name == nullptr) return;
        require(room > wide.size(), ERROR_MORE_DATA);
        std::copy_n(wide.c_str(), wide.size() + 1, name);
    });
}
