#include "platform/support/Time.h"

namespace {

constexpr std::uint64_t ticksPerMillisecond = 10'000;
constexpr std::uint64_t ticksPerDay = 86'400'000 * ticksPerMillisecond;
constexpr std::uint64_t endOfFileTime = 0x8000'0000'0000'0000;
constexpr int firstYear = 1601;
constexpr int lastYear = 30827;

constexpr bool isLeap(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int daysInMonth(int year, int month) {
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeap(year) ? 29 : days[month - 1];
}

/// Days from 1601-01-01 to the first day of a year from 1601 on.
constexpr std::int64_t daysBeforeYear(int year) {
    std::int64_t y = year - firstYear;
    return y * 365 + y / 4 - y / 100 + y / 400;
}

bool isValid(const _SYSTEMTIME& t) {
    return t.wYear >= firstYear && t.wYear <= lastYear && t.wMonth >= 1 && t.wMonth <= 12 &&
           t.wDay >= 1 && t.wDay <= daysInMonth(t.wYear, t.wMonth) && t.wHour < 24 &&
           t.wMinute < 60 && t.wSecond < 60 && t.wMilliseconds < 1000;
}

void setDate(std::int64_t day, _SYSTEMTIME& out) {
    int year = firstYear + static_cast<int>(day / 366);  // never too late, seldom a few too early
    while (daysBeforeYear(year + 1) <= day) ++year;
    std::int64_t rest = day - daysBeforeYear(year);
    int month = 1;
    for (; rest >= daysInMonth(year, month); ++month) rest -= daysInMonth(year, month);
    out.wYear = static_cast<std::uint16_t>(year);
    out.wMonth = static_cast<std::uint16_t>(month);
    out.wDay = static_cast<std::uint16_t>(rest + 1);
    out.wDayOfWeek = static_cast<std::uint16_t>((day + 1) % 7);  // 1601-01-01 was a Monday
}

}  // namespace

int SystemTimeToFileTime(const _SYSTEMTIME* system, _FILETIME* file) {
    if (system == nullptr || file == nullptr || !isValid(*system)) return 0;
    std::int64_t day = daysBeforeYear(system->wYear) + system->wDay - 1;
    for (int month = 1; month < system->wMonth; ++month) day += daysInMonth(system->wYear, month);
    std::uint64_t milliseconds =
        ((system->wHour * 60ULL + system->wMinute) * 60 + system->wSecond) * 1000 +
        system->wMilliseconds;
    std::uint64_t ticks =
        static_cast<std::uint64_t>(day) * ticksPerDay + milliseconds * ticksPerMillisecond;
    if (ticks >= endOfFileTime) return 0;
    *file = ticksToFileTime(ticks);
    return 1;
}

int FileTimeToSystemTime(const _FILETIME* file, _SYSTEMTIME* system) {
    if (file == nullptr || system == nullptr) return 0;
    std::uint64_t ticks = fileTimeTicks(*file);
    if (ticks >= endOfFileTime) return 0;
    setDate(static_cast<std::int64_t>(ticks / ticksPerDay), *system);
    std::uint64_t milliseconds = ticks % ticksPerDay / ticksPerMillisecond;
    system->wMilliseconds = static_cast<std::uint16_t>(milliseconds % 1000);
    system->wSecond = static_cast<std::uint16_t>(milliseconds / 1000 % 60);
    system->wMinute = static_cast<std::uint16_t>(milliseconds / 60'000 % 60);
    system->wHour = static_cast<std::uint16_t>(milliseconds / 3'600'000);
    return 1;
}

int CompareFileTime(const _FILETIME* a, const _FILETIME* b) {
    std::uint64_t x = fileTimeTicks(*a);
    std::uint64_t y = fileTimeTicks(*b);
    return x < y ? -1 : x > y;
}
