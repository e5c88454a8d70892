#pragma once

#include <cstdint>

#include "platform/Export.h"

// File times and broken-down times of the platform interface: proleptic Gregorian calendar, UTC.

/// Count of 100-nanosecond ticks since 1601-01-01 00:00:00 UTC, as two words.
struct _FILETIME {
    std::uint32_t dwLowDateTime;
    std::uint32_t dwHighDateTime;
};
using FILETIME = _FILETIME;

struct _SYSTEMTIME {
    std::uint16_t wYear;
    std::uint16_t wMonth;      // 1..12
    std::uint16_t wDayOfWeek;  // 0 is Sunday; ignored on input
    std::uint16_t wDay;
    std::uint16_t wHour;
    std::uint16_t wMinute;
    std::uint16_t wSecond;
    std::uint16_t wMilliseconds;
};
using SYSTEMTIME = _SYSTEMTIME;

/// Zero on refusal: a field out of its range, or a year outside 1601..30827.
PKIXCMP_API int SystemTimeToFileTime(const _SYSTEMTIME* system, _FILETIME* file);
/// Zero on refusal: a count of 0x8000000000000000 or more.
PKIXCMP_API int FileTimeToSystemTime(const _FILETIME* file, _SYSTEMTIME* system);
/// -1, 0 or 1.
PKIXCMP_API int CompareFileTime(const _FILETIME* a, const _FILETIME* b);

inline std::uint64_t fileTimeTicks(const _FILETIME& t) {
    return static_cast<std::uint64_t>(t.dwHighDateTime) << 32 | t.dwLowDateTime;
}
inline _FILETIME ticksToFileTime(std::uint64_t ticks) {
    return {static_cast<std::uint32_t>(ticks), static_cast<std::uint32_t>(ticks >> 32)};
}
