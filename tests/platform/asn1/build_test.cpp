#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

#include "DerText.h"
#include "platform/asn1/asn1data.h"

using namespace asn1data;
using namespace std::string_literals;

// Values built by hand, judged by libcrypto, and what libcrypto builds, read by the decoder.

namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T* p) const {
        release(p);
    }
};
using X509Ptr = std::unique_ptr<X509, Release<X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;

class Building : public ::testing::Test {
protected:
    ASN1CtxtRef context;
    ASN1CTXT* ctxt = context.get();

    void addName(ASN1T_Name& name, const ASN1TObjId& type, int alternative, const char* text) {
        auto* attribute = name.u.rdnSequence.append(ctxt)->append(ctxt);
        auto* value = asn1New<ASN1T_DirectoryString>(ctxt);
        value->t = alternative;
        value->u.text = ASN1TString(text);
        attribute->type = type;
        attribute->value.set(value);
    }
    template <class T>
    T* addExtension(ASN1T_Extensions& list, const ASN1TObjId& id, bool critical) {
        auto* extension = list.append(ctxt);
        auto* value = asn1New<T>(ctxt);
        extension->extnID = id;
        extension->critical = critical;
        extension->extnValue.set(value);
        return value;
    }
    ASN1T_Certificate makeCertificate();
};

ASN1T_Certificate Building::makeCertificate() {
    static const std::uint8_t point[] = {4, 1, 2, 3}, usage[] = {0x06}, id[] = {9, 8, 7};
    ASN1T_Certificate certificate;
    auto& tbs = certificate.tbsCertificate;
    tbs.version = ASN1T_TBSCertificate::v3;
    tbs.serialNumber = "0x08001";
    tbs.signature.algorithm = asn1::oid<"1.2.840.10045.4.3.2">;
    addName(tbs.issuer, id_at_countryName, ASN1T_DirectoryString::T_printableString, "RU");
    addName(tbs.issuer, id_at_commonName, ASN1T_DirectoryString::T_utf8String, "\xD0\x96 Root");
    tbs.validity.notBefore.t = ASN1T_Time::T_utcTime;
    tbs.validity.notBefore.u.text = ASN1TString("250101000000Z");
    tbs.validity.notAfter.t = ASN1T_Time::T_generalTime;
    tbs.validity.notAfter.u.text = ASN1TString("20600101000000Z");
    tbs.subject = tbs.issuer;
    tbs.subjectPublicKeyInfo.algorithm.algorithm = id_ecPublicKey;
    tbs.subjectPublicKeyInfo.subjectPublicKey = ASN1TDynBitStr(32, point);
    tbs.m.extensionsPresent = true;
    *addExtension<ASN1T_KeyUsage>(tbs.extensions, id_ce_keyUsage, true) = {};
    static_cast<ASN1TDynBitStr&>(*tbs.extensions.front().extnValue.as<ASN1T_KeyUsage>()) =
        ASN1TDynBitStr(8, usage);
    auto* constraints =
        addExtension<ASN1T_BasicConstraintsSyntax>(tbs.extensions, id_ce_basicConstraints, true);
    constraints->cA = true;
    constraints->m.pathLenConstraintPresent = true;
    constraints->pathLenConstraint = 300;
    auto* keyId =
        addExtension<ASN1T_SubjectKeyIdentifier>(tbs.extensions, id_ce_subjectKeyIdentifier, false);
    static_cast<ASN1TDynOctStr&>(*keyId) = ASN1TDynOctStr(sizeof id, id);
    auto* names = addExtension<ASN1T_SubjectAltName>(tbs.extensions, id_ce_subjectAltName, false);
    auto* host = names->append(ctxt);
    host->t = ASN1T_GeneralName::T_dNSName;
    host->u.dNSName = ASN1TString("example.org");
    certificate.signatureAlgorithm = tbs.signature;
    certificate.signature = ASN1TDynBitStr(32, point);
    return certificate;
}

TEST_F(Building, LibcryptoReadsABuiltCertificate) {
    ASN1T_Certificate certificate = makeCertificate();
    std::string der = encodeOrError(certificate);
    const unsigned char* p = octetsOf(der);
    X509Ptr x509(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
    ASSERT_TRUE(x509) << der;
    EXPECT_EQ(X509_get_version(x509.get()), 2);
    char line[100];
    EXPECT_STREQ(X509_NAME_oneline(X509_get_subject_name(x509.get()), line, sizeof line),
                 "/C=RU/CN=\\xD0\\x96 Root");
    EXPECT_EQ(X509_get_pathlen(x509.get()), 300);
    EXPECT_EQ(X509_get_key_usage(x509.get()),
              static_cast<std::uint32_t>(KU_KEY_CERT_SIGN | KU_CRL_SIGN));
    EXPECT_EQ(X509_check_host(x509.get(), "example.org", 0, 0, nullptr), 1);
    const ASN1_OCTET_STRING* keyId = X509_get0_subject_key_id(x509.get());
    ASSERT_NE(keyId, nullptr);
    EXPECT_EQ(ASN1_STRING_length(keyId), 3);
    EXPECT_EQ(X509_cmp_time(X509_get0_notAfter(x509.get()), nullptr), 1);
    BIGNUM* serial = ASN1_INTEGER_to_BN(X509_get0_serialNumber(x509.get()), nullptr);
    EXPECT_TRUE(BN_is_word(serial, 0x8001));
    BN_free(serial);
}

TEST_F(Building, ExtensionsAreEncodedIntoTheirBytes) {
    ASN1T_Certificate certificate = makeCertificate();
    ASN1T_Extension& usage = certificate.tbsCertificate.extensions.front();
    EXPECT_EQ(asn1ETC_Extension(ctxt, &usage), 4);
    EXPECT_EQ(hexOf({reinterpret_cast<const char*>(usage.extnValue.data), 4}), "03020006");
    std::string xer;
    EXPECT_EQ(asn1XETC_Extension(ctxt, &usage, xer), ASN_OK);
    EXPECT_EQ(xer, "<KeyUsage><keyCertSign/><cRLSign/></KeyUsage>");
    // Stored bytes win over the value from now on.
    usage.extnValue.as<ASN1T_KeyUsage>()->numbits = 6;
    EXPECT_TRUE(encodeOrError(usage).ends_with("\x03\x02\x00\x06"s));
    usage.extnValue.set(usage.extnValue.as<ASN1T_KeyUsage>());
    EXPECT_TRUE(encodeOrError(usage).ends_with("\x03\x02\x02\x06"s));
    ASN1T_Extension none;
    none.extnID = id_ce_keyUsage;
    EXPECT_EQ(asn1ETC_Extension(ctxt, &none), ASN_E_MISSING);
    EXPECT_EQ(asn1XETC_Extension(ctxt, &none, xer), ASN_E_MISSING);
}

TEST_F(Building, SetsAreSortedAndDefaultsLeftOut) {
    ASN1T_RelativeDistinguishedName rdn;
    for (const char* text : {"b", "abc", "a", "c", "ab"}) {
        auto* attribute = rdn.append(ctxt);
        attribute->type = asn1::oid<"1.2.3">;
        attribute->value = ASN1OpenType(
            static_cast<std::uint32_t>(strlen(text) + 2),
            rtCopyBytes(ctxt, ("\x13" + DerText::withLength(text)).data(), strlen(text) + 2));
    }
    EXPECT_EQ(hexOf(encodeOrError(rdn)),
              hexOf(DerText::bytes("31{30{06{2A03}13{'a'}}30{06{2A03}13{'b'}}30{06{2A03}13{'c'}}"
                                   "30{06{2A03}13{'ab'}}30{06{2A03}13{'abc'}}}")));
    ASN1T_GeneralSubtree subtree;
    subtree.base.t = ASN1T_GeneralName::T_dNSName;
    EXPECT_EQ(hexOf(encodeOrError(subtree)), "30028200");
    subtree.m.minimumPresent = true;  // written all the same
    EXPECT_EQ(hexOf(encodeOrError(subtree)), "30058200800100");
}

TEST_F(Building, NumbersTakeTheFewestOctets) {
    const std::pair<std::int32_t, const char*> cases[] = {{0, "020100"},
                                                          {127, "02017F"},
                                                          {128, "02020080"},
                                                          {-1, "0201FF"},
                                                          {-128, "020180"},
                                                          {-129, "0202FF7F"},
                                                          {65535, "020300FFFF"},
                                                          {INT32_MAX, "02047FFFFFFF"},
                                                          {INT32_MIN, "020480000000"}};
    for (auto [value, der] : cases) {
        ASN1T_InhibitAnyPolicy number{value};
        EXPECT_EQ(hexOf(encodeOrError(number)), der);
    }
    ASN1T_PKIAudit audit;
    audit.type = 0xFFFFFFFF;
    EXPECT_TRUE(hexOf(encodeOrError(audit)).starts_with("3010020500FFFFFFFF"));
}

TEST_F(Building, WhatHasNoEncodingIsRefusedWithItsPath) {
    ASN1T_Certificate certificate = makeCertificate();
    auto& tbs = certificate.tbsCertificate;
    auto error = [&] { return encodeOrError(certificate); };
    auto expect = [&](int code, const char* path) {
        std::string text = error();
        EXPECT_TRUE(text.starts_with("ASN.1 error " + std::to_string(code))) << hexOf(text);
        EXPECT_TRUE(text.ends_with(std::string(", in tbsCertificate.") + path)) << text;
        certificate = makeCertificate();
    };
    tbs.serialNumber = nullptr;
    expect(ASN_E_INVVAL, "serialNumber");
    tbs.serialNumber = "17";
    expect(ASN_E_INVVAL, "serialNumber");
    tbs.validity.notAfter.t = 0;
    expect(ASN_E_CHOICE, "validity.notAfter");
    tbs.validity.notAfter.t = 3;
    expect(ASN_E_CHOICE, "validity.notAfter");
    tbs.signature.m.parametersPresent = true;
    expect(ASN_E_MISSING, "signature.parameters");
    tbs.signature.m.parametersPresent = true;
    tbs.signature.parameters = ASN1OpenType(3, octetsOf("\x05\x00\x00"));
    expect(ASN_E_INVVAL, "signature.parameters");
    tbs.subject.u.rdnSequence.front().front().type = ASN1TObjId(1, octetsOf("\x80"));
    expect(ASN_E_INVVAL, "subject.rdnSequence[0][0].type");
    tbs.extensions.append(ctxt)->extnID = {};
    expect(ASN_E_INVVAL, "extensions[4].extnID");
    addExtension<ASN1T_CRLDistPointsSyntax>(tbs.extensions, id_ce_freshestCRL, false)
        ->append(ctxt)
        ->m.distributionPointPresent = true;
    expect(ASN_E_CHOICE, "extensions[4].extnValue[0].distributionPoint");
    auto* names = addExtension<ASN1T_SubjectAltName>(tbs.extensions, id_ce_issuerAltName, false);
    names->append(ctxt)->t = ASN1T_GeneralName::T_directoryName;
    expect(ASN_E_MISSING, "extensions[4].extnValue[0].directoryName");
    names = addExtension<ASN1T_SubjectAltName>(tbs.extensions, id_ce_issuerAltName, false);
    names->append(ctxt)->t = ASN1T_GeneralName::T_x400Address;
    names->front().u.x400Address = ASN1TDynOctStr(2, octetsOf("\x30\x00"));  // another tag
    expect(ASN_E_INVVAL, "extensions[4].extnValue[0].x400Address");
    EXPECT_TRUE(error().starts_with("0"));
}

TEST_F(Building, ACopyHoldsNoAbsentField) {
    ASN1T_Certificate certificate = makeCertificate();
    certificate.tbsCertificate.issuerUniqueID = ASN1TDynBitStr(8, octetsOf("x"));
    ASN1T_Certificate copy;
    ASSERT_EQ(asn1Copy(ctxt, certificate, copy), ASN_OK);
    EXPECT_EQ(copy.tbsCertificate.issuerUniqueID.data, nullptr);
    EXPECT_NE(copy.tbsCertificate.serialNumber, certificate.tbsCertificate.serialNumber);
    ASSERT_EQ(asn1Copy(ctxt, copy, copy), ASN_OK);
    EXPECT_EQ(encodeOrError(copy), encodeOrError(certificate));
}

TEST_F(Building, ControlsWorkOnTheirOwnKindOfBuffer) {
    ASN1T_BasicConstraintsSyntax value;
    ASN1BEREncodeBuffer encoder(context);
    std::string der = DerText::bytes("30{01{FF}}");
    ASN1BERDecodeBuffer decoder(octetsOf(der), der.size());
    ASN1C_BasicConstraintsSyntax in(decoder, value), out(encoder, value);
    EXPECT_EQ(in.Decode(), ASN_OK);
    EXPECT_TRUE(out->cA);
    EXPECT_EQ(out.Encode(), 5);
    EXPECT_EQ(memcmp(encoder.getMsgCopy(), der.data(), 5), 0);
    EXPECT_LT(in.Encode(), 0);
    EXPECT_LT(out.Decode(), 0);
    EXPECT_EQ(encoder.getMsgLen(), 5U);
    value.m.pathLenConstraintPresent = true;
    EXPECT_EQ(in.EncodeTo(encoder), 8);
}

// ---- What libcrypto builds ----------------------------------------------------------------------

const std::pair<int, const char*> libcryptoExtensions[] = {
    {NID_key_usage, "critical,keyCertSign,decipherOnly"},
    {NID_basic_constraints, "CA:TRUE,pathlen:0"},
    {NID_name_constraints, "permitted;DNS:example.org,excluded;IP:10.0.0.0/255.0.0.0"},
    {NID_policy_constraints, "requireExplicitPolicy:3"},
    {NID_inhibit_any_policy, "2"},
    {NID_subject_alt_name, "dirName:dn,RID:1.2.3.4,otherName:1.2.3;UTF8:x,IP:::1"},
    {NID_crl_distribution_points, "dp"},
    {NID_certificate_policies, "1.2.3.4,@pol"},
    {NID_info_access, "caIssuers;URI:http://x"},
    {NID_ext_key_usage, "clientAuth,1.2.3"}};
const char libcryptoSections[] =
    "[dn]\nO=Org\n[dp]\nrelativename=dn\nreasons=keyCompromise,CACompromise\n"
    "CRLissuer=dirName:dn\n[pol]\npolicyIdentifier=1.2.5\nCPS.1=http://cps\n"
    "userNotice.1=@note\n[note]\nexplicitText=UTF8:Text\norganization=Org\nnoticeNumbers=1,2\n";

void addLibcryptoExtensions(X509* x509) {
    CONF* conf = NCONF_new(nullptr);
    BIO* text = BIO_new_mem_buf(libcryptoSections, -1);
    long line = 0;
    EXPECT_EQ(NCONF_load_bio(conf, text, &line), 1);
    BIO_free(text);
    for (auto [nid, value] : libcryptoExtensions) {
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, x509, x509, nullptr, nullptr, 0);
        X509V3_set_nconf(&ctx, conf);
        X509_EXTENSION* extension = X509V3_EXT_nconf_nid(conf, &ctx, nid, value);
        EXPECT_NE(extension, nullptr) << value;
        X509_add_ext(x509, extension, -1);
        X509_EXTENSION_free(extension);
    }
    NCONF_free(conf);
}

class Reading : public ::testing::Test {
protected:
    void SetUp() override {
        KeyPtr key(EVP_EC_gen("P-256"));
        X509Ptr x509(X509_new());
        X509_set_version(x509.get(), 2);
        ASN1_INTEGER_set_int64(X509_get_serialNumber(x509.get()), -128);
        ASN1_TIME_set_string_X509(X509_getm_notBefore(x509.get()), "491231235959Z");
        ASN1_TIME_set_string_X509(X509_getm_notAfter(x509.get()), "20500101000000Z");
        X509_NAME_add_entry_by_txt(X509_get_subject_name(x509.get()), "CN", MBSTRING_UTF8,
                                   octetsOf("\xD0\x96"), -1, -1, 0);
        X509_set_pubkey(x509.get(), key.get());
        addLibcryptoExtensions(x509.get());
        ASSERT_GT(X509_sign(x509.get(), key.get(), EVP_sha256()), 0);
        der.resize(static_cast<std::size_t>(i2d_X509(x509.get(), nullptr)));
        auto* p = reinterpret_cast<unsigned char*>(der.data());
        i2d_X509(x509.get(), &p);
        buffer.setBuffer(octetsOf(der), der.size());
        ASSERT_EQ(buffer.decode(Schema<ASN1T_Certificate>::type, &certificate), ASN_OK)
            << rtErrGetText(buffer.getCtxtPtr());
    }
    template <class T>
    T& extension(const ASN1TObjId& id) {
        for (const auto& e : certificate.tbsCertificate.extensions) {
            if (e.extnID == id && e.extnValue.as<T>()) return *e.extnValue.as<T>();
        }
        throw std::runtime_error("no extension " + rtOidToString(id));
    }

    std::string der;
    ASN1BERDecodeBuffer buffer;
    ASN1T_Certificate certificate;
};

TEST_F(Reading, FieldsHoldWhatLibcryptoWrote) {
    EXPECT_EQ(encodeOrError(certificate), der);
    const auto& tbs = certificate.tbsCertificate;
    EXPECT_STREQ(tbs.serialNumber, "0x80");
    EXPECT_EQ(tbs.validity.notBefore.t, ASN1T_Time::T_utcTime);
    EXPECT_EQ(tbs.validity.notAfter.t, ASN1T_Time::T_generalTime);
    const auto& subject = tbs.subject.u.rdnSequence.front().front();
    EXPECT_EQ(subject.type, id_at_commonName);
    EXPECT_EQ(subject.value.as<ASN1T_DirectoryString>()->u.text.view(), "\xD0\x96");
    EXPECT_EQ(tbs.extensions.count, std::size(libcryptoExtensions));
}

TEST_F(Reading, ExtensionsHoldWhatLibcryptoWrote) {
    auto& usage = extension<ASN1T_KeyUsage>(id_ce_keyUsage);
    EXPECT_TRUE(usage.test(5) && usage.test(8) && !usage.test(0) && !usage.test(9));
    auto& constraints = extension<ASN1T_BasicConstraintsSyntax>(id_ce_basicConstraints);
    EXPECT_TRUE(constraints.cA && constraints.m.pathLenConstraintPresent);
    EXPECT_EQ(constraints.pathLenConstraint, 0);
    auto& policy = extension<ASN1T_PolicyConstraintsSyntax>(id_ce_policyConstraints);
    EXPECT_TRUE(policy.m.requireExplicitPolicyPresent && !policy.m.inhibitPolicyMappingPresent);
    EXPECT_EQ(policy.requireExplicitPolicy, 3);
    EXPECT_EQ(extension<ASN1T_InhibitAnyPolicy>(id_ce_inhibitAnyPolicy).value, 2);
    auto& trees = extension<ASN1T_NameConstraintsSyntax>(id_ce_nameConstraints);
    EXPECT_EQ(trees.permittedSubtrees.front().base.u.dNSName.view(), "example.org");
    EXPECT_EQ(trees.excludedSubtrees.front().base.u.iPAddress.numocts, 8U);
    EXPECT_EQ(extension<ASN1T_ExtKeyUsageSyntax>(id_ce_extKeyUsage).front(), id_kp_clientAuth);
}

TEST_F(Reading, NamesPointsAndPoliciesHoldWhatLibcryptoWrote) {
    auto& names = extension<ASN1T_SubjectAltName>(id_ce_subjectAltName);
    ASSERT_EQ(names.count, 4U);
    auto name = names.begin();
    EXPECT_EQ(name->t, ASN1T_GeneralName::T_directoryName);
    EXPECT_EQ((++name)->t, ASN1T_GeneralName::T_registeredID);
    EXPECT_EQ((++name)->u.otherName->type_id, asn1::oid<"1.2.3">);
    EXPECT_EQ((++name)->u.iPAddress.numocts, 16U);
    auto& point = extension<ASN1T_CRLDistPointsSyntax>(id_ce_cRLDistributionPoints).front();
    EXPECT_EQ(point.distributionPoint.t, ASN1T_DistributionPointName::T_nameRelativeToCRLIssuer);
    EXPECT_TRUE(point.m.reasonsPresent && point.reasons.test(2) && point.m.cRLIssuerPresent);
    auto& access = extension<ASN1T_AuthorityInfoAccessSyntax>(id_pe_authorityInfoAccess).front();
    EXPECT_EQ(access.accessMethod, id_ad_caIssuers);
    EXPECT_EQ(access.accessLocation.u.uniformResourceIdentifier.view(), "http://x");
    auto& policies = extension<ASN1T_CertificatePoliciesSyntax>(id_ce_certificatePolicies);
    auto policy = ++policies.begin();
    auto qualifier = policy->policyQualifiers.begin();
    EXPECT_EQ(qualifier->qualifier.as<ASN1T_CPSuri>()->view(), "http://cps");
    auto* notice = (++qualifier)->qualifier.as<ASN1T_UserNotice>();
    EXPECT_EQ(notice->explicitText.t, 4);
    EXPECT_EQ(notice->noticeRef.noticeNumbers.count, 2U);
}

}  // namespace
