#include "tools/pkixcmp/Deadlines.h"

#include <sys/socket.h>

namespace tool {

using Clock = std::chrono::steady_clock;

Deadlines::Deadlines(std::chrono::seconds timeout)
    : timeout_(timeout), sweeper_([this] { sweep(); }) {}

Deadlines::~Deadlines() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    sweeper_.join();
}

Deadlines::Ticket Deadlines::add(int socket) {
    std::lock_guard lock(mutex_);
    return entries_.insert(entries_.end(), {socket, Clock::now() + timeout_});
}

void Deadlines::restart(Ticket ticket) {
    std::lock_guard lock(mutex_);
    ticket->end = Clock::now() + timeout_;
    entries_.splice(entries_.end(), entries_, ticket);
}

void Deadlines::remove(Ticket ticket) {
    std::lock_guard lock(mutex_);
    entries_.erase(ticket);
}

bool Deadlines::isLate(Ticket ticket) {
    std::lock_guard lock(mutex_);
    return ticket->late;
}

void Deadlines::sweep() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        Clock::time_point now = Clock::now();
        while (!entries_.empty() && entries_.front().end <= now) {
            Ticket late = entries_.begin();
            // The server sees the end of the stream and drops the connection.
            ::shutdown(late->socket, SHUT_RDWR);
            late->late = true;
            late->end = now + timeout_;
            entries_.splice(entries_.end(), entries_, late);
        }
        wake_.wait_for(lock, std::chrono::milliseconds(200));
    }
}

}  // namespace tool
