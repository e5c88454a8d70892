#include "capilite/PinCallback.h"

#include <openssl/crypto.h>

#include <cstring>

bool GetPinFromCallbackClass(void* context, char* pin, std::size_t size) {
    return static_cast<CryptSetPinCallback*>(context)->Get(pin, size);
}

CryptSetPinCallback::CryptSetPinCallback() {
    QXCryptGetPinCallback(&savedCallback_, &savedContext_);
    QXCryptSetPinCallback(GetPinFromCallbackClass, this);
}

CryptSetPinCallback::~CryptSetPinCallback() {
    QXCryptSetPinCallback(savedCallback_, savedContext_);
}

bool CryptSetPinCallback::Get(char* pin, std::size_t size) {
    std::string given = get_pin();
    const bool fits = given.empty() || given.size() < size;
    if (fits && size != 0) std::memcpy(pin, given.c_str(), given.size() + 1);
    OPENSSL_cleanse(given.data(), given.size());
    return fits;
}

CryptSetPinCallbackFixed::CryptSetPinCallbackFixed(const char* pin) : pin_(pin ? pin : "") {}

CryptSetPinCallbackFixed::~CryptSetPinCallbackFixed() { OPENSSL_cleanse(pin_.data(), pin_.size()); }
