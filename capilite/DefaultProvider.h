#pragma once

#include <cstdint>

#include "platform/Export.h"

// Finding a provider that has an algorithm.

namespace Quorvex {

/// A reference to a verification-only context of a provider that has the algorithm, or 0. A failure
/// of a provider on the way is a `CryptException`.
PKIXCMP_API unsigned long long QXGetDefaultCSP(unsigned int algorithm);

/// Tries providers one after the other for an algorithm. Holds the context of the last one tried.
/// The searches derived from it go through the providers until one has it; `Enumerate` is false
/// when none has.
class PKIXCMP_API CFindAlgIdIn {
public:
    explicit CFindAlgIdIn(unsigned int algorithm) : algorithm_(algorithm) {}
    virtual ~CFindAlgIdIn();
    CFindAlgIdIn(const CFindAlgIdIn&) = delete;
    CFindAlgIdIn& operator=(const CFindAlgIdIn&) = delete;

    /// Opens the provider in the place of the one before; true if it has the algorithm. A null name
    /// is the default provider of the type.
    bool TryNextProv(unsigned int type, const char* name);
    /// Owned by this object.
    unsigned long long provider() const { return provider_; }

private:
    std::uint32_t algorithm_;
    unsigned long long provider_ = 0;
};

/// Searches the default providers of all types.
class PKIXCMP_API CFindAlgIdInDefaultProviders : public CFindAlgIdIn {
public:
    using CFindAlgIdIn::CFindAlgIdIn;
    bool Enumerate();
    /// Called for each type; true to go on.
    bool OnType(unsigned int type) { return !TryNextProv(type, nullptr); }
};

/// Searches all providers by name.
class PKIXCMP_API CFindAlgIdInProviders : public CFindAlgIdIn {
public:
    using CFindAlgIdIn::CFindAlgIdIn;
    bool Enumerate();
    /// Called for each provider; true to go on.
    bool OnProv(unsigned int type, const char* name) { return !TryNextProv(type, name); }
};

}  // namespace Quorvex
