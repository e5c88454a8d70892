#include "tools/pkixcmp/Log.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <utility>

#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {

struct Log::Sink {
    explicit Sink(spdlog::sink_ptr target) : logger("pkixcmp", std::move(target)) {
        logger.set_formatter(std::make_unique<spdlog::pattern_formatter>(
            "%Y-%m-%dT%H:%M:%S.%eZ %v", spdlog::pattern_time_type::utc));
        logger.flush_on(spdlog::level::info);
    }
    spdlog::logger logger;
};

Log::Log(const std::string& path) {
    try {
        spdlog::sink_ptr target;
        if (path.empty()) {
            target = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        } else {
            target = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
        }
        sink_ = std::make_unique<Sink>(std::move(target));
    } catch (const spdlog::spdlog_ex& failure) {
        throw Failure("cannot write the log: " + printable(failure.what()));
    }
}

Log::~Log() = default;

void Log::line(const std::string& text) { sink_->logger.info("{}", text); }

std::string logField(const char* name, const std::string& value) {
    constexpr std::size_t longest = 1000;  // a line must not grow with what a peer sends
    std::string out = std::string(" ") + name + "=\"";
    for (char c : printable(value.size() > longest ? value.substr(0, longest) + "..." : value)) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

}  // namespace tool
