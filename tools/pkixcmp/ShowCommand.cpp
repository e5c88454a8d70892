#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/pkixcmp/AsnTypes.h"
#include "tools/pkixcmp/Context.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Files.h"
#include "tools/pkixcmp/Output.h"
#include "tools/pkixcmp/XerJson.h"

namespace tool {
namespace {

struct Options {
    std::string type;
    std::string format = "xer";
    std::vector<std::string> files;
};

/// XER text with a line for each element that holds others. Text and the empty elements that begin
/// an element (<true/>, names of bits, control characters) stay in its line.
std::string indented(std::string_view xer) {
    std::string out;
    std::size_t depth = 0;
    bool inLine = true;
    auto line = [&] { out.append("\n").append(2 * depth, ' '); };
    while (!xer.empty()) {
        bool tag = xer[0] == '<';
        std::size_t end = xer.find(tag ? '>' : '<');
        std::string_view token = xer.substr(0, end == xer.npos || !tag ? end : end + 1);
        xer.remove_prefix(token.size());
        bool opens = tag && token[1] != '/' && !token.ends_with("/>");
        bool closes = tag && token[1] == '/';
        if (closes) --depth;
        if (opens ? depth > 0 : tag && !inLine) line();
        out += token;
        if (opens) ++depth;
        if (opens || closes) inLine = opens;
    }
    return out + "\n";
}

/// Shows objects one after the other; JSON is collected, since it is one value.
class Shower {
public:
    Shower(const Options& options, bool json)
        : format_(json ? "json" : options.format),
          type_(options.type.empty() ? nullptr : typeNamed(options.type)) {}

    void show(const std::string& file) {
        std::vector<Armoured> objects = readObjects(readFile(file), file);
        for (std::size_t i = 0; i < objects.size(); ++i) {
            std::string what = file;
            if (objects.size() > 1) what += ", object " + std::to_string(i + 1) + ",";
            one(objects[i], file, what);
        }
    }

    void finish() const {
        if (format_ == "json") printResult(true, list_, "");
    }

private:
    static const AsnType* typeNamed(const std::string& name) {
        if (const AsnType* type = findAsnType(name)) return type;
        std::string known;
        for (const AsnType& type : asnTypes()) known += std::string(" ") + type.name();
        throw UsageError("--as knows no type '" + name + "'; it knows" + known);
    }

    void one(const Armoured& armoured, const std::string& file, const std::string& what) {
        AsnObject object = type_ != nullptr ? decodeAs(armoured.der, *type_, what)
                                            : decodeAny(armoured.der, armoured.label, what);
        if (format_ == "der") {
            printBytes(object.der());
        } else if (format_ == "pem") {
            printBytes(armour(object.der(), labelOf(*object.type)));
        } else if (format_ == "json") {
            Json entry;
            entry["file"] = file;
            entry["type"] = object.type->name();
            entry["value"] = jsonFromXer(object.xer()).front();
            list_.push_back(std::move(entry));
        } else {
            printBytes(indented(object.xer()));
        }
    }

    const std::string format_;
    const AsnType* type_;
    Json list_ = Json::array();
};

int run(Options& options, Context& context) {
    Shower shower(options, context.json);
    for (const std::string& file : options.files) shower.show(file);
    shower.finish();
    return exitDone;
}

}  // namespace

void addShow(CLI::App& app, Context& context) {
    auto options = std::make_shared<Options>();
    CLI::App* show = app.add_subcommand(
        "show", "Show messages, certificates, CRLs, requests and parts of them, armoured or DER");
    show->add_option("files", options->files, "Files; - is standard input")->required();
    show->add_option("--as", options->type,
                     "Type of the objects, such as Certificate or GeneralNames (found by itself)");
    show->add_option(
            "--format", options->format,
            "xer: XML of the ASN.1 value; json: the same as an array of objects; der, pem: "
            "encoded anew")
        ->check(CLI::IsMember({"xer", "json", "der", "pem"}));
    examples(show,
             "  pkixcmp show root.pem answer.der\n"
             "  pkixcmp show --format json bundle.pem\n"
             "  pkixcmp show --format der request.pem > request.der\n"
             "  pkixcmp show --as GeneralNames names.der");
    onRun(show, context, options, run);
}

}  // namespace tool
