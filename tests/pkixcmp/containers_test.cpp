#include "tests/pkixcmp/Enrolment.h"
#include "tests/pkixcmp/ScriptedWndProv.h"

namespace {

using testing::MatchesRegex;

const std::string disk = "\\\\.\\DISK\\";
constexpr std::uint32_t wrongPin = 0x8010006B;
constexpr std::uint32_t blocked = 0x8010006C;
constexpr std::uint32_t cancelledByUser = 0x8010006E;

class ContainersTest : public testing::Test {
protected:
    /// Makes a container on DISK under a PIN.
    std::string made(const std::string& name, const char* pin) {
        OldWndProv fixed(std::string("DISK"), pin);
        unsigned long long provider = 0;
        unsigned int state = 0;
        EXPECT_TRUE(create_with_change(fixed, nullptr, PROV_ECDSA_P256, "DISK", name.c_str(), 0, 0,
                                       &provider, &state));
        CryptReleaseContext(provider, 0);
        return disk + name;
    }
    TempHome home;
    ScriptedWndProv wnd;
};

TEST(ContainerNames, SplitAndJoin) {
    const char* const cases[][3] = {{nullptr, "", ""},
                                    {"name", "", "name"},
                                    {"\\\\.\\DISK\\a\\b", "DISK", "a\\b"},
                                    {"\\\\.\\DISK\\", "DISK", ""},
                                    {"\\\\.\\DISK", "DISK", ""},
                                    {"\\\\.\\", "", ""},
                                    {"\\\\.\\\\name", "", "name"},
                                    {"\\\\.", "", "\\\\."}};
    for (const auto& [name, reader, container] : cases) {
        std::string first = "old";
        std::string second = "old";
        split_container_name(name, first, second);
        EXPECT_EQ(first, reader) << name;
        EXPECT_EQ(second, container) << name;
        split_container_name(full_container_name(reader, container).c_str(), first, second);
        EXPECT_EQ(first + second, std::string(reader) + container);
    }
}

TEST_F(ContainersTest, PropertiesOfAProvider) {
    prov_handle any;
    any.acquire_any();
    char name[36] = {};
    char other[36] = {};
    CACMP_GenContainerName(any, name);
    CACMP_GenContainerName(any, other);
    EXPECT_THAT(name, MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{16}"));
    EXPECT_STRNE(name, other);
    ReaderList readers{{"kept", "kept"}};
    get_reader_list(any, readers);
    wnd.get_reader(readers);
    EXPECT_EQ(wnd.log, "reader kept DISK VAULT; ");

    const prov_handle key(openContainer(made("one", "1")));
    EXPECT_EQ(get_container(key), "one");
    EXPECT_EQ(get_unique(key), disk + "one");
    HCRYPTPROV again = 0;
    EXPECT_TRUE(CryptAcquireContextA(&again, get_unique(key).c_str(), get_provider(key).c_str(), 0,
                                     CRYPT_SILENT));
    CryptReleaseContext(again, 0);
    ASSERT_GE(GetPinInfo(key).size, 1u);
    EXPECT_EQ(GetPinInfo(key).data[0], 0);

    const std::function<void(unsigned long long)> readers_of_a_stale_handle[] = {
        [](auto h) { get_container(h); },
        [](auto h) { get_unique(h); },
        [](auto h) { get_provider(h); },
        [](auto h) { GetPinInfo(h); },
        [&](auto h) { get_reader_list(h, readers); },
        [&](auto h) { CACMP_GenContainerName(h, name); },
        [&](auto h) { get_pin_load(wnd, h, "", 0, 0); }};
    for (const auto& read : readers_of_a_stale_handle) {
        EXPECT_EQ(cryptError([&] { read(0x1234567); }), ERROR_INVALID_HANDLE);
    }
}

TEST_F(ContainersTest, AtMostThreePinsAreAsked) {
    const struct {
        ScriptedWndProv::Answers pins;
        std::string tries;    // told to the person
        std::uint32_t error;  // 0: opened
    } cases[] = {{{"right"}, "3", 0},
                 {{"wrong", "", "right"}, "321", 0},
                 {{"wrong", "", "right1"}, "321", blocked},
                 {{"wrong", std::nullopt, "right"}, "32", cancelledByUser}};
    int number = 0;
    for (const auto& c : cases) {
        const std::string name = made("c" + std::to_string(++number), "right");
        wnd.pins = c.pins;
        wnd.log.clear();
        const prov_handle provider(openContainer(name));
        unsigned int state = 0;
        std::uint32_t error = cryptError([&] { state = get_pin_load(wnd, provider, "b", 5, 2); });
        if (error == 0 && state == 0) error = GetLastError();
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(state != 0, c.error == 0);
        std::string questions;
        for (char tries : c.tries) questions += std::string("pin b 2/5 ") + tries + "; ";
        EXPECT_EQ(wnd.log, questions);
        EXPECT_EQ(opensWith(name, "right"), c.error != blocked);
    }
    wnd.log.clear();
    wnd.retries = 0;
    wnd.builtin = true;
    const prov_handle provider(openContainer(made("builtin", "right")));
    EXPECT_EQ(cryptError([&] { get_pin_load(wnd, provider, "c", 0, 0); }), wrongPin);
    EXPECT_EQ(wnd.log, "");
    EXPECT_EQ(wnd.retries, 4);
}

TEST_F(ContainersTest, TriesAreCountedAcrossProcesses) {
    const std::string name = made("c", "s3cretPn");
    const std::pair<const char*, std::uint32_t> tries[] = {
        {"wrong", wrongPin}, {"s3cretPn", 0},    {"wrong", wrongPin},
        {"wrong", wrongPin}, {"wrong", blocked}, {"s3cretPn", blocked}};
    for (const auto& [pin, error] : tries) {
        const pid_t child = startChild([&, attempt = pin] {
            OldWndProv once(std::string(), attempt);
            const prov_handle provider(openContainer(name));
            return cryptError([&] { get_pin_load(once, provider, "c", 0, 0); }) & 0xFF;
        });
        EXPECT_EQ(static_cast<std::uint32_t>(waitForChild(child)), error & 0xFF);
    }
    EXPECT_FALSE(opensWith(name, "s3cretPn"));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path())) {
        if (entry.is_directory()) continue;
        const CACMPT_BLOB content = readFile(entry.path());
        EXPECT_EQ(content.view().find("s3cretPn"), std::string::npos) << entry.path();
    }
}

TEST_F(ContainersTest, CreationAsksForAMediumAndAPin) {
    enum Pin { change, force, keep };
    const char* const askedAgain = "insert f 0; insert f 80100009; insert f 80100009; ";
    const struct {
        const char* name;
        Pin pin;
        ScriptedWndProv::Answers newPins;
        const char* log;
        std::uint32_t error = 0;
        short part = 0;
        short parts = 0;
        const char* reader = "DISK";
        DWORD type = PROV_ECDSA_P256;
    } cases[] = {
        {"a", change, {"12345678"}, "insert a 0; new pin a; "},
        {"a", change, {"x"}, "insert a 0; ", NTE_EXISTS},
        {"b", change, {}, "insert b 0; new pin b; ", cancelledByUser},
        {"c", force, {"forced"}, "insert c 0; new pin c; "},
        {"d", force, {}, "insert d 0; new pin d; ", cancelledByUser},
        {"e", keep, {}, "insert e 0; "},
        {"f", change, {}, askedAgain, cancelledByUser, 0, 0, "NOWHERE"},
        {"g", change, {}, "insert g 0; ", 0, 0, 0, "NOWHERE", PROV_RSA},
        {"h", change, {"p"}, "insert h.2 2/5 0; new pin h.2 2/5; ", 0, 2, 5},
        {"i", change, {"p"}, "insert i 3/0 0; new pin i 3/0; ", 0, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.log);
        wnd.log.clear();
        wnd.newPins = c.newPins;
        wnd.media = {"yes", "yes", std::nullopt};
        wnd.forcePin = c.pin == force;
        wnd.keepPin = c.pin == keep;
        unsigned long long provider = 0;
        unsigned int state = 77;
        bool done = false;
        std::uint32_t error = cryptError([&] {
            done = create_with_change(wnd, nullptr, c.type, c.reader, c.name, c.part, c.parts,
                                      &provider, &state);
        });
        if (error == 0 && !done) error = GetLastError();
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(wnd.log, c.log);
        EXPECT_EQ(provider != 0, c.error == 0);
        if (!provider) continue;
        EXPECT_EQ(get_container(provider), std::string(c.name) + (c.parts ? ".2" : ""));
        EXPECT_EQ(state != 77, c.type != PROV_RSA);
        const std::string name = get_unique(provider);
        CryptReleaseContext(provider, 0);
        EXPECT_TRUE(c.newPins.empty() || opensWith(name, c.newPins[0]->c_str()));
    }
    WIN32WndProv builtin;
    unsigned long long provider = 0;
    const auto create = [&] {
        create_with_change(builtin, nullptr, PROV_ECDSA_P256, "ignored", "\\\\.\\DISK\\w", 1, 2,
                           &provider, nullptr);
    };
    create();
    EXPECT_EQ(get_unique(prov_handle(provider)), disk + "w");
    EXPECT_EQ(cryptError(create), NTE_EXISTS);
    for (WndProv* dialogue : {static_cast<WndProv*>(&builtin), static_cast<WndProv*>(&wnd)}) {
        wnd.media = {"yes", std::nullopt};
        EXPECT_EQ(cryptError([&] {
                      create_with_change(*dialogue, nullptr, PROV_ECDSA_P256, nullptr, nullptr, 0,
                                         0, &provider, nullptr);
                  }),
                  dialogue == &builtin ? NTE_BAD_KEYSET_PARAM : cancelledByUser);
    }
}

TEST_F(ContainersTest, FixedAnswersAreGivenOnce) {
    EXPECT_EQ(OldWndProv("\\\\.\\DISK\\name", nullptr).get_reader({}), "DISK");
    EXPECT_EQ(OldWndProv("name", nullptr).get_reader({}), "");
    OldWndProv longest(std::string("R"), "12345678");
    PinBuffer pin;
    EXPECT_TRUE(longest.get_new_pin("", pin.text, 0, 0));
    EXPECT_STREQ(pin.text, "12345678");
    EXPECT_EQ(CryptSetPinCallbackWndProv(&longest).get_pin(), "12345678");
    for (const char* tooLong : {"123456789", "12345678901234567890"}) {
        OldWndProv fixed(std::string("R"), tooLong);
        EXPECT_EQ(cryptError([&] { fixed.get_new_pin("", pin.text, 0, 0); }), NTE_BAD_LEN);
        EXPECT_EQ(cryptError([&] { fixed.get_current_pin("", 3, pin.text, 0, 0); }), NTE_BAD_LEN);
    }
    class Unterminated : public ScriptedWndProv {
        bool get_current_pin(const char*, short, char* buffer, short, int) override {
            std::memset(buffer, '9', sizeof PinBuffer::text);
            return true;
        }
        bool get_new_pin(const char* name, char* buffer, short parts, int part) override {
            return get_current_pin(name, 3, buffer, parts, part);
        }
    } full;
    EXPECT_EQ(CryptSetPinCallbackWndProv(&full).get_pin(), "99999999");
    const std::string nines = made("nines", "");
    EXPECT_TRUE(change_pin(full, prov_handle(openContainer(nines)), "nines", 0, 0));
    EXPECT_TRUE(opensWith(nines, "99999999"));
    EXPECT_NE(get_pin_load(full, prov_handle(openContainer(nines)), "nines", 0, 0), 0u);
    EXPECT_TRUE(longest.insert_create("c", 0, 0, 0));
    SetLastError(NTE_PERM);
    EXPECT_EQ(cryptError([&] { longest.insert_create("c", 5, 0, 0); }), NTE_PERM);
    const std::string name = made("c", "right");
    const prov_handle provider(openContainer(name));
    OldWndProv wrong(std::string("DISK"), "wrong");
    EXPECT_EQ(cryptError([&] { get_pin_load(wrong, provider, "c", 0, 0); }), wrongPin);
    EXPECT_TRUE(opensWith(name, "right"));  // one try was used, not three
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
    const prov_handle provider(openContainer(made("c", "")));
    for (std::uint32_t code : {0u, wrongPin, blocked, 0x8010002Au, cancelledByUser, 5u, NTE_PERM}) {
        failing.code = code;
        failing.error = 77;
        for (WndProv* each : {static_cast<WndProv*>(&windows), static_cast<WndProv*>(&old)}) {
            EXPECT_EQ(each->retry("c", -1, failing), code != NTE_PERM && code != 5u);
            EXPECT_EQ(static_cast<std::uint32_t>(failing.error), code);
        }
    }
}

TEST_F(ContainersTest, RetriedOperations) {
    made("on disk", "");
    CryptReleaseContext(openContainer(made("b", "")), 0);
    prov_handle any;
    any.acquire_any();
    unsigned long long handle = 0;
    const auto open = [&](const char* name, DWORD type, DWORD flags) {
        return RetryAcquireContext(&handle, name, nullptr, type, flags, any).call();
    };
    ASSERT_TRUE(CryptAcquireContextA(&handle, "on vault", nullptr, PROV_ECDSA_P256, 8));
    CryptReleaseContext(handle, 0);
    for (const char* name : {"on disk", "on vault"}) {
        ASSERT_TRUE(open(name, PROV_ECDSA_P256, CRYPT_SILENT));
        const prov_handle found(handle);
        EXPECT_EQ(get_container(found), name);
        std::uint8_t number[4] = {};
        std::uint32_t length = 1;
        EXPECT_FALSE(RetryGetProvParam(found, PP_PROVTYPE, &length, number, 0).call());
        EXPECT_EQ(length, 1u);
        length = 1000;
        EXPECT_TRUE(RetryGetProvParam(found, PP_NAME, &length, nullptr, 0).call());
        EXPECT_EQ(length, get_provider(found).size() + 1);
    }
    EXPECT_FALSE(open("nowhere", PROV_ECDSA_P256, 0));
    ASSERT_TRUE(open("rsa", PROV_RSA, CRYPT_NEWKEYSET));
    CryptReleaseContext(handle, 0);
    // Without readers nothing is tried, and that is no outcome to act on.
    prov_handle plain;
    plain.acquire_default(CALG_RSA_SIGN);
    RetryAcquireContext nowhere(&handle, "b", nullptr, PROV_ECDSA_PLAIN, 0, plain);
    SetLastError(0);
    EXPECT_FALSE(wnd.retry("b", -1, nowhere));
    EXPECT_EQ(static_cast<std::uint32_t>(nowhere.error), NTE_BAD_KEYSET);
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
    const struct {
        const char* container;
        int type;
        unsigned long spec;
        int bits;
        const char* unique;  // a pattern; null when it is refused
        const char* log;     // its beginning
    } cases[] = {
        {"\\\\.\\VAULT\\one", 75, 1, 256, R"(\\\\.\\VAULT\\one)", "insert one 0; "},
        {"\\\\.\\VAULT", 75, 2, 256, R"(\\\\.\\VAULT\\[0-9a-f-]{35})", "insert "},
        {"two", 75, 2, 256, R"(\\\\.\\DISK\\two)", "reader DISK VAULT; insert two 0; "},
        {nullptr, 75, 2, 256, R"(\\\\.\\DISK\\[0-9a-f-]{35})", "reader DISK VAULT; insert "},
        {"\\\\.\\DISK\\three", 81, 2, 384, R"(\\\\.\\DISK\\three)", "insert three 0; "},
        {"\\\\.\\NOWHERE\\four", 1, 2, 3072, "four", "insert four 0; key size; "},
        {"five", 16, 2, 256, "five", "insert five 0; key size; "},
        {"seven", 76, 2, 3072, "seven", "insert seven 0; key size; "},
        {"\\\\.\\VAULT\\six", 75, 99, 0, nullptr, "insert six 0; "},
    };
    wnd.keepPin = true;
    wnd.reader = "DISK";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.log);
        wnd.log.clear();
        wnd.bits = c.type == 1 ? 3072 : -1;
        std::unique_ptr<PKIXCMP_Client> client;
        const std::uint32_t error = cryptError([&] {
            client.reset(PKIXCMP_Client::GenerateKeyPair(
                wnd, c.spec == 1 ? "\\p" : nullptr, nullptr, c.type, c.container, c.spec, false));
        });
        EXPECT_EQ(wnd.log.find(c.log), 0u) << wnd.log;
        EXPECT_EQ(wnd.log.find("key size") != std::string::npos,
                  c.type == 1 || c.type == 16 || c.type == 76);
        EXPECT_EQ(error == 0, c.unique != nullptr);
        if (!client) continue;
        EXPECT_THAT(get_unique(client->ProviderHandle), MatchesRegex(c.unique));
        EXPECT_EQ(client->KeySpec, c.spec);
        EXPECT_EQ(client->ConfigPath, c.spec == 1 ? "\\p" : "");
        EXPECT_TRUE(client->Certificate.empty());
        EXPECT_EQ(keyLength(client->ProviderHandle, client->KeySpec), static_cast<DWORD>(c.bits));
    }
    const auto cancelled = [&](const char* container) {
        return cryptError([&] {
            PKIXCMP_Client::GenerateKeyPair(wnd, nullptr, nullptr, 75, container, 2, false);
        });
    };
    wnd.reader.clear();
    EXPECT_EQ(cancelled("x"), cancelledByUser);
    wnd.keepPin = false;
    EXPECT_EQ(cancelled("\\\\.\\DISK\\x"), cancelledByUser);  // no PIN
}

TEST_F(ContainersTest, PinsOfClientsChange) {
    OldWndProv fixed(std::string("DISK"), "old");
    const std::string name = disk + "c";
    const std::unique_ptr<PKIXCMP_Client> client(PKIXCMP_Client::GenerateKeyPair(
        fixed, nullptr, nullptr, PROV_ECDSA_P256, name.c_str(), 2, true));
    wnd.newPins = {"new", std::nullopt, "third"};
    EXPECT_TRUE(client->ChangePin(wnd));
    EXPECT_FALSE(opensWith(name, "old"));
    EXPECT_FALSE(client->ChangePin(wnd));
    EXPECT_EQ(GetLastError(), cancelledByUser);
    EXPECT_TRUE(opensWith(name, "new"));
    WIN32WndProv builtin;
    EXPECT_FALSE(client->ChangePin(builtin));  // nobody answers the provider
    {
        const CryptSetPinCallbackFixed answer("fresh");
        EXPECT_TRUE(client->ChangePin(builtin));
    }
    EXPECT_TRUE(opensWith(name, "fresh"));
    CryptReleaseContext(client->ProviderHandle, 0);
    client->ProviderHandle = openContainer(name);
    EXPECT_EQ(cryptError([&] { client->ChangePin(wnd); }), wrongPin);
    EXPECT_EQ(wnd.log, "new pin c; new pin c; new pin c; ");
    CryptReleaseContext(client->ProviderHandle, 0);
    EXPECT_EQ(cryptError([&] { client->ChangePin(builtin); }), ERROR_INVALID_HANDLE);
    client->ProviderHandle = 0;
}

TEST(ProviderSearch, FindsAProviderWithTheAlgorithm) {
    EXPECT_EQ(Quorvex::QXGetDefaultCSP(0), 0u);
    EXPECT_EQ(Quorvex::QXGetDefaultCSP(0x7777), 0u);
    for (ALG_ID algorithm : {CALG_RSA_SIGN, CALG_ECDSA, CALG_SHA_384}) {
        const prov_handle provider(Quorvex::QXGetDefaultCSP(algorithm));
        EXPECT_FALSE(get_provider(provider).empty());
    }
    unsigned long long held = 0;
    {
        Quorvex::CFindAlgIdInProviders named(CALG_ECDSA);
        ASSERT_TRUE(named.Enumerate());
        held = named.provider();
        EXPECT_FALSE(get_provider(held).empty());
    }
    EXPECT_EQ(cryptError([&] { get_provider(held); }), ERROR_INVALID_HANDLE);
    Quorvex::CFindAlgIdInDefaultProviders search(CALG_ECDSA);
    EXPECT_TRUE(search.Enumerate());
    EXPECT_TRUE(search.OnType(PROV_RSA));  // goes on
    EXPECT_FALSE(search.OnType(PROV_ECDSA_P256));
    Quorvex::CFindAlgIdIn any(CALG_ECDSA);
    EXPECT_TRUE(any.TryNextProv(PROV_ECDSA_P384, nullptr));
    EXPECT_EQ(cryptError([&] { any.TryNextProv(9999, nullptr); }), NTE_PROV_TYPE_NOT_DEF);
    EXPECT_EQ(any.provider(), 0u);
}

}  // namespace
