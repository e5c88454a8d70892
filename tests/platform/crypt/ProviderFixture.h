#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/crypt/CryptApi.h"
#include "tests/TempHome.h"

namespace provider_test {

using Bytes = std::vector<BYTE>;

/// A home of its own for each test, with room for files beside the state.
class ProviderTest : public ::testing::Test {
protected:
    ~ProviderTest() override { QXCryptSetPinCallback(nullptr, nullptr); }

    std::filesystem::path file(std::string_view name) const { return home_.path() / name; }
    std::filesystem::path container(std::string_view reader, std::string_view name) const {
        return file("user/readers") / reader / name;
    }
    /// What `openssl` says in the test's folder; throws when it fails.
    std::string openssl(const std::string& arguments) const;

private:
    TempHome home_;
};

void writeFile(const std::filesystem::path& path, const Bytes& content);
void writeFile(const std::filesystem::path& path, std::string_view content);
Bytes readFile(const std::filesystem::path& path);
/// The file of this extension in a folder; fails the test unless there is just one.
std::filesystem::path onlyFile(const std::filesystem::path& folder, std::string_view extension);

/// A provider handle, released with the object.
class Context {
public:
    explicit Context(HCRYPTPROV handle = 0) : handle_(handle) {}
    /// The last error tells a failure.
    Context(const char* container, DWORD type, DWORD flags) {
        CryptAcquireContextA(&handle_, container, nullptr, type, flags);
    }
    Context(Context&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
    Context& operator=(Context&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Context() {
        if (handle_ != 0) CryptReleaseContext(handle_, 0);
    }
    operator HCRYPTPROV() const { return handle_; }

private:
    HCRYPTPROV handle_ = 0;
};

/// The code of a call that must fail; ERROR_SUCCESS when it succeeded.
DWORD codeOf(BOOL result);

BOOL generate(HCRYPTPROV provider, DWORD spec = AT_SIGNATURE, DWORD flags = 0);
BOOL setPin(HCRYPTPROV provider, DWORD parameter, const char* pin, BYTE kind = 0);
/// Parameter 109: the code, ERROR_SUCCESS when the container is open.
DWORD status(HCRYPTPROV provider, DWORD* identifier = nullptr);
/// A parameter that is a number, by the function that gets it; 0 where there is none.
template <class Getter>
DWORD number(Getter getter, unsigned long long handle, DWORD parameter) {
    DWORD value = 0, length = sizeof value;
    getter(handle, parameter, reinterpret_cast<BYTE*>(&value), &length, 0);
    return value;
}
std::string textParameter(HCRYPTPROV provider, DWORD parameter, DWORD flags = 0);

HCRYPTHASH hashOf(HCRYPTPROV provider, ALG_ID algorithm, std::string_view text);
/// A signature as it goes over the wire; empty on failure, with the last error set.
Bytes sign(HCRYPTPROV provider, std::string_view text, ALG_ID hash = CALG_SHA_256,
           DWORD spec = AT_SIGNATURE);
/// Takes a wire signature.
BOOL verify(HCRYPTPROV provider, HCRYPTKEY key, std::string_view text, const Bytes& signature,
            ALG_ID hash = CALG_SHA_256);

/// A public key taken apart, in a record of the interface.
struct KeyRecord {
    std::string oid;
    Bytes parameters;
    Bytes bits;

    CERT_PUBLIC_KEY_INFO info();
};
KeyRecord exportKey(HCRYPTPROV provider, DWORD spec = AT_SIGNATURE);
/// Takes the DER that `openssl pkey -pubout -outform DER` writes apart.
KeyRecord keyFromSpki(const Bytes& spki);
/// 0 on failure, with the last error set.
HCRYPTKEY import(HCRYPTPROV provider, KeyRecord key);

}  // namespace provider_test
