#include "tools/pkixcmp/HttpServer.h"

#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "tools/pkixcmp/Deadlines.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Microhttpd.h"

namespace tool {
namespace {

constexpr unsigned payloadTooLarge = 413, badRequest = 400, methodNotAllowed = 405,
                   requestTimeout = 408;

std::string addressText(const sockaddr* address, socklen_t length) {
    char host[NI_MAXHOST], port[NI_MAXSERV];
    if (address == nullptr || ::getnameinfo(address, length, host, sizeof host, port, sizeof port,
                                            NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "?";
    }
    bool v6 = address->sa_family == AF_INET6;
    return (v6 ? "[" + std::string(host) + "]" : std::string(host)) + ":" + port;
}

std::string boundAddress(int fd) {
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    auto address = reinterpret_cast<sockaddr*>(&bound);
    ::getsockname(fd, address, &length);
    return addressText(address, length);
}

/// A listening socket on the first address of the host that can be had.
int listenOn(const HttpOptions& options) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    int code = ::getaddrinfo(options.host.empty() ? nullptr : options.host.c_str(),
                             options.port.c_str(), &hints, &found);
    if (code != 0) {
        throw Failure("cannot listen on " + options.host + ":" + options.port + ": " +
                      ::gai_strerror(code));
    }
    std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, ::freeaddrinfo);
    for (addrinfo* at = found; at != nullptr; at = at->ai_next) {
        int fd = ::socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        int on = 1;
        if (fd >= 0 && ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
            ::bind(fd, at->ai_addr, at->ai_addrlen) == 0 && ::listen(fd, 511) == 0) {
            return fd;
        }
        if (fd >= 0) ::close(fd);
    }
    throw Failure("cannot listen on " + options.host + ":" + options.port + ": " +
                  std::strerror(errno) + "; choose another port, 0 takes any free one");
}

/// What the headers of a request say of the length of its body.
struct BodyHeaders {
    int lengths = 0;
    bool coded = false, otherCoding = false, badLength = false;
    std::size_t length = 0;

    static MHD_Result note(void* context, MHD_ValueKind, const char* key, const char* value) {
        auto& headers = *static_cast<BodyHeaders*>(context);
        // "Content-Length :" is a length to some readers and none to others (RFC 9112 5.1).
        headers.badLength |= std::strpbrk(key, " \t") != nullptr;
        if (::strcasecmp(key, "Content-Length") == 0) {
            ++headers.lengths;
            char* end = nullptr;
            errno = 0;
            headers.length = value != nullptr ? std::strtoull(value, &end, 10) : 0;
            headers.badLength |= value == nullptr || end == value || *end != 0 || errno != 0;
        } else if (::strcasecmp(key, "Transfer-Encoding") == 0) {
            headers.coded = true;
            headers.otherCoding |= value == nullptr || ::strcasecmp(value, "chunked") != 0;
        }
        return MHD_YES;
    }
    /// The status to refuse the request with, 0 when the body can be read.
    unsigned refusal(std::size_t maxBody) const {
        if (lengths > 1 || badLength || otherCoding || (coded && lengths != 0)) return badRequest;
        return length > maxBody ? payloadTooLarge : 0;
    }
};

}  // namespace

class HttpServer::Daemon {
public:
    Daemon(const HttpOptions& options, Handler handler)
        : options_(options),
          handler_(std::move(handler)),
          mhd_(Microhttpd::get()),
          deadlines_(options.timeout) {
        int fd = listenOn(options_);
        url_ = "http://" + boundAddress(fd) + "/";
        daemon_ = start(fd);
        if (daemon_ == nullptr) {
            ::close(fd);
            throw Failure("cannot start the HTTP server: " + std::string(std::strerror(errno)));
        }
    }

    ~Daemon() {
        stopping_ = true;
        int fd = mhd_.quiesce_daemon(daemon_);
        if (fd >= 0) {
            takeWaiting(fd);
            ::close(fd);
        }
        // What was sent before the end is read in the first moment, and answered in the time left.
        auto begin = std::chrono::steady_clock::now();
        for (auto now = begin; now < begin + std::chrono::milliseconds(100) ||
                               (inFlight_ > 0 && now < begin + options_.timeout);
             now = std::chrono::steady_clock::now()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        mhd_.stop_daemon(daemon_);
    }

    const std::string& url() const { return url_; }

private:
    /// One request while it comes in and is answered.
    struct Request {
        HttpRequest http;
        std::size_t received = 0;
        bool begun = false;  // its headers were whole
        bool answered = false;
    };
    struct Connection {
        Deadlines::Ticket ticket;
    };

    MHD_Daemon* start(int fd) {
        // One thread counts as none of a pool.
        unsigned pool = options_.threads > 1 ? options_.threads : 0;
        return mhd_.start_daemon(
            MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC, 0, nullptr, nullptr, &Daemon::onRequest,
            this, MHD_OPTION_LISTEN_SOCKET, fd, MHD_OPTION_URI_LOG_CALLBACK, &Daemon::onLine, this,
            MHD_OPTION_NOTIFY_COMPLETED, &Daemon::onCompleted, this, MHD_OPTION_NOTIFY_CONNECTION,
            &Daemon::onConnection, this, MHD_OPTION_CONNECTION_TIMEOUT,
            static_cast<unsigned>(options_.timeout.count()), MHD_OPTION_CONNECTION_LIMIT, 10000u,
            MHD_OPTION_THREAD_POOL_SIZE, pool, MHD_OPTION_END);
    }

    /// Connections that no thread has taken yet would be reset with the listening socket.
    void takeWaiting(int listening) {
        for (;;) {
            sockaddr_storage peer{};
            socklen_t length = sizeof peer;
            auto address = reinterpret_cast<sockaddr*>(&peer);
            int fd = ::accept4(listening, address, &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (fd < 0) return;
            mhd_.add_connection(daemon_, fd, address, length);
        }
    }

    /// The first line of a request is there: from here on it has a line in the log, also when the
    /// library refuses its headers by itself.
    static void* onLine(void* self, const char*, MHD_Connection* connection) {
        try {
            auto request = std::make_unique<Request>();
            request->http.peer = static_cast<Daemon*>(self)->peerOf(connection);
            return request.release();
        } catch (...) {  // the library is C: nothing may pass through it
            return nullptr;
        }
    }

    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char*,
                                const char* method, const char*, const char* data,
                                std::size_t* length, void** state) {
        auto& daemon = *static_cast<Daemon*>(self);
        try {
            if (*state == nullptr) return MHD_NO;
            auto& request = *static_cast<Request*>(*state);
            if (!request.begun) return daemon.begin(connection, method, request);
            if (*length != 0) return daemon.take(request, data, length);
            return daemon.answer(connection, request);
        } catch (...) {  // the library is C: nothing may pass through it
            return MHD_NO;
        }
    }

    MHD_Result begin(MHD_Connection* connection, const char* method, Request& request) {
        request.begun = true;
        ++inFlight_;
        request.http.method = method;
        request.http.worker = worker();
        BodyHeaders headers;
        mhd_.get_connection_values(connection, MHD_HEADER_KIND, &BodyHeaders::note, &headers);
        request.http.refused = headers.refusal(options_.maxBody);
        bool known = request.http.method == "POST" || request.http.method == "GET" ||
                     request.http.method == "HEAD";
        if (request.http.refused == 0 && !known) request.http.refused = methodNotAllowed;
        // A refusal before the body ends the connection, so that nothing is read out of step.
        return request.http.refused != 0 ? answer(connection, request) : MHD_YES;
    }

    std::string peerOf(MHD_Connection* connection) const {
        auto info = mhd_.get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
        if (info == nullptr) return "?";
        bool v6 = info->client_addr->sa_family == AF_INET6;
        return addressText(info->client_addr, v6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
    }

    /// Takes a piece of the body. One that grows too large is read on for a while, so that its
    /// sender gets to see the answer, and dropped when it does not end.
    MHD_Result take(Request& request, const char* data, std::size_t* length) {
        request.received += *length;
        if (request.received > options_.maxBody) {
            request.http.refused = payloadTooLarge;
            request.http.body = std::string();
            if (request.received > 4 * options_.maxBody + (std::size_t{1} << 20)) return MHD_NO;
        } else {
            request.http.body.append(data, *length);
        }
        *length = 0;
        return MHD_YES;
    }

    MHD_Result answer(MHD_Connection* connection, Request& request) {
        request.answered = true;
        HttpReply reply = handler_(request.http);
        MHD_Response* response = mhd_.create_response_from_buffer(
            reply.body.size(), reply.body.data(), MHD_RESPMEM_MUST_COPY);
        if (response == nullptr) return MHD_NO;
        mhd_.add_response_header(response, "Content-Type", reply.type.c_str());
        if (reply.status == methodNotAllowed) {
            mhd_.add_response_header(response, "Allow", "GET, HEAD, POST");
        }
        if (stopping_ || request.http.refused != 0) {
            mhd_.add_response_header(response, "Connection", "close");
        }
        if (Connection* known = connectionOf(connection)) deadlines_.restart(known->ticket);
        MHD_Result queued = mhd_.queue_response(connection, reply.status, response);
        mhd_.destroy_response(response);
        return queued;
    }

    /// Has the handler see a request that broke off or was cut, or that the library has refused by
    /// itself, for the log alone.
    void noteCut(Request& request, bool cut) noexcept {
        try {
            if (request.http.refused == 0) {
                request.http.refused = cut ? requestTimeout : badRequest;
            }
            handler_(request.http);
        } catch (...) {  // there is nobody left to be told
        }
    }

    Connection* connectionOf(MHD_Connection* connection) const {
        auto info = mhd_.get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        return info != nullptr ? static_cast<Connection*>(info->socket_context) : nullptr;
    }

    static void onCompleted(void* self, MHD_Connection* connection, void** state,
                            MHD_RequestTerminationCode code) {
        auto& daemon = *static_cast<Daemon*>(self);
        if (*state == nullptr) return;
        std::unique_ptr<Request> request(static_cast<Request*>(*state));
        *state = nullptr;
        Connection* known = daemon.connectionOf(connection);
        if (!request->answered) {
            bool late = known != nullptr && daemon.deadlines_.isLate(known->ticket);
            daemon.noteCut(*request, late || code != MHD_REQUEST_TERMINATED_WITH_ERROR);
        }
        if (known != nullptr) daemon.deadlines_.restart(known->ticket);
        if (request->begun) --daemon.inFlight_;
    }

    static void onConnection(void* self, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode code) {
        auto& daemon = *static_cast<Daemon*>(self);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            auto info =
                daemon.mhd_.get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            if (info == nullptr) return;
            *context = new Connection{daemon.deadlines_.add(info->connect_fd)};
        } else if (auto known = static_cast<Connection*>(*context)) {
            daemon.deadlines_.remove(known->ticket);
            delete known;
            *context = nullptr;
        }
    }

    /// The number of the calling thread among those of this server.
    unsigned worker() {
        thread_local const Daemon* owner = nullptr;
        thread_local unsigned number = 0;
        if (owner != this) {
            owner = this;
            number = workers_++;
        }
        return number;
    }

    const HttpOptions options_;
    const Handler handler_;
    const Microhttpd& mhd_;
    Deadlines deadlines_;
    std::string url_;
    std::atomic<int> inFlight_{0};
    std::atomic<unsigned> workers_{0};
    std::atomic<bool> stopping_{false};
    MHD_Daemon* daemon_ = nullptr;
};

HttpServer::HttpServer(const HttpOptions& options, Handler handler)
    : daemon_(std::make_unique<Daemon>(options, std::move(handler))) {}

HttpServer::~HttpServer() = default;

const std::string& HttpServer::url() const { return daemon_->url(); }

}  // namespace tool
