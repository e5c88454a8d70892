#include "pkixcmp/Retry.h"

#include "pkixcmp/KeyContainers.h"
#include "platform/crypt/CryptApi.h"

Retry::~Retry() = default;
RetryAcquireContext::~RetryAcquireContext() = default;
RetryGetProvParam::~RetryGetProvParam() = default;
RetrySetProvParam::~RetrySetProvParam() = default;

RetryAcquireContext::RetryAcquireContext(unsigned long long* handle, const char* container,
                                         const char* providerName, unsigned int providerType,
                                         unsigned int flags, unsigned long long listingProvider)
    : handle_(handle),
      container_(container ? container : ""),
      providerName_(providerName),
      providerType_(providerType),
      flags_(flags) {
    if (providerType_ != PROV_RSA) get_reader_list(listingProvider, readers_);
}

bool RetryAcquireContext::call() {
    if (providerType_ == PROV_RSA) {
        return CryptAcquireContextA(handle_, container_.c_str(), providerName_, PROV_RSA, flags_);
    }
    SetLastError(NTE_BAD_KEYSET);  // unless a reader says otherwise
    for (const auto& [label, reader] : readers_) {
        const std::string name = full_container_name(reader, container_);
        if (CryptAcquireContextA(handle_, name.c_str(), providerName_, providerType_, flags_)) {
            return true;
        }
    }
    return false;
}

bool RetryGetProvParam::call() {
    std::uint32_t length = *length_;
    if (!CryptGetProvParam(provider_, parameter_, data_, &length, flags_)) return false;
    *length_ = length;
    return true;
}

bool RetrySetProvParam::call() { return CryptSetProvParam(provider_, parameter_, data_, flags_); }
