#pragma once

#include "platform/crypt/CryptApi.h"

// The owner of a store; those of contexts are in capilite/Contexts.h, those of keys in
// capilite/CryptGuards.h. Internal to the library.

namespace pkixcmp_detail {

/// A store that is closed with its result looked at on the good path.
class Store {
public:
    Store() = default;
    explicit Store(HCERTSTORE store) : store_(store) {}
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    ~Store() { close(); }
    HCERTSTORE get() const { return store_; }
    HCERTSTORE& out() { return store_; }
    /// False with the last error when the store reports a failure. Closes once.
    bool close() {
        HCERTSTORE store = store_;
        store_ = nullptr;
        return store == nullptr || CertCloseStore(store, CERT_CLOSE_FORCE);
    }

private:
    HCERTSTORE store_ = nullptr;
};

}  // namespace pkixcmp_detail
