#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ProviderFixture.h"
#include "platform/crypt/Container.h"

// Every change of a container is stopped at every step that it makes on the disk: once by the death
// of the process, once by an error of the disk. What is left must be the container before the
// change or the one behind it.

namespace provider_test {
namespace {

using provider::Container;
using provider::secretFrom;

std::atomic<int> stepsLeft{0};

bool dieLater(const char*) {
    if (stepsLeft-- == 0) ::_exit(77);
    return true;
}
bool failLater(const char*) { return stepsLeft-- != 0; }

class ProviderCrash : public ProviderTest {
protected:
    ~ProviderCrash() override { provider::setFileStep(nullptr); }

    using Change = std::function<void()>;
    /// Looks at what is left and goes on working with it; says which of the states it is in.
    using Check = std::function<std::string()>;

    const provider::ProviderType& type = provider::findProvider(PROV_ECDSA_P256, nullptr);
    const provider::Place place = provider::findPlace(type, "\\\\.\\DISK\\crash", true);

    /// A container with a key and no PIN yet.
    void makeContainer() {
        const auto made = Container::create(place, type);
        made->identifier();
        made->store(AT_SIGNATURE, provider::PrivateKey::generate(shape()), false);
    }
    static const provider::KeyShape& shape() { return *provider::findShape("EC:P-256"); }

    std::shared_ptr<Container> opened() const {
        auto container = Container::open(place, type);
        container->identifier();
        return container;
    }

    /// Begins a change, which clears up after earlier ones, and goes no further.
    static void startChange(Container& container) {
        EXPECT_THROW(container.storeCertificate(AT_SIGNATURE, Bytes{0x30, 0}), provider::Failure);
    }

    /// How many steps the change takes when nothing stops it.
    int countSteps(const Change& change) const {
        stepsLeft = 1 << 20;
        provider::setFileStep(failLater);
        change();
        provider::setFileStep(nullptr);
        return (1 << 20) - stepsLeft;
    }

    /// Runs the change with every step as its last one. `prepare` makes the state before it, which
    /// is copied for each run.
    void stopEverywhere(const std::function<void()>& prepare, const Change& change,
                        const Check& check, const std::string& before, const std::string& behind) {
        const auto& folder = place.reader.folder;
        std::filesystem::create_directories(folder);
        prepare();
        std::filesystem::copy(folder, file("prepared"), std::filesystem::copy_options::recursive);
        const int steps = countSteps(change);
        ASSERT_GT(steps, 2);
        EXPECT_EQ(check(), behind);
        int unchanged = 0;
        for (int run = 0; run < 2 * steps; ++run) {
            const int step = run / 2;
            SCOPED_TRACE((run % 2 == 0 ? "dead at step " : "disk error at step ") +
                         std::to_string(step));
            std::filesystem::remove_all(folder);
            std::filesystem::copy(file("prepared"), folder,
                                  std::filesystem::copy_options::recursive);
            run % 2 == 0 ? die(change, step) : meetError(change, step);
            const std::string state = check();
            EXPECT_THAT(state, ::testing::AnyOf(before, behind));
            unchanged += state == before;
            expectNoLeftovers();
        }
        EXPECT_GT(unchanged, 0);
    }

    /// Once the container was written to again, there is nothing in it that nobody knows of, and no
    /// folder that was being made or removed.
    void expectNoLeftovers() const {
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(place.reader.folder)) {
            EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
        }
    }

private:
    void die(const Change& change, int step) const {
        const pid_t child = startChild([&] {
            stepsLeft = step;
            provider::setFileStep(dieLater);
            change();
            return 0;
        });
        EXPECT_EQ(waitForChild(child), 77);
    }

    void meetError(const Change& change, int step) const {
        stepsLeft = step;
        provider::setFileStep(failLater);
        try {
            change();
            ADD_FAILURE() << "the disk error was not noticed";
        } catch (const provider::Failure& failure) {
            EXPECT_EQ(failure.code, NTE_SYS_ERR);
        }
        provider::setFileStep(nullptr);
    }
};

TEST_F(ProviderCrash, WhileMade) {
    const auto check = [&]() -> std::string {
        try {
            Container::create(place, type);
            Container::remove(place);
            return "absent";
        } catch (const provider::Failure& failure) {
            EXPECT_EQ(failure.code, NTE_EXISTS);
        }
        startChange(*opened());
        return "whole";
    };
    stopEverywhere([] {}, [&] { Container::create(place, type); }, check, "absent", "whole");
}

TEST_F(ProviderCrash, WhileAKeyIsStored) {
    const auto fresh = provider::PrivateKey::generate(shape());
    const auto& hash = *provider::findAlgorithm(CALG_SHA_256);
    const auto check = [&]() -> std::string {
        const auto container = opened();
        const auto kept = container->publicKey(AT_SIGNATURE);
        const Bytes digest(32, 7);
        const Bytes signature = container->privateKey(AT_SIGNATURE)->sign(hash, digest);
        EXPECT_TRUE(kept->verify(hash, digest, signature));
        startChange(*container);
        return kept->matches(fresh->get()) ? "new key" : "old key";
    };
    stopEverywhere([&] { makeContainer(); }, [&] { opened()->store(AT_SIGNATURE, fresh, false); },
                   check, "old key", "new key");
}

TEST_F(ProviderCrash, WhileThePinChanges) {
    const auto check = [&]() -> std::string {
        const auto container = Container::open(place, type);
        std::string state = "no PIN";
        try {
            container->identifier();
        } catch (const provider::Failure& failure) {
            EXPECT_EQ(failure.code, SCARD_W_WRONG_CHV);
            state = "new PIN";
            container->supplyPin(secretFrom("new"));
            container->identifier();
        }
        container->privateKey(AT_SIGNATURE);
        startChange(*container);
        return state;
    };
    stopEverywhere([&] { makeContainer(); }, [&] { opened()->changePin(secretFrom("new")); }, check,
                   "no PIN", "new PIN");
}

TEST_F(ProviderCrash, WhileRemoved) {
    const auto check = [&]() -> std::string {
        bool whole = false;
        try {
            opened()->privateKey(AT_SIGNATURE);
            whole = true;
            Container::remove(place);
        } catch (const provider::Failure& failure) {
            EXPECT_EQ(failure.code, NTE_BAD_KEYSET);
            EXPECT_THROW(Container::remove(place), provider::Failure);  // done, but for leftovers
        }
        expectNoLeftovers();
        Container::create(place, type);  // the name is free again
        return whole ? "whole" : "absent";
    };
    stopEverywhere([&] { makeContainer(); }, [&] { Container::remove(place); }, check, "whole",
                   "absent");
}

// Whoever waits for the lock of a container that goes meanwhile finds none, not a ghost.
TEST_F(ProviderCrash, RemovedWhileWaitedFor) {
    makeContainer();
    auto held = provider::Folder::open(place.path(), provider::Folder::Lock::exclusive);
    DWORD code = ERROR_SUCCESS;
    std::thread waiting([&] {
        try {
            Container::open(place, type);
        } catch (const provider::Failure& failure) {
            code = failure.code;
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::filesystem::rename(place.path(), file("elsewhere"));
    held.reset();
    waiting.join();
    EXPECT_EQ(code, NTE_BAD_KEYSET);
}

}  // namespace
}  // namespace provider_test
