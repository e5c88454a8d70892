#include "capilite/DefaultProvider.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "capilite/CAException.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/RI_GenerateKeyPair"

namespace Quorvex {
namespace {

using Enumerator = BOOL (*)(DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                            DWORD* nameLength);

/// Calls `visit` with type and name of each entry while it asks for more; false at the end.
template <class Visit>
bool enumerate(Enumerator next, std::size_t nameSize, Visit visit) {
    std::vector<char> name(nameSize);
    for (DWORD index = 0;; ++index) {
        DWORD type = 0;
        auto length = static_cast<DWORD>(name.size());
        BOOL found = next(index, nullptr, 0, &type, name.data(), &length);
        if (!found && GetLastError() == ERROR_MORE_DATA) {
            name.resize(std::size_t{length} * 2);
            length = static_cast<DWORD>(name.size());
            found = next(index, nullptr, 0, &type, name.data(), &length);
        }
        if (!found) {
            if (GetLastError() == ERROR_NO_MORE_ITEMS) return false;
            PKIXCMP_THROW(CryptException, GetLastError());
        }
        if (!visit(type, name.data())) return true;
    }
}

/// A reference of the caller's own to what a search found, or 0.
template <class Search>
unsigned long long found(unsigned int algorithm) {
    Search search(algorithm);
    if (!search.Enumerate()) return 0;
    if (!CryptContextAddRef(search.provider(), nullptr, 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    return search.provider();
}

}  // namespace

CFindAlgIdIn::~CFindAlgIdIn() {
    if (provider_) CryptReleaseContext(provider_, 0);
}

bool CFindAlgIdIn::TryNextProv(unsigned int type, const char* name) {
    if (provider_) CryptReleaseContext(provider_, 0);
    provider_ = 0;
    if (!CryptAcquireContextA(&provider_, nullptr, name, type, CRYPT_VERIFYCONTEXT)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    DWORD size = 0;
    if (!CryptGetProvParam(provider_, PP_ENUMALGS, nullptr, &size, CRYPT_FIRST)) size = 0;
    std::vector<BYTE> entry(std::max<std::size_t>(size, sizeof(PROV_ENUMALGS)));
    for (DWORD flags = CRYPT_FIRST;; flags = CRYPT_NEXT) {
        auto length = static_cast<DWORD>(entry.size());
        if (!CryptGetProvParam(provider_, PP_ENUMALGS, entry.data(), &length, flags)) break;
        std::uint32_t algorithm = 0;
        std::memcpy(&algorithm, entry.data(), sizeof algorithm);
        if (algorithm == algorithm_) return true;
    }
    if (GetLastError() != ERROR_NO_MORE_ITEMS) PKIXCMP_THROW(CryptException, GetLastError());
    return false;
}

bool CFindAlgIdInDefaultProviders::Enumerate() {
    return enumerate(CryptEnumProviderTypesA, 128,
                     [this](DWORD type, const char*) { return OnType(type); });
}

bool CFindAlgIdInProviders::Enumerate() {
    return enumerate(CryptEnumProvidersA, 256,
                     [this](DWORD type, const char* name) { return OnProv(type, name); });
}

unsigned long long QXGetDefaultCSP(unsigned int algorithm) {
    if (algorithm == 0) return 0;
    if (const unsigned long long provider = QXCAPI_I_CryptGetDefaultCryptProv(algorithm)) {
        return provider;
    }
    if (const unsigned long long provider = found<CFindAlgIdInDefaultProviders>(algorithm)) {
        return provider;
    }
    return found<CFindAlgIdInProviders>(algorithm);
}

}  // namespace Quorvex
