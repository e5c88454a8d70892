#include "retrieval/CURLGlobalInit.h"

#include "platform/support/Support.h"

namespace {

constexpr int loaderFlags = 6;
constexpr long initialiseAll = 3;  // CURL_GLOBAL_ALL

template <class Function>
bool bind(void* library, const char* name, Function*& entry) {
    void* address = nullptr;
    if (support_load_library_getaddr(library, name, &address) != 0) return false;
    entry = reinterpret_cast<Function*>(address);
    return true;
}

}  // namespace

CURLGlobalInit::~CURLGlobalInit() {
    if (library == nullptr) return;
    curl_global_cleanup();
    support_unload_library_handle(library);
}

bool CURLGlobalInit::CURLAvailable() {
    load_curl_get_funcs();
    return library != nullptr;
}

void CURLGlobalInit::load_curl_get_funcs() {
    if (loadTried) return;
    loadTried = true;
    void* loaded = support_load_library_registry("libcurl.so", loaderFlags);
    if (loaded == nullptr) return;
    bool complete = bind(loaded, "curl_global_init", curl_global_init) &&
                    bind(loaded, "curl_global_cleanup", curl_global_cleanup) &&
                    bind(loaded, "curl_easy_init", curl_easy_init) &&
                    bind(loaded, "curl_easy_cleanup", curl_easy_cleanup) &&
                    bind(loaded, "curl_easy_getinfo", curl_easy_getinfo) &&
                    bind(loaded, "curl_easy_setopt", curl_easy_setopt) &&
                    bind(loaded, "curl_easy_perform", curl_easy_perform) &&
                    bind(loaded, "curl_formadd", curl_formadd) &&
                    bind(loaded, "curl_formfree", curl_formfree) &&
                    bind(loaded, "curl_slist_free_all", curl_slist_free_all) &&
                    bind(loaded, "curl_slist_append", curl_slist_append);
    if (!complete || curl_global_init(initialiseAll) != 0) {
        support_unload_library_handle(loaded);
        return;
    }
    library = loaded;
}

CURLGlobalInit& CURLGlobalInit::instance() {
    static CURLGlobalInit* const only = [] {
        auto* made = new CURLGlobalInit;
        made->load_curl_get_funcs();
        return made;
    }();
    return *only;
}
