#include <cstring>
#include <string>
#include <vector>

#include "capilite/Contexts.h"
#include "capilite/CryptGuards.h"
#include "config/Ini.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/HandleGuards.h"
#include "pkixcmp/KeyContainers.h"
#include "pkixcmp/MessageBuilding.h"
#include "platform/crypt/CryptApi.h"
#include "platform/support/Text.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/RI_DecodeAndVerify"

// What becomes of a certificate that has arrived.

using namespace asn1data;
using namespace pkixcmp_detail;

namespace {

[[noreturn]] void throwLastError() { PKIXCMP_THROW(CryptException, GetLastError()); }

/// Whether the bytes begin with a definite DER header whose content they hold, since the length of
/// a certificate given to a key is read from the certificate itself.
bool holdsItsLength(const CACMPT_BLOB& der) {
    if (der.size < 2) return false;
    const std::uint32_t octets = der.data[1] < 0x80 ? 0 : der.data[1] & 0x7F;
    if (der.data[1] == 0x80 || octets > 4 || der.size < 2 + octets) return false;
    std::uint64_t length = octets == 0 ? der.data[1] : 0;
    for (std::uint32_t i = 0; i < octets; ++i) length = length << 8 | der.data[2 + i];
    return length <= der.size - 2 - octets;
}

/// Zero-terminated wide text in a buffer of its own.
std::vector<wchar_t> wide(const std::string& text) {
    const int length = MultiByteToWideChar(0, 0, text.c_str(), -1, nullptr, 0);
    std::vector<wchar_t> buffer(static_cast<std::size_t>(length) + 1);
    if (length == 0 || !MultiByteToWideChar(0, 0, text.c_str(), -1, buffer.data(), length)) {
        throwLastError();
    }
    return buffer;
}

/// Ties a certificate to the container of its key. The bit 0x20 of the flags says that the
/// container is the machine's, as the store is.
void setKeyProvider(PCCERT_CONTEXT context, unsigned long long provider, unsigned int keySpec,
                    unsigned int storeFlags) {
    std::vector<wchar_t> providerName = wide(get_provider(provider));
    std::vector<wchar_t> container = wide(get_unique(provider));
    CRYPT_KEY_PROV_INFO info{};
    DWORD length = sizeof info.dwProvType;
    if (!CryptGetProvParam(provider, PP_PROVTYPE, reinterpret_cast<BYTE*>(&info.dwProvType),
                           &length, 0)) {
        throwLastError();
    }
    info.pwszContainerName = container.data();
    info.pwszProvName = providerName.data();
    info.dwFlags = storeFlags >> 12 & CRYPT_MACHINE_KEYSET;
    info.dwKeySpec = keySpec;
    if (!CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info)) {
        throwLastError();
    }
}

}  // namespace

void PKIXCMP_Client::CertRepMessage_Install(const CACMPT_BLOB& certificate,
                                            const char* configPath) {
    InstallCertificateToContainer(certificate, ProviderHandle, KeySpec);
    InstallCertificateToStore(certificate, ProviderHandle, KeySpec, L"My",
                              CERT_SYSTEM_STORE_CURRENT_USER);
    if (configPath != nullptr && *configPath != 0) Ini(configPath).insert("cert", certificate);
    // `Certificate` is the template until now, and what it is found by.
    CertStore_Del(L"Request", Certificate, false);
    Certificate = certificate;
}

void PKIXCMP_Base::InstallCertificateToContainer(const CACMPT_BLOB& certificate,
                                                 unsigned long long provider,
                                                 unsigned int keySpec) {
    KeyHandle key;
    if (!CryptGetUserKey(provider, keySpec, key.out())) throwLastError();
    if (!holdsItsLength(certificate)) {
        SetLastError(CRYPT_E_BAD_ENCODE);
        throwLastError();
    }
    if (!CryptSetKeyParam(key, KP_CERTIFICATE, certificate.data, 0)) throwLastError();
}

void PKIXCMP_Base::InstallCertificateToStore(const CACMPT_BLOB& certificate,
                                             unsigned long long provider, unsigned int keySpec,
                                             const wchar_t* storeName, unsigned int flags) {
    CertContextPtr context(
        CertCreateCertificateContext(CERT_ENCODING, certificate.data, certificate.size));
    if (!context) throwLastError();
    setKeyProvider(context.get(), provider, keySpec, flags);
    Store store(CertOpenStore(reinterpret_cast<const char*>(CERT_STORE_PROV_SYSTEM), 0, 0, flags,
                              storeName));
    if (!store.get()) PKIXCMP_THROW(StoreException, GetLastError(), storeName);
    if (!CertAddCertificateContextToStore(store.get(), context.get(),
                                          CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
        throwLastError();
    }
}

int PKIXCMP_Client::CertAnnContent_DecodeAndVerify(const CACMPT_BLOB& message,
                                                   CACMPT_BLOB& certificate) {
    ASN1BEREncodeBuffer buffer;
    CACMPT_ASN1BERDecodeBuffer decodeBuffer(buffer.getContext());
    ASN1T_PKIMessage announcement;
    if (!readDer(decodeBuffer, message, announcement)) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    if (announcement.body.t != ASN1T_PKIBody::T_cann) {
        PKIXCMP_THROW(Asn1DecodeException, "ASN1C_PKIMessage decode failed");
    }
    if (!writeDer(buffer, *announcement.body.u.cann, certificate)) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    return 0;
}
