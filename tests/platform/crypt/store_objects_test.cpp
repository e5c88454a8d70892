#include <csignal>
#include <cstring>
#include <random>
#include <thread>

#include "tests/platform/Sql.h"
#include "tests/platform/crypt/store_fixture.h"

// Stores: opening, adding, searching and deleting, also by several processes at once.

namespace {

using namespace store_test;
using testing::ElementsAre;
using testing::IsEmpty;

class StoreObjects : public testing::Test {
protected:
    TempHome home;
    const Bytes alice = file("alice.cer"), bob = file("bob.cer"), carol = file("carol.cer");
};

TEST_F(StoreObjects, FlagsOfOpening) {
    enum { missing, usersOnly, machinesOnly };
    struct {
        int state;
        DWORD flags;
        DWORD error;
    } cases[] = {
        {missing, user | CERT_STORE_OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
        {missing, machine | CERT_STORE_OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
        {missing, user | CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY, ERROR_FILE_NOT_FOUND},
        {missing, user | CERT_STORE_READONLY, 0},
        {missing, CERT_STORE_CREATE_NEW, 0},
        {missing, user | CERT_STORE_CREATE_NEW | CERT_STORE_READONLY, ERROR_ACCESS_DENIED},
        {missing, 0x30000, E_INVALIDARG},
        {usersOnly, user | CERT_STORE_OPEN_EXISTING, 0},
        {usersOnly, CERT_STORE_OPEN_EXISTING, 0},
        {usersOnly, machine | CERT_STORE_OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
        {usersOnly, user | CERT_STORE_CREATE_NEW, ERROR_FILE_EXISTS},
        {usersOnly, machine | CERT_STORE_CREATE_NEW, 0},
        {usersOnly, user, 0},
        {machinesOnly, user | CERT_STORE_OPEN_EXISTING, 0},
        {machinesOnly, machine | CERT_STORE_OPEN_EXISTING, 0},
        {machinesOnly, user | CERT_STORE_CREATE_NEW, 0},
    };
    int number = 0;
    for (auto& c : cases) {
        std::wstring name = L"store" + std::to_wstring(++number);
        if (c.state != missing) OpenStore(name.c_str(), c.state == usersOnly ? user : machine);
        SetLastError(0);
        OpenStore opened(name.c_str(), c.flags);
        EXPECT_EQ(opened != nullptr, c.error == 0) << number;
        EXPECT_EQ(GetLastError(), c.error) << number;
    }
    EXPECT_EQ(CertOpenStore(nullptr, 0, 0, user, L"My"), nullptr);
    EXPECT_EQ(OpenStore(L"", user), nullptr);
    EXPECT_EQ(OpenStore(nullptr, user), nullptr);
    EXPECT_EQ(OpenStore(L"\xD800", user), nullptr);
}

TEST_F(StoreObjects, StaleAndForeignHandlesAreCodes) {
    HCERTSTORE stale;
    Certificate inStore;
    {
        OpenStore store(L"My", user);
        stale = store;
        ASSERT_TRUE(add(store, certificate("alice")));
        inStore.reset(CertEnumCertificatesInStore(store, nullptr));
        EXPECT_EQ(CertDuplicateStore(store), stale);
        EXPECT_TRUE(CertCloseStore(stale, 0));
    }
    for (HCERTSTORE bad :
         {stale, static_cast<HCERTSTORE>(nullptr), static_cast<HCERTSTORE>(this)}) {
        EXPECT_EQ(codeOf(CertCloseStore(bad, 0)), ERROR_INVALID_HANDLE);
        EXPECT_EQ(CertDuplicateStore(bad), nullptr);
        EXPECT_EQ(codeOf(CertEnumCertificatesInStore(bad, nullptr)), ERROR_INVALID_HANDLE);
        EXPECT_FALSE(add(bad, certificate("alice")));
    }
    EXPECT_EQ(bytesOf(*inStore), alice);
    OpenStore checked(L"My", user);
    HCERTSTORE duplicate = CertDuplicateStore(checked);
    Certificate held(CertEnumCertificatesInStore(checked, nullptr));
    EXPECT_TRUE(CertCloseStore(duplicate, CERT_CLOSE_CHECK));
    duplicate = CertDuplicateStore(checked);
    EXPECT_TRUE(CertCloseStore(duplicate, 0));
    EXPECT_EQ(codeOf(CertCloseStore(checked, CERT_CLOSE_CHECK)), CRYPT_E_PENDING_CLOSE);
}

TEST_F(StoreObjects, Dispositions) {
    struct {
        DWORD disposition;
        BOOL result;
        Bytes left;  // the property of what is in the store
    } cases[] = {
        {CERT_STORE_ADD_NEW, 0, {1}},
        {CERT_STORE_ADD_USE_EXISTING, 1, {1}},
        {CERT_STORE_ADD_REPLACE_EXISTING, 1, {2}},
        {CERT_STORE_ADD_ALWAYS, 1, {1}},
        {5, 0, {1}},
        {0, 0, {1}},
    };
    for (auto& c : cases) {
        std::wstring name = L"d" + std::to_wstring(c.disposition);
        OpenStore store(name.c_str(), user);
        Certificate first = certificate("alice"), again = certificate("alice");
        ASSERT_TRUE(setProperty(first, 0x8001, {1}));
        ASSERT_TRUE(setProperty(first, 0x8002, {7}));
        ASSERT_TRUE(setProperty(again, 0x8001, {2}));
        ASSERT_TRUE(add(store, first));
        ASSERT_TRUE(add(store, certificate("bob")));
        PCCERT_CONTEXT added = nullptr;
        EXPECT_EQ(CertAddCertificateContextToStore(store, again.get(), c.disposition, &added),
                  c.result)
            << c.disposition;
        Certificate owned(added);
        EXPECT_EQ(added != nullptr, c.result != 0);
        if (added != nullptr) {
            EXPECT_EQ(property(owned, 0x8001), c.left);
        }
        if (c.disposition == CERT_STORE_ADD_NEW) {
            EXPECT_EQ(codeOf(add(store, again)), CRYPT_E_EXISTS);
        }
        EXPECT_THAT(found(store), ElementsAre(alice, bob));
        Certificate present(CertEnumCertificatesInStore(store, nullptr));
        EXPECT_EQ(property(present, 0x8001), c.left);
        EXPECT_EQ(property(present, 0x8002), c.left == Bytes{2} ? Bytes{} : Bytes{7});
    }
}

TEST_F(StoreObjects, EverySearchFindsWhatItNamesInStoreOrder) {
    OpenStore store(L"My", user);
    for (const char* name : {"carol", "alice", "ca", "bob"})
        ASSERT_TRUE(add(store, certificate(name)));
    Certificate wanted = certificate("alice");
    CERT_INFO& info = *wanted->pCertInfo;
    Bytes hash = property(wanted, CERT_SHA1_HASH_PROP_ID), key = property(wanted, 20);
    CRYPT_DATA_BLOB hashBlob{20, hash.data()}, keyBlob{static_cast<DWORD>(key.size()), key.data()};
    CRYPT_DATA_BLOB none{3, hash.data()}, empty{0, nullptr};
    Bytes ca = file("ca.cer");
    struct {
        DWORD type;
        const void* parameter;
        std::vector<Bytes> result;
    } cases[] = {
        {CERT_FIND_ANY, nullptr, {carol, alice, ca, bob}},
        {CERT_FIND_SHA1_HASH, &hashBlob, {alice}},
        {CERT_FIND_SHA1_HASH, &none, {}},
        {CERT_FIND_SHA1_HASH, &empty, {}},
        {CERT_FIND_KEY_IDENTIFIER, &keyBlob, {carol, alice, ca, bob}},  // one key for all
        {CERT_FIND_SUBJECT_NAME, &info.Subject, {alice}},
        {CERT_FIND_ISSUER_NAME, &info.Subject, {}},
        {CERT_FIND_EXISTING, wanted.get(), {alice}},
        {CERT_FIND_PUBLIC_KEY, &info.SubjectPublicKeyInfo, {carol, alice, ca, bob}},
    };
    for (auto& c : cases) EXPECT_EQ(found(store, c.type, c.parameter), c.result) << c.type;
    EXPECT_EQ(found(store, CERT_FIND_ISSUER_NAME, &info.Issuer).size(), 3u);
    for (DWORD type :
         {CERT_FIND_SHA1_HASH, CERT_FIND_EXISTING, CERT_FIND_PUBLIC_KEY, DWORD{0x70000}}) {
        EXPECT_EQ(
            codeOf(CertFindCertificateInStore(store, CERT_ENCODING, 0, type, nullptr, nullptr)),
            E_INVALIDARG);
    }
}

TEST_F(StoreObjects, WalksOverPagesMeetEachObjectOnceWhateverHappensMeanwhile) {
    OpenStore store(L"My", user);
    std::vector<Bytes> all;
    for (unsigned i = 0; i < 150; ++i) {
        all.push_back(variant(alice, i));
        ASSERT_TRUE(add(store, certificateOf(all.back())));
    }
    EXPECT_EQ(found(store), all);
    // Each second object is deleted as it is met, and one is added; a second walk goes on between.
    std::vector<Bytes> met;
    PCCERT_CONTEXT next = nullptr;
    while ((next = CertEnumCertificatesInStore(store, next))) {
        met.push_back(bytesOf(*next));
        if (met.size() % 2 == 0) {
            EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(next)));
        }
        if (met.size() == 10) {
            EXPECT_TRUE(add(store, certificate("bob")));
            EXPECT_EQ(found(store).size(), 146u);
        }
    }
    all.push_back(bob);
    EXPECT_EQ(met, all);
    EXPECT_EQ(found(store).size(), 76u);
    // The walk goes on behind an object of another search, and only in its own store.
    Certificate last = certificate("bob");
    PCCERT_CONTEXT from = CertFindCertificateInStore(store, CERT_ENCODING, 0, CERT_FIND_EXISTING,
                                                     last.get(), nullptr);
    ASSERT_NE(from, nullptr);
    EXPECT_EQ(codeOf(CertEnumCertificatesInStore(store, from)), CRYPT_E_NOT_FOUND);
    OpenStore another(L"CA", user);
    EXPECT_EQ(
        codeOf(CertEnumCertificatesInStore(another, CertEnumCertificatesInStore(store, nullptr))),
        E_INVALIDARG);
    EXPECT_EQ(codeOf(CertEnumCertificatesInStore(store, certificate("alice").release())),
              E_INVALIDARG);
}

TEST_F(StoreObjects, TheUsersViewHoldsTheMachinesObjects) {
    OpenStore users(L"Root", user), machines(L"Root", machine);
    ASSERT_TRUE(add(users, certificate("alice")));
    ASSERT_TRUE(add(machines, certificate("bob")));
    ASSERT_TRUE(add(machines, certificate("carol")));
    EXPECT_THAT(found(users), ElementsAre(alice, bob, carol));
    EXPECT_THAT(found(machines), ElementsAre(bob, carol));
    // What the view shows of the machine is not changed through it, whatever the rights.
    Certificate wanted = certificate("bob");
    auto find = [&](HCERTSTORE store) {
        return Certificate(CertFindCertificateInStore(store, CERT_ENCODING, 0, CERT_FIND_EXISTING,
                                                      wanted.get(), nullptr));
    };
    ASSERT_TRUE(setProperty(find(machines), 0x8001, {5}));
    EXPECT_EQ(property(find(users), 0x8001), Bytes{5});
    auto refused = [&] {
        EXPECT_EQ(codeOf(setProperty(find(users), 0x8001, {6})), ERROR_ACCESS_DENIED);
        EXPECT_EQ(codeOf(CertDeleteCertificateFromStore(find(users).release())),
                  ERROR_ACCESS_DENIED);
        EXPECT_EQ(property(find(machines), 0x8001), Bytes{5});
    };
    refused();
    // Adding looks at the side that is written alone.
    EXPECT_TRUE(add(users, certificate("bob")));
    EXPECT_THAT(found(users), ElementsAre(alice, bob, bob, carol));
    EXPECT_TRUE(setProperty(find(users), 0x8001, {7}));
    EXPECT_EQ(property(find(machines), 0x8001), Bytes{5});
    EXPECT_TRUE(CertDeleteCertificateFromStore(find(users).release()));
    EXPECT_THAT(found(users), ElementsAre(alice, bob, carol));
    refused();
}

TEST_F(StoreObjects, ReadOnlyStoresRefuseChanges) {
    OpenStore writable(L"My", user);
    ASSERT_TRUE(add(writable, certificate("alice")));
    OpenStore store(L"My", user | CERT_STORE_READONLY | CERT_STORE_OPEN_EXISTING);
    EXPECT_EQ(codeOf(add(store, certificate("bob"))), ERROR_ACCESS_DENIED);
    Certificate present(CertEnumCertificatesInStore(store, nullptr));
    EXPECT_EQ(codeOf(setProperty(present, 0x8001, {1})), ERROR_ACCESS_DENIED);
    EXPECT_EQ(codeOf(CertDeleteCertificateFromStore(present.release())), ERROR_ACCESS_DENIED);
    EXPECT_THAT(found(store), ElementsAre(alice));
    EXPECT_EQ(codeOf(CertDeleteCertificateFromStore(certificate("alice").release())), E_INVALIDARG);
    Certificate one(CertEnumCertificatesInStore(writable, nullptr));
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(one.get())));
    EXPECT_FALSE(setProperty(one, 0x8001, {1}));
    EXPECT_EQ(codeOf(CertDeleteCertificateFromStore(one.release())), CRYPT_E_NOT_FOUND);
}

TEST_F(StoreObjects, CrlsStandBesideCertificates) {
    OpenStore store(L"CA", user);
    ASSERT_TRUE(add(store, certificate("alice")));
    for (const char* name : {"plain", "keyid"}) {
        EXPECT_TRUE(CertAddCRLContextToStore(store, crl(name).get(), CERT_STORE_ADD_NEW, nullptr));
    }
    EXPECT_EQ(
        codeOf(CertAddCRLContextToStore(store, crl("plain").get(), CERT_STORE_ADD_NEW, nullptr)),
        CRYPT_E_EXISTS);
    std::vector<Bytes> all;
    PCCRL_CONTEXT next = nullptr;
    while ((next = CertEnumCRLsInStore(store, next))) all.push_back(bytesOf(*next));
    EXPECT_THAT(all, ElementsAre(file("plain.crl"), file("keyid.crl")));
    Crl wanted = crl("keyid");
    PCCRL_CONTEXT hit =
        CertFindCRLInStore(store, CERT_ENCODING, 0, CRL_FIND_EXISTING, wanted.get(), nullptr);
    ASSERT_NE(hit, nullptr);
    EXPECT_TRUE(CertDeleteCRLFromStore(hit));
    EXPECT_EQ(CertFindCRLInStore(store, CERT_ENCODING, 0, CRL_FIND_EXISTING, wanted.get(), nullptr),
              nullptr);
    EXPECT_EQ(CertFindCRLInStore(store, CERT_ENCODING, 0, 99, wanted.get(), nullptr), nullptr);
    EXPECT_THAT(found(store), ElementsAre(alice));
}

TEST_F(StoreObjects, NamesOfStores) {
    for (const wchar_t* name : {L"Root", L"CA", L"Хранилище"}) OpenStore(name, user);
    OpenStore(L"Machine", machine);
    std::vector<std::wstring> names;
    DWORD length = 0;
    for (DWORD i = 0; CertEnumSystemStoreNames(user, i, nullptr, &length); ++i) {
        std::wstring name(length, L'#');
        ASSERT_TRUE(CertEnumSystemStoreNames(user, i, name.data(), &length));
        --length;
        EXPECT_EQ(codeOf(CertEnumSystemStoreNames(user, i, name.data(), &length)), ERROR_MORE_DATA);
        names.push_back(name.c_str());
    }
    CertEnumSystemStoreNames(user, 3, nullptr, &length);
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_THAT(names, ElementsAre(L"CA", L"Root", L"Хранилище"));
}

TEST_F(StoreObjects, ProcessesAddAtTheSameTime) {
    constexpr int processes = 4, each = 40;
    OpenStore store(L"My", user);
    ASSERT_TRUE(add(store, certificateOf(variant(alice, 1000000))));
    auto codes = runChildren(processes, [&](int child) {
        OpenStore own(L"My", user);
        for (int i = 0; i < each; ++i) {
            // Half of them are the same in every process.
            unsigned number = static_cast<unsigned>(i % 2 == 0 ? i : 1000 * (child + 1) + i);
            if (!add(own, certificateOf(variant(alice, number)), CERT_STORE_ADD_REPLACE_EXISTING)) {
                return 1;
            }
            if (!add(store, certificate("bob"), CERT_STORE_ADD_ALWAYS)) return 2;
        }
        return 0;
    });
    EXPECT_THAT(codes, testing::Each(0));
    EXPECT_EQ(found(store).size(), 1u + 1 + each / 2 + processes * each / 2);
}

TEST_F(StoreObjects, AKilledWriterLeavesWholeObjects) {
    std::mt19937 random(42);
    OpenStore store(L"My", user);
    for (unsigned round = 0; round < 20; ++round) {
        int pipes[2];
        ASSERT_EQ(::pipe(pipes), 0);
        pid_t child = startChild([&] {
            for (unsigned i = 0;; ++i) {
                Certificate one = certificateOf(variant(alice, round << 16 | i));
                if (!setProperty(one, 0x8001, Bytes(5000, 7))) return 1;
                if (!add(store, one, CERT_STORE_ADD_REPLACE_EXISTING)) return 2;
                if (::write(pipes[1], "x", 1) != 1) return 3;
            }
        });
        char added;
        ASSERT_EQ(::read(pipes[0], &added, 1), 1);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        ::kill(child, SIGKILL);
        ASSERT_EQ(waitForChild(child), -SIGKILL);
        ::close(pipes[0]);
        ::close(pipes[1]);
    }
    std::size_t count = 0;
    PCCERT_CONTEXT next = nullptr;
    while ((next = CertEnumCertificatesInStore(store, next))) {
        ++count;
        DWORD length = 0;
        ASSERT_TRUE(CertGetCertificateContextProperty(next, 0x8001, nullptr, &length));
        ASSERT_EQ(length, 5000u);
    }
    EXPECT_GE(count, 20u);
}

TEST_F(StoreObjects, ADamagedStoreFailsAndADamagedObjectIsPassedOver) {
    const auto database = home.path() / "user/pkixcmp.db";
    OpenStore store(L"My", user);
    for (const char* name : {"alice", "bob", "carol"}) ASSERT_TRUE(add(store, certificate(name)));
    sql(database, "UPDATE objects SET encoded=x'3003020100' WHERE id=2");
    EXPECT_THAT(found(store), ElementsAre(alice, carol));
    sql(database, "DROP TABLE objects");
    EXPECT_EQ(codeOf(CertEnumCertificatesInStore(store, nullptr)), ERROR_FILE_CORRUPT);
    EXPECT_EQ(codeOf(add(store, certificate("alice"))), ERROR_FILE_CORRUPT);
}

TEST_F(StoreObjects, TheMachinesSideNeedsRightsOnlyToBeWritten) {
    {
        OpenStore store(L"My", machine);
        ASSERT_TRUE(add(store, certificate("alice")));
    }
    int code = runWithoutMachineRights(home, [&] {
        if (OpenStore(L"My", machine) != nullptr || GetLastError() != ERROR_ACCESS_DENIED) return 3;
        OpenStore store(L"My", user);
        Certificate one = certificateOf(bob);
        if (!add(store, one)) return 4;
        return found(store) == std::vector<Bytes>{bob} ? 0 : 5;
    });
    EXPECT_EQ(code, 0);
}

}  // namespace
