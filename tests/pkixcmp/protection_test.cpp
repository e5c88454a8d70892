#include "capilite/AsnTime.h"
#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::StartsWith;

// A signer of each kind of key, and what one can sign.
struct Signer {
    const char* name;
    DWORD type;
    unsigned int hash;
    const char* signature;  // identifier of its signatures
};
const Signer signers[] = {{"P-256", PROV_ECDSA_P256, CALG_SHA_256, "1.2.840.10045.4.3.2"},
                          {"P-384", PROV_ECDSA_P384, CALG_SHA_384, "1.2.840.10045.4.3.3"},
                          {"RSA", PROV_RSA, CALG_SHA_256, "1.2.840.113549.1.1.11"}};

class Protection : public EnrolmentTest {
protected:
    /// The key of a signer, made when it is first asked for.
    unsigned long long key(std::size_t signer) {
        prov_handle& provider = providers[signer];
        if (provider.get() == 0) {
            const DWORD type = signers[signer].type;
            HCRYPTPROV handle = 0;
            HCRYPTKEY made = 0;
            const std::string container =
                std::string(type == PROV_RSA ? "" : "\\\\.\\VAULT\\") + signers[signer].name;
            EXPECT_TRUE(
                CryptAcquireContextA(&handle, container.c_str(), nullptr, type, CRYPT_NEWKEYSET));
            provider = prov_handle(handle);
            EXPECT_TRUE(CryptGenKey(handle, AT_SIGNATURE, 0, &made)) << std::hex << GetLastError();
            CryptDestroyKey(made);
        }
        return provider.get();
    }
    ASN1T_SubjectPublicKeyInfo& keyOf(std::size_t signer) {
        return *ASN1T_SubjectPublicKeyInfo_set(key(signer), AT_SIGNATURE, buffer.getCtxtPtr());
    }
    ASN1T_Name* name(const wchar_t* text) {
        auto* out = asn1New<ASN1T_Name>(buffer.getCtxtPtr());
        str2dn(text, *out, buffer);
        return out;
    }
    ASN1T_CertificationRequest makeRequest(std::size_t signer) {
        ASN1T_CertificationRequest request;
        auto& info = request.certificationRequestInfo;
        info.subject = *name(L"CN=Signer");
        info.subjectPKInfo = keyOf(signer);
        request.signatureAlgorithm =
            *ASN1T_AlgorithmIdentifier_set(buffer.getCtxtPtr(), key(signer), AT_SIGNATURE);
        ASN1C_CertificationRequest_certificationRequestInfo control(buffer, info);
        request.signature =
            *ASN1EncodeBuffer_EncodeAndSign(key(signer), AT_SIGNATURE, buffer, control);
        return request;
    }
    /// An error message from Signer to Trial Root.
    ASN1T_PKIMessage makeMessage() {
        ASN1T_PKIMessage message;
        message.header.sender.t = message.header.recipient.t = ASN1T_GeneralName::T_directoryName;
        message.header.sender.u.directoryName = name(L"CN=Signer");
        message.header.recipient.u.directoryName = name(L"CN=Trial Root");
        message.body.t = ASN1T_PKIBody::T_error;
        message.body.u.error = asn1New<ASN1T_ErrorMsgContent>(buffer.getCtxtPtr());
        return message;
    }
    ASN1T_CertReqMsg makeProof(std::size_t signer) {
        ASN1T_CertReqMsg message;
        ASN1T_CertTemplate& wanted = message.certReq.certTemplate;
        wanted.m.subjectPresent = wanted.m.publicKeyPresent = true;
        wanted.subject = *name(L"CN=Signer");
        wanted.publicKey = keyOf(signer);
        MakeProofOfPosession(key(signer), buffer, message, AT_SIGNATURE);
        return message;
    }
    bool proves(ASN1T_CertReqMsg& message) {
        const prov_handle provider(
            lSimpleCryptProv(message.certReq.certTemplate.publicKey.algorithm).handle);
        return VerifyProofOfPosession(provider.get(), buffer, message);
    }

    ASN1BEREncodeBuffer buffer;
    std::array<prov_handle, std::size(signers)> providers;
};

TEST_F(Protection, RequestsVerifyForUsAndForAPublicTool) {
    for (std::size_t i = 0; i < std::size(signers); ++i) {
        SCOPED_TRACE(signers[i].name);
        EXPECT_EQ(GetHashAlg(key(i), AT_SIGNATURE), signers[i].hash);
        const ASN1T_CertificationRequest request = makeRequest(i);
        EXPECT_EQ(dotted(request.signatureAlgorithm.algorithm), signers[i].signature);
        EXPECT_THAT(openssl("req -inform DER -noout -verify -in " +
                            file("r.csr", asn1EncodeRecord(request))),
                    testing::HasSubstr("verify OK"));
        ASN1C_CertificationRequest_certificationRequestInfo info(buffer,
                                                                 request.certificationRequestInfo);
        const auto& keyInfo = request.certificationRequestInfo.subjectPKInfo;
        const prov_handle provider(SimpleCryptProv(keyInfo.algorithm).handle);
        EXPECT_TRUE(ASN1EncodeBuffer_EncodeAndVerify(buffer, info, request.signature, keyInfo,
                                                     provider.get(), signers[i].hash));
        EXPECT_TRUE(ASN1EncodeBuffer_EncodeAndVerifyUnsafe(buffer, info, request.signature, keyInfo,
                                                           request.signatureAlgorithm));
    }
}

TEST_F(Protection, PublicToolsRequestsVerify) {
    const struct {
        const char* key;
        const char* digest;
        bool good;
    } cases[] = {{"ec -pkeyopt ec_paramgen_curve:P-256", "-sha256", true},
                 {"ec -pkeyopt ec_paramgen_curve:P-256", "-sha512", true},
                 {"ec -pkeyopt ec_paramgen_curve:P-384", "-sha384", true},
                 {"rsa:2048", "-sha256", true},
                 {"rsa:2048", "-sha1", true},
                 {"rsa:2048", "-sha256 -sigopt rsa_padding_mode:pss", false},
                 {"ed25519", "", false}};
    for (const auto& c : cases) {
        const std::string path = std::string(home.path()) + "/peer.csr";
        openssl(std::string("req -new -nodes -subj /CN=Peer -outform DER -newkey ") + c.key + " " +
                c.digest + " -keyout " + path + ".key -out " + path);
        CACMPT_BLOB der;
        der.readFromFile(path.c_str());
        Decoded<ASN1T_CertificationRequest> request(der);
        ASN1C_CertificationRequest_certificationRequestInfo info(buffer,
                                                                 request->certificationRequestInfo);
        EXPECT_EQ(ASN1EncodeBuffer_EncodeAndVerifyUnsafe(
                      buffer, info, request->signature,
                      request->certificationRequestInfo.subjectPKInfo, request->signatureAlgorithm),
                  c.good)
            << c.key << c.digest;
    }
}

TEST_F(Protection, WrongSignaturesAndAlgorithmsAreFalse) {
    const ASN1T_CertificationRequest request = makeRequest(0);
    const auto& info = request.certificationRequestInfo;
    const auto verified = [&](const ASN1TDynBitStr& signature, const char* algorithm,
                              const ASN1T_SubjectPublicKeyInfo& keyInfo) {
        ASN1C_CertificationRequest_certificationRequestInfo control(buffer, info);
        return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(
            buffer, control, signature, keyInfo,
            *ASN1T_AlgorithmIdentifier_set(buffer.getCtxtPtr(), algorithm, nullptr, 0));
    };
    const char* own = signers[0].signature;
    EXPECT_TRUE(verified(request.signature, own, info.subjectPKInfo));
    CACMPT_BLOB changed(request.signature.data, request.signature.numocts());
    for (std::uint32_t i : {0u, 8u, changed.size - 1}) {
        changed.data[i] ^= 1;
        EXPECT_FALSE(verified({changed.size * 8, changed.data}, own, info.subjectPKInfo)) << i;
        changed.data[i] ^= 1;
    }
    for (std::uint32_t bits : {0u, 1u, 64u, changed.size * 8 - 8}) {
        EXPECT_FALSE(verified({bits, changed.data}, own, info.subjectPKInfo)) << bits;
    }
    for (const char* algorithm :
         {signers[1].signature, signers[2].signature, "1.2.840.10045.4.1", "1.2.840.10045.2.1",
          "2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.1", "1.2.3.4"}) {
        EXPECT_FALSE(verified(request.signature, algorithm, info.subjectPKInfo)) << algorithm;
    }
    EXPECT_FALSE(verified(request.signature, own, keyOf(1)));
    EXPECT_FALSE(verified(request.signature, own, keyOf(2)));
    ASN1T_SubjectPublicKeyInfo unknown = info.subjectPKInfo;
    unknown.algorithm.algorithm = id_kp_serverAuth;
    EXPECT_FALSE(verified(request.signature, own, unknown));
    EXPECT_EQ(failure([&] { SimpleCryptProv{unknown.algorithm}; }, "capilite/EncodeAnd"),
              "CryptException 80092004");
    EXPECT_THAT(failure([&] { SimpleCryptProv{0x7777u}; }, "capilite/EncodeAnd"),
                StartsWith("CryptException "));
    EXPECT_EQ(failure([&] { lSimpleCryptProv{unknown.algorithm}; }, "pkixcmp/RI_DecodeAndVerify"),
              "CryptException 80092004");
    ASN1T_SubjectPublicKeyInfo broken = info.subjectPKInfo;
    broken.subjectPublicKey.numbits -= 8;
    EXPECT_THAT(failure([&] { verified(request.signature, own, broken); }),
                StartsWith("CryptException "));
}

TEST_F(Protection, NothingIsSignedWithoutAKey) {
    ASN1T_PKIMessage message = makeMessage();
    for (unsigned long long provider : {0ull, 12345ull}) {
        EXPECT_THAT(failure([&] { ASN1CMPMessage_Sign(message, buffer, provider, 2, {}); }),
                    StartsWith("CryptException "));
    }
    EXPECT_THAT(failure([&] { ASN1CMPMessage_Sign(message, buffer, key(0), AT_KEYEXCHANGE, {}); }),
                StartsWith("CryptException "));
    message.header.sender.t = 77;
    EXPECT_THAT(failure([&] { ASN1CMPMessage_Sign(message, buffer, key(0), 2, {}); }),
                StartsWith("Asn1Exception "));
}

TEST(SignatureBytes, AreReversedForTheProvider) {
    const std::uint8_t bytes[] = {1, 2, 3, 0x80};
    const struct {
        std::uint32_t bits;
        int reverse;
        const char* blob;
    } cases[] = {
        {24, 0, "010203"}, {24, 1, "030201"}, {25, 1, "80030201"}, {1, 1, "01"}, {0, 1, ""}};
    CACMPT_BLOB out("stale", 5);
    for (const auto& c : cases) {
        ASN1SignatureToBlob(out, {c.bits, bytes}, c.reverse);
        EXPECT_EQ(out.writeToHexString(), c.blob);
    }
    for (std::uint32_t bits : {0xFFFFFFF9u, 0xFFFFFFFFu}) {
        EXPECT_EQ(failure([&] {
                      ASN1SignatureToBlob(out, {bits, bytes}, 1);
                  }),
                  "Asn1DecodeException signature too long");
    }
}

// The part of a message that its protection covers, written to files for a public tool.
TEST_F(Protection, MessagesAreSignedOverHeaderAndBody) {
    for (std::size_t i = 0; i < std::size(signers); ++i) {
        SCOPED_TRACE(signers[i].name);
        ASN1T_PKIMessage message = makeMessage();
        const CACMPT_BLOB der = ASN1CMPMessage_Sign(message, buffer, key(i), AT_SIGNATURE, {});
        Decoded<ASN1T_PKIMessage> read(der);
        ASSERT_TRUE(read->m.protectionPresent);
        EXPECT_FALSE(read->m.extraCertsPresent);
        EXPECT_EQ(dotted(read->header.protectionAlg.algorithm), signers[i].signature);
        file("signature", CACMPT_BLOB(read->protection.data, read->protection.numocts()));
        read->m.protectionPresent = false;
        const std::string covered = file("part", asn1EncodeRecord(read.value));
        openssl("pkey -pubin -inform DER -in " + file("key", asn1EncodeRecord(keyOf(i))) +
                " -out " + covered + ".pem");
        EXPECT_EQ(openssl(std::string("dgst ") + (i == 1 ? "-sha384" : "-sha256") + " -verify " +
                          covered + ".pem -signature " +
                          file("signature",
                               CACMPT_BLOB(read->protection.data, read->protection.numocts())) +
                          " " + covered),
                  "Verified OK\n");
        ASN1C_PKIMessage control(buffer, read.value);
        const prov_handle provider(SimpleCryptProv(keyOf(i).algorithm).handle);
        EXPECT_TRUE(ASN1EncodeBuffer_EncodeAndVerify(buffer, control, read->protection, keyOf(i),
                                                     provider.get(), signers[i].hash));
        read->header.pvno = 2;
        EXPECT_FALSE(ASN1EncodeBuffer_EncodeAndVerify(buffer, control, read->protection, keyOf(i),
                                                      provider.get(), signers[i].hash));
    }
}

TEST_F(Protection, ExtraCertificatesFollowThoseInTheMessage) {
    auto ca = makeCa();
    auto client = makeClient("alice");
    const CACMPT_BLOB issued = issue(*ca, makeIr(*client));
    ASN1T_PKIMessage message = makeMessage();
    const auto extras = [&](const std::list<CACMPT_BLOB>& given) {
        Decoded<ASN1T_PKIMessage> read(
            ASN1CMPMessage_Sign(message, buffer, key(0), AT_SIGNATURE, given));
        std::list<CACMPT_BLOB> found;
        if (read->m.extraCertsPresent) {
            for (const auto& c : read->extraCerts) found.push_back(asn1EncodeRecord(c));
        }
        EXPECT_EQ(read->m.extraCertsPresent, !found.empty());
        return found;
    };
    EXPECT_EQ(extras({issued, ca->Certificate}), (std::list{issued, ca->Certificate}));
    EXPECT_EQ(extras({issued}), (std::list{issued, ca->Certificate, issued}));
    EXPECT_EQ(extras({}), std::list<CACMPT_BLOB>());
    EXPECT_EQ(extras({issued}), std::list{issued});  // those removed stay removed
    CACMPT_BLOB cut(issued.data, issued.size - 1);
    EXPECT_THAT(failure([&] { extras({issued, cut}); }), StartsWith("Asn1Exception "));
}

TEST_F(Protection, ProofsCoverTheTemplate) {
    for (std::size_t i = 0; i < std::size(signers); ++i) {
        SCOPED_TRACE(signers[i].name);
        ASN1T_CertReqMsg message = makeProof(i);
        EXPECT_TRUE(proves(message));
        EXPECT_EQ(message.popo.u.signature->algorithmIdentifier.algorithm,
                  message.certReq.certTemplate.publicKey.algorithm.algorithm);
        message.certReq.certReqId = 5;                                               // not covered
        message.popo.u.signature->algorithmIdentifier.algorithm = id_kp_serverAuth;  // not read
        EXPECT_TRUE(proves(message));
        message.certReq.certTemplate.subject = *name(L"CN=Other");
        EXPECT_FALSE(proves(message));
    }
}

TEST_F(Protection, OtherProofsAreRefused) {
    const struct {
        const char* failure;
        void (*change)(ASN1T_CertReqMsg&);
    } cases[] = {
        {"Asn1DecodeException no proof-of-posession",
         [](ASN1T_CertReqMsg& m) { m.m.popoPresent = false; }},
        {"false", [](ASN1T_CertReqMsg& m) { m.popo.t = ASN1T_ProofOfPossession::T_raVerified; }},
        {"Asn1DecodeException unsupported proof-of-posession",
         [](ASN1T_CertReqMsg& m) { m.popo.t = 3; }},
        {"Asn1DecodeException unsupported proof-of-posession",
         [](ASN1T_CertReqMsg& m) { m.popo.t = 4; }},
        {"Asn1DecodeException proof-of-posession missing public key or subject DN",
         [](ASN1T_CertReqMsg& m) { m.certReq.certTemplate.m.subjectPresent = false; }},
        {"Asn1DecodeException proof-of-posession missing public key or subject DN",
         [](ASN1T_CertReqMsg& m) { m.certReq.certTemplate.m.publicKeyPresent = false; }},
        {"Asn1DecodeException proof-of-posession invalid public key algorithm",
         [](ASN1T_CertReqMsg& m) {
             m.certReq.certTemplate.publicKey.algorithm.algorithm = id_kp_serverAuth;
         }},
        {"false", [](ASN1T_CertReqMsg& m) { m.popo.u.signature->signature.numbits = 0; }},
    };
    for (const auto& c : cases) {
        ASN1T_CertReqMsg message = makeProof(0);
        c.change(message);
        std::string result =
            failure([&] { EXPECT_FALSE(VerifyProofOfPosession(key(0), buffer, message)); });
        EXPECT_EQ(result == "none" ? "false" : result, c.failure);
    }
}

}  // namespace
