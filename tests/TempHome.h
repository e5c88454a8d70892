#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// An empty home of settings, stores and containers for one test, removed behind it.
class TempHome {
public:
    TempHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pkixcmp-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
        path_ = pattern;
        setenv("PKIXCMP_HOME", pattern.c_str(), 1);
    }
    ~TempHome() {
        unsetenv("PKIXCMP_HOME");
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};
