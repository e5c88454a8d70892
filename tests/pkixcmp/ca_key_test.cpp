#include "tests/pkixcmp/Enrolment.h"
#include "tests/pkixcmp/ScriptedWndProv.h"

namespace {

constexpr std::uint32_t cancelledByUser = 0x8010006E;

class CaKeyTest : public testing::Test {
protected:
    CaKeyTest() { any.acquire_any(); }

    unsigned long long create(WndProv* person, const char* name, DWORD type = PROV_ECDSA_P256) {
        void* parts = this;
        const unsigned long long root = PKIXCMP_Server::create_container_root(
            person, name, nullptr, type, false, parts, any.get());
        EXPECT_EQ(parts, nullptr);
        return root;
    }
    /// Opens a CA's container; its full name, when the key can be used once `pin` is given.
    std::string read(const char* name, WndProv* person, const char* pin = nullptr) {
        void* parts = this;
        const unsigned long long root = openContainer(name);
        PKIXCMP_Server::read_container_root(root, person, parts);
        EXPECT_EQ(parts, nullptr);
        HCRYPTKEY key = 0;
        if (pin) {
            EXPECT_FALSE(CryptGetUserKey(root, AT_SIGNATURE, &key));
            OldWndProv operator_(std::string(), pin);
            EXPECT_NE(get_pin_load(operator_, root, name, 0, 0), 0u);
        }
        EXPECT_TRUE(CryptGetUserKey(root, AT_SIGNATURE, &key));
        CryptDestroyKey(key);
        std::string container;
        const std::string reader = fqcn(root, container);
        PKIXCMP_Server::close_container_root(root, parts);
        EXPECT_NE(cryptError([&] { get_container(root); }), 0u);
        return reader + ":" + container;
    }
    static std::uint32_t error(const std::function<void()>& call) {
        return cryptError(call, "pkixcmp/1235");
    }

    TempHome home;
    prov_handle any;
    ScriptedWndProv wnd;
};

TEST_F(CaKeyTest, TheOperatorsPinProtectsTheKey) {
    wnd.reader = "DISK";
    wnd.newPins = {"operator"};
    CryptReleaseContext(create(&wnd, "ca"), 0);
    EXPECT_EQ(wnd.log, "reader DISK VAULT; new pin ca; ");
    EXPECT_FALSE(opensWith("\\\\.\\DISK\\ca", ""));
    wnd.log.clear();
    EXPECT_EQ(read("\\\\.\\DISK\\ca", &wnd, "operator"), "DISK:ca");
    // The provider may ask by itself.
    const CryptSetPinCallbackFixed answer("operator");
    EXPECT_EQ(read("\\\\.\\DISK\\ca", &wnd), "DISK:ca");
    EXPECT_EQ(wnd.log, "");
}

TEST_F(CaKeyTest, KeysWithoutADialogue) {
    CryptReleaseContext(create(&wnd, "\\\\.\\VAULT\\self"), 0);
    EXPECT_EQ(read("\\\\.\\VAULT\\self", &wnd), "VAULT:self");
    wnd.keepPin = true;
    CryptReleaseContext(create(&wnd, "\\\\.\\DISK\\open"), 0);
    EXPECT_EQ(read("\\\\.\\DISK\\open", &wnd), "DISK:open");
    const prov_handle generated(create(&wnd, ""));  // no question for a reader either
    EXPECT_EQ(get_container(generated).size(), 35u);
    CryptReleaseContext(create(nullptr, "nobody"), 0);
    EXPECT_THAT(read("nobody", nullptr), testing::EndsWith(":nobody"));
    const prov_handle rsa(create(&wnd, "\\\\.\\DISK\\rsa", PROV_RSA));  // has no readers
    EXPECT_EQ(get_container(rsa), "rsa");
    std::string container;
    EXPECT_THAT([&] { fqcn(rsa, container); },
                testing::ThrowsMessage<CAException>(
                    testing::HasSubstr("'Invalid FQCN format' at file:'pkixcmp/1235'")));
    EXPECT_EQ(wnd.log, "");
}

TEST_F(CaKeyTest, Refusals) {
    EXPECT_EQ(error([&] { create(&wnd, "ca"); }), cancelledByUser);  // no reader chosen
    EXPECT_EQ(openContainer("ca"), 0u);
    wnd.reader = "DISK";
    EXPECT_EQ(error([&] { create(&wnd, "ca"); }), cancelledByUser);  // no PIN given
    EXPECT_EQ(error([&] { create(&wnd, "ca"); }), NTE_EXISTS);       // the container stays
    EXPECT_EQ(error([&] { create(&wnd, "\\\\.\\NOWHERE\\ca"); }), SCARD_E_NO_SUCH_READER);
    EXPECT_EQ(error([&] { create(&wnd, "x", 9999); }), NTE_PROV_TYPE_NOT_DEF);
    std::string container;
    EXPECT_EQ(error([&] { fqcn(any.get(), container); }), NTE_BAD_KEYSET);
    EXPECT_NE(cryptError([&] { read("missing", &wnd); }), 0u);
}

}  // namespace
