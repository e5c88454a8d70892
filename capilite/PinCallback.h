#pragma once

#include <cstddef>
#include <string>

#include "platform/Export.h"
#include "platform/crypt/CryptApi.h"

/// Is asked for PINs by the provider layer as long as it lives; then the one before it is asked
/// again. The callback is one a process: two of these must not overlap on different threads.
class PKIXCMP_API CryptSetPinCallback {
public:
    CryptSetPinCallback();
    virtual ~CryptSetPinCallback();
    CryptSetPinCallback(const CryptSetPinCallback&) = delete;
    CryptSetPinCallback& operator=(const CryptSetPinCallback&) = delete;

    virtual std::string get_pin() = 0;
    /// Writes the PIN with its zero into `size` characters; false when it does not fit.
    bool Get(char* pin, std::size_t size);

private:
    QXCryptPinCallback savedCallback_ = nullptr;
    void* savedContext_ = nullptr;
};

/// What `CryptSetPinCallback` installs: `context` is the object.
PKIXCMP_API bool GetPinFromCallbackClass(void* context, char* pin, std::size_t size);

/// Gives one PIN, which it forgets safely.
class PKIXCMP_API CryptSetPinCallbackFixed : public CryptSetPinCallback {
public:
    explicit CryptSetPinCallbackFixed(const char* pin);
    ~CryptSetPinCallbackFixed() override;
    std::string get_pin() override { return pin_; }

private:
    std::string pin_;
};
