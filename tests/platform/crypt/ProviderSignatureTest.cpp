#include <atomic>
#include <thread>

#include "ProviderFixture.h"
#include "platform/crypt/KeyPair.h"

// Algorithms, public keys and signatures, judged against the openssl command line.

namespace provider_test {
namespace {

constexpr const char* rsaOid = "1.2.840.113549.1.1.1";
constexpr const char* ecOid = "1.2.840.10045.2.1";
constexpr const char* sha1Oid = "1.3.14.3.2.26";
constexpr const char* sha256Oid = "2.16.840.1.101.3.4.2.1";
constexpr const char* sha384Oid = "2.16.840.1.101.3.4.2.2";
constexpr std::pair<const char*, ALG_ID> hashes[] = {{"sha1", CALG_SHA1},
                                                     {"sha256", CALG_SHA_256},
                                                     {"sha384", CALG_SHA_384},
                                                     {"sha512", CALG_SHA_512}};
constexpr std::string_view text = "what is signed";

std::string oidOf(PCCRYPT_OID_INFO info) { return info == nullptr ? "none" : info->pszOID; }

TEST(ProviderAlgorithms, IdentifiersGiveNumbers) {
    const struct {
        const char* oid;
        ALG_ID id;
        const char* back;
    } cases[] = {
        {sha1Oid, CALG_SHA1, sha1Oid},
        {sha256Oid, CALG_SHA_256, sha256Oid},
        {"1.2.840.113549.1.1.5", CALG_SHA1, sha1Oid},
        {"1.2.840.113549.1.1.13", CALG_SHA_512, "2.16.840.1.101.3.4.2.3"},
        {"1.2.840.10045.4.3.3", CALG_SHA_384, sha384Oid},
        {rsaOid, CALG_RSA_SIGN, rsaOid},
        {ecOid, CALG_ECDSA, ecOid},
        {"1.2.840.113549.1.1.4", 0, nullptr},
        {"1.2.840.10045.4.3", 0, nullptr},
        {"", 0, nullptr},
        {nullptr, 0, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CertOIDToAlgId(c.oid), c.id) << c.oid;
        EXPECT_STREQ(CertAlgIdToOID(c.id), c.back) << c.oid;
    }
    EXPECT_STREQ(CertAlgIdToOID(CALG_RSA_KEYX), rsaOid);
    EXPECT_STREQ(CertAlgIdToOID(CALG_ECDH), ecOid);
}

TEST(ProviderAlgorithms, SignatureFollowsFromKeyAndHash) {
    const struct {
        const char *key, *hash, *signature;
    } cases[] = {
        {rsaOid, sha256Oid, "1.2.840.113549.1.1.11"}, {rsaOid, sha1Oid, "1.2.840.113549.1.1.5"},
        {ecOid, sha384Oid, "1.2.840.10045.4.3.3"},    {ecOid, sha1Oid, "1.2.840.10045.4.1"},
        {ecOid, "1.2.840.113549.2.5", "none"},        {ecOid, ecOid, "none"},
        {"1.3.101.112", sha256Oid, "none"},           {nullptr, sha256Oid, "none"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(oidOf(QXCryptGetSignatureOIDInfo(c.key, c.hash)), c.signature);
    }
    const PCCRYPT_OID_INFO info = QXCryptGetSignatureOIDInfo(ecOid, sha256Oid);
    ASSERT_EQ(info->dwGroupId, CRYPT_SIGN_ALG_OID_GROUP_ID);
    EXPECT_EQ(info->Algid, CALG_SHA_256);
    ASSERT_EQ(info->ExtraInfo.cbData, 12U);
    EXPECT_EQ(reinterpret_cast<const DWORD*>(info->ExtraInfo.pbData)[0], CALG_ECDSA);
}

TEST(ProviderAlgorithms, KeyChoosesItsDefaults) {
    const struct {
        const char* oid;
        Bytes parameters;
        const char *hash, *signature;
    } cases[] = {
        {rsaOid, {5, 0}, sha256Oid, "1.2.840.113549.1.1.11"},
        {rsaOid, {}, sha256Oid, "1.2.840.113549.1.1.11"},
        {ecOid, {6, 8, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 3, 1, 7}, sha256Oid, "1.2.840.10045.4.3.2"},
        {ecOid, {6, 5, 0x2B, 0x81, 4, 0, 0x22}, sha384Oid, "1.2.840.10045.4.3.3"},
        {ecOid, {6, 5, 0x2B, 0x81, 4, 0, 0x0A}, "none", "none"},
        {ecOid, {}, "none", "none"},
        {"1.3.101.112", {}, "none", "none"},
    };
    for (const auto& c : cases) {
        KeyRecord key{c.oid, c.parameters, {}};
        const CERT_PUBLIC_KEY_INFO info = key.info();
        EXPECT_EQ(oidOf(QXCryptGetDefaultHashOIDInfo(&info)), c.hash);
        EXPECT_EQ(oidOf(QXCryptGetDefaultSignatureOIDInfo(&info)), c.signature);
    }
    EXPECT_EQ(oidOf(QXCryptGetDefaultHashOIDInfo(ecOid)), sha256Oid);
    EXPECT_EQ(oidOf(QXCryptGetDefaultHashOIDInfo("1.3.101.112")), "none");
}

class ProviderSignature : public ProviderTest {
protected:
    /// A key made by openssl, and its public part.
    KeyRecord opensslKey(const std::string& name, const std::string& options) {
        openssl("genpkey " + options + " -out " + name + ".pem");
        openssl("pkey -in " + name + ".pem -pubout -outform DER -out " + name + ".der");
        return keyFromSpki(readFile(file(name + ".der")));
    }

    Context any{nullptr, PROV_ECDSA_P256, CRYPT_VERIFYCONTEXT};
};

TEST_F(ProviderSignature, OpensslAcceptsOurs) {
    const struct {
        DWORD type;
        const char* name;
        ALG_ID hash;
        const char* digest;
    } cases[] = {
        {PROV_RSA, "plain", CALG_SHA_256, "sha256"},
        {PROV_RSA, "plain512", CALG_SHA_512, "sha512"},
        {PROV_ECDSA_PLAIN, "ec", CALG_SHA_256, "sha256"},
        {PROV_ECDSA_P256, "\\\\.\\VAULT\\ec75", CALG_SHA_384, "sha384"},
        {PROV_RSA_3072, "\\\\.\\VAULT\\rsa80", CALG_SHA_256, "sha256"},
        {PROV_ECDSA_P384, "\\\\.\\VAULT\\ec81", CALG_SHA_384, "sha384"},
    };
    writeFile(file("text"), text);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Context context(c.name, c.type, CRYPT_NEWKEYSET);
        ASSERT_TRUE(generate(context)) << std::hex << GetLastError();
        const Bytes signature = sign(context, text, c.hash);
        writeFile(file("signature"), signature);
        const std::string unique = textParameter(context, PP_UNIQUE_CONTAINER);
        const std::string name = unique.substr(unique.rfind('\\') + 1);
        const auto folder =
            c.type < PROV_ECDSA_P256 ? file("user/containers/" + name) : container("VAULT", name);
        openssl("pkey -pubin -inform DER -in " + onlyFile(folder, ".pub").string() +
                " -out public.pem");
        openssl(std::string("dgst -") + c.digest + " -verify public.pem -signature signature text");
        const HCRYPTKEY key = import(any, exportKey(context));
        EXPECT_TRUE(verify(any, key, text, signature, c.hash));
        EXPECT_TRUE(CryptDestroyKey(key));
    }
}

TEST_F(ProviderSignature, OpensslsAreAccepted) {
    const std::pair<const char*, const char*> keys[] = {
        {"rsa", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048"},
        {"rsa1024", "-algorithm RSA -pkeyopt rsa_keygen_bits:1024"},
        {"p256", "-algorithm EC -pkeyopt ec_paramgen_curve:P-256"},
        {"p384", "-algorithm EC -pkeyopt ec_paramgen_curve:P-384"},
    };
    writeFile(file("text"), text);
    for (const auto& [name, options] : keys) {
        const HCRYPTKEY key = import(any, opensslKey(name, options));
        ASSERT_NE(key, 0U) << name << std::hex << GetLastError();
        for (const auto& [digest, hash] : hashes) {
            SCOPED_TRACE(std::string(name) + " " + digest);
            openssl(std::string("dgst -") + digest + " -sign " + name + ".pem -out sig text");
            const Bytes signature = readFile(file("sig"));
            EXPECT_TRUE(verify(any, key, text, signature, hash));
            EXPECT_EQ(codeOf(verify(any, key, "what is siGned", signature, hash)),
                      NTE_BAD_SIGNATURE);
            EXPECT_FALSE(verify(any, key, text, signature,
                                hash == CALG_SHA_256 ? CALG_SHA_384 : CALG_SHA_256));
            const Bytes backwards(signature.rbegin(), signature.rend());
            const Bytes shorter(signature.begin(), signature.end() - 1);
            Bytes longer = signature, flipped = signature;
            longer.push_back(0);
            flipped[flipped.size() / 2] ^= 1;
            for (const Bytes& bad :
                 {backwards, shorter, longer, flipped, Bytes(), Bytes(5000, 1)}) {
                EXPECT_EQ(codeOf(verify(any, key, text, bad, hash)), NTE_BAD_SIGNATURE);
            }
        }
        CryptDestroyKey(key);
    }
}

TEST_F(ProviderSignature, BadPublicKeysAreRefused) {
    const KeyRecord point = opensslKey("p256", "-algorithm EC -pkeyopt ec_paramgen_curve:P-256");
    const KeyRecord rsa = opensslKey("rsa", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048");
    using Key = KeyRecord;
    constexpr DWORD bad = NTE_BAD_KEY, unknown = NTE_BAD_ALGID;
    const Bytes p384 = {6, 5, 0x2B, 0x81, 4, 0, 0x22};
    const Bytes secp256k1 = {6, 5, 0x2B, 0x81, 4, 0, 0x0A};
    // A modulus of 2048 bits stands behind SEQUENCE (4 octets), INTEGER (4 octets) and its zero;
    // the exponent 65537 takes the last five octets.
    const auto shorten = [](Key& k, auto place, int count) {
        k.bits.erase(place, place + count);
        k.bits[3] = static_cast<BYTE>(k.bits[3] - count);
    };
    const auto negative = [&](Key& k) { shorten(k, k.bits.begin() + 8, 1), --k.bits[7]; };
    const auto one = [&](Key& k) { shorten(k, k.bits.end() - 3, 2), k.bits.end()[-2] = 1; };
    const auto longLength = [](Key& k) { k.bits.insert(k.bits.end() - 4, 0x81), ++k.bits[3]; };
    const Bytes noNull = {4, 0};
    const struct {
        const char* what;
        const Key& key;
        std::function<void(Key&)> change;
        DWORD code;
    } cases[] = {
        {"short point", point, [](Key& k) { k.bits.pop_back(); }, bad},
        {"long point", point, [](Key& k) { k.bits.push_back(0); }, bad},
        {"no point", point, [](Key& k) { k.bits.clear(); }, bad},
        {"point at infinity", point, [](Key& k) { k.bits = {0}; }, bad},
        {"off the curve", point, [](Key& k) { k.bits.back() ^= 1; }, bad},
        {"hybrid form", point, [](Key& k) { k.bits[0] = 6 + (k.bits.back() & 1); }, bad},
        {"above the field", point, [](Key& k) { std::fill_n(&k.bits[1], 64, BYTE{255}); }, bad},
        {"point of another curve", point, [&](Key& k) { k.parameters = p384; }, bad},
        {"unknown curve", point, [&](Key& k) { k.parameters = secp256k1; }, unknown},
        {"no curve", point, [](Key& k) { k.parameters.clear(); }, unknown},
        {"unknown algorithm", point, [](Key& k) { k.oid = "1.3.101.112"; }, unknown},
        {"another's algorithm", rsa, [](Key& k) { k.oid = ecOid; }, unknown},
        {"even modulus", rsa, [](Key& k) { k.bits[9 + 255] ^= 1; }, bad},
        {"negative modulus", rsa, negative, bad},
        {"even exponent", rsa, [](Key& k) { k.bits.back() = 2; }, bad},
        {"exponent 1", rsa, one, bad},
        {"length not minimal", rsa, longLength, bad},
        {"bytes behind", rsa, [](Key& k) { k.bits.push_back(0); }, bad},
        {"cut off", rsa, [](Key& k) { k.bits.resize(100); }, bad},
        {"small modulus", rsa, [](Key& k) { k.bits = {0x30, 6, 2, 1, 5, 2, 1, 3}; }, bad},
        {"other parameters", rsa, [&](Key& k) { k.parameters = noNull; }, bad},
    };
    for (const auto& c : cases) {
        Key key = c.key;
        c.change(key);
        EXPECT_EQ(import(any, key), 0U) << c.what;
        EXPECT_EQ(GetLastError(), c.code) << c.what;
    }
    // A refused key must not spoil a good one that is imported after it.
    EXPECT_TRUE(CryptDestroyKey(import(any, point)));
    EXPECT_TRUE(CryptDestroyKey(import(any, Key{rsa.oid, {}, rsa.bits})));
}

TEST_F(ProviderSignature, CompressedPointIsTheSameKey) {
    opensslKey("p384", "-algorithm EC -pkeyopt ec_paramgen_curve:P-384");
    openssl("ec -in p384.pem -pubout -conv_form compressed -outform DER -out short.der");
    writeFile(file("text"), text);
    openssl("dgst -sha384 -sign p384.pem -out sig text");
    const HCRYPTKEY key = import(any, keyFromSpki(readFile(file("short.der"))));
    ASSERT_NE(key, 0U) << std::hex << GetLastError();
    EXPECT_TRUE(verify(any, key, text, readFile(file("sig")), CALG_SHA_384));
    CryptDestroyKey(key);
}

// More keys than are kept ready, some of them held: none may turn into another.
TEST_F(ProviderSignature, ManyKeysTakeTurns) {
    const auto& shape = *provider::findShape("EC:P-256");
    const auto& hash = *provider::findAlgorithm(CALG_SHA_256);
    const HCRYPTHASH digest = hashOf(any, CALG_SHA_256, text);
    Bytes value(32);
    DWORD length = 32;
    ASSERT_TRUE(CryptGetHashParam(digest, HP_HASHVAL, value.data(), &length, 0));
    CryptDestroyHash(digest);
    std::vector<std::pair<HCRYPTKEY, Bytes>> held;
    Bytes previous(70, 1);
    for (int i = 0; i < 120; ++i) {
        const auto made = provider::PrivateKey::generate(shape);
        const Bytes signature = made->sign(hash, value);
        const HCRYPTKEY key = import(any, keyFromSpki(made->publicKeyInfo()));
        EXPECT_TRUE(verify(any, key, text, signature));
        EXPECT_FALSE(verify(any, key, text, previous));
        previous = signature;
        if (i % 4 == 0) {
            held.emplace_back(key, signature);
        } else {
            CryptDestroyKey(key);
        }
    }
    for (const auto& [key, signature] : held) {
        EXPECT_TRUE(verify(any, key, text, signature));
        CryptDestroyKey(key);
    }
}

TEST_F(ProviderSignature, SignKeepsToBufferAndAlgorithm) {
    const Context context("k", PROV_ECDSA_PLAIN, CRYPT_NEWKEYSET);
    const HCRYPTHASH hash = hashOf(context, CALG_SHA_256, text);
    DWORD length = 0;
    EXPECT_EQ(codeOf(CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, nullptr, &length)), NTE_NO_KEY);
    ASSERT_TRUE(generate(context));
    Bytes small(70, 0xEE);
    length = 70;
    EXPECT_EQ(codeOf(CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, small.data(), &length)),
              ERROR_MORE_DATA);
    EXPECT_EQ(length, 72U);
    EXPECT_THAT(small, ::testing::Each(0xEE));
    EXPECT_EQ(codeOf(CryptSignHashA(hash, AT_KEYEXCHANGE, nullptr, 0, nullptr, &length)),
              NTE_NO_KEY);
    EXPECT_EQ(codeOf(CryptSignHashA(hash, AT_SIGNATURE, nullptr, 8, nullptr, &length)),
              NTE_BAD_FLAGS);
    CryptDestroyHash(hash);
    EXPECT_EQ(sign(context, text, CALG_SHA1), Bytes());
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);
}

TEST_F(ProviderSignature, HashMatchesOpenssl) {
    const std::string data(100'000, 'a');
    writeFile(file("data"), data);
    for (const auto& [digest, id] : hashes) {
        const HCRYPTHASH hash = hashOf(any, id, data.substr(0, 7));
        CryptHashData(hash, reinterpret_cast<const BYTE*>(data.data()) + 7, 99'993, 0);
        DWORD length = 0;
        EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, nullptr, &length, 0));
        EXPECT_EQ(length, number(CryptGetHashParam, hash, HP_HASHSIZE));
        Bytes value(length);
        EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, value.data(), &length, 0));
        openssl(std::string("dgst -binary -") + digest + " -out value data");
        EXPECT_EQ(value, readFile(file("value")));
        EXPECT_EQ(codeOf(CryptHashData(hash, value.data(), 1, 0)), NTE_BAD_HASH_STATE);
        CryptDestroyHash(hash);
    }
    HCRYPTHASH none = 0;
    EXPECT_EQ(codeOf(CryptCreateHash(any, CALG_ECDSA, 0, 0, &none)), NTE_BAD_ALGID);
    EXPECT_EQ(codeOf(CryptCreateHash(any, 0x8003, 0, 0, &none)), NTE_BAD_ALGID);
}

// One provider handle and one set of keys, many threads: sanitizers and wrong answers tell.
TEST_F(ProviderSignature, ThreadsSignAndVerifyTogether) {
    const Context context("shared", PROV_ECDSA_PLAIN, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(context));
    const KeyRecord record = exportKey(context);
    std::atomic<int> wrong = 0;
    const auto work = [&](int number) {
        for (int i = 0; i < 100; ++i) {
            const std::string own = std::to_string(number) + "/" + std::to_string(i);
            const HCRYPTPROV shared = QXCAPI_I_CryptGetDefaultCryptProv(CALG_ECDSA);
            const HCRYPTKEY key = import(shared, record);
            const Bytes signature = sign(context, own);
            if (!verify(shared, key, own, signature)) ++wrong;
            if (verify(shared, key, own + "x", signature)) ++wrong;
            if (!CryptDestroyKey(key) || !CryptReleaseContext(shared, 0)) ++wrong;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace provider_test
