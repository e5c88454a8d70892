#include <cstdio>
#include <memory>

#include "capilite/CAException.h"
#include "capilite/Handles.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/KeyContainers.h"
#include "platform/crypt/CryptApi.h"

namespace {

prov_handle newContainer(const char* name, const char* providerName, unsigned int providerType) {
    unsigned long long provider = 0;
    if (!CryptAcquireContextA(&provider, name, providerName, providerType, CRYPT_NEWKEYSET)) {
        return prov_handle();
    }
    return prov_handle(provider);
}

/// Asks for media until the provider creates the container or asking again is pointless; nothing,
/// with the last error, on failure.
prov_handle createAsking(WndProv& wnd, const char* providerName, unsigned int providerType,
                         const std::string& fullName, const std::string& name, short parts,
                         int part) {
    for (std::uint32_t error = 0; error != NTE_EXISTS; error = GetLastError()) {
        if (!wnd.insert_create(name.c_str(), error, parts, part)) {
            SetLastError(SCARD_W_CANCELLED_BY_USER);
            break;
        }
        prov_handle created = newContainer(fullName.c_str(), providerName, providerType);
        if (created.get()) return created;
    }
    return prov_handle();
}

}  // namespace

bool create_with_change(WndProv& wnd, const char* providerName, unsigned int providerType,
                        const char* reader, const char* container, short part, short parts,
                        unsigned long long* provider, unsigned int* pinState) {
    const bool builtin = wnd.use_builtin_windows();
    const bool hasPin = is_pin_provider(providerType);
    std::string name = container ? container : "";
    prov_handle created;
    if (builtin) {
        created = newContainer(container, providerName, providerType);
    } else {
        if (parts != 0) name += '.' + std::to_string(part);
        const std::string fullName =
            hasPin ? full_container_name(reader ? reader : "", name) : name;
        created = createAsking(wnd, providerName, providerType, fullName, name, parts, part);
    }
    if (!created.get()) PKIXCMP_THROW(CryptException, GetLastError());
    if (!builtin && hasPin &&
        !set_created_pin(wnd, created.get(), name.c_str(), parts, part, pinState)) {
        return false;
    }
    *provider = created.detach();
    return true;
}

void PKIXCMP_Base::GenerateKeyPair(WndProv& wnd, const char* providerName, int providerType,
                                   const char* reader, const char* container, unsigned long keySpec,
                                   bool flag, unsigned long long& provider) {
    unsigned long long handle = 0;
    unsigned int state = 0;
    const auto type = static_cast<unsigned int>(providerType);
    if (!create_with_change(wnd, providerName, type, reader, container, 0, 0, &handle, &state)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    prov_handle created(handle);
    DWORD flags = flag ? CRYPT_EXPORTABLE : 0;
    if (!is_pin_provider(type)) {
        const int bits = wnd.get_key_size();
        if (bits > 0) flags |= static_cast<DWORD>(bits) << 16;
    }
    HCRYPTKEY key = 0;
    if (!CryptGenKey(created.get(), static_cast<DWORD>(keySpec), flags, &key) ||
        !CryptDestroyKey(key)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    provider = created.detach();
}

PKIXCMP_Client* PKIXCMP_Client::GenerateKeyPair(WndProv& wnd, const char* configPath,
                                                const char* providerName, int providerType,
                                                const char* container, unsigned long keySpec,
                                                bool flag) {
    auto client =
        std::make_unique<PKIXCMP_Client>(providerName, static_cast<unsigned int>(providerType));
    std::string reader;
    std::string name;
    split_container_name(container, reader, name);
    if (name.empty()) {
        char generated[256] = {};
        CACMP_GenContainerName(client->ProviderHandle, generated);
        name = generated;
    }
    if (providerType == PROV_RSA) {
        reader.clear();
    } else if (reader.empty() && providerType == PROV_ECDSA_P256 && !wnd.use_builtin_windows()) {
        reader = choose_reader(wnd, client->ProviderHandle);
        if (reader.empty()) PKIXCMP_THROW(CryptException, GetLastError());
    }
    unsigned long long provider = 0;
    PKIXCMP_Base::GenerateKeyPair(wnd, providerName, providerType, reader.c_str(), name.c_str(),
                                  keySpec, flag, provider);
    client->takeProvider(provider);
    client->KeySpec = static_cast<std::uint32_t>(keySpec);
    client->ConfigPath = configPath ? configPath : "";
    return client.release();
}

bool PKIXCMP_Client::ChangePin(WndProv& wnd) {
    if (!wnd.use_builtin_windows()) {
        return change_pin(wnd, ProviderHandle, get_container(ProviderHandle).c_str(), 0, 0);
    }
    PinParam parameter;
    parameter.kind = 4;
    if (CryptSetProvParam(ProviderHandle, PP_CHANGE_AUTH, reinterpret_cast<const BYTE*>(&parameter),
                          0)) {
        return true;
    }
    switch (const std::uint32_t error = GetLastError()) {
        case SCARD_W_CANCELLED_BY_USER:
            return false;
        case 0:
        case SCARD_W_WRONG_CHV:
        case SCARD_W_CHV_BLOCKED:
        case SCARD_E_ANSWERABLE:
            return true;
        default:
            PKIXCMP_THROW(CryptException, error);
    }
}

void CACMP_GenContainerName(unsigned long long provider, char* out) {
    BYTE r[16] = {};
    if (!CryptGenRandom(provider, sizeof r, r)) PKIXCMP_THROW(CryptException, GetLastError());
    std::snprintf(out, 36, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x%02x%02x",
                  r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7], r[8], r[9], r[10], r[11], r[12],
                  r[13], r[14], r[15]);
}
