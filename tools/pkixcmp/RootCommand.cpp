#include <algorithm>
#include <memory>
#include <string>

#include "platform/support/Text.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/Keys.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

struct Options {
    std::string ca, subject, name, notBefore, cdp, certout;
    std::string valid = "3650d";
    std::string crlPeriod = "7d";
    bool replace = false;
    KeyOptions key;
};

/// The library writes the end of a root's validity in two digits of the year, which reach to 2049.
void checkEnd(const CACMPT_Date& notBefore, const CACMPT_Period& validity) {
    CACMPT_Date begin = notBefore == CACMPT_Date() ? CACMPT_Date::Now() : notBefore;
    if ((begin + validity).year() >= 2050) {
        throw UsageError("--valid: a root must end before 2050");
    }
}

void checkAbsent(const Options& options) {
    IniValue present;
    if (!options.replace && Ini(options.ca).find("cert", present)) {
        throw Failure("there is a CA at " + options.ca +
                      " already; take another path, or --replace to start it anew");
    }
}

CACMPT_Extensions rootExtensions() {
    CACMPT_Extensions extensions;
    extensions.Insert(keyUsage({"keyCertSign", "cRLSign"}));
    return extensions;
}

/// The URL of a distribution point is an ASCII text (RFC 5280 4.2.1.6). The library puts it into
/// XML text as it stands.
std::string xmlUrl(const std::string& cdp) {
    if (!std::all_of(cdp.begin(), cdp.end(), [](char c) { return c > 0x20 && c < 0x7F; })) {
        throw UsageError("--cdp must be ASCII without blanks; write other letters percent-encoded");
    }
    std::string text;
    for (char c : cdp) text += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
    return text;
}

/// A root goes into the machine's store too, which is not everybody's to write.
void checkMachineStore() {
    store_handle store;
    if (!store.open(L"Root", true, 0)) {
        throw Failure("cannot open the machine's store Root: " + meaningOfCode(GetLastError()));
    }
}

/// A name for the container, so that one left behind by a failure can be found and removed. None
/// for a provider type that does not exist, which is told when the key is made.
std::string generateName(int providerType) {
    HCRYPTPROV provider = 0;
    char name[256] = {};
    if (CryptAcquireContextA(&provider, nullptr, nullptr, static_cast<DWORD>(providerType),
                             CRYPT_VERIFYCONTEXT)) {
        prov_handle owner(provider);
        CACMP_GenContainerName(provider, name);
    }
    return name;
}

/// Whether "My" holds a certificate of the key in a container, or cannot be looked into.
bool mayBeInstalled(const std::string& container) {
    store_handle my;
    if (!my.open(L"My", false, CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY)) {
        return GetLastError() != ERROR_FILE_NOT_FOUND;
    }
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = CertEnumCertificatesInStore(my.get(), certificate)) != nullptr) {
        if (containerOf(certificate) != container) continue;
        CertFreeCertificateContext(certificate);
        return true;
    }
    return GetLastError() != CRYPT_E_NOT_FOUND;
}

/// Runs the making of a root; a key that it leaves when it fails goes again, unless its certificate
/// was installed already.
template <class Make>
auto removingLeft(const std::string& container, int providerType, Make make) -> decltype(make()) {
    try {
        return make();
    } catch (...) {
        HCRYPTPROV none = 0;
        if (!mayBeInstalled(container)) {
            CryptAcquireContextA(&none, container.c_str(), nullptr,
                                 static_cast<DWORD>(providerType), CRYPT_DELETEKEYSET);
        }
        throw;
    }
}

std::unique_ptr<PKIXCMP_Server> generate(Options& options) {
    checkPath(options.ca, "--ca");
    CACMPT_PARSED_RDN subject = readName(options.subject, "--subject");
    CACMPT_Period validity = readPeriod(options.valid, "--valid");
    CACMPT_Period crlPeriod = readPeriod(options.crlPeriod, "--crl-period");
    CACMPT_Date notBefore;
    if (!options.notBefore.empty()) notBefore = readDate(options.notBefore, "--not-before");
    std::string cdp = xmlUrl(options.cdp);
    checkEnd(notBefore, validity);
    checkAbsent(options);
    planOutputs({options.certout});
    checkMachineStore();
    bool generated = options.key.container.empty();
    if (generated) options.key.container = generateName(options.key.providerType);
    CallerWndProv dialogue;
    std::string container = planContainer(options.key, dialogue);
    std::wstring name = wideFromUtf8(options.name.empty() ? nameText(subject) : options.name);
    auto make = [&] {
        return std::unique_ptr<PKIXCMP_Server>(PKIXCMP_Server::GenerateRoot(
            options.ca.c_str(), subject.tostring(3).c_str(), rootExtensions(), name.c_str(), false,
            nullptr, options.key.providerType, container.c_str(), validity, notBefore, cdp.c_str(),
            crlPeriod, &dialogue));
    };
    // One with a name of the caller's may have been there before: it is never removed.
    return doing("make the root", [&] {
        return generated ? removingLeft(container, options.key.providerType, make) : make();
    });
}

int run(Options& options, Context& context) {
    std::unique_ptr<PKIXCMP_Server> ca = generate(options);
    if (!options.certout.empty()) {
        behind("the CA stands, its certificate is in store My",
               [&] { writeObject(options.certout, ca->Certificate, "CERTIFICATE"); });
    }
    CertificateInfo root;
    PKIXCMP_Base::Cert_Decode(ca->Certificate, &root);
    Json result;
    result["ca"] = options.ca;
    result["subject"] = nameText(root.Subject);
    result["serial"] = root.SerialNumber;
    result["notBefore"] = dateText(root.NotBefore);
    result["notAfter"] = dateText(root.NotAfter);
    result["container"] = get_unique(ca->ProviderHandle);
    if (!options.certout.empty()) result["file"] = options.certout;
    std::string text = "CA " + options.ca + ": " + nameText(root.Subject) + ", valid until " +
                       dateText(root.NotAfter) +
                       "\nkey container: " + result["container"].get<std::string>() + "\n";
    if (!options.certout.empty()) text += "certificate: " + options.certout + "\n";
    printResult(context.json, result, text);
    return exitDone;
}

}  // namespace

void addRoot(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* root = app.add_subcommand("root", "The root of a CA")->require_subcommand(1);
    CLI::App* make = root->add_subcommand("new", "Make a CA: key, root certificate, configuration");
    make->add_option("--ca", options->ca, "Path of the CA in the configuration tree")->required();
    make->add_option("--subject", options->subject, "Name of the CA in its certificate")
        ->required();
    make->add_option("--name", options->name, "Display name (the subject)");
    make->add_option("--valid", options->valid, "Validity of the root: 10y, 520w, 3650d");
    make->add_option("--not-before", options->notBefore,
                     "Begin of the validity, 2026-11-21T10:00:00Z (now)");
    addNewKeyOptions(make, options->key);
    make->add_option("--cdp", options->cdp, "URL of the CRL, for the certificates issued");
    make->add_option("--crl-period", options->crlPeriod, "Time from one CRL to the next");
    make->add_option("--certout", options->certout,
                     "File for the root certificate: armoured as .pem or .crt, else DER");
    make->add_flag("--replace", options->replace,
                   "Put the new CA in the place of one that is there");
    examples(make,
             "  pkixcmp root new --ca '\\local\\ca' --subject 'CN=Trial Root, O=Trial' "
             "--certout root.pem\n"
             "  pkixcmp root new --ca '\\local\\ca' --subject 'CN=Trial Root' --valid 10y "
             "--cdp http://ca.example/root.crl");
    onRun(make, context, options, run);
}

}  // namespace tool
