#include "platform/crypt/Hash.h"

#include <cstring>

namespace provider {

Hash::Hash(std::shared_ptr<ProviderContext> context, const Algorithm& algorithm)
    : HandleObject(handleKind),
      context_(std::move(context)),
      algorithm_(algorithm),
      running_(EVP_MD_CTX_new()) {
    require(running_ != nullptr, NTE_NO_MEMORY);
    require(EVP_DigestInit_ex2(running_.get(), digestOf(algorithm), nullptr) == 1, NTE_BAD_ALGID);
}

void Hash::add(const BYTE* data, std::size_t length) {
    require(running_ != nullptr, NTE_BAD_HASH_STATE);
    require(length == 0 || data != nullptr, ERROR_INVALID_PARAMETER);
    require(EVP_DigestUpdate(running_.get(), data, length) == 1, NTE_FAIL);
}

Bytes Hash::value() {
    if (running_ != nullptr) {
        value_.resize(static_cast<std::size_t>(EVP_MD_get_size(digestOf(algorithm_))));
        require(EVP_DigestFinal_ex(running_.get(), value_.data(), nullptr) == 1, NTE_FAIL);
        running_.reset();
    }
    return value_;
}

}  // namespace provider

using namespace provider;

BOOL CryptCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags,
                     HCRYPTHASH* hash) {
    return guarded([&] {
        require(hash != nullptr, ERROR_INVALID_PARAMETER);
        auto context = handled<ProviderContext>(provider);
        require(key == 0, NTE_BAD_KEY);
        require(flags == 0, NTE_BAD_FLAGS);
        const Algorithm* row = findAlgorithm(algorithm);
        require(row != nullptr && row->group == Group::hash, NTE_BAD_ALGID);
        *hash = addHandle(std::make_shared<Hash>(std::move(context), *row));
    });
}

BOOL CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags) {
    return guarded([&] {
        require(flags == 0, NTE_BAD_FLAGS);
        handled<Hash>(hash)->add(data, length);
    });
}

BOOL CryptGetHashParam(HCRYPTHASH hash, DWORD parameter, BYTE* data, DWORD* length, DWORD flags) {
    return guarded([&] {
        require(flags == 0, NTE_BAD_FLAGS);
        const auto object = handled<Hash>(hash);
        const DWORD size = static_cast<DWORD>(EVP_MD_get_size(digestOf(object->algorithm())));
        if (parameter == HP_HASHSIZE) {
            giveBytes(&size, sizeof size, data, length);
        } else if (parameter == HP_HASHVAL) {
            // Asking for the length alone leaves the hash open for more data.
            giveBytes(data == nullptr ? nullptr : object->value().data(), size, data, length);
        } else {
            fail(NTE_BAD_TYPE);
        }
    });
}

BOOL CryptDestroyHash(HCRYPTHASH hash) {
    return guarded([&] { require(releaseHandle(hash, HandleKind::hash), ERROR_INVALID_HANDLE); });
}
