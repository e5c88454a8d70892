#pragma once

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// What several tests share: a state of their own, and children to disturb it.

/// A fresh empty home of all state, named by PKIXCMP_HOME as long as this lives.
class TempHome {
public:
    TempHome() {
        std::string pattern = std::filesystem::temp_directory_path() / "pkixcmp-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = pattern;
        ::setenv("PKIXCMP_HOME", path_.c_str(), 1);
    }
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;
    ~TempHome() {
        ::unsetenv("PKIXCMP_HOME");
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// Starts a child that runs `body`; its exit code is what that returns, 99 when it throws.
inline pid_t startChild(const std::function<int()>& body) {
    pid_t child = ::fork();
    if (child == 0) {
        int code = 99;
        try {
            code = body();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
        }
        ::_exit(code);
    }
    return child;
}

/// The exit code of a child, or minus the signal that ended it.
inline int waitForChild(pid_t child) {
    int status = 0;
    if (::waitpid(child, &status, 0) != child) return 98;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Exit codes of `count` children that run at the same time.
inline std::vector<int> runChildren(int count, const std::function<int(int)>& body) {
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) children.push_back(startChild([&, i] { return body(i); }));
    std::vector<int> codes;
    for (pid_t child : children) codes.push_back(waitForChild(child));
    return codes;
}

/// The exit code of a child that may not touch the machine's state, which must be there: root's
/// child is another user, and anyone is kept out by the mode of the folder.
inline int runWithoutMachineRights(const TempHome& home, const std::function<int()>& body) {
    constexpr unsigned nobody = 65534;
    const bool root = ::getuid() == 0;
    const std::string machine = home.path() / "machine", user = home.path() / "user";
    std::filesystem::create_directories(user);
    if (root &&
        (::chown(user.c_str(), nobody, nobody) != 0 || ::chmod(home.path().c_str(), 0755) != 0))
        throw std::runtime_error("chown");
    if (::chmod(machine.c_str(), 0) != 0) throw std::runtime_error("chmod");
    int code = waitForChild(startChild([&] {
        if (root && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) return 97;
        if (::access(machine.c_str(), X_OK) == 0) return 96;
        return body();
    }));
    if (::chmod(machine.c_str(), 0700) != 0) throw std::runtime_error("chmod");
    return code;
}
