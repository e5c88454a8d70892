#pragma once

#include "platform/crypt/CryptApi.h"

// Owners of handles that live for one operation.

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
