#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace tool {

struct HttpRequest {
    std::string method;
    std::string peer;     // "127.0.0.1:40000"
    std::string body;     // of a POST
    unsigned worker = 0;  // which of the threads asks, from 0
    /// When not 0 the request was refused before it was read: the status of the answer. 408 is one
    /// that broke off or took too long, which gets none; 400 also stands for the other statuses
    /// that malformed headers are answered with.
    unsigned refused = 0;
};

struct HttpReply {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
};

struct HttpOptions {
    std::string host;
    std::string port;  // "0" lets the system choose
    unsigned threads = 1;
    std::size_t maxBody = 0;
    std::chrono::seconds timeout{30};
};

/// An HTTP/1.1 server for small messages over libmicrohttpd, which is bound at run time.
///
/// Bodies end at `maxBody` whatever way they come in. A connection that has not brought a whole
/// request and taken its answer within `timeout` since it opened, or since its last answer, is cut.
/// A request with both a length and a transfer coding is refused, since those who read it may
/// disagree where it ends. The handler runs on the threads of the server; it sees refused requests
/// too, for the log, and its reply to them is sent as it is.
class HttpServer {
public:
    using Handler = std::function<HttpReply(const HttpRequest&)>;

    /// Listens and serves from here on. A Failure when the address cannot be had.
    HttpServer(const HttpOptions& options, Handler handler);
    /// Takes no more connections, answers what is in flight, for at most the timeout, and stops.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// "http://127.0.0.1:8829/", with the port that was chosen.
    const std::string& url() const;

private:
    class Daemon;
    std::unique_ptr<Daemon> daemon_;
};

}  // namespace tool
