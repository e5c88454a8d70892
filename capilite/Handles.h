#pragma once

#include "capilite/Blob.h"
#include "platform/Export.h"
#include "platform/asn1/Context.h"

/// A failure code of the provider's wrapper, as a signed result.
class PKIXCMP_API CAtlException {
public:
    explicit CAtlException(int code) : m_hr(code) {}
    operator int() const { return m_hr; }

    int m_hr;
};

/// Throws `CAtlException` holding the code.
[[noreturn]] PKIXCMP_API void AtlThrowImpl(int code);

/// An ASN.1 runtime context owned by value.
class PKIXCMP_API ctxt_handle {
public:
    // The reference keeps a counted holder of the context from deleting it.
    ctxt_handle() { ctxt_.addRef(); }
    ~ctxt_handle() { release(); }
    ctxt_handle(const ctxt_handle&) = delete;
    ctxt_handle& operator=(const ctxt_handle&) = delete;

    /// True when the context is ready for use.
    bool init();
    /// Frees all values; the context can be initialised again.
    void release();
    ASN1CTXT* get() { return &ctxt_; }
    operator ASN1CTXT*() { return &ctxt_; }
    ASN1CTXT* operator->() { return &ctxt_; }

private:
    ASN1CTXT ctxt_;
};

/// Owns one handle of the cryptographic provider. Each way of acquiring releases the handle held
/// before; a refusal is thrown with `AtlThrowImpl`.
class PKIXCMP_API prov_handle {
public:
    prov_handle() = default;
    /// Takes over a handle.
    explicit prov_handle(unsigned long long handle) : handle_(handle) {}
    prov_handle(const prov_handle&) = delete;
    prov_handle& operator=(const prov_handle&) = delete;
    prov_handle(prov_handle&& other) noexcept : handle_(other.detach()) {}
    prov_handle& operator=(prov_handle&& other) noexcept {
        unsigned long long taken = other.detach();
        release();
        handle_ = taken;
        return *this;
    }
    ~prov_handle() { release(); }

    /// A verification-only context of provider type 75.
    void acquire_any();
    /// A verification-only context of the default provider for an algorithm of the interface
    /// (`ALG_ID`).
    void acquire_default(unsigned int algorithm);
    /// The same for the algorithm of a public key, given as the DER of a SubjectPublicKeyInfo.
    void acquire_default(const CACMPT_BLOB& publicKey);
    void release();

    /// Gives the handle away.
    unsigned long long detach() noexcept {
        unsigned long long h = handle_;
        handle_ = 0;
        return h;
    }
    unsigned long long get() const { return handle_; }
    operator unsigned long long() const { return handle_; }

private:
    unsigned long long handle_ = 0;
};
