#include "capilite/FileOpen.h"

#include <pthread.h>
#include <sched.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>

#include "platform/support/Support.h"

namespace {

constexpr const char* THIS_FUNCTION = "support_an_fopen";
constexpr int THIS_LINE = 87;
constexpr const char* STORM_FUNCTION = "support_EagnEintr_try";
constexpr int STORM_LINE = 123;

/// What every line of the log begins with.
struct LineHead {
    char time[16] = {};
    long microseconds = 0;
    int process = getpid();
    void* thread = reinterpret_cast<void*>(pthread_self());

    LineHead() {
        timeval now{};
        gettimeofday(&now, nullptr);
        std::tm local{};
        if (localtime_r(&now.tv_sec, &local) != nullptr) {
            std::strftime(time, sizeof time, "%T", &local);
        }
        microseconds = now.tv_usec;
    }
};

template <class... Args>
std::string print(const char* format, Args... args) {
    int length = std::snprintf(nullptr, 0, format, args...);
    std::string line(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
    std::snprintf(line.data(), line.size() + 1, format, args...);
    return line;
}

std::string identityLine(bool entering, int rc, int error) {
    LineHead head;
    const char* format = entering ? "%s%s%s.%06ld %s:%d p:%d t:0x%p %s() "
                                    "support_thread_actualize_uids() rc=%d errno = %s(%d)%s"
                                  : "%s%s%s.%06ld %s:%d p:%d t:0x%p %s() "
                                    "support_thread_deactualize_uids() rc=%d errno = %s(%d)%s";
    return print(format, "", "", head.time, head.microseconds, THIS_FUNCTION, THIS_LINE,
                 head.process, head.thread, THIS_FUNCTION, rc, support_strerror(error), error, "");
}

std::string failureLine(const char* name, const char* mode, int error) {
    LineHead head;
    return print("%s%s%s.%06ld %s:%d p:%d t:0x%p %s(\"%s\", \"%s\") = 0x%p fail %s(%d)%s", "", "",
                 head.time, head.microseconds, THIS_FUNCTION, THIS_LINE, head.process, head.thread,
                 THIS_FUNCTION, name, mode, static_cast<void*>(nullptr), support_strerror(error),
                 error, "");
}

std::string stormLine(unsigned retry, int error) {
    LineHead head;
    return print(
        "%s%s%s.%06ld %s:%d p:%d t:0x%p EINTR/EAGAIN storm detect by %s(), retry=%d errno = "
        "%s(%d)%s",
        "", "", head.time, head.microseconds, STORM_FUNCTION, STORM_LINE, head.process, head.thread,
        THIS_FUNCTION, static_cast<int>(retry), support_strerror(error), error, "");
}

/// Holds all signals of the thread back from the first `block` to the end of its life.
class SignalBlock {
public:
    SignalBlock() = default;
    ~SignalBlock() {
        if (blocked_) pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
    }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;
    void block() {
        if (blocked_) return;
        sigset_t all;
        sigfillset(&all);
        blocked_ = pthread_sigmask(SIG_SETMASK, &all, &saved_) == 0;
    }

private:
    bool blocked_ = false;
    sigset_t saved_{};
};

/// Waits before the repetition `p` of an interrupted open. False when it was the last.
bool waitForRepetition(unsigned p, SignalBlock& signals, const capilite::OpenOperations& with) {
    if (p == 0) return true;
    unsigned bits = static_cast<unsigned>(std::bit_width(p));
    if (bits <= 6) {
        with.yield();
        return true;
    }
    unsigned n = bits / 7 + 1;
    signals.block();
    with.sleep(n * 3000 - 2000);
    return n < 3;
}

enum class Attempt { opened, repeat, failed };

/// One open under the thread's identity. `error` keeps the `errno` of the last open.
Attempt attemptOpen(const char* name, const char* mode, const capilite::OpenOperations& with,
                    std::FILE*& file, int& error, bool& tried) {
    int rc = with.enterIdentity();
    if (rc != 0) {
        if (!tried) error = errno;
        with.log(identityLine(true, rc, errno));
        return Attempt::repeat;
    }
    file = with.open(name, mode);
    error = errno;
    tried = true;
    rc = with.leaveIdentity();
    if (rc != 0) with.log(identityLine(false, rc, errno));
    if (file != nullptr) return Attempt::opened;
    bool again = error == EINTR || error == EAGAIN || error == EINPROGRESS;
    return again ? Attempt::repeat : Attempt::failed;
}

}  // namespace

namespace capilite {

std::FILE* openRetrying(const char* name, const char* mode, const OpenOperations& operations) {
    if (name == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    int error = 0;
    bool tried = false;
    std::FILE* file = nullptr;
    {
        SignalBlock signals;
        for (unsigned p = 0;; ++p) {
            Attempt result = attemptOpen(name, mode, operations, file, error, tried);
            if (result == Attempt::opened) break;
            if (result == Attempt::repeat) {
                if (waitForRepetition(p, signals, operations)) {
                    errno = error;
                    continue;
                }
                operations.log(stormLine(p, error));
            }
            operations.log(failureLine(name, mode, error));
            break;
        }
    }
    errno = error;
    return file;
}

}  // namespace capilite

extern "C" std::FILE* support_an_fopen(const char* name, const char* mode) {
    static constexpr capilite::OpenOperations system = {
        support_thread_actualize_uids,
        support_thread_deactualize_uids,
        [](const char* n, const char* m) { return std::fopen(n, m); },
        [] { sched_yield(); },
        [](unsigned microseconds) { usleep(microseconds); },
        [](const std::string& line) { syslog(LOG_AUTH | LOG_ERR, "%s", line.c_str()); },
    };
    return capilite::openRetrying(name, mode, system);
}
