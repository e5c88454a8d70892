#include <gmock/gmock.h>

#include "capilite/CAException.h"
#include "capilite/StoreFind.h"
#include "pkixcmp/Party.h"
#include "tests/TempHome.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

CACMPT_BLOB file(const char* name) {
    CACMPT_BLOB blob;
    blob.readFromFile((std::string(PKIXCMP_TEST_DATA "/stores/") + name).c_str());
    return blob;
}

using Blobs = std::list<CACMPT_BLOB>;

Blobs certificates(bool system, const wchar_t* issuer = nullptr, const char* serial = nullptr) {
    Blobs out;
    PKIXCMP_Base::CertStore_Find(out, L"S", issuer, serial, system);
    return out;
}

Blobs crls(bool system, const wchar_t* issuer = nullptr) {
    Blobs out;
    PKIXCMP_Base::CrlStore_Find(out, L"S", issuer, system);
    return out;
}

class PartyStoresTest : public testing::Test {
protected:
    TempHome home;
    const CACMPT_BLOB alice = file("alice.cer");
    const CACMPT_BLOB bob = file("bob.cer");
    const CACMPT_BLOB carol = file("carol.cer");
    const CACMPT_BLOB plain = file("plain.crl");
    const CACMPT_BLOB other = file("case.crl");
};

TEST_F(PartyStoresTest, CertificatesComeAndGo) {
    EXPECT_THAT(certificates(false), ElementsAre());
    EXPECT_THROW(PKIXCMP_Base::CertStore_Del(L"S", bob, false), CryptException);
    store_handle missing;
    EXPECT_FALSE(missing.open(L"S", false, CERT_STORE_OPEN_EXISTING));  // looking creates nothing
    for (const CACMPT_BLOB* one : {&carol, &alice, &bob, &carol}) {
        PKIXCMP_Base::CertStore_Add(L"S", *one, false);
    }
    EXPECT_THAT(certificates(false, L"", ""), testing::UnorderedElementsAre(carol, alice, bob));
    const struct {
        const wchar_t* issuer;
        const char* serial;
        Blobs found;
    } cases[] = {{L"store ca", nullptr, {carol}},
                 {nullptr, "0x80", {alice}},
                 {L"Store", "4660", {bob}},
                 {L"Store", "0x3412", {}},
                 {L"Nobody", "", {}}};
    for (const auto& c : cases) EXPECT_EQ(certificates(false, c.issuer, c.serial), c.found);
    Blobs appended{plain};
    PKIXCMP_Base::CertStore_Find(appended, L"S", nullptr, "0x80", false);
    EXPECT_THAT(appended, ElementsAre(plain, alice));
    EXPECT_THROW(certificates(false, nullptr, "zero"), Asn1Exception);

    PKIXCMP_Base::CertStore_Del(L"S", carol, false);
    EXPECT_THAT(certificates(false), ElementsAre(alice, bob));
    try {
        PKIXCMP_Base::CertStore_Del(L"S", carol, false);
        ADD_FAILURE() << "an absent certificate was deleted";
    } catch (const CryptException& e) {
        EXPECT_EQ(e.code, 0x80092004);
        EXPECT_EQ(e.file, "pkixcmp/CA_CMP_Store");
    }
    EXPECT_THROW(PKIXCMP_Base::CertStore_Add(L"S", plain, false), CryptException);
    EXPECT_THROW(PKIXCMP_Base::CertStore_Add(L"S", CACMPT_BLOB(), false), CryptException);
}

TEST_F(PartyStoresTest, CrlsComeAndGo) {
    EXPECT_THAT(crls(true), ElementsAre());
    for (bool replace : {true, false, true}) PKIXCMP_Base::CrlStore_Add(L"S", plain, true, replace);
    PKIXCMP_Base::CrlStore_Add(L"S", other, true, false);
    EXPECT_THAT(crls(true), testing::UnorderedElementsAre(plain, other));
    EXPECT_THAT(crls(true, L"store ca"), ElementsAre(other));
    PKIXCMP_Base::CrlStore_Del(L"S", plain, true);
    PKIXCMP_Base::CrlStore_Del(L"S", plain, true);  // absent: no failure
    EXPECT_THAT(crls(true), ElementsAre(other));
    EXPECT_THROW(PKIXCMP_Base::CrlStore_Del(L"S", bob, true), CryptException);
    EXPECT_THROW(PKIXCMP_Base::CrlStore_Add(L"S", bob, true, true), CryptException);
}

TEST_F(PartyStoresTest, TheUsersViewHoldsTheMachinesObjects) {
    PKIXCMP_Base::CertStore_Add(L"S", alice, true);
    PKIXCMP_Base::CertStore_Add(L"S", bob, false);
    EXPECT_THAT(certificates(false), ElementsAre(bob, alice));
    EXPECT_THAT(certificates(true), ElementsAre(alice));
    PKIXCMP_Base::CertStore_Add(L"S", alice, false);
    PKIXCMP_Base::CertStore_Del(L"S", alice, false);  // the user's copy alone
    EXPECT_THROW(PKIXCMP_Base::CertStore_Del(L"S", alice, false), CryptException);
    EXPECT_THAT(certificates(true), ElementsAre(alice));
    PKIXCMP_Base::CrlStore_Add(L"S", plain, true, true);
    EXPECT_THROW(PKIXCMP_Base::CrlStore_Del(L"S", plain, false), CryptException);
    EXPECT_THAT(crls(true), ElementsAre(plain));
}

TEST_F(PartyStoresTest, StoresThatCannotBeOpened) {
    std::filesystem::create_directories(home.path() / "user");
    setenv("PKIXCMP_HOME", "/dev/null/none", 1);
    const auto failure = [](const auto& call) {
        EXPECT_THAT(call, ThrowsMessage<StoreException>(testing::AllOf(
                              HasSubstr("file:'pkixcmp/CA_CMP_Store'"), HasSubstr("S"))));
    };
    failure([&] { PKIXCMP_Base::CertStore_Add(L"S", alice, false); });
    failure([&] { PKIXCMP_Base::CrlStore_Add(L"S", plain, false, true); });
    failure([&] { PKIXCMP_Base::CrlStore_Del(L"S", plain, false); });
    EXPECT_THROW(PKIXCMP_Base::CertStore_Del(L"S", alice, false), CryptException);
    EXPECT_THAT(certificates(false), ElementsAre());
}

}  // namespace
