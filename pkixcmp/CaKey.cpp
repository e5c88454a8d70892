#include <cstring>

#include "capilite/CAException.h"
#include "capilite/Handles.h"
#include "pkixcmp/KeyContainers.h"
#include "pkixcmp/Server.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/1235"

// The container of a CA's key, for keys that the provider protects itself: their opened containers
// need no others, so `parts` stays null.

namespace {

/// How a container is protected.
enum class Protection : BYTE { pin = 0, none = 5, provider = 6 };

[[noreturn]] void throwCode(std::uint32_t code) {
    SetLastError(code);
    PKIXCMP_THROW(CryptException, code);
}

/// Fails for a container that is opened through others.
Protection protectionOf(unsigned long long provider) {
    const CACMPT_BLOB info = GetPinInfo(provider);
    const auto kind = static_cast<Protection>(info.size ? info.data[0] : 0xFF);
    switch (kind) {
        case Protection::pin:
        case Protection::none:
        case Protection::provider:
            return kind;
    }
    throwCode(NTE_BAD_TYPE);
}

/// Gives a new container the PIN of the CA's operator, where the container takes one.
void protect(WndProv* wnd, unsigned long long provider, const std::string& name) {
    if (protectionOf(provider) != Protection::pin) return;
    if (!wnd || wnd->no_pin() || wnd->use_builtin_windows()) return;
    unsigned int state = 0;
    if (!set_created_pin(*wnd, provider, name.c_str(), 0, 0, &state)) {
        throwCode(SCARD_W_CANCELLED_BY_USER);
    }
}

void generateSignatureKey(unsigned long long provider, bool exportable) {
    HCRYPTKEY key = 0;
    if (!CryptGenKey(provider, AT_SIGNATURE, exportable ? CRYPT_EXPORTABLE : 0, &key)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    CryptDestroyKey(key);
}

}  // namespace

unsigned long long PKIXCMP_Server::create_container_root(WndProv* wnd, const char* container,
                                                         const char* providerName,
                                                         unsigned int type, bool exportable,
                                                         void*& parts, unsigned long long random) {
    std::string reader;
    std::string name;
    split_container_name(container, reader, name);
    if (name.empty()) {
        char generated[256] = {};
        CACMP_GenContainerName(random, generated);
        name = generated;
    }
    const bool hasReaders = is_pin_provider(type);
    if (hasReaders && reader.empty() && wnd && !wnd->no_pin()) {
        reader = choose_reader(*wnd, random);
        if (reader.empty()) PKIXCMP_THROW(CryptException, GetLastError());
    }
    // Without a reader the name alone stands for the provider's own choice.
    const std::string fullName =
        hasReaders && !reader.empty() ? full_container_name(reader, name) : name;
    unsigned long long handle = 0;
    if (!CryptAcquireContextA(&handle, fullName.c_str(), providerName, type, CRYPT_NEWKEYSET)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    prov_handle created(handle);
    protect(wnd, handle, name);
    generateSignatureKey(handle, exportable);
    parts = nullptr;
    return created.detach();
}

void PKIXCMP_Server::read_container_root(unsigned long long root, WndProv*, void*& parts) {
    // Asking for the key lets the provider hold its own dialogue, where it has one.
    HCRYPTKEY key = 0;
    if (CryptGetUserKey(root, AT_SIGNATURE, &key)) CryptDestroyKey(key);
    protectionOf(root);
    parts = nullptr;
}

void PKIXCMP_Server::close_container_root(unsigned long long provider, void*& parts) {
    if (provider) CryptReleaseContext(provider, 0);
    parts = nullptr;
}

std::string fqcn(unsigned long long provider, std::string& container) {
    constexpr DWORD fullName = 0x10;
    DWORD length = 0;
    if (!CryptGetProvParam(provider, PP_FQCN, nullptr, &length, fullName)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    std::string text(length, '\0');
    if (!CryptGetProvParam(provider, PP_FQCN, reinterpret_cast<BYTE*>(text.data()), &length,
                           fullName)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    std::string reader;
    split_container_name(text.c_str(), reader, container);
    if (reader.empty() || container.empty()) {
        PKIXCMP_THROW(CAException, "Invalid FQCN format");
    }
    return reader;
}
