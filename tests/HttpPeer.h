#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

/// An HTTP peer on loopback that answers what a test tells it to, right or wrong. One thread serves
/// one connection after another; a connection is kept as long as the client keeps it and `answer`
/// returns true.
class HttpPeer {
public:
    /// Sends what it likes through the socket, having got a whole request.
    using Answer = std::function<bool(int socket, const std::string& request)>;

    explicit HttpPeer(Answer answer) : answer_(std::move(answer)) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        if (::bind(listener_, any, size) != 0 || ::listen(listener_, 16) != 0 ||
            ::getsockname(listener_, any, &size) != 0) {
            throw std::runtime_error("no loopback");
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~HttpPeer() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    HttpPeer(const HttpPeer&) = delete;
    HttpPeer& operator=(const HttpPeer&) = delete;

    std::string url(const std::string& path = "/") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    std::vector<std::string> requests() const {
        std::lock_guard guard(lock_);
        return requests_;
    }
    int connections() const { return connections_; }

    static bool sendAll(int socket, const std::string& text) {
        for (std::size_t at = 0; at < text.size();) {
            ssize_t sent = ::send(socket, text.data() + at, text.size() - at, MSG_NOSIGNAL);
            if (sent <= 0) return false;
            at += static_cast<std::size_t>(sent);
        }
        return true;
    }
    /// A whole answer with its length.
    static Answer whole(int status, const std::string& body, const std::string& headers = "") {
        return [=](int socket, const std::string&) {
            return sendAll(socket, "HTTP/1.1 " + std::to_string(status) + " Some\r\n" + headers +
                                       "Content-Length: " + std::to_string(body.size()) +
                                       "\r\n\r\n" + body);
        };
    }
    /// Sends the text and closes the connection.
    static Answer raw(const std::string& text) {
        return [=](int socket, const std::string&) { return sendAll(socket, text) && false; };
    }

private:
    void serve() {
        int socket;
        while ((socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
            ++connections_;
            std::string request;
            while (receive(socket, request)) {
                {
                    std::lock_guard guard(lock_);
                    requests_.push_back(request);
                }
                if (!answer_(socket, request)) break;
            }
            ::close(socket);
        }
    }

    /// Reads one request by its Content-Length; false when the client has gone.
    static bool receive(int socket, std::string& request) {
        request.clear();
        for (char buffer[4096];;) {
            std::size_t head = request.find("\r\n\r\n");
            if (head != request.npos) {
                std::size_t at = request.find("Content-Length: ");
                std::size_t body =
                    at < head ? std::strtoul(request.c_str() + at + 16, nullptr, 10) : 0;
                if (request.size() >= head + 4 + body) return true;
            }
            ssize_t got = ::recv(socket, buffer, sizeof buffer, 0);
            if (got <= 0) return false;
            request.append(buffer, static_cast<std::size_t>(got));
        }
    }

    Answer answer_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<int> connections_ = 0;
    mutable std::mutex lock_;
    std::vector<std::string> requests_;
    std::thread thread_;
};
