#include "platform/asn1/Time.h"

#include <cctype>
#include <cstdio>

#include "platform/asn1/Runtime.h"

namespace {

constexpr long long msPerSecond = 1000, msPerMinute = 60 * msPerSecond,
                    msPerHour = 60 * msPerMinute, msPerDay = 24 * msPerHour;

/// Days since 1970-01-01 in the proleptic Gregorian calendar.
long long daysFromCivil(long long year, int month, int day) {
    year -= month <= 2;
    long long era = (year >= 0 ? year : year - 399) / 400;
    long long yearOfEra = year - era * 400;
    long long dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

void civilFromDays(long long days, long long& year, int& month, int& day) {
    days += 719468;
    long long era = (days >= 0 ? days : days - 146096) / 146097;
    long long dayOfEra = days - era * 146097;
    long long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    long long shifted = (5 * dayOfYear + 2) / 153;
    day = static_cast<int>(dayOfYear - (153 * shifted + 2) / 5 + 1);
    month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
    year = yearOfEra + era * 400 + (month <= 2);
}

int daysInMonth(int year, int month) {
    if (month == 2) return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/// Takes digits off the front of a text.
struct DigitReader {
    std::string_view rest;
    bool good = true;

    bool digitNext() const { return !rest.empty() && rest.front() >= '0' && rest.front() <= '9'; }
    int take(int count) {
        int value = 0;
        for (; count > 0; --count) {
            if (!digitNext()) {
                good = false;
                return 0;
            }
            value = value * 10 + (rest.front() - '0');
            rest.remove_prefix(1);
        }
        return value;
    }
    /// The fraction behind "." or ",", in units of 1/1000 of `unit`; digits past the ninth are read
    /// and dropped.
    long long takeFraction(long long unit) {
        if (rest.empty() || (rest.front() != '.' && rest.front() != ',')) return 0;
        rest.remove_prefix(1);
        if (!digitNext()) good = false;
        long long value = 0, scale = 1;
        for (; digitNext(); rest.remove_prefix(1)) {
            if (scale == 1000000000) continue;
            value = value * 10 + (rest.front() - '0');
            scale *= 10;
        }
        return value * unit / scale;
    }
    /// The offset from UTC behind the time, in minutes. GeneralizedTime may go without.
    int takeZone(bool optional) {
        if (rest == "Z" || (rest.empty() && optional)) {
            rest = {};
            return 0;
        }
        char sign = rest.empty() ? ' ' : rest.front();
        if (sign != '+' && sign != '-') {
            good = false;
            return 0;
        }
        rest.remove_prefix(1);
        int hours = take(2);
        int minutes = rest.empty() && optional ? 0 : take(2);
        if (hours > 23 || minutes > 59 || !rest.empty()) good = false;
        return (sign == '-' ? -1 : 1) * (hours * 60 + minutes);
    }
};

}  // namespace

ASN1CTime::ASN1CTime(Kind kind, ASN1MessageBufferIF& buffer, std::string_view text, bool der)
    : context_(buffer.getContext()), kind_(kind), der_(der) {
    if (text.empty()) {
        status_ = ASN_E_INVVAL;  // until a field is set
    } else {
        status_ = parse(text);
    }
}

ASN1CTime::~ASN1CTime() = default;

int ASN1CTime::fail(const char* text) const {
    context_->setError(ASN_E_INVVAL, text, 0);
    return ASN_E_INVVAL;
}

int ASN1CTime::parse(std::string_view text) {
    DigitReader in{text};
    bool generalized = kind_ == Kind::generalized;
    int year = in.take(generalized ? 4 : 2);
    if (!generalized) year += year < 50 ? 2000 : 1900;
    int month = in.take(2), day = in.take(2), hour = in.take(2), minute = 0, second = 0;
    long long unit = msPerHour;
    if (!generalized || in.digitNext()) {
        minute = in.take(2);
        unit = msPerMinute;
        if (in.digitNext()) {
            second = in.take(2);
            unit = msPerSecond;
        }
    }
    long long fraction = generalized ? in.takeFraction(unit) : 0;
    long long zone = in.takeZone(generalized) * msPerMinute;
    if (!in.good || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) ||
        hour > 23 || minute > 59 || second > 59) {
        return fail("text is no time");
    }
    return setTicks(daysFromCivil(year, month, day) * msPerDay + hour * msPerHour +
                    minute * msPerMinute + second * msPerSecond + fraction - zone);
}

void ASN1CTime::clear() {
    status_ = 0;
    year_ = month_ = day_ = hour_ = minute_ = second_ = millisecond_ = 0;
    zone_ = 0;
}

int ASN1CTime::setField(int& field, int value, int low, int high, const char* text) {
    if (value < low || value > high) return fail(text);
    field = value;
    status_ = 0;
    return ASN_OK;
}

int ASN1CTime::setYear(int year) { return setField(year_, year, 0, 9999, "invalid year"); }
int ASN1CTime::setMonth(int month) { return setField(month_, month, 1, 12, "invalid month"); }
int ASN1CTime::setDay(int day) { return setField(day_, day, 1, 31, "invalid day"); }
int ASN1CTime::setHour(int hour) { return setField(hour_, hour, 0, 23, "invalid hour"); }
int ASN1CTime::setMinute(int minute) { return setField(minute_, minute, 0, 59, "invalid minute"); }
int ASN1CTime::setSecond(int second) { return setField(second_, second, 0, 59, "invalid second"); }

int ASN1CTime::setFraction(int fraction, int digits) {
    if (digits < 0 || digits > 9) return fail("invalid fraction");
    long long scale = 1;
    for (int i = 0; i < digits; ++i) scale *= 10;
    if (fraction < 0 || fraction >= scale) return fail("invalid fraction");
    millisecond_ = static_cast<int>(fraction * 1000LL / scale);
    return ASN_OK;
}

int ASN1CTime::getYear() const { return status_ < 0 ? status_ : year_; }
int ASN1CTime::getMonth() const { return status_ < 0 ? status_ : month_; }
int ASN1CTime::getDay() const { return status_ < 0 ? status_ : day_; }
int ASN1CTime::getHour() const { return status_ < 0 ? status_ : hour_; }
int ASN1CTime::getMinute() const { return status_ < 0 ? status_ : minute_; }
int ASN1CTime::getSecond() const { return status_ < 0 ? status_ : second_; }
int ASN1CTime::getFraction() const { return status_ < 0 ? status_ : millisecond_; }

long long ASN1CTime::ticks() const {
    return daysFromCivil(year_, month_, day_) * msPerDay + hour_ * msPerHour +
           minute_ * msPerMinute + second_ * msPerSecond + millisecond_ - zone_ * msPerMinute;
}

int ASN1CTime::setTicks(long long ticks) {
    long long local = ticks + zone_ * msPerMinute;
    long long days = local / msPerDay - (local % msPerDay < 0);
    long long inDay = local - days * msPerDay;
    long long year = 0;
    int month = 0, day = 0;
    civilFromDays(days, year, month, day);
    if (year < 0 || year > 9999) return fail("time is out of range");
    year_ = static_cast<int>(year);
    month_ = month;
    day_ = day;
    hour_ = static_cast<int>(inDay / msPerHour);
    minute_ = static_cast<int>(inDay % msPerHour / msPerMinute);
    second_ = static_cast<int>(inDay % msPerMinute / msPerSecond);
    millisecond_ = static_cast<int>(inDay % msPerSecond);
    status_ = 0;
    return ASN_OK;
}

int ASN1CTime::setTime(std::time_t time, bool utc) {
    // Year 9999 ends below this; checked here so that the product cannot overflow.
    if (time > 253402300799LL || time < -62167219200LL) return fail("time is out of range");
    std::tm local{};
    bool zoned = !utc && !der_ && localtime_r(&time, &local) != nullptr;
    zone_ = zoned ? static_cast<int>(local.tm_gmtoff / 60) : 0;
    return setTicks(static_cast<long long>(time) * msPerSecond);
}

bool ASN1CTime::complete() const {
    return status_ == 0 && month_ >= 1 && day_ >= 1 && day_ <= daysInMonth(year_, month_);
}

int ASN1CTime::addDays(int days) {
    if (!complete()) return fail("time is not set");
    return setTicks(ticks() + days * msPerDay);
}

int ASN1CTime::addMilliseconds(int milliseconds) {
    if (!complete()) return fail("time is not set");
    return setTicks(ticks() + milliseconds);
}

int ASN1CTime::compare(const ASN1CTime& other) const {
    long long a = ticks(), b = other.ticks();
    return a < b ? -1 : a > b ? 1 : 0;
}

std::string ASN1CTime::format() const {
    bool generalized = kind_ == Kind::generalized;
    char text[64];
    std::snprintf(text, sizeof text, "%0*d%02d%02d%02d%02d%02d", generalized ? 4 : 2,
                  generalized ? year_ : year_ % 100, month_, day_, hour_, minute_, second_);
    std::string out = text;
    if (generalized && millisecond_ != 0) {
        std::snprintf(text, sizeof text, ".%03d", millisecond_);
        out += text;
        while (out.back() == '0') out.pop_back();
    }
    if (zone_ == 0) return out + "Z";
    int offset = zone_ < 0 ? -zone_ : zone_;
    std::snprintf(text, sizeof text, "%c%02d%02d", zone_ < 0 ? '-' : '+', offset / 60, offset % 60);
    return out + text;
}

int ASN1CTime::getTimeStringLen() const {
    if (!complete()) return fail("time has no text");
    return static_cast<int>(format().size());
}

const char* ASN1CTime::getTimeString(char* buffer, int size) const {
    if (!complete()) {
        fail("time has no text");
        return nullptr;
    }
    std::string text = format();
    if (size < 0 || text.size() >= static_cast<std::size_t>(size)) {
        fail("no room for the time's text");
        return nullptr;
    }
    text.copy(buffer, text.size());
    buffer[text.size()] = '\0';
    return buffer;
}
