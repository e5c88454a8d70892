#include <cstring>

#include "platform/support/SettingsGuard.h"
#include "platform/support/State.h"
#include "platform/support/Support.h"

using support::Side;
using support::settings::guarded;
using support::settings::Place;
using support::settings::require;

// Reading and writing single settings.

namespace support::settings {

namespace {

constexpr std::size_t longestPath = 32767;

}  // namespace

std::string joinedPath(const char* path) {
    require(path != nullptr && path[0] == '\\', SUPPORT_INVALID);
    std::string_view rest = path;
    require(rest.size() <= longestPath, SUPPORT_INVALID);
    std::string joined;
    while (!rest.empty()) {
        std::size_t end = rest.find('\\');
        std::string_view component = rest.substr(0, end);
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        if (component.empty()) continue;
        if (!joined.empty()) joined.push_back('\\');
        joined.append(component);
    }
    return joined;
}

Place::Place(const char* path) {
    std::string joined = joinedPath(path);
    require(!joined.empty(), SUPPORT_INVALID);
    std::size_t last = joined.rfind('\\');
    name = last == joined.npos ? joined : joined.substr(last + 1);
    if (last != joined.npos) key = joined.substr(0, last);
}

bool Place::isMachines() const {
    std::string_view first = key.empty() ? name : key;
    return first.substr(0, first.find('\\')) == "config";
}

}  // namespace support::settings

namespace {

Side sideOf(const Place& place) { return place.isMachines() ? Side::machine : Side::user; }

std::optional<storage::Setting> findOn(Side side, const Place& place) {
    storage::Access state = support::openForReading(side, support::home(side));
    return state ? state.settings().find(place.key, place.name) : std::nullopt;
}

std::optional<storage::Setting> findAny(const Place& place) {
    auto found = findOn(Side::user, place);
    return found ? found : findOn(Side::machine, place);
}

template <class Content>
int put(const char* path, int type, Content&& content) {
    return guarded([&] {
        Place place(path);
        storage::Setting setting{place.name, type, std::forward<Content>(content)};
        storage::openForWriting(support::home(sideOf(place))).settings().put(place.key, setting);
    });
}

/// The text of a string value; null for none. Fails for a value of another type.
const char* textOf(const storage::Setting* setting) {
    if (setting == nullptr) return nullptr;
    require(setting->type == SUPPORT_REGISTRY_STRING, SUPPORT_BAD_TYPE);
    auto* text = std::get_if<std::string>(&setting->content);
    require(text != nullptr, SUPPORT_BAD_VALUE);
    return text->c_str();
}

}  // namespace

int support_registry_find(const char* path, TSupportRegistrySearchValue** value) {
    return guarded([&] {
        require(value != nullptr, SUPPORT_INVALID);
        *value = nullptr;
        auto found = findAny(Place(path));
        require(found.has_value(), SUPPORT_NOT_FOUND);
        *value = new TSupportRegistrySearchValue{std::move(*found)};
    });
}

int support_registry_put_string(const char* path, const char* text) {
    if (text == nullptr) return SUPPORT_INVALID;
    return put(path, SUPPORT_REGISTRY_STRING, std::string(text));
}

int support_registry_put_multi_string(const char* path, const char* text) {
    if (text == nullptr) return SUPPORT_INVALID;
    const char* end = text;
    while (*end != 0) end += std::strlen(end) + 1;
    storage::Bytes bytes(text, end);
    bytes.push_back(0);
    if (bytes.size() == 1) bytes.push_back(0);
    return put(path, SUPPORT_REGISTRY_MULTI_STRING, std::move(bytes));
}

int support_registry_put_long(const char* path, long number) {
    return put(path, SUPPORT_REGISTRY_LONG, std::int64_t{number});
}

int support_registry_put_long_long(const char* path, long long number) {
    return put(path, SUPPORT_REGISTRY_LONG_LONG, std::int64_t{number});
}

int support_registry_put_bool(const char* path, bool value) {
    return put(path, SUPPORT_REGISTRY_BOOL, std::int64_t{value});
}

int support_registry_put_hex(const char* path, std::size_t length, const unsigned char* bytes) {
    if (bytes == nullptr && length != 0) return SUPPORT_INVALID;
    return put(path, SUPPORT_REGISTRY_HEX, storage::Bytes(bytes, bytes + length));
}

int support_registry_get_long(const char* path, long* out) {
    return guarded([&] {
        require(out != nullptr, SUPPORT_INVALID);
        auto found = findAny(Place(path));
        require(found.has_value(), SUPPORT_NOT_FOUND);
        TSupportRegistrySearchValue value{std::move(*found)};
        int code = support_registry_value_long(&value, out);
        require(code == SUPPORT_OK, code);
    });
}

int support_registry_delete_param(const char* path) {
    return guarded([&] {
        Place place(path);
        std::filesystem::path folder = support::home(sideOf(place));
        // Looked at first, so that removing nothing makes no database.
        bool isThere = [&] {
            storage::Access state = storage::openForReading(folder);
            return state && state.settings().find(place.key, place.name).has_value();
        }();
        require(isThere, SUPPORT_NOT_FOUND);
        bool erased = storage::openForWriting(folder).settings().erase(place.key, place.name);
        require(erased, SUPPORT_NOT_FOUND);
    });
}

int support_registry_update_string(const char* path,
                                   const char* (*change)(const char* present, void* context),
                                   void* context) {
    return guarded([&] {
        require(change != nullptr, SUPPORT_INVALID);
        Place place(path);
        Side side = sideOf(place);
        // What the other side holds counts where this one has nothing yet. It is read beforehand:
        // from now on this side's value is the one that everybody reads and changes.
        auto fallback = findOn(side == Side::user ? Side::machine : Side::user, place);
        auto replace = [&](const storage::Setting* own) -> std::optional<storage::Setting> {
            if (own == nullptr && fallback) own = &*fallback;
            const char* text = change(textOf(own), context);
            if (text == nullptr) return std::nullopt;
            return storage::Setting{place.name, SUPPORT_REGISTRY_STRING, std::string(text)};
        };
        storage::openForWriting(support::home(side))
            .settings()
            .update(place.key, place.name, replace);
    });
}
