#include <gmock/gmock.h>

#include "capilite/CAException.h"
#include "capilite/Handles.h"
#include "pkixcmp/Server.h"
#include "tests/TempHome.h"
#include "tests/pkixcmp/ScriptedWndProv.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

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
    static void close(unsigned long long root) {
        void* parts = nullptr;
        PKIXCMP_Server::close_container_root(root, parts);
    }
    /// The full name of a container, which must have a signature key.
    static std::string nameOf(unsigned long long root) {
        HCRYPTKEY key = 0;
        EXPECT_TRUE(CryptGetUserKey(root, AT_SIGNATURE, &key));
        CryptDestroyKey(key);
        std::string container;
        const std::string reader = fqcn(root, container);
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
    unsigned long long root = create(&wnd, "ca");
    EXPECT_THAT(wnd.log, ElementsAre("reader of DISK VAULT", "new pin ca"));
    EXPECT_EQ(nameOf(root), "DISK:ca");
    close(root);
    EXPECT_FALSE(opensWith("\\\\.\\DISK\\ca", PROV_ECDSA_P256, ""));

    root = openContainer("\\\\.\\DISK\\ca", PROV_ECDSA_P256);
    wnd.log.clear();
    wnd.pins = {"wrong", "operator"};
    void* parts = this;
    PKIXCMP_Server::read_container_root(root, &wnd, parts);
    EXPECT_EQ(parts, nullptr);
    EXPECT_THAT(wnd.log, ElementsAre("pin ca tries 3", "pin ca tries 2"));
    EXPECT_EQ(nameOf(root), "DISK:ca");
    PKIXCMP_Server::read_container_root(root, &wnd, parts);  // open now
    EXPECT_EQ(wnd.log.size(), 2u);
    PKIXCMP_Server::close_container_root(root, parts);
    EXPECT_EQ(cryptError([&] { get_container(root); }), ERROR_INVALID_HANDLE);

    root = openContainer("\\\\.\\DISK\\ca", PROV_ECDSA_P256);
    EXPECT_EQ(error([&] { PKIXCMP_Server::read_container_root(root, &wnd, parts); }),
              cancelledByUser);
    PKIXCMP_Server::read_container_root(root, nullptr, parts);  // nobody to ask
    close(root);
}

TEST_F(CaKeyTest, KeysWithoutADialogue) {
    unsigned long long root = create(&wnd, "\\\\.\\VAULT\\self");
    EXPECT_EQ(nameOf(root), "VAULT:self");
    void* parts = this;
    PKIXCMP_Server::read_container_root(root, &wnd, parts);
    EXPECT_EQ(parts, nullptr);
    close(root);
    EXPECT_TRUE(wnd.log.empty());

    wnd.keepPin = true;
    root = create(&wnd, "\\\\.\\DISK\\open");
    close(root);
    root = openContainer("\\\\.\\DISK\\open", PROV_ECDSA_P256);
    PKIXCMP_Server::read_container_root(root, &wnd, parts);
    EXPECT_EQ(nameOf(root), "DISK:open");
    close(root);
    root = create(&wnd, "");  // no question for a reader either
    EXPECT_THAT(nameOf(root), testing::MatchesRegex("[A-Z]+:[0-9a-f-]{35}"));
    close(root);
    close(create(nullptr, "nobody"));
    root = create(&wnd, "\\\\.\\DISK\\rsa", PROV_RSA);  // a type without readers
    EXPECT_EQ(get_container(root), "rsa");
    std::string container;
    EXPECT_THAT([&] { fqcn(root, container); },
                ThrowsMessage<CAException>(HasSubstr("'Invalid FQCN format' at "
                                                     "file:'pkixcmp/1235'")));
    PKIXCMP_Server::read_container_root(root, &wnd, parts);
    close(root);
    EXPECT_TRUE(wnd.log.empty());
    close(0);
}

TEST_F(CaKeyTest, Refusals) {
    EXPECT_EQ(error([&] { create(&wnd, "ca"); }), cancelledByUser);  // no reader chosen
    EXPECT_EQ(openContainer("ca", PROV_ECDSA_P256), 0u);
    wnd.reader = "DISK";
    EXPECT_EQ(error([&] { create(&wnd, "ca"); }), cancelledByUser);  // no PIN given
    EXPECT_EQ(error([&] { create(&wnd, "ca"); }), NTE_EXISTS);       // the container stays
    EXPECT_EQ(error([&] { create(&wnd, "\\\\.\\NOWHERE\\ca"); }), SCARD_E_NO_SUCH_READER);
    EXPECT_EQ(error([&] { create(&wnd, "x", 9999); }), NTE_PROV_TYPE_NOT_DEF);
    void* parts = this;
    std::string container;
    EXPECT_NE(cryptError([&] { PKIXCMP_Server::read_container_root(1, &wnd, parts); }), 0u);
    EXPECT_EQ(error([&] { fqcn(any.get(), container); }), NTE_BAD_KEYSET);
}

}  // namespace
