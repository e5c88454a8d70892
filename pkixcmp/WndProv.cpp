#include "pkixcmp/WndProv.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>

#include "capilite/CAException.h"
#include "pkixcmp/KeyContainers.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/RI_GenerateKeyPair"

namespace {

/// One try of an operation; true when its outcome is one that the caller can act on.
bool runOnce(Retry& operation) {
    if (operation.call()) {
        operation.error = 0;
        return true;
    }
    const std::uint32_t code = GetLastError();
    operation.error = static_cast<std::int32_t>(code);
    return code == 0 || code == SCARD_W_WRONG_CHV || code == SCARD_W_CHV_BLOCKED ||
           code == SCARD_E_ANSWERABLE || code == SCARD_W_CANCELLED_BY_USER;
}

std::string readerOf(const char* containerName) {
    std::string reader;
    std::string container;
    split_container_name(containerName, reader, container);
    return reader;
}

}  // namespace

PinBuffer::~PinBuffer() { OPENSSL_cleanse(text, sizeof text); }

const char* PinBuffer::c_str() {
    text[sizeof text - 1] = 0;
    return text;
}

WndProv::~WndProv() = default;

WIN32WndProv::~WIN32WndProv() = default;
bool WIN32WndProv::insert_create(const char*, unsigned long, short, int) { return false; }
bool WIN32WndProv::retry(const char*, int, Retry& operation) { return runOnce(operation); }
bool WIN32WndProv::get_current_pin(const char*, short, char*, short, int) { return false; }
bool WIN32WndProv::get_new_pin(const char*, char*, short, int) { return false; }
std::string WIN32WndProv::get_reader(const ReaderList&) { return {}; }

OldWndProv::OldWndProv(const std::string& reader, const char* pin) : reader_(reader) {
    setPin(pin);
}

OldWndProv::OldWndProv(const char* container, const char* pin) : reader_(readerOf(container)) {
    setPin(pin);
}

OldWndProv::~OldWndProv() { OPENSSL_cleanse(pin_, sizeof pin_); }

void OldWndProv::setPin(const char* pin) {
    if (!pin) return;
    // What is cut here is longer than a `PinBuffer` and refused when it is asked for.
    std::memcpy(pin_, pin, std::min(std::strlen(pin), sizeof pin_ - 1));
}

void OldWndProv::givePin(char* pin) const {
    const std::size_t length = std::strlen(pin_);
    if (length >= sizeof PinBuffer::text) PKIXCMP_THROW(CryptException, NTE_BAD_LEN);
    std::memcpy(pin, pin_, length + 1);
}

bool OldWndProv::insert_create(const char*, unsigned long error, short, int) {
    if (error != 0) PKIXCMP_THROW(CryptException, GetLastError());
    return true;
}

bool OldWndProv::retry(const char*, int, Retry& operation) { return runOnce(operation); }

bool OldWndProv::get_current_pin(const char*, short tries, char* pin, short, int) {
    if (tries != 3) PKIXCMP_THROW(CryptException, GetLastError());
    givePin(pin);
    return true;
}

bool OldWndProv::get_new_pin(const char*, char* pin, short, int) {
    givePin(pin);
    return true;
}

std::string OldWndProv::get_reader(const ReaderList&) { return reader_; }

CryptSetPinCallbackWndProv::~CryptSetPinCallbackWndProv() = default;

std::string CryptSetPinCallbackWndProv::get_pin() {
    PinBuffer pin;
    wnd_->get_current_pin("", 3, pin.text, 0, 0);
    return pin.c_str();
}
