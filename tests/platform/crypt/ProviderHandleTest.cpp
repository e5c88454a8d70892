#include <atomic>
#include <thread>

#include "ProviderFixture.h"
#include "platform/crypt/Handles.h"

// Handles: stale, foreign and made-up ones, at every function that takes one.

namespace provider_test {
namespace {

class ProviderHandle : public ProviderTest {};

using Call = std::function<BOOL(unsigned long long)>;

TEST_F(ProviderHandle, BadOnesAreRefusedEverywhere) {
    const Context context("handles", PROV_ECDSA_PLAIN, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(context));
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGetUserKey(context, AT_SIGNATURE, &key));
    const HCRYPTHASH hash = hashOf(context, CALG_SHA_256, "text");
    KeyRecord record = exportKey(context);
    const CERT_PUBLIC_KEY_INFO info = record.info();

    Bytes data(500);
    DWORD length = 0;
    unsigned long long out = 0;
    const auto ready = [&] { return length = static_cast<DWORD>(data.size()), &length; };
    const std::pair<const char*, Call> ofProvider[] = {
        {"release", [&](auto h) { return CryptReleaseContext(h, 0); }},
        {"refer", [&](auto h) { return CryptContextAddRef(h, nullptr, 0); }},
        {"get", [&](auto h) { return CryptGetProvParam(h, PP_NAME, data.data(), ready(), 0); }},
        {"set", [&](auto h) { return setPin(h, PP_SET_AUTH, ""); }},
        {"random", [&](auto h) { return CryptGenRandom(h, 8, data.data()); }},
        {"generate", [&](auto h) { return CryptGenKey(h, AT_SIGNATURE, 0, &out); }},
        {"user key", [&](auto h) { return CryptGetUserKey(h, AT_SIGNATURE, &out); }},
        {"hash", [&](auto h) { return CryptCreateHash(h, CALG_SHA_256, 0, 0, &out); }},
        {"export",
         [&](auto h) { return CryptExportPublicKeyInfo(h, AT_SIGNATURE, 1, nullptr, ready()); }},
        {"import",
         [&](auto h) { return CryptImportPublicKeyInfoEx(h, 1, &info, 0, 0, nullptr, &out); }},
    };
    const std::pair<const char*, Call> ofHash[] = {
        {"add", [&](auto h) { return CryptHashData(h, data.data(), 1, 0); }},
        {"get", [&](auto h) { return CryptGetHashParam(h, HP_HASHVAL, nullptr, ready(), 0); }},
        {"sign",
         [&](auto h) { return CryptSignHashA(h, AT_SIGNATURE, nullptr, 0, data.data(), ready()); }},
        {"verify",
         [&](auto h) { return CryptVerifySignatureA(h, data.data(), 70, key, nullptr, 0); }},
        {"destroy", [&](auto h) { return CryptDestroyHash(h); }},
    };
    const std::pair<const char*, Call> ofKey[] = {
        {"get", [&](auto h) { return CryptGetKeyParam(h, KP_KEYLEN, nullptr, ready(), 0); }},
        {"set", [&](auto h) { return CryptSetKeyParam(h, KP_CERTIFICATE, data.data(), 0); }},
        {"verify",
         [&](auto h) { return CryptVerifySignatureA(hash, data.data(), 70, h, nullptr, 0); }},
        {"destroy", [&](auto h) { return CryptDestroyKey(h); }},
    };
    HCRYPTPROV stale = 0;
    ASSERT_TRUE(CryptAcquireContextA(&stale, nullptr, nullptr, PROV_RSA, CRYPT_VERIFYCONTEXT));
    ASSERT_TRUE(CryptReleaseContext(stale, 0));
    const unsigned long long made[] = {0, 1, ~0ULL, stale, context + 1, context ^ 1ULL << 40};
    const auto refuse = [](const auto& calls, unsigned long long handle) {
        for (const auto& [what, call] : calls) {
            EXPECT_EQ(codeOf(call(handle)), ERROR_INVALID_HANDLE) << what << " " << handle;
        }
    };
    for (const unsigned long long handle : made) {
        refuse(ofProvider, handle);
        refuse(ofHash, handle);
        refuse(ofKey, handle);
    }
    refuse(ofProvider, hash);
    refuse(ofProvider, key);
    refuse(ofHash, context);
    refuse(ofHash, key);
    refuse(ofKey, context);
    refuse(ofKey, hash);
    // None of that harmed the good ones.
    EXPECT_TRUE(CryptDestroyHash(hash));
    EXPECT_TRUE(CryptDestroyKey(key));
    EXPECT_FALSE(sign(context, "text").empty());
}

TEST_F(ProviderHandle, ReferencesAreCounted) {
    HCRYPTPROV handle = 0;
    ASSERT_TRUE(CryptAcquireContextA(&handle, nullptr, nullptr, PROV_RSA, CRYPT_VERIFYCONTEXT));
    ASSERT_TRUE(CryptContextAddRef(handle, nullptr, 0));
    EXPECT_TRUE(CryptReleaseContext(handle, 0));
    EXPECT_EQ(textParameter(handle, PP_NAME), "PKIXCMP RSA Provider");
    EXPECT_TRUE(CryptReleaseContext(handle, 0));
    EXPECT_EQ(codeOf(CryptReleaseContext(handle, 0)), ERROR_INVALID_HANDLE);
    // The slot serves again, the number does not.
    const Context next(nullptr, PROV_RSA, CRYPT_VERIFYCONTEXT);
    EXPECT_EQ(codeOf(CryptReleaseContext(handle, 0)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(textParameter(next, PP_NAME), "PKIXCMP RSA Provider");
}

TEST_F(ProviderHandle, DefaultContextIsOneAProcess) {
    const HCRYPTPROV first = QXCAPI_I_GetDefaultProvider(PROV_RSA);
    EXPECT_NE(first, 0U);
    EXPECT_EQ(QXCAPI_I_CryptGetDefaultCryptProv(CALG_RSA_KEYX), first);
    EXPECT_EQ(QXCAPI_I_CryptGetDefaultCryptProv(CALG_SHA_256), first);
    EXPECT_NE(QXCAPI_I_CryptGetDefaultCryptProv(CALG_ECDSA), first);
    EXPECT_EQ(QXCAPI_I_CryptGetDefaultCryptProv(0x6601), 0U);
    EXPECT_EQ(QXCAPI_I_GetDefaultProvider(77), 0U);
    EXPECT_EQ(GetLastError(), NTE_PROV_TYPE_NOT_DEF);
    // Released more often than taken, it is replaced.
    while (CryptReleaseContext(first, 0)) continue;
    const Context next(QXCAPI_I_GetDefaultProvider(PROV_RSA));
    EXPECT_EQ(textParameter(next, PP_NAME), "PKIXCMP RSA Provider");
}

TEST_F(ProviderHandle, ThreadsReuseSlotsWithoutMixingThemUp) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            std::vector<HCRYPTPROV> mine;
            for (int round = 0; round < 2000; ++round) {
                HCRYPTPROV handle = 0;
                const DWORD type = round % 2 == 0 ? PROV_RSA : PROV_ECDSA_PLAIN;
                CryptAcquireContextA(&handle, nullptr, nullptr, type, CRYPT_VERIFYCONTEXT);
                mine.push_back(handle);
                if (number(CryptGetProvParam, handle, PP_PROVTYPE) != type) ++wrong;
                if (round % 3 != 0) continue;
                if (!CryptReleaseContext(mine.front(), 0)) ++wrong;
                if (CryptReleaseContext(mine.front(), 0)) ++wrong;
                mine.erase(mine.begin());
            }
            for (const HCRYPTPROV handle : mine) CryptReleaseContext(handle, 0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace provider_test
