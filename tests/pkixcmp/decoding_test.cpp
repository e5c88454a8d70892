#include <filesystem>

#include "capilite/Oid.h"
#include "pkixcmp/MessageDecoding.h"
#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::StartsWith;

constexpr const char* source = "pkixcmp/RI_DecodeAndVerify";

class Decoding : public EnrolmentTest {
protected:
    /// A message from Alice to Trial Root with the body that `fill` makes.
    CACMPT_BLOB message(int t, const std::function<void(ASN1T_PKIBody&, ASN1CTXT*)>& fill) {
        ASN1BEREncodeBuffer buffer;
        ASN1T_PKIMessage out;
        str2general(L"dn:CN=Alice", out.header.sender, buffer);
        str2general(L"dn:CN=Trial Root", out.header.recipient, buffer);
        out.body.t = t;
        fill(out.body, buffer.getCtxtPtr());
        return asn1EncodeRecord(out);
    }
    template <class T>
    static T& body(ASN1T_PKIBody& out, ASN1CTXT* ctxt) {
        out.u.any = asn1New<T>(ctxt);
        return *static_cast<T*>(out.u.any);
    }
    static ASN1OpenType open(const std::string& hex, ASN1CTXT* ctxt) {
        const CACMPT_BLOB der = fromHex(hex.c_str());
        return ASN1OpenType(der.size, rtCopyBytes(ctxt, der.data, der.size));
    }
    /// A general message of items with these identifiers and hexadecimal values.
    CACMPT_BLOB genm(const std::vector<std::pair<const char*, std::string>>& items) {
        return message(ASN1T_PKIBody::T_genm, [&](ASN1T_PKIBody& out, ASN1CTXT* ctxt) {
            auto& list = body<ASN1T_GenMsgContent>(out, ctxt);
            for (const auto& [oid, hex] : items) {
                auto& item = *list.append(ctxt);
                const ASN1OBJID id = str2oid(oid);
                rtSetOID(ctxt, &item.infoType, &id);
                item.m.infoValuePresent = !hex.empty();
                item.infoValue = open(hex, ctxt);
            }
        });
    }
    std::string decodeFailure(const CACMPT_BLOB& der) {
        RequestInfo request;
        return failure([&] { PKIXCMP_Base::CertReqMessage_Decode(der, &request); });
    }
};

// SEQUENCE { CN=Old, CN=New, [0] { "was" } }
const std::string changeName =
    "3029300E310C300A06035504030C034F6C64300E310C300A06035504030C034E6577A00730050C03776173";
const char* const idChangeName = "1.2.643.2.2.41.2";
const char* const idResume = "1.2.643.2.2.41.3";
const char* const idCurrentCrl = "1.3.6.1.5.5.7.4.6";

TEST_F(Decoding, GeneralMessagesTakeTheTypeOfTheirLastKnownItem) {
    // CertTemplate { [1] serialNumber 5 }, keyCompromise and certificateHold
    const std::string details = "3009300381010503020142";
    const struct {
        std::vector<std::pair<const char*, std::string>> items;
        std::int32_t type;
        std::wstring subject;
    } cases[] = {
        {{}, REQUEST_TYPE_GEN_MSG_CONTENT, L""},
        {{{"1.2.3", "0500"}, {"1.2.3", ""}}, REQUEST_TYPE_GEN_MSG_CONTENT, L""},
        {{{idCurrentCrl, ""}}, REQUEST_TYPE_GET_CRL, L"CN=Alice"},
        {{{idCurrentCrl, ""}, {idChangeName, changeName}, {"1.2.3", ""}},
         REQUEST_TYPE_CHANGE_NAME,
         L"CN=Old"},
        {{{idChangeName, changeName}, {idCurrentCrl, ""}}, REQUEST_TYPE_GET_CRL, L"CN=Alice"},
        {{{idResume, details}}, REQUEST_TYPE_RESUME_CERTIFICATE, L"CN=Alice"}};
    for (const auto& c : cases) {
        RequestInfo request;
        const CACMPT_BLOB der = genm(c.items);
        EXPECT_EQ(PKIXCMP_Base::CertReqMessage_Decode(der, &request), 0);
        EXPECT_EQ(request.RequestType, c.type);
        EXPECT_EQ(request.Subject.tostring(3), c.subject);
        EXPECT_EQ(request.RawRequest, der);
        EXPECT_EQ(request.GeneralInfo.size(), 0u);
        EXPECT_STREQ(request.SenderGeneralName, L"CN=Alice");
        EXPECT_EQ(request.SubmittedWhen, CACMPT_Date(0, 0));
        if (c.type == REQUEST_TYPE_CHANGE_NAME) {
            EXPECT_EQ(request.NewSubject.tostring(3), L"CN=New");
            ASSERT_EQ(request.ChangeNameTextOld.size(), 1u);
            EXPECT_EQ(request.ChangeNameTextOld.front().text, L"was");
            EXPECT_TRUE(request.ChangeNameTextNew.empty());
        }
        if (c.type == REQUEST_TYPE_RESUME_CERTIFICATE) {
            EXPECT_STREQ(request.SerialNumber, "0x05");
            EXPECT_EQ(request.RevokedReason,
                      ReasonFlags::keyCompromise | ReasonFlags::certificateHold);
        }
    }
}

TEST_F(Decoding, UnusableRequestsAreRefused) {
    const auto empty = []<class List>(List*) {
        return [](ASN1T_PKIBody& out, ASN1CTXT* ctxt) { body<List>(out, ctxt); };
    };
    const auto two = []<class List>(List*) {
        return [](ASN1T_PKIBody& out, ASN1CTXT* ctxt) {
            auto& list = body<List>(out, ctxt);
            list.append(ctxt);
            list.append(ctxt);
        };
    };
    ASN1T_CertReqMessages* requests = nullptr;
    ASN1T_RevReqContent* revocations = nullptr;
    using Body = ASN1T_PKIBody;
    const std::pair<CACMPT_BLOB, const char*> cases[] = {
        {message(Body::T_ir, empty(requests)), "empty ASN1T_CertReqMessages"},
        {message(Body::T_kur, two(requests)), "multiple ASN1T_CertReqMessages"},
        {message(Body::T_ccr, empty(requests)), "empty ASN1T_CertReqMessages"},
        {message(Body::T_rr, empty(revocations)), "empty ASN1T_RevReqContent"},
        {message(Body::T_rr, two(revocations)), "multiple ASN1T_RevReqContent"},
        {message(Body::T_cr, empty(requests)), "unsupported ASN1C_PKIMessage message type"},
        {message(Body::T_pkiconf, [](Body&, ASN1CTXT*) {}),
         "unsupported ASN1C_PKIMessage message type"},
        {genm({{idResume, ""}}), "empty ASN1T_InfoTypeAndValue"},
        {genm({{idChangeName, ""}}), "empty ASN1T_InfoTypeAndValue"},
    };
    for (const auto& [der, text] : cases) {
        EXPECT_EQ(decodeFailure(der), std::string("Asn1DecodeException ") + text);
    }
    EXPECT_EQ(decodeFailure(genm({{idResume, "30023000"}})), "CAException Missing serial number");
    for (const char* bad : {"0500", "3000", "30023000"}) {
        EXPECT_THAT(decodeFailure(genm({{idChangeName, bad}})), StartsWith("Asn1Exception "));
    }
    const CACMPT_BLOB good = genm({{idChangeName, changeName}});
    EXPECT_EQ(decodeFailure(good), "none");
    for (std::uint32_t length = 0; length < good.size; ++length) {
        EXPECT_THAT(decodeFailure(CACMPT_BLOB(good.data, length)), StartsWith("Asn1Exception "))
            << length;
    }
    CACMPT_BLOB longer = good;
    longer.append("x", 1);
    EXPECT_THAT(decodeFailure(longer), StartsWith("Asn1Exception "));
}

TEST_F(Decoding, TheFirstAttributeThatHasExtensionsCounts) {
    // One private extension, 1.2.3 and 1.2.4, with NULL in it.
    const std::string first = "300A300806022A0304020500", second = "300A300806022A0404020500";
    const auto &ms = id_ms_certExtensions, &pkcs = pkcs_9_at_extensionRequest;
    const struct {
        std::vector<std::pair<ASN1TObjId, std::vector<std::string>>> attributes;  // in DER's order
        std::vector<std::string> found;
        bool read;
    } cases[] = {{{{pkcs, {}}, {ms, {}}}, {}, true},
                 {{{pkcs, {}}, {ms, {first}}}, {"1.2.3"}, true},
                 {{{pkcs, {first}}, {ms, {second}}}, {"1.2.3"}, true},
                 {{{ms, {first}}, {pkcs, {first, second}}}, {"1.2.3"}, true},
                 {{{id_ce_keyUsage, {first}}, {ms, {second}}}, {"1.2.4"}, true},
                 {{{pkcs, {"0500"}}, {ms, {first}}}, {}, false}};
    for (const auto& c : cases) {
        const auto fill = [&](ASN1T_PKIBody& out, ASN1CTXT* ctxt) {
            auto& request = body<ASN1T_CertificationRequest>(out, ctxt);
            auto& info = request.certificationRequestInfo;
            info.subjectPKInfo.algorithm.algorithm = request.signatureAlgorithm.algorithm = ms;
            for (const auto& [type, values] : c.attributes) {
                auto& attribute = *info.attributes.append(ctxt);
                attribute.type = type;
                for (const auto& value : values) {
                    *attribute.values.append(ctxt) = open(value, ctxt);
                }
            }
        };
        const CACMPT_BLOB der = message(ASN1T_PKIBody::T_p10cr, fill);
        RequestInfo request;
        EXPECT_EQ(failure([&] { PKIXCMP_Base::CertReqMessage_Decode(der, &request); }) == "none",
                  c.read);
        std::vector<std::string> found;
        for (const CACMPT_Extension& e : request.Extensions) found.push_back(e.oid);
        EXPECT_EQ(found, c.found);
    }
}

TEST_F(Decoding, RevocationsLeaveWhatTheyLack) {
    RequestInfo request;
    request.RevokedReason = 99;
    std::strcpy(request.SerialNumber, "kept");
    ASN1T_RevDetails details;
    CertReq_Parse(details, &request);
    EXPECT_EQ(request.RevokedReason, 0u);
    EXPECT_STREQ(request.SerialNumber, "kept");
    // 127 and 128 characters.
    for (const auto& [digits, text] :
         {std::pair(125, "none"), std::pair(126, "Asn1DecodeException SerialNumber too long")}) {
        const std::string serial = "0x" + std::string(digits, '1');
        details.certDetails.m.serialNumberPresent = true;
        details.certDetails.serialNumber = serial.c_str();
        EXPECT_FAILURE(CertReq_Parse(details, &request), text);
    }
}

// What openssl asks for, with its own test server as the other side.
TEST_F(Decoding, ReadsThePeersMessages) {
    const std::string in = "cd " + std::string(home.path()) + "; openssl ";
    const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";
    const auto path = [&](const char* name) { return std::string(home.path() / name); };
    runTool(in + "req -x509 " + key + "-keyout ca.key -out ca.pem -subj '/CN=Mock CA'", "");
    runTool(in + "req -new " + key +
                "-keyout ee.key -out ee.csr -subj /O=Peers/CN=Peer "
                "-addext subjectAltName=DNS:a.example -addext keyUsage=digitalSignature",
            "");
    runTool(in + "x509 -req -in ee.csr -CA ca.pem -CAkey ca.key -set_serial 0x8001 -out ee.pem",
            "");
    runTool(in + "x509 -in ee.pem -outform DER -out ee.cer", "");
    const std::string mock =
        "cmp -config '' -use_mock_srv -srv_cert ca.pem -srv_key ca.key -srv_trusted ca.pem "
        "-rsp_cert ee.pem -trusted ca.pem -cert ee.pem -key ee.key -oldcert ee.pem "
        "-recipient '/CN=Mock CA' -certout got.pem -reqout req.der -rspout rsp.der -cmd ";
    const struct {
        const char* command;
        std::int32_t type;
        std::wstring subject;
        std::size_t extensions;
        bool certified;
    } cases[] = {{"p10cr -csr ee.csr", REQUEST_TYPE_GET_CERTIFICATE, L"O=Peers, CN=Peer", 2, true},
                 {"ir -newkey ee.key -subject /CN=Peer -sans b.example",
                  REQUEST_TYPE_INIT_CERTIFICATE, L"CN=Peer", 1, true},
                 {"kur -newkey ee.key", REQUEST_TYPE_UPDATE_KEY, L"O=Peers, CN=Peer", 0, true},
                 {"rr -revreason 1", REQUEST_TYPE_REVOKE_CERTIFICATE, L"", 0, false},
                 {"genm -infotype signKeyPairTypes", REQUEST_TYPE_GEN_MSG_CONTENT, L"", 0, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        runTool(in + mock + c.command, "");
        RequestInfo request;
        CertificateInfo reply;
        const CACMPT_BLOB sent = readFile(path("req.der")), got = readFile(path("rsp.der"));
        PKIXCMP_Base::CertReqMessage_Decode(sent, &request);
        EXPECT_EQ(request.RequestType, c.type);
        EXPECT_EQ(request.RawRequest, sent);
        const bool p10 = c.type == REQUEST_TYPE_GET_CERTIFICATE;
        EXPECT_STREQ(request.RequestSignatureAlgorithm, p10 ? "1.2.840.10045.4.3.2" : "");
        EXPECT_NE(p10, request.RequestSignature.empty());
        const bool revokes = c.type == REQUEST_TYPE_REVOKE_CERTIFICATE;
        EXPECT_STREQ(request.SerialNumber, revokes ? "0x08001" : "");
        EXPECT_EQ(request.Subject.tostring(3), c.subject);
        EXPECT_EQ(request.Extensions.size(), c.extensions);
        EXPECT_STREQ(request.SenderGeneralName, L"O=Peers, CN=Peer");
        EXPECT_EQ(request.transactionID.size, 16u);
        EXPECT_EQ(failure([&] { PKIXCMP_Base::CertRepMessage_Decode(got, &reply); }, source),
                  c.certified ? "none" : "Asn1DecodeException ASN1C_PKIMessage decode failed");
        if (c.certified) {
            EXPECT_EQ(reply.RawCertificate, readFile(path("ee.cer")));
            EXPECT_STREQ(reply.SerialNumber, "0x08001");
            EXPECT_EQ(reply.SubjectPublicKey.key, request.SubjectPublicKey.key);
        }
        std::filesystem::remove(path("req.der"));
        std::filesystem::remove(path("rsp.der"));
    }
}

TEST_F(Decoding, CertificatesShowWhatAPublicToolShows) {
    const CACMPT_BLOB der =
        withAllExtensions("rsa:2048 -subj /C=RU/CN=X -set_serial 0xFF02 -days 36500");
    const Shown info(der);
    EXPECT_EQ(info.RawCertificate, der);
    EXPECT_STREQ(info.SerialNumber, "0x0ff02");
    EXPECT_EQ(info.Subject.tostring(3), L"C=RU, CN=X");
    EXPECT_EQ(info.Issuer, info.Subject);
    EXPECT_STREQ(info.CertificateSignatureAlgorithm, "1.2.840.113549.1.1.11");
    EXPECT_EQ(info.CertificateSignature.size, 256u);
    EXPECT_EQ(info.NotAfter - info.NotBefore, CACMPT_Period::OneDay * 36500);  // beyond 2050
    EXPECT_EQ(hexOf(info.SubjectPublicKey.parameters), "0500");
    std::string keyId =
        openssl("x509 -inform DER -noout -ext subjectKeyIdentifier -in " + file("x.cer", der));
    keyId = keyId.substr(keyId.find('\n') + 1);
    std::erase_if(keyId, [](char c) { return !std::isxdigit(c); });
    EXPECT_EQ(hexOf(info.SubjectKeyIdentifier), keyId);
    EXPECT_EQ(hexOf(info.AuthorityKeyIdentifier), "0102");
    CACMPT_ASN1BERDecodeBuffer buffer;
    EXPECT_EQ(asn1EncodeRecord(*get_server_name(der, buffer)), info.Subject);
    const CACMPT_BLOB cut(der.data, der.size / 2);
    EXPECT_THAT(failure([&] { get_server_name(cut, buffer); }, source), StartsWith("Asn1Exc"));
    EXPECT_THAT(failure([&] { Shown{cut}; }, source), StartsWith("Asn1Exception "));
}

TEST_F(Decoding, RepliesOfOtherShapes) {
    const auto reply = [&](int answers, int choice) {
        return message(ASN1T_PKIBody::T_kup, [&](ASN1T_PKIBody& out, ASN1CTXT* ctxt) {
            auto& list = body<ASN1T_CertRepMessage>(out, ctxt).response;
            for (int i = 0; i < answers; ++i) {
                auto& response = *list.append(ctxt);
                response.certReqId = 7;
                if (choice == 0) continue;
                response.m.certifiedKeyPairPresent = true;
                auto& issued = response.certifiedKeyPair.certOrEncCert;
                issued.t = choice;
                issued.u.encryptedCert = asn1New<ASN1T_EncryptedValue>(ctxt);
            }
        });
    };
    const struct {
        int answers, choice, id;
        const char* failure;
    } cases[] = {{0, 0, -1, "none"},
                 {1, 0, 7, "none"},
                 {2, 0, -1, "Asn1DecodeException Too many answers."},
                 {1, 2, 7, "Asn1DecodeException Unknown ASN1T_CertOrEncCert format."}};
    for (const auto& c : cases) {
        CertificateInfo info;
        const CACMPT_BLOB der = reply(c.answers, c.choice);
        EXPECT_FAILURE(PKIXCMP_Base::CertRepMessage_Decode(der, &info), c.failure);
        EXPECT_EQ(info.RequestID, c.id);
        EXPECT_TRUE(info.RawCertificate.empty());
        EXPECT_STREQ(info.RecipientGeneralName, L"CN=Trial Root");
    }
}

TEST_F(Decoding, ErrorsGoOutSignedAndComeBack) {
    auto ca = makeCa();
    const auto sent = [&](const ErrorMsgInfo& error) {
        CACMPT_BLOB out;
        PKIXCMP_Base::ErrorMsgInfo_EncodeAndSign(&error, out, ca->ProviderHandle, 2,
                                                 ca->Certificate);
        return out;
    };
    ErrorMsgInfo full;
    std::wcscpy(full.RecipientGeneralName, L"dn:CN=Alice");
    full.PKIStatus = PKI_STATUS_REJECTION;
    full.FailureInfo = FailureInfo::systemFailure | FailureInfo::badPOP;
    full.ErrorCode = -5;
    full.ErrorText.emplace_back(L"no", Encoding::DEFAULT_WRITE);
    full.ErrorDetails.emplace_back(L"why", Encoding::DEFAULT_READ);
    ErrorMsgInfo read;
    const CACMPT_BLOB der = sent(full);
    PKIXCMP_Base::ErrorMsgInfo_Decode(der, &read);
    EXPECT_STREQ(read.SenderGeneralName, L"CN=Trial Root, O=Trial");
    EXPECT_STREQ(read.RecipientGeneralName, L"CN=Alice");
    EXPECT_EQ(read.PKIStatus, PKI_STATUS_REJECTION);
    EXPECT_EQ(read.FailureInfo, 0x2000200u);
    EXPECT_EQ(read.ErrorCode, -5);
    EXPECT_EQ(read.ErrorText.front().language.value, "ru-ru");
    EXPECT_EQ(read.ErrorDetails.front().text, L"why");
    Decoded<ASN1T_PKIMessage> decoded(der);
    EXPECT_TRUE(decoded->m.protectionPresent);
    EXPECT_EQ(decoded->body.u.error->pKIStatusInfo.failInfo.numbits, 15u);
    EXPECT_TRUE(decoded->body.u.error->pKIStatusInfo.failInfo.test(14));

    ErrorMsgInfo bare;
    EXPECT_EQ(failure([&] { sent(bare); }, source),
              "Asn1DecodeException RecipientGeneralName not specified");
    std::wcscpy(bare.RecipientGeneralName, L"dn:CN=Alice");
    Decoded<ASN1T_PKIMessage> small(sent(bare));
    const ASN1T_ErrorMsgContent& content = *small->body.u.error;
    EXPECT_FALSE(content.m.errorCodePresent || content.m.errorDetailsPresent ||
                 content.pKIStatusInfo.m.failInfoPresent ||
                 content.pKIStatusInfo.m.statusStringPresent);
    EXPECT_EQ(failure([&] { PKIXCMP_Base::ErrorMsgInfo_Decode(genm({}), &read); }, source),
              "Asn1DecodeException ASN1C_PKIMessage decode failed");
}

#ifdef PKIXCMP_SAMPLES  // Objects of other implementations: a decoder reads one or says why not.

std::vector<std::filesystem::path> samples(const char* folder) {
    return {std::filesystem::directory_iterator(std::filesystem::path(PKIXCMP_SAMPLES) / folder),
            std::filesystem::directory_iterator()};
}

TEST_F(Decoding, SampleMessagesAreOfOneKind) {
    std::size_t read = 0;
    for (const auto& path : samples("cmp")) {
        const CACMPT_BLOB der = readFile(path);
        RequestInfo request;
        CertificateInfo reply;
        ErrorMsgInfo error;
        const auto reads = [](const auto& decode) { return failure(decode) == "none" ? 1u : 0u; };
        const unsigned int kinds =
            reads([&] { PKIXCMP_Base::CertReqMessage_Decode(der, &request); }) +
            reads([&] { PKIXCMP_Base::CertRepMessage_Decode(der, &reply); }) +
            reads([&] { PKIXCMP_Base::ErrorMsgInfo_Decode(der, &error); });
        EXPECT_LE(kinds, 1u) << path;
        read += kinds;
    }
    EXPECT_GE(2 * read, samples("cmp").size());
}

TEST_F(Decoding, SamplePkcs10RequestsComeInMessages) {
    for (const auto& path : samples("csr")) {
        CACMPT_ASN1BERDecodeBuffer buffer;
        ASN1T_CertificationRequest request;
        const CACMPT_BLOB der = readFile(path);
        if (failure([&] { asn1DecodeRecord(buffer, der, request); }) != "none") continue;
        const CACMPT_BLOB sent = message(
            ASN1T_PKIBody::T_p10cr, [&](ASN1T_PKIBody& out, ASN1CTXT*) { out.u.p10cr = &request; });
        RequestInfo info;
        const std::string said = failure([&] { PKIXCMP_Base::CertReqMessage_Decode(sent, &info); });
        EXPECT_EQ(info.RequestSignature.size, request.signature.numocts()) << path;
        EXPECT_EQ(info.Subject, asn1EncodeRecord(request.certificationRequestInfo.subject));
        EXPECT_TRUE(said == "none" || said.starts_with("Asn1Exception ")) << path << said;
        EXPECT_EQ(info.RawRequest.size, said == "none" ? sent.size : 0) << path;
    }
}

#endif

}  // namespace
