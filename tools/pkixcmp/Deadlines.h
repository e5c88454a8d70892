#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

namespace tool {

/// Cuts connections that take too long. The server library's own timeout starts anew with every
/// byte, so a peer that sends one byte a second would hold its connection for ever.
///
/// A socket is shut down only between `add` and `remove`, while its number is surely its own.
class Deadlines {
    struct Entry {
        int socket;
        std::chrono::steady_clock::time_point end;
        bool late = false;
    };

public:
    using Ticket = std::list<Entry>::iterator;

    explicit Deadlines(std::chrono::seconds timeout);
    ~Deadlines();
    Deadlines(const Deadlines&) = delete;
    Deadlines& operator=(const Deadlines&) = delete;

    Ticket add(int socket);
    /// Starts the time of a connection anew.
    void restart(Ticket ticket);
    void remove(Ticket ticket);
    /// Whether the connection was cut.
    bool isLate(Ticket ticket);

private:
    void sweep();

    const std::chrono::seconds timeout_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::list<Entry> entries_;  // in the order of their ends
    bool stopping_ = false;
    std::thread sweeper_;
};

}  // namespace tool
