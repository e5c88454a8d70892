#include "platform/crypt/ContainerHeader.h"

#include <algorithm>
#include <charconv>

namespace provider {
namespace {

constexpr std::string_view firstLine = "pkixcmp-container 1";
constexpr std::string_view lastLine = "end";

std::string_view takeUntil(std::string_view& text, char end) {
    const std::size_t place = text.find(end);
    const std::string_view taken = text.substr(0, place);
    text.remove_prefix(place == std::string_view::npos ? text.size() : place + 1);
    return taken;
}

template <class Number>
Number numberFrom(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    require(error == std::errc() && end == text.data() + text.size(), NTE_KEYSET_ENTRY_BAD);
    return number;
}

/// Names of files stay inside the folder: letters, digits, hyphens, full stops within.
std::string fileNameFrom(std::string_view text) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
    };
    require(
        !text.empty() && text.size() < 64 && text[0] != '.' && std::ranges::all_of(text, allowed),
        NTE_KEYSET_ENTRY_BAD);
    return std::string(text);
}

StoredKey keyFrom(std::string_view value) {
    StoredKey key;
    key.spec = numberFrom<DWORD>(takeUntil(value, ' '));
    const std::string_view use = takeUntil(value, ' ');
    require(use == "exportable" || use == "kept", NTE_KEYSET_ENTRY_BAD);
    key.exportable = use == "exportable";
    key.privateFile = fileNameFrom(takeUntil(value, ' '));
    key.publicFile = fileNameFrom(takeUntil(value, ' '));
    require(value.empty(), NTE_KEYSET_ENTRY_BAD);
    return key;
}

void readLine(ContainerHeader& header, std::string_view line) {
    const std::string_view whole = line;
    const std::string_view name = takeUntil(line, ' ');
    if (name == "provider") {
        header.providerType = numberFrom<DWORD>(line);
    } else if (name == "protection") {
        header.protection = static_cast<Protection>(numberFrom<BYTE>(line));
    } else if (name == "generation") {
        header.generation = numberFrom<std::uint64_t>(line);
    } else if (name == "salt") {
        header.salt = line;
    } else if (name == "secret") {
        header.sealed = line;
    } else if (name == "key") {
        const StoredKey key = keyFrom(line);
        require(header.key(key.spec) == nullptr, NTE_KEYSET_ENTRY_BAD);
        header.keys.push_back(key);
    } else if (name == "certificate") {
        StoredKey* key = header.key(numberFrom<DWORD>(takeUntil(line, ' ')));
        require(key != nullptr, NTE_KEYSET_ENTRY_BAD);
        key->certificateFile = fileNameFrom(line);
    } else {
        header.others.emplace_back(whole);
    }
}

std::string field(std::string_view name, std::string_view value) {
    return std::string(name) + " " + std::string(value) + "\n";
}

}  // namespace

ContainerHeader ContainerHeader::parse(std::string_view text) {
    ContainerHeader header;
    require(takeUntil(text, '\n') == firstLine, NTE_KEYSET_ENTRY_BAD);
    for (;;) {
        require(!text.empty(), NTE_KEYSET_ENTRY_BAD);
        const std::string_view line = takeUntil(text, '\n');
        if (line == lastLine) break;
        readLine(header, line);
    }
    const bool selfProtected =
        header.protection == Protection::self || header.protection == Protection::none;
    require(text.empty() && header.providerType != 0, NTE_KEYSET_ENTRY_BAD);
    require(!selfProtected || !header.salt.empty(), NTE_KEYSET_ENTRY_BAD);
    return header;
}

std::string ContainerHeader::text() const {
    std::string text = std::string(firstLine) + "\n";
    text += field("provider", std::to_string(providerType));
    text += field("protection", std::to_string(static_cast<unsigned>(protection)));
    text += field("generation", std::to_string(generation));
    if (!salt.empty()) text += field("salt", salt);
    if (!sealed.empty()) text += field("secret", sealed);
    for (const StoredKey& key : keys) {
        const std::string spec = std::to_string(key.spec);
        text += field("key", spec + (key.exportable ? " exportable " : " kept ") + key.privateFile +
                                 " " + key.publicFile);
        if (!key.certificateFile.empty()) {
            text += field("certificate", spec + " " + key.certificateFile);
        }
    }
    for (const std::string& line : others) text += line + "\n";
    return text + std::string(lastLine) + "\n";
}

const StoredKey* ContainerHeader::key(DWORD spec) const {
    const auto found = std::ranges::find(keys, spec, &StoredKey::spec);
    return found == keys.end() ? nullptr : &*found;
}

StoredKey* ContainerHeader::key(DWORD spec) {
    const auto found = std::ranges::find(keys, spec, &StoredKey::spec);
    return found == keys.end() ? nullptr : &*found;
}

bool ContainerHeader::names(std::string_view file) const {
    return std::ranges::any_of(keys, [&](const StoredKey& key) {
        return file == key.privateFile || file == key.publicFile || file == key.certificateFile;
    });
}

}  // namespace provider
