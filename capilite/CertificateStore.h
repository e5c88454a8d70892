#pragma once

#include <optional>
#include <string>

#include "platform/Export.h"

// Names of certificate and CRL stores, and open stores.

/// The well-known stores.
PKIXCMP_API extern const wchar_t* const ROOT_STORE;   // "Root", the trust anchors
PKIXCMP_API extern const wchar_t* const CA_STORE;     // "CA", intermediate certificates and CRLs
PKIXCMP_API extern const wchar_t* const CACHE_STORE;  // "Cache", objects fetched by URL

/// A store by name and side. A value; copies are deep.
class PKIXCMP_API CertificateStore {
public:
    CertificateStore() = default;
    /// `system`: the machine's side, else the user's. The name may be null.
    CertificateStore(const wchar_t* name, bool system) { Set(name, system); }

    void Set(const wchar_t* name, bool system);
    /// From "user.NAME" or "system.NAME"; any other text is a `CAException`.
    void Set(const wchar_t* prefixedName);

    /// Null when none is set.
    const wchar_t* name() const { return name_ ? name_->c_str() : nullptr; }
    bool system() const { return system_; }

    bool operator==(const CertificateStore&) const = default;
    /// The user's side before the machine's, then by name.
    bool operator<(const CertificateStore& other) const;

private:
    std::optional<std::wstring> name_;
    bool system_ = false;
};

/// An open store, closed on destruction. Copies share the store by its reference count. A handle
/// belongs to one thread.
class PKIXCMP_API store_handle {
public:
    store_handle() = default;
    /// Takes the handle over, or with `duplicate` a reference of its own.
    store_handle(void* const& handle, bool isRoot, bool duplicate);
    store_handle(const store_handle& other);
    store_handle(store_handle&& other) noexcept;
    store_handle& operator=(store_handle other) noexcept;
    ~store_handle();

    /// True if the store was opened; throws only on a handle that is open already. The side's flag
    /// is added to the flags (CERT_STORE_OPEN_EXISTING and its kin).
    bool open(const wchar_t* name, bool system, unsigned long flags);
    /// The same with the side among the flags.
    bool open(const wchar_t* name, unsigned long flags);
    void close();

    void* get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    /// Whether the store's name is exactly "Root".
    bool is_root() const { return isRoot_; }

private:
    void* handle_ = nullptr;
    bool isRoot_ = false;
};
