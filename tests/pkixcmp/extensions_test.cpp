#include "pkixcmp/Extensions.h"

#include "capilite/Oid.h"
#include "tests/pkixcmp/Enrolment.h"

namespace {

constexpr const char* source = "pkixcmp/CA_CMP_Util";

const std::string keyUsage = "2.5.29.15", reasonCode = "2.5.29.21", hold = "2.5.29.23",
                  invalidity = "2.5.29.24", crlNumber = "2.5.29.20",
                  noCheck = "1.3.6.1.5.5.7.48.1.5", basic = "2.5.29.19";

TEST(ExtensionText, GivesTheDerAndReadsBack) {
    const struct {
        std::string oid;
        const char* text;
        const char* der;
        const char* canonical = nullptr;  // null: the text as it stands
    } cases[] = {
        {keyUsage, "<KeyUsage><digitalSignature/><keyCertSign/></KeyUsage>", "03020284"},
        {keyUsage, " <KeyUsage>\n <cRLSign/> <digitalSignature />\n</KeyUsage > ", "03020182",
         "<KeyUsage><digitalSignature/><cRLSign/></KeyUsage>"},
        {keyUsage, "<KeyUsage><decipherOnly/></KeyUsage>", "0303070080"},
        {keyUsage, "<KeyUsage></KeyUsage>", "03020700"},
        {keyUsage, "<KeyUsage/>", "03020700", "<KeyUsage></KeyUsage>"},
        {keyUsage, " ", "0303070000", "<KeyUsage></KeyUsage>"},
        {keyUsage, "<KeyUsage>1100100010100</KeyUsage>", "030303C8A0"},
        {reasonCode, "<CRLReason><caCompromise/></CRLReason>", "0A0102"},
        {reasonCode, "<CRLReason><removeFromCRL/></CRLReason>", "0A0108"},
        {reasonCode, "<CRLReason><8/></CRLReason>", "0A0108",
         "<CRLReason><removeFromCRL/></CRLReason>"},
        {reasonCode, "<CRLReason><7/></CRLReason>", "0A0107"},
        {reasonCode, "<CRLReason> 8 </CRLReason>", "0A0108",
         "<CRLReason><removeFromCRL/></CRLReason>"},
        {reasonCode, "<CRLReason><0x9/></CRLReason>", "0A0109", "<CRLReason><9/></CRLReason>"},
        {reasonCode, "", "0A0100", "<CRLReason><unspecified/></CRLReason>"},
        {hold, "<HoldInstruction>1.2.840.10040.2.2</HoldInstruction>", "06072A8648CE380202"},
        {hold, "<HoldInstruction>1.2.549755813888</HoldInstruction>", "06072A908080808000"},
        {hold, "", "", ""},
        {invalidity, "<InvalidityDate>20260101000000Z</InvalidityDate>",
         "180F32303236303130313030303030305A"},
        {invalidity, "", "", ""},
        {crlNumber, "<CRLNumber>200</CRLNumber>", "020200C8"},
        {crlNumber, "<CRLNumber> 0xC8 </CRLNumber>", "020200C8", "<CRLNumber>200</CRLNumber>"},
        {crlNumber, "<CRLNumber>0</CRLNumber>", "020100"},
        {crlNumber, "<CRLNumber>-96</CRLNumber>", "0201A0"},
        {crlNumber, "<CRLNumber>36893488147419103232</CRLNumber>", "0209020000000000000000"},
        {crlNumber, "", "", ""},
        {noCheck, "<NULLParams/>", "0500"},
        {basic, "<BasicConstraintsSyntax><cA><true/></cA></BasicConstraintsSyntax>", "30030101FF"},
        {"2.5.29.37",
         "<ExtKeyUsageSyntax><KeyPurposeId>1.3.6.1.5.5.7.3.1</KeyPurposeId></ExtKeyUsageSyntax>",
         "300A06082B06010505070301"},
    };
    for (const auto& c : cases) {
        const CACMPT_ExtValue value(c.oid, c.text);
        EXPECT_EQ(value.oid, c.oid);
        EXPECT_EQ(hexOf(value.value), c.der) << c.text;
        EXPECT_EQ(value.xml, c.canonical ? c.canonical : c.text);
        if (value.value.empty() || std::string_view(c.text) == " ") continue;
        EXPECT_EQ(CACMPT_ExtValue(c.oid, value.xml).value, value.value) << value.xml;
    }
}

TEST(ExtensionText, OfWrongFormIsRefused) {
    const struct {
        std::string oid;
        const char* failure;
        std::vector<const char*> texts;
    } cases[] = {
        {keyUsage,
         "Invalid key usage format",
         {"KeyUsage", "<KeyUsage>", "<KeyUsage><cRLSign/>", "<KeyUsage><noSuchBit/></KeyUsage>",
          "<KeyUsage><cRLSign></KeyUsage>", "<KeyUsage><cRLSign/></KeyUsage>x",
          "<KeyUsage/><KeyUsage/>", "<Keyusage></Keyusage>", "<KeyUsage>x</KeyUsage>",
          "<KeyUsage ></KeyUsage>", "<KeyUsage><cRLSign/></CRLReason>", "<KeyUsage", "<"}},
        {reasonCode,
         "Invalid CRLReason format",
         {"<CRLReason></CRLReason>", "<CRLReason><superseded/>", "<CRLReason/>",
          "<CRLReason><superseded/></KeyUsage>", "<CRLReason><superseded/></CRLReason>x",
          "superseded"}},
        {hold,
         "Invalid HoldInstruction format",
         {"<HoldInstruction></HoldInstruction>", "<HoldInstruction>1.2.x</HoldInstruction>",
          "<HoldInstruction>1</HoldInstruction>", "<HoldInstruction>1.2.3",
          "<HoldInstruction>1.2.3</Hold>"}},
        {invalidity,
         "Invalid InvalidityDate format",
         {"<InvalidityDate>20260101000000Z", "<InvalidityDate>20260101000000Z</CRLNumber>",
          "<InvalidityDate>tomorrow</InvalidityDate>", "<InvalidityDate></InvalidityDate>",
          "20260101000000Z"}},
        {crlNumber,
         "Invalid CRLNumber format",
         {"<CRLNumber>-</CRLNumber>", "<CRLNumber>12a</CRLNumber>", "<CRLNumber>0x</CRLNumber>",
          "<CRLNumber></CRLNumber>", "<CRLNumber>5", "<CRLNumber>5</CRLNumber><CRLNumber>"}},
        {noCheck, "Invalid NULLParams format", {"", "<NULLParams>", "<Null/>", "<NULLParams/>x"}},
        {basic,
         "unknown XER-encoded extension",
         {"", "cA", "<KeyUsage/>", "<BasicConstraintsSyntax><cA>"}},
        {"1.2.3", "unknown XER-encoded extension", {"", "<x/>"}},
        {"2", "unknown XER-encoded extension", {"<x/>"}},
        {"2.5.29.x", "Invalid oid", {"<KeyUsage/>"}},
    };
    for (const auto& c : cases) {
        for (const char* text : c.texts) {
            EXPECT_EQ(failure([&] { CACMPT_ExtValue(c.oid, text); }, source),
                      std::string("Asn1DecodeException ") + c.failure)
                << c.oid << " " << text;
        }
    }
    EXPECT_THAT(failure([] { CACMPT_ExtValue(basic, "<BasicConstraintsSyntax/>x"); }, source),
                testing::StartsWith("Asn1Exception ASN.1 error"));
}

TEST(ExtensionText, IdentifiersAreBounded) {
    const unsigned char bytes[] = {5, 0};
    const auto made = [&](const char* oid) {
        return failure([&] { CACMPT_ExtValue(str2oid(oid), bytes, 2, nullptr); }, source);
    };
    EXPECT_EQ(made("1.2.3.4.5.6.7.8.9.10.11.12.13.1"), "none");
    EXPECT_EQ(made("1.2.3.4.5.6.7.8.9.10.11.12.13.14"), "Asn1DecodeException oid too long");
}

TEST(ExtensionText, ADistributionPointIsOneUrl) {
    const CACMPT_ExtCDP cdp("http://a/b");
    EXPECT_EQ(cdp.oid, "2.5.29.31");
    EXPECT_EQ(hexOf(cdp.value), "30123010A00EA00C860A687474703A2F2F612F62");
    EXPECT_EQ(CACMPT_ExtValue(cdp.oid, cdp.xml).value, cdp.value);
    EXPECT_FAILURE(CACMPT_ExtCDP("http://a/?b&c"),
                   "Asn1DecodeException unknown XER-encoded extension");
}

TEST(XmlReader, TakesTagsAndTextOffTheFront) {
    std::string text = " \n<a> <b/ > \n x y<c></ d >tail";
    EXPECT_EQ(get_sub_xml(text), "a");
    EXPECT_EQ(get_sub_xml_rend(text), "b");
    EXPECT_EQ(get_not_xml(text), "x y");
    const std::string invalid = "Asn1DecodeException Invalid xml format";
    EXPECT_EQ(failure([&] { get_sub_xml_lend(text); }, source), invalid);
    EXPECT_EQ(failure([&] { get_sub_xml_rend(text); }, source), invalid);
    EXPECT_EQ(get_sub_xml(text), "c");
    EXPECT_EQ(get_sub_xml_lend(text), "d");
    EXPECT_EQ(get_not_xml(text), "tail");
    EXPECT_EQ(text, "");
    for (const char* bad : {"", " ", "x<a>", "<a", "\t<a>", ">"}) {
        text = bad;
        EXPECT_FAILURE(get_sub_xml(text), invalid) << bad;
        EXPECT_EQ(text, bad);
    }
    EXPECT_TRUE(is_lend(" /a") && is_lend("/"));
    EXPECT_FALSE(is_lend("a/") || is_lend(""));
}

CACMPT_Extension unknown(const char* hex, bool critical) {
    CACMPT_Extension extension;
    extension.oid = "1.2.3.4";
    extension.value = fromHex(hex);
    extension.critical = critical;
    return extension;
}

std::string describe(const CACMPT_Extensions& list) {
    std::string text;
    for (const auto& e : list) {
        text += e.oid + (e.critical ? " ! " : " ") + hexOf(e.value) + " " + e.xml + "\n";
    }
    return text;
}

TEST(ExtensionList, KeepsOneOfAnIdentifierInItsPlace) {
    CACMPT_Extensions list;
    list.Insert(unknown("0500", false));
    list.Insert(CACMPT_Extension(keyUsage, "<KeyUsage><cRLSign/></KeyUsage>", false));
    list.Insert(unknown("0101FF", true));
    EXPECT_EQ(describe(list),
              "1.2.3.4 ! 0101FF \n2.5.29.15 03020102 <KeyUsage><cRLSign/></KeyUsage>\n");
    list.push_back(unknown("0500", false));
    list.Delete("1.2.3");
    EXPECT_EQ(list.size(), 3u);
    list.Delete("1.2.3.4");
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list.front().oid, keyUsage);
}

TEST(ExtensionList, GoesToTheRecordAndBack) {
    CACMPT_Extensions list;
    list.push_back(unknown("0500", true));
    list.push_back(unknown("", false));  // a second of the same stays
    list.push_back(unknown("0500", false));
    list.back().oid = "1.2.549755813888";  // an arc of 40 bits
    list.emplace_back(basic, "<BasicConstraintsSyntax><cA><true/></cA></BasicConstraintsSyntax>",
                      true);
    ASN1CtxtRef context;
    ASN1T_Extensions record;
    ASN1T_Extensions_set(context.get(), record, list);
    ASSERT_EQ(record.count, 4u);
    bool critical = true;
    const auto* value = ASN1T_Extensions_find(record, id_ce_basicConstraints, critical);
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(value->as<ASN1T_BasicConstraintsSyntax>()->cA);
    CACMPT_Extensions back;
    ASN1T_Extensions_get(record, back);
    EXPECT_EQ(describe(back), describe(list));
    ASN1T_Extensions_get(record, back);
    EXPECT_EQ(back.size(), 8u);  // appended
    ASN1T_Extensions_set(context.get(), record, {});
    EXPECT_TRUE(record.empty());

    list.back().value = fromHex("3003010100FF");
    EXPECT_THAT(failure([&] { ASN1T_Extensions_set(context.get(), record, list); }, source),
                testing::StartsWith("Asn1Exception "));
    for (const char* oid : {"", "2", "2.5.29.x"}) {
        list.back().oid = oid;
        EXPECT_EQ(failure([&] { ASN1T_Extensions_set(context.get(), record, list); }, source),
                  "Asn1DecodeException str2oid failed");
    }
}

// Each extension takes a buffer of its own: a megabyte of small ones would take half a gigabyte.
TEST(ExtensionList, IsReadUpToItsBound) {
    ASN1CtxtRef context;
    ASN1T_Extensions record;
    ASN1T_Extensions_set(context.get(), record, CACMPT_Extensions(1024, unknown("", false)));
    CACMPT_Extensions list;
    ASN1T_Extensions_get(record, list);
    EXPECT_EQ(list.size(), 1024u);
    *record.append(context.get()) = record.front();
    EXPECT_EQ(failure([&] { ASN1T_Extensions_get(record, list); }, source),
              "Asn1DecodeException too many extensions");
}

TEST(ExtensionList, ReplacesInPlaceOrAppends) {
    ASN1CtxtRef context;
    ASN1T_Extensions record;
    ASN1T_Extensions_add_basicConstraints(context.get(), record);
    ASN1T_Extensions_replace(context.get(), record, unknown("0500", false));
    ASN1T_BasicConstraintsSyntax constraints;
    constraints.m.pathLenConstraintPresent = true;
    constraints.pathLenConstraint = 2;
    ASN1T_Extensions_replace(context.get(), record, id_ce_basicConstraints, &constraints, false);
    constraints.pathLenConstraint = 9;  // the value was taken at the call
    ASN1T_Extensions_replace(context.get(), record, unknown("020105", true));
    CACMPT_Extensions list;
    ASN1T_Extensions_get(record, list);
    EXPECT_EQ(describe(list),
              "2.5.29.19 3003020102 <BasicConstraintsSyntax><pathLenConstraint>2"
              "</pathLenConstraint></BasicConstraintsSyntax>\n1.2.3.4 ! 020105 \n");
    const auto ofNoType = [&] {
        ASN1T_Extensions_replace(context.get(), record, str2oid("1.2.3.5"), &constraints, false);
    };
    EXPECT_THAT(failure(ofNoType, source), testing::StartsWith("Asn1Exception "));
    ASN1T_Extension copy;
    ASN1T_Extension_traits::copy(context.get(), record.front(), copy);
    EXPECT_EQ(asn1EncodeRecord(copy), asn1EncodeRecord(record.front()));
    EXPECT_NE(copy.extnValue.data, record.front().extnValue.data);
}

class ExtensionPeer : public EnrolmentTest {};

// Extensions that openssl writes are read to text, and the text gives openssl's bytes again.
TEST_F(ExtensionPeer, AgreesOnTextAndBytes) {
    const CACMPT_BLOB der = withAllExtensions("ec -pkeyopt ec_paramgen_curve:P-256 -subj /CN=X");
    const Shown info(der);
    ASSERT_EQ(info.Extensions.size(), 18u);
    for (const CACMPT_Extension& e : info.Extensions) {
        if (e.oid == "1.2.3.9") {
            EXPECT_EQ(e.xml, "");
        } else {
            EXPECT_EQ(CACMPT_ExtValue(e.oid, e.xml).value, e.value) << e.xml;
        }
    }
    ASN1T_Extensions record;
    ASN1CtxtRef context;
    ASN1T_Extensions_set(context.get(), record, info.Extensions);
    Decoded<ASN1T_Certificate> certificate(der);
    EXPECT_EQ(asn1EncodeRecord(record), asn1EncodeRecord(certificate->tbsCertificate.extensions));
}

}  // namespace
