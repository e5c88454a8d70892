#include <gmock/gmock.h>
#include <signal.h>

#include <cerrno>
#include <vector>

#include "capilite/FileOpen.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

/// A file system that fails on demand, and what the retrying open did to it.
struct World {
    int enterFailures = 0;  // of the first calls
    int leaveResult = 0;
    int openFailures = 0;
    int openErrno = EINTR;
    int entered = 0, left = 0, opened = 0, yields = 0;
    std::vector<unsigned> sleeps{};
    bool signalsBlocked = false;
    std::vector<std::string> log{};
} world;

bool usrSignalBlocked() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGUSR1) == 1;
}

std::FILE* openIn(World setUp) {
    world = std::move(setUp);
    const capilite::OpenOperations operations = {
        [] {
            errno = EACCES;
            return world.entered++ < world.enterFailures ? 13 : 0;
        },
        [] {
            ++world.left;
            errno = EPERM;
            return world.leaveResult;
        },
        [](const char*, const char*) -> std::FILE* {
            bool fails = world.opened++ < world.openFailures;
            errno = fails ? world.openErrno : 0;
            return fails ? nullptr : std::tmpfile();
        },
        [] { ++world.yields; },
        [](unsigned us) {
            world.sleeps.push_back(us);
            world.signalsBlocked = usrSignalBlocked();
        },
        [](const std::string& line) { world.log.push_back(line); },
    };
    errno = 0;
    std::FILE* file = capilite::openRetrying("the/name", "rb", operations);
    int kept = errno;
    if (file != nullptr) std::fclose(file);
    errno = kept;
    return file;
}

constexpr const char* HEAD = "[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9]+ ";

TEST(FileOpen, RetriesAtOnceThenYieldsThenSleeps) {
    struct {
        int failures, yields;
        std::size_t sleeps;
    } const cases[] = {{0, 0, 0}, {1, 0, 0}, {2, 1, 0}, {64, 63, 0}, {65, 63, 1}, {200, 63, 136}};
    for (const auto& c : cases) {
        EXPECT_NE(openIn({.openFailures = c.failures}), nullptr);
        EXPECT_EQ(world.opened, c.failures + 1);
        EXPECT_EQ(world.yields, c.yields) << c.failures;
        EXPECT_EQ(world.sleeps, std::vector<unsigned>(c.sleeps, 4000)) << c.failures;
        EXPECT_EQ(world.signalsBlocked, c.sleeps != 0);
        EXPECT_FALSE(usrSignalBlocked());
        EXPECT_TRUE(world.log.empty());
        EXPECT_EQ(world.left, world.opened);
    }
}

TEST(FileOpen, GivesUpInAStorm) {
    EXPECT_EQ(openIn({.openFailures = 1 << 20, .openErrno = EAGAIN}), nullptr);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(world.opened, 8193);
    EXPECT_EQ(world.sleeps.size(), 8192u - 63);
    EXPECT_EQ(world.sleeps.back(), 7000u);
    EXPECT_FALSE(usrSignalBlocked());
    ASSERT_EQ(world.log.size(), 2u);
    EXPECT_THAT(world.log[0],
                MatchesRegex(std::string(HEAD) +
                             "support_EagnEintr_try:123 p:[0-9]+ t:0x.* EINTR/EAGAIN storm "
                             "detect by support_an_fopen\\(\\), retry=8192 errno = .*"));
    EXPECT_THAT(world.log[1], HasSubstr("\"the/name\", \"rb\") = 0x"));
}

TEST(FileOpen, OtherFailuresAreForGood) {
    EXPECT_EQ(openIn({.openFailures = 1, .openErrno = ENOENT}), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(world.opened, 1);
    ASSERT_EQ(world.log.size(), 1u);
    EXPECT_THAT(world.log[0], MatchesRegex(std::string(HEAD) +
                                           "support_an_fopen:87 p:[0-9]+ t:0x.* "
                                           "support_an_fopen\\(\"the/name\", \"rb\"\\) = 0x.*"));
    EXPECT_THAT(world.log[0], EndsWith("(" + std::to_string(ENOENT) + ")"));
    EXPECT_NE(openIn({.openFailures = 3, .openErrno = EINPROGRESS}), nullptr);
}

TEST(FileOpen, IdentityThatCannotBeEnteredOrLeft) {
    EXPECT_NE(openIn({.enterFailures = 3}), nullptr);
    EXPECT_EQ(world.opened, 1);
    ASSERT_EQ(world.log.size(), 3u);
    EXPECT_THAT(world.log[0], HasSubstr(" support_thread_actualize_uids() rc=13 errno = "));
    EXPECT_NE(openIn({.leaveResult = 5}), nullptr);
    ASSERT_EQ(world.log.size(), 1u);
    EXPECT_THAT(world.log[0], HasSubstr(" support_thread_deactualize_uids() rc=5 errno = "));
    EXPECT_EQ(openIn({.enterFailures = 1 << 20}), nullptr);
    EXPECT_EQ(world.opened, 0);
    EXPECT_EQ(errno, EACCES);
}

}  // namespace
