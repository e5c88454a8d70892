#include "tools/pkixcmp/Output.h"

#include <cstdio>

#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

std::string dump(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

void printBytes(const std::string& bytes) {
    bool written = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
    if (std::fflush(stdout) != 0 || !written) {
        throw Failure("cannot write to standard output; the disk may be full or the reader gone");
    }
}

void printResult(bool json, const Json& value, const std::string& text) {
    printBytes(json ? dump(value) : text);
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
        std::fputs(dump(value).c_str(), stdout);
    }
    return exitCode;
}

}  // namespace tool
