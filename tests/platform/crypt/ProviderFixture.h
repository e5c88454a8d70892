#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/crypt/CryptApi.h"

namespace provider_test {

using Bytes = std::vector<BYTE>;

/// A home of its own for each test, with room for files beside it.
class ProviderTest : public ::testing::Test {
protected:
    ProviderTest();
    ~ProviderTest() override;

    std::filesystem::path home() const { return folder_ / "home"; }
    std::filesystem::path file(std::string_view name) const { return folder_ / name; }
    std::filesystem::path container(std::string_view reader, std::string_view name) const {
        return home() / "user/readers" / reader / name;
    }
    /// Runs `openssl` with the arguments in the test's folder.
    std::string openssl(const std::string& arguments) const;
    bool opensslSucceeds(const std::string& arguments) const;

private:
    std::filesystem::path folder_;
};

void writeFile(const std::filesystem::path& path, std::span<const BYTE> content);
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
BOOL setPin(HCRYPTPROV provider, DWORD parameter, const char* pin);
/// Parameter 109: the code, ERROR_SUCCESS when the container is open.
DWORD status(HCRYPTPROV provider, DWORD* identifier = nullptr);
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

/// Runs a function in a process of its own; its exit code, or 128 and the signal that ended it.
int inOtherProcess(const std::function<int()>& body);

}  // namespace provider_test
