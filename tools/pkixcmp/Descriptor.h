#pragma once

#include <unistd.h>

namespace tool {

/// An open file that is closed on every way out. The three standard ones stay open.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ > 2) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

}  // namespace tool
