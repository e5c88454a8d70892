#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include "platform/Export.h"

/// Readers of a provider: display name, and the name that goes into "\\.\READER\NAME".
using ReaderList = std::list<std::pair<std::string, std::string>>;

/// An operation that may succeed when it is tried again, after a person has done something about
/// it. `error` is the code of the last try, set by `WndProv::retry`.
class PKIXCMP_API Retry {
public:
    std::int32_t error = 0;

    virtual ~Retry();
    /// One try; on false the last error says why.
    virtual bool call() = 0;
};

/// Opens a container on whichever reader has it.
class PKIXCMP_API RetryAcquireContext : public Retry {
public:
    /// `handle` receives the provider handle and outlives the object. The readers are those of
    /// `listingProvider`, none for provider type 1.
    RetryAcquireContext(unsigned long long* handle, const char* container, const char* providerName,
                        unsigned int providerType, unsigned int flags,
                        unsigned long long listingProvider);
    ~RetryAcquireContext() override;
    bool call() override;

private:
    unsigned long long* handle_;
    std::string container_;
    const char* providerName_;
    unsigned int providerType_;
    unsigned int flags_;
    ReaderList readers_;
};

/// Reads a provider parameter. The length changes only on success.
class PKIXCMP_API RetryGetProvParam : public Retry {
public:
    RetryGetProvParam(unsigned long long provider, unsigned int parameter, std::uint32_t* length,
                      std::uint8_t* data, unsigned int flags)
        : provider_(provider), parameter_(parameter), length_(length), data_(data), flags_(flags) {}
    ~RetryGetProvParam() override;
    bool call() override;

private:
    unsigned long long provider_;
    unsigned int parameter_;
    std::uint32_t* length_;
    std::uint8_t* data_;
    unsigned int flags_;
};

/// Sets a provider parameter.
class PKIXCMP_API RetrySetProvParam : public Retry {
public:
    RetrySetProvParam(unsigned long long provider, unsigned int parameter, const std::uint8_t* data,
                      unsigned int flags)
        : provider_(provider), parameter_(parameter), data_(data), flags_(flags) {}
    ~RetrySetProvParam() override;
    bool call() override;

private:
    unsigned long long provider_;
    unsigned int parameter_;
    const std::uint8_t* data_;
    unsigned int flags_;
};
