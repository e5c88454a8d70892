#include "platform/storage/Storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <thread>

#include "tests/TempHome.h"
#include "tests/platform/Sql.h"

using namespace storage;
using testing::Each;
using testing::ElementsAre;

namespace {

Setting text(const std::string& name, const std::string& content) { return {name, 1, content}; }

std::string read(const std::filesystem::path& folder, const char* key, const char* name) {
    Access state = openForReading(folder);
    if (!state) return "<no state>";
    auto found = state.settings().find(key, name);
    return found ? std::get<std::string>(found->content) : "<none>";
}

void write(const std::filesystem::path& folder, const char* key, const std::string& content) {
    openForWriting(folder).settings().put(key, text("v", content));
}

/// The fault that a call ends in, or nothing.
template <class Call>
std::optional<Fault> faultOf(Call&& call) {
    try {
        call();
        return std::nullopt;
    } catch (const Error& error) {
        return error.fault;
    }
}

TEST(Storage, AThreadHoldsOneStateAtATime) {
    TempHome home;
    {
        Access held = openForWriting(home.path());
        EXPECT_EQ(faultOf([&] { openForReading(home.path()); }), Fault::failed);
        held.settings().put("k", text("v", "1"));
        Access moved = std::move(held);
        EXPECT_FALSE(held);
        EXPECT_TRUE(moved);
    }
    EXPECT_EQ(read(home.path(), "k", "v"), "1");
}

TEST(Storage, MoreFoldersThanAreKeptOpen) {
    TempHome home;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 20; ++i) {
            std::filesystem::path folder = home.path() / std::to_string(i);
            std::filesystem::create_directories(folder);
            if (round == 0) write(folder, "k", std::to_string(i));
            EXPECT_EQ(read(folder, "k", "v"), std::to_string(i));
        }
    }
}

TEST(Storage, FaultsAreTold) {
    struct {
        const char* damage;
        Fault fault;
    } cases[] = {
        {"PRAGMA user_version=2", Fault::newer},
        {"PRAGMA user_version=0", Fault::damaged},
        {"PRAGMA application_id=7", Fault::damaged},
        {"DROP TABLE settings", Fault::damaged},
        {"ALTER TABLE settings RENAME COLUMN content TO something", Fault::damaged},
    };
    for (auto& c : cases) {
        TempHome home;
        write(home.path(), "k", "1");
        std::thread([&] { sql(home.path() / "pkixcmp.db", c.damage); }).join();
        std::thread([&] {
            EXPECT_EQ(faultOf([&] { read(home.path(), "k", "v"); }), c.fault) << c.damage;
            EXPECT_EQ(faultOf([&] { write(home.path(), "k", "2"); }), c.fault) << c.damage;
        }).join();
    }
    TempHome home;
    EXPECT_FALSE(openForReading(home.path() / "none"));
    std::ofstream(home.path() / "file").flush();
    EXPECT_EQ(faultOf([&] { openForWriting(home.path() / "file/none"); }), Fault::noRights);
    std::filesystem::create_directories(home.path() / "pkixcmp.db");
    EXPECT_TRUE(faultOf([&] { openForReading(home.path()); }).has_value());
}

TEST(Storage, AnEmptyFileIsNoStateYetAndBecomesOne) {
    TempHome home;
    std::ofstream(home.path() / "pkixcmp.db").flush();
    EXPECT_FALSE(openForReading(home.path()));
    write(home.path(), "k", "1");
    EXPECT_EQ(read(home.path(), "k", "v"), "1");
}

TEST(Storage, AWriterWaitsForTheLock) {
    TempHome home;
    write(home.path(), "k", "1");
    int pipes[2];
    ASSERT_EQ(::pipe(pipes), 0);
    pid_t child = startChild([&] {
        openForWriting(home.path()).settings().update("k", "v", [&](const Setting*) {
            if (::write(pipes[1], "x", 1) != 1) throw Error(Fault::failed, "pipe");
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
            return std::optional(text("v", "child's"));
        });
        return 0;
    });
    char locked;
    ASSERT_EQ(::read(pipes[0], &locked, 1), 1);
    EXPECT_EQ(read(home.path(), "k", "v"), "1");  // readers do not wait
    std::string seen;
    openForWriting(home.path()).settings().update("k", "v", [&](const Setting* present) {
        seen = std::get<std::string>(present->content);
        return std::nullopt;
    });
    EXPECT_EQ(seen, "child's");
    EXPECT_EQ(waitForChild(child), 0);
    ::close(pipes[0]);
    ::close(pipes[1]);
}

TEST(Storage, ManyProcessesMakeTheStateAtOnce) {
    for (int round = 0; round < 5; ++round) {
        TempHome home;
        auto codes = runChildren(6, [&](int child) {
            openForWriting(home.path()).settings().put("k", text(std::to_string(child), "x"));
            return 0;
        });
        EXPECT_THAT(codes, Each(0));
        EXPECT_EQ(openForReading(home.path()).settings().settings("k", "", 100).size(), 6u);
    }
}

TEST(Storage, AForkedProcessForgetsTheThreadsItDoesNotHave) {
    TempHome home;
    std::promise<void> ready, end;
    std::thread other([&] {
        write(home.path(), "k", "1");
        ready.set_value();
        end.get_future().wait();
    });
    ready.get_future().wait();
    // In the child a thread comes to stand where the parent's stood; then it forks in its turn.
    auto codes = runChildren(1, [&](int) {
        ::alarm(20);
        int code = 1;
        std::thread([&] {
            write(home.path(), "k", "2");
            code = waitForChild(
                startChild([&] { return read(home.path(), "k", "v") == "2" ? 0 : 2; }));
        }).join();
        write(home.path(), "k", "3");
        return code;
    });
    end.set_value();
    other.join();
    EXPECT_THAT(codes, ElementsAre(0));
    EXPECT_EQ(read(home.path(), "k", "v"), "3");
}

TEST(Storage, AChangeThatThrowsLeavesNothing) {
    TempHome home;
    write(home.path(), "k", "1");
    EXPECT_THROW(openForWriting(home.path())
                     .settings()
                     .update("k", "v",
                             [](const Setting*) -> std::optional<Setting> {
                                 throw std::runtime_error("no");
                             }),
                 std::runtime_error);
    write(home.path(), "other", "2");
    EXPECT_EQ(read(home.path(), "k", "v"), "1");
}

TEST(Storage, AFullDiskFailsAndIsRecoveredFrom) {
    TempHome home;
    write(home.path(), "k", "1");
    auto codes = runChildren(1, [&](int) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit full{1 << 16, RLIM_INFINITY};
        if (::setrlimit(RLIMIT_FSIZE, &full) != 0) return 1;
        std::string big(1 << 18, 'x');
        if (faultOf([&] { write(home.path(), "k", big); }) != Fault::failed) return 2;
        if (read(home.path(), "k", "v") != "1") return 3;
        full.rlim_cur = RLIM_INFINITY;
        if (::setrlimit(RLIMIT_FSIZE, &full) != 0) return 4;
        write(home.path(), "k", big);
        return read(home.path(), "k", "v") == big ? 0 : 5;
    });
    EXPECT_THAT(codes, ElementsAre(0));
}

TEST(Storage, BigObjectsEndAPageEarlyAndNothingIsLeftOut) {
    TempHome home;
    Bytes hash(20, 1);
    std::vector<Bytes> all;
    {
        Access state = openForWriting(home.path());
        for (std::uint8_t i = 0; i < 12; ++i) {
            all.emplace_back(400'000, i);
            // The hash is shared by all: only the bytes tell them apart.
            const NewObject object{ObjectKind::crl, all.back(), hash, {}, {}, {}, {}};
            EXPECT_FALSE(state.stores().add("CA", object, IfPresent::refuse).wasPresent);
        }
        NewObject again{ObjectKind::crl, all[3], hash, {}, {}, {}, {}};
        EXPECT_EQ(state.stores().add("CA", again, IfPresent::refuse).row, 4);
    }
    Access state = openForReading(home.path());
    std::vector<Bytes> found;
    std::int64_t after = 0;
    for (Page page{{}, true}; page.more;) {
        page = state.stores().find({"CA", ObjectKind::crl, SearchBy::hash, hash}, after, 64);
        EXPECT_LE(page.objects.size(), 3u);
        for (const StoredObject& object : page.objects) found.push_back(object.encoded);
        if (!page.objects.empty()) after = page.objects.back().row;
    }
    EXPECT_EQ(found, all);
}

TEST(Storage, RowsAreNeverUsedTwice) {
    TempHome home;
    Access state = openForWriting(home.path());
    Bytes one{1}, two{2};
    NewObject object{ObjectKind::certificate, one, one, {}, {}, {}, {{5, {9}}}};
    std::int64_t first = state.stores().add("My", object, IfPresent::refuse).row;
    EXPECT_TRUE(state.stores().erase(first));
    EXPECT_FALSE(state.stores().erase(first));
    object.encoded = object.hash = two;
    object.properties.clear();
    std::int64_t second = state.stores().add("My", object, IfPresent::refuse).row;
    EXPECT_NE(first, second);
    EXPECT_FALSE(state.stores().setProperty(first, 5, &one));
    EXPECT_FALSE(state.stores().property(first, 5).has_value());
    EXPECT_FALSE(state.stores().property(second, 5).has_value());
}

}  // namespace
