#pragma once

#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/asn1/Buffers.h"
#include "platform/asn1/Time.h"
#include "platform/support/Time.h"

// Points and spans of time in ticks of 100 nanoseconds. Values of one machine word, without
// allocation or shared state. An operator that fails leaves its target as it was.

class CACMPT_Period;

/// A point in time: ticks since 1601-01-01 00:00:00 UTC, the epoch of `_FILETIME`.
class PKIXCMP_API CACMPT_Date {
public:
    /// The zero date of the records, 1970-01-01 00:00:00.
    constexpr CACMPT_Date() : CACMPT_Date(0, 0) {}
    /// Seconds and microseconds since 1970. Ten times the microseconds are kept in 32 bits.
    constexpr CACMPT_Date(long seconds, unsigned int microseconds)
        : CACMPT_Date(fromTicks(static_cast<std::uint64_t>(seconds) * 10000000u + UNIX_EPOCH +
                                microseconds * 10u)) {}
    CACMPT_Date(const timeval& time)
        : CACMPT_Date(time.tv_sec, static_cast<unsigned int>(time.tv_usec)) {}
    /// Truncated to a whole microsecond.
    CACMPT_Date(const _FILETIME& time) : CACMPT_Date(fromTicks(fileTimeTicks(time) / 10 * 10)) {}
    /// `date_exception` for a broken-down time that is no date.
    CACMPT_Date(const _SYSTEMTIME& time);
    /// From text "YYYYMMDDhhmmss[.f…]…". `CAException` "time value is too big" for anything that is
    /// no date.
    CACMPT_Date(const std::string& text);
    CACMPT_Date(const char* text);

    static CACMPT_Date Now();
    static bool is_valid_date(const std::string& text);

    _FILETIME getFileTime() const { return {low_, high_}; }
    /// Whole seconds since 1970, in unsigned arithmetic: very large for an earlier date.
    /// `CAException` for the largest signed tick count.
    std::time_t getTime() const;
    /// `getTime`, and as tv_usec only `microsecond()`, the part below one millisecond.
    timeval getTimeval() const;
    int year() const { return fields().wYear; }
    int month() const { return fields().wMonth; }
    int day() const { return fields().wDay; }
    int hour() const { return fields().wHour; }
    int minute() const { return fields().wMinute; }
    int second() const { return fields().wSecond; }
    int millisecond() const { return microsecondsInSecond() / 1000; }
    int microsecond() const { return microsecondsInSecond() % 1000; }  // 0..999
    /// "YYYYMMDDhhmmss", a fraction without trailing zeros if there is one, "Z".
    std::string getGeneralizedTime() const;
    /// "%d %b %Y %X" of the process locale, then milliseconds "." microseconds, neither padded.
    std::string tostring() const;
    std::wstring towstring() const;

    constexpr std::uint64_t ticks() const { return std::uint64_t{high_} << 32 | low_; }
    static constexpr CACMPT_Date fromTicks(std::uint64_t ticks) {
        return CACMPT_Date(Ticks{ticks});
    }

    friend constexpr bool operator==(const CACMPT_Date& a, const CACMPT_Date& b) {
        return a.ticks() == b.ticks();
    }
    friend constexpr auto operator<=>(const CACMPT_Date& a, const CACMPT_Date& b) {
        return a.ticks() <=> b.ticks();
    }

    /// Ticks between the epochs of `_FILETIME` and Unix.
    static constexpr std::uint64_t UNIX_EPOCH = 116444736000000000u;

private:
    struct Ticks {
        std::uint64_t count;
    };
    constexpr explicit CACMPT_Date(Ticks t)
        : high_(static_cast<std::uint32_t>(t.count >> 32)),
          low_(static_cast<std::uint32_t>(t.count)) {}
    _SYSTEMTIME fields() const;
    int microsecondsInSecond() const { return static_cast<int>(ticks() % 10000000u / 10u); }

    std::uint32_t high_;
    std::uint32_t low_;
};

/// A span of time in ticks. A month is 30 days and a year 365.
class PKIXCMP_API CACMPT_Period {
public:
    constexpr CACMPT_Period() : high_(0), low_(0) {}
    constexpr CACMPT_Period(unsigned int seconds, unsigned int microseconds)
        : CACMPT_Period(
              fromTicks(seconds * std::uint64_t{10000000} + microseconds * std::uint64_t{10})) {}
    /// From the text of `getGeneralizedTime`, whose fraction is read as microseconds; missing
    /// digits are zero.
    CACMPT_Period(const char* text);
    CACMPT_Period(const std::string& text) : CACMPT_Period(text.c_str()) {}

    static const CACMPT_Period OneYear;
    static const CACMPT_Period OneMonth;
    static const CACMPT_Period OneDay;
    static const CACMPT_Period OneHour;
    static const CACMPT_Period OneMinute;
    static const CACMPT_Period OneSecond;
    static const CACMPT_Period OneMilli;
    static const CACMPT_Period OneMicro;

    /// Sets the span from "day/month/year hour:minute:second"; seconds are worked out in 32 bits.
    /// `CAException` "wrong data format" unless all six are there.
    CACMPT_Period& from_normal(const char* text);
    void swap(CACMPT_Period& other) noexcept;
    /// Years, months, days, hours, minutes and seconds in fourteen digits or more, and a fraction
    /// in ticks without trailing zeros if there is one.
    std::string getGeneralizedTime() const;
    std::string tostring() const { return getGeneralizedTime(); }
    std::wstring towstring() const;

    /// Compares the tick counts.
    bool operator>(const CACMPT_Date& date) const { return ticks() > date.ticks(); }

    constexpr std::uint64_t ticks() const { return std::uint64_t{high_} << 32 | low_; }
    static constexpr CACMPT_Period fromTicks(std::uint64_t ticks) {
        CACMPT_Period p;
        p.high_ = static_cast<std::uint32_t>(ticks >> 32);
        p.low_ = static_cast<std::uint32_t>(ticks);
        return p;
    }

    friend constexpr bool operator==(const CACMPT_Period& a, const CACMPT_Period& b) {
        return a.ticks() == b.ticks();
    }
    friend constexpr auto operator<=>(const CACMPT_Period& a, const CACMPT_Period& b) {
        return a.ticks() <=> b.ticks();
    }

private:
    std::uint32_t high_;
    std::uint32_t low_;
};

// Sums fail only when they land exactly on 0x7FFFFFFFFFFFFFFF ("time value is too big") and wrap
// past it; differences fail below zero ("time value is too small"). All are `CAException`.
PKIXCMP_API CACMPT_Date& operator+=(CACMPT_Date& date, const CACMPT_Period& period);
PKIXCMP_API CACMPT_Date& operator-=(CACMPT_Date& date, const CACMPT_Period& period);
PKIXCMP_API CACMPT_Period& operator+=(CACMPT_Period& a, const CACMPT_Period& b);
PKIXCMP_API CACMPT_Period& operator-=(CACMPT_Period& a, const CACMPT_Period& b);
/// "time value is negative" when b is later.
PKIXCMP_API CACMPT_Period operator-(const CACMPT_Date& a, const CACMPT_Date& b);
/// Wraps without notice.
PKIXCMP_API CACMPT_Period& operator*=(CACMPT_Period& period, unsigned int factor);
// Signed division. A divisor of zero, and a quotient or remainder of 0x7FFFFFFF or more between
// spans, are "time value is too big".
PKIXCMP_API CACMPT_Period& operator/=(CACMPT_Period& period, unsigned int divisor);
PKIXCMP_API CACMPT_Period& operator%=(CACMPT_Period& period, unsigned int divisor);
PKIXCMP_API int operator/(const CACMPT_Period& a, const CACMPT_Period& b);
PKIXCMP_API int operator%(const CACMPT_Period& a, const CACMPT_Period& b);

inline CACMPT_Date operator+(CACMPT_Date date, const CACMPT_Period& period) {
    return date += period;
}
inline CACMPT_Date operator-(CACMPT_Date date, const CACMPT_Period& period) {
    return date -= period;
}
inline CACMPT_Period operator+(CACMPT_Period a, const CACMPT_Period& b) { return a += b; }
inline CACMPT_Period operator-(CACMPT_Period a, const CACMPT_Period& b) { return a -= b; }
inline CACMPT_Period operator*(CACMPT_Period period, unsigned int n) { return period *= n; }

/// Reads text by position; nothing is checked but that missing digits are zero. A date's year comes
/// less 1900 and its month less 1, a period's as they stand. `fraction` is in microseconds.
PKIXCMP_API std::tm GeneralizedTimeToTm(const std::string& text, unsigned int& fraction,
                                        bool period);
/// Ticks, or -1 for text that is no date.
PKIXCMP_API std::int64_t GeneralizedTimeToLongLong(const std::string& text);
/// `date_exception` for a file time without a date.
PKIXCMP_API std::tm FileTimeToTm(const _FILETIME& time);

// ASN.1 time text, type 1 UTCTime and 2 GeneralizedTime. Fractions of a second are dropped both
// ways.

/// `Asn1DecodeException` "Unknown time format." for any other type, `date_exception` for text that
/// is no time.
PKIXCMP_API void date1cpy(CACMPT_Date& date, const char* text, int type);
PKIXCMP_API void date1cpy(CACMPT_Date& date, std::string_view text, int type);
PKIXCMP_API void date1cpy(CACMPT_Date& date, const ASN1TString& text, int type);
/// Zero-terminated text in the buffer's context, null for any other type. `Asn1Exception` for a
/// date that the type cannot hold.
PKIXCMP_API const char* date2cpy(ASN1BEREncodeBuffer& buffer, const CACMPT_Date& date, int type);
PKIXCMP_API const char* date2cpy(ASN1BEREncodeBuffer& buffer, const CACMPT_Date& date,
                                 ASN1CTime& time);
