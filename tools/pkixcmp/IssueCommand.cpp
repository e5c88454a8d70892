#include <memory>
#include <string>

#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/OfflineCa.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

struct Options : OfflineOptions {
    std::string certout;
    IssuePolicy policy{true, 0, false};
};

int run(Options& options, Context& context) {
    planOutputs({options.rspout, options.certout});
    OfflineCa ca(options, options.policy);
    CaAnswer answer = doing("issue", [&] { return ca.responder().answer(ca.request()); });
    writeFile(options.rspout, answer.reply.view());
    if (!answer.issued()) {
        throw Failure("refused: " + answer.text + "; the refusal stands in " + options.rspout);
    }
    if (!options.certout.empty()) {
        writeObject(options.certout, answer.certificate, "CERTIFICATE");
    }
    Json result;
    result["subject"] = answer.subject;
    result["serial"] = answer.serial;
    result["answer"] = options.rspout;
    if (!options.certout.empty()) result["file"] = options.certout;
    std::string text = "issued: " + printable(answer.subject) + ", serial number " + answer.serial +
                       "\nanswer: " + options.rspout + "\n";
    if (!options.certout.empty()) text += "certificate: " + options.certout + "\n";
    printResult(context.json, result, text);
    return exitDone;
}

}  // namespace

void addIssue(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* issue =
        app.add_subcommand("issue", "Answer a request from a file with a certificate");
    addOfflineOptions(issue, *options);
    issue->add_option("--certout", options->certout,
                      "File for the certificate: armoured as .pem or .crt, else DER");
    issue
        ->add_option("--days", options->policy.days,
                     "Days of validity, at most until the CA's end (0: a year)")
        ->check(CLI::Range(0, 36500));
    issue->add_flag("--allow-ca", options->policy.allowCa,
                    "Also issue certificates with the rights of a CA");
    examples(issue,
             "  pkixcmp issue --ca '\\local\\ca' --reqin bob.req --rspout bob.rsp "
             "--certout bob.pem --days 90");
    onRun(issue, context, options, run);
}

}  // namespace tool
