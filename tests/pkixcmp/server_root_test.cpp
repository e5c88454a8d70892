#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ServerRootTest : public EnrolmentTest {
protected:
    CACMPT_BLOB root(const wchar_t* subject, const CACMPT_Period& validity,
                     const CACMPT_Date& notBefore = CACMPT_Date(0, 0), const char* cdp = nullptr,
                     const CACMPT_Extensions& extensions = {}) {
        PKIXCMP_Server server(nullptr, PROV_ECDSA_P256);
        const std::string container = "\\\\.\\VAULT\\root" + std::to_string(++count_);
        server.GenerateRoot(subject, extensions, nullptr, PROV_ECDSA_P256, container.c_str(), false,
                            validity, notBefore, cdp, &wnd);
        return server.Certificate;
    }

private:
    int count_ = 0;
};

TEST_F(ServerRootTest, ACaStandsInItsConfigurationContainerAndStores) {
    for (const char* cdp : {"", "http://crl.example/root.crl"}) {
        const std::string path = std::string("\\local\\ca") + (*cdp ? "1" : "0");
        const auto ca = makeCa(path.c_str(), cdp);
        const Ini settings(path);
        EXPECT_EQ(ca->configPath(), path);
        EXPECT_EQ(settings.find_def("caname", ""), "Trial");
        EXPECT_EQ(settings.find_binary("cert"), ca->Certificate);
        EXPECT_EQ(settings.find_def("cdp", "none"), *cdp ? cdp : "none");
        EXPECT_EQ(settings.find_period("crl_update"), CACMPT_Period::OneDay);
        EXPECT_EQ(settings.find_def("certnum", "none"), "none");
        EXPECT_THAT(stored(L"My"), testing::Contains(ca->Certificate));
        EXPECT_THAT(stored(L"Root", true), testing::Contains(ca->Certificate));
        EXPECT_THAT(print(ca->Certificate),
                    AllOf(HasSubstr("CA:TRUE"), HasSubstr("Subject Key Identifier"),
                          *cdp ? HasSubstr("root.crl") : HasSubstr("Version: 3"),
                          Not(HasSubstr("Authority Key Identifier"))));
        EXPECT_TRUE(verifies(ca->Certificate, ca->Certificate));
    }
}

TEST_F(ServerRootTest, TheEndIsWrittenAsUtcTimeWhateverTheYear) {
    const CACMPT_Period two = CACMPT_Period::OneYear * 2;
    Decoded<ASN1T_Certificate> late(root(L"CN=Late", two, CACMPT_Date("20490301000000Z")));
    const ASN1T_Validity& validity = late->tbsCertificate.validity;
    EXPECT_EQ(validity.notBefore.u.text.view(), "490301000000Z");
    EXPECT_EQ(validity.notAfter.t, ASN1T_Time::T_utcTime);
    EXPECT_EQ(validity.notAfter.u.text.view(), "510301000000Z");
    EXPECT_ASN1_FAILURE(root(L"CN=Later", two, CACMPT_Date("20500101000000Z")));

    const Shown now(root(L"CN=Now", CACMPT_Period::OneDay));
    EXPECT_NEAR(now.NotBefore.getTime(), CACMPT_Date::Now().getTime(), 60);
    EXPECT_EQ(now.NotAfter - now.NotBefore, CACMPT_Period::OneDay);
}

TEST_F(ServerRootTest, TheCallersConstraintsGiveWayInTheirPlace) {
    const CACMPT_Extensions own = {
        extension("2.5.29.19",
                  "<BasicConstraintsSyntax><pathLenConstraint>3</pathLenConstraint>"
                  "</BasicConstraintsSyntax>"),
        extension("2.5.29.15", "<KeyUsage><keyCertSign/><cRLSign/></KeyUsage>", true)};
    const CACMPT_BLOB certificate =
        root(L"CN=Root", CACMPT_Period::OneYear, CACMPT_Date(0, 0), "http://a.example", own);
    Decoded<ASN1T_Certificate> made(certificate);
    std::string oids;
    for (const ASN1T_Extension& e : made->tbsCertificate.extensions) oids += dotted(e.extnID) + " ";
    EXPECT_EQ(oids, "2.5.29.19 2.5.29.15 2.5.29.14 2.5.29.31 ");
    EXPECT_THAT(print(certificate), AllOf(HasSubstr("Basic Constraints: critical"),
                                          HasSubstr("CA:TRUE"), Not(HasSubstr("pathlen"))));
    EXPECT_TRUE(verifies(certificate, certificate));
}

TEST_F(ServerRootTest, SerialNumbersAreUnrelatedAndPositive) {
    std::set<std::string> serials;
    for (int i = 0; i < 12; ++i) {
        Decoded<ASN1T_Certificate> made(root(L"CN=Root", CACMPT_Period::OneYear));
        const std::string serial = made->tbsCertificate.serialNumber;
        EXPECT_EQ(serial[2] == '0' && serial.size() % 2 == 1, serial.size() == 35);
        EXPECT_GE(serial.size(), 32u);
        serials.insert(serial);
    }
    EXPECT_EQ(serials.size(), 12u);
}

TEST_F(ServerRootTest, AFailureLeavesAServerWithoutACertificate) {
    for (const wchar_t* bad : {L"CN", L"no such=x", static_cast<const wchar_t*>(nullptr)}) {
        PKIXCMP_Server server(nullptr, PROV_ECDSA_P256);
        server.Certificate = CACMPT_BLOB("of an earlier key", 17);
        const auto generate = [&] {
            server.GenerateRoot(bad, {}, nullptr, PROV_ECDSA_P256, "\\\\.\\VAULT\\", false,
                                CACMPT_Period::OneYear, CACMPT_Date(0, 0), nullptr, &wnd);
        };
        EXPECT_EQ(failure(generate, "pkixcmp/CA_CMP_Root"),
                  "Asn1DecodeException invalid subject dn");
        EXPECT_TRUE(server.Certificate.empty());
        EXPECT_FAILURE(Prepared(server, CACMPT_BLOB("x", 1)),
                       "Asn1DecodeException no CA private key");
    }
    EXPECT_TRUE(stored(L"My").empty());
    EXPECT_EQ(failure([&] {  // the container exists
                  makeCa();
                  makeCa();
              }),
              "CryptException 8009000f");
}

TEST_F(ServerRootTest, AServerIsOpenedByItsConfigurationAndReleased) {
    makeCa();
    auto client = makeClient("alice");
    const CACMPT_BLOB ir = makeIr(*client);
    PKIXCMP_Server ca(caPath, &wnd);
    EXPECT_EQ(ca.KeySpec, 2u);
    EXPECT_EQ(ca.ProviderType, PROV_ECDSA_P256);
    EXPECT_EQ(ca.Get_ADD_STORE_LEN(), 3);
    EXPECT_STREQ(ca.Get_ADD_STORE()[2].name(), L"RA");
    EXPECT_TRUE(verifies(ca.Certificate, issue(ca, ir)));
    Prepared record(ca, ir);
    ca.release();
    ca.release();
    CACMPT_BLOB reply;
    RequestInfo request;
    for (const auto& call : std::initializer_list<std::function<void()>>{
             [&] { replyTo(ca, record); }, [&] { ca.CertReqMessage_PreProcess(ir, &record); },
             [&] { ca.CertReqCert_PreProcess(ca.Certificate, &record); },
             [&] { ca.CertReqMessage_Reject(request, reply, false); }}) {
        EXPECT_EQ(failure(call), "Asn1DecodeException no CA private key");
    }

    EXPECT_THAT(failure([&] { PKIXCMP_Server("\\local\\none", &wnd); }), HasSubstr("not found"));
    PKIXCMP_Base::CertStore_Del(L"My", ca.Certificate, false);
    EXPECT_EQ(failure([&] { PKIXCMP_Server(caPath, &wnd); }, "pkixcmp/RI_DecodeAndVerify"),
              "CryptException 80092004");
}

TEST_F(ServerRootTest, AnExchangeKeyIsNoCaKey) {
    auto client = makeClient("alice", AT_KEYEXCHANGE);
    client->CreateTemplate(makeRequest().get(), CERT_SYSTEM_STORE_CURRENT_USER);
    PKIXCMP_Base::InstallCertificateToStore(client->Certificate, client->ProviderHandle,
                                            AT_KEYEXCHANGE, L"My", CERT_SYSTEM_STORE_CURRENT_USER);
    PKIXCMP_Server server(nullptr, PROV_ECDSA_P256);
    EXPECT_EQ(
        failure([&] { server.init(client->Certificate, &wnd); }, "pkixcmp/RI_DecodeAndVerify"),
        "CAException Invalid dwKeySpec");
    EXPECT_TRUE(server.Certificate.empty());
}

}  // namespace
