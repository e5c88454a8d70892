#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tools/pkixcmp/Ca.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/HttpServer.h"
#include "tools/pkixcmp/Keys.h"
#include "tools/pkixcmp/Log.h"
#include "tools/pkixcmp/Output.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string ca, pin, approve, log;
    std::string listen = "127.0.0.1:8829";
    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    std::size_t maxBody = 1 << 20;
    unsigned timeout = 30;
    IssuePolicy policy;
};

/// "HOST:PORT", "[::1]:PORT" or ":PORT" for all addresses.
void readAddress(const std::string& text, HttpOptions& out) {
    std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 1 == text.size()) {
        throw UsageError("--listen takes HOST:PORT, not '" + text + "'");
    }
    out.host = text.substr(0, colon);
    out.port = text.substr(colon + 1);
    bool number =
        std::all_of(out.port.begin(), out.port.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!number || out.port.size() > 5 || std::stoul(out.port) > 65535) {
        throw UsageError("--listen takes a port from 0 to 65535, not '" + out.port + "'");
    }
    if (out.host.size() > 2 && out.host.front() == '[' && out.host.back() == ']') {
        out.host = out.host.substr(1, out.host.size() - 2);
    }
}

/// The CA behind the HTTP server: one object a thread.
class Front {
public:
    Front(const Options& options, CallerWndProv& dialogue, Log& log) : log_(log) {
        for (unsigned i = 0; i < options.threads; ++i) {
            cas_.push_back(openCa(options.ca, dialogue));
            responders_.emplace_back(*cas_.back(), options.policy);
        }
    }

    HttpReply answer(const HttpRequest& request) {
        Clock::time_point begin = Clock::now();
        std::string said;
        HttpReply reply = request.refused != 0       ? refuse(request, said)
                          : request.method == "POST" ? post(request, said)
                                                     : page(said);
        std::chrono::duration<double, std::milli> time = Clock::now() - begin;
        char ms[32];
        std::snprintf(ms, sizeof ms, " ms=%.2f", time.count());
        log_.line("peer=" + request.peer + said + ms);
        return reply;
    }

private:
    static HttpReply page(std::string& said) {
        said = " type=page";
        return {200, "text/plain; charset=utf-8",
                "pkixcmp: a certification authority. POST a CMP message (RFC 4210) here.\n"};
    }

    static HttpReply refuse(const HttpRequest& request, std::string& said) {
        said = " type=http result=refused status=" + std::to_string(request.refused);
        const char* text = request.refused == 413   ? "the message is too large\n"
                           : request.refused == 405 ? "POST a CMP message here\n"
                           : request.refused == 408
                               ? "the message did not come whole\n"
                               : "the request leaves open where its body ends\n";
        return {request.refused, "text/plain; charset=utf-8", text};
    }

    HttpReply post(const HttpRequest& request, std::string& said) {
        try {
            CaAnswer answer = responders_.at(request.worker)
                                  .answer(CACMPT_BLOB(request.body.data(), request.body.size()));
            said = " type=" + answer.type + logField("subject", answer.subject) +
                   " result=" + answer.result;
            if (!answer.serial.empty()) said += " serial=" + answer.serial;
            if (!answer.text.empty()) said += logField("text", answer.text);
            return {200, "application/pkixcmp", std::string(answer.reply.view())};
        } catch (const std::exception& failure) {  // not even an error could be signed
            said = " type=? result=failed" + logField("text", meaningOf(failure));
            return {500, "text/plain; charset=utf-8", "the CA cannot sign now; try again later\n"};
        }
    }

    Log& log_;
    std::vector<std::unique_ptr<PKIXCMP_Server>> cas_;
    std::vector<Responder> responders_;
};

/// The signals that end the server, held back from all threads and taken by one.
class EndSignals {
public:
    EndSignals() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGTERM);
        sigaddset(&set_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    }
    void wait() const {
        int taken = 0;
        while (sigwait(&set_, &taken) != 0) {
        }
    }

private:
    sigset_t set_;
};

/// A connection is a descriptor: as many as the system allows.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int run(Options& options, Context& context) {
    HttpOptions http;
    readAddress(options.listen, http);
    http.threads = options.threads;
    http.maxBody = options.maxBody;
    http.timeout = std::chrono::seconds(options.timeout);
    options.policy.approve = options.approve == "all";
    raiseDescriptorLimit();
    std::signal(SIGPIPE, SIG_IGN);
    Log log(options.log);
    CallerWndProv dialogue;
    readCaPin(options.ca, options.pin, dialogue);
    Front front(options, dialogue, log);
    dialogue.pin = Secret();
    EndSignals signals;
    {
        HttpServer server(http, [&front](const HttpRequest& r) { return front.answer(r); });
        Json started;
        started["url"] = server.url();
        printResult(context.json, started, "listening on " + server.url() + "\n");
        signals.wait();
    }
    log.line("stopped");
    return exitDone;
}

}  // namespace

void addServe(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* serve = app.add_subcommand("serve", "Answer requests over HTTP");
    serve->add_option("--ca", options->ca, "Path of the CA in the configuration tree")->required();
    serve->add_option("--listen", options->listen, "HOST:PORT; port 0 takes any free one");
    serve
        ->add_option("--approve", options->approve,
                     "Which requests are granted: all (without it none)")
        ->check(CLI::IsMember({"all"}));
    serve
        ->add_option("--days", options->policy.days,
                     "Days of validity, at most until the CA's end (0: a year)")
        ->check(CLI::Range(0, 36500));
    serve->add_flag("--allow-ca", options->policy.allowCa,
                    "Also issue certificates with the rights of a CA");
    serve->add_option("--threads", options->threads, "Requests answered at a time")
        ->check(CLI::Range(1, 256));
    serve->add_option("--max-body", options->maxBody, "Largest message in bytes")
        ->check(CLI::Range(1, 1 << 28));
    serve
        ->add_option("--timeout", options->timeout,
                     "Seconds for a whole request and its answer, after which a connection is cut")
        ->check(CLI::Range(1, 3600));
    serve->add_option("--log", options->log, "File that gets a line a request (standard error)");
    addPinOption(serve, options->pin);
    examples(serve,
             "  pkixcmp serve --ca '\\local\\ca' --listen 127.0.0.1:8829 --approve all --days 90\n"
             "  pkixcmp serve --ca '\\local\\ca' --listen '[::1]:0' --log serve.log");
    onRun(serve, context, options, run);
}

}  // namespace tool
