#pragma once

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
