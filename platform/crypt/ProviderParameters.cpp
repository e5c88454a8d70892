#include <algorithm>
#include <cstring>

#include "platform/crypt/Container.h"
#include "platform/crypt/PinCallback.h"
#include "platform/crypt/ProviderContext.h"

// The parameters of a provider: CryptGetProvParam and CryptSetProvParam.

namespace provider {
namespace {

constexpr DWORD fullNameFlag = 0x10;

using Entries = std::vector<ProviderContext::Entry>;

void giveText(const std::string& text, BYTE* data, DWORD* length) {
    giveBytes(text.c_str(), text.size() + 1, data, length);
}

void giveNumber(DWORD number, BYTE* data, DWORD* length) {
    giveBytes(&number, sizeof number, data, length);
}

/// The bits that an algorithm has in a provider: the digest's, or those of a new key.
DWORD bitsOf(const Algorithm& algorithm, const KeyShape& shape) {
    return algorithm.group == Group::hash
               ? static_cast<DWORD>(EVP_MD_get_size(digestOf(algorithm)) * 8)
               : shape.bits;
}

std::string algorithmEntry(ALG_ID id, const Algorithm& row, const KeyShape& shape) {
    PROV_ENUMALGS entry{};
    entry.aiAlgid = id;
    entry.dwBitLen = bitsOf(row, shape);
    const std::string name(row.name, row.name + std::wcslen(row.name));
    entry.dwNameLen = static_cast<DWORD>(name.copy(entry.szName, sizeof entry.szName - 1)) + 1;
    return {reinterpret_cast<const char*>(&entry), sizeof entry};
}

/// Every hash, and the key algorithm of the type under both its numbers.
Entries algorithmEntries(const ProviderType& type) {
    const KeyShape& shape = keyShapeOf(type);
    const Algorithm& key = keyAlgorithmOf(shape);
    Entries entries;
    for (const Algorithm& row : algorithms()) {
        if (row.group == Group::hash) entries.push_back({algorithmEntry(row.id, row, shape)});
    }
    entries.push_back({algorithmEntry(key.id, key, shape)});
    entries.push_back({algorithmEntry(key.keyId, key, shape)});
    return entries;
}

Entries readerEntries(const ProviderType& type) {
    Entries entries;
    if (!type.readers) return entries;
    for (const Reader& reader : readersOf(type)) {
        entries.push_back({reader.displayName() + '\0' + reader.name + '\0'});
    }
    return entries;
}

Entries containerEntries(const ProviderType& type) {
    Entries entries;
    for (const Reader& reader : readersOf(type)) {
        for (const Container::Listed& listed : Container::list(reader, type)) {
            entries.push_back({Place{reader, listed.name}.fullName() + '\0',
                               listed.whole ? ERROR_SUCCESS : NTE_KEYSET_ENTRY_BAD});
        }
    }
    return entries;
}

void giveAuthInfo(Container& container, BYTE* data, DWORD* length) {
    const Protection kind = container.protection();
    require(kind != Protection::part && kind != Protection::quorum, NTE_BAD_TYPE);
    const PinInfoHead head{static_cast<BYTE>(kind), static_cast<BYTE>(container.triesLeft()), 0, 0};
    giveBytes(&head, sizeof head, data, length);
}

void giveStatus(Container& container, BYTE* data, DWORD* length) {
    // Asking for the length alone tests no PIN.
    giveNumber(data == nullptr ? 0 : container.identifier(), data, length);
}

void getParameter(ProviderContext& context, DWORD parameter, BYTE* data, DWORD* length,
                  DWORD flags) {
    const ProviderType& type = context.type();
    const auto enumerate = [&](Entries (*entries)(const ProviderType&)) {
        context.enumerate(
            parameter, flags, [&] { return entries(type); }, data, length);
    };
    const bool fullName = parameter == PP_FQCN;
    const bool enumeration =
        parameter == PP_ENUMALGS || parameter == PP_ENUMREADERS || parameter == PP_ENUMCONTAINERS;
    require(enumeration || flags == (fullName ? fullNameFlag : 0), NTE_BAD_FLAGS);
    switch (parameter) {
        case PP_NAME:
            return giveText(type.name, data, length);
        case PP_PROVTYPE:
            return giveNumber(type.type, data, length);
        case PP_CONTAINER:
            return giveText(context.container().place().name, data, length);
        case PP_UNIQUE_CONTAINER:
        case PP_FQCN:
            return giveText(context.container().place().fullName(), data, length);
        case PP_ENUMALGS:
            return enumerate(algorithmEntries);
        case PP_ENUMREADERS:
            return enumerate(readerEntries);
        case PP_ENUMCONTAINERS:
            return enumerate(containerEntries);
        case PP_CONTAINER_STATUS:
            return giveStatus(context.container(), data, length);
        case PP_AUTH_INFO:
            return giveAuthInfo(context.container(), data, length);
        default:
            fail(NTE_BAD_TYPE);
    }
}

Secret pinFrom(const PinParam& parameter) {
    require(parameter.text != nullptr, ERROR_INVALID_PARAMETER);
    const std::size_t length = strnlen(parameter.text, longestPin + 1);
    require(length <= longestPin, NTE_BAD_LEN);
    return secretFrom({parameter.text, length});
}

/// The provider's own way to another protection: a new secret where it protects by itself, else a
/// PIN that somebody is asked for.
void changeByDialogue(const ProviderContext& context) {
    Container& container = context.container();
    if (container.protection() != Protection::pin) return container.changeOwnProtection();
    context.unlock();
    require(!context.silent(), NTE_SILENT_CONTEXT);
    const Container::PinQuestion question = pinQuestion();
    const std::optional<Secret> pin = question ? question() : std::nullopt;
    require(pin && !pin->empty(), SCARD_W_CANCELLED_BY_USER);
    container.changePin(*pin);
}

void setParameter(const ProviderContext& context, DWORD parameter, const BYTE* data, DWORD flags) {
    require(parameter == PP_SET_AUTH || parameter == PP_CHANGE_AUTH, NTE_BAD_TYPE);
    require(flags == 0, NTE_BAD_FLAGS);
    require(data != nullptr, ERROR_INVALID_PARAMETER);
    const PinParam& auth = *reinterpret_cast<const PinParam*>(data);
    if (auth.kind == 4 && parameter == PP_CHANGE_AUTH) return changeByDialogue(context);
    require(auth.kind == 0, NTE_BAD_TYPE);
    if (parameter == PP_SET_AUTH) {
        context.container().supplyPin(pinFrom(auth));
    } else {
        context.container().changePin(pinFrom(auth));
    }
}

}  // namespace
}  // namespace provider

using namespace provider;

BOOL CryptGetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* length,
                       DWORD flags) {
    return guarded(
        [&] { getParameter(*handled<ProviderContext>(provider), parameter, data, length, flags); });
}

BOOL CryptSetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data, DWORD flags) {
    return guarded(
        [&] { setParameter(*handled<ProviderContext>(provider), parameter, data, flags); });
}
