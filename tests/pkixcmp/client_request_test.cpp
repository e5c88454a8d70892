#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* source = "pkixcmp/RI_EncodeAndSign";

class ClientRequestTest : public EnrolmentTest {
protected:
    /// Checks the protection of a message against a key.
    static bool protectedBy(const CACMPT_BLOB& message, const ASN1T_SubjectPublicKeyInfo& key) {
        Decoded<ASN1T_PKIMessage> decoded(message);
        if (!decoded->m.protectionPresent) return false;
        decoded->m.protectionPresent = false;
        decoded->m.extraCertsPresent = false;
        ASN1BEREncodeBuffer buffer;
        ASN1C_PKIMessage body(buffer, decoded.value);
        const prov_handle provider(SimpleCryptProv(PROV_ECDSA_P256).handle);
        return ASN1EncodeBuffer_EncodeAndVerify(buffer, body, decoded->protection, key,
                                                provider.get(), CALG_SHA_256);
    }
    static bool proves(ASN1T_CertReqMsg& message) {
        ASN1BEREncodeBuffer buffer;
        const prov_handle provider(SimpleCryptProv(PROV_ECDSA_P256).handle);
        return VerifyProofOfPosession(provider.get(), buffer, message);
    }
    static std::wstring sender(const CACMPT_BLOB& message) {
        Decoded<ASN1T_PKIMessage> decoded(message);
        return headOf(decoded.value).SenderGeneralName;
    }
    /// A request of any kind that lacks nothing.
    std::unique_ptr<RequestInfo> complete(PKIXCMP_Client& client, std::int32_t type) {
        auto request = makeRequest(type);
        client.PKCS10_EncodeAndSign(request.get(), request->RawRequest, false);
        std::strcpy(request->SerialNumber, "0x12ab");
        request->NewSubject.assign(L"CN=Alice Cooper, O=Trial");
        return request;
    }
};

TEST_F(ClientRequestTest, EachTypeHasItsBody) {
    auto client = makeClient("alice");
    makeIr(*client);  // gives it a certificate to be the sender
    client->NewKeyClient = makeClient("alice2");
    const Decoded<ASN1T_Certificate> own(client->Certificate);
    const std::pair<std::int32_t, int> cases[] = {
        {REQUEST_TYPE_GET_CERTIFICATE, ASN1T_PKIBody::T_p10cr},
        {REQUEST_TYPE_REVOKE_CERTIFICATE, ASN1T_PKIBody::T_rr},
        {REQUEST_TYPE_GET_CRL, ASN1T_PKIBody::T_genm},
        {REQUEST_TYPE_CONFIRM, ASN1T_PKIBody::T_pkiconf},
        {REQUEST_TYPE_UPDATE_KEY, ASN1T_PKIBody::T_kur},
        {REQUEST_TYPE_RESUME_CERTIFICATE, ASN1T_PKIBody::T_genm},
        {REQUEST_TYPE_CHANGE_NAME, ASN1T_PKIBody::T_genm}};
    for (const auto& [type, body] : cases) {
        SCOPED_TRACE(type);
        auto request = complete(*client, type);
        request->ExtraCerts = {client->Certificate};
        const CACMPT_BLOB message = send(*client, *request);
        Decoded<ASN1T_PKIMessage> decoded(message);
        EXPECT_EQ(decoded->body.t, body);
        EXPECT_TRUE(protectedBy(message, own.value.tbsCertificate.subjectPublicKeyInfo));
        EXPECT_EQ(decoded->extraCerts.count, 1u);
        EXPECT_EQ(sender(message), L"CN=Alice, O=Trial");

        request->RecipientGeneralName[0] = 0;
        EXPECT_EQ(failure([&] { send(*client, *request); }, source),
                  "Asn1DecodeException RecipientGeneralName not specified");
    }
}

TEST_F(ClientRequestTest, OtherTypesAreRefusedBeforeAnythingIsMade) {
    auto client = makeClient("alice");
    for (std::int32_t type :
         {REQUEST_TYPE_CROSS + 0, 7, REQUEST_TYPE_GEN_MSG_CONTENT + 0, 11, -1}) {
        auto request = complete(*client, type);
        EXPECT_EQ(failure([&] { send(*client, *request); }, source),
                  "CAException unsupported RequestType.");
        request->RecipientGeneralName[0] = 0;  // looked at behind the type
        EXPECT_FAILURE(send(*client, *request), "CAException unsupported RequestType.");
    }
    EXPECT_TRUE(stored(L"Request").empty());
}

TEST_F(ClientRequestTest, AnIrStandsOnItsProofAloneAndLeavesATemplate) {
    auto client = makeClient("alice");
    auto request = makeRequest();
    request->ExtraCerts = {CACMPT_BLOB("x", 1)};  // not looked at: nothing is signed
    request->Extensions.Insert(extension("2.5.29.15", "<KeyUsage><digitalSignature/></KeyUsage>"));
    const CACMPT_BLOB message = send(*client, *request);
    Decoded<ASN1T_PKIMessage> decoded(message);
    EXPECT_FALSE(decoded->m.protectionPresent);
    EXPECT_FALSE(decoded->m.extraCertsPresent);
    EXPECT_FALSE(decoded->header.m.protectionAlgPresent);
    EXPECT_EQ(sender(message), L"CN=Alice, O=Trial");
    ASN1T_CertReqMsg& asked = decoded->body.u.ir->front();
    EXPECT_EQ(asked.certReq.certReqId, 0);
    EXPECT_TRUE(proves(asked));
    const auto& m = asked.certReq.certTemplate.m;
    EXPECT_TRUE(m.subjectPresent && m.publicKeyPresent && m.extensionsPresent);
    EXPECT_FALSE(m.versionPresent || m.serialNumberPresent || m.issuerPresent || m.validityPresent);

    EXPECT_THAT(stored(L"Request"), testing::ElementsAre(client->Certificate));
    EXPECT_TRUE(verifies(client->Certificate, client->Certificate));
    Decoded<ASN1T_Certificate> made(client->Certificate);
    const ASN1T_TBSCertificate& tbs = made->tbsCertificate;
    EXPECT_EQ(asn1EncodeRecord(tbs.issuer), asn1EncodeRecord(tbs.subject));
    EXPECT_FALSE(tbs.m.extensionsPresent);
    const Shown shown(client->Certificate);
    EXPECT_EQ(shown.NotAfter - shown.NotBefore, CACMPT_Period::OneYear);
    EXPECT_EQ(tbs.validity.notAfter.t, ASN1T_Time::T_utcTime);
}

TEST_F(ClientRequestTest, TheSenderIsTheRecordsOrTheCertificatesOrEmpty) {
    auto client = makeClient("alice");
    auto request = makeRequest(REQUEST_TYPE_GET_CRL);
    EXPECT_EQ(sender(send(*client, *request)), L"");
    std::wcscpy(request->SenderGeneralName, L"dn:CN=Somebody Else");
    EXPECT_EQ(sender(send(*client, *request)), L"CN=Somebody Else");
    for (const wchar_t* bad : {L"CN=Alice", L"DN:CN=Alice", L"uri:x"}) {
        std::wcscpy(request->SenderGeneralName, bad);
        EXPECT_FAILURE(send(*client, *request), "Asn1DecodeException invalid SenderGeneralName");
    }
    request->SenderGeneralName[0] = 0;
    client->Certificate.assign("junk", 4);
    EXPECT_THAT(failure([&] { send(*client, *request); }, source), HasSubstr("Asn1Exception "));
}

TEST_F(ClientRequestTest, RevocationsCarryWhatIsSet) {
    auto client = makeClient("alice");
    struct {
        std::int32_t type;
        const char* serial;
        std::uint32_t reason;
        const char* sent = nullptr;  // the serial where it is another text
    } cases[] = {{REQUEST_TYPE_REVOKE_CERTIFICATE, "0x12ab", 0},
                 {REQUEST_TYPE_REVOKE_CERTIFICATE, "200", 0, "0x0c8"},
                 {REQUEST_TYPE_REVOKE_CERTIFICATE, "0xFFF", 0, "0x0fff"},
                 {REQUEST_TYPE_REVOKE_CERTIFICATE, "", ReasonFlags::certificateHold},
                 {REQUEST_TYPE_REVOKE_CERTIFICATE, "0x0ff", ReasonFlags::unused | 4},
                 {REQUEST_TYPE_RESUME_CERTIFICATE, "0x7f", 1}};
    for (const auto& c : cases) {
        auto request = makeRequest(c.type);
        std::strcpy(request->SerialNumber, c.serial);
        request->RevokedReason = c.reason;
        Decoded<ASN1T_PKIMessage> message(send(*client, *request));
        const bool resume = c.type == REQUEST_TYPE_RESUME_CERTIFICATE;
        const ASN1T_RevDetails* details =
            resume ? message->body.u.genm->front().infoValue.as<ASN1T_RevDetails>()
                   : &message->body.u.rr->front();
        ASSERT_NE(details, nullptr);
        EXPECT_EQ(details->certDetails.m.serialNumberPresent, *c.serial != 0);
        const char* const sent = c.sent ? c.sent : *c.serial ? c.serial : nullptr;
        EXPECT_STREQ(details->certDetails.serialNumber, sent);
        EXPECT_EQ(details->m.revocationReasonPresent, !resume && c.reason != 0);
        for (std::uint32_t bit = 0; bit < 7; ++bit) {
            EXPECT_EQ(details->revocationReason.test(bit), !resume && (c.reason >> bit & 1));
        }
    }
    auto request = makeRequest(REQUEST_TYPE_REVOKE_CERTIFICATE);
    for (const char* serial : {"twelve", "12x", "012", "-12", "0x", "0xz"}) {
        std::strcpy(request->SerialNumber, serial);
        EXPECT_ASN1_FAILURE(send(*client, *request));
    }
    std::memset(request->SerialNumber, '0', sizeof request->SerialNumber);
    EXPECT_NE(failure([&] { send(*client, *request); }), "none");
}

TEST_F(ClientRequestTest, ANameChangeCarriesBothNamesAndTheTextsThatAreSet) {
    auto client = makeClient("alice");
    auto request = complete(*client, REQUEST_TYPE_CHANGE_NAME);
    request->ChangeNameTextNew = {FreeTextItem(L"по браку", Encoding::DEFAULT_WRITE)};
    const CACMPT_BLOB message = send(*client, *request);
    RequestInfo read;
    PKIXCMP_Base::CertReqMessage_Decode(message, &read);
    EXPECT_EQ(read.RequestType, REQUEST_TYPE_CHANGE_NAME);
    EXPECT_EQ(read.Subject.tostring(3), L"CN=Alice, O=Trial");
    EXPECT_EQ(read.NewSubject.tostring(3), L"CN=Alice Cooper, O=Trial");
    EXPECT_TRUE(read.ChangeNameTextOld.empty());
    ASSERT_EQ(read.ChangeNameTextNew.size(), 1u);
    EXPECT_EQ(read.ChangeNameTextNew.front().text, L"по браку");
}

TEST_F(ClientRequestTest, OpensslReadsThePkcs10Request) {
    auto client = makeClient("alice");
    auto request = makeRequest();
    CACMPT_BLOB p10;
    const std::string show = "req -inform DER -noout -text -verify -in ";
    client->PKCS10_EncodeAndSign(request.get(), p10, false);
    EXPECT_THAT(openssl(show + file("plain.req", p10)),
                AllOf(HasSubstr("verify OK"), HasSubstr("CN = Alice"), Not(HasSubstr("DNS:"))));
    EXPECT_TRUE(stored(L"Request").empty());
    request->Extensions.Insert(
        extension("2.5.29.17", "<SubjectAltName><dNSName>a.example</dNSName></SubjectAltName>"));
    client->PKCS10_EncodeAndSign(request.get(), p10, true);
    EXPECT_THAT(openssl(show + file("san.req", p10)),
                AllOf(HasSubstr("verify OK"), HasSubstr("DNS:a.example")));
    EXPECT_EQ(stored(L"Request").size(), 1u);

    request->RequestType = REQUEST_TYPE_GET_CERTIFICATE;
    for (std::uint32_t size : {0u, 1u, p10.size - 1}) {  // nothing, and a request cut short
        request->RawRequest.assign(p10.data, size);
        EXPECT_THAT(failure([&] { send(*client, *request); }, source), HasSubstr("Asn1Exception "));
    }
}

TEST_F(ClientRequestTest, AnOpenRequestIsFoundByCertificateOrKeyBits) {
    auto client = makeClient("alice");
    const CACMPT_BLOB none("x", 1);
    EXPECT_EQ(failure([&] { PKIXCMP_Client::OpenRequest(wnd, none); }, source),
              "CAException Can't open request store!");
    makeIr(*client);
    // Nothing does not stand for the one request there is.
    EXPECT_ASN1_FAILURE(PKIXCMP_Client::OpenRequest(wnd, CACMPT_BLOB()));
    makeIr(*makeClient("bob"));
    EXPECT_EQ(failure([&] { PKIXCMP_Client::OpenRequest(wnd, none); }, source),
              "CAException No request!");

    Decoded<ASN1T_Certificate> own(client->Certificate);
    const ASN1TDynBitStr& bits = own->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
    const std::string container = get_unique(client->ProviderHandle);
    for (const CACMPT_BLOB& key : {client->Certificate, CACMPT_BLOB(bits.data, bits.numocts())}) {
        const std::unique_ptr<PKIXCMP_Client> found(PKIXCMP_Client::OpenRequest(wnd, key));
        EXPECT_EQ(found->Certificate, client->Certificate);
        EXPECT_EQ(get_unique(found->ProviderHandle), container);
        EXPECT_EQ(found->KeySpec, 2u);
        EXPECT_EQ(found->ProviderType, PROV_ECDSA_P256);
        CACMPT_BLOB p10;
        found->PKCS10_EncodeAndSign(makeRequest().get(), p10, false);  // the key is usable
    }
    makeIr(*client);  // a second template of the same key
    EXPECT_FAILURE(PKIXCMP_Client::OpenRequest(wnd, client->Certificate),
                   "CAException No request!");
}

TEST_F(ClientRequestTest, AKeyUpdateIsSignedByTheOldKeyAndProvedByTheNew) {
    auto ca = makeCa(caPath, "http://crl.example/ca.crl");
    auto client = makeClient("alice");
    auto first = makeRequest();
    first->Extensions.Insert(extension("2.5.29.15", "<KeyUsage><digitalSignature/></KeyUsage>"));
    const CACMPT_BLOB issued = issue(*ca, send(*client, *first));
    client->CertRepMessage_Install(issued, nullptr);

    RequestInfo update;
    update.RequestType = REQUEST_TYPE_UPDATE_KEY;
    EXPECT_FAILURE(send(*client, update), "Asn1DecodeException no private key");
    EXPECT_EQ(client->UpdateKey(wnd, &update, nullptr, nullptr, PROV_ECDSA_P256,
                                "\\\\.\\VAULT\\alice2", 2, false),
              0);
    EXPECT_STREQ(update.SenderGeneralName, L"dn:CN=Alice, O=Trial");
    EXPECT_STREQ(update.RecipientGeneralName, L"dn:CN=Trial Root, O=Trial");
    EXPECT_STREQ(update.RequestSignatureAlgorithm, "1.2.840.10045.4.3.2");
    EXPECT_EQ(update.RawOldCertificate, issued);
    Decoded<ASN1T_Certificate> old(issued);
    EXPECT_STREQ(update.OldCertificateSerialNumber, old->tbsCertificate.serialNumber);
    ASSERT_EQ(update.Extensions.size(), 1u);  // of key usage, CDP and two key identifiers
    EXPECT_EQ(update.Extensions.front().oid, "2.5.29.15");

    const CACMPT_BLOB message = send(*client, update);
    Decoded<ASN1T_PKIMessage> decoded(message);
    EXPECT_TRUE(protectedBy(message, old->tbsCertificate.subjectPublicKeyInfo));
    EXPECT_TRUE(proves(decoded->body.u.kur->front()));
    EXPECT_EQ(client->Certificate, issued);
    EXPECT_THAT(stored(L"Request"), testing::ElementsAre(client->NewKeyClient->Certificate));
    const CACMPT_BLOB renewed = issue(*ca, message);
    client->NewKeyClient->CertRepMessage_Install(renewed, nullptr);
    EXPECT_TRUE(verifies(ca->Certificate, renewed));
}

}  // namespace
