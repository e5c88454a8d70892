#include "capilite/CAException.h"
#include "capilite/Contexts.h"
#include "capilite/CryptGuards.h"
#include "capilite/Handles.h"
#include "capilite/StoreFind.h"
#include "config/Ini.h"
#include "pkixcmp/HandleGuards.h"
#include "pkixcmp/Server.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/RI_DecodeAndVerify"

const CertificateStore PKIXCMP_Server::ADD_STORE[3] = {
    CertificateStore(L"CA", true), CertificateStore(L"Trust", true), CertificateStore(L"RA", true)};

const CertificateStore* PKIXCMP_Server::Get_ADD_STORE() const { return ADD_STORE; }

int PKIXCMP_Server::Get_ADD_STORE_LEN() const { return std::size(ADD_STORE); }

PKIXCMP_Server::PKIXCMP_Server(const char* providerName, unsigned int providerType) {
    init(providerName, providerType);
}

PKIXCMP_Server::PKIXCMP_Server(const char* configPath, WndProv* wnd)
    : configPath_(configPath ? configPath : "") {
    init(Ini(configPath_).find_binary("cert"), wnd);
}

PKIXCMP_Server::~PKIXCMP_Server() {
    if (ProviderHandle || parts_) close_container_root(ProviderHandle, parts_);
}

void PKIXCMP_Server::release() {
    if (!ProviderHandle) return;
    close_container_root(ProviderHandle, parts_);
    ProviderHandle = 0;
    parts_ = nullptr;
}

void PKIXCMP_Server::init(const char* providerName, unsigned int providerType) {
    ProviderType = providerType;
    setProviderName(providerName);
    KeySpec = AT_SIGNATURE;
    if (!CryptAcquireContextA(&ProviderHandle, nullptr, ProviderName, providerType,
                              CRYPT_VERIFYCONTEXT)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

// The fields change only when all has succeeded: an object whose certificate is refused stays what
// it was, and the key that was opened on the way is closed again.
void PKIXCMP_Server::init(const CACMPT_BLOB& certificate, WndProv* wnd) {
    pkixcmp_detail::Store store;
    CertContextPtr context(CertStore_FindExisting(certificate, store.out(), L"My", false, true));
    if (!context) PKIXCMP_THROW(CryptException, GetLastError());
    DWORD keySpec = 0;
    const HCRYPTPROV handle = openPrivateKey(context.get(), keySpec);
    if (handle == 0) PKIXCMP_THROW(CryptException, GetLastError());
    prov_handle provider(handle);
    std::uint32_t type = 0;
    DWORD length = sizeof type;
    if (!CryptGetProvParam(handle, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &length, 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    if (keySpec != AT_SIGNATURE) PKIXCMP_THROW(CAException, "Invalid dwKeySpec");
    void* parts = nullptr;
    if (type == PROV_ECDSA_P256) read_container_root(handle, wnd, parts);
    context.reset();
    if (!store.close()) {
        const DWORD error = GetLastError();
        close_container_root(provider.detach(), parts);
        PKIXCMP_THROW(CryptException, error);
    }
    KeySpec = keySpec;
    ProviderType = type;
    ProviderHandle = provider.detach();
    parts_ = parts;
    Certificate = certificate;
}
