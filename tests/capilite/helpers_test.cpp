#include <gmock/gmock.h>

#include <cstring>

#include "capilite/ASN1Util.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/Runtime.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

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
        narrow[4] = '?';
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
    EXPECT_THAT(wide, testing::ElementsAre(L'a', wchar_t(-1), wchar_t(-128), 0));
}

TEST(BoundedCopy, AZeroInsideWouldCutTheText) {
    char narrow[16];
    wchar_t wide[16];
    ASN1CTXT* none = nullptr;
    const std::string_view spoofed("good\0bad", 8);
    EXPECT_FAILURE(str1cpy(narrow, spoofed, 16, "field too long"), FIELD);
    EXPECT_FAILURE(str1cpy8(wide, spoofed, 16, "field too long", none), FIELD);
    const char* null = nullptr;
    EXPECT_FAILURE(str1cpy(narrow, null, 16, "field too long"), FIELD);
    EXPECT_FAILURE(str1cpy8(wide, null, 16, "field too long", none), FIELD);
}

TEST(BoundedCopy, Utf8CountsCharacters) {
    const std::pair<const char*, const wchar_t*> cases[] = {
        {"", L""}, {"Яяя", L"Яяя"}, {"\xF0\x9F\x98\x80!", L"\x1F600!"}};
    wchar_t wide[5] = L"????";
    for (const auto& [text, expected] : cases) {
        ASN1CtxtRef ctxt;
        str1cpy8(wide, text, 4, "field too long", ctxt.get());
        EXPECT_STREQ(wide, expected);
    }
    // Four letters, no UTF-8, an overlong form, a surrogate.
    for (const char* text : {"Яяяя", "a\xff", "\xC0\x80", "\xED\xA0\x80"}) {
        ASN1CtxtRef ctxt;
        EXPECT_FAILURE(str1cpy8(wide, text, 4, "field too long", ctxt.get()), FIELD) << text;
    }
}

TEST(BoundedCopy, Identifiers) {
    const std::string text = "1.2.840.113549.1.9.1";
    char target[32];
    str1cpy(target, asn1data::id_emailAddress, text.size() + 1, "m");
    EXPECT_EQ(target, text);
    for (std::size_t max = 0; max <= text.size(); ++max) {
        std::memset(target, '?', sizeof target);
        EXPECT_FAILURE(str1cpy(target, str2oid(text.c_str()), max, "field too long"), FIELD);
        EXPECT_EQ(target[max], '?') << max;
        EXPECT_FAILURE(str1cpy(target, asn1data::id_emailAddress, max, "field too long"), FIELD);
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
    const std::pair<std::vector<unsigned char>, const char*> cases[] = {
        {{0x80}, "0x080"},
        {{0x7F}, "0x7f"},
        {{0}, "0x00"},
        {{}, "0x0"},
        {{0xAB, 0xCD, 1}, "0x0abcd01"},
        {{0, 0xFF}, "0x00ff"}};
    for (const auto& [bytes, expected] : cases) {
        char text[20] = {};
        ASN1T_BigInt_set(text, bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_STREQ(text, expected);
        CACMPT_BigInteger number(bytes.data(), bytes.size());
        EXPECT_EQ(BigIntegerToString(number), expected);
        ASN1CtxtRef ctxt;
        EXPECT_STREQ(BigIntegerToASN1String(ctxt.get(), number), expected);
        EXPECT_TRUE(number.empty() || StringToBigInteger(expected) == number) << expected;
    }
    char unterminated[4] = "???";
    ASN1T_BigInt_set(unterminated, nullptr, 0);
    EXPECT_STREQ(unterminated, "0x0");
}

TEST(BigInt, BytesOfText) {
    const std::string failed = "Asn1DecodeException decode integer failed";
    // What stands before the last four bytes is not looked at.
    const char* const cases[][2] = {
        {"0x0123", "00000123"},       {"0x7f", "0000007F"},
        {"0x080", "00000080"},        {"", "00000000"},
        {"0x0", "00000000"},          {"0x0AbC", "00000ABC"},
        {"0x0123456789", "23456789"}, {"0xzz23456789", "23456789"},
    };
    CACMPT_BLOB bytes;
    for (const auto& [text, expected] : cases) {
        bytes = fromHex("FFFFFFFF");
        ASN1T_BigInt_get(text, bytes.data, 4);
        EXPECT_EQ(hexOf(bytes), expected) << text;
    }
    for (const char* text : {"0x123", "0x", "0", "12", "0X12", "0x1g", "x012"}) {
        EXPECT_FAILURE(ASN1T_BigInt_get(text, bytes.data, 4), failed) << text;
    }
    EXPECT_EQ(hexOf(StringToBigInteger("")), "00");
    EXPECT_EQ(hexOf(ASN1StringToBigInteger("0x0")), "00");
    EXPECT_FAILURE(StringToBigInteger("0x123"), failed);
    for (char c : {'g', '/', ':', '@', '`', 'G', '\0', '\xb0'}) {
        EXPECT_FAILURE(hextodgt(c), failed) << c;
    }
    EXPECT_EQ(hextodgt('f') + hextodgt('A') + hextodgt('9'), 34);
}

TEST(BigInt, SerialsForTheCryptographicInterface) {
    const char* const cases[][2] = {
        {"0x80", "8000"},   {"0x080", "8000"}, {"0x7f", "7F"},
        {"0x0102", "0201"}, {"128", "8000"},   {"010", "08"},
        {"0", "00"},        {"-255", "FF"},    {"0x0ff00000000000000", "00000000000000FF00"},
    };
    for (const auto& [text, expected] : cases) {
        ASN1CtxtRef ctxt;
        CACMPT_BLOB blob("old", 3);
        Serial2Blob(ctxt.get(), blob, text);
        EXPECT_EQ(hexOf(blob), expected) << text;
    }
    for (const char* text : {"", "0xzz", "12a", " 1"}) {
        ASN1CtxtRef ctxt;
        CACMPT_BLOB blob("old", 3);
        EXPECT_ASN1_FAILURE(Serial2Blob(ctxt.get(), blob, text)) << text;
    }
}

// ---- Identifiers ----

TEST(Oid, FromText) {
    std::string many = "1";
    for (int i = 1; i < 128; ++i) many += ".1";
    // A missing number is zero.
    const std::string cases[][2] = {
        {"1.2.840", "1.2.840"},
        {" 1 . 2 . 3 ", "1.2.3"},
        {"0x10.010.1", "16.8.1"},
        {many, many},
        {"1.4294967295", "1.4294967295"},
        {"5", "5"},
        {"1.", "1.0"},
        {"", "0"},
    };
    ASN1OBJID oid;
    for (const auto& [text, arcs] : cases) {
        EXPECT_FALSE(str2oid(text.c_str(), &oid)) << text;
        char back[1024];
        str1cpy(back, oid, sizeof back, "m");
        EXPECT_EQ(back, arcs);
    }
    many += ".1";
    for (const char* text : {"1.4294967296", "1.99999999999999999999999", "1.-1", "1.2x", "1.08",
                             "1,2", "x", many.c_str()}) {
        EXPECT_TRUE(str2oid(text, &oid)) << text;
        EXPECT_FAILURE(str2oid(text), "CAException Can't convert str to oid.");
    }
    EXPECT_TRUE(str2oid(nullptr, &oid));
}

// Identifiers of registered trees that hold a UUID (X.667) have arcs of 128 bits.
TEST(Oid, EncodedFormHoldsArcsOfAnySize) {
    const std::string uuid = "2.25.329800735698586629295641978511506172918";
    const std::string cases[][2] = {{uuid, uuid},
                                    {"1.2.4294967296", "1.2.4294967296"},
                                    {"2.5.4.3", "2.5.4.3"},
                                    {" 2 . 0x5 ", "2.5"},
                                    {"1.010.0", "1.8.0"}};
    ASN1TObjId oid;
    for (const auto& [text, back] : cases) {
        ASN1CtxtRef ctxt;
        EXPECT_FALSE(str2oid(ctxt.get(), text.c_str(), &oid)) << text;
        EXPECT_EQ(rtOidToString(oid), back);
        EXPECT_EQ(ctxt->errorCode(), 0) << text;
    }
    for (const char* text : {"1.2.08", "1.2.04294967296", "1", "1.40", "3.1", "x", ""}) {
        ASN1CtxtRef ctxt;
        EXPECT_TRUE(str2oid(ctxt.get(), text, &oid)) << text;
        EXPECT_NE(ctxt->errorCode(), 0) << text;
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
    const char* const cases[][3] = {
        {"240101000000Z", "250101000000Z", "240101000000Z"},
        {"250101000000Z", "240101000000Z", "240101000000Z"},
        {"990101000000Z", "000101000000Z", "990101000000Z"},
        {"240101030000+0300", "240101000000Z", "240101000000Z"},
        // GeneralizedTime is compared as it is, and comes back as UTCTime.
        {"270101000000Z", "20510101000000Z", "270101000000Z"},
        {"270101000000Z", "20260101000000Z", "260101000000Z"},
    };
    ASN1BEREncodeBuffer buffer;
    for (const auto& [a, b, earlier] : cases) {
        EXPECT_STREQ(ASN1UTCTime_min(buffer, a, b), earlier);
        EXPECT_EQ(ASN1UTCTime_min(buffer, std::string_view(a), std::string_view(b)), earlier);
    }
    const char* a = "240101000000Z";
    const std::string same = a;
    EXPECT_EQ(ASN1UTCTime_min(buffer, a, same.c_str()), same.c_str());  // the second on a tie
    EXPECT_ASN1_FAILURE(ASN1UTCTime_min(buffer, a, "never"));
}

TEST(AsnTime, MovedByAPeriod) {
    ASN1BEREncodeBuffer buffer;
    EXPECT_STREQ(ASN1UTCTime_add(buffer, "240229120000Z", CACMPT_Period::OneYear), "250228120000Z");
    EXPECT_STREQ(ASN1UTCTime_add(buffer, "490701000000Z", CACMPT_Period::OneYear),
                 "500701000000Z");  // two digits whatever the year
    for (const char* text : {"", "20510101000000Z", "2401"}) {
        EXPECT_ASN1_FAILURE(ASN1UTCTime_add(buffer, text, CACMPT_Period())) << text;
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
    const char* unsupported = "Asn1DecodeException Unsupported ASN1T_Time.t";
    EXPECT_FAILURE(compare_time(utc, unknown), unsupported);
    EXPECT_FAILURE(compare_time(unknown, object), unsupported);
    EXPECT_ASN1_FAILURE(compare_time(utc, bad));
    EXPECT_ASN1_FAILURE(compare_time(bad, utc));
}

TEST(AsnTime, DaysAndMillisecondsAreAdded) {
    ASN1BEREncodeBuffer buffer;
    ASN1CGeneralizedTime time(buffer, "20240228235959.500Z");
    addDays(time, 1, 600);
    EXPECT_STREQ(ASN1Time_set(buffer, time), "20240301000000.1Z");
    addDays(time, -1, -100);
    EXPECT_STREQ(ASN1Time_set(buffer, time), "20240229000000Z");
    ASN1CUTCTime unset(buffer, "");
    EXPECT_ASN1_FAILURE(addDays(unset, 1, 0));
    EXPECT_ASN1_FAILURE(addDays(time, 0x7FFFFFFF, 0));
}

// ---- Names of bits ----

constexpr unsigned int VALUES[] = {1, 2, 4, 0x18, 0};
constexpr const char* NAMES[] = {"a", "b", "c", "both", "nothing"};

TEST(BitNames, ToText) {
    const std::pair<unsigned int, const char*> cases[] = {
        {0, ""},
        {1, "a"},
        {7, "a|b|c"},
        {0x18, "both"},
        {0x10, "0x10"},
        {0x13, "a|b|0x10"},
        {0xFFFFFFFF, "a|b|c|both|0xffffffe0"},
    };
    for (const auto& [bits, text] : cases) {
        EXPECT_EQ(SmallBitStringToString(VALUES, NAMES, 5, bits), text);
        EXPECT_EQ(SmallBitStringFromString(VALUES, NAMES, 5, text, nullptr), bits);
    }
    const wchar_t* wide[] = {L"a"};
    EXPECT_EQ(SmallBitStringToBasicString<wchar_t>(VALUES, wide, 1, 9), L"a|0x8");
}

TEST(BitNames, FromText) {
    const std::pair<const char*, unsigned int> cases[] = {
        {"a | 0x10", 0x11}, {"both|c", 0x1C}, {nullptr, 0},   {"", 0},
        {" \t", 0},         {" NONE ", 0},    {"NONE|a", 1},  {"010", 8},
        {"||", 0},          {"7 ", 7},        {"unknown", 0}, {"12x|b", 14},
    };
    for (const auto& [text, bits] : cases) {
        EXPECT_EQ(SmallBitStringFromString(VALUES, NAMES, 5, text, "NONE"), bits)
            << testing::PrintToString(text);
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
    EXPECT_FAILURE(AtlThrowImpl(static_cast<int>(0x80070005)), "CAtlException 80070005");
}

}  // namespace
