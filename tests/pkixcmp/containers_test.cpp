#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>

#include "capilite/CAException.h"
#include "capilite/Handles.h"
#include "pkixcmp/Client.h"
#include "tests/TempHome.h"
#include "tests/pkixcmp/ScriptedWndProv.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

constexpr const char* disk = "\\\\.\\DISK\\";
constexpr std::uint32_t wrongPin = 0x8010006B;
constexpr std::uint32_t blocked = 0x8010006C;
constexpr std::uint32_t cancelledByUser = 0x8010006E;

class ContainersTest : public testing::Test {
protected:
    /// Makes a container on DISK under a PIN.
    std::string made(const std::string& name, const char* pin, DWORD type = PROV_ECDSA_P256) {
        OldWndProv fixed(std::string("DISK"), pin);
        unsigned long long provider = 0;
        unsigned int state = 0;
        EXPECT_TRUE(create_with_change(fixed, nullptr, type, "DISK", name.c_str(), 0, 0, &provider,
                                       &state));
        EXPECT_NE(state, 0u);
        CryptReleaseContext(provider, 0);
        return disk + name;
    }
    TempHome home;
    ScriptedWndProv wnd;
};

TEST(ContainerNames, SplitAndJoin) {
    const struct {
        const char* name;
        const char* reader;
        const char* container;
    } cases[] = {{nullptr, "", ""},
                 {"", "", ""},
                 {"name", "", "name"},
                 {"\\\\.\\DISK\\name", "DISK", "name"},
                 {"\\\\.\\DISK\\a\\b", "DISK", "a\\b"},
                 {"\\\\.\\DISK\\", "DISK", ""},
                 {"\\\\.\\DISK", "DISK", ""},
                 {"\\\\.\\", "", ""},
                 {"\\\\.\\\\name", "", "name"},
                 {"\\\\.", "", "\\\\."},
                 {"//./DISK/name", "", "//./DISK/name"}};
    for (const auto& c : cases) {
        std::string reader = "old";
        std::string container = "old";
        split_container_name(c.name, reader, container);
        EXPECT_EQ(reader, c.reader) << c.name;
        EXPECT_EQ(container, c.container) << c.name;
        std::string again;
        split_container_name(full_container_name(reader, container).c_str(), again, container);
        EXPECT_EQ(again, c.reader);
        EXPECT_EQ(container, c.container);
    }
}

TEST_F(ContainersTest, PropertiesOfAProvider) {
    prov_handle any;
    any.acquire_any();
    std::set<std::string> names;
    for (int i = 0; i < 20; ++i) {
        char name[36];
        std::fill(std::begin(name), std::end(name), 'x');
        CACMP_GenContainerName(any, name);
        EXPECT_THAT(name, MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{16}"));
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 20u);
    ReaderList readers{{"kept", "kept"}};
    get_reader_list(any, readers);
    std::vector<std::string> second;
    for (const auto& reader : readers) second.push_back(reader.second);
    EXPECT_THAT(second, ElementsAre("kept", "DISK", "VAULT"));

    const prov_handle key(openContainer(made("one", "1"), PROV_ECDSA_P256));
    EXPECT_EQ(get_container(key), "one");
    EXPECT_EQ(get_unique(key), "\\\\.\\DISK\\one");
    HCRYPTPROV again = 0;
    EXPECT_TRUE(CryptAcquireContextA(&again, get_unique(key).c_str(), get_provider(key).c_str(), 0,
                                     CRYPT_SILENT));
    CryptReleaseContext(again, 0);
    ASSERT_GE(GetPinInfo(key).size, 1u);
    EXPECT_EQ(GetPinInfo(key).data[0], 0);

    const unsigned long long stale = 0x1234567;
    char name[36];
    EXPECT_EQ(cryptError([&] { get_container(stale); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(cryptError([&] { get_unique(stale); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(cryptError([&] { get_provider(stale); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(cryptError([&] { GetPinInfo(stale); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(cryptError([&] { get_reader_list(stale, readers); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(cryptError([&] { CACMP_GenContainerName(stale, name); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(cryptError([&] { get_pin_load(wnd, stale, "", 0, 0); }), ERROR_INVALID_HANDLE);
}

TEST_F(ContainersTest, AtMostThreePinsAreAsked) {
    const struct {
        ScriptedWndProv::Answers pins;
        std::vector<int> tries;
        std::uint32_t error;  // 0: opened
    } cases[] = {{{"right"}, {3}, 0},
                 {{"wrong", "right"}, {3, 2}, 0},
                 {{"wrong", "", "right"}, {3, 2, 1}, 0},
                 {{"wrong", "", "right1"}, {3, 2, 1}, blocked},
                 {{"wrong", std::nullopt, "right"}, {3, 2}, cancelledByUser},
                 {{std::nullopt}, {3}, cancelledByUser}};
    int number = 0;
    for (const auto& c : cases) {
        const std::string name = made("c" + std::to_string(++number), "right");
        SCOPED_TRACE(name);
        ScriptedWndProv person;
        person.pins = c.pins;
        const prov_handle provider(openContainer(name, PROV_ECDSA_P256));
        unsigned int state = 0;
        std::uint32_t error =
            cryptError([&] { state = get_pin_load(person, provider, "box", 5, 2); });
        if (error == 0 && state == 0) error = GetLastError();
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(state != 0, c.error == 0);
        std::vector<std::string> questions;
        for (int tries : c.tries) questions.push_back("pin box 2/5 tries " + std::to_string(tries));
        EXPECT_EQ(person.log, questions);
        EXPECT_EQ(opensWith(name, PROV_ECDSA_P256, "right"), c.error != blocked);
    }
}

TEST_F(ContainersTest, BuiltInDialoguesAreNotReplaced) {
    const prov_handle provider(openContainer(made("c", "right"), PROV_ECDSA_P256));
    wnd.builtin = true;
    EXPECT_EQ(cryptError([&] { get_pin_load(wnd, provider, "c", 0, 0); }), wrongPin);
    EXPECT_TRUE(wnd.log.empty());
    EXPECT_EQ(wnd.retries, 4);
}

TEST_F(ContainersTest, AFailureThatCannotBeAnsweredEndsTheDialogue) {
    class Giving : public ScriptedWndProv {
        bool retry(const char*, int, Retry& operation) override {
            operation.error = static_cast<std::int32_t>(NTE_PERM);
            return false;
        }
    } giving;
    const prov_handle provider(openContainer(made("c", "right"), PROV_ECDSA_P256));
    giving.newPins = {"new"};
    EXPECT_EQ(cryptError([&] { get_pin_load(giving, provider, "c", 0, 0); }), NTE_PERM);
    EXPECT_EQ(cryptError([&] { change_pin(giving, provider, "c", 0, 0); }), NTE_PERM);
}

/// Runs one try with a PIN in a process of its own; the low byte of its failure's code.
std::uint32_t tryInAnotherProcess(const std::string& name, const char* pin) {
    return static_cast<std::uint32_t>(waitForChild(startChild([&] {
        OldWndProv once(std::string(), pin);
        const prov_handle provider(openContainer(name, PROV_ECDSA_P256));
        return cryptError([&] { get_pin_load(once, provider, "c", 0, 0); }) & 0xFF;
    })));
}

TEST_F(ContainersTest, TriesAreCountedAcrossProcesses) {
    const std::string name = made("c", "s3cretPn");
    const struct {
        const char* pin;
        std::uint32_t error;
    } tries[] = {{"wrong", wrongPin}, {"s3cretPn", 0},    {"wrong", wrongPin},
                 {"wrong", wrongPin}, {"wrong", blocked}, {"s3cretPn", blocked}};
    for (const auto& t : tries) EXPECT_EQ(tryInAnotherProcess(name, t.pin), t.error & 0xFF);
    EXPECT_FALSE(opensWith(name, PROV_ECDSA_P256, "s3cretPn"));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path())) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string content(std::istreambuf_iterator<char>(in), {});
        EXPECT_EQ(content.find("s3cretPn"), std::string::npos) << entry.path();
    }
}

TEST_F(ContainersTest, CreationAsksForAMediumAndAPin) {
    unsigned long long provider = 0;
    unsigned int state = 0;
    const auto create = [&](const char* reader, const char* name, short part, short parts,
                            DWORD type = PROV_ECDSA_P256) {
        wnd.log.clear();
        provider = 0;
        return create_with_change(wnd, nullptr, type, reader, name, part, parts, &provider, &state);
    };
    wnd.newPins = {"12345678"};
    EXPECT_TRUE(create("DISK", "plain", 0, 0));
    EXPECT_THAT(wnd.log, ElementsAre("insert plain error 0", "new pin plain"));
    EXPECT_EQ(get_container(provider), "plain");
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
    EXPECT_TRUE(opensWith(std::string(disk) + "plain", PROV_ECDSA_P256, "12345678"));

    wnd.newPins = {"p2"};
    EXPECT_TRUE(create("DISK", "split", 2, 5));
    EXPECT_THAT(wnd.log, ElementsAre("insert split.2 2/5 error 0", "new pin split.2 2/5"));
    EXPECT_EQ(get_container(provider), "split.2");
    CryptReleaseContext(provider, 0);
    wnd.newPins = {"p3"};
    EXPECT_TRUE(create("DISK", "whole", 3, 0));  // a number without parts adds nothing
    EXPECT_EQ(get_container(provider), "whole");
    CryptReleaseContext(provider, 0);

    EXPECT_EQ(cryptError([&] { create("DISK", "plain", 0, 0); }), NTE_EXISTS);
    EXPECT_THAT(wnd.log, ElementsAre("insert plain error 0"));

    wnd.media = {"yes", "yes", std::nullopt};
    EXPECT_EQ(cryptError([&] { create("NOWHERE", "c", 0, 0); }), cancelledByUser);
    EXPECT_THAT(wnd.log, ElementsAre("insert c error 0", "insert c error 80100009",
                                     "insert c error 80100009"));
    EXPECT_EQ(provider, 0u);

    wnd.newPins = {std::nullopt};
    EXPECT_FALSE(create("DISK", "cancelled", 0, 0));
    EXPECT_EQ(GetLastError(), cancelledByUser);
    EXPECT_EQ(provider, 0u);

    wnd.forcePin = true;
    wnd.newPins = {"forced"};
    state = 0;
    EXPECT_TRUE(create("DISK", "forced", 0, 0));
    EXPECT_THAT(wnd.log, ElementsAre("insert forced error 0", "new pin forced"));
    EXPECT_NE(state, 0u);
    CryptReleaseContext(provider, 0);
    EXPECT_TRUE(opensWith(std::string(disk) + "forced", PROV_ECDSA_P256, "forced"));
    state = 5;
    EXPECT_FALSE(create("DISK", "unforced", 0, 0));
    EXPECT_EQ(GetLastError(), cancelledByUser);
    EXPECT_EQ(state, 0u);
    wnd.forcePin = false;

    wnd.keepPin = true;
    EXPECT_TRUE(create("DISK", "kept", 0, 0));
    EXPECT_THAT(wnd.log, ElementsAre("insert kept error 0"));
    EXPECT_NE(state, 0u);
    CryptReleaseContext(provider, 0);
    wnd.keepPin = false;

    EXPECT_TRUE(create("NOWHERE", "nopin", 0, 0, PROV_RSA));  // neither reader nor PIN
    EXPECT_THAT(wnd.log, ElementsAre("insert nopin error 0"));
    EXPECT_EQ(get_container(provider), "nopin");
    CryptReleaseContext(provider, 0);

    WIN32WndProv silent;
    EXPECT_TRUE(create_with_change(silent, nullptr, PROV_ECDSA_P256, "ignored", "\\\\.\\DISK\\w", 1,
                                   2, &provider, &state));
    EXPECT_EQ(get_unique(provider), "\\\\.\\DISK\\w");
    CryptReleaseContext(provider, 0);
    EXPECT_EQ(cryptError([&] {
                  create_with_change(silent, nullptr, PROV_ECDSA_P256, "", "\\\\.\\DISK\\w", 0, 0,
                                     &provider, &state);
              }),
              NTE_EXISTS);
}

TEST_F(ContainersTest, FixedAnswersAreGivenOnce) {
    EXPECT_EQ(OldWndProv("\\\\.\\DISK\\name", nullptr).get_reader({}), "DISK");
    EXPECT_EQ(OldWndProv("name", nullptr).get_reader({}), "");
    OldWndProv wnd8(std::string("R"), "12345678");
    PinBuffer pin;
    EXPECT_TRUE(wnd8.get_new_pin("", pin.text, 0, 0));
    EXPECT_STREQ(pin.text, "12345678");
    OldWndProv empty(std::string("R"), nullptr);
    EXPECT_TRUE(empty.get_current_pin("", 3, pin.text, 0, 0));
    EXPECT_STREQ(pin.text, "");
    for (const char* tooLong : {"123456789", "12345678901234567890"}) {
        OldWndProv wnd9(std::string("R"), tooLong);
        EXPECT_EQ(cryptError([&] { wnd9.get_new_pin("", pin.text, 0, 0); }), NTE_BAD_LEN);
        EXPECT_EQ(cryptError([&] { wnd9.get_current_pin("", 3, pin.text, 0, 0); }), NTE_BAD_LEN);
    }
    EXPECT_TRUE(wnd8.insert_create("c", 0, 0, 0));
    SetLastError(NTE_PERM);
    EXPECT_EQ(cryptError([&] { wnd8.insert_create("c", 5, 0, 0); }), NTE_PERM);
    const std::string name = made("c", "right");
    const prov_handle provider(openContainer(name, PROV_ECDSA_P256));
    OldWndProv wrong(std::string("DISK"), "wrong");
    EXPECT_EQ(cryptError([&] { get_pin_load(wrong, provider, "c", 0, 0); }), wrongPin);
    EXPECT_TRUE(opensWith(name, PROV_ECDSA_P256, "right"));  // one try was used, not three
    CryptSetPinCallbackWndProv callback(&wnd8);
    EXPECT_EQ(callback.get_pin(), "12345678");
}

TEST_F(ContainersTest, OutcomesThatACallerCanActOn) {
    class Failing : public Retry {
    public:
        std::uint32_t code = 0;
        bool call() override {
            SetLastError(code);
            return false;
        }
    } failing;
    WIN32WndProv windows;
    OldWndProv old(std::string(), "");
    for (WndProv* each : {static_cast<WndProv*>(&windows), static_cast<WndProv*>(&old)}) {
        for (std::uint32_t code :
             {0u, wrongPin, blocked, 0x8010002Au, cancelledByUser, 0x80090016u, 5u}) {
            failing.code = code;
            failing.error = 77;
            EXPECT_EQ(each->retry("c", -1, failing), code != 0x80090016u && code != 5u);
            EXPECT_EQ(static_cast<std::uint32_t>(failing.error), code);
        }
    }
}

TEST_F(ContainersTest, RetriedOperations) {
    made("on-disk", "");
    OldWndProv wndVault(std::string("VAULT"), "");
    unsigned long long handle = 0;
    PKIXCMP_Base::GenerateKeyPair(wndVault, nullptr, PROV_ECDSA_P256, "VAULT", "on-vault", 2, false,
                                  handle);
    CryptReleaseContext(handle, 0);
    prov_handle any;
    any.acquire_any();
    for (const char* name : {"on-disk", "on-vault"}) {
        handle = 0;
        RetryAcquireContext open(&handle, name, nullptr, PROV_ECDSA_P256, CRYPT_SILENT, any);
        EXPECT_TRUE(open.call());
        EXPECT_EQ(get_container(handle), name);
        std::uint32_t number = 0;
        std::uint32_t length = 1;
        RetryGetProvParam tooShort(handle, PP_PROVTYPE, &length,
                                   reinterpret_cast<std::uint8_t*>(&number), 0);
        EXPECT_FALSE(tooShort.call());
        EXPECT_EQ(length, 1u);
        EXPECT_EQ(number, 0u);
        length = 1000;
        RetryGetProvParam read(handle, PP_NAME, &length, nullptr, 0);
        EXPECT_TRUE(read.call());
        EXPECT_EQ(length, get_provider(handle).size() + 1);
        CryptReleaseContext(handle, 0);
    }
    EXPECT_FALSE(RetryAcquireContext(&handle, "nowhere", nullptr, PROV_ECDSA_P256, 0, any).call());
    RetryAcquireContext plain(&handle, "rsa", nullptr, PROV_RSA, CRYPT_NEWKEYSET, 0);
    EXPECT_TRUE(plain.call());
    CryptReleaseContext(handle, 0);
}

DWORD keyLength(unsigned long long provider, DWORD spec) {
    HCRYPTKEY key = 0;
    DWORD bits = 0;
    DWORD length = sizeof bits;
    if (!CryptGetUserKey(provider, spec, &key)) return 0;
    EXPECT_TRUE(CryptGetKeyParam(key, KP_KEYLEN, reinterpret_cast<BYTE*>(&bits), &length, 0));
    CryptDestroyKey(key);
    return bits;
}

TEST_F(ContainersTest, KeysOfClients) {
    wnd.reader = "DISK";
    wnd.keepPin = true;
    const auto generate = [&](const char* container, int type = PROV_ECDSA_P256,
                              unsigned long spec = 2, const char* path = nullptr) {
        wnd.log.clear();
        return std::unique_ptr<PKIXCMP_Client>(
            PKIXCMP_Client::GenerateKeyPair(wnd, path, nullptr, type, container, spec, false));
    };
    auto client = generate("\\\\.\\VAULT\\named", PROV_ECDSA_P256, 1, "\\local\\me");
    EXPECT_EQ(get_unique(client->ProviderHandle), "\\\\.\\VAULT\\named");
    EXPECT_THAT(wnd.log, ElementsAre("insert named error 0"));
    EXPECT_EQ(client->ConfigPath, "\\local\\me");
    EXPECT_EQ(client->KeySpec, 1u);
    EXPECT_TRUE(client->Certificate.empty());
    EXPECT_EQ(keyLength(client->ProviderHandle, 1), 256u);
    EXPECT_EQ(keyLength(client->ProviderHandle, 2), 0u);

    client = generate("\\\\.\\VAULT");
    EXPECT_THAT(get_unique(client->ProviderHandle),
                MatchesRegex("\\\\\\\\.\\\\VAULT\\\\[0-9a-f-]{35}"));
    EXPECT_EQ(client->ConfigPath, "");
    client = generate("alone");
    EXPECT_EQ(get_unique(client->ProviderHandle), "\\\\.\\DISK\\alone");
    EXPECT_THAT(wnd.log, ElementsAre("reader of DISK VAULT", "insert alone error 0"));
    client = generate(nullptr);
    EXPECT_EQ(get_container(client->ProviderHandle).size(), 35u);
    client = generate("\\\\.\\DISK\\curve", PROV_ECDSA_P384);
    EXPECT_EQ(keyLength(client->ProviderHandle, 2), 384u);
    EXPECT_THAT(wnd.log, ElementsAre("insert curve error 0"));
    wnd.bits = 3072;
    client = generate("\\\\.\\NOWHERE\\rsa", PROV_RSA);
    EXPECT_THAT(wnd.log, ElementsAre("insert rsa error 0", "key size"));
    EXPECT_EQ(keyLength(client->ProviderHandle, 2), 3072u);
    wnd.bits = -1;
    client = generate("own default", PROV_ECDSA_PLAIN);
    EXPECT_THAT(wnd.log, ElementsAre("insert own default error 0", "key size"));
    EXPECT_EQ(keyLength(client->ProviderHandle, 2), 256u);

    wnd.reader.clear();
    EXPECT_EQ(cryptError([&] { generate("x"); }), cancelledByUser);
    EXPECT_THAT(wnd.log, ElementsAre("reader of DISK VAULT"));
    wnd.keepPin = false;
    EXPECT_EQ(cryptError([&] { generate("\\\\.\\DISK\\x"); }), cancelledByUser);
    EXPECT_THAT(wnd.log, ElementsAre("insert x error 0", "new pin x"));
    EXPECT_EQ(cryptError([&] { generate("\\\\.\\VAULT\\y", PROV_ECDSA_P256, 99); }) == 0, false);
}

TEST_F(ContainersTest, PinsOfClientsChange) {
    const auto client = [&](const std::string& name, const char* pin) {
        OldWndProv fixed(std::string("DISK"), pin);
        return std::unique_ptr<PKIXCMP_Client>(PKIXCMP_Client::GenerateKeyPair(
            fixed, nullptr, nullptr, PROV_ECDSA_P256, (disk + name).c_str(), 2, true));
    };
    auto own = client("own", "old");
    const std::string name = std::string(disk) + "own";
    wnd.newPins = {"new"};
    EXPECT_TRUE(own->ChangePin(wnd));
    EXPECT_THAT(wnd.log, ElementsAre("new pin own"));
    EXPECT_FALSE(opensWith(name, PROV_ECDSA_P256, "old"));
    EXPECT_TRUE(opensWith(name, PROV_ECDSA_P256, "new"));
    wnd.newPins = {std::nullopt};
    EXPECT_FALSE(own->ChangePin(wnd));
    EXPECT_EQ(GetLastError(), cancelledByUser);
    EXPECT_TRUE(opensWith(name, PROV_ECDSA_P256, "new"));

    CryptReleaseContext(own->ProviderHandle, 0);
    own->ProviderHandle = openContainer(name, PROV_ECDSA_P256);  // locked
    wnd.newPins = {"third"};
    EXPECT_EQ(cryptError([&] { own->ChangePin(wnd); }), wrongPin);

    WIN32WndProv builtin;
    auto provided = client("provided", "old");
    EXPECT_FALSE(provided->ChangePin(builtin));  // nobody answers the provider
    {
        const CryptSetPinCallbackFixed answer("fresh");
        EXPECT_TRUE(provided->ChangePin(builtin));
    }
    EXPECT_TRUE(opensWith(std::string(disk) + "provided", PROV_ECDSA_P256, "fresh"));
    CryptReleaseContext(provided->ProviderHandle, 0);
    provided->ProviderHandle = 0;
    EXPECT_EQ(cryptError([&] { provided->ChangePin(builtin); }), ERROR_INVALID_HANDLE);
}

TEST(ProviderSearch, FindsAProviderWithTheAlgorithm) {
    EXPECT_EQ(Quorvex::QXGetDefaultCSP(0), 0u);
    EXPECT_EQ(Quorvex::QXGetDefaultCSP(0x7777), 0u);
    for (ALG_ID algorithm : {CALG_RSA_SIGN, CALG_ECDSA, CALG_SHA_384}) {
        const prov_handle provider(Quorvex::QXGetDefaultCSP(algorithm));
        EXPECT_FALSE(get_provider(provider).empty());
        unsigned long long held = 0;
        for (int named = 0; named < 2; ++named) {
            std::unique_ptr<Quorvex::CFindAlgIdIn> search;
            if (named) {
                search = std::make_unique<Quorvex::CFindAlgIdInProviders>(algorithm);
            } else {
                search = std::make_unique<Quorvex::CFindAlgIdInDefaultProviders>(algorithm);
            }
            ASSERT_TRUE(search->Enumerate());
            held = search->provider();
            EXPECT_FALSE(get_provider(held).empty());
        }
        EXPECT_EQ(cryptError([&] { get_provider(held); }), ERROR_INVALID_HANDLE);
    }
    Quorvex::CFindAlgIdInDefaultProviders search(CALG_ECDSA);
    EXPECT_TRUE(search.OnType(PROV_RSA));  // goes on
    EXPECT_FALSE(search.OnType(PROV_ECDSA_P256));
    EXPECT_EQ(cryptError([&] { search.TryNextProv(9999, nullptr); }), NTE_PROV_TYPE_NOT_DEF);
    EXPECT_EQ(search.provider(), 0u);
    EXPECT_FALSE(Quorvex::CFindAlgIdInProviders(0x7777).Enumerate());
}

}  // namespace
