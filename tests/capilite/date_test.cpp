#include "capilite/Date.h"

#include <gmock/gmock.h>

#include <clocale>
#include <random>

#include "capilite/Strings.h"
#include "capilite/TimeChoice.h"
#include "platform/asn1/Runtime.h"
#include "tests/PublicTool.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

namespace {

constexpr std::uint64_t LIMIT = 0x7FFFFFFFFFFFFFFF, SECOND = 10000000;
constexpr const char *TOO_BIG = "CAException time value is too big",
                     *INVALID = "date_exception ivalid time value";

CACMPT_Date date(std::uint64_t ticks) { return CACMPT_Date::fromTicks(ticks); }
CACMPT_Period period(std::uint64_t ticks) { return CACMPT_Period::fromTicks(ticks); }

TEST(Date, Construction) {
    EXPECT_EQ(CACMPT_Date(0, 0).ticks(), 116444736000000000u);
    EXPECT_EQ(CACMPT_Date(), CACMPT_Date(0, 0));
    EXPECT_EQ(CACMPT_Date(-1, 0).ticks(), 116444736000000000u - SECOND);
    // Ten times the microseconds are kept in 32 bits.
    EXPECT_EQ(CACMPT_Date(0, 500000000).ticks() - CACMPT_Date::UNIX_EPOCH, 705032704u);
    EXPECT_EQ(CACMPT_Date(timeval{1, 2}).ticks(), 116444736000000000u + SECOND + 20);
    EXPECT_EQ(CACMPT_Date(ticksToFileTime(123456789)).ticks(), 123456780u);
    EXPECT_EQ(CACMPT_Date(_SYSTEMTIME{1970, 1, 0, 1, 0, 0, 1, 7}).ticks(),
              116444736000000000u + SECOND + 70000);
    EXPECT_FAILURE(CACMPT_Date(_SYSTEMTIME{2021, 2, 0, 29, 0, 0, 0, 0}), INVALID);
    CACMPT_Date before(std::time(nullptr), 0), now = CACMPT_Date::Now();
    EXPECT_TRUE(before <= now && now - before < CACMPT_Period(5, 0));
}

TEST(Date, Texts) {
    const char* const cases[][2] = {
        {"19700101000000Z", "19700101000000Z"},
        {"19700101000000", "19700101000000Z"},
        {"19700101000000.5Z", "19700101000000.5Z"},
        {"20200101000000.5", "20200101000000.5Z"},
        {"20200101000000.000001Z", "20200101000000.000001Z"},
        {"20200101000000.1234567Z", "20200101000000.123456Z"},
        {"20200101000000.Z", "20200101000000Z"},
        {"20200229235959Zanything", "20200229235959Z"},
        {"16010101000000Z", "16010101000000Z"},
        {"99991231235959.999999Z", "99991231235959.999999Z"},
        {"2020010100000:", "20200101000010Z"},  // a character counts by its code: ":" is ten
    };
    for (const auto& [text, normal] : cases) {
        EXPECT_TRUE(CACMPT_Date::is_valid_date(text)) << text;
        EXPECT_EQ(CACMPT_Date(text).getGeneralizedTime(), normal);
    }
    EXPECT_EQ(CACMPT_Date("20200101000000.5" + std::string(1000, '0')).microsecond(), 0);
    std::string cut = "20200101000000Z";
    cut[8] = '\0';
    const std::string bad[] = {"202001010000",    "2020010100000",   "",
                               "16001231235959Z", "20210229000000Z", "20211301000000Z",
                               "20210100000000Z", "20210101240000Z", "20210101006000Z",
                               "20210101000060Z", "not a time text", cut};
    for (const std::string& text : bad) {
        EXPECT_FALSE(CACMPT_Date::is_valid_date(text)) << text;
        EXPECT_EQ(GeneralizedTimeToLongLong(text), -1) << text;
        EXPECT_FAILURE(CACMPT_Date{text}, TOO_BIG) << text;
    }
}

TEST(Date, FieldsAgreeWithTheSystemsCalendar) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 3000; ++i) {
        // 1601 to 9999.
        std::time_t seconds = static_cast<std::time_t>(random() % 265046774400) - 11644473600;
        unsigned int us = random() % 1000000;
        std::tm tm{};
        gmtime_r(&seconds, &tm);
        CACMPT_Date d(seconds, us);
        ASSERT_EQ(d.year(), tm.tm_year + 1900);
        ASSERT_EQ(d.month(), tm.tm_mon + 1);
        ASSERT_EQ(d.day(), tm.tm_mday);
        ASSERT_EQ(d.hour() * 3600 + d.minute() * 60 + d.second(),
                  tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec);
        ASSERT_EQ(d.millisecond() * 1000 + d.microsecond(), static_cast<int>(us));
        std::tm back = FileTimeToTm(d.getFileTime());
        ASSERT_EQ(back.tm_wday, tm.tm_wday);
        ASSERT_EQ(timegm(&back), seconds);
        ASSERT_EQ(CACMPT_Date(d.getGeneralizedTime()), d);
        ASSERT_TRUE(seconds < 0 || d.getTime() == seconds);
    }
}

TEST(Date, SecondsSince1970) {
    CACMPT_Date d(1, 500000);
    EXPECT_EQ(d.getTime(), 1);
    EXPECT_EQ(d.getTimeval().tv_sec, 1);
    EXPECT_EQ(d.getTimeval().tv_usec, 0);  // only what is below a millisecond
    EXPECT_EQ(CACMPT_Date(1, 500123).getTimeval().tv_usec, 123);
    EXPECT_EQ(d.millisecond(), 500);
    EXPECT_EQ(d.microsecond(), 0);
    EXPECT_EQ(CACMPT_Date(-1, 0).getTime(), 1844674407369);  // unsigned arithmetic
    EXPECT_FAILURE(date(LIMIT).getTime(), TOO_BIG);
    EXPECT_FAILURE(date(LIMIT).getTimeval(), TOO_BIG);
    EXPECT_EQ(date(LIMIT - 1).getTime(), 910692730085);
}

TEST(Date, TextForPeople) {
    CACMPT_Date d("20240229130509.012034Z");
    const std::string shown = d.tostring();
    EXPECT_EQ(shown, runTool("LC_ALL=C date -u -d '2024-02-29 13:05:09' '+%d %b %Y %T 12.34' | "
                             "tr -d '\\n'",
                             ""));
    EXPECT_EQ(d.towstring(), towstring(shown));
    EXPECT_FAILURE(date(~0ULL).tostring(), INVALID);
    EXPECT_FAILURE(date(LIMIT + 1).getGeneralizedTime(), INVALID);
    EXPECT_EQ(date(LIMIT + 1).year(), 0);  // readers do not examine the conversion
}

TEST(Date, SumsAndDifferencesKeepTheTargetOnFailure) {
    struct {
        std::uint64_t date, period;
        const char* sum;  // ticks or the failure
        const char* difference;
    } const cases[] = {
        {5, 3, "8", "2"},
        {5, 5, "10", "0"},
        {5, 6, "11", "time value is too small"},
        {LIMIT - 1, 1, "time value is too big", "9223372036854775805"},
        {LIMIT, 1, "9223372036854775808", "9223372036854775806"},  // past the limit is no failure
        {~0ULL, 2, "1", "18446744073709551613"},                   // wraps
    };
    auto result = [](auto target, const CACMPT_Period& p, bool add) {
        const auto before = target;
        try {
            add ? target += p : target -= p;
            return std::to_string(target.ticks());
        } catch (const CAException& e) {
            EXPECT_EQ(target, before);
            EXPECT_EQ(e.file, "capilite/Date");
            return bareMessage(e);
        }
    };
    for (const auto& c : cases) {
        EXPECT_EQ(result(date(c.date), period(c.period), true), c.sum);
        EXPECT_EQ(result(date(c.date), period(c.period), false), c.difference);
        EXPECT_EQ(result(period(c.date), period(c.period), true), c.sum);
        EXPECT_EQ(result(period(c.date), period(c.period), false), c.difference);
    }
    EXPECT_EQ(date(7) - date(7), CACMPT_Period());
    EXPECT_FAILURE(date(7) - date(8), "CAException time value is negative");
}

TEST(Period, Products) {
    CACMPT_Period p(10, 0);
    EXPECT_EQ(p *= 3, CACMPT_Period(30, 0));
    EXPECT_EQ(p /= 7, period(42857142));
    EXPECT_EQ(p %= 1000, period(142));
    EXPECT_EQ((period(1ULL << 63) * 2).ticks(), 0u);  // wraps without notice
    CACMPT_Period negative = period(static_cast<std::uint64_t>(-10));
    EXPECT_EQ(static_cast<std::int64_t>((negative /= 3).ticks()), -3);
    EXPECT_EQ(CACMPT_Period::OneYear / CACMPT_Period::OneDay, 365);
    EXPECT_EQ(CACMPT_Period(7, 0) % CACMPT_Period(4, 0), static_cast<int>(3 * SECOND));
    EXPECT_EQ(period(0x7FFFFFFE) / period(1), 0x7FFFFFFE);
    EXPECT_FAILURE(period(0x7FFFFFFF) / period(1), TOO_BIG);
    EXPECT_FAILURE(period(0x7FFFFFFF) % period(0x80000000), TOO_BIG);
    EXPECT_FAILURE(period(1) / period(0), TOO_BIG);
    EXPECT_FAILURE(period(1ULL << 63) / period(~0ULL), TOO_BIG);
    EXPECT_FAILURE(p %= 0, TOO_BIG);
}

TEST(Period, OrderIsUnsignedWithHighWordsFirst) {
    EXPECT_TRUE(date(0xFFFFFFFF) < date(0x100000000));
    EXPECT_TRUE(period(~0ULL) > period(LIMIT));
    EXPECT_TRUE(period(2) >= period(2) && period(2) <= period(2) && period(2) != period(3));
    EXPECT_TRUE(period(5) > date(4));
    EXPECT_FALSE(period(4) > date(4));
}

TEST(Period, Texts) {
    const std::pair<CACMPT_Period, const char*> cases[] = {
        {CACMPT_Period(), "00000000000000"},
        {CACMPT_Period(1, 500000), "00000000000001.5"},
        {CACMPT_Period(0, 1), "00000000000000.00001"},
        {period(1), "00000000000000.000001"},
        {period(9999999), "00000000000000.9999999"},  // seven digits
        {CACMPT_Period::OneYear + CACMPT_Period::OneMonth * 2 + CACMPT_Period::OneDay * 3 +
             CACMPT_Period::OneHour * 4 + CACMPT_Period::OneMinute * 5 +
             CACMPT_Period::OneSecond * 6 + CACMPT_Period::OneMilli,
         "00010203040506.01"},
        {CACMPT_Period::OneYear - CACMPT_Period::OneSecond, "00001204235959"},
        {CACMPT_Period::OneYear * 12345, "123450000000000"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(value.getGeneralizedTime(), text);
        EXPECT_EQ(value.tostring(), text);
        EXPECT_EQ(value.towstring(), towstring(text));
    }
    // Written in ticks and read as microseconds: a tenfold reading.
    EXPECT_EQ(CACMPT_Period(CACMPT_Period(0, 1).tostring().c_str()), CACMPT_Period(0, 10));
    const std::pair<const char*, std::uint64_t> reads[] = {
        {"00010203040506", 365 * 86400 + 63 * 86400 + 4 * 3600 + 306},
        {"0001", 365 * 86400},
        {"", 0},
        {"00000001", 86400},
        {"99990000000000", 9999ULL * 31536000},
    };
    for (const auto& [text, seconds] : reads) {
        EXPECT_EQ(CACMPT_Period(text), period(seconds * SECOND)) << text;
    }
}

TEST(Period, NormalText) {
    const std::pair<const char*, std::uint64_t> cases[] = {
        {"1/2/3 4:5:6", 86400 + 2 * 2592000 + 3 * 31536000ULL + 4 * 3600 + 306},
        {"0/0/0 0:0:59 and more", 59},
        {"0/0/136 0:0:0", 4288896000},
        {"0/0/137 0:0:0", 4320432000 - 4294967296},  // wraps in 32 bits
        {"-1/0/0 24:0:0", 0},
    };
    for (const auto& [text, seconds] : cases) {
        EXPECT_EQ(CACMPT_Period().from_normal(text), period(seconds * SECOND)) << text;
    }
    for (const char* text : {"1/2/3 4:5", "", "a", "1-2-3 4:5:6"}) {
        CACMPT_Period p(9, 0);
        EXPECT_FAILURE(p.from_normal(text), "CAException wrong data format");
        EXPECT_EQ(p, CACMPT_Period(9, 0));
    }
}

TEST(DateText, BetweenDatesAndAsn1) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"20240229130509Z", 1, "240229130509Z"},       {"20491231235959Z", 1, "491231235959Z"},
        {"19500101000000Z", 1, "500101000000Z"},       {"20501231235959Z", 2, "20501231235959Z"},
        {"20240229130509.999Z", 2, "20240229130509Z"},  // the fraction never gets there
        {"16010101000000Z", 2, "16010101000000Z"},
    };
    ASN1BEREncodeBuffer buffer;
    for (const auto& [moment, type, text] : cases) {
        EXPECT_STREQ(date2cpy(buffer, CACMPT_Date(moment), type), text);
        CACMPT_Date read;
        date1cpy(read, text, type);
        EXPECT_EQ(read.ticks() / SECOND, CACMPT_Date(moment).ticks() / SECOND) << text;
    }
    EXPECT_STREQ(date2cpy(buffer, CACMPT_Date("19000102000000Z"), 1), "000102000000Z");
    EXPECT_EQ(date2cpy(buffer, CACMPT_Date(), 3), nullptr);
    EXPECT_ASN1_FAILURE(date2cpy(buffer, date(LIMIT - 1), 2));
    EXPECT_ASN1_FAILURE(date2cpy(buffer, date(~0ULL), 2));
}

TEST(DateText, BadAsn1Texts) {
    CACMPT_Date d(9, 0);
    for (int type : {0, 3, -1}) {
        EXPECT_FAILURE(date1cpy(d, "240229130509Z", type),
                       "Asn1DecodeException Unknown time format.");
    }
    for (const char* text : {"", "x", "24022913050", "240230130509Z", "20240229130509Z"}) {
        EXPECT_FAILURE(date1cpy(d, text, 1), INVALID) << text;
    }
    EXPECT_FAILURE(date1cpy(d, ASN1TString(), 2), INVALID);
    EXPECT_EQ(d, CACMPT_Date(9, 0));
    date1cpy(d, std::string_view("240229130509ZZZ", 13), 1);  // a slice ends where it says
    EXPECT_EQ(d, CACMPT_Date("20240229130509Z"));
}

TEST(TimeChoice, TheYearChooses) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"20491231235959Z", 1, "170D3439313233313233353935395A"},
        {"20501231235959Z", 2, "180F32303530313233313233353935395A"},
        {"19000102030405Z", 1, "170D3030303130323033303430355A"},
        {"20240229130509.5Z", 1, "170D3234303232393133303530395A"},
    };
    for (const auto& [moment, type, der] : cases) {
        CACMPT_TimeChoice choice;
        choice.set_time(CACMPT_Date(moment));
        EXPECT_EQ(choice.get_type(), type);
        EXPECT_EQ(*choice.get_time(), CACMPT_Date(moment));
        EXPECT_EQ(hexOf(choice.encode()), der);
    }
    CACMPT_TimeChoice standard;
    EXPECT_EQ(standard.get_type(), 1);
    EXPECT_EQ(*standard.get_time(), CACMPT_Date(0, 0));
}

TEST(TimeChoice, DecodingChoosesAgain) {
    CACMPT_TimeChoice choice(CACMPT_Date("20601231235959Z"));
    choice.decode(fromHex("180F32303230303130313030303030305A"));  // GeneralizedTime of 2020
    EXPECT_EQ(choice.get_type(), 1);
    EXPECT_EQ(hexOf(choice.encode()), "170D3230303130313030303030305A");
    for (const char* hex : {"", "170D", "1700", "0401FF", "170D3230303130313030303030305A00",
                            "170D3230303230323939303030305A"}) {
        EXPECT_NE(failureOf([&] { choice.decode(fromHex(hex)); }), "none") << hex;
    }
    EXPECT_EQ(choice.get_type(), 1);
}

TEST(TimeChoice, WithoutAnAlternative) {
    CACMPT_TimeChoice choice, copy;
    choice.clear();
    EXPECT_EQ(choice.get_time(), nullptr);
    EXPECT_EQ(choice.get_type(), 0);
    ASN1CtxtRef ctxt;
    asn1data::ASN1T_Time record, other;
    ASN1T_Time_traits::set(ctxt.get(), record, copy);
    ASN1T_Time_traits::set(ctxt.get(), record, choice);  // leaves the target as it was
    EXPECT_EQ(record.t, 1);
    EXPECT_EQ(record.u.text.view(), "700101000000Z");
    ASN1T_Time_traits::copy(ctxt.get(), record, other);
    EXPECT_NE(other.u.text.data, record.u.text.data);
    EXPECT_EQ(other.u.text, record.u.text);
    EXPECT_ASN1_FAILURE(choice.encode());
    copy = choice;
    EXPECT_EQ(copy.get_time(), nullptr);
}

}  // namespace
