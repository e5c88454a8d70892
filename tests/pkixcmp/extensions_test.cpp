#include "pkixcmp/Extensions.h"

#include <filesystem>

#include "capilite/Oid.h"
#include "tests/PublicTool.h"
#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* source = "pkixcmp/CA_CMP_Util";

const std::string keyUsage = "2.5.29.15", reasonCode = "2.5.29.21", hold = "2.5.29.23",
                  invalidity = "2.5.29.24", crlNumber = "2.5.29.20",
                  noCheck = "1.3.6.1.5.5.7.48.1.5", basic = "2.5.29.19", keyId = "2.5.29.14";

TEST(ExtensionText, GivesTheDerAndReadsBack) {
    const struct {
        std::string oid;
        const char* text;
        const char* der;
        const char* canonical;  // null: the text as it stands
    } cases[] = {
        {keyUsage, "<KeyUsage><digitalSignature/><keyCertSign/></KeyUsage>", "03020284", nullptr},
        {keyUsage, " <KeyUsage>\n <cRLSign/> <digitalSignature />\n</KeyUsage > ", "03020182",
         "<KeyUsage><digitalSignature/><cRLSign/></KeyUsage>"},
        {keyUsage, "<KeyUsage><decipherOnly/></KeyUsage>", "0303070080", nullptr},
        {keyUsage, "<KeyUsage></KeyUsage>", "03020700", nullptr},
        {keyUsage, "<KeyUsage/>", "03020700", "<KeyUsage></KeyUsage>"},
        {keyUsage, " ", "0303070000", "<KeyUsage></KeyUsage>"},
        {reasonCode, "<CRLReason><caCompromise/></CRLReason>", "0A0102", nullptr},
        {reasonCode, "<CRLReason><removeFromCRL/></CRLReason>", "0A0108", nullptr},
        {reasonCode, "<CRLReason><8/></CRLReason>", "0A0108",
         "<CRLReason><removeFromCRL/></CRLReason>"},
        {reasonCode, "<CRLReason><7/></CRLReason>", "0A0107", nullptr},
        {reasonCode, "<CRLReason><0x9/></CRLReason>", "0A0109", "<CRLReason><9/></CRLReason>"},
        {reasonCode, "", "0A0100", "<CRLReason><unspecified/></CRLReason>"},
        {hold, "<HoldInstruction>1.2.840.10040.2.2</HoldInstruction>", "06072A8648CE380202",
         nullptr},
        {hold, "", "", ""},
        {invalidity, "<InvalidityDate>20260101000000Z</InvalidityDate>",
         "180F32303236303130313030303030305A", nullptr},
        {invalidity, "", "", ""},
        {crlNumber, "<CRLNumber>200</CRLNumber>", "020200C8", nullptr},
        {crlNumber, "<CRLNumber> 0xC8 </CRLNumber>", "020200C8", "<CRLNumber>200</CRLNumber>"},
        {crlNumber, "<CRLNumber>0</CRLNumber>", "020100", nullptr},
        {crlNumber, "<CRLNumber>36893488147419103232</CRLNumber>", "0209020000000000000000",
         nullptr},
        {crlNumber, "", "", ""},
        {noCheck, "<NULLParams/>", "0500", nullptr},
        {basic, "<BasicConstraintsSyntax><cA><true/></cA></BasicConstraintsSyntax>", "30030101FF",
         nullptr},
        {"2.5.29.37",
         "<ExtKeyUsageSyntax><KeyPurposeId>1.3.6.1.5.5.7.3.1</KeyPurposeId></ExtKeyUsageSyntax>",
         "300A06082B06010505070301", nullptr},
    };
    for (const auto& c : cases) {
        const CACMPT_ExtValue value(c.oid, c.text);
        EXPECT_EQ(value.oid, c.oid);
        EXPECT_EQ(value.value.writeToHexString(), c.der) << c.text;
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
          "<KeyUsage><cRLSign/></CRLReason>", "<KeyUsage", "<"}},
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
         {"<CRLNumber>-1</CRLNumber>", "<CRLNumber>12a</CRLNumber>", "<CRLNumber>0x</CRLNumber>",
          "<CRLNumber></CRLNumber>", "<CRLNumber>5", "<CRLNumber>5</CRLNumber><CRLNumber>"}},
        {noCheck, "Invalid NULLParams format", {"", "<NULLParams>", "<Null/>", "<NULLParams/>x"}},
        {basic,
         "unknown XER-encoded extension",
         {"", "cA", "<KeyUsage/>", "<BasicConstraintsSyntax><cA>"}},
        {"1.2.3", "unknown XER-encoded extension", {"", "<x/>"}},
        {"2", "unknown XER-encoded extension", {"<x/>"}},
        {"2.5.29.x", "Invalid oid", {"<KeyUsage/>"}},
        // The identifier itself has room for 31 characters.
        {"1.2.3.4.5.6.7.8.9.10.11.12.13.14", "unknown XER-encoded extension", {""}},
    };
    for (const auto& c : cases) {
        for (const char* text : c.texts) {
            EXPECT_EQ(failure([&] { CACMPT_ExtValue(c.oid, text); }, source),
                      std::string("Asn1DecodeException ") + c.failure)
                << c.oid << " " << text;
        }
    }
}

TEST(ExtensionText, TellsWhatTheRuntimeRefuses) {
    EXPECT_THAT(failure([] { CACMPT_ExtValue(basic, "<BasicConstraintsSyntax/>x"); }, source),
                testing::StartsWith("Asn1Exception ASN.1 error"));
}

TEST(ExtensionText, IdentifiersAreBounded) {
    const struct {
        const char* oid;
        const char* failure;
    } cases[] = {{"1.2.3.4.5.6.7.8.9.10.11.12.13.1", "none"},
                 {"1.2.3.4.5.6.7.8.9.10.11.12.13.14", "Asn1DecodeException oid too long"}};
    for (const auto& c : cases) {
        const ASN1OBJID oid = str2oid(c.oid);
        const unsigned char bytes[] = {5, 0};
        EXPECT_EQ(failure([&] { CACMPT_ExtValue(oid, bytes, 2, nullptr); }, source), c.failure);
    }
}

TEST(ExtensionText, ADistributionPointIsOneUrl) {
    const CACMPT_ExtCDP cdp("http://a/b");
    EXPECT_EQ(cdp.oid, "2.5.29.31");
    EXPECT_EQ(cdp.value.writeToHexString(), "30123010A00EA00C860A687474703A2F2F612F62");
    EXPECT_EQ(CACMPT_ExtValue(cdp.oid, cdp.xml).value, cdp.value);
    EXPECT_EQ(failure([] { CACMPT_ExtCDP("http://a/?b&c"); }),
              "Asn1DecodeException unknown XER-encoded extension");
}

TEST(XmlReader, TakesTagsAndTextOffTheFront) {
    std::string text = " \n<a> <b/ > \n x y<c></ d >tail";
    EXPECT_EQ(get_sub_xml(text), "a");
    EXPECT_EQ(get_sub_xml_rend(text), "b");
    EXPECT_EQ(get_not_xml(text), "x y");
    EXPECT_EQ(failure([&] { get_sub_xml_lend(text); }, source),
              "Asn1DecodeException Invalid xml format");
    EXPECT_EQ(failure([&] { get_sub_xml_rend(text); }, source),
              "Asn1DecodeException Invalid xml format");
    EXPECT_EQ(get_sub_xml(text), "c");
    EXPECT_EQ(get_sub_xml_lend(text), "d");
    EXPECT_EQ(get_not_xml(text), "tail");
    EXPECT_EQ(text, "");
    for (const char* bad : {"", " ", "x<a>", "<a", "\t<a>", ">"}) {
        text = bad;
        EXPECT_EQ(failure([&] { get_sub_xml(text); }), "Asn1DecodeException Invalid xml format")
            << bad;
        EXPECT_EQ(text, bad);
    }
    std::string tags[] = {" /a", "a/", "", "/"};
    EXPECT_THAT(
        (std::array{is_lend(tags[0]), is_lend(tags[1]), is_lend(tags[2]), is_lend(tags[3])}),
        ElementsAre(true, false, false, true));
}

CACMPT_Extension unknown(const char* hex, bool critical) {
    CACMPT_Extension extension;
    extension.oid = "1.2.3.4";
    extension.value.readFromHexString(hex);
    extension.critical = critical;
    return extension;
}

std::string describe(const CACMPT_Extensions& list) {
    std::string text;
    for (const auto& e : list) {
        text +=
            e.oid + (e.critical ? " ! " : " ") + e.value.writeToHexString() + " " + e.xml + "\n";
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
    list.Delete("1.2.3.4");
    list.Delete("1.2.3.4");
    EXPECT_EQ(list.size(), 1u);
}

TEST(ExtensionList, GoesToTheRecordAndBack) {
    CACMPT_Extensions list;
    list.push_back(unknown("0500", true));
    list.push_back(unknown("", false));  // a second of the same stays
    list.push_back(CACMPT_Extension(basic,
                                    "<BasicConstraintsSyntax><cA><true/></cA>"
                                    "</BasicConstraintsSyntax>",
                                    true));
    ASN1CtxtRef context;
    ASN1T_Extensions record;
    ASN1T_Extensions_set(context.get(), record, list);
    ASSERT_EQ(record.count, 3u);
    bool critical = true;
    const auto* value = ASN1T_Extensions_find(record, id_ce_basicConstraints, critical);
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(value->as<ASN1T_BasicConstraintsSyntax>()->cA);
    CACMPT_Extensions back;
    ASN1T_Extensions_get(record, back);
    EXPECT_EQ(describe(back), describe(list));
    ASN1T_Extensions_get(record, back);
    EXPECT_EQ(back.size(), 6u);  // appended
    ASN1T_Extensions_set(context.get(), record, {});
    EXPECT_TRUE(record.empty());

    list.back().value.readFromHexString("3003010100FF");
    EXPECT_THAT(failure([&] { ASN1T_Extensions_set(context.get(), record, list); }, source),
                testing::StartsWith("Asn1Exception "));
    for (const char* oid : {"", "2", "2.5.29.x"}) {
        list.back().oid = oid;
        EXPECT_EQ(failure([&] { ASN1T_Extensions_set(context.get(), record, list); }, source),
                  "Asn1DecodeException str2oid failed");
    }
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
    const ASN1OBJID noType = str2oid("1.2.3.5");
    EXPECT_THAT(
        failure(
            [&] { ASN1T_Extensions_replace(context.get(), record, noType, &constraints, false); },
            source),
        testing::StartsWith("Asn1Exception "));
    ASN1T_Extension copy;
    ASN1T_Extension_traits::copy(context.get(), record.front(), copy);
    EXPECT_EQ(asn1EncodeRecord(copy), asn1EncodeRecord(record.front()));
    EXPECT_NE(copy.extnValue.data, record.front().extnValue.data);
}

// A CA's certificate with the extensions given.
class CaExtensions : public EnrolmentTest {
protected:
    CaExtensions() { provider.acquire_any(); }

    /// What the CA adds to a certificate that asked for `requested`.
    std::string added(const CACMPT_Extensions& own, const CACMPT_Extensions& requested) {
        ASN1T_Certificate ca;
        ca.tbsCertificate.m.extensionsPresent = true;
        ASN1T_Extensions_set(context.get(), ca.tbsCertificate.extensions, own);
        ASN1T_Extensions list;
        ASN1T_Extensions_set(context.get(), list, requested);
        ASN1T_Extensions_add_aKI_and_iAN(context.get(), list, ca);
        ASN1T_Extensions_add_AIA(context.get(), list, ca);
        CACMPT_Extensions out;
        ASN1T_Extensions_get(list, out);
        std::string text;
        for (const auto& e : out) text += (text.empty() ? "" : " ") + e.oid;
        last = out;
        return text;
    }

    ASN1CtxtRef context;
    prov_handle provider;
    CACMPT_Extensions last;
};

const char* const accessXml =
    "<SubjectInfoAccessSyntax><AccessDescription><accessMethod>1.3.6.1.5.5.7.48.3</accessMethod>"
    "<accessLocation><uniformResourceIdentifier>http://t</uniformResourceIdentifier>"
    "</accessLocation></AccessDescription><AccessDescription><accessMethod>1.3.6.1.5.5.7.48.5"
    "</accessMethod><accessLocation><uniformResourceIdentifier>http://r</uniformResourceIdentifier>"
    "</accessLocation></AccessDescription></SubjectInfoAccessSyntax>";

TEST_F(CaExtensions, ComeFromItsOwnCertificate) {
    const CACMPT_Extension subject =
        extension("2.5.29.14", "<SubjectKeyIdentifier>0102</SubjectKeyIdentifier>");
    const CACMPT_Extension name =
        extension("2.5.29.17", "<SubjectAltName><dNSName>ca</dNSName></SubjectAltName>", true);
    const CACMPT_Extension access = extension("1.3.6.1.5.5.7.1.11", accessXml);
    const CACMPT_Extension asked = extension(
        "2.5.29.35",
        "<AuthorityKeyIdentifier><keyIdentifier>FF</keyIdentifier></AuthorityKeyIdentifier>", true);
    EXPECT_EQ(added({}, {asked}), "2.5.29.35");
    EXPECT_EQ(last.front().value.writeToHexString(), "30038001FF");  // the request's one stays
    EXPECT_EQ(added({subject}, {asked, unknown("0500", false)}), "2.5.29.35 1.2.3.4");
    EXPECT_EQ(last.front().value.writeToHexString(), "300480020102");
    EXPECT_FALSE(last.front().critical);
    EXPECT_EQ(added({subject, name, access}, {}), "2.5.29.35 2.5.29.18 1.3.6.1.5.5.7.1.1");
    auto at = std::next(last.begin());
    EXPECT_EQ(at->value, name.value);
    EXPECT_FALSE(at->critical);
    EXPECT_EQ((++at)->value.writeToHexString(), "3016301406082B060105050730028608687474703A2F2F72");
    std::string other = accessXml;
    other.replace(other.find("48.5"), 4, "48.4");
    EXPECT_EQ(added({extension("1.3.6.1.5.5.7.1.11", other)}, {}), "");
}

TEST_F(CaExtensions, KeyIdentifierIsKeptOrForced) {
    const std::uint8_t bits[] = {1, 2, 3};
    const std::string sha1 = "04147037807198C22A7D2B0807371D763779A84FDFCF";  // of those octets
    ASN1T_Extensions list;
    const ASN1TDynBitStr key(24, bits);
    const auto value = [&] {
        return CACMPT_BLOB(list.front().extnValue.data, list.front().extnValue.numocts)
            .writeToHexString();
    };
    ASN1T_Extensions_set(
        context.get(), list,
        {extension("2.5.29.14", "<SubjectKeyIdentifier>0102</SubjectKeyIdentifier>", true)});
    ASN1T_Extensions_add_subjectKeyIdentifier(provider.get(), context.get(), list, key, false);
    EXPECT_EQ(value(), "04020102");
    ASN1T_Extensions_add_subjectKeyIdentifier(provider.get(), context.get(), list, key, true);
    EXPECT_EQ(value(), sha1);
    EXPECT_FALSE(list.front().critical);
    list.clear();
    ASN1T_Extensions_add_subjectKeyIdentifier(provider.get(), context.get(), list, key, false);
    EXPECT_EQ(value(), sha1);
}

// Extensions that openssl writes are read to text, and the text gives openssl's bytes again.
TEST_F(CaExtensions, AgreeWithAPublicTool) {
    const std::string at = home.path();
    openssl("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout " + at +
            "/k -subj /CN=X -config " PKIXCMP_TEST_DATA
            "/messages/extensions.cnf -extensions x "
            "-outform DER -out " +
            at + "/x.cer");
    CACMPT_BLOB der;
    der.readFromFile((at + "/x.cer").c_str());
    CertificateInfo info;
    PKIXCMP_Base::Cert_Decode(der, &info);
    ASSERT_EQ(info.Extensions.size(), 18u);
    for (const CACMPT_Extension& e : info.Extensions) {
        if (e.oid == "1.2.3.9") {
            EXPECT_EQ(e.xml, "");
            continue;
        }
        EXPECT_EQ(CACMPT_ExtValue(e.oid, e.xml).value.writeToHexString(),
                  e.value.writeToHexString())
            << e.xml;
    }
    ASN1T_Extensions record;
    ASN1T_Extensions_set(context.get(), record, info.Extensions);
    Decoded<ASN1T_Certificate> certificate(der);
    EXPECT_EQ(asn1EncodeRecord(record), asn1EncodeRecord(certificate->tbsCertificate.extensions));
}

}  // namespace
