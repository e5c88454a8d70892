#pragma once

#include "platform/Export.h"

/// libcurl, bound at run time: programs that transfer nothing start without it, and machines
/// without its development package build and run. Entry points keep libcurl's own calling forms,
/// with handles as untyped pointers and options as numbers; they are null until loaded.
///
/// An object serves one thread at a time. `instance` is loaded already and may be used from all.
class PKIXCMP_API CURLGlobalInit {
public:
    CURLGlobalInit() = default;
    CURLGlobalInit(const CURLGlobalInit&) = delete;
    CURLGlobalInit& operator=(const CURLGlobalInit&) = delete;
    ~CURLGlobalInit();

    /// Whether the library is loaded, trying to load it when it is not.
    bool CURLAvailable();
    /// Loads the library and finds all entry points, once: a failure is remembered.
    void load_curl_get_funcs();

    /// The process's own, kept to its end.
    static CURLGlobalInit& instance();

    void* library = nullptr;
    int (*curl_global_init)(long flags) = nullptr;
    void (*curl_global_cleanup)() = nullptr;
    void* (*curl_easy_init)() = nullptr;
    void (*curl_easy_cleanup)(void* handle) = nullptr;
    int (*curl_easy_getinfo)(void* handle, int info, ...) = nullptr;
    int (*curl_easy_setopt)(void* handle, int option, ...) = nullptr;
    int (*curl_easy_perform)(void* handle) = nullptr;
    int (*curl_formadd)(void** first, void** last, ...) = nullptr;
    void (*curl_formfree)(void* form) = nullptr;
    void (*curl_slist_free_all)(void* list) = nullptr;
    void* (*curl_slist_append)(void* list, const char* text) = nullptr;
    bool loadTried = false;
};
