#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "ProviderFixture.h"
#include "platform/crypt/Container.h"

// PINs: the protocol of the parameters 107, 108 and 109, tries that last, the callback.

namespace provider_test {
namespace {

constexpr const char* name = "\\\\.\\DISK\\pin";
constexpr const char* rightPin = "right-42";

class ProviderPin : public ProviderTest {
protected:
    /// A container with a key and the PIN.
    void make() {
        const Context made(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET);
        ASSERT_TRUE(generate(made));
        ASSERT_TRUE(setPin(made, PP_CHANGE_AUTH, rightPin)) << std::hex << GetLastError();
    }
    static Context open(DWORD flags = 0) { return Context(name, PROV_ECDSA_P256, flags); }
    /// Supplies a PIN to a fresh handle and reads the state.
    static DWORD tryPin(const char* pin) {
        const Context context = open();
        EXPECT_EQ(status(context), SCARD_W_WRONG_CHV);
        EXPECT_TRUE(setPin(context, PP_SET_AUTH, pin));
        return status(context);
    }
    /// The same below the handles, for a process that forked: a failure is thrown.
    static void openDirectly(const char* pin) {
        const auto& type = provider::findProvider(PROV_ECDSA_P256, nullptr);
        const auto opened = provider::Container::open(provider::findPlace(type, name, false), type);
        opened->supplyPin(provider::secretFrom(pin));
        opened->identifier();
    }
    std::string tries() const {
        const Bytes content = readFile(container("DISK", "pin") / "tries");
        return {content.begin(), content.end()};
    }
    static DWORD userKey(HCRYPTPROV context) {
        HCRYPTKEY key = 0;
        const DWORD code = codeOf(CryptGetUserKey(context, AT_SIGNATURE, &key));
        if (key != 0) CryptDestroyKey(key);
        return code;
    }
};

TEST_F(ProviderPin, NewContainerIsOpenUntilItGetsAPin) {
    for (const DWORD parameter : {PP_SET_AUTH, PP_CHANGE_AUTH}) {
        {
            const Context made(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET);
            EXPECT_EQ(status(made), ERROR_SUCCESS);
            EXPECT_TRUE(setPin(made, parameter, "first"));
            EXPECT_EQ(status(made), ERROR_SUCCESS);
            EXPECT_TRUE(generate(made));
            EXPECT_FALSE(sign(made, "text").empty());
        }
        const Context again = open();
        EXPECT_EQ(status(again), SCARD_W_WRONG_CHV);
        EXPECT_TRUE(sign(again, "text").empty());
        EXPECT_EQ(GetLastError(), SCARD_W_WRONG_CHV);
        EXPECT_TRUE(setPin(again, PP_SET_AUTH, "first"));
        EXPECT_EQ(status(again), ERROR_SUCCESS);
        EXPECT_FALSE(sign(again, "text").empty());
        open(CRYPT_DELETEKEYSET);
        EXPECT_EQ(userKey(again), ERROR_SUCCESS);  // what is open stays in memory
        EXPECT_EQ(codeOf(generate(again)), NTE_BAD_KEYSET);
    }
}

TEST_F(ProviderPin, TriesRunOutAndStayOut) {
    make();
    // What happens in turn, and what the next reading says.
    const std::pair<const char*, DWORD> steps[] = {
        {"wrong", SCARD_W_WRONG_CHV},   {"", SCARD_W_WRONG_CHV},
        {rightPin, ERROR_SUCCESS},      {"right-43", SCARD_W_WRONG_CHV},
        {"right-4", SCARD_W_WRONG_CHV}, {"RIGHT-42", SCARD_W_CHV_BLOCKED},
    };
    std::vector<std::string> left;
    for (const auto& [pin, code] : steps) {
        EXPECT_EQ(tryPin(pin), code) << pin;
        left.push_back(tries());
    }
    EXPECT_THAT(left, ::testing::ElementsAre("2\n", "1\n", "3\n", "2\n", "1\n", "0\n"));
    const Context blocked = open();
    EXPECT_TRUE(setPin(blocked, PP_SET_AUTH, rightPin));
    EXPECT_EQ(status(blocked), SCARD_W_CHV_BLOCKED);
    EXPECT_EQ(userKey(blocked), SCARD_W_CHV_BLOCKED);
    EXPECT_TRUE(sign(blocked, "text").empty());
    EXPECT_EQ(GetLastError(), SCARD_W_CHV_BLOCKED);
    EXPECT_EQ(codeOf(setPin(blocked, PP_CHANGE_AUTH, "new")), SCARD_W_CHV_BLOCKED);
    EXPECT_EQ(tries(), "0\n");
}

TEST_F(ProviderPin, TriesCountAcrossProcesses) {
    make();
    const auto attempt = [](const char* pin) {
        return waitForChild(startChild([pin] {
            try {
                openDirectly(pin);
                return 0;
            } catch (const provider::Failure& failure) {
                return failure.code == SCARD_W_WRONG_CHV ? 1 : 2;
            }
        }));
    };
    EXPECT_EQ(attempt("one"), 1);
    EXPECT_EQ(attempt(rightPin), 0);
    EXPECT_EQ(attempt("two"), 1);
    EXPECT_EQ(tryPin("three"), SCARD_W_WRONG_CHV);
    EXPECT_EQ(attempt("four"), 2);
    EXPECT_EQ(attempt(rightPin), 2);
}

TEST_F(ProviderPin, TryIsUsedUpBeforeThePinIsLookedAt) {
    make();
    // A try that cannot be written down is none.
    provider::setFileStep([](const char*) { return false; });
    const Context noDisk = open();
    EXPECT_TRUE(setPin(noDisk, PP_SET_AUTH, rightPin));
    EXPECT_EQ(status(noDisk), NTE_SYS_ERR);
    provider::setFileStep(nullptr);
    EXPECT_TRUE(sign(noDisk, "text").empty());
    EXPECT_EQ(tries(), "3\n");
    // The process dies as soon as the first write is done, whatever the PIN is.
    for (const char* left : {"2\n", "1\n", "0\n"}) {
        const pid_t child = startChild([] {
            provider::setFileStep([](const char* step) {
                static int folders = 0;
                if (std::string(step) == "sync folder" && ++folders == 1) return true;
                if (folders == 1) ::_exit(77);
                return true;
            });
            openDirectly(rightPin);
            return 0;
        });
        EXPECT_EQ(waitForChild(child), 77);
        EXPECT_EQ(tries(), left);
    }
    EXPECT_EQ(status(open()), SCARD_W_CHV_BLOCKED);
}

TEST_F(ProviderPin, ChangedPinCountsForEveryHandle) {
    make();
    Context first = open();
    Context second = open();
    for (const Context* context : {&first, &second}) {
        ASSERT_TRUE(setPin(*context, PP_SET_AUTH, rightPin));
        ASSERT_EQ(status(*context), ERROR_SUCCESS);
    }
    ASSERT_TRUE(setPin(first, PP_CHANGE_AUTH, "other"));
    // The second handle must not write keys under the old PIN.
    EXPECT_EQ(codeOf(generate(second, AT_KEYEXCHANGE)), SCARD_W_WRONG_CHV);
    EXPECT_EQ(codeOf(setPin(second, PP_CHANGE_AUTH, "third")), SCARD_W_WRONG_CHV);
    ASSERT_TRUE(setPin(second, PP_SET_AUTH, "other"));
    EXPECT_TRUE(generate(second, AT_KEYEXCHANGE));
    EXPECT_EQ(tryPin(rightPin), SCARD_W_WRONG_CHV);
    EXPECT_EQ(tryPin("other"), ERROR_SUCCESS);
    // Without a PIN again.
    ASSERT_TRUE(setPin(first, PP_SET_AUTH, "other"));
    ASSERT_TRUE(setPin(first, PP_CHANGE_AUTH, ""));
    EXPECT_EQ(status(open()), ERROR_SUCCESS);
    EXPECT_FALSE(sign(open(), "text", CALG_SHA_256, AT_KEYEXCHANGE).empty());
}

// A handle whose container was replaced by another of its name must not lock keys with what opened
// the first: they would be lost.
TEST_F(ProviderPin, AnotherContainerOfTheNameIsOpenedAnew) {
    make();
    const Context locked = open();
    ASSERT_TRUE(setPin(locked, PP_SET_AUTH, rightPin));
    const Context vault("v", PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    ASSERT_EQ(status(locked) | status(vault), ERROR_SUCCESS);
    for (const char* each : {name, "v"}) {
        Context(each, PROV_ECDSA_P256, CRYPT_DELETEKEYSET);
        const Context another(each, PROV_ECDSA_P256, CRYPT_NEWKEYSET);
        ASSERT_TRUE(generate(another));
        if (each == name) {
            ASSERT_TRUE(setPin(another, PP_CHANGE_AUTH, "another"));
        }
    }
    EXPECT_EQ(codeOf(generate(locked)), SCARD_W_WRONG_CHV);
    EXPECT_TRUE(generate(vault));
    EXPECT_FALSE(sign(Context("v", PROV_ECDSA_P256, 0), "text").empty());
}

TEST_F(ProviderPin, WrongPinLocksAnOpenHandle) {
    make();
    const Context context = open();
    ASSERT_TRUE(setPin(context, PP_SET_AUTH, rightPin));
    ASSERT_FALSE(sign(context, "text").empty());
    ASSERT_TRUE(setPin(context, PP_SET_AUTH, "wrong"));
    EXPECT_TRUE(sign(context, "text").empty());
    EXPECT_EQ(tries(), "2\n");
}

struct Answer {
    const char* pin;
    int asked = 0;
    static bool give(void* context, char* pin, std::size_t size) {
        Answer& answer = *static_cast<Answer*>(context);
        ++answer.asked;
        if (answer.pin == nullptr) return false;
        EXPECT_LT(std::strlen(answer.pin), size);
        std::strcpy(pin, answer.pin);
        return true;
    }
};

TEST_F(ProviderPin, CallbackIsAskedOnceAUse) {
    make();
    const struct {
        const char* pin;
        DWORD flags, code;
        int asked;
        const char* left;
    } cases[] = {
        {nullptr, 0, SCARD_W_CANCELLED_BY_USER, 1, "3\n"},
        {"", 0, SCARD_W_CANCELLED_BY_USER, 1, "3\n"},
        {rightPin, CRYPT_SILENT, NTE_SILENT_CONTEXT, 0, "3\n"},
        {"wrong", 0, SCARD_W_WRONG_CHV, 1, "2\n"},
        {rightPin, 0, ERROR_SUCCESS, 1, "3\n"},
        {"wrong", 0, SCARD_W_WRONG_CHV, 1, "2\n"},
        {"wrong", 0, SCARD_W_WRONG_CHV, 1, "1\n"},
        {"wrong", 0, SCARD_W_CHV_BLOCKED, 1, "0\n"},
        {rightPin, 0, SCARD_W_CHV_BLOCKED, 0, "0\n"},
        {rightPin, CRYPT_SILENT, SCARD_W_CHV_BLOCKED, 0, "0\n"},
    };
    for (const auto& c : cases) {
        Answer answer{c.pin};
        QXCryptSetPinCallback(Answer::give, &answer);
        EXPECT_EQ(userKey(open(c.flags)), c.code);
        EXPECT_EQ(answer.asked, c.asked);
        EXPECT_EQ(tries(), c.left);
    }
}

TEST_F(ProviderPin, CallbackServesSigningButNotTheState) {
    make();
    Answer answer{rightPin};
    QXCryptSetPinCallback(Answer::give, &answer);
    const Context context = open();
    EXPECT_EQ(status(context), SCARD_W_WRONG_CHV);
    EXPECT_EQ(exportKey(context).bits.size(), 65U);
    EXPECT_EQ(answer.asked, 0);
    EXPECT_FALSE(sign(context, "text").empty());
    EXPECT_FALSE(sign(context, "text").empty());
    EXPECT_EQ(answer.asked, 1);
    // A wrong PIN that was supplied is not followed by a question.
    ASSERT_TRUE(setPin(context, PP_SET_AUTH, "wrong"));
    EXPECT_EQ(userKey(context), SCARD_W_WRONG_CHV);
    EXPECT_EQ(answer.asked, 1);
}

TEST_F(ProviderPin, ProviderChangesByItsOwnDialogue) {
    make();
    const auto change = [](HCRYPTPROV context) {
        return codeOf(setPin(context, PP_CHANGE_AUTH, nullptr, 4));
    };
    const Context context = open();
    ASSERT_TRUE(setPin(context, PP_SET_AUTH, rightPin));
    EXPECT_EQ(change(context), SCARD_W_CANCELLED_BY_USER);
    Answer answer{"dialogue"};
    QXCryptSetPinCallback(Answer::give, &answer);
    EXPECT_EQ(change(context), ERROR_SUCCESS);
    EXPECT_EQ(tryPin("dialogue"), ERROR_SUCCESS);

    const Context vault("v", PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(vault));
    const Context other("v", PROV_ECDSA_P256, 0);
    ASSERT_EQ(status(other), ERROR_SUCCESS);
    const auto before = readFile(onlyFile(container("VAULT", "v"), ".pem"));
    EXPECT_EQ(change(vault), ERROR_SUCCESS);
    // Who had it open opens it anew: there is no PIN that could be wrong.
    EXPECT_FALSE(sign(other, "text").empty()) << std::hex << GetLastError();
    EXPECT_EQ(change(vault), ERROR_SUCCESS);
    EXPECT_TRUE(generate(other)) << std::hex << GetLastError();
    EXPECT_NE(readFile(onlyFile(container("VAULT", "v"), ".pem")), before);
    EXPECT_FALSE(sign(Context("v", PROV_ECDSA_P256, 0), "text").empty());
    // No PIN where none is kept; an empty one asks for nothing.
    EXPECT_EQ(codeOf(setPin(vault, PP_CHANGE_AUTH, "1234")), NTE_BAD_TYPE);
    EXPECT_EQ(codeOf(setPin(vault, PP_SET_AUTH, "1234")), NTE_BAD_TYPE);
    EXPECT_EQ(codeOf(setPin(vault, PP_CHANGE_AUTH, "")), ERROR_SUCCESS);
}

TEST_F(ProviderPin, OddRecordsAreRefused) {
    make();
    const Context context = open();
    const std::string longest(64, '7');
    EXPECT_EQ(codeOf(setPin(context, PP_SET_AUTH, nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf(setPin(context, PP_SET_AUTH, (longest + "7").c_str())), NTE_BAD_LEN);
    EXPECT_EQ(codeOf(CryptSetProvParam(context, PP_SET_AUTH, nullptr, 0)), ERROR_INVALID_PARAMETER);
    for (const BYTE kind : {1, 2, 3, 4, 5, 6, 255}) {
        EXPECT_EQ(codeOf(setPin(context, PP_SET_AUTH, rightPin, kind)), NTE_BAD_TYPE);
    }
    EXPECT_EQ(codeOf(setPin(context, PP_NAME, rightPin)), NTE_BAD_TYPE);
    EXPECT_EQ(codeOf(setPin(context, PP_CHANGE_AUTH, "new")), SCARD_W_WRONG_CHV);
    EXPECT_EQ(tries(), "3\n");
    ASSERT_TRUE(setPin(context, PP_SET_AUTH, rightPin));
    ASSERT_TRUE(setPin(context, PP_CHANGE_AUTH, longest.c_str()));
    EXPECT_EQ(tryPin(longest.c_str()), ERROR_SUCCESS);
}

TEST_F(ProviderPin, QuorumContainersAreNotOpenedYet) {
    make();
    const auto header = container("DISK", "pin") / "header";
    const Bytes content = readFile(header);
    std::string text(content.begin(), content.end());
    text.replace(text.find("protection 0"), 12, "protection 2");
    text.insert(text.find("end\n"), "needed 2\npart other 00ff\n");
    writeFile(header, text);
    const Context context = open();
    EXPECT_EQ(status(context), NTE_BAD_TYPE);
    EXPECT_EQ(userKey(context), NTE_BAD_TYPE);
    EXPECT_EQ(codeOf(setPin(context, PP_SET_AUTH, rightPin)), NTE_BAD_TYPE);
    EXPECT_EQ(provider::ContainerHeader::parse(text).text(), text);  // the unknown lines are kept
}

TEST_F(ProviderPin, NoFileHoldsThePin) {
    const std::string pin = "S3cret-Number-That-Is-Nowhere";
    make();
    const Context context = open();
    ASSERT_TRUE(setPin(context, PP_SET_AUTH, rightPin));
    ASSERT_TRUE(setPin(context, PP_CHANGE_AUTH, pin.c_str()));
    tryPin((pin + "x").c_str());
    int files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(file(""))) {
        if (!entry.is_regular_file()) continue;
        ++files;
        const Bytes content = readFile(entry.path());
        for (const std::string& secret : {pin, std::string(rightPin)}) {
            EXPECT_EQ(std::search(content.begin(), content.end(), secret.begin(), secret.end()),
                      content.end())
                << entry.path();
        }
    }
    EXPECT_GE(files, 4);
}

}  // namespace
}  // namespace provider_test
