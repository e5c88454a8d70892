#include "platform/asn1/Time.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

std::string textOf(const ASN1CTime& time) {
    char buffer[40];
    const char* text = time.getTimeString(buffer, sizeof buffer);
    EXPECT_EQ(text ? static_cast<int>(strlen(text)) : -1, std::max(time.getTimeStringLen(), -1));
    return text ? text : "none";
}

TEST(Times, TextsAreReadAndNormalised) {
    const struct {
        bool utc;
        const char *text, *normal;
    } cases[] = {
        {true, "250131235959Z", "250131235959Z"},
        {true, "2501312359Z", "250131235900Z"},
        {true, "250131235959+0130", "250131222959Z"},
        {true, "2501312330-0130", "250201010000Z"},
        {true, "491231000000Z", "491231000000Z"},
        {true, "500101000000Z", "500101000000Z"},
        {true, "240229000000Z", "240229000000Z"},
        {false, "20250131235959Z", "20250131235959Z"},
        {false, "20250131235959", "20250131235959Z"},
        {false, "20250131235959.5Z", "20250131235959.5Z"},
        {false, "20250131235959,250Z", "20250131235959.25Z"},
        {false, "20250131235959.0009Z", "20250131235959Z"},
        {false, "20250131235959.123456789123Z", "20250131235959.123Z"},
        {false, "2025013123Z", "20250131230000Z"},
        {false, "2025013123.5Z", "20250131233000Z"},
        {false, "202501312359.5Z", "20250131235930Z"},
        {false, "20250131235959+03", "20250131205959Z"},
        {false, "20250101000000+0001", "20241231235900Z"},
        {false, "19000228235959Z", "19000228235959Z"},
        {false, "00000101000000Z", "00000101000000Z"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        ASN1BEREncodeBuffer buffer;
        ASN1CUTCTime utc(buffer, c.text);
        ASN1CGeneralizedTime generalized(buffer, c.text);
        const ASN1CTime& time = c.utc ? static_cast<ASN1CTime&>(utc) : generalized;
        EXPECT_EQ(time.status(), 0);
        EXPECT_EQ(textOf(time), c.normal);
    }
}

template <class Time>
void expectRefused(const char* text) {
    SCOPED_TRACE(text);
    ASN1BEREncodeBuffer buffer;
    const Time time(buffer, text);
    EXPECT_LT(time.status(), 0);
    EXPECT_LT(time.getYear(), 0);
    EXPECT_LT(time.getSecond(), 0);
    EXPECT_EQ(textOf(time), "none");
}

TEST(Times, TextsThatAreNoneAreRefused) {
    for (const char* text :
         {"250229000000Z", "250131235959", "250131235959.5Z", "20250131235959Z", "251331000000Z",
          "250100000000Z", "250132000000Z", "250431000000Z", "250131240000Z", "250131236000Z",
          "250131235960Z", "250131235959+2460", "250131235959+01", "250131235959Zx",
          "25013123595 Z", "-50131235959Z", "garbage"}) {
        expectRefused<ASN1CUTCTime>(text);
    }
    for (const char* text : {"19000229000000Z", "00000101000000+0100", "99991231235959-0100",
                             "20250131235959.Z", "2025013", "250131235959Z"}) {
        expectRefused<ASN1CGeneralizedTime>(text);
    }
}

TEST(Times, TwoDigitYearsBelowFiftyAreOfThisCentury) {
    ASN1BEREncodeBuffer buffer;
    EXPECT_EQ(ASN1CUTCTime(buffer, "490101000000Z").getYear(), 2049);
    EXPECT_EQ(ASN1CUTCTime(buffer, "500101000000Z").getYear(), 1950);
    ASN1CUTCTime old(buffer, "");
    old.clear();
    old.setYear(1900);
    old.setMonth(2);
    old.setDay(28);
    EXPECT_EQ(textOf(old), "000228000000Z");
}

TEST(Times, FieldsAreSetInTheirRanges) {
    ASN1BEREncodeBuffer buffer;
    ASN1CGeneralizedTime time(buffer, "");
    EXPECT_LT(time.getYear(), 0);
    EXPECT_LT(time.getTimeStringLen(), 0);
    time.clear();
    EXPECT_EQ(time.setYear(2024) | time.setMonth(2) | time.setDay(30) | time.setHour(23) |
                  time.setMinute(59) | time.setSecond(58),
              0);
    EXPECT_LT(time.getTimeStringLen(), 0);  // no such day
    EXPECT_EQ(time.setDay(29), 0);
    EXPECT_EQ(time.setFraction(25, 2), 0);
    EXPECT_EQ(textOf(time), "20240229235958.25Z");
    EXPECT_EQ(time.getFraction(), 250);
    using Setter = int (ASN1CTime::*)(int);
    const struct {
        Setter set;
        int low, high;
    } setters[] = {{&ASN1CTime::setYear, 0, 9999}, {&ASN1CTime::setMonth, 1, 12},
                   {&ASN1CTime::setDay, 1, 31},    {&ASN1CTime::setHour, 0, 23},
                   {&ASN1CTime::setMinute, 0, 59}, {&ASN1CTime::setSecond, 0, 59}};
    for (const auto& s : setters) {
        EXPECT_LT((time.*s.set)(s.low - 1), 0);
        EXPECT_LT((time.*s.set)(s.high + 1), 0);
        EXPECT_EQ((time.*s.set)(s.low), 0);
        EXPECT_EQ((time.*s.set)(s.high), 0);
    }
    for (auto [fraction, digits] : {std::pair{-1, 3}, {1000, 3}, {1, 10}, {1, -1}, {1, 0}}) {
        EXPECT_LT(time.setFraction(fraction, digits), 0);
    }
    char shortBuffer[15];
    EXPECT_EQ(time.getTimeString(shortBuffer, sizeof shortBuffer), nullptr);
    EXPECT_EQ(time.getTimeString(shortBuffer, -1), nullptr);
}

TEST(Times, CalendarArithmeticCrossesItsBounds) {
    const struct {
        const char* from;
        int days, milliseconds;
        const char* to;  // "" where the calendar ends
    } cases[] = {
        {"20240228000000Z", 1, 0, "20240229000000Z"},
        {"20240228000000Z", 2, -1, "20240229235959.999Z"},
        {"19700101000000Z", -1, 0, "19691231000000Z"},
        {"20000301000000Z", -1, 0, "20000229000000Z"},
        {"21000228000000Z", 1, 0, "21000301000000Z"},
        {"20250101000000Z", 146097, 0, "24250101000000Z"},
        {"20250101000000Z", 0, 86400000, "20250102000000Z"},
        {"99991231000000Z", 1, 0, ""},
        {"00000101000000Z", 0, -1, ""},
        {"20250101000000Z", 2147483647, 0, ""},
    };
    for (const auto& c : cases) {
        ASN1BEREncodeBuffer buffer;
        ASN1CGeneralizedTime time(buffer, c.from);
        bool good = time.addDays(c.days) == 0 && time.addMilliseconds(c.milliseconds) == 0;
        EXPECT_EQ(good ? textOf(time) : "", c.to) << c.from;
        if (!good) {
            EXPECT_LT(buffer.getCtxtPtr()->errorCode(), 0);
        }
    }
}

TEST(Times, CurrentTimeAndComparison) {
    ASN1BEREncodeBuffer buffer;
    ASN1CUTCTime utc(buffer, "");
    EXPECT_EQ(utc.setTime(1735689600, true), 0);
    EXPECT_EQ(textOf(utc), "250101000000Z");
    ASN1CGeneralizedTime same(buffer, "20250101030000+0300"), later(buffer, "20250101000000.001Z");
    EXPECT_EQ(utc.compare(same), 0);
    EXPECT_LT(utc.compare(later), 0);
    EXPECT_GT(later.compare(utc), 0);
    EXPECT_LT(utc.setTime(253402300800LL, true), 0);
    EXPECT_LT(utc.setTime(-62167219201LL, true), 0);
}

TEST(Times, LocalTimeCarriesItsOffsetUnlessDerIsAskedFor) {
    const char* zone = std::getenv("TZ");
    std::string old = zone ? zone : "";
    setenv("TZ", "XYZ-05:30", 1);
    tzset();
    ASN1BEREncodeBuffer buffer;
    ASN1CGeneralizedTime ber(buffer, "", false), der(buffer, "", true);
    EXPECT_EQ(ber.setTime(1735689600, false) | der.setTime(1735689600, false), 0);
    EXPECT_EQ(textOf(ber), "20250101053000+0530");
    EXPECT_EQ(textOf(der), "20250101000000Z");
    EXPECT_EQ(ber.compare(der), 0);
    zone ? setenv("TZ", old.c_str(), 1) : unsetenv("TZ");
    tzset();
}

}  // namespace
