#include "platform/support/Support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <thread>

#include "platform/support/Home.h"
#include "platform/support/LastError.h"
#include "platform/support/Time.h"
#include "tests/TempHome.h"

namespace {

TEST(LastError, BelongsToItsThread) {
    SetLastError(5);
    std::thread([] {
        EXPECT_EQ(GetLastError(), 0u);
        SetLastError(6);
    }).join();
    EXPECT_EQ(GetLastError(), 5u);
}

TEST(LastError, TextsAreCutToTheBuffer) {
    const std::string full = "Access is denied.";
    for (std::uint32_t size : {0u, 1u, 2u, 17u, 18u, 40u}) {
        std::string buffer(64, '#');
        std::uint32_t length =
            FormatMessage(0x1200, nullptr, ERROR_ACCESS_DENIED, 0, buffer.data(), size, nullptr);
        EXPECT_EQ(length, size == 0 ? 0 : std::min<std::uint32_t>(17, size - 1));
        if (size > 0) {
            EXPECT_EQ(buffer.c_str(), full.substr(0, length));
        }
        EXPECT_EQ(buffer.substr(size), std::string(64 - size, '#'));
    }
    char buffer[64];
    EXPECT_EQ(FormatMessage(0x1200, nullptr, 0xDEADBEEF, 0, buffer, 64, nullptr), 0u);
    EXPECT_EQ(FormatMessage(0x0200, nullptr, ERROR_ACCESS_DENIED, 0, buffer, 64, nullptr), 0u);
}

TEST(Time, AgreesWithTheCLibrary) {
    constexpr std::uint64_t unixEpoch = 116444736000000000;
    // From 1601-01-01 in steps that fall on every kind of date, to beyond the year 9999.
    for (std::uint64_t ticks = 0; ticks < 2'650'000'000'000'000'000;
         ticks += 1'234'567'890'123'457) {
        FILETIME file = ticksToFileTime(ticks);
        SYSTEMTIME system{};
        ASSERT_TRUE(FileTimeToSystemTime(&file, &system));
        auto seconds = static_cast<std::int64_t>(ticks / 10'000'000) -
                       static_cast<std::int64_t>(unixEpoch / 10'000'000);
        std::tm judged{};
        std::time_t time = seconds;
        gmtime_r(&time, &judged);
        EXPECT_EQ(system.wYear, judged.tm_year + 1900);
        EXPECT_EQ(system.wMonth, judged.tm_mon + 1);
        EXPECT_EQ(system.wDay, judged.tm_mday);
        EXPECT_EQ(system.wDayOfWeek, judged.tm_wday);
        EXPECT_EQ(system.wHour, judged.tm_hour);
        EXPECT_EQ(system.wMinute, judged.tm_min);
        EXPECT_EQ(system.wSecond, judged.tm_sec);
        FILETIME back{};
        ASSERT_TRUE(SystemTimeToFileTime(&system, &back));
        EXPECT_EQ(fileTimeTicks(back), ticks - ticks % 10'000);
    }
}

TEST(Time, RefusesWhatTheCalendarHasNot) {
    struct {
        SYSTEMTIME time;
        bool good;
    } cases[] = {
        {{1601, 1, 0, 1, 0, 0, 0, 0}, true},         {{1600, 12, 0, 31, 23, 59, 59, 999}, false},
        {{30827, 12, 0, 31, 23, 59, 59, 999}, true}, {{30828, 1, 0, 1, 0, 0, 0, 0}, false},
        {{2000, 2, 0, 29, 0, 0, 0, 0}, true},        {{1900, 2, 0, 29, 0, 0, 0, 0}, false},
        {{2023, 2, 0, 29, 0, 0, 0, 0}, false},       {{2024, 2, 0, 29, 0, 0, 0, 0}, true},
        {{2024, 0, 0, 1, 0, 0, 0, 0}, false},        {{2024, 13, 0, 1, 0, 0, 0, 0}, false},
        {{2024, 4, 0, 31, 0, 0, 0, 0}, false},       {{2024, 4, 0, 0, 0, 0, 0, 0}, false},
        {{2024, 4, 0, 1, 24, 0, 0, 0}, false},       {{2024, 4, 0, 1, 0, 60, 0, 0}, false},
        {{2024, 4, 0, 1, 0, 0, 60, 0}, false},       {{2024, 4, 0, 1, 0, 0, 0, 1000}, false},
        {{2024, 4, 9, 1, 0, 0, 0, 0}, true},
    };
    for (auto& c : cases) {
        FILETIME file{};
        EXPECT_EQ(SystemTimeToFileTime(&c.time, &file) != 0, c.good)
            << c.time.wYear << "-" << c.time.wMonth << "-" << c.time.wDay;
    }
    FILETIME last = ticksToFileTime(0x7FFFFFFFFFFFFFFF);
    FILETIME beyond = ticksToFileTime(0x8000000000000000);
    SYSTEMTIME system{};
    EXPECT_TRUE(FileTimeToSystemTime(&last, &system));
    EXPECT_EQ(system.wYear, 30828);
    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &system));
    EXPECT_EQ(CompareFileTime(&last, &beyond), -1);
    EXPECT_EQ(CompareFileTime(&beyond, &last), 1);
    EXPECT_EQ(CompareFileTime(&last, &last), 0);
}

TEST(Support, BindsALibraryByItsVersionedName) {
    void* curl = support_load_library_registry("libcurl.so", 6);
    ASSERT_NE(curl, nullptr);
    void* address = nullptr;
    EXPECT_EQ(support_load_library_getaddr(curl, "curl_easy_init", &address), 0);
    EXPECT_NE(address, nullptr);
    EXPECT_NE(support_load_library_getaddr(curl, "curl_no_such_entry", &address), 0);
    EXPECT_NE(support_load_library_getaddr(nullptr, "curl_easy_init", &address), 0);
    support_unload_library_handle(curl);
    EXPECT_EQ(support_load_library_registry("libno-such-library.so", 6), nullptr);
    EXPECT_EQ(support_load_library_registry("", 6), nullptr);
    EXPECT_EQ(support_load_library_registry(nullptr, 6), nullptr);
}

TEST(Support, ErrorTexts) {
    EXPECT_STREQ(support_strerror(ENOENT), std::strerror(ENOENT));
    EXPECT_NE(support_strerror(123456), nullptr);
    std::string buffer(255, '#');
    EXPECT_EQ(support_error_text(SUPPORT_NO_RIGHTS, buffer.data(), 255), 0);
    EXPECT_STREQ(buffer.c_str(), "Not enough rights");
    EXPECT_EQ(support_error_text(SUPPORT_NO_RIGHTS, buffer.data(), 4), 0);
    EXPECT_STREQ(buffer.c_str(), "Not");
    EXPECT_NE(support_error_text(0x7777, buffer.data(), 255), 0);
    EXPECT_STREQ(buffer.c_str(), "");
    EXPECT_NE(support_error_text(SUPPORT_NO_RIGHTS, buffer.data(), 0), 0);
}

TEST(Home, FollowsTheEnvironmentAndMakesPrivateFolders) {
    TempHome home;
    const std::string own = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    std::filesystem::path data = home.path() / "data";
    struct {
        std::filesystem::path home, data;
        std::filesystem::path user, machine;
    } cases[] = {
        {home.path(), data, home.path() / "user", home.path() / "machine"},
        {"", data, data / "pkixcmp", ""},
        {"", "", home.path() / ".local/share/pkixcmp", ""},
    };
    ::setenv("HOME", home.path().c_str(), 1);
    for (auto& c : cases) {
        ::setenv("PKIXCMP_HOME", c.home.c_str(), 1);
        ::setenv("XDG_DATA_HOME", c.data.c_str(), 1);
        EXPECT_EQ(support::userHome(), c.user);
        struct stat status {};
        ASSERT_EQ(::stat(c.user.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0700u);
        if (!c.machine.empty()) {
            EXPECT_EQ(support::machineHome(), c.machine);
        }
    }
    ::setenv("HOME", own.c_str(), 1);
    ::unsetenv("XDG_DATA_HOME");
}

}  // namespace
