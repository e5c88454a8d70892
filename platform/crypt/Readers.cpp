#include "platform/crypt/Readers.h"

#include <algorithm>
#include <map>
#include <memory>

#include "platform/support/Home.h"
#include "platform/support/Support.h"
#include "platform/support/Text.h"

namespace provider {
namespace {

constexpr std::string_view prefix = "\\\\.\\";
constexpr std::string_view vaultMark = "vault:";
constexpr const char* diskReader = "DISK";
constexpr const char* vaultReader = "VAULT";
constexpr const char* readersKey = "\\config\\Readers";
constexpr std::size_t longestName = 200;

using ValuePtr =
    std::unique_ptr<TSupportRegistrySearchValue, decltype(&support_registry_value_free)>;

/// The names of the readers that the settings tell of.
std::vector<std::string> configuredReaders() {
    std::vector<std::string> names;
    TSupportRegistrySearch search = -1;
    if (support_registry_search_open(readersKey, false, &search) != SUPPORT_OK) return names;
    TSupportRegistrySearchValue* found = nullptr;
    while (support_registry_search_next(search, &found) == SUPPORT_OK) {
        const ValuePtr value(found, support_registry_value_free);
        std::size_t count = 0;
        if (support_registry_value_name(found, &count, nullptr) != SUPPORT_OK) continue;
        std::string name(count, '\0');
        if (support_registry_value_name(found, &count, name.data()) != SUPPORT_OK) continue;
        names.push_back(name.substr(0, count));
    }
    support_registry_search_close(search);
    return names;
}

Reader configuredReader(const std::string& name, std::string path) {
    Reader reader{name, {}, name == vaultReader};
    if (path.starts_with(vaultMark)) {
        reader.selfProtecting = true;
        path.erase(0, vaultMark.size());
    }
    reader.folder = path;
    return reader;
}

bool isUtf8(std::string_view text) {
    return MultiByteToWideChar(65001, 0, text.data(), static_cast<int>(text.size()), nullptr, 0) >
           0;
}

/// The two parts of a full name; the reader is empty where none is named.
struct ContainerName {
    std::string_view reader;
    std::string_view name;
};

ContainerName split(std::string_view text) {
    if (!text.starts_with(prefix)) return {{}, text};
    text.remove_prefix(prefix.size());
    const std::size_t end = text.find('\\');
    if (end == std::string_view::npos) return {text, {}};
    return {text.substr(0, end), text.substr(end + 1)};
}

/// The first reader that holds the container, beginning with VAULT; VAULT when none does.
Reader readerHolding(const std::vector<Reader>& readers, const std::string& name) {
    const auto vault = std::ranges::find(readers, vaultReader, &Reader::name);
    const auto holds = [&](const Reader& reader) {
        std::error_code ignored;
        return std::filesystem::exists(
            std::filesystem::symlink_status(reader.folder / name, ignored));
    };
    if (holds(*vault)) return *vault;
    const auto other = std::ranges::find_if(readers, holds);
    return other == readers.end() ? *vault : *other;
}

}  // namespace

std::string Reader::displayName() const {
    return (selfProtecting ? "Self-protected folder " : "PIN-protected folder ") + folder.string();
}

std::string Place::fullName() const {
    return reader.name.empty() ? name : std::string(prefix) + reader.name + "\\" + name;
}

std::vector<Reader> readersOf(const ProviderType& type) {
    const std::filesystem::path home = support::userHome();
    if (!type.readers) return {{"", home / "containers", true}};
    std::map<std::string, Reader> readers;
    readers[diskReader] = {diskReader, home / "readers" / diskReader, false};
    readers[vaultReader] = {vaultReader, home / "readers" / vaultReader, true};
    for (const std::string& name : configuredReaders()) {
        const auto path = textSetting(std::string(readersKey) + "\\" + name);
        if (path && !path->empty()) readers[name] = configuredReader(name, *path);
    }
    std::vector<Reader> list;
    for (auto& [name, reader] : readers) list.push_back(std::move(reader));
    return list;
}

bool isContainerName(std::string_view name) {
    const auto allowed = [](char c) {
        const auto code = static_cast<unsigned char>(c);
        return code >= 0x20 && code != 0x7F && c != '/' && c != '\\';
    };
    return !name.empty() && name.size() <= longestName && name[0] != '.' &&
           std::ranges::all_of(name, allowed) && isUtf8(name);
}

Place findPlace(const ProviderType& type, const char* fullName, bool isNew) {
    require(fullName != nullptr, NTE_BAD_KEYSET_PARAM);
    const ContainerName parts = split(fullName);
    require(isContainerName(parts.name), NTE_BAD_KEYSET_PARAM);
    const std::string name(parts.name);
    const std::vector<Reader> readers = readersOf(type);
    if (!type.readers) return {readers.front(), name};
    if (parts.reader.empty() && !isNew) return {readerHolding(readers, name), name};
    const std::string_view wanted = parts.reader.empty() ? vaultReader : parts.reader;
    const auto found = std::ranges::find(readers, wanted, &Reader::name);
    require(found != readers.end(), SCARD_E_NO_SUCH_READER);
    return {*found, name};
}

}  // namespace provider
