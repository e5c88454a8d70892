#include "tools/pkixcmp/Secrets.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iterator>
#include <string_view>
#include <utility>

#include "capilite/CAException.h"
#include "platform/crypt/CryptApi.h"
#include "platform/support/LastError.h"
#include "tools/pkixcmp/Descriptor.h"
#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

void cleanse(std::string& text) {
    explicit_bzero(text.data(), text.size());
    text.clear();
}

/// The texts that were taken out of the command line, by their numbers; never moved.
std::deque<std::string> taken;
constexpr std::string_view takenMark = "taken:";

/// Where the text of a secret begins in an argument; npos when it holds none.
std::size_t secretIn(std::string_view argument, std::string_view before) {
    for (std::string_view option : {"--pin", "--new-pin"}) {
        if (before == option && argument.starts_with("pass:")) return 0;
        std::string joined = std::string(option) + "=";
        if (argument.starts_with(joined + "pass:")) return joined.size();
    }
    return std::string_view::npos;
}

/// Replaces the number of a taken text by the text, which is forgotten here.
void giveTaken(std::string& text) {
    std::size_t index = taken.size();
    std::from_chars(text.data(), text.data() + text.size(), index);
    text.clear();
    if (index >= taken.size()) return;
    text.assign(taken[index]);
    cleanse(taken[index]);
}

/// The first line of a descriptor. Reads byte by byte, so that what stands behind it stays unread.
std::string readLine(int fd, const std::string& source) {
    std::string line;
    line.reserve(256);  // never moved, so no copy of a secret is left behind
    char c = 0;
    for (;;) {
        ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            int code = errno;
            cleanse(line);
            throw Failure("cannot read the secret from " + source + ": " + std::strerror(code));
        }
        if (got == 0 || c == '\n' || line.size() == 255) break;
        if (c != '\r') line.push_back(c);
    }
    explicit_bzero(&c, 1);
    return line;
}

std::string secretOfFile(const std::string& path) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throw Failure("cannot open the secret's file " + path + ": " + std::strerror(errno));
    }
    return readLine(file.get(), path);
}

std::string secretOfDescriptor(const std::string& number) {
    int fd = -1;
    auto [end, code] = std::from_chars(number.data(), number.data() + number.size(), fd);
    if (code != std::errc{} || *end != 0 || fd < 0) {
        throw UsageError("--pin fd: takes the number of an open descriptor");
    }
    return readLine(fd, "descriptor " + number);
}

// What a signal handler needs to bring the echo back.
int silencedTerminal = -1;
termios audible{};
constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

void endAudibly(int signal) {
    ::tcsetattr(silencedTerminal, TCSANOW, &audible);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// The terminal with echo switched off for its lifetime. Who gives up with Ctrl-C gets it back.
class SilentTerminal {
public:
    SilentTerminal() : file_(::open("/dev/tty", O_RDWR | O_CLOEXEC)), fd_(file_.get()) {
        if (fd_ < 0 || ::tcgetattr(fd_, &audible) != 0) {
            throw Failure("a PIN is needed and there is no terminal to ask on; give --pin");
        }
        silencedTerminal = fd_;
        for (std::size_t i = 0; i < std::size(endingSignals); ++i) {
            struct sigaction ending {};
            ending.sa_handler = endAudibly;
            ::sigaction(endingSignals[i], nullptr, &before_[i]);
            if (before_[i].sa_handler == SIG_IGN) ending.sa_handler = SIG_IGN;
            ::sigaction(endingSignals[i], &ending, nullptr);
        }
        termios silent = audible;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(fd_, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        ::tcsetattr(fd_, TCSAFLUSH, &audible);
        for (std::size_t i = 0; i < std::size(endingSignals); ++i) {
            ::sigaction(endingSignals[i], &before_[i], nullptr);
        }
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    Secret ask(const std::string& prompt) {
        say(prompt + ": ");
        std::string text = readLine(fd_, "the terminal");
        say("\n");
        return Secret(text);
    }

private:
    void say(const std::string& text) {
        if (::write(fd_, text.data(), text.size()) < 0) throw Failure("the terminal is gone");
    }

    Descriptor file_;
    int fd_;
    struct sigaction before_[std::size(endingSignals)];
};

}  // namespace

Secret::Secret(std::string& text) {
    if (text.empty() || text.size() >= sizeof text_) {
        cleanse(text);
        throw UsageError("a PIN has 1 to 8 characters");
    }
    std::memcpy(text_, text.data(), text.size());
    cleanse(text);
}

Secret::Secret(Secret&& other) noexcept { *this = std::move(other); }

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this != &other) {
        std::memcpy(text_, other.text_, sizeof text_);
        explicit_bzero(other.text_, sizeof other.text_);
    }
    return *this;
}

Secret::~Secret() { explicit_bzero(text_, sizeof text_); }

void Secret::copyTo(char* pin) const { std::memcpy(pin, text_, sizeof text_); }

bool Secret::operator==(const Secret& other) const {
    return std::memcmp(text_, other.text_, sizeof text_) == 0;
}

void takeSecrets(int argc, char** argv) {
    static std::deque<std::string> marks;  // what the arguments point at from now on
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        std::size_t at = secretIn(argument, argv[i - 1]);
        if (at == std::string_view::npos) continue;
        marks.push_back(std::string(argument.substr(0, at)).append(takenMark) +
                        std::to_string(taken.size()));
        taken.emplace_back(argument.substr(at + 5));
        explicit_bzero(argv[i], argument.size());
        argv[i] = marks.back().data();
    }
}

Secret readSecret(std::string& source) {
    std::size_t colon = source.find(':');
    std::string kind = source.substr(0, colon);
    std::string rest = colon == std::string::npos ? "" : source.substr(colon + 1);
    cleanse(source);
    if (kind + ":" == takenMark) {
        giveTaken(rest);
    } else if (kind == "env") {
        const char* value = std::getenv(rest.c_str());
        if (value == nullptr) throw Failure("the environment has no variable " + rest);
        rest = value;
    } else if (kind == "file") {
        rest = secretOfFile(rest);
    } else if (kind == "fd") {
        rest = secretOfDescriptor(rest);
    } else {
        cleanse(kind);
        cleanse(rest);
        throw UsageError("a PIN is given as pass:TEXT, env:NAME, file:PATH or fd:NUMBER");
    }
    return Secret(rest);
}

Secret askSecret(const std::string& prompt, bool twice) {
    SilentTerminal terminal;
    Secret first = terminal.ask(prompt);
    if (twice && !(terminal.ask(prompt + " again") == first)) {
        throw Failure("the two PINs differ; nothing was done");
    }
    return first;
}

bool CallerWndProv::insert_create(const char*, unsigned long error, short, int) {
    if (error != 0) throw CryptException(static_cast<unsigned int>(error), __FILE__, __LINE__);
    return true;
}

bool CallerWndProv::retry(const char*, int, Retry& operation) {
    operation.error = 0;
    if (operation.call()) return true;
    std::uint32_t code = GetLastError();
    operation.error = static_cast<std::int32_t>(code);
    return code == 0 || code == SCARD_W_WRONG_CHV || code == SCARD_W_CHV_BLOCKED ||
           code == SCARD_E_ANSWERABLE || code == SCARD_W_CANCELLED_BY_USER;
}

bool CallerWndProv::get_current_pin(const char* name, short tries, char* given, short, int) {
    if (pin.empty()) {
        throw Failure("the container " + std::string(name) + " takes a PIN; give it with --pin");
    }
    if (tries < 3) throw CryptException(SCARD_W_WRONG_CHV, __FILE__, __LINE__);
    pin.copyTo(given);
    return true;
}

bool CallerWndProv::get_new_pin(const char*, char* given, short, int) {
    if (newPin.empty()) return false;
    newPin.copyTo(given);
    return true;
}

std::string CallerWndProv::get_reader(const ReaderList&) { return reader; }

}  // namespace tool
