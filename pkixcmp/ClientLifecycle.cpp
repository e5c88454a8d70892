#include "capilite/CAException.h"
#include "capilite/Contexts.h"
#include "capilite/CryptGuards.h"
#include "capilite/Handles.h"
#include "capilite/StoreFind.h"
#include "config/Ini.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/HandleGuards.h"
#include "pkixcmp/KeyContainers.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/RI_EncodeAndSign"

const CertificateStore PKIXCMP_Client::ADD_STORE[2] = {CertificateStore(L"CA", true),
                                                       CertificateStore(L"Trust", true)};

const CertificateStore* PKIXCMP_Client::Get_ADD_STORE() const { return ADD_STORE; }

int PKIXCMP_Client::Get_ADD_STORE_LEN() const { return std::size(ADD_STORE); }

PKIXCMP_Client::PKIXCMP_Client(const char* providerName, unsigned int providerType) {
    init(providerName, providerType);
}

PKIXCMP_Client::PKIXCMP_Client(WndProv& wnd, const char* configPath, const char* providerName,
                               unsigned int providerType)
    : ConfigPath(configPath ? configPath : "") {
    if (ConfigPath.empty()) {
        init(providerName, providerType);
    } else {
        init(wnd, Ini(ConfigPath).find_binary("cert"), false);
    }
}

PKIXCMP_Client::PKIXCMP_Client(WndProv& wnd, const CACMPT_BLOB& certificate, bool isRequest,
                               const char* providerName, unsigned int providerType) {
    if (certificate.empty()) {
        init(providerName, providerType);
    } else {
        init(wnd, certificate, isRequest);
    }
}

PKIXCMP_Client::~PKIXCMP_Client() { takeProvider(0); }

void PKIXCMP_Client::takeProvider(unsigned long long provider) {
    if (ProviderHandle) CryptReleaseContext(ProviderHandle, 0);
    ProviderHandle = provider;
}

void PKIXCMP_Client::init(const char* providerName, unsigned int providerType) {
    NewKeyClient.reset();
    KeySpec = 0;
    ProviderType = providerType;
    setProviderName(providerName);
    HCRYPTPROV provider = 0;
    if (!CryptAcquireContextA(&provider, nullptr, ProviderName, providerType,
                              CRYPT_VERIFYCONTEXT)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    takeProvider(provider);
    Certificate.size = 0;
}

void PKIXCMP_Client::init(WndProv& wnd, const CACMPT_BLOB& certificate, bool isRequest) {
    NewKeyClient.reset();
    pkixcmp_detail::Store store;
    CertContextPtr context(CertStore_FindExisting(certificate, store.out(),
                                                  isRequest ? L"Request" : L"My", false, true));
    if (!context) PKIXCMP_THROW(CryptException, GetLastError());
    CryptSetPinCallbackWndProv pins(&wnd);
    DWORD keySpec = 0;
    const HCRYPTPROV handle = openPrivateKey(context.get(), keySpec);
    if (handle == 0) PKIXCMP_THROW(CryptException, GetLastError());
    prov_handle provider(handle);
    DWORD type = 0;
    DWORD length = sizeof type;
    if (!CryptGetProvParam(handle, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &length, 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    if (type == PROV_ECDSA_P256 &&
        get_pin_load(wnd, handle, get_container(handle).c_str(), 0, 0) == 0) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    KeySpec = keySpec;
    ProviderType = type;
    takeProvider(provider.detach());
    Certificate = certificate;
}

namespace {

/// The predicate for a key that is given by a certificate of it, or else by its bits.
CertFindByPublicKey findKey(const CACMPT_BLOB& publicKey) {
    try {
        return CertFindByPublicKey(publicKey);
    } catch (const Asn1Exception&) {
        if (publicKey.empty()) throw;  // as bits these would be those of every key
        CACMPT_PublicKeyInfo info;
        info.key = publicKey;
        return CertFindByPublicKey(info);
    }
}

}  // namespace

// All templates of the key are looked for: with two it cannot be told which request is meant.
PKIXCMP_Client* PKIXCMP_Client::OpenRequest(WndProv& wnd, const CACMPT_BLOB& publicKey) {
    const CertFindByPublicKey predicate = findKey(publicKey);
    store_handle store;
    if (!store.open(L"Request", CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY)) {
        PKIXCMP_THROW(CAException, "Can't open request store!");
    }
    std::list<CACMPT_BLOB> found;
    ::CertStore_Find(found, store.get(), predicate, false);
    if (found.size() != 1) PKIXCMP_THROW(CAException, "No request!");
    return new PKIXCMP_Client(wnd, found.front(), true, nullptr, PROV_ECDSA_P256);
}
