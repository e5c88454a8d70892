#include <gtest/gtest.h>

#include "golden.h"
#include "platform/asn1/asn1data.h"

using namespace asn1data;

namespace {

/// The text of a value whose content is this; an empty element where there is none.
std::string element(const std::string& type, const char* content) {
    return content == nullptr ? "<" + type + "/>" : "<" + type + ">" + content + "</" + type + ">";
}

/// Hexadecimal encoding of XER text, or the error's text.
std::string derOf(const asn1::Type& type, const std::string& xer) {
    ASN1CtxtRef context;
    void* value = rtNewValue(context.get(), type);
    if (rtDecodeXer(context.get(), type, xer, value) < 0) return rtErrGetText(context.get());
    std::string der = encodeOrError(type, value);
    return der.starts_with("ASN.1 error") ? der : hexOf(der);
}

TEST(Xer, TextsAreExact) {
    const struct {
        const char *type, *der, *content;
    } cases[] = {
        {"CRLDistPointsSyntax", "30{30{A0{A0{86{'http://x/a.crl'}}}}}",
         "<DistributionPoint><distributionPoint><fullName><uniformResourceIdentifier>http://x/a.crl"
         "</uniformResourceIdentifier></fullName></distributionPoint></DistributionPoint>"},
        {"KeyUsage", "03{0106}", "<keyCertSign/><cRLSign/>"},
        {"KeyUsage", "03{00}", ""},
        {"KeyUsage", "03{038008}", "1000000000001"},
        {"CRLReason", "0A{02}", "<caCompromise/>"},
        {"CRLReason", "0A{08}", "<removeFromCRL/>"},
        {"CRLReason", "0A{07}", "<7/>"},
        {"CRLReason", "0A{09}", "<9/>"},
        {"CRLReason", "0A{FF}", "<-1/>"},
        {"HoldInstruction", "06{2A8648CE380202}", "1.2.840.10040.2.2"},
        {"InvalidityDate", "18{'20250101000000Z'}", "20250101000000Z"},
        {"CRLNumber", "02{0100}", "256"},
        {"CRLNumber", "02{80}", "-128"},
        {"CRLNumber", "02{3B9ACA00}", "1000000000"},
        {"CRLNumber", "02{033B2E3C9FD0803CE7FFFFFF}", "999999999999999999999999999"},
        {"CRLNumber", "02{00FFFFFFFFFFFFFFFFFF}", "4722366482869645213695"},
        {"NULLParams", "05{}", nullptr},
        {"SubjectKeyIdentifier", "04{01AF}", "01AF"},
        {"BasicConstraintsSyntax", "30{}", nullptr},
        {"BasicConstraintsSyntax", "30{01{FF}02{03}}",
         "<cA><true/></cA><pathLenConstraint>3</pathLenConstraint>"},
        {"ExtKeyUsageSyntax", "30{06{2B06010505070301}}",
         "<KeyPurposeId>1.3.6.1.5.5.7.3.1</KeyPurposeId>"},
        {"SubjectAltName", "30{82{'x'}87{7F000001}A4{30{}}}",
         "<dNSName>x</dNSName><iPAddress>7F000001</iPAddress>"
         "<directoryName><rdnSequence/></directoryName>"},
        {"SubjectAltName", "30{A0{06{2A0304}A0{0C{'x'}}}}",
         "<otherName><type-id>1.2.3.4</type-id><value>0C0178</value></otherName>"},
        {"PolicyMappingsSyntax", "30{30{06{2A03}06{2A04}}}",
         "<SEQUENCE><issuerDomainPolicy>1.2.3</issuerDomainPolicy>"
         "<subjectDomainPolicy>1.2.4</subjectDomainPolicy></SEQUENCE>"},
        {"AttributeTypeAndValue", "30{06{550406}13{'RU'}}",
         "<type>2.5.4.6</type><value><DirectoryString><printableString>RU</printableString>"
         "</DirectoryString></value>"},
        {"AttributeTypeAndValue", "30{06{550403}0C{FF}}",
         "<type>2.5.4.3</type><value>0C01FF</value>"},
        {"NoticeReference", "30{16{'o'}30{02{01}02{7F}}}",
         "<organization><ia5String>o</ia5String></organization>"
         "<noticeNumbers><INTEGER>1</INTEGER><INTEGER>127</INTEGER></noticeNumbers>"},
        {"PKIFreeText", "30{0C{'a'}0C{}}", "<UTF8String>a</UTF8String><UTF8String/>"},
        {"UnsupportedOIDsValue", "30{06{2A03}}", "<OBJECT_IDENTIFIER>1.2.3</OBJECT_IDENTIFIER>"},
        {"PKIStatusInfo", "30{02{02}03{0520}}",
         "<status>2</status><failInfo><badRequest/></failInfo>"},
        {"DirectoryString", "0C{'a&b<c>\"' 00 09 0A 0D 1F D096}",
         "<utf8String>a&amp;b&lt;c&gt;\"<nul/>\t\n&#13;<is1/>\xD0\x96</utf8String>"},
        {"DirectoryString", "14{E9 00}", "<teletexString>\xC3\xA9<nul/></teletexString>"},
        {"DirectoryString", "1E{0416 0026}", "<bmpString>\xD0\x96&amp;</bmpString>"},
        {"DirectoryString", "1C{00010348}", "<universalString>\xF0\x90\x8D\x88</universalString>"},
    };
    for (const auto& c : cases) {
        const asn1::Type& type = typeNamed(c.type);
        const std::string der = DerText::bytes(c.der), xer = element(c.type, c.content);
        EXPECT_EQ(xerOf(type, der), xer);
        EXPECT_EQ(derOf(type, xer), hexOf(der)) << xer;
    }
}

TEST(Xer, OtherSpellingsAreRead) {
    const struct {
        const char *type, *content, *der;
    } cases[] = {
        {"KeyUsage", nullptr, "030100"},
        {"KeyUsage", "100", "03020580"},
        {"CRLNumber", "0x0100", "02020100"},
        {"CRLNumber", " 0080 ", "020150"},
        {"CRLNumber", "-129", "0202FF7F"},
        {"CRLNumber", "0", "020100"},
        {"InhibitAnyPolicy", "0xff", "020200FF"},
        {"CRLReason", "8", "0A0108"},
        {"NULLParams", "", "0500"},
        {"SubjectKeyIdentifier", "a b\nC1", "0402ABC1"},
        {"BasicConstraintsSyntax", "\n", "3000"},
        {"BasicConstraintsSyntax", "<cA><false/></cA>", "3000"},
        {"CPSuri", "&quot;&apos;&#65;&#x42;", "160422274142"},
        {"CPSuri", " a ", "1603206120"},
        {"Extension", "<extnID>2.5.29.15</extnID><extnValue>03020520</extnValue>",
         "300B0603551D0F040403020520"},
        {"Extension", "<extnID>2.5.29.15</extnID><critical><false/></critical><extnValue/>",
         "30070603551D0F0400"},
        {"GeneralSubtree", "<base><dNSName>x</dNSName></base><minimum>0</minimum>", "3003820178"},
    };
    for (const auto& c : cases) {
        const std::string xer = element(c.type, c.content);
        EXPECT_EQ(derOf(typeNamed(c.type), xer), c.der) << xer;
    }
    const char* spaced = " \n<KeyUsage >\n <cRLSign />\t<digitalSignature/>\n</KeyUsage>\n";
    EXPECT_EQ(derOf(typeNamed("KeyUsage"), spaced), "03020182");
}

/// The bytes keep a DEFAULT that was written out, canonical text does not show it.
TEST(Xer, DefaultsAreLeftOut) {
    EXPECT_EQ(xerOf(Schema<ASN1T_BasicConstraintsSyntax>::type, DerText::bytes("30{01{00}02{01}}")),
              "<BasicConstraintsSyntax><pathLenConstraint>1</pathLenConstraint>"
              "</BasicConstraintsSyntax>");
    ASN1CtxtRef context;
    ASN1T_BasicConstraintsSyntax read;
    ASSERT_EQ(
        rtDecodeXer(context.get(), Schema<ASN1T_BasicConstraintsSyntax>::type,
                    "<BasicConstraintsSyntax><cA><true/></cA></BasicConstraintsSyntax>", &read),
        ASN_OK);
    EXPECT_TRUE(read.cA && read.m.cAPresent);
}

void expectRefused(const char* type, const std::string& xer, int code) {
    const std::string result = derOf(typeNamed(type), xer);
    EXPECT_TRUE(result.starts_with("ASN.1 error " + std::to_string(code) + ":"))
        << xer.substr(0, 200) << "\n"
        << result;
}

TEST(Xer, WhatIsNoElementOfItsTypeIsRefused) {
    const std::pair<const char*, int> cases[] = {
        {"", ASN_E_XML},
        {"KeyUsage", ASN_E_XML},
        {"<KeyUsage", ASN_E_XML},
        {"<KeyUsage>", ASN_E_XML},
        {"<KeyUsage></keyUsage>", ASN_E_XML},
        {"</KeyUsage>", ASN_E_XML},
        {"<ReasonFlags/>", ASN_E_XML},
        {"<KeyUsage a=\"b\"/>", ASN_E_XML},
        {"<KeyUsage/><KeyUsage/>", ASN_E_TRAILING},
        {"<KeyUsage/>x", ASN_E_TRAILING},
    };
    for (const auto& [xer, code] : cases) expectRefused("KeyUsage", xer, code);
    expectRefused("CPSuri", "<CPSuri>&", ASN_E_XML);
    expectRefused("CRLNumber", std::string("<CRLNumber>0x01\0 2</CRLNumber>", 30), ASN_E_INVVAL);
    const std::string point =
        "<CRLDistPointsSyntax><DistributionPoint><distributionPoint><fullName>"
        "<uniformResourceIdentifier>";
    expectRefused("CRLDistPointsSyntax", point + "http://x/?a&b", ASN_E_XML);
    expectRefused("CRLDistPointsSyntax", point, ASN_E_XML);
}

TEST(Xer, MalformedContentIsRefused) {
    const std::string nines(100000, '9');
    const struct {
        const char *type, *content;
        int code;
    } cases[] = {
        {"KeyUsage", "<unknown/>", ASN_E_INVVAL},
        {"KeyUsage", "<cRLSign></cRLSign>", ASN_E_XML},
        {"KeyUsage", "<cRLSign/>1", ASN_E_XML},
        {"KeyUsage", "012", ASN_E_INVVAL},
        {"CRLReason", nullptr, ASN_E_INVVAL},
        {"CRLReason", "<nonsense/>", ASN_E_INVVAL},
        {"CRLNumber", nullptr, ASN_E_INVVAL},
        {"CRLNumber", "1 2", ASN_E_INVVAL},
        {"CRLNumber", "0x", ASN_E_INVVAL},
        {"CRLNumber", "0x123", ASN_E_INVVAL},
        {"CRLNumber", nines.c_str(), ASN_E_INVVAL},
        {"InhibitAnyPolicy", "2147483648", ASN_E_TOOBIG},
        {"InhibitAnyPolicy", "0x100000000", ASN_E_TOOBIG},
        {"PKIAudit", "<type>-1</type>", ASN_E_TOOBIG},
        {"PKIAudit", "<type>1</type>", ASN_E_MISSING},
        {"HoldInstruction", "1", ASN_E_INVVAL},
        {"SubjectKeyIdentifier", "ABC", ASN_E_INVLEN},
        {"SubjectKeyIdentifier", "G0", ASN_E_INVVAL},
        {"BasicConstraintsSyntax", "<cA>true</cA>", ASN_E_XML},
        {"BasicConstraintsSyntax", "<cA/>", ASN_E_XML},
        {"BasicConstraintsSyntax", "<cB><true/></cB>", ASN_E_XML},
        {"BasicConstraintsSyntax", "x", ASN_E_XML},
        {"NULLParams", "x", ASN_E_XML},
        {"Time", nullptr, ASN_E_CHOICE},
        {"Time", "<time>x</time>", ASN_E_CHOICE},
        {"GeneralNames", "<nobody/>", ASN_E_CHOICE},
        {"CPSuri", "&bad;", ASN_E_XML},
        {"CPSuri", "a&b", ASN_E_XML},
        {"CPSuri", "&#xD800;", ASN_E_XML},
        {"CPSuri", "&#x1000041;", ASN_E_XML},
        {"CPSuri", "&#;", ASN_E_XML},
        {"CPSuri", "<tab/>", ASN_E_XML},
        {"CPSuri", "\xFF", ASN_E_INVVAL},
        {"CPSuri", "\xD0\x96", ASN_E_INVVAL},
        {"AttributeTypeAndValue", "<type>2.5.4.6</type><value><KeyUsage/></value>", ASN_E_XML},
        {"AttributeTypeAndValue", "<type>1.2.3</type><value><NULLParams/></value>", ASN_E_INVVAL},
        {"AttributeTypeAndValue", "<type>1.2.3</type><value/>", ASN_E_MISSING},
    };
    for (const auto& c : cases) expectRefused(c.type, element(c.type, c.content), c.code);
}

TEST(Xer, FaultsNameTheirPath) {
    EXPECT_EQ(derOf(Schema<ASN1T_CRLDistPointsSyntax>::type,
                    "<CRLDistPointsSyntax><DistributionPoint/><DistributionPoint><reasons>2"
                    "</reasons></DistributionPoint></CRLDistPointsSyntax>"),
              "ASN.1 error -5: content is no value of the type, offset 70, in [1].reasons");
}

/// A text cut anywhere is refused, and a changed one never harms.
TEST(Xer, CutAndChangedTextsAreRefusedOrRead) {
    DerText text;
    std::string der = text.make(
        "30{30{06{551D0F}01{FF}04{03{0106}}}30{06{551D11}04{30{82{'x&'}A4{30{31{30{06{550403}"
        "0C{D096 01}}}}}}}}30{06{2A03}04{DEAD}}30{06{551D14}04{02{7FFF}}}}");
    const asn1::Type& type = Schema<ASN1T_Extensions>::type;
    std::string xer = xerOf(type, der);
    ASSERT_EQ(derOf(type, xer), hexOf(der)) << xer;
    for (std::size_t i = 0; i < xer.size(); ++i) {
        EXPECT_TRUE(derOf(type, xer.substr(0, i)).starts_with("ASN.1 error")) << i;
        for (char c : {'<', '>', '/', '&', ' ', '\xFF', '0'}) {
            std::string changed = xer;
            changed[i] = c;
            derOf(type, changed);
        }
    }
}

/// Numbers are compared by their texts, so each has one however it was spelt.
TEST(Xer, EqualNumbersHaveEqualTexts) {
    const char* const cases[][2] = {{"255", "0x0ff"},    {"0x0fF", "0x0ff"}, {"0x00ff", "0x0ff"},
                                    {"0x00FF", "0x0ff"}, {"0xff", "0xff"},   {"0xFF", "0xff"},
                                    {"-1", "0xff"}};
    for (const auto& [spelling, text] : cases) {
        ASN1CtxtRef context;
        ASN1T_CRLNumber number;
        std::string xer = "<CRLNumber>" + std::string(spelling) + "</CRLNumber>";
        ASSERT_EQ(rtDecodeXer(context.get(), Schema<ASN1T_CRLNumber>::type, xer, &number), ASN_OK);
        EXPECT_STREQ(number.value, text) << spelling;
    }
}

TEST(Xer, IdentifiersOfAnyNumberOfArcsAreReadBack) {
    for (std::size_t octets : {127U, 128U, 3000U}) {
        std::string der = "\x06" + DerText::withLength(std::string(octets, '\x2A'));
        const asn1::Type& type = typeNamed("HoldInstruction");
        EXPECT_EQ(derOf(type, xerOf(type, der)), hexOf(der));
    }
}

TEST(Xer, NestingAndMemoryAreBounded) {
    std::string open = "<PKIMessages>", text;
    for (int i = 0; i < 5000; ++i) {
        text +=
            "<PKIMessage><header><pvno>2</pvno><sender><dNSName/></sender><recipient><dNSName/>"
            "</recipient></header><body><nested>";
    }
    EXPECT_TRUE(derOf(Schema<ASN1T_PKIMessages>::type, open + text).starts_with("ASN.1 error -7"));
    std::string many = "<PollReqContent>";
    for (int i = 0; i < 100000; ++i) many += "<SEQUENCE><certReqId>1</certReqId></SEQUENCE>";
    EXPECT_EQ(derOf(Schema<ASN1T_PollReqContent>::type, many + "</PollReqContent>").size(),
              2 * (500000U + 5));
    std::string points = "<CRLDistPointsSyntax>";
    while (points.size() < 1000000) points += "<DistributionPoint/>";
    ASN1CtxtRef context;
    ASN1T_CRLDistPointsSyntax value;
    rtDecodeXer(context.get(), Schema<ASN1T_CRLDistPointsSyntax>::type, points, &value);
    EXPECT_LT(context->used(), 40 * points.size());
}

TEST(Xer, NumbersTooLongForDecimalKeepTheirOctets) {
    for (std::size_t size : {1024U, 1025U, 5000U}) {
        std::string der = "\x02" + DerText::withLength("\x11" + std::string(size - 1, '\x77'));
        std::string xer = xerOf(Schema<ASN1T_CRLNumber>::type, der);
        EXPECT_EQ(xer.find("0x") != std::string::npos, size > 1024) << size;
        EXPECT_EQ(derOf(Schema<ASN1T_CRLNumber>::type, xer), hexOf(der));
    }
}

}  // namespace
