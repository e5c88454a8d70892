#include "capilite/Date.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

#include "capilite/AsnTime.h"
#include "capilite/CAException.h"
#include "capilite/Strings.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Runtime.h"

namespace {

constexpr std::uint64_t TICKS_PER_SECOND = 10000000;
constexpr std::uint64_t LIMIT = 0x7FFFFFFFFFFFFFFF;
constexpr std::size_t DATE_DIGITS = 14;

constexpr int SECONDS_PER_MINUTE = 60;
constexpr int SECONDS_PER_HOUR = 60 * SECONDS_PER_MINUTE;
constexpr int SECONDS_PER_DAY = 24 * SECONDS_PER_HOUR;
constexpr int SECONDS_PER_MONTH = 30 * SECONDS_PER_DAY;
constexpr int SECONDS_PER_YEAR = 365 * SECONDS_PER_DAY;

constexpr const char* TOO_BIG = "time value is too big";
constexpr const char* TOO_SMALL = "time value is too small";
constexpr const char* INVALID = "ivalid time value";

__attribute__((format(printf, 1, 2))) std::string print(const char* format, ...) {
    char text[128];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

/// Takes the zeros off the end of a fraction, and its point when nothing is left of it.
void trimFraction(std::string& text) {
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
}

_SYSTEMTIME toSystemTime(const std::tm& tm) {
    auto field = [](int value) { return static_cast<std::uint16_t>(value); };
    return {field(tm.tm_year + 1900), field(tm.tm_mon + 1), 0, field(tm.tm_mday), field(tm.tm_hour),
            field(tm.tm_min),         field(tm.tm_sec),     0};
}

std::int64_t signedTicks(const CACMPT_Period& period) {
    return static_cast<std::int64_t>(period.ticks());
}

std::uint64_t addTicks(std::uint64_t a, std::uint64_t b) {
    std::uint64_t sum = a + b;
    if (sum == LIMIT) PKIXCMP_THROW(CAException, TOO_BIG);
    return sum;
}

std::uint64_t subtractTicks(std::uint64_t a, std::uint64_t b) {
    if (b > a) PKIXCMP_THROW(CAException, TOO_SMALL);
    return a - b;
}

int narrowQuotient(std::int64_t value) {
    if (value >= 0x7FFFFFFF) PKIXCMP_THROW(CAException, TOO_BIG);
    return static_cast<int>(value);
}

/// What a division must not meet: the machine has no result for either.
void checkDivision(std::int64_t dividend, std::int64_t divisor) {
    if (divisor == 0 || (dividend == INT64_MIN && divisor == -1)) {
        PKIXCMP_THROW(CAException, TOO_BIG);
    }
}

[[noreturn]] void throwRuntime(ASN1CTXT* ctxt) { PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt)); }

}  // namespace

// ---- Broken-down times ----

std::tm GeneralizedTimeToTm(const std::string& text, unsigned int& fraction, bool period) {
    const char* s = text.c_str();
    std::size_t length = std::char_traits<char>::length(s);
    auto number = [s, length](std::size_t at, std::size_t count) {
        int value = 0;
        for (std::size_t i = at; i < at + count; ++i) {
            value = value * 10 + (i < length ? s[i] - '0' : 0);
        }
        return value;
    };
    std::tm tm{};
    tm.tm_year = number(0, 4) - (period ? 0 : 1900);
    tm.tm_mon = number(4, 2) - (period ? 0 : 1);
    tm.tm_mday = number(6, 2);
    tm.tm_hour = number(8, 2);
    tm.tm_min = number(10, 2);
    tm.tm_sec = number(12, 2);
    fraction = 0;
    if (length <= DATE_DIGITS || s[DATE_DIGITS] != '.') return tm;
    int digits = 0;
    for (const char* p = s + DATE_DIGITS + 1; digits < 6 && *p != 'Z' && *p != '\0'; ++p) {
        fraction = fraction * 10 + static_cast<unsigned int>(*p - '0');
        ++digits;
    }
    for (; digits < 6; ++digits) fraction *= 10;
    return tm;
}

std::int64_t GeneralizedTimeToLongLong(const std::string& text) {
    if (std::char_traits<char>::length(text.c_str()) < DATE_DIGITS) return -1;
    unsigned int fraction = 0;
    _SYSTEMTIME system = toSystemTime(GeneralizedTimeToTm(text, fraction, false));
    _FILETIME file{};
    if (!SystemTimeToFileTime(&system, &file)) return -1;
    return static_cast<std::int64_t>(fileTimeTicks(file) + std::uint64_t{fraction} * 10);
}

std::tm FileTimeToTm(const _FILETIME& time) {
    _SYSTEMTIME system{};
    if (!FileTimeToSystemTime(&time, &system)) PKIXCMP_THROW(date_exception, INVALID);
    std::tm tm{};
    tm.tm_year = system.wYear - 1900;
    tm.tm_mon = system.wMonth - 1;
    tm.tm_mday = system.wDay;
    tm.tm_wday = system.wDayOfWeek;
    tm.tm_hour = system.wHour;
    tm.tm_min = system.wMinute;
    tm.tm_sec = system.wSecond;
    return tm;
}

// ---- CACMPT_Date ----

CACMPT_Date::CACMPT_Date(const _SYSTEMTIME& time) : CACMPT_Date() {
    _FILETIME file{};
    if (!SystemTimeToFileTime(&time, &file)) PKIXCMP_THROW(date_exception, INVALID);
    *this = CACMPT_Date(file);
}

CACMPT_Date::CACMPT_Date(const std::string& text) : CACMPT_Date() {
    std::int64_t count = GeneralizedTimeToLongLong(text);
    if (count == -1) PKIXCMP_THROW(CAException, TOO_BIG);
    *this = fromTicks(static_cast<std::uint64_t>(count));
}

CACMPT_Date::CACMPT_Date(const char* text) : CACMPT_Date(std::string(text ? text : "")) {}

CACMPT_Date CACMPT_Date::Now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return CACMPT_Date(now.tv_sec, static_cast<unsigned int>(now.tv_usec));
}

bool CACMPT_Date::is_valid_date(const std::string& text) {
    return GeneralizedTimeToLongLong(text) != -1;
}

std::time_t CACMPT_Date::getTime() const {
    if (ticks() == LIMIT) PKIXCMP_THROW(CAException, TOO_BIG);
    return static_cast<std::time_t>((ticks() - UNIX_EPOCH) / TICKS_PER_SECOND);
}

timeval CACMPT_Date::getTimeval() const { return {getTime(), microsecond()}; }

_SYSTEMTIME CACMPT_Date::fields() const {
    _FILETIME file = getFileTime();
    _SYSTEMTIME system{};
    FileTimeToSystemTime(&file, &system);
    return system;
}

std::string CACMPT_Date::getGeneralizedTime() const {
    std::tm tm = FileTimeToTm(getFileTime());
    std::string text = print("%04d%02d%02d%02d%02d%02d", tm.tm_year + 1900, tm.tm_mon + 1,
                             tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
    text += print(".%06d", microsecondsInSecond());
    trimFraction(text);
    return text + 'Z';
}

std::string CACMPT_Date::tostring() const {
    std::tm tm = FileTimeToTm(getFileTime());
    char text[1024];
    std::size_t length = std::strftime(text, sizeof text, "%d %b %Y %X", &tm);
    return std::string(text, length) + print(" %d.%d", millisecond(), microsecond());
}

std::wstring CACMPT_Date::towstring() const {
    std::tm tm = FileTimeToTm(getFileTime());
    wchar_t text[1024];
    std::size_t length = std::wcsftime(text, sizeof text / sizeof *text, L"%d %b %Y %X", &tm);
    return std::wstring(text, length) + ::towstring(print(" %d.%d", millisecond(), microsecond()));
}

// ---- CACMPT_Period ----

constinit const CACMPT_Period CACMPT_Period::OneYear = fromTicks(315360000000000);
constinit const CACMPT_Period CACMPT_Period::OneMonth = fromTicks(25920000000000);
constinit const CACMPT_Period CACMPT_Period::OneDay = fromTicks(864000000000);
constinit const CACMPT_Period CACMPT_Period::OneHour = fromTicks(36000000000);
constinit const CACMPT_Period CACMPT_Period::OneMinute = fromTicks(600000000);
constinit const CACMPT_Period CACMPT_Period::OneSecond = fromTicks(10000000);
constinit const CACMPT_Period CACMPT_Period::OneMilli = fromTicks(10000);
constinit const CACMPT_Period CACMPT_Period::OneMicro = fromTicks(10);

CACMPT_Period::CACMPT_Period(const char* text) : CACMPT_Period() {
    unsigned int fraction = 0;
    std::tm tm = GeneralizedTimeToTm(text ? text : "", fraction, true);
    std::int64_t days = std::int64_t{tm.tm_year} * 365 + tm.tm_mon * 30 + tm.tm_mday;
    std::int64_t seconds = ((days * 24 + tm.tm_hour) * 60 + tm.tm_min) * 60 + tm.tm_sec;
    *this = fromTicks(static_cast<std::uint64_t>(seconds) * TICKS_PER_SECOND +
                      std::uint64_t{fraction} * 10);
}

CACMPT_Period& CACMPT_Period::from_normal(const char* text) {
    int day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (text == nullptr ||
        std::sscanf(text, "%d/%d/%d %d:%d:%d", &day, &month, &year, &hour, &minute, &second) != 6) {
        PKIXCMP_THROW(CAException, "wrong data format");
    }
    // Worked out in 32 bits, which a span of 136 years exceeds: it wraps.
    auto part = [](int count, unsigned int seconds) {
        return static_cast<unsigned int>(count) * seconds;
    };
    unsigned int total = part(day, SECONDS_PER_DAY) + part(month, SECONDS_PER_MONTH) +
                         part(year, SECONDS_PER_YEAR) + part(hour, SECONDS_PER_HOUR) +
                         part(minute, SECONDS_PER_MINUTE) + part(second, 1);
    return *this = fromTicks(total * TICKS_PER_SECOND);
}

void CACMPT_Period::swap(CACMPT_Period& other) noexcept {
    CACMPT_Period mine = *this;
    *this = other;
    other = mine;
}

std::string CACMPT_Period::getGeneralizedTime() const {
    std::int64_t count = signedTicks(*this);
    std::int64_t years = count / signedTicks(OneYear);
    std::int64_t rest =
        count / static_cast<std::int64_t>(TICKS_PER_SECOND) - years * SECONDS_PER_YEAR;
    auto take = [&rest](std::int64_t unit) {
        std::int64_t whole = rest / unit;
        rest -= whole * unit;
        return static_cast<unsigned int>(whole);
    };
    unsigned int months = take(SECONDS_PER_MONTH), days = take(SECONDS_PER_DAY);
    unsigned int hours = take(SECONDS_PER_HOUR), minutes = take(SECONDS_PER_MINUTE);
    std::string text = print("%04u%02u%02u%02u%02u%02u", static_cast<unsigned int>(years), months,
                             days, hours, minutes, static_cast<unsigned int>(rest));
    text += print(".%06u",
                  static_cast<unsigned int>(count % static_cast<std::int64_t>(TICKS_PER_SECOND)));
    trimFraction(text);
    return text;
}

std::wstring CACMPT_Period::towstring() const { return ::towstring(getGeneralizedTime()); }

// ---- Arithmetic ----

CACMPT_Date& operator+=(CACMPT_Date& date, const CACMPT_Period& period) {
    return date = CACMPT_Date::fromTicks(addTicks(date.ticks(), period.ticks()));
}

CACMPT_Date& operator-=(CACMPT_Date& date, const CACMPT_Period& period) {
    return date = CACMPT_Date::fromTicks(subtractTicks(date.ticks(), period.ticks()));
}

CACMPT_Period& operator+=(CACMPT_Period& a, const CACMPT_Period& b) {
    return a = CACMPT_Period::fromTicks(addTicks(a.ticks(), b.ticks()));
}

CACMPT_Period& operator-=(CACMPT_Period& a, const CACMPT_Period& b) {
    return a = CACMPT_Period::fromTicks(subtractTicks(a.ticks(), b.ticks()));
}

CACMPT_Period operator-(const CACMPT_Date& a, const CACMPT_Date& b) {
    std::uint64_t difference = a.ticks() - b.ticks();
    if (static_cast<std::int64_t>(difference) < 0) {
        PKIXCMP_THROW(CAException, "time value is negative");
    }
    return CACMPT_Period::fromTicks(difference);
}

CACMPT_Period& operator*=(CACMPT_Period& period, unsigned int factor) {
    return period = CACMPT_Period::fromTicks(period.ticks() * factor);
}

CACMPT_Period& operator/=(CACMPT_Period& period, unsigned int divisor) {
    checkDivision(signedTicks(period), divisor);
    return period = CACMPT_Period::fromTicks(
               static_cast<std::uint64_t>(signedTicks(period) / std::int64_t{divisor}));
}

CACMPT_Period& operator%=(CACMPT_Period& period, unsigned int divisor) {
    checkDivision(signedTicks(period), divisor);
    return period = CACMPT_Period::fromTicks(
               static_cast<std::uint64_t>(signedTicks(period) % std::int64_t{divisor}));
}

int operator/(const CACMPT_Period& a, const CACMPT_Period& b) {
    checkDivision(signedTicks(a), signedTicks(b));
    return narrowQuotient(signedTicks(a) / signedTicks(b));
}

int operator%(const CACMPT_Period& a, const CACMPT_Period& b) {
    checkDivision(signedTicks(a), signedTicks(b));
    return narrowQuotient(signedTicks(a) % signedTicks(b));
}

// ---- ASN.1 time text ----

void date1cpy(CACMPT_Date& date, std::string_view text, int type) {
    ASN1BEREncodeBuffer buffer;
    auto read = [&date](const ASN1CTime& time) {
        auto field = [](int value) { return static_cast<std::uint16_t>(value); };
        // A text that is no time gives codes below zero, which the calendar refuses.
        date = CACMPT_Date(_SYSTEMTIME{field(time.getYear()), field(time.getMonth()), 0,
                                       field(time.getDay()), field(time.getHour()),
                                       field(time.getMinute()), field(time.getSecond()), 0});
    };
    switch (type) {
        case asn1data::ASN1T_Time::T_utcTime:
            return read(ASN1CUTCTime(buffer, text, false));
        case asn1data::ASN1T_Time::T_generalTime:
            return read(ASN1CGeneralizedTime(buffer, text, false));
        default:
            PKIXCMP_THROW(Asn1DecodeException, "Unknown time format.");
    }
}

void date1cpy(CACMPT_Date& date, const char* text, int type) {
    date1cpy(date, std::string_view(text ? text : ""), type);
}

void date1cpy(CACMPT_Date& date, const ASN1TString& text, int type) {
    date1cpy(date, text.view(), type);
}

const char* date2cpy(ASN1BEREncodeBuffer& buffer, const CACMPT_Date& date, int type) {
    if (type == asn1data::ASN1T_Time::T_utcTime) {
        ASN1CUTCTime time(buffer, "", true);
        return date2cpy(buffer, date, time);
    }
    if (type == asn1data::ASN1T_Time::T_generalTime) {
        ASN1CGeneralizedTime time(buffer, "", true);
        return date2cpy(buffer, date, time);
    }
    return nullptr;
}

const char* date2cpy(ASN1BEREncodeBuffer& buffer, const CACMPT_Date& date, ASN1CTime& time) {
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    time.clear();
    if (time.setYear(date.year()) != 0 || time.setMonth(date.month()) != 0 ||
        time.setDay(date.day()) != 0 || time.setHour(date.hour()) != 0 ||
        time.setMinute(date.minute()) != 0 || time.setSecond(date.second()) != 0) {
        throwRuntime(ctxt);
    }
    return ASN1Time_set(buffer, time);
}
