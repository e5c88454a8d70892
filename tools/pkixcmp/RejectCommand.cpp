#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/OfflineCa.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

struct Options : OfflineOptions {
    int status = PKI_STATUS_REJECTION;
    std::string fail, text;
};

/// The bits of names joined by "|". The library passes over words that it does not know.
std::uint32_t readFailures(const std::string& names) {
    std::uint32_t bits = 0;
    std::istringstream words(names);
    for (std::string word; std::getline(words, word, '|');) {
        std::uint32_t bit = FailureInfo().fromString(word.c_str());
        if (bit == 0) {
            std::string known;
            for (std::uint32_t mask : FailureInfo::sequence) {
                known += " " + FailureInfo(mask).toString();
            }
            throw UsageError("--fail has no '" + word + "'; its names are" + known);
        }
        bits |= bit;
    }
    return bits;
}

int run(Options& options, Context& context) {
    std::uint32_t failures = readFailures(options.fail);
    planOutputs({options.rspout});
    OfflineCa ca(options, IssuePolicy{});
    CaAnswer answer = doing("reject", [&] {
        return ca.responder().reject(ca.request(), options.status, failures, options.text);
    });
    writeFile(options.rspout, answer.reply.view());
    Json result;
    result["type"] = answer.type;
    result["result"] = answer.result;
    result["status"] = options.status;
    result["fail"] = FailureInfo(failures).toString();
    result["answer"] = options.rspout;
    printResult(context.json, result,
                "rejected: " + answer.type + "\nanswer: " + options.rspout + "\n");
    return exitDone;
}

}  // namespace

void addReject(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* reject = app.add_subcommand("reject", "Answer a request from a file with a refusal");
    addOfflineOptions(reject, *options);
    reject
        ->add_option("--status", options->status,
                     "PKIStatus: 2 rejection, 3 waiting, … (RFC 4210 5.2.3)")
        ->check(CLI::Range(2, 6));
    reject->add_option("--fail", options->fail,
                       "Failure bits: names such as badRequest|badPOP (none)");
    reject->add_option("--text", options->text, "Text for the requester");
    examples(reject,
             "  pkixcmp reject --ca '\\local\\ca' --reqin bob.req --rspout bob.rsp --status 2 "
             "--fail 'badRequest|badPOP' --text 'no such customer'");
    onRun(reject, context, options, run);
}

}  // namespace tool
