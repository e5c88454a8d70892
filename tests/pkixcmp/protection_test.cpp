#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Info = ASN1C_CertificationRequest_certificationRequestInfo;

// A signer of each kind of key.
const struct {
    const char* container;
    DWORD type;
    unsigned int hash;
    const char* digest;     // option of openssl
    const char* signature;  // identifier
} signers[] = {
    {"\\\\.\\VAULT\\p256", PROV_ECDSA_P256, CALG_SHA_256, "-sha256", "1.2.840.10045.4.3.2"},
    {"\\\\.\\VAULT\\p384", PROV_ECDSA_P384, CALG_SHA_384, "-sha384", "1.2.840.10045.4.3.3"},
    {"rsa", PROV_RSA, CALG_SHA_256, "-sha256", "1.2.840.113549.1.1.11"}};

class Protection : public EnrolmentTest {
protected:
    /// The key of a signer, made when it is first asked for.
    unsigned long long key(std::size_t signer) {
        if (providers[signer].get() == 0) {
            HCRYPTPROV handle = 0;
            HCRYPTKEY made = 0;
            EXPECT_TRUE(CryptAcquireContextA(&handle, signers[signer].container, nullptr,
                                             signers[signer].type, CRYPT_NEWKEYSET));
            EXPECT_TRUE(CryptGenKey(handle, AT_SIGNATURE, 0, &made)) << std::hex << GetLastError();
            CryptDestroyKey(made);
            providers[signer] = prov_handle(handle);
        }
        return providers[signer].get();
    }
    ASN1T_SubjectPublicKeyInfo& keyOf(std::size_t signer) {
        return *ASN1T_SubjectPublicKeyInfo_set(key(signer), AT_SIGNATURE, buffer.getCtxtPtr());
    }
    ASN1T_CertificationRequest makeRequest(std::size_t signer) {
        ASN1T_CertificationRequest request;
        str2dn(L"CN=Signer", request.certificationRequestInfo.subject, buffer);
        request.certificationRequestInfo.subjectPKInfo = keyOf(signer);
        request.signatureAlgorithm =
            *ASN1T_AlgorithmIdentifier_set(buffer.getCtxtPtr(), key(signer), AT_SIGNATURE);
        Info info(buffer, request.certificationRequestInfo);
        request.signature =
            *ASN1EncodeBuffer_EncodeAndSign(key(signer), AT_SIGNATURE, buffer, info);
        return request;
    }
    bool verified(const ASN1T_CertificationRequest& request) {
        Info info(buffer, request.certificationRequestInfo);
        return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(
            buffer, info, request.signature, request.certificationRequestInfo.subjectPKInfo,
            request.signatureAlgorithm);
    }
    /// An error message from Signer to Trial Root.
    ASN1T_PKIMessage makeMessage() {
        ASN1T_PKIMessage message;
        str2general(L"dn:CN=Signer", message.header.sender, buffer);
        str2general(L"dn:CN=Trial Root", message.header.recipient, buffer);
        message.body.t = ASN1T_PKIBody::T_error;
        message.body.u.error = asn1New<ASN1T_ErrorMsgContent>(buffer.getCtxtPtr());
        return message;
    }

    ASN1BEREncodeBuffer buffer;
    std::array<prov_handle, std::size(signers)> providers;
};

TEST_F(Protection, RequestsVerifyForUsAndForAPublicTool) {
    for (std::size_t i = 0; i < std::size(signers); ++i) {
        SCOPED_TRACE(signers[i].container);
        EXPECT_EQ(GetHashAlg(key(i), AT_SIGNATURE), signers[i].hash);
        const ASN1T_CertificationRequest request = makeRequest(i);
        EXPECT_EQ(dotted(request.signatureAlgorithm.algorithm), signers[i].signature);
        const std::string path = file("r.csr", asn1EncodeRecord(request));
        EXPECT_THAT(openssl("req -inform DER -noout -verify -in " + path), HasSubstr("verify OK"));
        EXPECT_TRUE(verified(request));
    }
}

TEST_F(Protection, PublicToolsRequestsVerify) {
    const std::pair<const char*, bool> cases[] = {
        {"ec -pkeyopt ec_paramgen_curve:P-256 -sha256", true},
        {"ec -pkeyopt ec_paramgen_curve:P-256 -sha512", true},
        {"ec -pkeyopt ec_paramgen_curve:P-384 -sha384", true},
        {"rsa:2048 -sha1", true},
        {"rsa:2048 -sha256 -sigopt rsa_padding_mode:pss", false},
        {"ed25519", false}};
    for (const auto& [options, good] : cases) {
        const std::string path = std::string(home.path()) + "/peer.csr";
        openssl("req -new -nodes -subj /CN=Peer -outform DER -newkey " + std::string(options) +
                " -keyout " + path + ".key -out " + path);
        Decoded<ASN1T_CertificationRequest> request(readFile(path));
        EXPECT_EQ(verified(request.value), good) << options;
    }
}

TEST_F(Protection, WrongSignaturesAndAlgorithmsAreFalse) {
    const ASN1T_CertificationRequest request = makeRequest(0);
    EXPECT_TRUE(verified(request));
    ASN1T_CertificationRequest wrong = request;
    CACMPT_BLOB bytes(request.signature.data, request.signature.numocts());
    wrong.signature.data = bytes.data;
    for (std::uint32_t i : {0u, 8u, bytes.size - 1}) {
        bytes.data[i] ^= 1;
        EXPECT_FALSE(verified(wrong)) << i;
        bytes.data[i] ^= 1;
    }
    for (std::uint32_t bits : {0u, 1u, 64u, request.signature.numbits - 8}) {
        wrong.signature.numbits = bits;
        EXPECT_FALSE(verified(wrong)) << bits;
    }
    wrong = request;
    for (const char* algorithm :
         {signers[1].signature, signers[2].signature, "1.2.840.10045.4.1", "1.2.840.10045.2.1",
          "2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.1", "1.2.3.4"}) {
        wrong.signatureAlgorithm =
            *ASN1T_AlgorithmIdentifier_set(buffer.getCtxtPtr(), algorithm, nullptr, 0);
        EXPECT_FALSE(verified(wrong)) << algorithm;
    }
    wrong = request;
    ASN1T_SubjectPublicKeyInfo& keyInfo = wrong.certificationRequestInfo.subjectPKInfo;
    for (std::size_t other : {1u, 2u}) {
        keyInfo = keyOf(other);
        EXPECT_FALSE(verified(wrong));
    }
    keyInfo = request.certificationRequestInfo.subjectPKInfo;
    keyInfo.subjectPublicKey.numbits -= 8;
    EXPECT_THAT(failure([&] { verified(wrong); }), StartsWith("CryptException "));
    keyInfo.algorithm.algorithm = id_kp_serverAuth;  // no algorithm of keys
    EXPECT_FALSE(verified(wrong));
    EXPECT_EQ(failure([&] { SimpleCryptProv{keyInfo.algorithm}; }, "capilite/EncodeAnd"),
              "CryptException 80092004");
    EXPECT_EQ(failure([&] { lSimpleCryptProv{keyInfo.algorithm}; }, "pkixcmp/RI_DecodeAndVerify"),
              "CryptException 80092004");
    EXPECT_THAT(failure([&] { SimpleCryptProv{0x7777u}; }), StartsWith("CryptException "));
}

TEST(SignatureBytes, AreReversedForTheProvider) {
    const std::uint8_t bytes[] = {1, 2, 3, 0x80};
    const struct {
        std::uint32_t bits;
        int reverse;
        const char* result;
    } cases[] = {{24, 0, "010203"}, {24, 1, "030201"},    {25, 1, "80030201"}, {1, 1, "01"},
                 {0, 1, ""},        {0xFFFFFFF9, 1, "x"}, {0xFFFFFFFF, 0, "x"}};
    for (const auto& c : cases) {
        CACMPT_BLOB out("stale", 5);
        const std::string said = failure([&] {
            ASN1SignatureToBlob(out, {c.bits, bytes}, c.reverse);
        });
        const bool fits = *c.result != 'x';
        EXPECT_EQ(said, fits ? "none" : "Asn1DecodeException signature too long");
        EXPECT_EQ(fits ? hexOf(out) : "x", c.result);
    }
}

TEST_F(Protection, MessagesAreSignedOverHeaderAndBody) {
    for (std::size_t i = 0; i < std::size(signers); ++i) {
        SCOPED_TRACE(signers[i].container);
        ASN1T_PKIMessage message = makeMessage();
        Decoded<ASN1T_PKIMessage> read(ASN1CMPMessage_Sign(message, buffer, key(i), 2, {}));
        EXPECT_TRUE(read->m.protectionPresent);
        EXPECT_EQ(dotted(read->header.protectionAlg.algorithm), signers[i].signature);
        read->m.protectionPresent = false;
        const std::string part = file("part", asn1EncodeRecord(read.value));
        const CACMPT_BLOB signature(read->protection.data, read->protection.numocts());
        openssl("pkey -pubin -inform DER -in " + file("key", asn1EncodeRecord(keyOf(i))) +
                " -out " + part + ".pem");
        EXPECT_EQ(openssl(std::string("dgst ") + signers[i].digest + " -verify " + part +
                          ".pem -signature " + file("signature", signature) + " " + part),
                  "Verified OK\n");
    }
}

TEST_F(Protection, NothingIsSignedWithoutAKeyOrAName) {
    ASN1T_PKIMessage message = makeMessage();
    const auto sign = [&](unsigned long long provider, unsigned int keySpec) {
        return failure([&] { ASN1CMPMessage_Sign(message, buffer, provider, keySpec, {}); });
    };
    EXPECT_THAT(sign(0, AT_SIGNATURE), StartsWith("CryptException "));
    EXPECT_THAT(sign(12345, AT_SIGNATURE), StartsWith("CryptException "));
    EXPECT_THAT(sign(key(0), AT_KEYEXCHANGE), StartsWith("CryptException "));
    message.header.sender.t = 77;
    EXPECT_THAT(sign(key(0), AT_SIGNATURE), StartsWith("Asn1Exception "));
}

TEST_F(Protection, ExtraCertificatesFollowThoseInTheMessage) {
    auto ca = makeCa();
    auto client = makeClient("alice");
    const CACMPT_BLOB issued = issue(*ca, makeIr(*client)), root = ca->Certificate;
    ASN1T_PKIMessage message = makeMessage();
    const auto extras = [&](const std::list<CACMPT_BLOB>& given) {
        Decoded<ASN1T_PKIMessage> read(ASN1CMPMessage_Sign(message, buffer, key(0), 2, given));
        std::list<CACMPT_BLOB> found;
        for (const auto& c : read->extraCerts) found.push_back(asn1EncodeRecord(c));
        EXPECT_EQ(read->m.extraCertsPresent, !found.empty());
        return found;
    };
    EXPECT_EQ(extras({issued, root}), (std::list{issued, root}));
    EXPECT_EQ(extras({issued}), (std::list{issued, root, issued}));
    EXPECT_EQ(extras({}), std::list<CACMPT_BLOB>());
    EXPECT_EQ(extras({issued}), std::list{issued});  // those removed stay removed
    const CACMPT_BLOB cut(issued.data, issued.size - 1);
    EXPECT_THAT(failure([&] { extras({issued, cut}); }), StartsWith("Asn1Exception "));
}

TEST_F(Protection, ProofsCoverTheTemplateAlone) {
    const struct {
        const char* result;
        void (*change)(ASN1T_CertReqMsg&);
    } cases[] = {
        {"true", [](ASN1T_CertReqMsg& m) { m.certReq.certReqId = 5; }},
        {"true",
         [](ASN1T_CertReqMsg& m) {
             m.popo.u.signature->algorithmIdentifier.algorithm = id_kp_serverAuth;
         }},
        {"false",
         [](ASN1T_CertReqMsg& m) { m.certReq.certTemplate.subject.u.rdnSequence.clear(); }},
        {"false", [](ASN1T_CertReqMsg& m) { m.popo.u.signature->signature.numbits = 0; }},
        {"false", [](ASN1T_CertReqMsg& m) { m.popo.t = ASN1T_ProofOfPossession::T_raVerified; }},
        {"no proof-of-posession", [](ASN1T_CertReqMsg& m) { m.m.popoPresent = false; }},
        {"unsupported proof-of-posession", [](ASN1T_CertReqMsg& m) { m.popo.t = 3; }},
        {"proof-of-posession missing public key or subject DN",
         [](ASN1T_CertReqMsg& m) { m.certReq.certTemplate.m.subjectPresent = false; }},
        {"proof-of-posession missing public key or subject DN",
         [](ASN1T_CertReqMsg& m) { m.certReq.certTemplate.m.publicKeyPresent = false; }},
        {"proof-of-posession invalid public key algorithm",
         [](ASN1T_CertReqMsg& m) {
             m.certReq.certTemplate.publicKey.algorithm.algorithm = id_kp_serverAuth;
         }},
    };
    for (std::size_t i = 0; i < std::size(signers); ++i) {
        for (const auto& c : cases) {
            ASN1T_CertReqMsg message;
            ASN1T_CertTemplate& wanted = message.certReq.certTemplate;
            wanted.m.subjectPresent = wanted.m.publicKeyPresent = true;
            str2dn(L"CN=Signer", wanted.subject, buffer);
            wanted.publicKey = keyOf(i);
            MakeProofOfPosession(key(i), buffer, message, AT_SIGNATURE);
            const prov_handle provider(lSimpleCryptProv(wanted.publicKey.algorithm).handle);
            c.change(message);
            std::string result;
            const std::string said = failure([&] {
                result = VerifyProofOfPosession(provider.get(), buffer, message) ? "true" : "false";
            });
            EXPECT_EQ(said == "none" ? "Asn1DecodeException " + result : said,
                      std::string("Asn1DecodeException ") + c.result);
        }
    }
}

}  // namespace
