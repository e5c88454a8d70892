#include <algorithm>
#include <cctype>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "capilite/StoreFind.h"
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
    std::string store, file, serial, sha1;
    bool machine = false;
    bool all = false;
};

std::string derText(const CRYPT_DATA_BLOB& name) {
    CACMPT_PARSED_RDN parsed;
    static_cast<CACMPT_BLOB&>(parsed).assign(name.pbData, name.cbData);
    try {
        return nameText(parsed);
    } catch (const std::exception& failure) {
        return "(" + meaningOf(failure) + ")";
    }
}

/// The number as it is written everywhere here: "0x" and the digits of whole bytes.
std::string serialText(const CRYPT_DATA_BLOB& littleEndian) {
    std::vector<unsigned char> bytes(littleEndian.pbData,
                                     littleEndian.pbData + littleEndian.cbData);
    std::reverse(bytes.begin(), bytes.end());
    if (bytes.size() > 1 && bytes[0] == 0) bytes.erase(bytes.begin());
    bool top = !bytes.empty() && bytes[0] >= 0x80;
    return (top ? "0x0" : "0x") + hex(bytes.data(), bytes.size());
}

template <class Context_>
std::string sha1Of(const Context_* object) {
    unsigned char hash[20];
    DWORD length = sizeof hash;
    BOOL found = 0;
    if constexpr (std::is_same_v<Context_, CERT_CONTEXT>) {
        found = CertGetCertificateContextProperty(object, CERT_SHA1_HASH_PROP_ID, hash, &length);
    } else {
        found = CertGetCRLContextProperty(object, CERT_SHA1_HASH_PROP_ID, hash, &length);
    }
    return found ? hex(hash, length) : "";
}

Json describe(PCCERT_CONTEXT certificate) {
    const CERT_INFO& info = *certificate->pCertInfo;
    Json entry;
    entry["kind"] = "certificate";
    entry["subject"] = derText(info.Subject);
    entry["issuer"] = derText(info.Issuer);
    entry["serial"] = serialText(info.SerialNumber);
    entry["notAfter"] = dateText(info.NotAfter);
    entry["sha1"] = sha1Of(certificate);
    if (std::string container = containerOf(certificate); !container.empty()) {
        entry["container"] = container;
    }
    return entry;
}

Json describe(PCCRL_CONTEXT crl) {
    const CRL_INFO& info = *crl->pCrlInfo;
    Json entry;
    entry["kind"] = "crl";
    entry["issuer"] = derText(info.Issuer);
    entry["thisUpdate"] = dateText(info.ThisUpdate);
    entry["sha1"] = sha1Of(crl);
    return entry;
}

std::string textOf(const Json& entry) {
    std::string text;
    for (auto& [name, value] : entry.items()) {
        text += name + ": " + printable(value.get<std::string>()) + "\n";
    }
    return text + "\n";
}

[[noreturn]] void notOpened(const Options& options) {
    throw Failure("cannot open the store " + options.store + ": " + meaningOfCode(GetLastError()) +
                  "; see the stores with 'pkixcmp store ls'");
}

store_handle openStore(const Options& options, unsigned long flags) {
    store_handle store;
    if (!store.open(wideFromUtf8(options.store).c_str(), options.machine, flags)) {
        notOpened(options);
    }
    return store;
}

int listStores(const Options& options, Context& context) {
    Json list = Json::array();
    std::string text;
    DWORD side = options.machine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
    wchar_t name[1024];
    DWORD length = std::size(name);
    for (DWORD i = 0; CertEnumSystemStoreNames(side, i, name, &length); ++i) {
        std::string shown = utf8FromWide(name);
        list.push_back(shown);
        text += shown + "\n";
        length = std::size(name);
    }
    if (GetLastError() != ERROR_NO_MORE_ITEMS) {
        throw Failure("cannot list the stores: " + meaningOfCode(GetLastError()));
    }
    printResult(context.json, list, text);
    return exitDone;
}

int ls(Options& options, Context& context) {
    if (options.store.empty()) return listStores(options, context);
    Json list = Json::array();
    std::string text;
    auto add = [&](const Json& entry) {
        list.push_back(entry);
        text += textOf(entry);
    };
    store_handle store;
    bool present = store.open(wideFromUtf8(options.store).c_str(), options.machine,
                              CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY);
    if (!present && GetLastError() != ERROR_FILE_NOT_FOUND) notOpened(options);
    PCCERT_CONTEXT certificate = nullptr;
    while (present &&
           (certificate = CertEnumCertificatesInStore(store.get(), certificate)) != nullptr) {
        add(describe(certificate));
    }
    PCCRL_CONTEXT crl = nullptr;
    while (present && (crl = CertEnumCRLsInStore(store.get(), crl)) != nullptr) add(describe(crl));
    printResult(context.json, list, text);
    return exitDone;
}

void addObject(const Options& options, const Armoured& object) {
    std::wstring name = wideFromUtf8(options.store);
    CACMPT_BLOB der(object.der.data(), object.der.size());
    ASN1BERDecodeBuffer buffer(der.data, der.size);
    asn1data::ASN1T_CertificateList crl;
    bool isCrl = object.label == "X509 CRL" ||
                 (object.label.empty() &&
                  buffer.decode(Schema<asn1data::ASN1T_CertificateList>::type, &crl) == 0);
    doing("add " + options.file + " to the store " + options.store, [&] {
        if (isCrl) {
            PKIXCMP_Base::CrlStore_Add(name.c_str(), der, options.machine, true);
        } else {
            PKIXCMP_Base::CertStore_Add(name.c_str(), der, options.machine);
        }
    });
}

int add(Options& options, Context& context) {
    std::vector<Armoured> objects = readObjects(readFile(options.file), options.file);
    for (const Armoured& object : objects) addObject(options, object);
    printResult(context.json,
                Json{{"store", options.store}, {"result", "added"}, {"count", objects.size()}},
                "added to " + options.store + ": " + std::to_string(objects.size()) + "\n");
    return exitDone;
}

/// Whether --serial, --sha1 or --all means this one.
bool meant(const Options& options, const Json& entry) {
    return options.all || (!options.sha1.empty() && entry["sha1"] == options.sha1) ||
           (!options.serial.empty() && entry.value("serial", "") == options.serial);
}

/// The user's view of a store shows the machine's objects too: only those of the side that is
/// written to can go.
int removeCertificates(const Options& options, void* store) {
    int removed = 0;
    std::vector<PCCERT_CONTEXT> found;
    PCCERT_CONTEXT at = nullptr;
    while ((at = CertEnumCertificatesInStore(store, at)) != nullptr) {
        if (meant(options, describe(at))) found.push_back(CertDuplicateCertificateContext(at));
    }
    for (PCCERT_CONTEXT certificate : found) {
        if (CertDeleteCertificateFromStore(certificate)) ++removed;
    }
    return removed;
}

int removeCrls(const Options& options, void* store) {
    int removed = 0;
    std::vector<PCCRL_CONTEXT> found;
    PCCRL_CONTEXT at = nullptr;
    while ((at = CertEnumCRLsInStore(store, at)) != nullptr) {
        if (meant(options, describe(at))) found.push_back(CertDuplicateCRLContext(at));
    }
    for (PCCRL_CONTEXT crl : found) {
        if (CertDeleteCRLFromStore(crl)) ++removed;
    }
    return removed;
}

int rm(Options& options, Context& context) {
    if (options.all + !options.serial.empty() + !options.sha1.empty() != 1) {
        throw UsageError("name what goes by one of --serial, --sha1 or --all");
    }
    for (std::string* text : {&options.serial, &options.sha1}) {
        std::transform(text->begin(), text->end(), text->begin(),
                       [](unsigned char c) { return c == ':' ? ' ' : std::tolower(c); });
        std::erase(*text, ' ');
    }
    store_handle store = openStore(options, CERT_STORE_OPEN_EXISTING);
    int removed = removeCertificates(options, store.get()) + removeCrls(options, store.get());
    if (removed == 0 && !options.all) {
        throw Failure("the store " + options.store + " has no such object" +
                      (options.machine ? "" : "; the machine's go with --machine"));
    }
    printResult(context.json,
                Json{{"store", options.store}, {"result", "removed"}, {"count", removed}},
                "removed from " + options.store + ": " + std::to_string(removed) + "\n");
    return exitDone;
}

}  // namespace

void addStore(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* store =
        app.add_subcommand("store", "Certificate and CRL stores")->require_subcommand(1);
    CLI::App* lsCommand = store->add_subcommand("ls", "List a store, or the stores there are");
    lsCommand->add_option("store", options->store, "Name of the store: My, Root, CA, Request, …");
    CLI::App* addCommand = store->add_subcommand("add", "Add certificates and CRLs of a file");
    addCommand->add_option("store", options->store, "Name of the store")->required();
    addCommand->add_option("file", options->file, "Armoured or DER")->required();
    CLI::App* rmCommand = store->add_subcommand("rm", "Remove certificates and CRLs");
    rmCommand->add_option("store", options->store, "Name of the store")->required();
    rmCommand->add_option("--serial", options->serial, "Serial number, as 'store ls' prints it");
    rmCommand->add_option("--sha1", options->sha1, "SHA-1 of the object");
    rmCommand->add_flag("--all", options->all, "Everything");
    for (CLI::App* command : {lsCommand, addCommand, rmCommand}) {
        command->add_flag("--machine", options->machine, "The machine's side and not the user's");
    }
    examples(lsCommand, "  pkixcmp store ls My --json");
    examples(addCommand, "  pkixcmp store add CA intermediate.pem");
    examples(rmCommand, "  pkixcmp store rm Request --all");
    onRun(lsCommand, context, options, ls);
    onRun(addCommand, context, options, add);
    onRun(rmCommand, context, options, rm);
}

}  // namespace tool
