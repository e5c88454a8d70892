#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/crypt/Failure.h"

namespace provider {

/// The kinds of the interface: what a container's keys are locked with.
enum class Protection : BYTE { pin = 0, part = 1, quorum = 2, none = 5, self = 6 };

struct StoredKey {
    DWORD spec = 0;
    bool exportable = false;
    std::string privateFile;
    std::string publicFile;
    std::string certificateFile;  // empty when no certificate was installed
};

/// The text file `header` of a container: what is in it and how it is locked. Its format is told in
/// doc/container-format.md. Everything that changes together changes by replacing this one file.
struct ContainerHeader {
    DWORD providerType = 0;
    Protection protection = Protection::pin;
    std::uint64_t generation = 1;  // moves on with every change of the protection
    std::string salt;              // of a container that the provider protects by itself
    std::string sealed;            // the container's secret under its PIN; empty while none is set
    std::vector<StoredKey> keys;
    std::vector<std::string> others;  // lines that this version does not know, kept as they are

    /// Fails with NTE_KEYSET_ENTRY_BAD.
    static ContainerHeader parse(std::string_view text);
    std::string text() const;

    bool pinSet() const { return !sealed.empty(); }
    /// Tells how this container is locked from how it was before each change, and from the lock of
    /// any other container of its name.
    std::string lock() const { return std::to_string(generation) + ' ' + salt + ' ' + sealed; }
    /// Null when there is no key of this key spec.
    const StoredKey* key(DWORD spec) const;
    StoredKey* key(DWORD spec);
    /// True for a file that the header names.
    bool names(std::string_view file) const;
};

}  // namespace provider
