#include <cstring>

#include "platform/support/SettingsGuard.h"

using support::settings::guarded;
using support::settings::require;

// One value of the settings service and its typed getters.

namespace {

/// The content of a value that must be of a type.
template <class Content>
const Content& contentOf(const TSupportRegistrySearchValue* value, int type) {
    require(value != nullptr, SUPPORT_INVALID);
    require(value->setting.type == type, SUPPORT_BAD_TYPE);
    auto* content = std::get_if<Content>(&value->setting.content);
    require(content != nullptr, SUPPORT_BAD_VALUE);
    return *content;
}

/// Gives octets by the two-call pattern; `terminated` adds a zero that is not counted.
void give(const void* data, std::size_t size, bool terminated, std::size_t* count, void* buffer) {
    require(count != nullptr, SUPPORT_INVALID);
    std::size_t room = *count;
    *count = size;
    if (buffer == nullptr) return;
    require(size <= room, SUPPORT_MORE_DATA);
    if (size != 0) std::memcpy(buffer, data, size);
    if (terminated) static_cast<char*>(buffer)[size] = 0;
}

template <class Number>
int giveNumber(const TSupportRegistrySearchValue* value, int type, Number* out) {
    return guarded([&] {
        require(out != nullptr, SUPPORT_INVALID);
        *out = static_cast<Number>(contentOf<std::int64_t>(value, type));
    });
}

}  // namespace

void support_registry_value_free(TSupportRegistrySearchValue* value) { delete value; }

int support_registry_value_cpy(const TSupportRegistrySearchValue* value,
                               TSupportRegistrySearchValue** copy) {
    return guarded([&] {
        require(value != nullptr && copy != nullptr, SUPPORT_INVALID);
        *copy = new TSupportRegistrySearchValue(*value);
    });
}

int support_registry_value_cmp(const TSupportRegistrySearchValue* a,
                               const TSupportRegistrySearchValue* b) {
    if (a == nullptr || b == nullptr) return SUPPORT_INVALID;
    const storage::Setting& x = a->setting;
    const storage::Setting& y = b->setting;
    return x.name == y.name && x.type == y.type && x.content == y.content ? 0 : 1;
}

int support_registry_value_name(const TSupportRegistrySearchValue* value, std::size_t* count,
                                char* buffer) {
    return guarded([&] {
        require(value != nullptr, SUPPORT_INVALID);
        give(value->setting.name.data(), value->setting.name.size(), true, count, buffer);
    });
}

int support_registry_value_type(const TSupportRegistrySearchValue* value, int* type) {
    if (value == nullptr || type == nullptr) return SUPPORT_INVALID;
    *type = value->setting.type;
    return SUPPORT_OK;
}

int support_registry_value_string(const TSupportRegistrySearchValue* value, std::size_t* count,
                                  char* buffer) {
    return guarded([&] {
        const std::string& text = contentOf<std::string>(value, SUPPORT_REGISTRY_STRING);
        give(text.data(), text.size(), true, count, buffer);
    });
}

int support_registry_value_multi_string(const TSupportRegistrySearchValue* value,
                                        std::size_t* count, char* buffer) {
    return guarded([&] {
        const auto& bytes = contentOf<storage::Bytes>(value, SUPPORT_REGISTRY_MULTI_STRING);
        const std::size_t size = bytes.size();
        require(size >= 2 && bytes[size - 1] == 0 && bytes[size - 2] == 0, SUPPORT_BAD_VALUE);
        give(bytes.data(), size, false, count, buffer);
    });
}

int support_registry_value_long(const TSupportRegistrySearchValue* value, long* out) {
    return giveNumber(value, SUPPORT_REGISTRY_LONG, out);
}

int support_registry_value_long_long(const TSupportRegistrySearchValue* value, long long* out) {
    return giveNumber(value, SUPPORT_REGISTRY_LONG_LONG, out);
}

int support_registry_value_bool(const TSupportRegistrySearchValue* value, bool* out) {
    return giveNumber(value, SUPPORT_REGISTRY_BOOL, out);
}

int support_registry_value_hex(const TSupportRegistrySearchValue* value, std::size_t* count,
                               unsigned char* buffer) {
    return guarded([&] {
        const auto& bytes = contentOf<storage::Bytes>(value, SUPPORT_REGISTRY_HEX);
        give(bytes.data(), bytes.size(), false, count, buffer);
    });
}
