#include <csignal>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Secrets.h"

namespace {

/// An option given as '' is mostly an unset variable of a script. It must not pass for one left
/// out: a certificate would go unchecked, a key unprotected.
void refuseEmpty(CLI::App& app) {
    static const std::set<std::string> mayBeEmpty{"--cdp", "--fail", "--name", "--text", "value"};
    for (CLI::Option* option : app.get_options()) {
        if (option->get_items_expected_max() == 0 || mayBeEmpty.count(option->get_name()) != 0) {
            continue;
        }
        option->check([](const std::string& value) {
            return std::string(value.empty() ? "must not be empty" : "");
        });
    }
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        refuseEmpty(*command);
    }
}

void describe(CLI::App& app, tool::Context& context) {
    app.description("Certificates over CMP (RFC 4210): a client, a CA, and a look into messages.");
    app.set_version_flag("-V,--version", "pkixcmp " PKIXCMP_VERSION);
    app.option_defaults()->always_capture_default();
    app.add_flag("--json", context.json, "Machine-readable results on standard output");
    app.add_flag("-v,--verbose", context.verbose, "The library's full text with a failure");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(
        "Exit codes: 0 done, 1 failed or refused, 2 usage, 3 waiting.\n"
        "State lives in PKIXCMP_HOME when that is set, else in $XDG_DATA_HOME/pkixcmp and\n"
        "/var/lib/pkixcmp. 'pkixcmp COMMAND --help' shows the options and examples of a command.");
    tool::addRoot(app, context);
    tool::addServe(app, context);
    tool::addEnrol(app, context);
    tool::addP10(app, context);
    tool::addIssue(app, context);
    tool::addReject(app, context);
    tool::addShow(app, context);
    tool::addConfig(app, context);
    tool::addStore(app, context);
    tool::addContainer(app, context);
    refuseEmpty(app);
}

/// The command of a line that could not be parsed, as far as it was read: "pkixcmp config get".
std::string asked(const CLI::App& app) {
    std::vector<CLI::App*> next = app.get_subcommands();
    return app.get_name() + (next.empty() ? "" : " " + asked(*next.front()));
}

int usage(const CLI::App& app, const CLI::ParseError& error, bool json) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        return app.exit(error);  // help or version was asked for
    }
    std::string text = error.what();
    std::vector<std::string> unread = app.remaining(true);
    if (app.get_subcommands().empty() && !unread.empty() && unread[0][0] != '-') {
        text = "there is no command '" + unread[0] + "'";
    }
    for (char& c : text) {
        if (c == '\n') c = ' ';
    }
    return tool::printFailure(tool::UsageError(text + "; see '" + asked(app) + " --help'"), json,
                              false);
}

/// Whether --json stands on a command line that could not be parsed.
bool wantsJson(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) return true;
    }
    return false;
}

}  // namespace

/// What the launcher (main.cpp) calls.
extern "C" __attribute__((visibility("default"))) int pkixcmp_program(int argc, char** argv) {
    tool::takeSecrets(argc, argv);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a failure like a full disk
    tool::Context context;
    try {
        CLI::App app("", "pkixcmp");
        describe(app, context);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return usage(app, error, wantsJson(argc, argv));
        }
        return context.command();
    } catch (const std::exception& failure) {
        return tool::printFailure(failure, context.json, context.verbose);
    }
}
