#pragma once

#include "platform/crypt/CryptApi.h"

// Handles that live for one operation, and how a private key is opened. Internal to the library.

/// A hash object, destroyed with its owner.
class HashHandle {
public:
    HashHandle() = default;
    HashHandle(const HashHandle&) = delete;
    HashHandle& operator=(const HashHandle&) = delete;
    ~HashHandle() {
        if (handle_ != 0) CryptDestroyHash(handle_);
    }
    HCRYPTHASH* out() { return &handle_; }
    operator HCRYPTHASH() const { return handle_; }

private:
    HCRYPTHASH handle_ = 0;
};

/// A key object, destroyed with its owner.
class KeyHandle {
public:
    KeyHandle() = default;
    KeyHandle(const KeyHandle&) = delete;
    KeyHandle& operator=(const KeyHandle&) = delete;
    ~KeyHandle() {
        if (handle_ != 0) CryptDestroyKey(handle_);
    }
    HCRYPTKEY* out() { return &handle_; }
    operator HCRYPTKEY() const { return handle_; }

private:
    HCRYPTKEY handle_ = 0;
};

/// A provider handle on the private key of a certificate, which is the caller's to release; 0 with
/// the last error.
inline HCRYPTPROV openPrivateKey(PCCERT_CONTEXT certificate, DWORD& keySpec) {
    HCRYPTPROV provider = 0;
    BOOL owned = 0;
    if (!CryptAcquireCertificatePrivateKey(certificate, 0, nullptr, &provider, &keySpec, &owned) ||
        (!owned && !CryptContextAddRef(provider, nullptr, 0))) {
        return 0;
    }
    return provider;
}
