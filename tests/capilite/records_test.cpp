#include <gmock/gmock.h>

#include "capilite/ASN1Types.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/Runtime.h"
#include "platform/crypt/CryptApi.h"
#include "tests/PublicTool.h"
#include "tests/TempHome.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

namespace {

using namespace asn1data;
using namespace std::string_view_literals;
using testing::HasSubstr;

/// A fresh key in a container of the type.
prov_handle newKey(DWORD type) {
    HCRYPTPROV handle = 0;
    if (!CryptAcquireContextA(&handle, "key", nullptr, type, CRYPT_NEWKEYSET)) {
        throw std::runtime_error("no container");
    }
    prov_handle prov(handle);
    HCRYPTKEY key = 0;
    if (!CryptGenKey(prov, AT_SIGNATURE, 0, &key)) throw std::runtime_error("no key");
    CryptDestroyKey(key);
    return prov;
}

TEST(RecordHelpers, OfAProvidersKey) {
    struct {
        DWORD type;
        const char* algorithm;           // in the public tool's text
        const char* signatureAlgorithm;  // DER
    } const cases[] = {
        {PROV_RSA, "Modulus:", "300D06092A864886F70D01010B0500"},
        {PROV_ECDSA_PLAIN, "NIST CURVE: P-256", "300A06082A8648CE3D040302"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.algorithm);
        TempHome home;
        ASN1CtxtRef ctxt;
        prov_handle prov = newKey(c.type);
        auto* spki = ASN1T_SubjectPublicKeyInfo_set(prov, AT_SIGNATURE, ctxt.get());
        CACMPT_BLOB der = asn1EncodeRecord(*spki);
        EXPECT_THAT(runTool("openssl pkey -pubin -inform DER -noout -text", der.view()),
                    HasSubstr(c.algorithm));

        auto* algorithm = ASN1T_AlgorithmIdentifier_set(ctxt.get(), prov, AT_SIGNATURE);
        EXPECT_EQ(hexOf(asn1EncodeRecord(*algorithm)), c.signatureAlgorithm);

        const ASN1TDynBitStr& bits = spki->subjectPublicKey;
        CACMPT_BLOB id, key(bits.data, bits.numocts());
        id.assign(*ASN1T_KeyIdentifier_set(prov, ctxt.get(), bits));
        EXPECT_EQ(id.view(), runTool("openssl dgst -sha1 -binary", key.view()));

        prov_handle byKey;
        byKey.acquire_default(der);
        EXPECT_NE(byKey.get(), 0u);
        prov = prov_handle(prov.detach());
        EXPECT_NE(prov.get(), 0u);
    }
}

TEST(ProviderHandle, AcquiringAndRefusals) {
    TempHome home;
    prov_handle prov;
    prov.acquire_any();
    const unsigned long long first = prov;
    EXPECT_NE(first, 0u);
    prov.acquire_any();  // releases the first
    HCRYPTKEY key = 0;
    EXPECT_FALSE(CryptGetUserKey(first, AT_SIGNATURE, &key));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    prov.acquire_default(CALG_ECDSA);
    EXPECT_NE(prov.get(), 0u);
    EXPECT_EQ(failureOf([&] { prov.acquire_default(0x1234u); }).substr(0, 18),
              "CAtlException 8009");
    EXPECT_EQ(prov.get(), 0u);
    EXPECT_ASN1_FAILURE(prov.acquire_default(fromHex("3000")));
}

TEST(RecordHelpers, RefusalsOfTheInterface) {
    ASN1CtxtRef ctxt;
    constexpr unsigned long long STALE = 0x123456789;
    const std::string invalid = "CryptException 00000006";
    EXPECT_FAILURE(ASN1T_SubjectPublicKeyInfo_set(STALE, 2, ctxt.get()), invalid);
    EXPECT_FAILURE(ASN1T_AlgorithmIdentifier_set(ctxt.get(), STALE, 2), invalid);
    EXPECT_FAILURE(ASN1T_KeyIdentifier_set(STALE, ctxt.get(), {}), invalid);
}

TEST(RecordHelpers, Algorithms) {
    ASN1CtxtRef ctxt;
    const unsigned char null[] = {5, 0};
    CACMPT_BLOB parameters(null, 2), none;
    const std::pair<ASN1T_AlgorithmIdentifier*, const char*> cases[] = {
        {ASN1T_AlgorithmIdentifier_set(ctxt.get(), "1.2.3", null, 2), "300606022A030500"},
        {ASN1T_AlgorithmIdentifier_set(ctxt.get(), "1.2.3", null, 0), "300406022A03"},
        {ASN1T_AlgorithmIdentifier_set(ctxt.get(), "1.2.3", &parameters), "300606022A030500"},
        {ASN1T_AlgorithmIdentifier_set(ctxt.get(), "1.2.3", &none), "300406022A03"},
        {ASN1T_AlgorithmIdentifier_set(ctxt.get(), "1.2.3", nullptr), "300406022A03"},
    };
    for (const auto& [record, der] : cases) {
        EXPECT_EQ(hexOf(asn1EncodeRecord(*record)), der);
        CACMPT_AlgorithmIdentifier back;
        back.parameters.assign("old");
        ASN1T_AlgorithmIdentifier_get(back, *record);
        EXPECT_STREQ(back.algorithm, "1.2.3");
        // Copied only when the record has them.
        EXPECT_EQ(back.parameters.view(), record->m.parametersPresent ? "\x05\0"sv : "old"sv);
    }
    for (const char* bad : {"", "x", "1", "9.9", "1.2.3x"}) {
        EXPECT_FAILURE(ASN1T_AlgorithmIdentifier_set(ctxt.get(), bad, null, 2),
                       "Asn1DecodeException str2oid failed")
            << bad;
    }
    std::string longOid = "1.2";
    for (int i = 0; i < 30; ++i) longOid += ".4294967295";
    auto* tooLong = ASN1T_AlgorithmIdentifier_set(ctxt.get(), longOid.c_str(), nullptr);
    CACMPT_AlgorithmIdentifier target;
    EXPECT_EQ(failureOf([&] { ASN1T_AlgorithmIdentifier_get(target, *tooLong); }).substr(0, 20),
              "Asn1DecodeException ");
}

TEST(RecordHelpers, NullParameters) {
    ASN1BEREncodeBuffer encodeBuffer;
    CACMPT_ASN1BERDecodeBuffer decodeBuffer;
    auto* record = ASN1T_AlgorithmIdentifier_set(decodeBuffer.getCtxtPtr(), "1.2.3", nullptr);
    fillNullParams(encodeBuffer, decodeBuffer, *record);
    EXPECT_EQ(hexOf(asn1EncodeRecord(*record)), "300606022A030500");
}

TEST(RecordHelpers, IssuerAndSerialNumber) {
    CACMPT_PARSED_RDN issuer;
    issuer.assign(L"CN=a");
    for (const char* serial : {"0x00", "0x080", "0x01", "0x0102", "0x0ffffffffffffffffff"}) {
        ASN1CtxtRef ctxt;
        CACMPT_BLOB number;
        Serial2Blob(ctxt.get(), number, serial);
        ASN1T_IssuerAndSerialNumber* record = nullptr;
        fillIssuerAndSerialNumber(ctxt.get(), &record, issuer, number);
        EXPECT_STREQ(record->serialNumber, serial);
        EXPECT_TRUE(asn1EncodeRecord(record->issuer) == issuer);
    }
    ASN1CtxtRef ctxt;
    ASN1T_IssuerAndSerialNumber* record = nullptr;
    CACMPT_BLOB one("\1", 1), none;
    EXPECT_FAILURE(fillIssuerAndSerialNumber(ctxt.get(), &record, issuer, none),
                   "CryptException 80092002");
    EXPECT_ASN1_FAILURE(fillIssuerAndSerialNumber(ctxt.get(), &record, one, one));
    EXPECT_EQ(record, nullptr);
}

TEST(RecordHelpers, ExtensionsByIdentifier) {
    ASN1CtxtRef ctxt;
    ASN1T_Extensions list;
    for (const ASN1TObjId& id : {id_ce_keyUsage, id_ce_subjectAltName, id_ce_keyUsage}) {
        ASN1T_Extension* item = list.append(ctxt.get());
        item->extnID = id;
        item->critical = list.count == 1;
    }
    const ASN1T_Extensions& constant = list;
    const ASN1OBJID usage = id_ce_keyUsage, absent = id_ce_cRLNumber;
    EXPECT_EQ(ASN1T_Extensions_find_item(list, id_ce_keyUsage), &list.front());
    EXPECT_EQ(ASN1T_Extensions_find_item(constant, usage), &constant.front());
    EXPECT_EQ(ASN1T_Extensions_find_item(list, absent), nullptr);
    for (bool before : {false, true}) {
        bool critical = before;
        EXPECT_EQ(ASN1T_Extensions_find(list, absent, critical), nullptr);
        EXPECT_EQ(critical, before);
        EXPECT_EQ(ASN1T_Extensions_find(list, usage, critical), &list.front().extnValue);
        EXPECT_TRUE(critical);
        EXPECT_NE(ASN1T_Extensions_find(list, id_ce_subjectAltName, critical), nullptr);
        EXPECT_FALSE(critical);
    }
}

}  // namespace
