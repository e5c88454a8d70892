#include "platform/support/Support.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace {

std::atomic<int> users{0};

/// The names that stand for a plain library name where only its run-time package is installed.
/// The version is part of the row because its interface is what callers were written for.
struct VersionedNames {
    std::string_view plain;
    const char* versioned[3];
};
constexpr VersionedNames versionedNames[] = {
    {"libcurl.so", {"libcurl.so.4", "libcurl-gnutls.so.4", "libcurl-nss.so.4"}},
};

struct CodeText {
    int code;
    std::string_view text;
};
constexpr CodeText codeTexts[] = {
    {SUPPORT_OK, "Success"},
    {SUPPORT_NO_MEMORY, "Not enough memory"},
    {SUPPORT_MORE_DATA, "The buffer is too small"},
    {SUPPORT_INVALID, "Invalid argument"},
    {SUPPORT_FAILED, "The storage of settings failed"},
    {SUPPORT_NO_RIGHTS, "Not enough rights"},
    {SUPPORT_NOT_FOUND, "Entry not found"},
    {SUPPORT_BAD_VALUE, "Entry bad"},
    {SUPPORT_BAD_TYPE, "Entry type bad"},
};

}  // namespace

void support_load_library() { users.fetch_add(1, std::memory_order_relaxed); }

void support_unload_library() { users.fetch_sub(1, std::memory_order_relaxed); }

void* support_load_library_registry(const char* name, int) {
    if (name == nullptr || *name == 0) return nullptr;
    if (void* library = ::dlopen(name, RTLD_NOW | RTLD_LOCAL)) return library;
    for (const VersionedNames& row : versionedNames) {
        if (row.plain != name) continue;
        for (const char* versioned : row.versioned) {
            if (void* library = ::dlopen(versioned, RTLD_NOW | RTLD_LOCAL)) return library;
        }
    }
    return nullptr;
}

int support_load_library_getaddr(void* library, const char* symbol, void** address) {
    if (library == nullptr || symbol == nullptr || address == nullptr) return SUPPORT_INVALID;
    *address = ::dlsym(library, symbol);
    return *address != nullptr ? SUPPORT_OK : SUPPORT_NOT_FOUND;
}

void support_unload_library_handle(void* library) {
    if (library != nullptr) ::dlclose(library);
}

int support_thread_actualize_uids() { return 0; }

int support_thread_deactualize_uids() { return 0; }

const char* support_strerror(int error) {
    thread_local char buffer[128];
    // The two versions of this function differ in what they return: the text, or a code.
    auto choose = [](auto result) -> const char* {
        if constexpr (std::is_pointer_v<decltype(result)>) {
            return result;
        } else {
            return result == 0 ? buffer : "Unknown error";
        }
    };
    return choose(::strerror_r(error, buffer, sizeof buffer));
}

int support_error_text(int code, char* buffer, std::size_t size) {
    if (buffer == nullptr || size == 0) return SUPPORT_INVALID;
    buffer[0] = 0;
    const CodeText* row = std::find_if(std::begin(codeTexts), std::end(codeTexts),
                                       [&](const CodeText& r) { return r.code == code; });
    if (row == std::end(codeTexts)) return SUPPORT_NOT_FOUND;
    std::size_t length = std::min(row->text.size(), size - 1);
    std::memcpy(buffer, row->text.data(), length);
    buffer[length] = 0;
    return SUPPORT_OK;
}
