#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "capilite/CAException.h"
#include "capilite/CertificateStore.h"
#include "capilite/Contexts.h"
#include "capilite/PinCallback.h"
#include "capilite/StoreFind.h"
#include "tests/TempHome.h"
#include "tests/capilite/Hex.h"

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr unsigned long mayExist = CERT_STORE_OPEN_EXISTING;

CACMPT_BLOB file(const std::string& name) {
    CACMPT_BLOB blob;
    blob.readFromFile((PKIXCMP_TEST_DATA "/stores/" + name).c_str());
    return blob;
}

CertContextPtr certificate(const std::string& name) {
    const CACMPT_BLOB der = file(name + ".cer");
    return CertContextPtr(CertCreateCertificateContext(CERT_ENCODING, der.data, der.size));
}

CrlContextPtr crl(const std::string& name) {
    const CACMPT_BLOB der = file(name + ".crl");
    return CrlContextPtr(CertCreateCRLContext(CERT_ENCODING, der.data, der.size));
}

CACMPT_BLOB blob(const CRYPT_DATA_BLOB& data) { return {data.pbData, data.cbData}; }

class StoreTest : public testing::Test {
protected:
    /// A store of the user's that holds all of the certificates and CRLs named, in this order.
    store_handle filled(const wchar_t* name) {
        store_handle store;
        EXPECT_TRUE(store.open(name, false, 0));
        for (const char* one : certificates) {
            EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), certificate(one).get(),
                                                         CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
        }
        for (const char* one : crls) {
            EXPECT_TRUE(CertAddCRLContextToStore(store.get(), crl(one).get(),
                                                 CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
        }
        return store;
    }
    /// The names of the objects that a predicate finds, in the order found.
    std::string found(const store_handle& store, const StoreFindParam<_CERT_CONTEXT>& predicate,
                      bool firstOnly = false) {
        std::list<CACMPT_BLOB> out;
        CertStore_Find(out, store.get(), predicate, firstOnly);
        return names(out, certificates, ".cer");
    }
    std::string found(const store_handle& store, const StoreFindParam<_CRL_CONTEXT>& predicate,
                      bool firstOnly = false) {
        std::list<CACMPT_BLOB> out;
        CrlStore_Find(out, store.get(), predicate, firstOnly);
        return names(out, crls, ".crl");
    }

    const std::vector<const char*> certificates = {"carol", "alice", "ca", "bob", "alice-case"};
    const std::vector<const char*> crls = {"plain", "keyid", "case", "issuer", "broken"};
    const std::string all = "carol alice ca bob alice-case";
    const CACMPT_BLOB none{};
    TempHome home;

private:
    static std::string names(const std::list<CACMPT_BLOB>& found,
                             const std::vector<const char*>& known, const char* extension) {
        std::string out;
        for (const CACMPT_BLOB& one : found) {
            for (const char* name : known) {
                if (one == file(std::string(name) + extension)) out += std::string(name) + ' ';
            }
        }
        if (!out.empty()) out.pop_back();
        return out;
    }
};

TEST(CertificateStoreName, PrefixTellsTheSide) {
    const struct {
        const wchar_t* text;
        const wchar_t* name;  // null: refused
        bool system;
    } cases[] = {{L"user.My", L"My", false}, {L"system.Root", L"Root", true},
                 {L"user.", L"", false},     {L"system.user.x", L"user.x", true},
                 {L"My", nullptr, false},    {L"User.My", nullptr, false},
                 {L"user", nullptr, false},  {L"", nullptr, false},
                 {nullptr, nullptr, false}};
    for (const auto& c : cases) {
        CertificateStore store(L"before", true);
        if (c.name) {
            store.Set(c.text);
            EXPECT_EQ(std::wstring(store.name()), c.name);
            EXPECT_EQ(store.system(), c.system);
        } else {
            EXPECT_THAT(
                [&] { store.Set(c.text); },
                ThrowsMessage<CAException>(HasSubstr("'Store should be EITHER user or system' at "
                                                     "file:'capilite/StoreUtil'")));
            EXPECT_EQ(std::wstring(store.name()), L"before");
        }
    }
}

TEST(CertificateStoreName, UserStoresComeFirst) {
    const CertificateStore sorted[] = {{nullptr, false}, {L"", false},    {L"A", false},
                                       {L"B", false},    {nullptr, true}, {L"A", true}};
    for (std::size_t i = 0; i < std::size(sorted); ++i) {
        for (std::size_t j = 0; j < std::size(sorted); ++j) {
            EXPECT_EQ(sorted[i] < sorted[j], i < j) << i << ' ' << j;
            EXPECT_EQ(sorted[i] == sorted[j], i == j) << i << ' ' << j;
        }
    }
}

TEST_F(StoreTest, HandlesCountTheirStores) {
    store_handle store;
    EXPECT_FALSE(store.open(L"Missing", false, mayExist));
    EXPECT_FALSE(store);
    ASSERT_TRUE(store.open(ROOT_STORE, CERT_SYSTEM_STORE_LOCAL_MACHINE));
    EXPECT_TRUE(store.is_root());
    EXPECT_THAT([&] { store.open(L"My", false, 0); },
                ThrowsMessage<CAException>(HasSubstr("'Store already opened.' at "
                                                     "file:'capilite/StoreUtil'")));
    EXPECT_THAT([] { store_handle(nullptr, false, true); },
                ThrowsMessage<CAException>(HasSubstr("Store handle is NULL.")));
    const auto alice = certificate("alice");
    store_handle shared(store.get(), true, true);
    store_handle copy = shared;
    store.close();
    shared = store_handle();
    EXPECT_TRUE(copy.is_root());
    EXPECT_TRUE(CertAddCertificateContextToStore(copy.get(), alice.get(), 3, nullptr));
    store_handle moved = std::move(copy);
    EXPECT_FALSE(copy);  // NOLINT: a moved-from handle is empty
    EXPECT_TRUE(moved.is_root());
    store_handle lower;
    ASSERT_TRUE(lower.open(L"root", true, 0));
    EXPECT_FALSE(lower.is_root());
}

TEST_F(StoreTest, CertificatesAreFoundByPredicate) {
    const store_handle store = filled(L"T");
    const CACMPT_BLOB caName = blob(certificate("bob")->pCertInfo->Issuer);
    const CACMPT_BLOB caseName = blob(certificate("carol")->pCertInfo->Issuer);
    const CACMPT_BLOB aliceName = blob(certificate("alice")->pCertInfo->Subject);
    const CACMPT_BLOB little = fromHex("3412"), big = fromHex("1234"), little80 = fromHex("8000"),
                      big80 = fromHex("80");
    using Substring = CertFindByIssuerSubStrAndSerial;
    EXPECT_EQ(found(store, Substring(L"", none)), all);
    EXPECT_EQ(found(store, Substring(nullptr, none)), all);
    EXPECT_EQ(found(store, Substring(nullptr, none), true), "carol");
    EXPECT_EQ(found(store, Substring(L"CN=Store CA", none)), "alice ca bob alice-case");
    EXPECT_EQ(found(store, Substring(L"store", none)), "carol");
    EXPECT_EQ(found(store, Substring(nullptr, little)), "carol bob");
    EXPECT_EQ(found(store, Substring(L"Store CA", little)), "bob");
    EXPECT_EQ(found(store, Substring(nullptr, little80)), "alice");
    EXPECT_EQ(found(store, Substring(nullptr, big)), "");
    using Subject = CertFindBySubjectAndSerial;
    EXPECT_EQ(found(store, Subject(aliceName, none)), "alice alice-case");
    EXPECT_EQ(found(store, Subject(aliceName, little80)), "alice");
    EXPECT_EQ(found(store, Subject(aliceName, "0x81")), "alice-case");
    EXPECT_EQ(found(store, Subject(none, "4660")), "carol bob");
    EXPECT_EQ(found(store, Subject(none, "")), all);
    EXPECT_EQ(found(store, Subject(none, static_cast<const char*>(nullptr))), all);
    EXPECT_THROW(Subject(none, "no number"), Asn1Exception);
    using Issuer = CertFindByIssuerAndSerial;
    EXPECT_EQ(found(store, Issuer(caName, none)), "alice ca bob alice-case");
    EXPECT_EQ(found(store, Issuer(caseName, big)), "carol");
    EXPECT_EQ(found(store, Issuer(none, big)), "carol bob");
    EXPECT_EQ(found(store, Issuer(none, big80)), "alice");
    EXPECT_EQ(found(store, Issuer(none, little)), "");
    EXPECT_EQ(found(store, Issuer(none, none)), all);
}

TEST_F(StoreTest, CertificatesAreFoundByKeyAndByThePlatform) {
    const store_handle store = filled(L"T");
    const auto bob = certificate("bob");
    const CRYPT_BIT_BLOB& bits = bob->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    CACMPT_PublicKeyInfo key;
    EXPECT_EQ(found(store, CertFindByPublicKey(key)), all);
    key.key.assign(bits.pbData, bits.cbData);
    EXPECT_EQ(found(store, CertFindByPublicKey(key)), all);
    EXPECT_EQ(found(store, CertFindByPublicKey(file("alice.cer"))), all);
    key.key.data[key.key.size - 1] ^= 1;
    EXPECT_EQ(found(store, CertFindByPublicKey(key)), "");
    EXPECT_THROW(CertFindByPublicKey(file("plain.crl")), Asn1Exception);
    BYTE hashBytes[20], keyIdBytes[20];
    CRYPT_DATA_BLOB hash{sizeof hashBytes, hashBytes};
    CRYPT_DATA_BLOB keyId{sizeof keyIdBytes, keyIdBytes};
    ASSERT_TRUE(CertGetCertificateContextProperty(bob.get(), 3, hashBytes, &hash.cbData));
    ASSERT_TRUE(CertGetCertificateContextProperty(bob.get(), 20, keyIdBytes, &keyId.cbData));
    EXPECT_EQ(found(store, CertFindByCertificateHash(CERT_FIND_SHA1_HASH, &hash)), "bob");
    EXPECT_EQ(found(store, CertFindByKeyIdentifier(CERT_FIND_KEY_IDENTIFIER, &keyId)), all);
}

TEST_F(StoreTest, CrlsAreFoundByPredicate) {
    const store_handle store = filled(L"T");
    const CACMPT_BLOB name = blob(crl("plain")->pCrlInfo->Issuer);
    const CACMPT_BLOB otherName = blob(certificate("bob")->pCertInfo->Subject);
    const CACMPT_BLOB keyId = fromHex("63A60CF6F28EAE5E5B6DC0F8114CB2D6A4EAAAB9");
    const CACMPT_BLOB otherKey = fromHex("010203");
    const std::string every = "plain keyid case issuer broken";
    EXPECT_EQ(found(store, CrlFindByIssuerSubStr(nullptr)), every);
    EXPECT_EQ(found(store, CrlFindByIssuerSubStr(L"")), every);
    EXPECT_EQ(found(store, CrlFindByIssuerSubStr(L"store ca")), "case");
    EXPECT_EQ(found(store, CrlFindByIssuerSubStr(L"Store CA"), true), "plain");
    EXPECT_EQ(found(store, CrlFindByIssuer(none)), every);
    EXPECT_EQ(found(store, CrlFindByIssuer(name)), every);  // case and blanks do not count
    EXPECT_EQ(found(store, CrlFindByIssuer(otherName)), "");
    EXPECT_EQ(found(store, CrlFindByIssuerKeyId(name, none)), every);
    EXPECT_EQ(found(store, CrlFindByIssuerKeyId(name, keyId)), every);
    EXPECT_EQ(found(store, CrlFindByIssuerKeyId(none, otherKey)), "plain issuer broken");
    EXPECT_EQ(found(store, CrlFindByIssuerKeyId(otherName, keyId)), "");
    EXPECT_THROW(found(store, CrlFindByIssuer(otherKey)), Asn1Exception);
}

TEST_F(StoreTest, ExistingCertificates) {
    filled(L"T");
    void* store = nullptr;
    for (const bool readOnly : {true, false}) {
        CertContextPtr context(
            CertStore_FindExisting(file("alice.cer"), store, L"T", false, readOnly));
        ASSERT_TRUE(context);
        const store_handle owner(store, false, false);
        EXPECT_EQ(blob({context->cbCertEncoded, context->pbCertEncoded}), file("alice.cer"));
        EXPECT_TRUE(CertStore_Is(file("alice.cer"), store));
        EXPECT_FALSE(CertStore_Is(file("ca-case.cer"), store));
        EXPECT_FALSE(CertStore_Is(file("plain.crl"), store));
        EXPECT_EQ(CertAddCertificateContextToStore(store, context.get(), 3, nullptr) == 0,
                  readOnly);
    }
    for (const wchar_t* name : {L"T", L"Missing"}) {
        SetLastError(0);
        EXPECT_EQ(CertStore_FindExisting(file("ca-case.cer"), store, name, false, true), nullptr);
        EXPECT_EQ(GetLastError(), 0x80092004);
        EXPECT_EQ(store, nullptr);
    }
    store_handle missing;
    EXPECT_FALSE(missing.open(L"Missing", false, mayExist));
    EXPECT_THROW(CertStore_FindExisting(none, store, L"T", false, true), CryptException);
}

/// What a search for a certificate's key throws.
std::uint32_t acquireError(const CACMPT_BLOB& certificate, const wchar_t* store) {
    unsigned long long provider = 0;
    std::uint32_t keySpec = 0;
    try {
        FindInStoreAndAcquirePrivateKey(certificate, store, false, provider, keySpec);
    } catch (const CryptException& e) {
        EXPECT_EQ(e.file, "capilite/StoreUtil");
        EXPECT_EQ(provider, 0u);
        return e.code;
    }
    return 0;
}

TEST_F(StoreTest, PrivateKeyOfACertificate) {
    filled(L"T");
    EXPECT_NE(acquireError(file("plain.crl"), L"T"), 0u);
    EXPECT_NE(acquireError(file("alice.cer"), L"Missing"), 0u);
    EXPECT_EQ(acquireError(file("ca-case.cer"), L"T"), CRYPT_E_NOT_FOUND);
    EXPECT_EQ(acquireError(file("alice.cer"), L"T"), CRYPT_E_NO_KEY_PROPERTY);

    HCRYPTPROV container = 0;
    ASSERT_TRUE(CryptAcquireContextA(&container, "k", nullptr, PROV_RSA, CRYPT_NEWKEYSET));
    CryptReleaseContext(container, 0);
    wchar_t name[] = L"k";
    CRYPT_KEY_PROV_INFO info{name, nullptr, PROV_RSA, 0, 0, nullptr, AT_SIGNATURE};
    const auto alice = certificate("alice");
    ASSERT_TRUE(
        CertSetCertificateContextProperty(alice.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    store_handle store;
    ASSERT_TRUE(store.open(L"T", false, 0));
    ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), alice.get(), 3, nullptr));
    unsigned long long provider = 0;
    std::uint32_t keySpec = 0;
    FindInStoreAndAcquirePrivateKey(file("alice.cer"), L"T", false, provider, keySpec);
    EXPECT_EQ(keySpec, AT_SIGNATURE);
    EXPECT_TRUE(CryptReleaseContext(provider, 0));  // the caller owns it
    EXPECT_FALSE(CryptReleaseContext(provider, 0));
}

TEST(PinCallback, ScopesNestAndPinsFit) {
    QXCryptPinCallback before = nullptr;
    void* beforeContext = nullptr;
    QXCryptGetPinCallback(&before, &beforeContext);
    const auto ask = [](char* pin, std::size_t size) {
        QXCryptPinCallback callback = nullptr;
        void* context = nullptr;
        QXCryptGetPinCallback(&callback, &context);
        return callback(context, pin, size);
    };
    {
        const CryptSetPinCallbackFixed outer("12345678");
        char pin[9] = "........";
        EXPECT_FALSE(ask(pin, 8));  // no room for the zero
        EXPECT_STREQ(pin, "........");
        EXPECT_TRUE(ask(pin, 9));
        EXPECT_STREQ(pin, "12345678");
        {
            const CryptSetPinCallbackFixed inner("");
            EXPECT_TRUE(ask(pin, 0));
            EXPECT_STREQ(pin, "12345678");
            EXPECT_TRUE(ask(pin, 1));
            EXPECT_STREQ(pin, "");
        }
        EXPECT_TRUE(ask(pin, 9));
        EXPECT_STREQ(pin, "12345678");
    }
    QXCryptPinCallback after = nullptr;
    void* afterContext = &after;
    QXCryptGetPinCallback(&after, &afterContext);
    EXPECT_EQ(after, before);
    EXPECT_EQ(afterContext, beforeContext);
}

}  // namespace
