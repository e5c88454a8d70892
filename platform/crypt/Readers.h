#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/crypt/Providers.h"

// Readers: the folders that containers stand in. There are always two, DISK and VAULT, under the
// user's home; settings move them and add more: "\config\Readers\<NAME>" is the path of a folder,
// or "vault:" and a path for a reader whose containers the provider protects by itself. Containers
// of types without readers stand in a folder of their own.

namespace provider {

struct Reader {
    std::string name;  // empty for the folder of types without readers
    std::filesystem::path folder;
    bool selfProtecting = false;

    std::string displayName() const;
};

/// Where a container is or shall be.
struct Place {
    Reader reader;
    std::string name;

    std::filesystem::path path() const { return reader.folder / name; }
    /// "\\.\READER\NAME", or the name alone where there is no reader.
    std::string fullName() const;
};

/// The readers of a type in the order of their names; for a type without readers its one folder.
std::vector<Reader> readersOf(const ProviderType& type);

/// The place that "\\.\READER\NAME" or NAME means. A name without a reader, or with an empty one,
/// means the reader VAULT for a new container, and for an old one the first reader that has it,
/// beginning with VAULT. A type without readers ignores the reader. Fails with
/// SCARD_E_NO_SUCH_READER for an unknown reader and NTE_BAD_KEYSET_PARAM for a name that no
/// container can have: an empty one, one of more than 200 bytes, one that begins with a full stop
/// or holds a slash, a backslash or a control character, or is not UTF-8.
Place findPlace(const ProviderType& type, const char* fullName, bool isNew);
bool isContainerName(std::string_view name);

}  // namespace provider
