#include <gmock/gmock.h>

#include <cstring>
#include <cwchar>

#include "capilite/ASN1Util.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/Runtime.h"
#include "tests/capilite/Failure.h"

namespace {

using asn1data::ASN1T_Time;

const std::string FIELD = "Asn1DecodeException field too long";

// ---- Bounded copies ----

TEST(BoundedCopy, TheBoundCountsTheZero) {
    char narrow[8];
    wchar_t wide[8];
    std::wstring string;
    for (std::size_t length : {0, 1, 3, 4, 5, 7}) {
        const std::string source(length, 'a');
        const std::string expected = length < 4 ? "none" : FIELD;
        auto copy = [&](auto& target, auto from) {
            return failureOf([&] { str1cpy(target, from, 4, "field too long"); });
        };
        std::memset(narrow, '?', sizeof narrow);
        EXPECT_EQ(copy(narrow, source.c_str()), expected) << length;
        EXPECT_EQ(narrow[4], '?');
        EXPECT_EQ(copy(narrow, ASN1TString(source)), expected);
        EXPECT_EQ(copy(wide, source.c_str()), expected);
        EXPECT_EQ(copy(wide, std::string_view(source)), expected);
        EXPECT_EQ(copy(string, source.c_str()), expected);
        EXPECT_EQ(copy(string, ASN1TString(source)), expected);
        if (length < 4) {
            EXPECT_EQ(narrow, source);
            EXPECT_EQ(wide, std::wstring(length, L'a'));
            EXPECT_EQ(string, std::wstring(length, L'a'));
        }
    }
}

TEST(BoundedCopy, OctetsAreWidenedBySign) {
    wchar_t wide[4];
    str1cpy(wide, "a\xff\x80", 4, "m");
    EXPECT_EQ(wide[0], L'a');
    EXPECT_EQ(static_cast<int>(wide[1]), -1);
    EXPECT_EQ(static_cast<int>(wide[2]), -128);
}

TEST(BoundedCopy, AZeroInsideWouldCutTheText) {
    char narrow[16];
    wchar_t wide[16];
    ASN1CTXT* none = nullptr;
    const std::string_view spoofed("good\0bad", 8);
    EXPECT_EQ(failureOf([&] { str1cpy(narrow, spoofed, 16, "field too long"); }), FIELD);
    EXPECT_EQ(failureOf([&] { str1cpy8(wide, spoofed, 16, "field too long", none); }), FIELD);
    const char* null = nullptr;
    EXPECT_EQ(failureOf([&] { str1cpy(narrow, null, 16, "field too long"); }), FIELD);
    EXPECT_EQ(failureOf([&] { str1cpy8(wide, null, 16, "field too long", none); }), FIELD);
}

TEST(BoundedCopy, Utf8CountsCharacters) {
    struct {
        const char* text;
        const wchar_t* wide;  // null: refused with a bound of 4
    } const cases[] = {
        {"", L""},
        {"Яяя", L"Яяя"},
        {"\xF0\x9F\x98\x80!", L"\x1F600!"},
        {"Яяяя", nullptr},
        {"a\xff", nullptr},
        {"\xC0\x80", nullptr},      // overlong
        {"\xED\xA0\x80", nullptr},  // a surrogate
    };
    for (const auto& c : cases) {
        wchar_t wide[5] = L"????";
        ASN1CtxtRef ctxt;
        std::string result =
            failureOf([&] { str1cpy8(wide, c.text, 4, "field too long", ctxt.get()); });
        EXPECT_EQ(result, c.wide ? "none" : FIELD) << c.text;
        EXPECT_TRUE(c.wide == nullptr || std::wcscmp(wide, c.wide) == 0) << c.text;
    }
}

TEST(BoundedCopy, Identifiers) {
    const std::string text = "1.2.840.113549.1.9.1";
    char target[32];
    str1cpy(target, asn1data::id_emailAddress, text.size() + 1, "m");
    EXPECT_EQ(target, text);
    for (std::size_t max = 0; max <= text.size(); ++max) {
        std::memset(target, '?', sizeof target);
        EXPECT_EQ(failureOf([&] { str1cpy(target, str2oid(text.c_str()), max, "field too long"); }),
                  FIELD);
        EXPECT_EQ(target[max], '?') << max;
        EXPECT_EQ(
            failureOf([&] { str1cpy(target, asn1data::id_emailAddress, max, "field too long"); }),
            FIELD);
        EXPECT_EQ(target[max], '?') << max;
    }
    str1cpy(target, ASN1OBJID{2, {4294967295u, 0}}, 32, "m");
    EXPECT_STREQ(target, "4294967295.0");
    str1cpy(target, ASN1OBJID{}, 1, "m");
    EXPECT_STREQ(target, "");
    target[0] = '?';
    str1cpy(target, ASN1TObjId(), 1, "m");
    EXPECT_STREQ(target, "");
}

// ---- Big integers ----

TEST(BigInt, TextOfBytes) {
    struct {
        std::vector<unsigned char> bytes;
        const char* text;
    } const cases[] = {
        {{0x80}, "0x080"},
        {{0x7F}, "0x7f"},
        {{0}, "0x00"},
        {{}, "0x0"},
        {{0xAB, 0xCD, 1}, "0x0abcd01"},
        {{0, 0xFF}, "0x00ff"},
    };
    for (const auto& c : cases) {
        char text[20] = {};
        ASN1T_BigInt_set(text, c.bytes.data(), static_cast<int>(c.bytes.size()));
        EXPECT_STREQ(text, c.text);
        CACMPT_BigInteger number(c.bytes.data(), c.bytes.size());
        EXPECT_EQ(BigIntegerToString(number), c.text);
        ASN1CtxtRef ctxt;
        EXPECT_STREQ(BigIntegerToASN1String(ctxt.get(), number), c.text);
        EXPECT_TRUE(c.bytes.empty() || StringToBigInteger(c.text) == number) << c.text;
    }
    char unterminated[4] = "???";
    ASN1T_BigInt_set(unterminated, nullptr, 0);
    EXPECT_STREQ(unterminated, "0x0");
}

TEST(BigInt, BytesOfText) {
    const std::string failed = "Asn1DecodeException decode integer failed";
    struct {
        const char* text;
        std::string hex;  // of four bytes, or the failure
    } const cases[] = {
        {"0x0123", "00000123"},
        {"0x7f", "0000007F"},
        {"0x080", "00000080"},
        {"", "00000000"},
        {"0x0", "00000000"},
        {"0x0123456789", "23456789"},  // stops at the first byte
        {"0xzz23456789", "23456789"},
        {"0x0AbC", "00000ABC"},
        {"0x123", failed},
        {"0x", failed},
        {"0", failed},
        {"12", failed},
        {"0X12", failed},
        {"0x1g", failed},
        {"x012", failed},
    };
    for (const auto& c : cases) {
        CACMPT_BLOB bytes("\xff\xff\xff\xff", 4);
        std::string result = failureOf([&] { ASN1T_BigInt_get(c.text, bytes.data, 4); });
        EXPECT_EQ(result == "none" ? bytes.writeToHexString() : result, c.hex) << c.text;
    }
    EXPECT_EQ(StringToBigInteger("").writeToHexString(), "00");
    EXPECT_EQ(ASN1StringToBigInteger("0x0").writeToHexString(), "00");
    EXPECT_EQ(failureOf([] { StringToBigInteger("0x123"); }), failed);
    for (char c : {'g', '/', ':', '@', '`', 'G', '\0', '\xb0'}) {
        EXPECT_EQ(failureOf([c] { hextodgt(c); }), failed) << c;
    }
    EXPECT_EQ(hextodgt('f') + hextodgt('A') + hextodgt('9'), 34);
}

TEST(BigInt, SerialsForTheCryptographicInterface) {
    struct {
        const char* text;
        const char* hex;  // null: refused
    } const cases[] = {
        {"0x80", "8000"},   {"0x080", "8000"}, {"0x7f", "7F"},
        {"0x0102", "0201"}, {"128", "8000"},   {"010", "08"},
        {"0", ""},          {"-255", "FF"},    {"0x0ff00000000000000", "00000000000000FF00"},
        {"", nullptr},      {"0xzz", nullptr}, {"12a", nullptr},
        {" 1", nullptr},
    };
    for (const auto& c : cases) {
        ASN1CtxtRef ctxt;
        CACMPT_BLOB blob("old", 3);
        std::string result = failureOf([&] { Serial2Blob(ctxt.get(), blob, c.text); });
        if (c.hex != nullptr) {
            EXPECT_EQ(result, "none") << c.text;
            EXPECT_EQ(blob.writeToHexString(), c.hex) << c.text;
        } else {
            EXPECT_EQ(result.substr(0, 14), "Asn1Exception ") << c.text;
        }
    }
}

// ---- Identifiers ----

TEST(Oid, FromText) {
    std::string many = "1";
    for (int i = 1; i < 128; ++i) many += ".1";
    struct {
        std::string text;
        const char* arcs;  // null: refused
    } const cases[] = {
        {"1.2.840", "1.2.840"},
        {" 1 . 2 . 3 ", "1.2.3"},
        {"0x10.010.1", "16.8.1"},
        {"5", "5"},
        {"", "0"},  // a missing number is zero
        {"1.", "1.0"},
        {"1.4294967295", "1.4294967295"},
        {many, many.c_str()},
        {many + ".1", nullptr},
        {"1.4294967296", nullptr},
        {"1.99999999999999999999999", nullptr},
        {"1.-1", nullptr},
        {"1.2x", nullptr},
        {"1.08", nullptr},
        {"1,2", nullptr},
        {"x", nullptr},
    };
    for (const auto& c : cases) {
        ASN1OBJID oid;
        EXPECT_EQ(str2oid(c.text.c_str(), &oid), c.arcs == nullptr) << c.text;
        if (c.arcs != nullptr) {
            char back[1024];
            str1cpy(back, oid, sizeof back, "m");
            EXPECT_STREQ(back, c.arcs);
        } else {
            EXPECT_EQ(failureOf([&] { str2oid(c.text.c_str()); }),
                      "CAException Can't convert str to oid.");
        }
    }
    ASN1OBJID oid;
    EXPECT_TRUE(str2oid(nullptr, &oid));
}

// Identifiers of registered trees that hold a UUID (X.667) have arcs of 128 bits.
TEST(Oid, EncodedFormHoldsArcsOfAnySize) {
    const std::string uuid = "2.25.329800735698586629295641978511506172918";
    struct {
        std::string text;
        std::string back;  // empty: refused
    } const cases[] = {
        {uuid, uuid},
        {"2.5.4.3", "2.5.4.3"},
        {" 2 . 0x5 ", "2.5"},
        {"1.010.0", "1.8.0"},  // octal, as in the other form
        {"1.2.08", ""},
        {"1.2.4294967296", "1.2.4294967296"},
        {"1.2.04294967296", ""},
        {"1", ""},
        {"1.40", ""},
        {"3.1", ""},
        {"x", ""},
        {"", ""},
    };
    for (const auto& c : cases) {
        ASN1CtxtRef ctxt;
        ASN1TObjId oid;
        EXPECT_EQ(str2oid(ctxt.get(), c.text.c_str(), &oid), c.back.empty()) << c.text;
        EXPECT_EQ(c.back.empty() ? "" : rtOidToString(oid), c.back);
        EXPECT_NE(c.back.empty(), ctxt->errorCode() == 0) << c.text;
    }
}

TEST(Oid, ToText) {
    std::string text = "old";
    ASN1OBJID oid = str2oid("2.5.29.32.0");
    EXPECT_EQ(oid2str(text, &oid), 1);
    EXPECT_EQ(text, "2.5.29.32.0");
    EXPECT_EQ(oid2str(text, asn1data::id_at_commonName), 1);
    EXPECT_EQ(text, "2.5.4.3");
    ASN1OBJID longest{ASN1_K_MAXSUBIDS, {}};
    for (std::uint32_t& arc : longest.subid) arc = 4294967295u;
    EXPECT_EQ(oid2str(text, &longest), 0);  // more than 512 characters
    EXPECT_EQ(oid2str(text, nullptr), 0);
    EXPECT_EQ(text, "2.5.4.3");
}

// ---- Times ----

TEST(AsnTime, CurrentTimeHasTheFormOfItsType) {
    ASN1BEREncodeBuffer buffer;
    const CACMPT_Date before(std::time(nullptr), 0);
    CACMPT_Date utc, generalized;
    date1cpy(utc, ASN1UTCTime_current(buffer), 1);
    date1cpy(generalized, ASN1GeneralizedTime_current(buffer), 2);
    EXPECT_TRUE(before <= utc && utc <= generalized);
    EXPECT_TRUE(generalized - before < CACMPT_Period(5, 0));
}

TEST(AsnTime, EarlierOfTwo) {
    struct {
        const char* a;
        const char* b;
        const char* earlier;
    } const cases[] = {
        {"240101000000Z", "250101000000Z", "240101000000Z"},
        {"250101000000Z", "240101000000Z", "240101000000Z"},
        {"990101000000Z", "000101000000Z", "990101000000Z"},
        {"240101030000+0300", "240101000000Z", "240101000000Z"},
        // GeneralizedTime is compared as it is, and comes back as UTCTime.
        {"270101000000Z", "20510101000000Z", "270101000000Z"},
        {"270101000000Z", "20260101000000Z", "260101000000Z"},
    };
    for (const auto& c : cases) {
        ASN1BEREncodeBuffer buffer;
        EXPECT_STREQ(ASN1UTCTime_min(buffer, c.a, c.b), c.earlier);
        EXPECT_EQ(ASN1UTCTime_min(buffer, std::string_view(c.a), std::string_view(c.b)), c.earlier);
    }
    ASN1BEREncodeBuffer buffer;
    const char* a = "240101000000Z";
    const std::string same = a;
    EXPECT_EQ(ASN1UTCTime_min(buffer, a, same.c_str()), same.c_str());  // the second on a tie
    EXPECT_EQ(failureOf([&] { ASN1UTCTime_min(buffer, a, "never"); }).substr(0, 14),
              "Asn1Exception ");
}

TEST(AsnTime, MovedByAPeriod) {
    ASN1BEREncodeBuffer buffer;
    EXPECT_STREQ(ASN1UTCTime_add(buffer, "240229120000Z", CACMPT_Period::OneYear), "250228120000Z");
    EXPECT_STREQ(ASN1UTCTime_add(buffer, "490701000000Z", CACMPT_Period::OneYear),
                 "500701000000Z");  // two digits whatever the year
    for (const char* text : {"", "20510101000000Z", "2401"}) {
        EXPECT_EQ(failureOf([&] { ASN1UTCTime_add(buffer, text, CACMPT_Period()); }).substr(0, 14),
                  "Asn1Exception ")
            << text;
    }
}

TEST(AsnTime, Comparison) {
    auto time = [](int tag, const char* text) {
        ASN1T_Time t;
        t.t = tag;
        t.u.text = ASN1TString(std::string_view(text));
        return t;
    };
    ASN1T_Time utc = time(1, "491231235959Z"), general = time(2, "20500101000000Z"),
               unknown = time(3, "491231235959Z"), bad = time(1, "49");
    EXPECT_LT(compare_time(utc, general), 0);
    EXPECT_GT(compare_time(general, utc), 0);
    EXPECT_EQ(compare_time(utc, time(2, "20491231235959Z")), 0);
    ASN1BEREncodeBuffer buffer;
    ASN1CGeneralizedTime object(buffer, "20491231235959.5Z");
    EXPECT_LT(compare_time(utc, object), 0);
    EXPECT_GT(compare_time(object, utc), 0);
    EXPECT_EQ(failureOf([&] { compare_time(utc, unknown); }),
              "Asn1DecodeException Unsupported ASN1T_Time.t");
    EXPECT_EQ(failureOf([&] { compare_time(unknown, object); }),
              "Asn1DecodeException Unsupported ASN1T_Time.t");
    EXPECT_EQ(failureOf([&] { compare_time(utc, bad); }).substr(0, 14), "Asn1Exception ");
    EXPECT_EQ(failureOf([&] { compare_time(bad, utc); }).substr(0, 14), "Asn1Exception ");
}

TEST(AsnTime, DaysAndMillisecondsAreAdded) {
    ASN1BEREncodeBuffer buffer;
    ASN1CGeneralizedTime time(buffer, "20240228235959.500Z");
    addDays(time, 1, 600);
    EXPECT_STREQ(ASN1Time_set(buffer, time), "20240301000000.1Z");
    addDays(time, -1, -100);
    EXPECT_STREQ(ASN1Time_set(buffer, time), "20240229000000Z");
    ASN1CUTCTime unset(buffer, "");
    EXPECT_EQ(failureOf([&] { addDays(unset, 1, 0); }).substr(0, 14), "Asn1Exception ");
    EXPECT_EQ(failureOf([&] { addDays(time, 0x7FFFFFFF, 0); }).substr(0, 14), "Asn1Exception ");
}

// ---- Names of bits ----

constexpr unsigned int VALUES[] = {1, 2, 4, 0x18, 0};
constexpr const char* NAMES[] = {"a", "b", "c", "both", "nothing"};

TEST(BitNames, ToText) {
    struct {
        unsigned int bits;
        const char* text;
    } const cases[] = {
        {0, ""},
        {1, "a"},
        {7, "a|b|c"},
        {0x18, "both"},
        {0x10, "0x10"},
        {0x13, "a|b|0x10"},
        {0xFFFFFFFF, "a|b|c|both|0xffffffe0"},
    };
    for (const auto& c : cases) {
        std::string text = SmallBitStringToString(VALUES, NAMES, 5, c.bits);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(SmallBitStringFromString(VALUES, NAMES, 5, text.c_str(), nullptr), c.bits);
    }
    const wchar_t* wide[] = {L"a"};
    EXPECT_EQ(SmallBitStringToBasicString<wchar_t>(VALUES, wide, 1, 9), L"a|0x8");
}

TEST(BitNames, FromText) {
    struct {
        const char* text;
        unsigned int bits;
    } const cases[] = {
        {"a | 0x10", 0x11}, {"both|c", 0x1C}, {nullptr, 0},   {"", 0},
        {" \t", 0},         {" NONE ", 0},    {"NONE|a", 1},  {"010", 8},
        {"||", 0},          {"7 ", 7},        {"unknown", 0}, {"12x|b", 14},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(SmallBitStringFromString(VALUES, NAMES, 5, c.text, "NONE"), c.bits)
            << (c.text ? c.text : "null");
    }
    // The name of the empty set counts before the table and the numbers.
    EXPECT_EQ(SmallBitStringFromString(VALUES, NAMES, 5, " a ", "a"), 0u);
}

TEST(BitNames, Reasons) {
    EXPECT_EQ(CRLReasonToString(CRLReason::cACompromise), "cACompromise");
    EXPECT_EQ(CRLReasonToString(static_cast<CRLReason::Root>(7)), "");
    EXPECT_EQ(CRLReasonToString(CRLReason::removeFromCRL), "removeFromCRL");
    EXPECT_EQ(CRLReasonToString(static_cast<CRLReason::Root>(9)), "");
    EXPECT_EQ(CRLReasonToString(static_cast<CRLReason::Root>(0xFFFF)), "");
}

// ---- Text conversions ----

TEST(TextConversion, CodePageIsUtf8AndLosesNothing) {
    const std::wstring wide = L"Яблоко \x1F600 z";
    const std::string narrow = "Яблоко \xF0\x9F\x98\x80 z";
    EXPECT_EQ(tostring(wide.c_str()), narrow);
    EXPECT_EQ(towstring(narrow.c_str()), wide);
    EXPECT_EQ(towstring(-42), L"-42");
    EXPECT_EQ(tostring(L""), "");
    EXPECT_EQ(towstring(""), L"");
    // What is not of the code page is kept octet by octet, so that different texts stay different.
    EXPECT_EQ(towstring("\xC9t\xE9"), L"\u00C9t\u00E9");
    EXPECT_EQ(tostring(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

TEST(TextConversion, StrippingWhiteSpace) {
    EXPECT_EQ(strip_white_space(" \t\r\na b\n"), "a b");
    EXPECT_EQ(strip_white_space(" \t\r\n"), "");
    EXPECT_EQ(strip_white_space(""), "");
    EXPECT_EQ(strip_white_space("\va"), "\va");
}

// ---- Contexts ----

TEST(Handles, ContextsOwnedByValue) {
    ctxt_handle ctxt;
    ASSERT_TRUE(ctxt.init());
    ASN1CTXT* volatile pointer = ctxt.get();  // the compiler does not know the count
    { ASN1CtxtRef counted(pointer); }         // does not take the context with it
    auto* text = static_cast<char*>(rtMemHeapAlloc(ctxt, 100));
    ASSERT_NE(text, nullptr);
    std::memset(text, 'x', 100);
    ctxt.release();
    EXPECT_TRUE(ctxt.init());
    EXPECT_EQ(failureOf([] { AtlThrowImpl(static_cast<int>(0x80070005)); }),
              "CAtlException 80070005");
}

}  // namespace
