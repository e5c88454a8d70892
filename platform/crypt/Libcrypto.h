#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace provider {

/// Owners of libcrypto's objects.
template <auto Free>
struct FreeWith {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

using PkeyPtr = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using PkeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, FreeWith<EVP_PKEY_CTX_free>>;
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, FreeWith<EVP_MD_CTX_free>>;
using CipherContextPtr = std::unique_ptr<EVP_CIPHER_CTX, FreeWith<EVP_CIPHER_CTX_free>>;
using BioPtr = std::unique_ptr<BIO, FreeWith<BIO_free_all>>;
using KeyInfoPtr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, FreeWith<PKCS8_PRIV_KEY_INFO_free>>;
using EncryptedKeyPtr = std::unique_ptr<X509_SIG, FreeWith<X509_SIG_free>>;
using AlgorithmPtr = std::unique_ptr<X509_ALGOR, FreeWith<X509_ALGOR_free>>;

}  // namespace provider
