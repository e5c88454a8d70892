#include "platform/crypt/Providers.h"

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>

#include "platform/crypt/ProviderContext.h"
#include "platform/support/Support.h"

namespace provider {
namespace {

constexpr ProviderType table[] = {
    {PROV_RSA, "PKIXCMP RSA Provider", "RSA:2048", false},
    {PROV_ECDSA_PLAIN, "PKIXCMP ECDSA Provider", "EC:P-256", false},
    {PROV_ECDSA_P256, "PKIXCMP ECDSA P-256 Container Provider", "EC:P-256", true},
    {PROV_RSA_3072_PLAIN, "PKIXCMP RSA-3072 Provider", "RSA:3072", false},
    {PROV_RSA_3072, "PKIXCMP RSA-3072 Container Provider", "RSA:3072", true},
    {PROV_ECDSA_P384, "PKIXCMP ECDSA P-384 Container Provider", "EC:P-384", true},
};

bool serves(const ProviderType& type, const Algorithm& algorithm) {
    return algorithm.group == Group::hash ||
           &algorithm == &keyAlgorithmOf(*findShape(std::string_view(type.keys)));
}

/// Gives one row of an enumeration back.
void giveProvider(DWORD index, const DWORD* reserved, DWORD flags, DWORD* type, char* name,
                  DWORD* nameLength) {
    require(reserved == nullptr && type != nullptr, ERROR_INVALID_PARAMETER);
    require(flags == 0, NTE_BAD_FLAGS);
    require(index < std::size(table), ERROR_NO_MORE_ITEMS);
    const ProviderType& row = table[index];
    *type = row.type;
    giveBytes(row.name, std::strlen(row.name) + 1, reinterpret_cast<BYTE*>(name), nameLength);
}

/// The handles of the default contexts, one a row. The process holds one reference to each.
class DefaultProviders {
public:
    Handle refer(const ProviderType& type) {
        std::atomic<Handle>& slot = handles_[static_cast<std::size_t>(&type - table)];
        if (referHandle(slot, HandleKind::provider)) return slot;
        const std::lock_guard lock(mutex_);
        // A caller that released more than it took has killed the handle: a new one takes its
        // place.
        if (!referHandle(slot, HandleKind::provider)) {
            slot = addHandle(std::make_shared<ProviderContext>(type, CRYPT_VERIFYCONTEXT));
            referHandle(slot, HandleKind::provider);
        }
        return slot;
    }

private:
    std::array<std::atomic<Handle>, std::size(table)> handles_{};
    std::mutex mutex_;
};

Handle referDefault(const ProviderType& type) {
    static auto* const defaults = new DefaultProviders;
    return defaults->refer(type);
}

}  // namespace

std::span<const ProviderType> providerTypes() { return table; }

const ProviderType& findProvider(DWORD type, const char* name) {
    const ProviderType* found = nullptr;
    for (const ProviderType& row : table) {
        const bool matches = name != nullptr ? std::strcmp(row.name, name) == 0 : row.type == type;
        if (matches) found = &row;
    }
    require(found != nullptr, name != nullptr ? NTE_KEYSET_NOT_DEF : NTE_PROV_TYPE_NOT_DEF);
    require(type == 0 || found->type == type, NTE_BAD_PROV_TYPE);
    return *found;
}

const Algorithm& keyAlgorithmOf(const KeyShape& shape) {
    for (const Algorithm& row : algorithms()) {
        if (row.group == Group::key && std::strcmp(row.libcrypto, shape.libcrypto) == 0) return row;
    }
    fail(NTE_BAD_ALGID);
}

const KeyShape& keyShapeOf(const ProviderType& type) {
    const auto setting =
        textSetting("\\config\\Providers\\" + std::to_string(type.type) + "\\Algorithm");
    const KeyShape* shape = findShape(setting ? std::string_view(*setting) : type.keys);
    require(shape != nullptr, NTE_BAD_ALGID);
    return *shape;
}

std::optional<std::string> textSetting(const std::string& path) {
    TSupportRegistrySearchValue* value = nullptr;
    if (support_registry_find(path.c_str(), &value) != SUPPORT_OK) return std::nullopt;
    const std::unique_ptr<TSupportRegistrySearchValue, decltype(&support_registry_value_free)>
        owner(value, support_registry_value_free);
    std::size_t count = 0;
    if (support_registry_value_string(value, &count, nullptr) != SUPPORT_OK) return std::nullopt;
    std::string text(count, '\0');
    if (support_registry_value_string(value, &count, text.data()) != SUPPORT_OK) {
        return std::nullopt;
    }
    text.resize(count);
    return text;
}

}  // namespace provider

using namespace provider;

BOOL CryptEnumProviderTypesA(DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                             DWORD* nameLength) {
    return guarded([&] { giveProvider(index, reserved, flags, type, name, nameLength); });
}

// Each type has one provider, so both enumerations run over the same rows.
BOOL CryptEnumProvidersA(DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                         DWORD* nameLength) {
    return guarded([&] { giveProvider(index, reserved, flags, type, name, nameLength); });
}

HCRYPTPROV QXCAPI_I_GetDefaultProvider(DWORD type) {
    HCRYPTPROV handle = 0;
    guarded([&] { handle = referDefault(findProvider(type, nullptr)); });
    return handle;
}

HCRYPTPROV QXCAPI_I_CryptGetDefaultCryptProv(ALG_ID algorithm) {
    HCRYPTPROV handle = 0;
    guarded([&] {
        const Algorithm* row = findAlgorithm(algorithm);
        require(row != nullptr, NTE_BAD_ALGID);
        for (const ProviderType& type : providerTypes()) {
            if (handle == 0 && serves(type, *row)) handle = referDefault(type);
        }
        require(handle != 0, NTE_BAD_ALGID);
    });
    return handle;
}
