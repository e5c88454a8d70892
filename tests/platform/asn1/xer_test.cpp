#include <gtest/gtest.h>

#include "DerText.h"
#include "platform/asn1/asn1data.h"

using namespace asn1data;

namespace {

template <class T>
const asn1::Type* typeOf() {
    return &Schema<T>::type;
}

/// XER text of an encoding, or the error's text.
std::string xerOf(const asn1::Type& type, const std::string& der) {
    ASN1CtxtRef context;
    void* value = rtNewValue(context.get(), type);
    std::string xer;
    if (decodeText(context.get(), type, der, value) < 0 ||
        rtEncodeXer(context.get(), type, value, xer) < 0) {
        return rtErrGetText(context.get());
    }
    return xer;
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
        const asn1::Type* type;
        const char* der;
        const char* xer;
    } cases[] = {
        {typeOf<ASN1T_CRLDistPointsSyntax>(), "30{30{A0{A0{86{'http://x/a.crl'}}}}}",
         "<CRLDistPointsSyntax><DistributionPoint><distributionPoint><fullName>"
         "<uniformResourceIdentifier>http://x/a.crl</uniformResourceIdentifier></fullName>"
         "</distributionPoint></DistributionPoint></CRLDistPointsSyntax>"},
        {typeOf<ASN1T_KeyUsage>(), "03{0106}", "<KeyUsage><keyCertSign/><cRLSign/></KeyUsage>"},
        {typeOf<ASN1T_KeyUsage>(), "03{00}", "<KeyUsage></KeyUsage>"},
        {typeOf<ASN1T_KeyUsage>(), "03{038008}", "<KeyUsage>1000000000001</KeyUsage>"},
        {typeOf<ASN1T_CRLReason>(), "0A{02}", "<CRLReason><caCompromise/></CRLReason>"},
        {typeOf<ASN1T_CRLReason>(), "0A{08}", "<CRLReason><removeFromCRL/></CRLReason>"},
        {typeOf<ASN1T_CRLReason>(), "0A{07}", "<CRLReason><7/></CRLReason>"},
        {typeOf<ASN1T_CRLReason>(), "0A{09}", "<CRLReason><9/></CRLReason>"},
        {typeOf<ASN1T_CRLReason>(), "0A{FF}", "<CRLReason><-1/></CRLReason>"},
        {typeOf<ASN1T_HoldInstruction>(), "06{2A8648CE380202}",
         "<HoldInstruction>1.2.840.10040.2.2</HoldInstruction>"},
        {typeOf<ASN1T_InvalidityDate>(), "18{'20250101000000Z'}",
         "<InvalidityDate>20250101000000Z</InvalidityDate>"},
        {typeOf<ASN1T_CRLNumber>(), "02{0100}", "<CRLNumber>256</CRLNumber>"},
        {typeOf<ASN1T_CRLNumber>(), "02{80}", "<CRLNumber>-128</CRLNumber>"},
        {typeOf<ASN1T_CRLNumber>(), "02{00FFFFFFFFFFFFFFFFFF}",
         "<CRLNumber>4722366482869645213695</CRLNumber>"},
        {typeOf<ASN1T_NULLParams>(), "05{}", "<NULLParams/>"},
        {typeOf<ASN1T_SubjectKeyIdentifier>(), "04{01AF}",
         "<SubjectKeyIdentifier>01AF</SubjectKeyIdentifier>"},
        {typeOf<ASN1T_BasicConstraintsSyntax>(), "30{}", "<BasicConstraintsSyntax/>"},
        {typeOf<ASN1T_BasicConstraintsSyntax>(), "30{01{FF}02{03}}",
         "<BasicConstraintsSyntax><cA><true/></cA><pathLenConstraint>3</pathLenConstraint>"
         "</BasicConstraintsSyntax>"},
        {typeOf<ASN1T_ExtKeyUsageSyntax>(), "30{06{2B06010505070301}}",
         "<ExtKeyUsageSyntax><KeyPurposeId>1.3.6.1.5.5.7.3.1</KeyPurposeId></ExtKeyUsageSyntax>"},
        {typeOf<ASN1T_SubjectAltName>(), "30{82{'x'}87{7F000001}A4{30{}}}",
         "<SubjectAltName><dNSName>x</dNSName><iPAddress>7F000001</iPAddress><directoryName>"
         "<rdnSequence/></directoryName></SubjectAltName>"},
        {typeOf<ASN1T_SubjectAltName>(), "30{A0{06{2A0304}A0{0C{'x'}}}}",
         "<SubjectAltName><otherName><type-id>1.2.3.4</type-id><value>0C0178</value></otherName>"
         "</SubjectAltName>"},
        {typeOf<ASN1T_PolicyMappingsSyntax>(), "30{30{06{2A03}06{2A04}}}",
         "<PolicyMappingsSyntax><SEQUENCE><issuerDomainPolicy>1.2.3</issuerDomainPolicy>"
         "<subjectDomainPolicy>1.2.4</subjectDomainPolicy></SEQUENCE></PolicyMappingsSyntax>"},
        {typeOf<ASN1T_AttributeTypeAndValue>(), "30{06{550406}13{'RU'}}",
         "<AttributeTypeAndValue><type>2.5.4.6</type><value><DirectoryString><printableString>RU"
         "</printableString></DirectoryString></value></AttributeTypeAndValue>"},
        {typeOf<ASN1T_AttributeTypeAndValue>(), "30{06{550403}0C{FF}}",
         "<AttributeTypeAndValue><type>2.5.4.3</type><value>0C01FF</value>"
         "</AttributeTypeAndValue>"},
        {typeOf<ASN1T_NoticeReference>(), "30{16{'o'}30{02{01}02{7F}}}",
         "<NoticeReference><organization><ia5String>o</ia5String></organization><noticeNumbers>"
         "<INTEGER>1</INTEGER><INTEGER>127</INTEGER></noticeNumbers></NoticeReference>"},
        {typeOf<ASN1T_PKIFreeText>(), "30{0C{'a'}0C{}}",
         "<PKIFreeText><UTF8String>a</UTF8String><UTF8String/></PKIFreeText>"},
        {typeOf<ASN1T_UnsupportedOIDsValue>(), "30{06{2A03}}",
         "<UnsupportedOIDsValue><OBJECT_IDENTIFIER>1.2.3</OBJECT_IDENTIFIER>"
         "</UnsupportedOIDsValue>"},
        {typeOf<ASN1T_PKIStatusInfo>(), "30{02{02}03{0520}}",
         "<PKIStatusInfo><status>2</status><failInfo><badRequest/></failInfo></PKIStatusInfo>"},
        {typeOf<ASN1T_DirectoryString>(), "0C{'a&b<c>\"' 00 09 0A 0D 1F D096}",
         "<DirectoryString><utf8String>a&amp;b&lt;c&gt;\"<nul/>\t\n&#13;<is1/>\xD0\x96"
         "</utf8String></DirectoryString>"},
        {typeOf<ASN1T_DirectoryString>(), "14{E9 00}",
         "<DirectoryString><teletexString>\xC3\xA9<nul/></teletexString></DirectoryString>"},
        {typeOf<ASN1T_DirectoryString>(), "1E{0416 0026}",
         "<DirectoryString><bmpString>\xD0\x96&amp;</bmpString></DirectoryString>"},
        {typeOf<ASN1T_DirectoryString>(), "1C{00010348}",
         "<DirectoryString><universalString>\xF0\x90\x8D\x88</universalString></DirectoryString>"},
    };
    for (const auto& c : cases) {
        std::string der = DerText::bytes(c.der);
        EXPECT_EQ(xerOf(*c.type, der), c.xer);
        EXPECT_EQ(derOf(*c.type, c.xer), hexOf(der)) << c.xer;
    }
}

TEST(Xer, OtherSpellingsAreRead) {
    const struct {
        const asn1::Type* type;
        const char* xer;
        const char* der;
    } cases[] = {
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage/>", "030100"},
        {typeOf<ASN1T_KeyUsage>(),
         " \n<KeyUsage >\n <cRLSign />\t<digitalSignature/>\n</KeyUsage>\n", "03020182"},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage>100</KeyUsage>", "03020580"},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>0x0100</CRLNumber>", "02020100"},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber> 0080 </CRLNumber>", "020150"},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>-129</CRLNumber>", "0202FF7F"},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>0</CRLNumber>", "020100"},
        {typeOf<ASN1T_InhibitAnyPolicy>(), "<InhibitAnyPolicy>0xff</InhibitAnyPolicy>", "020200FF"},
        {typeOf<ASN1T_CRLReason>(), "<CRLReason>8</CRLReason>", "0A0108"},
        {typeOf<ASN1T_NULLParams>(), "<NULLParams></NULLParams>", "0500"},
        {typeOf<ASN1T_SubjectKeyIdentifier>(),
         "<SubjectKeyIdentifier>a b\nC1</SubjectKeyIdentifier>", "0402ABC1"},
        {typeOf<ASN1T_BasicConstraintsSyntax>(),
         "<BasicConstraintsSyntax>\n</BasicConstraintsSyntax>", "3000"},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>&quot;&apos;&#65;&#x42;</CPSuri>", "160422274142"},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri> a </CPSuri>", "1603206120"},
        {typeOf<ASN1T_Extension>(),
         "<Extension><extnID>2.5.29.15</extnID><extnValue>03020520</extnValue></Extension>",
         "300B0603551D0F040403020520"},
        {typeOf<ASN1T_Extension>(),
         "<Extension><extnID>2.5.29.15</extnID><critical><false/></critical><extnValue/>"
         "</Extension>",
         "30070603551D0F0400"},
        {typeOf<ASN1T_BasicConstraintsSyntax>(),
         "<BasicConstraintsSyntax><cA><false/></cA></BasicConstraintsSyntax>", "3000"},
        {typeOf<ASN1T_GeneralSubtree>(),
         "<GeneralSubtree><base><dNSName>x</dNSName></base><minimum>0</minimum></GeneralSubtree>",
         "3003820178"},
    };
    for (const auto& c : cases) EXPECT_EQ(derOf(*c.type, c.xer), c.der) << c.xer;
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

TEST(Xer, WhatIsMalformedIsRefused) {
    const std::string point =
        "<CRLDistPointsSyntax><DistributionPoint><distributionPoint><fullName>"
        "<uniformResourceIdentifier>";
    const struct {
        const asn1::Type* type;
        std::string xer;
        int code;
    } cases[] = {
        {typeOf<ASN1T_KeyUsage>(), "", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "KeyUsage", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage>", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage></keyUsage>", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "</KeyUsage>", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<ReasonFlags/>", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage/><KeyUsage/>", ASN_E_TRAILING},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage/>x", ASN_E_TRAILING},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage><unknown/></KeyUsage>", ASN_E_INVVAL},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage><cRLSign></cRLSign></KeyUsage>", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage><cRLSign/>1</KeyUsage>", ASN_E_XML},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage>012</KeyUsage>", ASN_E_INVVAL},
        {typeOf<ASN1T_KeyUsage>(), "<KeyUsage a=\"b\"/>", ASN_E_XML},
        {typeOf<ASN1T_CRLReason>(), "<CRLReason/>", ASN_E_INVVAL},
        {typeOf<ASN1T_CRLReason>(), "<CRLReason><nonsense/></CRLReason>", ASN_E_INVVAL},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber/>", ASN_E_INVVAL},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>1 2</CRLNumber>", ASN_E_INVVAL},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>0x</CRLNumber>", ASN_E_INVVAL},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>0x123</CRLNumber>", ASN_E_INVVAL},
        {typeOf<ASN1T_CRLNumber>(), std::string("<CRLNumber>0x01\0 2</CRLNumber>", 30),
         ASN_E_INVVAL},
        {typeOf<ASN1T_CRLNumber>(), "<CRLNumber>" + std::string(100000, '9') + "</CRLNumber>",
         ASN_E_INVVAL},
        {typeOf<ASN1T_InhibitAnyPolicy>(), "<InhibitAnyPolicy>2147483648</InhibitAnyPolicy>",
         ASN_E_TOOBIG},
        {typeOf<ASN1T_InhibitAnyPolicy>(), "<InhibitAnyPolicy>0x100000000</InhibitAnyPolicy>",
         ASN_E_TOOBIG},
        {typeOf<ASN1T_PKIAudit>(), "<PKIAudit><type>-1</type></PKIAudit>", ASN_E_TOOBIG},
        {typeOf<ASN1T_PKIAudit>(), "<PKIAudit><type>1</type></PKIAudit>", ASN_E_MISSING},
        {typeOf<ASN1T_HoldInstruction>(), "<HoldInstruction>1</HoldInstruction>", ASN_E_INVVAL},
        {typeOf<ASN1T_SubjectKeyIdentifier>(), "<SubjectKeyIdentifier>ABC</SubjectKeyIdentifier>",
         ASN_E_INVLEN},
        {typeOf<ASN1T_SubjectKeyIdentifier>(), "<SubjectKeyIdentifier>G0</SubjectKeyIdentifier>",
         ASN_E_INVVAL},
        {typeOf<ASN1T_BasicConstraintsSyntax>(),
         "<BasicConstraintsSyntax><cA>true</cA></BasicConstraintsSyntax>", ASN_E_XML},
        {typeOf<ASN1T_BasicConstraintsSyntax>(),
         "<BasicConstraintsSyntax><cA/></BasicConstraintsSyntax>", ASN_E_XML},
        {typeOf<ASN1T_BasicConstraintsSyntax>(),
         "<BasicConstraintsSyntax><cB><true/></cB></BasicConstraintsSyntax>", ASN_E_XML},
        {typeOf<ASN1T_BasicConstraintsSyntax>(),
         "<BasicConstraintsSyntax>x</BasicConstraintsSyntax>", ASN_E_XML},
        {typeOf<ASN1T_NULLParams>(), "<NULLParams>x</NULLParams>", ASN_E_XML},
        {typeOf<ASN1T_Time>(), "<Time/>", ASN_E_CHOICE},
        {typeOf<ASN1T_Time>(), "<Time><time>x</time></Time>", ASN_E_CHOICE},
        {typeOf<ASN1T_GeneralNames>(), "<GeneralNames><nobody/></GeneralNames>", ASN_E_CHOICE},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>&bad;</CPSuri>", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>a&b</CPSuri>", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>&#xD800;</CPSuri>", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>&#x1000041;</CPSuri>", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>&#;</CPSuri>", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>&", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri><tab/></CPSuri>", ASN_E_XML},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>\xFF</CPSuri>", ASN_E_INVVAL},
        {typeOf<ASN1T_CPSuri>(), "<CPSuri>\xD0\x96</CPSuri>", ASN_E_INVVAL},
        {typeOf<ASN1T_AttributeTypeAndValue>(),
         "<AttributeTypeAndValue><type>2.5.4.6</type><value><KeyUsage/></value>"
         "</AttributeTypeAndValue>",
         ASN_E_XML},
        {typeOf<ASN1T_AttributeTypeAndValue>(),
         "<AttributeTypeAndValue><type>1.2.3</type><value><NULLParams/></value>"
         "</AttributeTypeAndValue>",
         ASN_E_INVVAL},
        {typeOf<ASN1T_AttributeTypeAndValue>(),
         "<AttributeTypeAndValue><type>1.2.3</type><value/></AttributeTypeAndValue>",
         ASN_E_MISSING},
        {typeOf<ASN1T_CRLDistPointsSyntax>(), point + "http://x/?a&b", ASN_E_XML},
        {typeOf<ASN1T_CRLDistPointsSyntax>(), point, ASN_E_XML},
    };
    for (const auto& c : cases) {
        std::string result = derOf(*c.type, c.xer);
        EXPECT_TRUE(result.starts_with("ASN.1 error " + std::to_string(c.code) + ":"))
            << c.xer.substr(0, 200) << "\n"
            << result;
    }
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
        EXPECT_EQ(derOf(Schema<ASN1T_HoldInstruction>::type,
                        xerOf(Schema<ASN1T_HoldInstruction>::type, der)),
                  hexOf(der));
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
