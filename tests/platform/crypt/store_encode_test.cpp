#include <openssl/asn1.h>
#include <openssl/x509v3.h>

#include <cstring>

#include "tests/platform/crypt/store_fixture.h"

// The small structures, judged by libcrypto's readers and writers.

namespace {

using namespace store_test;

const char* type(std::size_t number) { return reinterpret_cast<const char*>(number); }

Bytes encode(std::size_t number, const void* data) {
    DWORD length = 0;
    if (!CryptEncodeObject(CERT_ENCODING, type(number), data, nullptr, &length)) return {};
    Bytes der(length);
    EXPECT_TRUE(CryptEncodeObject(CERT_ENCODING, type(number), data, der.data(), &length));
    return der;
}

BOOL decode(std::size_t number, const Bytes& der, void* out, DWORD* length) {
    return CryptDecodeObject(CERT_ENCODING, type(number), der.data(),
                             static_cast<DWORD>(der.size()), 0, out, length);
}

TEST(StoreEncode, IntegersInTheirShortestForm) {
    struct {
        Bytes little, der;
    } cases[] = {
        {{0}, {2, 1, 0}},
        {{0x7F}, {2, 1, 0x7F}},
        {{0x80, 0}, {2, 2, 0, 0x80}},
        {{0x80}, {2, 1, 0x80}},
        {{0x80, 0xFF, 0xFF}, {2, 1, 0x80}},
        {{0x7F, 0xFF}, {2, 2, 0xFF, 0x7F}},
        {{5, 0, 0, 0}, {2, 1, 5}},
        {{0x34, 0x12}, {2, 2, 0x12, 0x34}},
    };
    for (auto& c : cases) {
        CRYPT_DATA_BLOB blob = blobOf(c.little);
        EXPECT_EQ(encode(X509_MULTI_BYTE_INTEGER, &blob), c.der);
        const unsigned char* in = c.der.data();
        ASN1_INTEGER* judged = d2i_ASN1_INTEGER(nullptr, &in, static_cast<long>(c.der.size()));
        EXPECT_NE(judged, nullptr);
        ASN1_INTEGER_free(judged);
    }
    Bytes wide(300, 0x5A);
    CRYPT_DATA_BLOB blob = blobOf(wide);
    Bytes der = encode(X509_MULTI_BYTE_INTEGER, &blob);
    EXPECT_EQ(Bytes(der.begin(), der.begin() + 4), (Bytes{2, 0x82, 1, 44}));
    blob = {0, nullptr};
    EXPECT_TRUE(encode(X509_MULTI_BYTE_INTEGER, &blob).empty());
    EXPECT_EQ(GetLastError(), CRYPT_E_BAD_ENCODE);
    EXPECT_TRUE(encode(12345, &blob).empty());
}

TEST(StoreEncode, NumbersBothWaysAndWhatIsNone) {
    for (DWORD number : {0u, 1u, 127u, 128u, 255u, 256u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        for (std::size_t kind : {X509_INTEGER, X509_ENUMERATED}) {
            Bytes der = encode(kind, &number);
            DWORD back = ~number, length = sizeof back;
            EXPECT_TRUE(decode(kind, der, &back, &length));
            EXPECT_EQ(back, number);
        }
    }
    const std::pair<std::size_t, Bytes> bad[] = {
        {X509_ENUMERATED, {}},
        {X509_ENUMERATED, {0x0A}},
        {X509_ENUMERATED, {0x0A, 0}},
        {X509_ENUMERATED, {2, 1, 1}},
        {X509_ENUMERATED, {0x0A, 2, 1}},
        {X509_ENUMERATED, {0x0A, 1, 1, 0}},
        {X509_INTEGER, {2, 5, 1, 0, 0, 0, 0}},
        {X509_MULTI_BYTE_INTEGER, {2, 0}},
        {X509_MULTI_BYTE_INTEGER, {2, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0}},
        {X509_AUTHORITY_KEY_ID, {0x30, 3, 0x80, 2, 1}},
        {X509_AUTHORITY_KEY_ID, {0x31, 0}},
    };
    for (const auto& [kind, der] : bad) {
        DWORD length = 0;
        SetLastError(0);
        EXPECT_EQ(codeOf(decode(kind, der, nullptr, &length)), CRYPT_E_ASN1_BADTAG)
            << testing::PrintToString(der);
    }
}

TEST(StoreEncode, SerialNumbersOfCertificatesGoThereAndBack) {
    for (const char* name : {"alice", "bob", "ca"}) {
        Certificate context = certificate(name);
        Bytes der = encode(X509_MULTI_BYTE_INTEGER, &context->pCertInfo->SerialNumber);
        alignas(8) BYTE room[64];
        DWORD length = sizeof room;
        ASSERT_TRUE(decode(X509_MULTI_BYTE_INTEGER, der, room, &length));
        CRYPT_DATA_BLOB back;
        std::memcpy(&back, room, sizeof back);
        EXPECT_EQ(bytesOf(back), bytesOf(context->pCertInfo->SerialNumber));
        EXPECT_EQ(length, sizeof back + back.cbData);
    }
}

TEST(StoreEncode, AuthorityKeyIdentifiersAreReadAndWritten) {
    Certificate ca = certificate("ca");
    Bytes keyId = {1, 2, 3, 4}, name = bytesOf(ca->pCertInfo->Issuer), serial = {0x80, 0};
    for (int parts = 0; parts < 8; ++parts) {
        CERT_AUTHORITY_KEY_ID_INFO info{};
        if (parts & 1) info.KeyId = blobOf(keyId);
        if (parts & 2) info.CertIssuer = blobOf(name);
        if (parts & 4) info.CertSerialNumber = blobOf(serial);
        Bytes der = encode(X509_AUTHORITY_KEY_ID, &info);
        const unsigned char* in = der.data();
        std::unique_ptr<AUTHORITY_KEYID, decltype(&AUTHORITY_KEYID_free)> judged(
            d2i_AUTHORITY_KEYID(nullptr, &in, static_cast<long>(der.size())), AUTHORITY_KEYID_free);
        ASSERT_TRUE(judged) << parts;
        EXPECT_EQ(judged->keyid != nullptr, (parts & 1) != 0);
        EXPECT_EQ(judged->issuer != nullptr, (parts & 2) != 0);
        EXPECT_EQ(judged->serial != nullptr, (parts & 4) != 0);
        if (parts & 4) {
            EXPECT_EQ(ASN1_INTEGER_get(judged->serial), 128);
        }
        alignas(8) BYTE room[512];
        DWORD length = sizeof room;
        ASSERT_TRUE(decode(X509_AUTHORITY_KEY_ID, der, room, &length));
        CERT_AUTHORITY_KEY_ID_INFO back;
        std::memcpy(&back, room, sizeof back);
        EXPECT_EQ(bytesOf(back.KeyId), parts & 1 ? keyId : Bytes{});
        EXPECT_EQ(bytesOf(back.CertIssuer), parts & 2 ? name : Bytes{});
        EXPECT_EQ(bytesOf(back.CertSerialNumber), parts & 4 ? serial : Bytes{});
        DWORD less = length - 1;
        EXPECT_EQ(codeOf(decode(X509_AUTHORITY_KEY_ID, der, room, &less)), ERROR_MORE_DATA);
        EXPECT_EQ(less, length);
    }
}

}  // namespace
