#include <fstream>
#include <iterator>

#include "capilite/BigInt.h"
#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* source = "pkixcmp/CA_CMP_ProcessReq";

class ServerIssueTest : public EnrolmentTest {
protected:
    ServerIssueTest() : ca(makeCa()), client(makeClient("alice")), ir(makeIr(*client)) {}

    static std::string certnum() { return Ini(caPath).find_def("certnum", "none"); }
    std::string issueFailure(CertificateInfo& record) {
        return failure([&] { replyTo(*ca, record); });
    }

    std::unique_ptr<PKIXCMP_Server> ca;
    std::unique_ptr<PKIXCMP_Client> client;
    CACMPT_BLOB ir;
};

TEST_F(ServerIssueTest, OpensslAcceptsWhatIsIssued) {
    auto request = makeRequest();
    request->Extensions.Insert(extension(
        "2.5.29.17", "<SubjectAltName><dNSName>alice.example</dNSName></SubjectAltName>"));
    Ini(caPath).insert("cdp", "http://crl.example/ca.crl");
    const CACMPT_BLOB issued = issue(*ca, send(*client, *request));
    EXPECT_TRUE(verifies(ca->Certificate, issued));
    EXPECT_THAT(print(issued),
                AllOf(HasSubstr("Subject: CN = Alice, O = Trial"), HasSubstr("DNS:alice.example"),
                      HasSubstr("crl.example"), HasSubstr("X509v3 Subject Key Identifier"),
                      HasSubstr("X509v3 Authority Key Identifier")));
    const std::string at = home.path();
    for (const char* key : {"rsa:2048", "ec -pkeyopt ec_paramgen_curve:P-256",
                            "ec -pkeyopt ec_paramgen_curve:P-384"}) {
        openssl("req -new -nodes -utf8 -newkey " + std::string(key) + " -keyout " + at +
                "/k.pem -outform DER -out " + at + "/r.der -subj '/O=Trial/CN=Алиса' -addext " +
                "'keyUsage=critical,digitalSignature' -addext 'subjectAltName=DNS:b.example'");
        auto p10cr = makeRequest(REQUEST_TYPE_GET_CERTIFICATE);
        p10cr->RawRequest = readFile(at + "/r.der");
        const CACMPT_BLOB answer = issue(*ca, send(*client, *p10cr));
        EXPECT_TRUE(verifies(ca->Certificate, answer)) << key;
        EXPECT_THAT(print(answer),
                    AllOf(HasSubstr("DNS:b.example"), HasSubstr("X509v3 Key Usage: critical")));
    }
    // Messages of a CMP client of other make, which finds nobody to send them to.
    for (const std::string command : {"p10cr -csr r.der", "ir -newkey k.pem -subject /CN=peer"}) {
        runTool("cd " + at + "; openssl cmp -config '' -server 127.0.0.1:1 -total_timeout 1 " +
                    "-recipient /CN=Trial -ref 1 -secret pass:x -unprotected_requests " +
                    "-certout none.pem -reqout m.der -cmd " + command + " || test -s m.der",
                "");
        EXPECT_TRUE(verifies(ca->Certificate, issue(*ca, readFile(at + "/m.der")))) << command;
        std::filesystem::remove(at + "/m.der");
    }
}

TEST_F(ServerIssueTest, TheReplyIsAddressedBackAndSigned) {
    Prepared record(*ca, ir);
    record.transactionID.assign("tid", 3);
    record.ExtraCerts = {ca->Certificate};
    Decoded<ASN1T_PKIMessage> message(replyTo(*ca, record));
    EXPECT_EQ(message->body.t, ASN1T_PKIBody::T_ip);
    EXPECT_TRUE(message->m.protectionPresent);
    EXPECT_EQ(message->extraCerts.count, 1u);
    EXPECT_EQ(message->header.transactionID, record.transactionID.octets());
    const ASN1T_CertRepMessage& content = *message->body.u.ip;
    EXPECT_FALSE(content.m.caPubsPresent);
    ASSERT_EQ(content.response.count, 1u);
    EXPECT_EQ(content.response.front().certReqId, -1);  // though the request had 0
    EXPECT_FALSE(content.response.front().status.m.failInfoPresent);
    EXPECT_STREQ(record.SerialNumber, "0");
    EXPECT_STREQ(headOf(message.value).SenderGeneralName, L"CN=Trial Root, O=Trial");
    EXPECT_STREQ(headOf(message.value).RecipientGeneralName, L"CN=Alice, O=Trial");

    std::wcscpy(record.SenderGeneralName, L"dn:CN=Front");
    std::wcscpy(record.RecipientGeneralName, L"dn:CN=Back");
    Decoded<ASN1T_PKIMessage> second(replyTo(*ca, record));
    EXPECT_STREQ(headOf(second.value).SenderGeneralName, L"CN=Front");
    EXPECT_STREQ(headOf(second.value).RecipientGeneralName, L"CN=Back");
    EXPECT_TRUE(certnum().ends_with("000000000002"));
}

TEST_F(ServerIssueTest, TheCounterCountsInItsSixBytesAndTheRestIsRandom) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "000000000001"},
        {"0x00000000000000000041", "000000000042"},
        {"0x0ffffffff0000000000ff", "000000000100"},
        {"0x00000001ffffffffffff", "000000000000"},  // wraps
        {"0x41", "000000000042"},
        {"0xaaaaaaaaaaaaaaaaaaaaaaaa000000000041", "000000000042"}};
    std::set<std::string> randoms;
    for (const auto& [before, counter] : cases) {
        for (int i = 0; i < 8; ++i) {
            Prepared record(*ca, ir);
            char text[128] = {};
            std::strcpy(text, before);
            CACMPT_BLOB reply;
            ca->CertReqMessage_Process(&record, reply, text);
            EXPECT_THAT(text, MatchesRegex("0x(0[89a-f]|[0-7])[0-9a-f]{19}"));
            const std::string digits = text;
            EXPECT_EQ(digits.substr(digits.size() - 12), counter) << before;
            randoms.insert(digits.substr(2, digits.size() - 14));
            Decoded<ASN1T_Certificate> issued(certificateOf(reply));
            unsigned char counted[10], inCertificate[10];
            ASN1T_BigInt_get(text, counted, 10);
            ASN1T_BigInt_get(issued->tbsCertificate.serialNumber, inCertificate, 10);
            EXPECT_EQ(std::memcmp(counted, inCertificate, 10), 0);
        }
    }
    EXPECT_GT(randoms.size(), 40u);
    EXPECT_EQ(certnum(), "none");  // the form with the caller's text keeps nothing
}

TEST_F(ServerIssueTest, AnIssueThatFailsMovesNothing) {
    CertificateInfo blank;
    EXPECT_EQ(issueFailure(blank), "Asn1DecodeException not preprocessed cert");
    Prepared record(*ca, ir);
    const auto tries = [&](const std::string& before) {
        record.RecipientGeneralName[0] = L'x';
        EXPECT_EQ(issueFailure(record), "Asn1DecodeException invalid RecipientGeneralName");
        record.RecipientGeneralName[0] = 0;
        CACMPT_Extension broken;
        broken.oid = "no oid";
        const CACMPT_Extensions good = record.Extensions;
        record.Extensions.Insert(broken);
        EXPECT_EQ(issueFailure(record), "Asn1DecodeException str2oid failed");
        record.Extensions = good;
        EXPECT_EQ(certnum(), before);
        record.ExtraCerts = {CACMPT_BLOB("x", 1)};  // found out when the number is taken already
        EXPECT_THAT(issueFailure(record), HasSubstr("Asn1Exception "));
        record.ExtraCerts.clear();
    };
    tries("none");
    EXPECT_EQ(issueFailure(record), "none");
    const std::string first = certnum();
    EXPECT_TRUE(first.ends_with("000000000001"));
    tries(first);
    EXPECT_EQ(certnum(), first);
    const auto key = std::exchange(ca->ProviderHandle, 0);
    EXPECT_EQ(issueFailure(record), "Asn1DecodeException no CA private key");
    ca->ProviderHandle = key;
    for (const char* bad : {"12", "0x", "0x123", "0xgg", "x"}) {
        Ini(caPath).insert("certnum", bad);
        EXPECT_EQ(issueFailure(record), "Asn1DecodeException decode integer failed");
        EXPECT_EQ(certnum(), bad);
        try {
            replyTo(*ca, record);
        } catch (const CAException& e) {
            EXPECT_EQ(e.file, "pkixcmp/CA_CMP_ProcessReq");
        }
    }
    Ini(caPath).insert("certnum", 7L);
    EXPECT_THAT(issueFailure(record), HasSubstr("string expected"));
}

TEST_F(ServerIssueTest, ALockedKeySignsNothingUntilItsPinIsGiven) {
    constexpr const char* path = "\\local\\locked";
    OldWndProv person(std::string("DISK"), "secret");
    delete PKIXCMP_Server::GenerateRoot(
        path, L"CN=Locked", {}, L"Locked", false, nullptr, PROV_ECDSA_P256, "\\\\.\\DISK\\locked",
        CACMPT_Period::OneYear, CACMPT_Date(0, 0), nullptr, CACMPT_Period::OneDay, &person);
    PKIXCMP_Server locked(path, &person);
    Prepared record(locked, ir);
    CACMPT_BLOB reply;
    EXPECT_FAILURE(locked.CertReqMessage_Process(&record, reply), "CryptException 8010006b");
    EXPECT_TRUE(reply.empty());
    EXPECT_EQ(Ini(path).find_def("certnum", ""), "");
    EXPECT_NE(get_pin_load(person, locked.ProviderHandle, "", 0, 0), 0u);
    EXPECT_FALSE(certificateOf(replyTo(locked, record)).empty());
    EXPECT_TRUE(Ini(path).find_def("certnum", "").ends_with("000000000001"));
}

TEST_F(ServerIssueTest, ProcessesThatIssueAtOnceShareOneCounter) {
    const std::string log = home.path() / "counters";
    const auto issueMany = [&](int) {
        PKIXCMP_Server own(caPath, &wnd);
        for (int i = 0; i < 50; ++i) {
            const std::string serial = Shown(issue(own, ir)).SerialNumber;
            std::ofstream(log, std::ios::app) << serial.substr(serial.size() - 12) << '\n';
        }
        return 0;
    };
    EXPECT_THAT(runChildren(4, issueMany), testing::Each(0));
    std::ifstream in(log);
    const std::set<std::string> counters(std::istream_iterator<std::string>(in), {});
    ASSERT_EQ(counters.size(), 200u);
    EXPECT_EQ(*counters.rbegin(), "0000000000c8");
    EXPECT_TRUE(certnum().ends_with("0000000000c8"));
}

TEST_F(ServerIssueTest, TheRecordDecidesAboutExtensionsAndOverriddenDates) {
    struct {
        bool override;
        CACMPT_Date from, to;
        int fromType, toType;
    } cases[] = {{false, CACMPT_Date("20300101000000Z"), CACMPT_Date("20310101000000Z"), 1, 1},
                 {true, CACMPT_Date("20491231235959Z"), CACMPT_Date("20500101000000Z"), 1, 2},
                 {true, CACMPT_Date("20500101000000Z"), CACMPT_Date("20200101000000Z"), 2, 1}};
    for (const auto& c : cases) {
        Prepared record(*ca, ir);
        record.ValidityOverride = c.override;
        record.NotBefore = c.from;
        record.NotAfter = c.to;
        record.Extensions.clear();
        const Shown issued(certificateOf(replyTo(*ca, record)));
        EXPECT_EQ(issued.NotBefore == c.from && issued.NotAfter == c.to, c.override);
        Decoded<ASN1T_Certificate> certificate(issued.RawCertificate);
        EXPECT_EQ(certificate->tbsCertificate.validity.notBefore.t, c.fromType);
        EXPECT_EQ(certificate->tbsCertificate.validity.notAfter.t, c.toType);
        EXPECT_FALSE(certificate->tbsCertificate.m.extensionsPresent);
    }
}

TEST_F(ServerIssueTest, ARefusalSaysWhy) {
    const auto p10cr = makeRequest(REQUEST_TYPE_GET_CERTIFICATE);
    client->PKCS10_EncodeAndSign(p10cr.get(), p10cr->RawRequest, false);
    const CACMPT_BLOB irWithId = edited(
        ir, [](ASN1T_PKIMessage& m, ASN1CTXT*) { m.body.u.ir->front().certReq.certReqId = 7; });
    const auto as = [&](int kind) {
        return edited(irWithId, [&](ASN1T_PKIMessage& m, ASN1CTXT*) { m.body.t = kind; });
    };
    struct {
        CACMPT_BLOB request;
        int kind;
        int id;
        std::uint32_t failures;
        const char* bits;
    } cases[] = {{irWithId, 2, 7, 0, ""},
                 {send(*client, *p10cr), 4, -1, FailureInfo::systemFailure, "000000000000001"},
                 {as(8), 9, 7, FailureInfo::badAlg | FailureInfo::badPOP, "100000000100000"},
                 {as(14), 15, 7, FailureInfo::timeNotAvailable | 0x400, "000000000010000"},
                 {irWithId, 2, 7, 0x400, ""}};
    for (const auto& c : cases) {
        for (bool sign : {true, false}) {
            RequestInfo refused;
            refused.RawRequest = c.request;
            refused.RejectStatus = PKI_STATUS_REJECTION;
            refused.RejectFailureInfo = c.failures;
            if (sign) refused.RejectText = {FreeTextItem(L"нет", Encoding::DEFAULT_WRITE)};
            CACMPT_BLOB reply;
            ca->CertReqMessage_Reject(refused, reply, sign);
            Decoded<ASN1T_PKIMessage> message(reply);
            EXPECT_EQ(message->body.t, c.kind);
            EXPECT_EQ(message->m.protectionPresent, sign);
            const ASN1T_CertResponse& response = message->body.u.ip->response.front();
            EXPECT_EQ(response.certReqId, c.id);
            EXPECT_EQ(response.status.status, 2);
            EXPECT_EQ(response.status.m.statusStringPresent, sign);
            EXPECT_FALSE(response.m.certifiedKeyPairPresent);
            std::string bits;
            for (std::uint32_t i = 0; i < response.status.failInfo.numbits; ++i) {
                bits += response.status.failInfo.test(i) ? '1' : '0';
            }
            EXPECT_EQ(bits, c.bits);
            EXPECT_EQ(response.status.m.failInfoPresent, *c.bits != 0);
        }
    }
    EXPECT_EQ(certnum(), "none");
}

TEST_F(ServerIssueTest, OnlyARequestThatCouldBeIssuedCanBeRefused) {
    const auto edit = [&](auto change) { return edited(ir, change); };
    using M = ASN1T_PKIMessage&;
    struct {
        CACMPT_BLOB request;
        const char* text;
    } cases[] = {
        {edit([](M m, ASN1CTXT*) { m.body.t = 3; }),
         "Asn1DecodeException unsupported ASN1C_PKIMessage type"},
        {edit([](M m, ASN1CTXT*) { m.body.u.ir->clear(); }),
         "Asn1DecodeException empty ASN1T_CertReqMessages"},
        {edit([](M m, ASN1CTXT* ctxt) { *m.body.u.ir->append(ctxt) = m.body.u.ir->front(); }),
         "Asn1DecodeException multiple ASN1T_CertReqMessages"},
        {withTemplate(ir, [](auto& t) { t.m.subjectPresent = t.m.publicKeyPresent = false; }),
         "Asn1DecodeException no public key"},
        {withTemplate(ir, [](auto& t) { t.m.subjectPresent = false; }),
         "Asn1DecodeException no subject"},
        {CACMPT_BLOB(ir.data, ir.size - 1), "Asn1Exception "}};
    for (const auto& c : cases) {
        RequestInfo refused;
        refused.RawRequest = c.request;
        refused.RejectStatus = PKI_STATUS_REJECTION;
        CACMPT_BLOB reply;
        EXPECT_THAT(failure([&] { ca->CertReqMessage_Reject(refused, reply, true); }, source),
                    testing::StartsWith(c.text));
        CertificateInfo record;
        EXPECT_THAT(failure([&] { ca->CertReqMessage_PreProcess(c.request, &record); }, source),
                    testing::StartsWith(c.text));
        EXPECT_NE(record.Template, nullptr);
        EXPECT_TRUE(record.Extensions.empty());
        EXPECT_NE(issueFailure(record), "none");
    }
}

}  // namespace
