#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::HasSubstr;

constexpr const char* source = "pkixcmp/RI_DecodeAndVerify";

class ClientInstallTest : public EnrolmentTest {
protected:
    /// Flags of the key provider record of a certificate in a store.
    static DWORD keyFlags(const CACMPT_BLOB& certificate, const wchar_t* name, bool system) {
        void* store = nullptr;
        const CERT_CONTEXT* context =
            CertStore_FindExisting(certificate, store, name, system, true);
        EXPECT_NE(context, nullptr);
        DWORD length = 0;
        CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &length);
        std::vector<std::uint64_t> room(length / 8 + 1);
        EXPECT_TRUE(CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID,
                                                      room.data(), &length));
        const auto* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data());
        EXPECT_EQ(info->dwProvType, PROV_ECDSA_P256);
        EXPECT_STREQ(info->pwszContainerName, L"\\\\.\\VAULT\\alice");
        const DWORD flags = info->dwFlags;
        CertFreeCertificateContext(context);
        CertCloseStore(store, 0);
        return flags;
    }
    /// The certificate beside the key in a container.
    static CACMPT_BLOB inContainer(unsigned long long provider) {
        HCRYPTKEY key = 0;
        EXPECT_TRUE(CryptGetUserKey(provider, AT_SIGNATURE, &key));
        DWORD length = 0;
        CACMPT_BLOB certificate;
        if (CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0)) {
            certificate.resize(length);
            CryptGetKeyParam(key, KP_CERTIFICATE, certificate.data, &length, 0);
        }
        CryptDestroyKey(key);
        return certificate;
    }
};

TEST_F(ClientInstallTest, AnEnrolledClientIsFoundAgainByItsConfiguration) {
    auto ca = makeCa();
    for (const char* path : {"", "\\local\\me"}) {
        auto client = makeClient("alice");
        const CACMPT_BLOB issued = issue(*ca, makeIr(*client));
        client->CertRepMessage_Install(issued, path);
        EXPECT_EQ(client->Certificate, issued);
        EXPECT_EQ(inContainer(client->ProviderHandle), issued);
        EXPECT_TRUE(stored(L"Request").empty());
        EXPECT_EQ(keyFlags(issued, L"My", false), 0u);
        client.reset();
        if (!*path) {
            EXPECT_THAT(failure([&] { PKIXCMP_Client(wnd, "\\local\\me", nullptr, 75); }),
                        HasSubstr("Entry: '\\local\\me\\cert' not found"));
            HCRYPTPROV gone = 0;
            CryptAcquireContextA(&gone, "\\\\.\\VAULT\\alice", nullptr, 75, CRYPT_DELETEKEYSET);
            EXPECT_FAILURE(PKIXCMP_Client(wnd, issued, false, nullptr, 75),
                           "CryptException 80090016");
            EXPECT_FAILURE(PKIXCMP_Client(wnd, issued, true, nullptr, 75),
                           "CryptException 80092004");
            continue;
        }
        PKIXCMP_Client again(wnd, path, nullptr, 0);
        EXPECT_EQ(again.Certificate, issued);
        EXPECT_EQ(again.ConfigPath, path);
        EXPECT_EQ(again.KeySpec, 2u);
        EXPECT_EQ(again.ProviderType, PROV_ECDSA_P256);
        const auto request = makeRequest(REQUEST_TYPE_GET_CRL);
        EXPECT_GT(send(again, *request).size, 0u);  // signs
        EXPECT_FAILURE(again.init(wnd, issued, true), "CryptException 80092004");
        EXPECT_GT(send(again, *request).size, 0u);  // is what it was
        again.init(nullptr, PROV_RSA);
        EXPECT_TRUE(again.ProviderType == PROV_RSA && again.Certificate.empty());
        again.init(wnd, issued, false);
        EXPECT_GT(send(again, *request).size, 0u);
    }
    PKIXCMP_Client bare(wnd, "", nullptr, PROV_RSA);
    EXPECT_TRUE(bare.ProviderHandle && bare.KeySpec == 0 && bare.Certificate.empty());
    EXPECT_EQ(failure([] { PKIXCMP_Client("no such provider", 75); }, "pkixcmp/RI_EncodeAndSign"),
              "CryptException 80090019");
}

TEST_F(ClientInstallTest, AKeyUnderAPinOpensForWhoKnowsIt) {
    OldWndProv owner(std::string("DISK"), "s3cret"), stranger(std::string("DISK"), "guess");
    auto ca = makeCa();
    std::unique_ptr<PKIXCMP_Client> client(PKIXCMP_Client::GenerateKeyPair(
        owner, nullptr, nullptr, PROV_ECDSA_P256, "\\\\.\\DISK\\alice", 2, false));
    const CACMPT_BLOB ir = makeIr(*client);
    const CACMPT_BLOB key = client->Certificate;
    client.reset();
    EXPECT_FAILURE(PKIXCMP_Client::OpenRequest(stranger, key), "CryptException 8010006b");
    client.reset(PKIXCMP_Client::OpenRequest(owner, key));
    client->CertRepMessage_Install(issue(*ca, ir), "\\local\\me");
    client.reset();
    EXPECT_FAILURE(PKIXCMP_Client(stranger, "\\local\\me", nullptr, 75), "CryptException 8010006b");
    PKIXCMP_Client again(owner, "\\local\\me", nullptr, 75);
    EXPECT_GT(send(again, *makeRequest(REQUEST_TYPE_GET_CRL)).size, 0u);
}

TEST_F(ClientInstallTest, AFailedInstallationLeavesTheTemplate) {
    auto ca = makeCa();
    auto client = makeClient("alice");
    const CACMPT_BLOB issued = issue(*ca, makeIr(*client));
    const CACMPT_BLOB pending = client->Certificate;
    const CACMPT_BLOB bad[] = {CACMPT_BLOB(),
                               CACMPT_BLOB("\x30", 1),
                               CACMPT_BLOB("\x30\x80", 2),
                               CACMPT_BLOB("\x30\x84\xFF\xFF\xFF\xFF", 6),
                               CACMPT_BLOB("\x30\x83\x01", 3),
                               CACMPT_BLOB(issued.data, issued.size - 1),
                               CACMPT_BLOB("\x30\x03\x02\x01\x01", 5)};
    for (const CACMPT_BLOB& certificate : bad) {
        EXPECT_THAT(failure([&] { client->CertRepMessage_Install(certificate, caPath); }, source),
                    HasSubstr("CryptException"));
    }
    EXPECT_EQ(client->Certificate, pending);
    EXPECT_EQ(stored(L"Request").size(), 1u);
    EXPECT_EQ(stored(L"My").size(), 1u);  // the CA's own
    client->CertRepMessage_Install(issued, nullptr);
    EXPECT_FAILURE(client->CertRepMessage_Install(issued, nullptr), "CryptException 80092004");

    // A key that the container does not have.
    EXPECT_FAILURE(PKIXCMP_Base::InstallCertificateToContainer(issued, client->ProviderHandle, 1),
                   "CryptException 8009000d");
}

TEST_F(ClientInstallTest, TheSideOfTheStoreGoesIntoTheKeyRecord) {
    auto client = makeClient("alice");
    makeIr(*client);
    for (bool system : {false, true}) {
        const DWORD side =
            system ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
        const DWORD flags = system ? CRYPT_MACHINE_KEYSET : 0;
        for (int times : {1, 2}) {  // an equal certificate is replaced
            PKIXCMP_Base::InstallCertificateToStore(client->Certificate, client->ProviderHandle, 2,
                                                    L"Own", side);
            EXPECT_EQ(keyFlags(client->Certificate, L"Own", system), flags) << times;
            EXPECT_EQ(stored(L"Own", system).size(), 1u);
        }
        PKIXCMP_Base::CertStore_Del(L"Own", client->Certificate, system);
    }
    EXPECT_THROW(PKIXCMP_Base::InstallCertificateToStore(
                     client->Certificate, client->ProviderHandle, 2, L"Absent",
                     CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING),
                 StoreException);
    EXPECT_FAILURE(PKIXCMP_Base::InstallCertificateToStore(client->Certificate, 12345, 2, L"Own",
                                                           CERT_SYSTEM_STORE_CURRENT_USER),
                   "CryptException 00000006");
}

TEST_F(ClientInstallTest, AnAnnouncedCertificateIsTakenOnItsDecodingAlone) {
    auto client = makeClient("alice");
    const CACMPT_BLOB ir = makeIr(*client);
    Decoded<ASN1T_Certificate> own(client->Certificate);
    const CACMPT_BLOB announcement = edited(ir, [&](ASN1T_PKIMessage& m, ASN1CTXT*) {
        m.body.t = ASN1T_PKIBody::T_cann;
        m.body.u.cann = &own.value;
        m.m.protectionPresent = true;
        m.protection = ASN1TDynBitStr(16, reinterpret_cast<const std::uint8_t*>("no"));
    });
    CACMPT_BLOB certificate;
    EXPECT_EQ(PKIXCMP_Client::CertAnnContent_DecodeAndVerify(announcement, certificate), 0);
    EXPECT_EQ(certificate, client->Certificate);
    EXPECT_EQ(
        failure([&] { PKIXCMP_Client::CertAnnContent_DecodeAndVerify(ir, certificate); }, source),
        "Asn1DecodeException ASN1C_PKIMessage decode failed");
    const CACMPT_BLOB cut(announcement.data, announcement.size / 2);
    EXPECT_ASN1_FAILURE(PKIXCMP_Client::CertAnnContent_DecodeAndVerify(cut, certificate));
}

}  // namespace
