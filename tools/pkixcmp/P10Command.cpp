#include <memory>
#include <string>

#include "platform/support/Text.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/Keys.h"
#include "tools/pkixcmp/Message.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

struct Options {
    Options() { key.providerType = 0; }

    std::string csr, recipient, reqout;
    KeyOptions key;
};

/// A client over the key of a container that is there. Its certificate, if it has one, names the
/// sender.
std::unique_ptr<PKIXCMP_Client> openKey(Options& options, CallerWndProv& dialogue) {
    std::string reader, name;
    split_container_name(options.key.container.c_str(), reader, name);
    if (reader.empty() && !options.key.reader.empty()) {
        options.key.container = full_container_name(options.key.reader, name);
    }
    Container container = openContainer(options.key.container, options.key.providerType);
    container.readPin(options.key.pin, dialogue);
    container.unlock(dialogue);
    auto client = std::make_unique<PKIXCMP_Client>(nullptr, container.type());
    CryptReleaseContext(client->ProviderHandle, 0);
    client->KeySpec = container.keySpec();
    client->Certificate = container.certificate(client->KeySpec);
    client->ProviderHandle = container.detach();
    if (client->KeySpec == 0)
        throw Failure("the container " + options.key.container +
                      " holds no key; name another, or leave it out");
    return client;
}

std::unique_ptr<PKIXCMP_Client> freshKey(Options& options, CallerWndProv& dialogue) {
    if (options.key.providerType == 0) options.key.providerType = PROV_ECDSA_P256;
    std::string container = planContainer(options.key, dialogue);
    return doing("make the key", [&] {
        return std::unique_ptr<PKIXCMP_Client>(
            PKIXCMP_Client::GenerateKeyPair(dialogue, nullptr, nullptr, options.key.providerType,
                                            container.c_str(), AT_SIGNATURE, false));
    });
}

int run(Options& options, Context& context) {
    auto request = std::make_unique<RequestInfo>();
    request->RequestType = REQUEST_TYPE_GET_CERTIFICATE;
    request->RawRequest = readObject(options.csr);
    checkRequest(request->RawRequest, options.csr);
    setHeaderName(request->RecipientGeneralName, readName(options.recipient, "--recipient"));
    planOutputs({options.reqout});
    bool fresh = options.key.container.empty();
    CallerWndProv dialogue;
    FreshKey client(fresh ? freshKey(options, dialogue) : openKey(options, dialogue));
    client.keep(!fresh);
    request->transactionID.resize(16);
    request->sender_nonce.resize(16);
    CryptGenRandom(client->ProviderHandle, 16, request->transactionID.data);
    CryptGenRandom(client->ProviderHandle, 16, request->sender_nonce.data);
    CACMPT_BLOB message;
    doing("put " + options.csr + " into a message",
          [&] { client->CertReqMessage_EncodeAndSign(request.get(), message); });
    writeFile(options.reqout, message.view());
    client.keep();
    Json result;
    result["request"] = options.reqout;
    result["container"] = client.container();
    result["fresh"] = fresh;
    printResult(context.json, result,
                "request: " + options.reqout + "\nsigned by the " +
                    (fresh ? "fresh key in " : "key in ") + result["container"].get<std::string>() +
                    "\n");
    return exitDone;
}

}  // namespace

void addP10(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* p10 = app.add_subcommand("p10", "Put a PKCS#10 request into a CMP message (p10cr)");
    p10->add_option("--csr", options->csr, "File of the PKCS#10 request, armoured or DER")
        ->required();
    p10->add_option("--recipient", options->recipient, "Name of the CA")->required();
    p10->add_option("--reqout", options->reqout, "File for the message, DER")->required();
    p10->add_option("--container", options->key.container,
                    "Container of the key that signs the message (a fresh key in a new one)");
    p10->add_option("--reader", options->key.reader,
                    "Reader of the container (VAULT, or DISK with --pin)");
    p10->add_option("--provider-type", options->key.providerType,
                    "Kind of key: 75 ECDSA P-256, 80 RSA-3072, 81 ECDSA P-384 (0: what the "
                    "container holds; 75 for a fresh key)");
    addPinOption(p10, options->key.pin);
    examples(p10,
             "  pkixcmp p10 --csr bob.csr --recipient 'CN=Trial Root, O=Trial' --reqout bob.req");
    onRun(p10, context, options, run);
}

}  // namespace tool
