#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Export.h"

// The support service: start and stop counters, settings, run-time libraries, per-thread identity,
// error texts.

/// Start and stop counters of the service; calls balance each other.
PKIXCMP_API void support_load_library();
PKIXCMP_API void support_unload_library();

/// Loads a library by its plain name and, where that is not found, by its versioned names
/// ("libcurl.so" is also looked for as "libcurl.so.4", "libcurl-gnutls.so.4"). The number is the
/// loader's flags, kept for the interface. Null when no such library loads.
PKIXCMP_API void* support_load_library_registry(const char* name, int flags);
/// 0 and the address, or a non-zero code.
PKIXCMP_API int support_load_library_getaddr(void* library, const char* symbol, void** address);
PKIXCMP_API void support_unload_library_handle(void* library);

/// Bracket a file operation so that it runs under the thread's intended identity. 0 on success.
/// This platform has one identity per process.
PKIXCMP_API int support_thread_actualize_uids();
PKIXCMP_API int support_thread_deactualize_uids();

/// Text of an `errno`; never null.
PKIXCMP_API const char* support_strerror(int error);
/// Text of a code of this service; 0, or a non-zero code when it knows none. `buffer` of `size`
/// characters is always terminated.
PKIXCMP_API int support_error_text(int code, char* buffer, std::size_t size);

// Settings: a tree of keys addressed by backslash paths ("\local\ca\certnum"), holding typed
// values. Reading looks at the user's side first and then at the machine's; writing goes to the
// user's side, except under "\config", which is the machine's. Codes:
inline constexpr int SUPPORT_OK = 0;
inline constexpr int SUPPORT_NO_MEMORY = 0x1001;
inline constexpr int SUPPORT_MORE_DATA = 0x1002;  // buffer too small; the count says what is needed
inline constexpr int SUPPORT_INVALID = 0x1003;    // null argument, stale handle, bad path
inline constexpr int SUPPORT_FAILED = 0x1004;     // storage failed
inline constexpr int SUPPORT_NO_RIGHTS = 0x1007;
inline constexpr int SUPPORT_NOT_FOUND = 0x2000;  // also the end of a search
inline constexpr int SUPPORT_BAD_VALUE = 0x2001;
inline constexpr int SUPPORT_BAD_TYPE = 0x2004;

/// Types of values.
enum TSupportRegistryType {
    SUPPORT_REGISTRY_KEY = 0,  // a key that holds further values
    SUPPORT_REGISTRY_STRING = 1,
    SUPPORT_REGISTRY_LONG = 2,
    SUPPORT_REGISTRY_LONG_LONG = 3,
    SUPPORT_REGISTRY_BOOL = 4,
    SUPPORT_REGISTRY_HEX = 5,
    SUPPORT_REGISTRY_MULTI_STRING = 6,
};

struct TSupportRegistrySearchValue_;  // one value found; owned by who got it
using TSupportRegistrySearchValue = TSupportRegistrySearchValue_;
using TSupportRegistrySearch = std::intptr_t;  // a search handle; -1 is none

PKIXCMP_API int support_registry_find(const char* path, TSupportRegistrySearchValue** value);
PKIXCMP_API void support_registry_value_free(TSupportRegistrySearchValue* value);
PKIXCMP_API int support_registry_value_cpy(const TSupportRegistrySearchValue* value,
                                           TSupportRegistrySearchValue** copy);
/// 0 when name, type and content are equal.
PKIXCMP_API int support_registry_value_cmp(const TSupportRegistrySearchValue* a,
                                           const TSupportRegistrySearchValue* b);
// Texts: with a null buffer `count` receives the characters needed without the terminating zero;
// otherwise `count` holds the buffer's room without the zero, and receives what was written. The
// buffer must have room for the zero.
PKIXCMP_API int support_registry_value_name(const TSupportRegistrySearchValue* value,
                                            std::size_t* count, char* buffer);
PKIXCMP_API int support_registry_value_type(const TSupportRegistrySearchValue* value, int* type);
PKIXCMP_API int support_registry_value_string(const TSupportRegistrySearchValue* value,
                                              std::size_t* count, char* buffer);
/// The text ends in two zeros, both counted.
PKIXCMP_API int support_registry_value_multi_string(const TSupportRegistrySearchValue* value,
                                                    std::size_t* count, char* buffer);
PKIXCMP_API int support_registry_value_long(const TSupportRegistrySearchValue* value, long* out);
PKIXCMP_API int support_registry_value_long_long(const TSupportRegistrySearchValue* value,
                                                 long long* out);
PKIXCMP_API int support_registry_value_bool(const TSupportRegistrySearchValue* value, bool* out);
PKIXCMP_API int support_registry_value_hex(const TSupportRegistrySearchValue* value,
                                           std::size_t* count, unsigned char* buffer);

PKIXCMP_API int support_registry_put_string(const char* path, const char* text);
PKIXCMP_API int support_registry_put_multi_string(const char* path, const char* text);
PKIXCMP_API int support_registry_put_long(const char* path, long number);
PKIXCMP_API int support_registry_put_long_long(const char* path, long long number);
PKIXCMP_API int support_registry_put_bool(const char* path, bool value);
PKIXCMP_API int support_registry_put_hex(const char* path, std::size_t length,
                                         const unsigned char* bytes);
PKIXCMP_API int support_registry_get_long(const char* path, long* out);
/// Removes a value, from the side it would be written to.
PKIXCMP_API int support_registry_delete_param(const char* path);

/// Walks the values directly under a key in the order of their names; with `keys` also the keys
/// below it, as values of type SUPPORT_REGISTRY_KEY.
PKIXCMP_API int support_registry_search_open(const char* path, bool keys,
                                             TSupportRegistrySearch* search);
PKIXCMP_API int support_registry_search_next(TSupportRegistrySearch search,
                                             TSupportRegistrySearchValue** value);
PKIXCMP_API int support_registry_search_close(TSupportRegistrySearch search);
/// 0 when both stand at the same place of the same key.
PKIXCMP_API int support_registry_search_cmp(TSupportRegistrySearch a, TSupportRegistrySearch b);
PKIXCMP_API int support_registry_search_cpy(TSupportRegistrySearch search,
                                            TSupportRegistrySearch* copy);

/// Adds to the number in a text value and reads it back as one step that no other process can come
/// between: calls `change` with the present text (null when there is none) inside a write
/// transaction and stores what it returns. `change` must not touch settings; a null return leaves
/// the value alone. Code 0, or that of the failure.
PKIXCMP_API int support_registry_update_string(
    const char* path, const char* (*change)(const char* present, void* context), void* context);
