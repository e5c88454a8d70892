#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "platform/support/Support.h"
#include "tests/TempHome.h"
#include "tests/platform/Sql.h"

using namespace std::string_literals;
using testing::ElementsAre;

namespace {

struct FreeValue {
    void operator()(TSupportRegistrySearchValue* value) const {
        support_registry_value_free(value);
    }
};
using Value = std::unique_ptr<TSupportRegistrySearchValue, FreeValue>;

Value find(const char* path) {
    TSupportRegistrySearchValue* value = nullptr;
    support_registry_find(path, &value);
    return Value(value);
}

template <class Char>
std::string textOf(const TSupportRegistrySearchValue* value,
                   int (*getter)(const TSupportRegistrySearchValue*, std::size_t*, Char*)) {
    std::size_t count = 0;
    if (getter(value, &count, nullptr) != 0) return "<fails>";
    std::string text(count + 1, '#');
    if (getter(value, &count, reinterpret_cast<Char*>(text.data())) != 0) return "<fails>";
    text.resize(count);
    return text;
}

std::string stringAt(const char* path) {
    return textOf(find(path).get(), support_registry_value_string);
}

/// Names met on a walk, keys in brackets.
std::vector<std::string> walk(const char* path, bool keys) {
    TSupportRegistrySearch search = -1;
    EXPECT_EQ(support_registry_search_open(path, keys, &search), 0);
    std::vector<std::string> names;
    TSupportRegistrySearchValue* next = nullptr;
    int code = 0;
    while ((code = support_registry_search_next(search, &next)) == 0) {
        Value value(next);
        int type = -1;
        support_registry_value_type(next, &type);
        std::string name = textOf(next, support_registry_value_name);
        names.push_back(type == SUPPORT_REGISTRY_KEY ? "[" + name + "]" : name);
    }
    EXPECT_EQ(code, SUPPORT_NOT_FOUND);
    EXPECT_EQ(support_registry_search_close(search), 0);
    EXPECT_NE(support_registry_search_close(search), 0);
    return names;
}

/// Reads look at the file itself only now and then.
void waitUntilNoticed() { std::this_thread::sleep_for(std::chrono::milliseconds(15)); }

TEST(Settings, EveryTypeComesBackAndNoOtherGetterTakesIt) {
    TempHome home;
    const unsigned char bytes[] = {0, 1, 0xFF};
    ASSERT_EQ(support_registry_put_string("\\local\\a\\string", "текст"), 0);
    ASSERT_EQ(support_registry_put_long("\\local\\a\\long", LONG_MIN), 0);
    ASSERT_EQ(support_registry_put_long_long("\\local\\a\\longlong", LLONG_MAX), 0);
    ASSERT_EQ(support_registry_put_bool("\\local\\a\\bool", true), 0);
    ASSERT_EQ(support_registry_put_hex("\\local\\a\\hex", 3, bytes), 0);
    ASSERT_EQ(support_registry_put_hex("\\local\\a\\hexempty", 0, nullptr), 0);
    ASSERT_EQ(support_registry_put_multi_string("\\local\\a\\multi", "one\0two\0"), 0);
    ASSERT_EQ(support_registry_put_multi_string("\\local\\a\\multiempty", ""), 0);
    struct {
        const char* path;
        int type;
    } cases[] = {{"\\local\\a\\string", 1},   {"\\local\\a\\long", 2},
                 {"\\local\\a\\longlong", 3}, {"\\local\\a\\bool", 4},
                 {"\\local\\a\\hex", 5},      {"\\local\\a\\hexempty", 5},
                 {"\\local\\a\\multi", 6},    {"\\local\\a\\multiempty", 6}};
    std::size_t count = 0;
    long l = 0;
    long long ll = 0;
    bool b = false;
    for (auto& c : cases) {
        Value value = find(c.path);
        ASSERT_TRUE(value) << c.path;
        int type = -1;
        EXPECT_EQ(support_registry_value_type(value.get(), &type), 0);
        EXPECT_EQ(type, c.type) << c.path;
        auto expected = [&](int t) { return t == c.type ? SUPPORT_OK : SUPPORT_BAD_TYPE; };
        EXPECT_EQ(support_registry_value_string(value.get(), &count, nullptr), expected(1));
        EXPECT_EQ(support_registry_value_long(value.get(), &l), expected(2));
        EXPECT_EQ(support_registry_value_long_long(value.get(), &ll), expected(3));
        EXPECT_EQ(support_registry_value_bool(value.get(), &b), expected(4));
        EXPECT_EQ(support_registry_value_hex(value.get(), &count, nullptr), expected(5));
        EXPECT_EQ(support_registry_value_multi_string(value.get(), &count, nullptr), expected(6));
    }
    EXPECT_EQ(l, LONG_MIN);
    EXPECT_EQ(ll, LLONG_MAX);
    EXPECT_TRUE(b);
    EXPECT_EQ(stringAt("\\local\\a\\string"), "текст");
    EXPECT_EQ(textOf(find("\\local\\a\\hex").get(), support_registry_value_hex), "\0\1\xFF"s);
    EXPECT_EQ(textOf(find("\\local\\a\\hexempty").get(), support_registry_value_hex), "");
    EXPECT_EQ(textOf(find("\\local\\a\\multi").get(), support_registry_value_multi_string),
              "one\0two\0\0"s);
    EXPECT_EQ(textOf(find("\\local\\a\\multiempty").get(), support_registry_value_multi_string),
              "\0\0"s);
    long number = 0;
    EXPECT_EQ(support_registry_get_long("\\local\\a\\long", &number), 0);
    EXPECT_EQ(number, LONG_MIN);
    EXPECT_EQ(support_registry_get_long("\\local\\a\\string", &number), SUPPORT_BAD_TYPE);
    EXPECT_EQ(support_registry_get_long("\\local\\a\\none", &number), SUPPORT_NOT_FOUND);
}

TEST(Settings, TextsNeedRoomForTheirZero) {
    TempHome home;
    ASSERT_EQ(support_registry_put_string("\\local\\s", "four"), 0);
    Value value = find("\\local\\s");
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    std::size_t count = 3;
    EXPECT_EQ(support_registry_value_string(value.get(), &count, buffer), SUPPORT_MORE_DATA);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(support_registry_value_string(value.get(), &count, buffer), 0);
    EXPECT_STREQ(buffer, "four");
    EXPECT_EQ(buffer[5], '#');
    EXPECT_EQ(support_registry_value_string(value.get(), nullptr, buffer), SUPPORT_INVALID);
    EXPECT_EQ(support_registry_value_string(nullptr, &count, buffer), SUPPORT_INVALID);
}

TEST(Settings, PathsAreCaseSensitiveAndForgiveDoubledBackslashes) {
    TempHome home;
    ASSERT_EQ(support_registry_put_string("\\local\\ca\\name", "lower"), 0);
    ASSERT_EQ(support_registry_put_string("\\local\\CA\\name", "upper"), 0);
    EXPECT_EQ(stringAt("\\local\\ca\\name"), "lower");
    EXPECT_EQ(stringAt("\\local\\CA\\\\name"), "upper");
    EXPECT_FALSE(find("\\local\\ca"));
    std::string longest = "\\" + std::string(40000, 'x');
    for (const char* bad : {"", "local\\ca", "\\", "\\\\", longest.c_str()}) {
        EXPECT_EQ(support_registry_put_long(bad, 1), SUPPORT_INVALID) << bad;
        TSupportRegistrySearchValue* value = nullptr;
        EXPECT_EQ(support_registry_find(bad, &value), SUPPORT_INVALID) << bad;
    }
    EXPECT_EQ(support_registry_put_long(nullptr, 1), SUPPORT_INVALID);
    EXPECT_EQ(support_registry_put_string("\\a", nullptr), SUPPORT_INVALID);
}

TEST(Settings, SidesOfReadingAndWriting) {
    TempHome home;
    ASSERT_EQ(support_registry_put_string("\\config\\p\\v", "machine"), 0);
    EXPECT_FALSE(std::filesystem::exists(home.path() / "user/pkixcmp.db"));
    EXPECT_EQ(stringAt("\\config\\p\\v"), "machine");
    ASSERT_EQ(support_registry_put_string("\\configuration\\v", "user"), 0);
    EXPECT_TRUE(std::filesystem::exists(home.path() / "user/pkixcmp.db"));
    // The user's own value of the same path stands in front: made here by exchanging the sides.
    std::filesystem::rename(home.path() / "machine", home.path() / "kept");
    ASSERT_EQ(support_registry_put_string("\\config\\p\\v", "user's"), 0);
    std::filesystem::rename(home.path() / "user", home.path() / "dropped");
    std::filesystem::rename(home.path() / "machine", home.path() / "user");
    std::filesystem::rename(home.path() / "kept", home.path() / "machine");
    waitUntilNoticed();
    EXPECT_EQ(stringAt("\\config\\p\\v"), "user's");
    EXPECT_THAT(walk("\\config\\p", false), ElementsAre("v"));
    EXPECT_EQ(support_registry_delete_param("\\config\\p\\v"), 0);
    EXPECT_EQ(stringAt("\\config\\p\\v"), "user's");
    EXPECT_EQ(support_registry_delete_param("\\config\\p\\v"), SUPPORT_NOT_FOUND);
}

TEST(Settings, RemovingNothingMakesNoDatabase) {
    TempHome home;
    EXPECT_EQ(support_registry_delete_param("\\local\\none"), SUPPORT_NOT_FOUND);
    EXPECT_FALSE(find("\\local\\none"));
    EXPECT_TRUE(walk("\\local", true).empty());
    EXPECT_FALSE(std::filesystem::exists(home.path() / "user/pkixcmp.db"));
}

TEST(Settings, WalksGoInOrderOverManyPagesAndBothSides) {
    TempHome home;
    std::vector<std::string> expected;
    for (int i = 0; i < 200; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "v%03d", i);
        std::string path = "\\config\\k\\" + std::string(name);
        ASSERT_EQ(support_registry_put_long(path.c_str(), i), 0);
        expected.push_back(name);
    }
    EXPECT_EQ(walk("\\config\\k", false), expected);
    for (const char* path :
         {"\\config\\k\\sub\\x", "\\config\\k\\sub!\\x", "\\config\\k\\sub\\y\\z",
          "\\config\\k\\v000\\deep\\er", "\\config\\kk\\x"}) {
        ASSERT_EQ(support_registry_put_long(path, 1), 0);
    }
    expected.insert(expected.begin(), {"[sub]", "[sub!]"});
    expected.insert(expected.begin() + 3, "[v000]");
    EXPECT_EQ(walk("\\config\\k", true), expected);
    EXPECT_THAT(walk("\\config", true), ElementsAre("[k]", "[kk]"));
    EXPECT_THAT(walk("\\", true), ElementsAre("[config]"));
}

TEST(Settings, WalkHandlesCopyAndCompare) {
    TempHome home;
    for (const char* path : {"\\local\\k\\a", "\\local\\k\\b", "\\local\\k\\c"}) {
        ASSERT_EQ(support_registry_put_long(path, 1), 0);
    }
    auto step = [](TSupportRegistrySearch search) {
        TSupportRegistrySearchValue* value = nullptr;
        int code = support_registry_search_next(search, &value);
        std::string name = code == 0 ? textOf(value, support_registry_value_name) : "end";
        support_registry_value_free(value);
        return name;
    };
    TSupportRegistrySearch one = -1, two = -1;
    ASSERT_EQ(support_registry_search_open("\\local\\k", false, &one), 0);
    EXPECT_EQ(step(one), "a");
    ASSERT_EQ(support_registry_search_cpy(one, &two), 0);
    EXPECT_EQ(support_registry_search_cmp(one, two), 0);
    EXPECT_EQ(step(two), "b");
    EXPECT_NE(support_registry_search_cmp(one, two), 0);
    EXPECT_EQ(step(one), "b");
    EXPECT_EQ(support_registry_search_cmp(one, two), 0);
    EXPECT_EQ(step(one), "c");
    EXPECT_EQ(step(one), "end");
    EXPECT_EQ(step(one), "end");
    support_registry_search_close(one);
    EXPECT_EQ(step(two), "c");
    support_registry_search_close(two);
    TSupportRegistrySearchValue* value = nullptr;
    for (TSupportRegistrySearch bad :
         {one, TSupportRegistrySearch{-1}, TSupportRegistrySearch{0}}) {
        EXPECT_EQ(support_registry_search_next(bad, &value), SUPPORT_INVALID);
        EXPECT_EQ(support_registry_search_cpy(bad, &two), SUPPORT_INVALID);
        EXPECT_NE(support_registry_search_cmp(bad, bad), 0);
    }
}

TEST(Settings, ValuesCompareByNameTypeAndContent) {
    TempHome home;
    ASSERT_EQ(support_registry_put_long("\\local\\a\\v", 1), 0);
    ASSERT_EQ(support_registry_put_long("\\local\\b\\v", 1), 0);
    ASSERT_EQ(support_registry_put_bool("\\local\\c\\v", true), 0);
    ASSERT_EQ(support_registry_put_long("\\local\\a\\w", 1), 0);
    Value a = find("\\local\\a\\v");
    TSupportRegistrySearchValue* copy = nullptr;
    ASSERT_EQ(support_registry_value_cpy(a.get(), &copy), 0);
    Value owned(copy);
    EXPECT_EQ(support_registry_value_cmp(a.get(), copy), 0);
    EXPECT_EQ(support_registry_value_cmp(a.get(), find("\\local\\b\\v").get()), 0);
    EXPECT_NE(support_registry_value_cmp(a.get(), find("\\local\\c\\v").get()), 0);
    EXPECT_NE(support_registry_value_cmp(a.get(), find("\\local\\a\\w").get()), 0);
    EXPECT_NE(support_registry_value_cmp(a.get(), nullptr), 0);
}

const char* increment(const char* present, void*) {
    thread_local std::string next;
    next = std::to_string(present == nullptr ? 1 : std::atol(present) + 1);
    return next.c_str();
}

int addOne(const char* path) { return support_registry_update_string(path, increment, nullptr); }

TEST(Settings, UpdatesOfManyProcessesAndThreadsAllCount) {
    TempHome home;
    constexpr int processes = 4, threads = 2, updates = 60;
    // A connection of this process is open while it forks.
    ASSERT_EQ(support_registry_put_string("\\local\\ca\\certnum", "0"), 0);
    auto codes = runChildren(processes, [&](int) {
        std::atomic<int> failures = 0;
        auto work = [&] {
            for (int i = 0; i < updates; ++i) failures += addOne("\\local\\ca\\certnum") != 0;
        };
        std::thread other(work);
        work();
        other.join();
        return failures == 0 ? 0 : 1;
    });
    EXPECT_THAT(codes, testing::Each(0));
    EXPECT_EQ(stringAt("\\local\\ca\\certnum"), std::to_string(processes * threads * updates));
}

TEST(Settings, UpdateRules) {
    TempHome home;
    auto keep = [](const char*, void*) -> const char* { return nullptr; };
    EXPECT_EQ(support_registry_update_string("\\local\\n", keep, nullptr), 0);
    EXPECT_FALSE(find("\\local\\n"));
    ASSERT_EQ(support_registry_put_long("\\local\\long", 5), 0);
    EXPECT_EQ(addOne("\\local\\long"), SUPPORT_BAD_TYPE);
    EXPECT_EQ(support_registry_update_string("\\local\\n", nullptr, nullptr), SUPPORT_INVALID);
    // The change may not come back into the settings it is changing: told, not hung.
    auto nested = [](const char*, void* code) -> const char* {
        *static_cast<int*>(code) = support_registry_put_long("\\local\\other", 1);
        return "done";
    };
    int inner = 0;
    EXPECT_EQ(support_registry_update_string("\\local\\n", nested, &inner), 0);
    EXPECT_EQ(inner, SUPPORT_FAILED);
    EXPECT_EQ(stringAt("\\local\\n"), "done");
}

TEST(Settings, SurviveWritersKilledAtAnyMoment) {
    TempHome home;
    std::mt19937 random(20240229);
    long acknowledged = 0;
    for (int round = 0; round < 25; ++round) {
        int pipes[2];
        ASSERT_EQ(::pipe(pipes), 0);
        pid_t child = startChild([&] {
            for (;;) {
                if (addOne("\\local\\ca\\certnum") != 0 ||
                    support_registry_put_long("\\local\\ca\\other", round) != 0 ||
                    ::write(pipes[1], "x", 1) != 1) {
                    return 1;
                }
            }
        });
        ::close(pipes[1]);
        char byte;
        ASSERT_EQ(::read(pipes[0], &byte, 1), 1);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        ::kill(child, SIGKILL);
        EXPECT_EQ(waitForChild(child), -SIGKILL);
        ++acknowledged;
        while (::read(pipes[0], &byte, 1) == 1) ++acknowledged;
        ::close(pipes[0]);
        // Nothing acknowledged is lost; at most the one in hand came on top.
        long counted = std::atol(stringAt("\\local\\ca\\certnum").c_str());
        EXPECT_GE(counted, acknowledged);
        EXPECT_LE(counted, acknowledged + 1);
        acknowledged = counted;
    }
}

TEST(Settings, AForkWithOtherThreadsAtWorkLosesNothing) {
    TempHome home;
    std::atomic<bool> stop = false;
    std::atomic<int> written = 0;
    std::thread writer([&] {
        while (!stop) written += addOne("\\local\\thread") == 0;
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(waitForChild(startChild([] { return addOne("\\local\\child"); })), 0);
    }
    stop = true;
    writer.join();
    EXPECT_EQ(stringAt("\\local\\child"), "20");
    EXPECT_EQ(stringAt("\\local\\thread"), std::to_string(written));
}

TEST(Settings, AHomeThatIsReplacedIsNoticed) {
    TempHome home;
    ASSERT_EQ(support_registry_put_string("\\local\\v", "first"), 0);
    std::filesystem::rename(home.path() / "user", home.path() / "old");
    waitUntilNoticed();
    EXPECT_FALSE(find("\\local\\v"));
    ASSERT_EQ(support_registry_put_string("\\local\\v", "second"), 0);
    EXPECT_EQ(stringAt("\\local\\v"), "second");
    std::filesystem::path second = home.path() / "another";
    ::setenv("PKIXCMP_HOME", second.c_str(), 1);
    EXPECT_FALSE(find("\\local\\v"));
}

TEST(Settings, DamagedAndForeignDatabasesFailClearly) {
    auto overwrite = [](const std::filesystem::path& file, std::size_t at, std::size_t count) {
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(at));
        stream << std::string(count, '\xA5');
    };
    std::function<void(const std::filesystem::path&)> damages[] = {
        [&](auto& file) { overwrite(file, 0, 100); },
        [&](auto& file) { overwrite(file, 100, std::filesystem::file_size(file) - 100); },
        [&](auto& file) { std::filesystem::resize_file(file, 5000); },
        [&](auto& file) { std::ofstream(file) << "no database at all, but long enough to be one"; },
        [&](auto& file) { sql(file, "PRAGMA user_version=2"); },
        [&](auto& file) { sql(file, "PRAGMA application_id=7"); },
        [&](auto& file) { sql(file, "DROP TABLE settings"); },
    };
    for (std::size_t i = 0; i < std::size(damages); ++i) {
        TempHome home;
        // In a thread that ends, so that the file is closed and complete when it is damaged.
        std::thread([] {
            const std::string value(3000, 'v');  // so that a few values fill many pages
            for (int n = 0; n < 20; ++n) {
                std::string path = "\\local\\k\\" + std::to_string(n);
                ASSERT_EQ(support_registry_put_string(path.c_str(), value.c_str()), 0);
            }
        }).join();
        std::filesystem::path file = home.path() / "user/pkixcmp.db";
        ASSERT_FALSE(std::filesystem::exists(home.path() / "user/pkixcmp.db-wal"));
        damages[i](file);
        TSupportRegistrySearchValue* value = nullptr;
        EXPECT_EQ(support_registry_find("\\local\\k\\15", &value), SUPPORT_FAILED) << i;
        EXPECT_EQ(value, nullptr);
        EXPECT_EQ(support_registry_put_long("\\local\\k\\15", 1), SUPPORT_FAILED) << i;
    }
}

TEST(Settings, ValuesOfNoTypeOfOursAreBad) {
    TempHome home;
    ASSERT_EQ(support_registry_put_string("\\local\\v", "text"), 0);
    const auto file = home.path() / "user/pkixcmp.db";
    sql(file, "UPDATE settings SET content=7");
    std::size_t count = 0;
    EXPECT_EQ(support_registry_value_string(find("\\local\\v").get(), &count, nullptr),
              SUPPORT_BAD_VALUE);
    // A list of strings that does not end as one would be read beyond its end.
    for (const char* content : {"x''", "x'00'", "x'6100'", "x'61'", "x'0061'"}) {
        sql(file, "UPDATE settings SET type=6, content="s + content);
        EXPECT_EQ(support_registry_value_multi_string(find("\\local\\v").get(), &count, nullptr),
                  SUPPORT_BAD_VALUE)
            << content;
    }
}

TEST(Settings, RightsOfOthersAreNotNeeded) {
    TempHome home;
    ASSERT_EQ(support_registry_put_string("\\config\\v", "machine's"), 0);
    int code = runWithoutMachineRights(home, [] {
        if (find("\\config\\v")) return 3;
        if (support_registry_put_string("\\config\\v", "mine") != SUPPORT_NO_RIGHTS) return 4;
        if (support_registry_put_string("\\local\\v", "mine") != 0) return 5;
        return stringAt("\\local\\v") == "mine" ? 0 : 6;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(stringAt("\\config\\v"), "machine's");
    struct stat status {};
    ASSERT_EQ(::stat((home.path() / "user/pkixcmp.db").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

}  // namespace
