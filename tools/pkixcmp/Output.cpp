#include "tools/pkixcmp/Output.h"

#include <cstdio>

#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

/// Where results go.
std::FILE* results = nullptr;
std::FILE* resultStream() { return results != nullptr ? results : stdout; }

void print(std::FILE* stream, const std::string& bytes) {
    bool written = std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
    if (std::fflush(stream) != 0 || !written) {
        throw Failure("cannot write to standard output; the disk may be full or the reader gone");
    }
}

std::string dump(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

void printResultsAside() { results = stderr; }

void printBytes(const std::string& bytes) { print(stdout, bytes); }

void printResult(bool json, const Json& value, const std::string& text) {
    print(resultStream(), json ? dump(value) : text);
}

void printWarning(const std::string& text) {
    std::fprintf(stderr, "pkixcmp: warning: %s\n", text.c_str());
}

int printFailure(const std::exception& failure, bool json, bool verbose) {
    auto told = dynamic_cast<const Failure*>(&failure);
    int exitCode = told != nullptr ? told->exit : exitFailed;
    std::string text = meaningOf(failure);
    std::fprintf(stderr, "pkixcmp: %s\n", text.c_str());
    std::string detail = fullTextOf(failure);
    if (verbose && !detail.empty()) std::fprintf(stderr, "%s\n", detail.c_str());
    if (json) {
        Json value;
        value["error"] = text;
        value["exit"] = exitCode;
        if (verbose && !detail.empty()) value["detail"] = detail;
        std::fputs(dump(value).c_str(), resultStream());
    }
    return exitCode;
}

}  // namespace tool
