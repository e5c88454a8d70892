#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include "config/Ini.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

struct Options {
    std::string path, value, type = "string";
};

constexpr const char* typeNames[] = {"key",  "string", "long",        "long long",
                                     "bool", "binary", "multi-string"};

std::string typeName(int type) {
    bool known = type >= 0 && type < static_cast<int>(std::size(typeNames));
    return known ? typeNames[type] : "type " + std::to_string(type);
}

[[noreturn]] void badPath(const std::string& path) {
    throw UsageError("a path looks like '\\local\\ca\\caname', not '" + path + "'");
}

/// A path in two: the key and the name of the value in it.
struct Place {
    explicit Place(const std::string& path) {
        std::size_t slash = path.rfind('\\');
        if (path.empty() || path[0] != '\\' || slash == 0 || slash + 1 == path.size()) {
            badPath(path);
        }
        key = path.substr(0, slash);
        name = path.substr(slash + 1);
    }
    std::string key, name;
};

std::string valueText(const IniValue& value) {
    switch (value.get_type()) {
        case SUPPORT_REGISTRY_STRING:
            return value.get_string();
        case SUPPORT_REGISTRY_LONG:
            return std::to_string(value.get_long());
        case SUPPORT_REGISTRY_LONG_LONG:
            return std::to_string(value.get_long_long());
        case SUPPORT_REGISTRY_BOOL:
            return value.get_bool() ? "true" : "false";
        case SUPPORT_REGISTRY_HEX: {
            CACMPT_BLOB bytes = value.get_binary();
            return hex(bytes.data, bytes.size);
        }
        case SUPPORT_REGISTRY_MULTI_STRING: {
            std::string text;
            multi_sz lines = value.get_multi_sz();
            for (const char* line : lines) text += (text.empty() ? "" : "\n") + std::string(line);
            return text;
        }
        default:
            return {};
    }
}

Json valueJson(const std::string& path, const IniValue& value) {
    Json json;
    json["path"] = path;
    json["type"] = typeName(value.get_type());
    switch (value.get_type()) {
        case SUPPORT_REGISTRY_KEY:
            break;
        case SUPPORT_REGISTRY_LONG:
            json["value"] = value.get_long();
            break;
        case SUPPORT_REGISTRY_LONG_LONG:
            json["value"] = value.get_long_long();
            break;
        case SUPPORT_REGISTRY_BOOL:
            json["value"] = value.get_bool();
            break;
        default:
            json["value"] = valueText(value);
    }
    return json;
}

int get(Options& options, Context& context) {
    Place place(options.path);
    IniValue value;
    if (!Ini(place.key).find(place.name.c_str(), value)) {
        throw Failure("there is no value " + options.path + "; see \"pkixcmp config ls '" +
                      place.key + "'\"");
    }
    printResult(context.json, valueJson(options.path, value), valueText(value) + "\n");
    return exitDone;
}

template <class Number>
Number readNumber(const std::string& text, const std::string& type) {
    bool hexadecimal = text.find("0x") <= 1;  // a leading zero alone is no octal number
    std::size_t used = 0;
    try {
        long long number = std::stoll(text, &used, hexadecimal ? 16 : 10);
        if (used == text.size()) return static_cast<Number>(number);
    } catch (const std::exception&) {  // told below
    }
    throw UsageError("'" + text + "' is no " + type);
}

CACMPT_BLOB readHex(const std::string& text) {
    CACMPT_BLOB bytes;
    bytes.readFromHexString(text.c_str());
    if (bytes.size * 2 != text.size()) throw UsageError("'" + text + "' is no hexadecimal text");
    return bytes;
}

int set(Options& options, Context& context) {
    Place place(options.path);
    Ini key(place.key);
    const char* name = place.name.c_str();
    doing("set " + options.path, [&] {
        if (options.type == "long") {
            key.insert(name, readNumber<long>(options.value, "number"));
        } else if (options.type == "long long") {
            key.insert(name, readNumber<long long>(options.value, "number"));
        } else if (options.type == "bool") {
            if (options.value != "true" && options.value != "false") {
                throw UsageError("a bool is true or false");
            }
            key.insert(name, options.value == "true");
        } else if (options.type == "binary") {
            key.insert(name, readHex(options.value));
        } else {
            key.insert(name, options.value);
        }
    });
    printResult(context.json, Json{{"path", options.path}, {"result", "set"}}, "");
    return exitDone;
}

int ls(Options& options, Context& context) {
    if (options.path.empty() || options.path[0] != '\\') badPath(options.path);
    Ini key(options.path);
    Json list = Json::array();
    std::string text;
    for (auto at = key.begin(true); !at.isend(); ++at) {
        std::string path = key.path() + "\\" + at->param();
        list.push_back(valueJson(path, *at));
        std::string shown = printable(valueText(*at));
        if (at->get_type() == SUPPORT_REGISTRY_KEY) {
            text += at->param() + "\\\n";
        } else {
            text += at->param() + " (" + typeName(at->get_type()) + ") " + shown + "\n";
        }
    }
    printResult(context.json, list, text);
    return exitDone;
}

int rm(Options& options, Context& context) {
    Place place(options.path);
    int code = Ini(place.key).erase(place.name.c_str());
    if (code == SUPPORT_NOT_FOUND) {
        throw Failure("there is no value " + options.path + "; see \"pkixcmp config ls '" +
                      place.key + "'\"");
    }
    if (code != SUPPORT_OK) {
        doing("remove " + options.path, [code] { ini_throw::throw_code(code); });
    }
    printResult(context.json, Json{{"path", options.path}, {"result", "removed"}}, "");
    return exitDone;
}

}  // namespace

void addConfig(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* config =
        app.add_subcommand("config", "The configuration tree")->require_subcommand(1);
    CLI::App* getCommand = config->add_subcommand("get", "Print a value");
    getCommand->add_option("path", options->path, "Path of the value")->required();
    examples(getCommand, "  pkixcmp config get '\\local\\ca\\certnum'");
    onRun(getCommand, context, options, get);

    CLI::App* setCommand = config->add_subcommand("set", "Write a value");
    setCommand->add_option("path", options->path, "Path of the value")->required();
    setCommand->add_option("value", options->value, "The value; binary in hexadecimal")->required();
    setCommand->add_option("--type", options->type, "Its type")
        ->check(CLI::IsMember({"string", "long", "long long", "bool", "binary"}));
    examples(setCommand, "  pkixcmp config set '\\local\\ca\\cdp' http://ca.example/root.crl");
    onRun(setCommand, context, options, set);

    CLI::App* lsCommand = config->add_subcommand("ls", "List the values and keys below a key");
    lsCommand->add_option("path", options->path, "Path of the key")->required();
    examples(lsCommand, "  pkixcmp config ls '\\local' --json");
    onRun(lsCommand, context, options, ls);

    CLI::App* rmCommand = config->add_subcommand("rm", "Remove a value");
    rmCommand->add_option("path", options->path, "Path of the value")->required();
    examples(rmCommand, "  pkixcmp config rm '\\local\\ca\\cdp'");
    onRun(rmCommand, context, options, rm);
}

}  // namespace tool
