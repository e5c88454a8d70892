#pragma once

#include <microhttpd.h>

namespace tool {

/// The functions of libmicrohttpd that are used, bound on first use: the library brings a TLS stack
/// with it, which no command but `serve` should wait for.
struct Microhttpd {
    decltype(&MHD_start_daemon) start_daemon;
    decltype(&MHD_quiesce_daemon) quiesce_daemon;
    decltype(&MHD_add_connection) add_connection;
    decltype(&MHD_stop_daemon) stop_daemon;
    decltype(&MHD_get_connection_info) get_connection_info;
    decltype(&MHD_get_connection_values) get_connection_values;
    decltype(&MHD_create_response_from_buffer) create_response_from_buffer;
    decltype(&MHD_add_response_header) add_response_header;
    decltype(&MHD_queue_response) queue_response;
    decltype(&MHD_destroy_response) destroy_response;

    /// A Failure when the library is not there.
    static const Microhttpd& get();
};

}  // namespace tool
