#include <gtest/gtest.h>

#include <climits>

#include "DerText.h"
#include "platform/asn1/Numbers.h"
#include "platform/asn1/ObjectIdentifier.h"
#include "platform/asn1/asn1data.h"

namespace {

ASN1TObjId oidOf(const std::string& octets) {
    return {static_cast<std::uint32_t>(octets.size()), octetsOf(octets)};
}

// ---- Identifiers --------------------------------------------------------------------------------

TEST(ObjectIdentifiers, TextAndOctetsAgree) {
    const struct {
        const char *octets, *text;
        bool arcs;  // all of them fit 32 bits
    } cases[] = {
        {"2A864886F70D010101", "1.2.840.113549.1.1.1", true},
        {"551D0F", "2.5.29.15", true},
        {"00", "0.0", true},
        {"27", "0.39", true},
        {"28", "1.0", true},
        {"4F", "1.39", true},
        {"50", "2.0", true},
        {"8837", "2.999", true},
        {"2A8FFFFFFF7F", "1.2.4294967295", true},
        {"FFFFFFFFFFFFFFFF7F", "2.9223372036854775727", false},
        {"2A9080808000", "1.2.4294967296", false},
        {"69 83 DC82C6D4B5FA 8AC79B94 C8A4E4F7DEE2EC7D", nullptr, false},
        {"6981FFFFFFFFFFFFFFFF7F", "2.25.18446744073709551615", false},
        {"6983FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF7F", "2.25.340282366920938463463374607431768211455",
         false},
    };
    for (const auto& c : cases) {
        std::string octets = DerText::bytes(c.octets);
        SCOPED_TRACE(c.octets);
        std::string text = rtOidToString(oidOf(octets)), back;
        if (c.text != nullptr) {
            EXPECT_EQ(text, c.text);
        }
        ASSERT_TRUE(asn1::oidFromText(text, back));
        EXPECT_EQ(hexOf(back), hexOf(octets));
        ASN1OBJID arcs;
        EXPECT_EQ(rtOidFromOctets(oidOf(octets), &arcs), c.arcs ? ASN_OK : ASN_E_TOOBIG);
        if (!c.arcs) continue;
        ASN1CtxtRef context;
        ASN1TObjId made;
        ASSERT_EQ(rtSetOID(context.get(), &made, &arcs), ASN_OK);
        EXPECT_EQ(made, oidOf(octets));
        EXPECT_TRUE(made == arcs);
        char printed[64];
        ASSERT_EQ(rtOidToStr(&arcs, printed, sizeof printed), ASN_OK);
        EXPECT_EQ(printed, text);
    }
}

/// The largest arc that has a text is of 1024 octets, in both directions.
TEST(ObjectIdentifiers, ArcsHaveATextUpToOneBound) {
    for (auto [top, good] : {std::pair{'\x83', true}, {'\x84', false}}) {
        std::string octets = std::string("\x2A") + top + std::string(1169, '\xFF') + '\x7F', back;
        std::string text = rtOidToString(oidOf(octets));
        EXPECT_EQ(!text.empty(), good);
        EXPECT_EQ(asn1::oidFromText(text, back) && back == octets, good);
    }
}

TEST(ObjectIdentifiers, OctetsThatAreNoneAreRefused) {
    for (const char* text : {"", "80", "8001", "2A80", "2A8001", "2AFF"}) {
        std::string octets = DerText::bytes(text);
        ASN1OBJID arcs;
        EXPECT_EQ(rtOidFromOctets(oidOf(octets), &arcs), ASN_E_INVVAL) << text;
        EXPECT_EQ(rtOidToString(oidOf(octets)), "") << text;
        EXPECT_EQ(static_cast<ASN1OBJID>(oidOf(octets)).numids, 0U);
    }
    // 128 arcs are the most that are made; the first octet gives two.
    std::string longest(127, '\1'), longer(128, '\1');
    ASN1OBJID arcs;
    EXPECT_EQ(rtOidFromOctets(oidOf(longest), &arcs), ASN_OK);
    EXPECT_EQ(arcs.numids, 128U);
    EXPECT_EQ(rtOidFromOctets(oidOf(longer), &arcs), ASN_E_TOOBIG);
}

TEST(ObjectIdentifiers, TextsThatAreNoneAreRefused) {
    std::string many = "1";
    for (int i = 0; i < 128; ++i) many += ".1";
    const std::string cases[] = {
        "",     "1",    "1.",   ".1",   "1..2", "3.1", "0.40",
        "1.40", "1.2x", "1.-2", " 1.2", "1.2.", many,  "1.2." + std::string(5000, '9')};
    for (const std::string& text : cases) {
        std::string octets;
        EXPECT_FALSE(asn1::oidFromText(text, octets)) << text;
    }
}

TEST(ObjectIdentifiers, ArcsOutOfRangeAreRefused) {
    const std::vector<std::uint32_t> cases[] = {{}, {1}, {3, 1}, {0, 40}, {1, 40}};
    ASN1CtxtRef context;
    for (const auto& arcs : cases) {
        ASN1OBJID oid;
        for (std::uint32_t arc : arcs) oid.subid[oid.numids++] = arc;
        ASN1TObjId made;
        EXPECT_LT(rtSetOID(context.get(), &made, &oid), 0);
    }
    ASN1OBJID broken;
    broken.numids = 129;
    ASN1TObjId made;
    EXPECT_LT(rtSetOID(context.get(), &made, &broken), 0);
    char text[16];
    EXPECT_LT(rtOidToStr(&broken, text, sizeof text), 0);
    ASN1OBJID largest;
    for (std::uint32_t arc : {2U, 0xFFFFFFFFU}) largest.subid[largest.numids++] = arc;
    ASSERT_EQ(rtSetOID(context.get(), &made, &largest), ASN_OK);
    EXPECT_TRUE(made == largest);
}

TEST(ObjectIdentifiers, TextIsCutByNoBuffer) {
    ASN1OBJID oid = asn1data::id_ce_keyUsage;  // "2.5.29.15"
    char text[10];
    EXPECT_EQ(rtOidToStr(&oid, text, 10), ASN_OK);
    EXPECT_STREQ(text, "2.5.29.15");
    EXPECT_EQ(rtOidToStr(&oid, text, 9), ASN_E_BUFOVFLW);
    EXPECT_EQ(rtOidToStr(asn1data::id_ce_keyUsage, text, 9), ASN_E_BUFOVFLW);
    EXPECT_EQ(rtOidToStr(&oid, text, 1), ASN_E_BUFOVFLW);
}

// ---- Numbers ------------------------------------------------------------------------------------

TEST(BigIntegers, TextIsTheExactContent) {
    const std::pair<const char*, const char*> cases[] = {
        {"00", "0x00"},
        {"7F", "0x7f"},
        {"0080", "0x080"},
        {"80", "0x80"},
        {"0001", "0x0001"},
        {"000080", "0x000080"},
        {"00FF", "0x0ff"},
        {"FFFF", "0xffff"},
        {"0081020304050607080910111213141516", "0x081020304050607080910111213141516"},
    };
    for (const auto& [content, text] : cases) {
        ASN1CtxtRef context;
        std::string der = "\x02" + DerText::withLength(DerText::bytes(content));
        asn1data::ASN1T_CRLNumber number;
        ASSERT_EQ(decodeText(context.get(), Schema<asn1data::ASN1T_CRLNumber>::type, der, &number),
                  ASN_OK);
        EXPECT_STREQ(number.value, text);
        EXPECT_EQ(hexOf(encodeOrError(number)), hexOf(der));
    }
    const std::pair<const char*, const char*> texts[] = {
        {"0x0", "020100"}, {"0x0AbC", "02020ABC"}, {"0x001", "02020001"}};
    for (const auto& [text, der] : texts) {
        EXPECT_EQ(hexOf(encodeOrError(asn1data::ASN1T_CRLNumber{text})), der) << text;
    }
    for (const char* text : {"0x", "", "12", "0x1", "0x123", "0x0g", "0X00", "-0x01",
                             static_cast<const char*>(nullptr)}) {
        EXPECT_TRUE(encodeOrError(asn1data::ASN1T_CRLNumber{text}).starts_with("ASN.1 error"))
            << text;
    }
}

TEST(BigIntegers, AreReadInTheRadixThatTheTextNames) {
    const struct {
        const char* text;
        int radix, sign;
        const char* magnitude;
    } cases[] = {
        {"0", 0, 0, ""},
        {"255", 0, 1, "FF"},
        {"-256", 0, -1, "0100"},
        {"0xff", 0, 1, "FF"},
        {"0X0100", 0, 1, "0100"},
        {"0777", 0, 1, "01FF"},
        {"00", 0, 0, ""},
        {"ff", 16, 1, "FF"},
        {"z", 36, 1, "23"},
        {"340282366920938463463374607431768211456", 10, 1, "0100000000000000000000000000000000"},
    };
    ASN1CtxtRef context;
    for (const auto& c : cases) {
        ASN1BigInt number;
        rtBigIntInit(&number);
        EXPECT_EQ(rtBigIntSetStr(context.get(), &number, c.text, c.radix), ASN_OK) << c.text;
        EXPECT_EQ(number.sign, c.sign) << c.text;
        EXPECT_EQ(hexOf(number.mag), c.magnitude) << c.text;
        rtBigIntFree(&number);
    }
    const std::string huge(100000, '9');
    const std::pair<const char*, int> refused[] = {
        {"", 0},   {"-", 0},   {"0x", 0},    {"08", 0},         {" 1", 0},
        {"1 ", 0}, {"12a", 0}, {"0x1g", 0},  {"ff", 10},        {"1", 1},
        {"1", 37}, {"--1", 0}, {nullptr, 0}, {huge.c_str(), 10}};
    for (const auto& [text, radix] : refused) {
        ASN1BigInt number;
        EXPECT_EQ(rtBigIntSetStr(context.get(), &number, text, radix), ASN_E_INVVAL) << text;
    }
}

// ---- Characters ---------------------------------------------------------------------------------

TEST(Characters, Utf8IsReadAndWrittenExactly) {
    const struct {
        const char* utf8;
        std::wstring wide;
    } cases[] = {{"", L""},
                 {"A", L"A"},
                 {"\x7F", L"\x7F"},
                 {"\xC2\x80", L"\x80"},
                 {"\xDF\xBF", L"\x7FF"},
                 {"\xE0\xA0\x80", L"\x800"},
                 {"\xEF\xBF\xBF", L"\xFFFF"},
                 {"\xF0\x90\x80\x80", L"\x10000"},
                 {"\xF4\x8F\xBF\xBF", L"\x10FFFF"},
                 {"\xD0\x96x", L"\x416x"}};
    for (const auto& c : cases) {
        wchar_t wide[8];
        char narrow[8];
        int count = static_cast<int>(c.wide.size()), octets = static_cast<int>(strlen(c.utf8));
        EXPECT_EQ(rtUTF8Len(c.utf8), count);
        EXPECT_EQ(rtUTF8ToWCS(c.utf8, wide, c.wide.size() + 1), count);
        EXPECT_EQ(wide, c.wide);
        EXPECT_EQ(rtUTF8ToWCS(c.utf8, wide, c.wide.size()), ASN_E_BUFOVFLW);
        EXPECT_EQ(rtWCSToUTF8(c.wide.c_str(), narrow, strlen(c.utf8) + 1), octets);
        EXPECT_STREQ(narrow, c.utf8);
        EXPECT_EQ(rtWCSToUTF8(c.wide.c_str(), narrow, strlen(c.utf8)), ASN_E_BUFOVFLW);
        if (count == 1) {
            EXPECT_EQ(rtUTF8CharSize(c.wide[0]), octets);
        }
    }
}

TEST(Characters, WhatIsNoUtf8IsRefused) {
    for (const char* text :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x41", "\xE0\x80\x80", "\xE0\xA0",
          "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x80\x80\x80", "\xF0\x90\x80", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xFE", "\xFF", "A\xD0"}) {
        wchar_t wide[8];
        EXPECT_EQ(rtUTF8Len(text), ASN_E_INVVAL) << hexOf(text);
        EXPECT_EQ(rtUTF8ToWCS(text, wide, 8), ASN_E_INVVAL) << hexOf(text);
    }
    for (int c : {0xD800, 0xDFFF, 0x110000, -1}) {
        char narrow[8];
        std::wstring text(1, static_cast<wchar_t>(c));
        EXPECT_EQ(rtUTF8CharSize(text[0]), ASN_E_INVVAL);
        EXPECT_EQ(rtWCSToUTF8(text, narrow, sizeof narrow), ASN_E_INVVAL);
    }
}

TEST(Characters, BigEndianStringsGoBothWays) {
    ASN1CtxtRef context;
    ASN1TString text;
    std::wstring back;
    ASSERT_EQ(rtWCSToUCSString(context.get(), L"A\x10348", &text), ASN_OK);
    EXPECT_EQ(hexOf(text.view()), "0000004100010348");
    ASSERT_EQ(rtUCSToWCSString(text, back), ASN_OK);
    EXPECT_EQ(back, L"A\x10348");
    ASSERT_EQ(rtWCSToBMPString(context.get(), L"A\x10348", &text), ASN_OK);
    EXPECT_EQ(hexOf(text.view()), "00410348");
    ASSERT_EQ(rtBMPToWCSString(text, back), ASN_OK);
    EXPECT_EQ(back, L"A\x348");
    EXPECT_EQ(rtUCSToWCSString(ASN1TString(6, "\0\0\0A\0\0"), back), ASN_E_INVLEN);
    EXPECT_EQ(rtBMPToWCSString(ASN1TString(3, "\0A\0"), back), ASN_E_INVLEN);
    EXPECT_EQ(rtUCSToWCSString(ASN1TString(4, "\x00\x11\x00\x00"), back), ASN_E_INVVAL);
}

// ---- Contexts and cursors -----------------------------------------------------------------------

TEST(Contexts, MemoryIsDistinctAlignedAndBounded) {
    ASN1CtxtRef context;
    std::vector<std::pair<unsigned char*, std::size_t>> pieces;
    for (std::size_t size : {0, 1, 15, 16, 17, 5000, 20000, 3, 2000000, 8}) {
        auto* p = static_cast<unsigned char*>(rtMemHeapAlloc(context.get(), size));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0U);
        memset(p, static_cast<int>(pieces.size()), size);
        pieces.emplace_back(p, size);
    }
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        for (std::size_t k = 0; k < pieces[i].second; ++k) ASSERT_EQ(pieces[i].first[k], i);
    }
    EXPECT_GE(context->used(), 2025000U);
    EXPECT_EQ(rtMemHeapAlloc(context.get(), SIZE_MAX), nullptr);
    EXPECT_EQ(rtMemHeapAlloc(context.get(), SIZE_MAX / 2), nullptr);
    context->setLimit(context->used() + 100);
    EXPECT_EQ(rtMemHeapAlloc(context.get(), 4000000), nullptr);
    context->reset();
    EXPECT_EQ(context->used(), 0U);
}

TEST(Contexts, ErrorNamesCodeOffsetAndPath) {
    ASN1CtxtRef context;
    EXPECT_EQ(rtErrGetText(context.get()), "no error");
    context->setError(-3, "unexpected tag", 17);
    for (const char* step : {"extnID", "[2]", "extensions", "tbsCertificate"}) {
        context->addPath(step);
    }
    EXPECT_EQ(rtErrGetText(context.get()),
              "ASN.1 error -3: unexpected tag, offset 17, in tbsCertificate.extensions[2].extnID");
}

TEST(Cursors, StringsAreWrittenBackToFront) {
    ASN1CtxtRef context;
    ASN1CTXT* c = context.get();
    auto written = [&](int length) {
        return hexOf({reinterpret_cast<char*>(xe_getp(c)), static_cast<std::size_t>(length)});
    };
    xe_setp(c, nullptr, 0);
    int length = xe_charstr(c, "abc", ASN1EXPL, 12);
    EXPECT_EQ(written(length), "0C03616263");
    EXPECT_EQ(xe_octstr(c, octetsOf("xy"), 2, ASN1IMPL), 2);
    EXPECT_EQ(written(7), "78790C03616263");
    xe_setp(c, nullptr, 0);
    std::string big(300, 'z');
    EXPECT_EQ(xe_octstr(c, octetsOf(big), big.size(), ASN1EXPL), 304);
    EXPECT_EQ(written(6), "0482012C7A7A");
    std::uint8_t small[5];
    xe_setp(c, small, sizeof small);
    EXPECT_EQ(xe_charstr(c, "abcd", ASN1EXPL, 12), ASN_E_BUFOVFLW);
    EXPECT_EQ(xe_charstr(c, "abc", ASN1EXPL, 12), 5);
    EXPECT_EQ(xe_getp(c), small);
}

TEST(Cursors, SavedCursorsCanBePutBack) {
    ASN1CtxtRef context;
    ASN1CTXT saved;
    xe_setp(context.get(), nullptr, 0);
    EXPECT_EQ(xe_charstr(context.get(), "outer", ASN1EXPL, 12), 7);
    std::uint8_t* outer = xe_getp(context.get());
    rtCopyContext(&saved, context.get());
    xe_setp(context.get(), nullptr, 0);
    EXPECT_EQ(xe_charstr(context.get(), "inner", ASN1EXPL, 12), 7);
    EXPECT_NE(xe_getp(context.get()), outer);
    rtCopyContext(context.get(), &saved);
    EXPECT_EQ(xe_getp(context.get()), outer);
    EXPECT_EQ(memcmp(outer, "\x0C\x05outer", 7), 0);
}

TEST(Cursors, TagAndLengthAreCheckedAgainstWhatIsLeft) {
    const struct {
        const char* input;
        int code;
        std::uint8_t tag;
        std::size_t length;
    } cases[] = {
        {"0C{'abc'}", ASN_OK, 0x0C, 3},
        {"048103'abc'", ASN_OK, 0x04, 3},
        {"0482000161", ASN_OK, 0x04, 1},
        {"5F8101{'a'}", ASN_OK, 0x5F, 1},
        {"", ASN_E_ENDOFBUF, 0, 0},
        {"0C", ASN_E_ENDOFBUF, 0, 0},
        {"0C03'ab'", ASN_E_ENDOFBUF, 0, 0},
        {"0481", ASN_E_ENDOFBUF, 0, 0},
        {"0484FFFFFFFF", ASN_E_ENDOFBUF, 0, 0},
        {"3080 0000", ASN_E_INVLEN, 0, 0},
        {"0480 0000", ASN_E_INVLEN, 0, 0},
        {"1F", ASN_E_ENDOFBUF, 0, 0},
        {"1FFFFF", ASN_E_ENDOFBUF, 0, 0},
        {"0489FFFFFFFFFFFFFFFFFF", ASN_E_INVLEN, 0, 0},
    };
    for (const auto& c : cases) {
        ASN1CtxtRef context;
        std::string input = DerText::bytes(c.input);
        std::uint8_t tag = 0;
        std::size_t length = 0;
        xd_setp(context.get(), octetsOf(input), input.size());
        EXPECT_EQ(xd_tag_len(context.get(), &tag, &length), c.code) << c.input;
        if (c.code != ASN_OK) continue;
        EXPECT_EQ(tag, c.tag);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(xd_content(context.get(), length + 1), nullptr);
        EXPECT_EQ(xd_content(context.get(), length), octetsOf(input) + input.size() - length);
    }
}

}  // namespace
