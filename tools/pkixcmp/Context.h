#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

namespace tool {

/// What all commands share: the general options, and the command that was asked for. Options are
/// read while the command line is parsed; the command runs when all of it is known to be good.
struct Context {
    bool json = false;
    bool verbose = false;
    std::function<int()> command;
};

/// Ties a command to its function: `run(options, context)` gives the exit code.
template <class Options, class Run>
void onRun(CLI::App* command, Context& context, std::shared_ptr<Options> options, Run run) {
    command->callback([&context, options, run] {
        context.command = [&context, options, run] { return run(*options, context); };
    });
}

/// The text below the options in the help of a command.
inline void examples(CLI::App* command, const std::string& text) {
    command->footer("Examples:\n" + text);
}

// One function a command: declares its options and ties it to its work.
void addRoot(CLI::App& app, Context& context);
void addServe(CLI::App& app, Context& context);
void addEnrol(CLI::App& app, Context& context);
void addP10(CLI::App& app, Context& context);
void addIssue(CLI::App& app, Context& context);
void addReject(CLI::App& app, Context& context);
void addShow(CLI::App& app, Context& context);
void addConfig(CLI::App& app, Context& context);
void addStore(CLI::App& app, Context& context);
void addContainer(CLI::App& app, Context& context);

}  // namespace tool
