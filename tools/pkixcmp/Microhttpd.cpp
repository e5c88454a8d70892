#include "tools/pkixcmp/Microhttpd.h"

#include <dlfcn.h>

#include <string>

#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

class Library {
public:
    Library() : handle_(::dlopen("libmicrohttpd.so.12", RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) {
            throw Failure("the HTTP server library libmicrohttpd.so.12 is not there; install it",
                          ::dlerror());
        }
    }
    template <class Function>
    void bind(Function& function, const char* name) const {
        function = reinterpret_cast<Function>(::dlsym(handle_, name));
        if (function == nullptr) {
            throw Failure(std::string("the HTTP server library lacks ") + name);
        }
    }

private:
    void* handle_;  // stays loaded
};

Microhttpd bindAll() {
    Library library;
    Microhttpd bound{};
    library.bind(bound.start_daemon, "MHD_start_daemon");
    library.bind(bound.quiesce_daemon, "MHD_quiesce_daemon");
    library.bind(bound.add_connection, "MHD_add_connection");
    library.bind(bound.stop_daemon, "MHD_stop_daemon");
    library.bind(bound.get_connection_info, "MHD_get_connection_info");
    library.bind(bound.get_connection_values, "MHD_get_connection_values");
    library.bind(bound.create_response_from_buffer, "MHD_create_response_from_buffer");
    library.bind(bound.add_response_header, "MHD_add_response_header");
    library.bind(bound.queue_response, "MHD_queue_response");
    library.bind(bound.destroy_response, "MHD_destroy_response");
    return bound;
}

}  // namespace

const Microhttpd& Microhttpd::get() {
    static const Microhttpd bound = bindAll();
    return bound;
}

}  // namespace tool
