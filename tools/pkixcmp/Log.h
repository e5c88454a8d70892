#pragma once

#include <memory>
#include <string>

namespace tool {

/// One line an event, with the time in UTC, to a file or standard error. Lines are whole and on
/// disk when `line` returns; safe to use from several threads.
class Log {
public:
    /// An empty path is standard error. A file is appended to.
    explicit Log(const std::string& path);
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    void line(const std::string& text);

private:
    struct Sink;
    std::unique_ptr<Sink> sink_;
};

/// `name="value"`, with quotes and backslashes escaped, so that a line can be taken apart again.
std::string logField(const char* name, const std::string& value);

}  // namespace tool
