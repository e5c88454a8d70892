#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/crypt/CryptApi.h"
#include "tests/TempHome.h"

// What the tests of contexts and stores share: owners, and the objects of tests/data/stores.

namespace store_test {

using Bytes = std::vector<BYTE>;

struct Free {
    void operator()(PCCERT_CONTEXT context) const { CertFreeCertificateContext(context); }
    void operator()(PCCRL_CONTEXT context) const { CertFreeCRLContext(context); }
};
using Certificate = std::unique_ptr<const CERT_CONTEXT, Free>;
using Crl = std::unique_ptr<const CRL_CONTEXT, Free>;

class OpenStore {
public:
    OpenStore(const wchar_t* name, DWORD flags)
        : handle_(CertOpenStore(reinterpret_cast<const char*>(CERT_STORE_PROV_SYSTEM), 0, 0, flags,
                                name)) {}
    OpenStore(const OpenStore&) = delete;
    OpenStore& operator=(const OpenStore&) = delete;
    ~OpenStore() {
        if (handle_ != nullptr) CertCloseStore(handle_, 0);
    }
    operator HCERTSTORE() const { return handle_; }

private:
    HCERTSTORE handle_;
};

inline constexpr DWORD user = CERT_SYSTEM_STORE_CURRENT_USER;
inline constexpr DWORD machine = CERT_SYSTEM_STORE_LOCAL_MACHINE;

inline Bytes file(const std::string& name) {
    std::ifstream stream(PKIXCMP_TEST_DATA "/stores/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// The code of a call that must fail; ERROR_SUCCESS when it succeeded.
inline DWORD codeOf(bool result) { return result ? ERROR_SUCCESS : GetLastError(); }

inline Certificate certificateOf(const Bytes& der) {
    return Certificate(
        CertCreateCertificateContext(CERT_ENCODING, der.data(), static_cast<DWORD>(der.size())));
}
inline Certificate certificate(const std::string& name) {
    return certificateOf(file(name + ".cer"));
}
inline Crl crlOf(const Bytes& der) {
    return Crl(CertCreateCRLContext(CERT_ENCODING, der.data(), static_cast<DWORD>(der.size())));
}
inline Crl crl(const std::string& name) { return crlOf(file(name + ".crl")); }

inline CRYPT_DATA_BLOB blobOf(Bytes& bytes) {
    return {static_cast<DWORD>(bytes.size()), bytes.data()};
}
inline Bytes bytesOf(const CRYPT_DATA_BLOB& blob) {
    return {blob.pbData, blob.pbData + blob.cbData};
}
inline Bytes bytesOf(const CERT_CONTEXT& c) {
    return {c.pbCertEncoded, c.pbCertEncoded + c.cbCertEncoded};
}
inline Bytes bytesOf(const CRL_CONTEXT& c) {
    return {c.pbCrlEncoded, c.pbCrlEncoded + c.cbCrlEncoded};
}

/// A variant of a certificate: the same in everything but its last signature octets.
inline Bytes variant(const Bytes& der, unsigned number) {
    Bytes other = der;
    for (std::size_t i = 0; i < 4; ++i)
        other[other.size() - 1 - i] = static_cast<BYTE>(number >> (8 * i));
    return other;
}

inline BOOL add(HCERTSTORE store, const Certificate& context,
                DWORD disposition = CERT_STORE_ADD_NEW) {
    return CertAddCertificateContextToStore(store, context.get(), disposition, nullptr);
}

/// Bytes of all that a search gives, in its order.
inline std::vector<Bytes> found(HCERTSTORE store, DWORD type = CERT_FIND_ANY,
                                const void* parameter = nullptr) {
    std::vector<Bytes> all;
    PCCERT_CONTEXT next = nullptr;
    while ((next = CertFindCertificateInStore(store, CERT_ENCODING, 0, type, parameter, next))) {
        all.push_back(bytesOf(*next));
    }
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    return all;
}

template <class Context, class Getter>
Bytes property(const Context& context, Getter getter, DWORD id) {
    DWORD length = 0;
    if (!getter(context.get(), id, nullptr, &length)) return {};
    Bytes data(length);
    EXPECT_TRUE(getter(context.get(), id, data.data(), &length));
    return data;
}
inline Bytes property(const Certificate& context, DWORD id) {
    return property(context, CertGetCertificateContextProperty, id);
}
inline BOOL setProperty(const Certificate& context, DWORD id, Bytes content) {
    CRYPT_DATA_BLOB blob = blobOf(content);
    return CertSetCertificateContextProperty(context.get(), id, 0, &blob);
}

}  // namespace store_test
