#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::HasSubstr;

constexpr const char* skid = "2.5.29.14";
constexpr const char* akid = "2.5.29.35";
constexpr const char* ian = "2.5.29.18";
constexpr const char* aia = "1.3.6.1.5.5.7.1.1";
constexpr const char* sia = "1.3.6.1.5.5.7.1.11";

std::string sanXml(const char* tag, const char* name) {
    return std::string("<") + tag + "><dNSName>" + name + "</dNSName></" + tag + ">";
}
std::string accessXml(const char* tag, const char* method) {
    return std::string("<") + tag + "><AccessDescription><accessMethod>" + method +
           "</accessMethod><accessLocation><uniformResourceIdentifier>http://r.example"
           "</uniformResourceIdentifier></accessLocation></AccessDescription></" +
           tag + ">";
}
CACMPT_Extension keyId(const char* hex, bool authority = false) {
    const std::string xml =
        authority ? "<AuthorityKeyIdentifier><keyIdentifier>" + std::string(hex) +
                        "</keyIdentifier></AuthorityKeyIdentifier>"
                  : "<SubjectKeyIdentifier>" + std::string(hex) + "</SubjectKeyIdentifier>";
    return extension(authority ? akid : skid, xml);
}

class ServerPreProcessTest : public EnrolmentTest {
protected:
    ServerPreProcessTest() : client(makeClient("alice")) {}

    static const CACMPT_Extension* find(const CertificateInfo& record, const char* oid) {
        for (const CACMPT_Extension& e : record.Extensions) {
            if (e.oid == oid) return &e;
        }
        return nullptr;
    }
    static std::string xmlOf(const CertificateInfo& record, const char* oid) {
        const CACMPT_Extension* e = find(record, oid);
        return e ? e->xml : "";
    }
    /// The message of a request with the extensions, under another body kind.
    CACMPT_BLOB message(int kind, const CACMPT_Extensions& extensions) {
        auto request = makeRequest();
        request->Extensions = extensions;
        if (kind == ASN1T_PKIBody::T_p10cr) {
            request->RequestType = REQUEST_TYPE_GET_CERTIFICATE;
            client->PKCS10_EncodeAndSign(request.get(), request->RawRequest, false);
        }
        return edited(send(*client, *request),
                      [&](ASN1T_PKIMessage& m, ASN1CTXT*) { m.body.t = kind; });
    }

    std::unique_ptr<PKIXCMP_Client> client;
};

TEST_F(ServerPreProcessTest, TheComputedKeyIdentifierIsForcedOrGivesWay) {
    auto ca = makeCa(caPath, nullptr, CACMPT_Period::OneYear * 2);
    const std::pair<int, bool> cases[] = {{ASN1T_PKIBody::T_ir, true},
                                          {ASN1T_PKIBody::T_kur, true},
                                          {ASN1T_PKIBody::T_ccr, false},
                                          {ASN1T_PKIBody::T_p10cr, false}};
    std::string computed;
    for (const auto& [kind, forced] : cases) {
        const Prepared plain(*ca, message(kind, {}));
        const Prepared asked(*ca, message(kind, {keyId("0A0B")}));
        if (computed.empty()) computed = hexOf(plain.SubjectKeyIdentifier);
        EXPECT_EQ(computed.size(), 40u);
        EXPECT_EQ(hexOf(plain.SubjectKeyIdentifier), computed);
        EXPECT_EQ(hexOf(asked.SubjectKeyIdentifier), forced ? computed : "0A0B");
        EXPECT_STREQ(asked.SerialNumber, "0");
        EXPECT_EQ(asked.Subject.tostring(3), L"CN=Alice, O=Trial");
        EXPECT_EQ(asked.Issuer.tostring(3), L"CN=Trial Root, O=Trial");
        EXPECT_NEAR(asked.NotBefore.getTime(), CACMPT_Date::Now().getTime(), 60);
        EXPECT_EQ(asked.NotAfter - asked.NotBefore, CACMPT_Period::OneYear);
    }
}

TEST_F(ServerPreProcessTest, OfATemplateOnlySubjectKeyAndExtensionsCount) {
    auto ca = makeCa(caPath, nullptr, CACMPT_Period::OneYear * 2);
    const CACMPT_BLOB ir = message(ASN1T_PKIBody::T_ir, {});
    const CACMPT_BLOB greedy = withTemplate(ir, [](ASN1T_CertTemplate& t) {
        t.m.versionPresent = t.m.serialNumberPresent = t.m.signingAlgPresent = true;
        t.m.issuerPresent = t.m.validityPresent = t.m.issuerUIDPresent = true;
        t.m.subjectUIDPresent = true;
        t.serialNumber = "0x1234";
        t.signingAlg.algorithm = t.publicKey.algorithm.algorithm;
        t.issuer = t.subject;
        t.validity.m.notAfterPresent = true;
        t.validity.notAfter.t = ASN1T_Time::T_utcTime;
        t.validity.notAfter.u.text = ASN1TString(std::string_view("490101000000Z"));
        t.issuerUID = t.subjectUID = ASN1TDynBitStr(8, t.publicKey.subjectPublicKey.data);
    });
    Prepared record(*ca, greedy);
    EXPECT_EQ(record.NotAfter - record.NotBefore, CACMPT_Period::OneYear);
    Decoded<ASN1T_Certificate> issued(certificateOf(replyTo(*ca, record))), root(ca->Certificate);
    const ASN1T_TBSCertificate& tbs = issued->tbsCertificate;
    EXPECT_EQ(tbs.version, ASN1T_TBSCertificate::v3);
    EXPECT_TRUE(std::string(tbs.serialNumber).ends_with("000000000001"));
    EXPECT_EQ(dotted(tbs.signature.algorithm), dotted(root->tbsCertificate.signature.algorithm));
    EXPECT_EQ(record.Issuer.tostring(3), L"CN=Trial Root, O=Trial");
    EXPECT_FALSE(tbs.m.issuerUniqueIDPresent || tbs.m.subjectUniqueIDPresent);
}

TEST_F(ServerPreProcessTest, TheCasCertificateSpeaksWhereItHasSomethingToSay) {
    auto plain = makeCa();
    const CACMPT_Extensions own = {
        extension("2.5.29.17", sanXml("SubjectAltName", "ca.example")),
        extension(sia, accessXml("SubjectInfoAccessSyntax", "1.3.6.1.5.5.7.48.5"))};
    auto rich = makeCa("\\local\\rich", nullptr, CACMPT_Period::OneYear, own);
    auto other =
        makeCa("\\local\\other", nullptr, CACMPT_Period::OneYear,
               {extension(sia, accessXml("SubjectInfoAccessSyntax", "1.3.6.1.5.5.7.48.3"))});
    // A root whose certificate lacks the key identifier that all roots made here have.
    auto bare = makeCa("\\local\\bare");
    Decoded<ASN1T_Certificate> stripped(bare->Certificate);
    stripped->tbsCertificate.m.extensionsPresent = false;
    stripped->tbsCertificate.extensions.clear();
    bare->Certificate = asn1EncodeRecord(stripped.value);

    const CACMPT_BLOB request = message(
        ASN1T_PKIBody::T_ir, {keyId("0C", true), extension(ian, sanXml("IssuerAltName", "mine"))});
    const Prepared fromPlain(*plain, request), fromRich(*rich, request), fromOther(*other, request),
        fromBare(*bare, request);
    EXPECT_EQ(fromPlain.AuthorityKeyIdentifier, Shown(plain->Certificate).SubjectKeyIdentifier);
    EXPECT_EQ(hexOf(fromBare.AuthorityKeyIdentifier), "0C");
    EXPECT_THAT(xmlOf(fromPlain, ian), HasSubstr("mine"));
    EXPECT_THAT(xmlOf(fromRich, ian), HasSubstr("ca.example"));
    EXPECT_EQ(find(fromPlain, aia), nullptr);
    EXPECT_EQ(find(fromOther, aia), nullptr);
    EXPECT_THAT(xmlOf(fromRich, aia),
                testing::AllOf(HasSubstr("1.3.6.1.5.5.7.48.2"), HasSubstr("http://r.example")));
    for (const char* oid : {akid, ian, aia, skid}) EXPECT_FALSE(find(fromRich, oid)->critical);
}

TEST_F(ServerPreProcessTest, OfAPkcs10RequestTheFirstAttributeWithAValueCounts) {
    auto ca = makeCa();
    const CACMPT_BLOB p10cr = message(ASN1T_PKIBody::T_p10cr,
                                      {extension("2.5.29.17", sanXml("SubjectAltName", "first"))});
    const auto withAttributes = [&](const std::function<void(ASN1T_Attributes&, ASN1CTXT*)>& f) {
        return edited(p10cr, [&](ASN1T_PKIMessage& m, ASN1CTXT* ctxt) {
            f(m.body.u.p10cr->certificationRequestInfo.attributes, ctxt);
        });
    };
    using A = ASN1T_Attributes&;
    const auto second = [](A attributes, ASN1CTXT* ctxt, const char* name) {
        ASN1T_Extensions extensions;
        ASN1T_Extensions_set(ctxt, extensions,
                             {extension("2.5.29.17", sanXml("SubjectAltName", name))});
        const CACMPT_BLOB der = asn1EncodeRecord(extensions);
        ASN1T_Attributes_add(ctxt, attributes, pkcs_9_at_extensionRequest, der.data, der.size);
    };
    struct {
        CACMPT_BLOB request;
        const char* san;
    } cases[] = {{p10cr, "first"},
                 {withAttributes([&](A a, ASN1CTXT* c) { second(a, c, "second"); }), "first"},
                 {withAttributes([&](A a, ASN1CTXT* c) {
                      a.front().values.clear();
                      second(a, c, "second");
                  }),
                  "second"},
                 {withAttributes([](A a, ASN1CTXT*) { a.clear(); }), nullptr}};
    for (const auto& c : cases) {
        const Prepared record(*ca, c.request);
        EXPECT_EQ(find(record, "2.5.29.17") != nullptr, c.san != nullptr);
        EXPECT_THAT(xmlOf(record, "2.5.29.17"), HasSubstr(c.san ? c.san : ""));
    }
    const CACMPT_BLOB broken = withAttributes([](A a, ASN1CTXT*) {
        a.front().values.front() = ASN1OpenType(2, reinterpret_cast<const std::uint8_t*>("\5"));
    });
    EXPECT_ASN1_FAILURE(Prepared(*ca, broken));
}

TEST_F(ServerPreProcessTest, NothingOutlivesTheCa) {
    auto ca = makeCa(caPath, nullptr, CACMPT_Period::OneDay);
    Decoded<ASN1T_Certificate> root(ca->Certificate);
    Decoded<ASN1T_Certificate> issued(issue(*ca, makeIr(*client)));
    EXPECT_EQ(issued->tbsCertificate.validity.notAfter.u.text,
              root->tbsCertificate.validity.notAfter.u.text);
    // The same moment written as a GeneralizedTime.
    const std::string text =
        "20" + std::string(root->tbsCertificate.validity.notAfter.u.text.view());
    root->tbsCertificate.validity.notAfter.t = ASN1T_Time::T_generalTime;
    root->tbsCertificate.validity.notAfter.u.text = ASN1TString(std::string_view(text));
    ca->Certificate = asn1EncodeRecord(root.value);
    Decoded<ASN1T_Certificate> again(issue(*ca, makeIr(*client)));
    EXPECT_EQ(again->tbsCertificate.validity.notAfter.t, ASN1T_Time::T_utcTime);
    EXPECT_EQ(again->tbsCertificate.validity.notAfter.u.text,
              issued->tbsCertificate.validity.notAfter.u.text);
}

TEST_F(ServerPreProcessTest, TheDistributionPointComesFromTheConfiguration) {
    auto ca = makeCa();
    const CACMPT_BLOB ir = makeIr(*client);
    PKIXCMP_Server pathless(nullptr, PROV_ECDSA_P256);
    pathless.init(ca->Certificate, &wnd);
    for (const char* url : {"", "http://crl.example/1.crl"}) {
        Ini(caPath).insert("cdp", url);
        Prepared open(*ca, ir), without(pathless, ir);
        CertificateInfo inner;
        ca->CertReqMessage_PreProcess(ir, &inner, 0);
        EXPECT_EQ(find(open, "2.5.29.31") != nullptr, *url != 0);
        EXPECT_THAT(xmlOf(open, "2.5.29.31"), HasSubstr(url));
        EXPECT_EQ(find(inner, "2.5.29.31"), nullptr);
        EXPECT_EQ(find(without, "2.5.29.31"), nullptr);
        ca->CertReqMessage_PreProcess(ir, &open);  // again: a new template, nothing twice
        EXPECT_EQ(open.Extensions.size(), *url ? 3u : 2u);
    }
}

TEST_F(ServerPreProcessTest, AnExistingCertificateIsCertifiedAcross) {
    auto ca = makeCa();
    auto other = makeCa("\\local\\other");  // has basicConstraints
    CertificateInfo record;
    ca->CertReqCert_PreProcess(other->Certificate, &record);
    EXPECT_EQ(find(record, "2.5.29.19"), nullptr);
    const Shown original(other->Certificate);
    EXPECT_EQ(record.SubjectKeyIdentifier, original.SubjectKeyIdentifier);
    const CACMPT_BLOB reply = replyTo(*ca, record);
    Decoded<ASN1T_PKIMessage> message(reply);
    EXPECT_EQ(message->body.t, ASN1T_PKIBody::T_ccp);
    EXPECT_EQ(asn1EncodeRecord(*message->header.recipient.u.directoryName),
              CACMPT_BLOB(original.Subject));
    EXPECT_TRUE(verifies(ca->Certificate, certificateOf(reply)));
    EXPECT_THAT(failure([&] { ca->CertReqCert_PreProcess(CACMPT_BLOB("x", 1), &record); },
                        "pkixcmp/CA_CMP_ProcessReq"),
                HasSubstr("Asn1Exception "));
}

}  // namespace
