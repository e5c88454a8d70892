#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

/// A file that lives as long as the object.
class TempFile {
public:
    explicit TempFile(std::string_view content = {}) {
        int handle = mkstemp(path_);
        if (handle < 0) throw std::runtime_error("no temporary file");
        close(handle);
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~TempFile() { std::remove(path_); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const char* path() const { return path_; }
    std::string content() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

private:
    char path_[24] = "/tmp/pkixcmp-testXXXXXX";
};

/// Runs a public tool over the input and gives back what it writes. A tool that fails throws.
inline std::string runTool(const std::string& command, std::string_view input) {
    TempFile in(input), out;
    const std::string line = "{ " + command + "; } < " + in.path() + " > " + out.path() + " 2>&1";
    if (std::system(line.c_str()) != 0) {
        throw std::runtime_error(command + " failed: " + out.content());
    }
    return out.content();
}
