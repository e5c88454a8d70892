#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "tests/platform/crypt/store_fixture.h"

// What contexts say, judged by libcrypto, and what they refuse.

namespace {

using namespace store_test;

template <class Object, class Encoder>
Bytes encodedBy(Encoder encoder, Object* object) {
    Bytes der(static_cast<std::size_t>(encoder(object, nullptr)));
    unsigned char* out = der.data();
    encoder(object, &out);
    return der;
}

std::string dotted(const ASN1_OBJECT* object) {
    char text[256];
    OBJ_obj2txt(text, sizeof text, object, 1);
    return text;
}

std::uint64_t ticksOf(const ASN1_TIME* time) {
    std::tm fields{};
    ASN1_TIME_to_tm(time, &fields);
    return static_cast<std::uint64_t>(timegm(&fields) + 11644473600) * 10'000'000;
}

Bytes octetsOf(const ASN1_STRING* string) {
    const unsigned char* data = ASN1_STRING_get0_data(string);
    return {data, data + ASN1_STRING_length(string)};
}

void compareExtensions(const CERT_EXTENSION* ours, DWORD count,
                       const STACK_OF(X509_EXTENSION) * theirs) {
    ASSERT_EQ(count, static_cast<DWORD>(std::max(0, sk_X509_EXTENSION_num(theirs))));
    for (DWORD i = 0; i < count; ++i) {
        X509_EXTENSION* extension = sk_X509_EXTENSION_value(theirs, static_cast<int>(i));
        EXPECT_EQ(ours[i].pszObjId, dotted(X509_EXTENSION_get_object(extension)));
        EXPECT_EQ(ours[i].fCritical, X509_EXTENSION_get_critical(extension));
        EXPECT_EQ(bytesOf(ours[i].Value), octetsOf(X509_EXTENSION_get_data(extension)));
    }
}

void compare(const CERT_INFO& info, X509* judged) {
    EXPECT_EQ(info.dwVersion, static_cast<DWORD>(X509_get_version(judged)));
    Bytes serial = encodedBy(i2d_ASN1_INTEGER, X509_get0_serialNumber(judged));
    serial.erase(serial.begin(), serial.begin() + 2);  // identifier and length
    std::reverse(serial.begin(), serial.end());
    EXPECT_EQ(bytesOf(info.SerialNumber), serial);
    EXPECT_EQ(bytesOf(info.Issuer), encodedBy(i2d_X509_NAME, X509_get_issuer_name(judged)));
    EXPECT_EQ(bytesOf(info.Subject), encodedBy(i2d_X509_NAME, X509_get_subject_name(judged)));
    EXPECT_EQ(fileTimeTicks(info.NotBefore), ticksOf(X509_get0_notBefore(judged)));
    EXPECT_EQ(fileTimeTicks(info.NotAfter), ticksOf(X509_get0_notAfter(judged)));
    const ASN1_OBJECT* algorithm = nullptr;
    X509_ALGOR_get0(&algorithm, nullptr, nullptr, X509_get0_tbs_sigalg(judged));
    EXPECT_EQ(info.SignatureAlgorithm.pszObjId, dotted(algorithm));
    ASN1_OBJECT* keyAlgorithm = nullptr;
    X509_PUBKEY_get0_param(&keyAlgorithm, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(judged));
    EXPECT_EQ(info.SubjectPublicKeyInfo.Algorithm.pszObjId, dotted(keyAlgorithm));
    const CRYPT_BIT_BLOB& key = info.SubjectPublicKeyInfo.PublicKey;
    EXPECT_EQ(Bytes(key.pbData, key.pbData + key.cbData),
              octetsOf(X509_get0_pubkey_bitstr(judged)));
    EXPECT_EQ(key.cUnusedBits, 0u);
    compareExtensions(info.rgExtension, info.cExtension, X509_get0_extensions(judged));
}

void compareWithLibcrypto(const Bytes& der) {
    const unsigned char* in = der.data();
    std::unique_ptr<X509, decltype(&X509_free)> judged(
        d2i_X509(nullptr, &in, static_cast<long>(der.size())), X509_free);
    Certificate context = certificateOf(der);
    ASSERT_TRUE(judged && context);
    EXPECT_EQ(bytesOf(*context), der);
    compare(*context->pCertInfo, judged.get());
    unsigned char hash[20];
    X509_digest(judged.get(), EVP_sha1(), hash, nullptr);
    EXPECT_EQ(property(context, CERT_SHA1_HASH_PROP_ID), Bytes(hash, hash + 20));
    const ASN1_OCTET_STRING* keyId = X509_get0_subject_key_id(judged.get());
    if (keyId == nullptr) X509_pubkey_digest(judged.get(), EVP_sha1(), hash, nullptr);
    EXPECT_EQ(property(context, CERT_KEY_IDENTIFIER_PROP_ID),
              keyId != nullptr ? octetsOf(keyId) : Bytes(hash, hash + 20));
}

TEST(StoreContext, CertificatesSayWhatLibcryptoReads) {
    for (const char* name : {"alice", "bob", "carol", "ca", "alice-case", "ca-case"}) {
        SCOPED_TRACE(name);
        compareWithLibcrypto(file(std::string(name) + ".cer"));
    }
}

TEST(StoreContext, EveryCertificateOfTheSystemsBundle) {
    std::unique_ptr<BIO, decltype(&BIO_free)> bundle(
        BIO_new_file("/etc/ssl/certs/ca-certificates.crt", "r"), BIO_free);
    ASSERT_TRUE(bundle) << "install the package ca-certificates";
    int count = 0;
    while (X509* one = PEM_read_bio_X509(bundle.get(), nullptr, nullptr, nullptr)) {
        SCOPED_TRACE(count++);
        compareWithLibcrypto(encodedBy(i2d_X509, one));
        X509_free(one);
    }
    ERR_clear_error();
    EXPECT_GT(count, 50);
}

TEST(StoreContext, CrlsSayWhatLibcryptoReads) {
    for (const char* name : {"plain", "keyid", "case", "issuer", "broken"}) {
        SCOPED_TRACE(name);
        Bytes der = file(std::string(name) + ".crl");
        const unsigned char* in = der.data();
        std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> judged(
            d2i_X509_CRL(nullptr, &in, static_cast<long>(der.size())), X509_CRL_free);
        Crl context = crl(name);
        ASSERT_TRUE(judged && context);
        const CRL_INFO& info = *context->pCrlInfo;
        EXPECT_EQ(info.dwVersion, static_cast<DWORD>(X509_CRL_get_version(judged.get())));
        EXPECT_EQ(bytesOf(info.Issuer),
                  encodedBy(i2d_X509_NAME, X509_CRL_get_issuer(judged.get())));
        EXPECT_EQ(fileTimeTicks(info.ThisUpdate), ticksOf(X509_CRL_get0_lastUpdate(judged.get())));
        const ASN1_TIME* next = X509_CRL_get0_nextUpdate(judged.get());
        EXPECT_EQ(fileTimeTicks(info.NextUpdate), next != nullptr ? ticksOf(next) : 0);
        compareExtensions(info.rgExtension, info.cExtension,
                          X509_CRL_get0_extensions(judged.get()));
    }
}

TEST(StoreContext, WhatDoesNotDecodeIsRefused) {
    Bytes good = file("alice.cer");
    for (std::size_t length = 1; length < good.size(); ++length) {
        SetLastError(0);
        EXPECT_FALSE(certificateOf(Bytes(good.begin(), good.begin() + static_cast<long>(length))));
        EXPECT_EQ(GetLastError(), CRYPT_E_ASN1_BADTAG) << length;
    }
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_FALSE(certificateOf(longer));
    EXPECT_FALSE(certificateOf(file("plain.crl")));
    EXPECT_FALSE(crlOf(good));
    EXPECT_EQ(CertCreateCertificateContext(CERT_ENCODING, nullptr, 5), nullptr);
    EXPECT_EQ(CertCreateCertificateContext(CERT_ENCODING, good.data(), 0), nullptr);
    EXPECT_EQ(codeOf(CertCreateCertificateContext(2, good.data(), static_cast<DWORD>(good.size()))),
              E_INVALIDARG);
}

TEST(StoreContext, AnyFlippedOctetIsReadOrRefusedInsideItsMemory) {
    for (const char* name : {"alice.cer", "keyid.crl"}) {
        Bytes good = file(name);
        for (std::size_t i = 0; i < good.size(); ++i) {
            for (BYTE flip : {0x01, 0x80, 0xFF}) {
                Bytes bad = good;
                bad[i] ^= flip;
                Bytes exact(bad);  // no spare capacity behind it for a sanitizer to miss
                certificateOf(exact);
                crlOf(exact);
            }
        }
    }
}

TEST(StoreContext, ReferencesAreCounted) {
    Certificate first = certificate("alice");
    Certificate second(CertDuplicateCertificateContext(first.get()));
    EXPECT_EQ(first.get(), second.get());
    first.reset();
    EXPECT_EQ(bytesOf(*second), file("alice.cer"));
    EXPECT_TRUE(CertFreeCertificateContext(nullptr));
    EXPECT_EQ(codeOf(CertDuplicateCertificateContext(nullptr)), E_INVALIDARG);
}

TEST(StoreContext, PropertiesOfAContextAlone) {
    Certificate context = certificate("alice");
    DWORD length = 0;
    EXPECT_EQ(codeOf(CertGetCertificateContextProperty(context.get(), 0x8001, nullptr, &length)),
              CRYPT_E_NOT_FOUND);
    ASSERT_TRUE(setProperty(context, 0x8001, {1, 2, 3}));
    EXPECT_EQ(property(context, 0x8001), (Bytes{1, 2, 3}));
    BYTE small[2];
    length = 2;
    EXPECT_EQ(codeOf(CertGetCertificateContextProperty(context.get(), 0x8001, small, &length)),
              ERROR_MORE_DATA);
    EXPECT_EQ(length, 3u);
    ASSERT_TRUE(setProperty(context, CERT_SHA1_HASH_PROP_ID, {9}));
    EXPECT_EQ(property(context, CERT_SHA1_HASH_PROP_ID), Bytes{9});
    EXPECT_TRUE(CertSetCertificateContextProperty(context.get(), 0x8001, 0, nullptr));
    EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), 0x8001, nullptr, &length));
    Crl list = crl("plain");
    Bytes url = {'u', 'r', 'l'};
    CRYPT_DATA_BLOB blob = blobOf(url);
    EXPECT_TRUE(CertSetCRLContextProperty(list.get(), 0x8001, 0, &blob));
    EXPECT_EQ(property(list, CertGetCRLContextProperty, 0x8001), url);
}

TEST(StoreContext, ThePlaceOfAPrivateKeyKeepsItsTexts) {
    Certificate context = certificate("alice");
    std::wstring container = L"\\\\.\\DISK\\ключ 1", providerName = L"Провайдер";
    CRYPT_KEY_PROV_INFO info{container.data(), providerName.data(), 75, 0x20, 0, nullptr, 2};
    ASSERT_TRUE(CertSetCertificateContextProperty(context.get(), 2, 0, &info));
    Bytes data = property(context, 2);
    ASSERT_GE(data.size(), sizeof info);
    CRYPT_KEY_PROV_INFO back;
    std::memcpy(&back, data.data(), sizeof back);
    // The texts stood in the buffer that was filled; here they are looked up in its copy.
    auto text = [&](std::size_t skip) {
        std::wstring out;
        for (std::size_t at = sizeof info + skip * sizeof(wchar_t);; at += sizeof(wchar_t)) {
            wchar_t c;
            std::memcpy(&c, data.data() + at, sizeof c);
            if (c == 0) return out;
            out.push_back(c);
        }
    };
    EXPECT_EQ(text(0), container);
    EXPECT_EQ(text(container.size() + 1), providerName);
    EXPECT_EQ(back.dwProvType, 75u);
    EXPECT_EQ(back.dwFlags, 0x20u);
    EXPECT_EQ(back.dwKeySpec, 2u);
    info.cProvParam = 1;
    EXPECT_FALSE(CertSetCertificateContextProperty(context.get(), 2, 0, &info));
}

TEST(StoreContext, ThePrivateKeyIsOpenedByItsProperty) {
    TempHome home;
    HCRYPTPROV made = 0;
    ASSERT_TRUE(
        CryptAcquireContextA(&made, "store-test", nullptr, PROV_ECDSA_PLAIN, CRYPT_NEWKEYSET));
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGenKey(made, AT_SIGNATURE, 0, &key));
    CryptDestroyKey(key);
    CryptReleaseContext(made, 0);

    Certificate context = certificate("alice");
    HCRYPTPROV opened = 0;
    DWORD keySpec = 0;
    BOOL callerFrees = 0;
    auto acquire = [&] {
        return CryptAcquireCertificatePrivateKey(context.get(), 0, nullptr, &opened, &keySpec,
                                                 &callerFrees);
    };
    EXPECT_EQ(codeOf(acquire()), CRYPT_E_NO_KEY_PROPERTY);
    std::wstring container = L"store-test";
    CRYPT_KEY_PROV_INFO info{container.data(), nullptr, PROV_ECDSA_PLAIN, 0, 0, nullptr, 2};
    ASSERT_TRUE(CertSetCertificateContextProperty(context.get(), 2, 0, &info));
    ASSERT_TRUE(acquire()) << std::hex << GetLastError();
    EXPECT_EQ(keySpec, 2u);
    EXPECT_EQ(callerFrees, 1);
    EXPECT_TRUE(CryptGetUserKey(opened, keySpec, &key));
    CryptDestroyKey(key);
    CryptReleaseContext(opened, 0);
    container = L"store-test-none";
    info.pwszContainerName = container.data();
    ASSERT_TRUE(CertSetCertificateContextProperty(context.get(), 2, 0, &info));
    EXPECT_EQ(codeOf(acquire()), NTE_BAD_KEYSET);
}

}  // namespace
