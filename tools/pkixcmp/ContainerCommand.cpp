#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Keys.h"
#include "tools/pkixcmp/Output.h"

namespace tool {
namespace {

struct Options {
    std::string name, pin, newPin;
    bool readers = false;
};

/// A provider type with a context that only lists.
struct Provider {
    DWORD type = 0;
    HCRYPTPROV handle = 0;
};

/// The strings of an enumeration, each with the code that came with it.
std::map<std::string, std::uint32_t> enumerate(HCRYPTPROV provider, DWORD parameter) {
    std::map<std::string, std::uint32_t> entries;
    DWORD longest = 0;
    if (!CryptGetProvParam(provider, parameter, nullptr, &longest, CRYPT_FIRST)) return entries;
    std::string room(longest, 0);
    for (DWORD flag = CRYPT_FIRST;; flag = CRYPT_NEXT) {
        DWORD length = longest;
        SetLastError(ERROR_SUCCESS);
        if (!CryptGetProvParam(provider, parameter, reinterpret_cast<BYTE*>(room.data()), &length,
                               flag)) {
            return entries;
        }
        entries[room.substr(0, length)] = GetLastError();
    }
}

template <class Use>
void forEachProvider(Use use) {
    DWORD type = 0, length = 256;
    char name[256];
    for (DWORD i = 0; CryptEnumProviderTypesA(i, nullptr, 0, &type, name, &length); ++i) {
        HCRYPTPROV handle = 0;
        if (CryptAcquireContextA(&handle, nullptr, nullptr, type, CRYPT_VERIFYCONTEXT)) {
            prov_handle owner(handle);
            use(Provider{type, handle});
        }
        length = sizeof name;
    }
}

Json describe(const std::string& name, DWORD type, bool whole) {
    Json entry;
    entry["container"] = name;
    if (!whole) {
        entry["state"] = "damaged";
        return entry;
    }
    Container container(name, static_cast<int>(type));
    PinInfoHead pin = container.pinInfo();
    unsigned int spec = container.keySpec();
    bool blocked = pin.kind == 0 && pin.tries == 0;
    entry["providerType"] = type;
    entry["protection"] = pin.kind == 0 ? "PIN" : "provider";
    if (pin.kind == 0) entry["tries"] = pin.tries;
    entry["state"] = blocked ? "blocked" : "whole";
    entry["key"] = spec == AT_SIGNATURE     ? "signature"
                   : spec == AT_KEYEXCHANGE ? "exchange"
                   : pin.kind == 0          ? "locked"  // not to be seen without the PIN
                                            : "none";
    bool locked = entry["key"] == "locked";
    entry["certificate"] =
        locked ? Json() : Json(spec != 0 && container.certificate(spec).size != 0);
    return entry;
}

std::string lineOf(const Json& entry) {
    std::string line = entry["container"].get<std::string>();
    if (!entry.contains("providerType")) return line + "  damaged\n";
    line += "  type " + std::to_string(entry["providerType"].get<int>());
    line += "  " + entry["protection"].get<std::string>();
    if (entry["state"] == "blocked") line += " (blocked)";
    line += "  key: " + entry["key"].get<std::string>();
    return line + (entry["certificate"] == true ? "  with certificate\n" : "\n");
}

int listReaders(Context& context) {
    Json list = Json::array();
    std::string text;
    HCRYPTPROV handle = 0;
    if (!CryptAcquireContextA(&handle, nullptr, nullptr, PROV_ECDSA_P256, CRYPT_VERIFYCONTEXT)) {
        throw Failure("cannot list the readers: " + meaningOfCode(GetLastError()));
    }
    prov_handle owner(handle);
    ReaderList readers;
    doing("list the readers", [&] { get_reader_list(handle, readers); });
    for (const auto& [shown, name] : readers) {
        list.push_back(Json{{"reader", name}, {"description", shown}});
        text += name + "  " + shown + "\n";
    }
    printResult(context.json, list, text);
    return exitDone;
}

int ls(Options& options, Context& context) {
    if (options.readers) return listReaders(context);
    std::map<std::string, Json> entries;  // a damaged container is listed by every type
    forEachProvider([&](const Provider& provider) {
        for (const auto& [padded, code] : enumerate(provider.handle, PP_ENUMCONTAINERS)) {
            std::string name = padded.c_str();
            try {
                Json entry = describe(name, provider.type, code == ERROR_SUCCESS);
                entries.emplace(name, entry);
            } catch (const CryptException&) {  // it was removed meanwhile, or cannot be opened
                entries.emplace(name, describe(name, provider.type, false));
            }
        }
    });
    Json list = Json::array();
    std::string text;
    for (const auto& [name, entry] : entries) {
        list.push_back(entry);
        text += lineOf(entry);
    }
    printResult(context.json, list, text);
    return exitDone;
}

int rm(Options& options, Context& context) {
    std::uint32_t code = NTE_BAD_KEYSET;
    forEachProvider([&](const Provider& provider) {
        HCRYPTPROV none = 0;
        if (code != NTE_BAD_KEYSET && code != NTE_BAD_PROV_TYPE) return;
        code = CryptAcquireContextA(&none, options.name.c_str(), nullptr, provider.type,
                                    CRYPT_DELETEKEYSET)
                   ? ERROR_SUCCESS
                   : GetLastError();
    });
    if (code != ERROR_SUCCESS) {
        throw Failure("cannot remove the container " + options.name + ": " + meaningOfCode(code));
    }
    printResult(context.json, Json{{"container", options.name}, {"result", "removed"}},
                "removed: " + options.name + "\n");
    return exitDone;
}

/// A container that the provider protects by itself gets a new secret of the provider's own.
void changeOwnProtection(const Container& container) {
    PinParam own;
    own.kind = 4;
    if (!CryptSetProvParam(container.handle(), PP_CHANGE_AUTH, reinterpret_cast<BYTE*>(&own), 0)) {
        throw Failure("cannot protect the container anew: " + meaningOfCode(GetLastError()));
    }
}

void changePin(Options& options, const Container& container) {
    CallerWndProv dialogue;
    container.readPin(options.pin, dialogue);
    dialogue.newPin = options.newPin.empty() ? askSecret("new PIN for " + container.name(), true)
                                             : readSecret(options.newPin);
    container.unlock(dialogue);
    doing("change the PIN",
          [&] { change_pin(dialogue, container.handle(), container.name().c_str(), 0, 0); });
}

int passwd(Options& options, Context& context) {
    Container container = openContainer(options.name, 0);
    bool takesPin = container.takesPin();
    if (!takesPin && (!options.pin.empty() || !options.newPin.empty())) {
        throw UsageError("the provider protects " + container.name() +
                         " by itself; it takes no PIN");
    }
    if (takesPin) {
        changePin(options, container);
    } else {
        changeOwnProtection(container);
    }
    printResult(context.json, Json{{"container", container.name()}, {"result", "changed"}},
                (takesPin ? "new PIN: " : "protected anew: ") + container.name() + "\n");
    return exitDone;
}

}  // namespace

void addContainer(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* container = app.add_subcommand("container", "Key containers")->require_subcommand(1);
    CLI::App* lsCommand = container->add_subcommand("ls", "List the containers, or the readers");
    lsCommand->add_flag("--readers", options->readers, "List the readers");
    examples(lsCommand, "  pkixcmp container ls --json");
    onRun(lsCommand, context, options, ls);

    CLI::App* rmCommand =
        container->add_subcommand("rm", "Remove a container with its keys; there is no way back");
    rmCommand->add_option("name", options->name, "Name of the container")->required();
    examples(rmCommand, "  pkixcmp container rm '\\\\.\\DISK\\alice'");
    onRun(rmCommand, context, options, rm);

    CLI::App* passwdCommand = container->add_subcommand(
        "passwd", "Change the PIN; what the provider protects by itself gets a new secret");
    passwdCommand->add_option("name", options->name, "Name of the container")->required();
    addPinOption(passwdCommand, options->pin);
    passwdCommand->add_option("--new-pin", options->newPin,
                              "The new PIN, given like --pin (asked on the terminal)");
    examples(passwdCommand,
             "  pkixcmp container passwd '\\\\.\\DISK\\alice' --pin file:old --new-pin file:new");
    onRun(passwdCommand, context, options, passwd);
}

}  // namespace tool
