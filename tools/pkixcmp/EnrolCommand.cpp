#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/support/Text.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/Keys.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Reply.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

struct Options {
    std::string server, recipient, subject, config, trust, certout, reqout, rspout;
    std::vector<std::string> san, keyUsage;
    KeyOptions key;
};

void drawIdentifiers(RequestInfo& request, unsigned long long provider) {
    unsigned char bytes[32];
    if (!CryptGenRandom(provider, sizeof bytes, bytes)) {
        throw Failure("cannot draw random numbers: " + meaningOfCode(GetLastError()));
    }
    request.transactionID.assign(bytes, 16u);
    request.sender_nonce.assign(bytes + 16, 16u);
}

/// The tree that gets the certificate must not be a CA's, whose own certificate would be lost.
void checkConfig(const std::string& path) {
    if (path.empty()) return;
    checkPath(path, "--config");
    IniValue name;
    if (Ini(path).find("caname", name)) {
        throw Failure("--config '" + path + "' is the path of a CA; take another one");
    }
}

void checkKeyBits(const KeyOptions& key) {
    if (key.keyBits == 0) return;
    bool rsa = key.providerType == PROV_RSA || key.providerType == PROV_RSA_3072_PLAIN;
    if (!rsa && key.providerType != PROV_ECDSA_PLAIN) {
        throw UsageError(
            "--key-bits is for the provider types 1, 16 and 76; the others have one size");
    }
    const std::set<int> sizes = rsa ? std::set{2048, 3072, 4096} : std::set{256, 384};
    if (sizes.count(key.keyBits) == 0) {
        throw UsageError("--key-bits is " + std::string(rsa ? "2048, 3072 or 4096" : "256 or 384") +
                         " for provider type " + std::to_string(key.providerType));
    }
}

/// Reads everything of the options that can be wrong, before a key is made.
void fill(const Options& options, RequestInfo& request) {
    request.RequestType = REQUEST_TYPE_INIT_CERTIFICATE;
    request.Subject = readName(options.subject, "--subject");
    setHeaderName(request.RecipientGeneralName, readName(options.recipient, "--recipient"));
    if (!options.san.empty()) request.Extensions.Insert(subjectAltName(options.san));
    if (!options.keyUsage.empty()) request.Extensions.Insert(keyUsage(options.keyUsage));
    checkConfig(options.config);
    checkKeyBits(options.key);
    planOutputs({options.reqout, options.rspout, options.certout});
}

std::string transferFailure(const std::string& url, int code) {
    std::string text = "no answer from " + url + ": ";
    switch (code) {
        case 1:
        case 3:
            return text + "that is no http URL";
        case 6:
            return text + "its host is not known";
        case 7:
            return text + "nobody listens there; is the CA running?";
        case 28:
            return text + "it took too long";
        case 52:
            return text + "the connection was closed";
        case 413:
            return text + "the CA finds the message too large";
        default:
            return text + (code >= 400 ? "HTTP status " : "transfer error ") + std::to_string(code);
    }
}

CACMPT_BLOB send(const std::string& url, const CACMPT_BLOB& request) {
    CACMPT_BLOB reply;
    int code = doing("send the request", [&] {
        return SendPKIRequest(wideFromUtf8(url).c_str(), L"Content-Type: application/pkixcmp",
                              L"Accept: application/pkixcmp", nullptr, nullptr, request, reply);
    });
    if (code != 200) throw Failure(transferFailure(url, code));
    return reply;
}

/// The key of a certificate that the CA has issued is never thrown away, however installing ends.
void install(FreshKey& key, const CACMPT_BLOB& certificate, const std::string& config) {
    key.keep();
    doing("install the certificate (its key is kept in " + key.container() + ")", [&] {
        key->CertRepMessage_Install(certificate, config.empty() ? nullptr : config.c_str());
    });
}

int tellIssued(const Options& options, Context& context, const CACMPT_BLOB& certificate,
               const std::string& container) {
    if (!options.certout.empty()) {
        behind("the certificate is installed in store My",
               [&] { writeObject(options.certout, certificate, "CERTIFICATE"); });
    }
    CertificateInfo issued;
    PKIXCMP_Base::Cert_Decode(certificate, &issued);
    Json result;
    result["status"] = "issued";
    result["subject"] = nameText(issued.Subject);
    result["issuer"] = nameText(issued.Issuer);
    result["serial"] = issued.SerialNumber;
    result["notAfter"] = dateText(issued.NotAfter);
    result["container"] = container;
    result["checked"] = !options.trust.empty();
    if (!options.config.empty()) result["config"] = options.config;
    if (!options.certout.empty()) result["file"] = options.certout;
    std::string text = "issued: " + printable(nameText(issued.Subject)) + ", serial number " +
                       issued.SerialNumber + ", valid until " + dateText(issued.NotAfter) +
                       "\nkey container: " + container + "\ninstalled: store My" +
                       (options.config.empty() ? "" : ", configuration " + options.config) + "\n";
    if (!options.certout.empty()) text += "certificate: " + options.certout + "\n";
    printResult(context.json, result, text);
    return exitDone;
}

int tellWaiting(Context& context, const std::string& text, const std::string& container) {
    Json result;
    result["status"] = "waiting";
    result["text"] = text;
    result["container"] = container;
    printResult(context.json, result,
                "waiting: the CA has not decided yet (" + text +
                    ")\nkey container, kept for the answer: " + container + "\n");
    return exitWaiting;
}

int run(Options& options, Context& context) {
    auto request = std::make_unique<RequestInfo>();
    fill(options, *request);
    std::unique_ptr<DecodedCertificate> trusted;
    if (!options.trust.empty()) {
        trusted = std::make_unique<DecodedCertificate>(readObject(options.trust), options.trust);
    }
    CallerWndProv dialogue;
    std::string container = planContainer(options.key, dialogue);
    FreshKey key(doing("make the key", [&] {
        return std::unique_ptr<PKIXCMP_Client>(PKIXCMP_Client::GenerateKeyPair(
            dialogue, options.config.c_str(), nullptr, options.key.providerType, container.c_str(),
            AT_SIGNATURE, false));
    }));
    drawIdentifiers(*request, key->ProviderHandle);
    CACMPT_BLOB message;
    doing("make the request", [&] { key->CertReqMessage_EncodeAndSign(request.get(), message); });
    if (!options.reqout.empty()) writeFile(options.reqout, message.view());
    CACMPT_BLOB reply = send(options.server, message);
    key.keep();  // the answer may be a certificate, which is lost if the key goes
    if (!options.rspout.empty()) {
        behind("the answer is lost; the key is kept in " + key.container(),
               [&] { writeFile(options.rspout, reply.view()); });
    }
    key.keep(false);
    Outcome outcome = readReply(message, reply, trusted.get());
    if (outcome.kind == Outcome::refused) throw Failure("refused by the CA: " + outcome.text);
    if (trusted == nullptr) {
        printWarning("the answer's signature was not checked; name the CA's root with --trust");
    }
    if (outcome.kind == Outcome::waiting) {
        key.keep();
        return tellWaiting(context, outcome.text, key.container());
    }
    install(key, outcome.certificate, options.config);
    return tellIssued(options, context, outcome.certificate, key.container());
}

}  // namespace

void addEnrol(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* enrol = app.add_subcommand(
        "enrol", "Make a key, have it certified by a CA over HTTP, and install the certificate");
    enrol->add_option("--server", options->server, "URL of the CA")->required();
    enrol->add_option("--recipient", options->recipient, "Name of the CA")->required();
    enrol->add_option("--subject", options->subject, "Name for the certificate")->required();
    enrol->add_option(
        "--san", options->san,
        "Alternative name: dns:NAME, email:ADDR, uri:URI or ip:ADDR; may be repeated");
    enrol
        ->add_option("--key-usage", options->keyUsage,
                     "Key usage asked for: digitalSignature,keyAgreement,…")
        ->delimiter(',');
    addNewKeyOptions(enrol, options->key);
    enrol
        ->add_option("--key-bits", options->key.keyBits,
                     "Bits of the key, for provider types 1, 16 and 76 (0: their own default)")
        ->check(CLI::Range(0, 16384));
    enrol->add_option("--config", options->config,
                      "Path of the configuration tree that gets the certificate");
    enrol->add_option("--trust", options->trust,
                      "The CA's root certificate, by which the answer is checked");
    enrol->add_option("--certout", options->certout,
                      "File for the certificate: armoured as .pem or .crt, else DER");
    enrol->add_option("--reqout", options->reqout, "File for the request, DER");
    enrol->add_option("--rspout", options->rspout, "File for the answer, DER");
    examples(enrol,
             "  pkixcmp enrol --server http://127.0.0.1:8829/ --recipient 'CN=Trial Root, O=Trial' "
             "--subject 'CN=Alice' \\\n"
             "      --san dns:alice.example --trust root.pem --certout alice.pem\n"
             "  pkixcmp enrol --server http://ca.example/ --recipient 'CN=CA' --subject 'CN=Bob' "
             "--pin file:pin.txt");
    onRun(enrol, context, options, run);
}

}  // namespace tool
