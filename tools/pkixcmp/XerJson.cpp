#include "tools/pkixcmp/XerJson.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

constexpr std::array<std::string_view, 32> controlNames = {
    "nul", "soh", "stx", "etx", "eot", "enq", "ack", "bel", "bs",  "",    "",
    "vt",  "ff",  "",    "so",  "si",  "dle", "dc1", "dc2", "dc3", "dc4", "nak",
    "syn", "etb", "can", "em",  "sub", "esc", "is4", "is3", "is2", "is1"};

/// Elements whose items are a CHOICE: these stand in a list under their own names, as the fields of
/// a SEQUENCE do.
constexpr std::string_view choiceLists[] = {
    "GeneralNames", "SubjectAltName",      "IssuerAltName", "CertificateIssuer",
    "fullName",     "authorityCertIssuer", "cRLIssuer",     "PostalAddress"};

/// Elements that hold a value of any type, in an element of the type's name.
constexpr std::string_view openElements[] = {"ANY",        "extnValue", "infoValue",
                                             "parameters", "qualifier", "value"};

struct Element {
    std::string name;
    std::string text;
    std::vector<Element> children;
};

/// Reads what the ASN.1 layer writes: tags without attributes, no comments, three entities.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    Element document() {
        Element root = element(tag());
        if (!rest_.empty()) bad();
        return root;
    }

private:
    [[noreturn]] static void bad() { throw Failure("the XER text cannot be turned into JSON"); }

    std::string_view tag() {
        std::size_t end = rest_.find('>');
        if (rest_.empty() || rest_[0] != '<' || end == rest_.npos) bad();
        std::string_view name = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        return name;
    }

    Element element(std::string_view name) {
        Element out;
        if (name.ends_with('/')) {
            out.name = name.substr(0, name.size() - 1);
            return out;
        }
        out.name = name;
        for (;;) {
            text(out.text);
            std::string_view next = tag();
            if (next.starts_with('/')) {
                if (next.substr(1) != name) bad();
                return out;
            }
            Element child = element(next);
            auto control = std::find(controlNames.begin(), controlNames.end(), child.name);
            if (control != controlNames.end() && child.children.empty()) {
                out.text += static_cast<char>(control - controlNames.begin());
            } else {
                out.children.push_back(std::move(child));
            }
        }
    }

    void text(std::string& out) {
        while (!rest_.empty() && rest_[0] != '<') {
            if (rest_[0] != '&') {
                std::size_t end = std::min(rest_.find_first_of("<&"), rest_.size());
                out += rest_.substr(0, end);
                rest_.remove_prefix(end);
            } else {
                entity(out);
            }
        }
    }

    void entity(std::string& out) {
        static constexpr struct {
            std::string_view text;
            char character;
        } entities[] = {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&#13;", '\r'}};
        for (const auto& known : entities) {
            if (rest_.starts_with(known.text)) {
                out += known.character;
                return rest_.remove_prefix(known.text.size());
            }
        }
        bad();
    }

    std::string_view rest_;
};

template <std::size_t N>
bool isOneOf(const Element& element, const std::string_view (&names)[N]) {
    return std::find(std::begin(names), std::end(names), element.name) != std::end(names);
}

bool isEmpty(const Element& element) { return element.children.empty() && element.text.empty(); }

bool isBoolean(const Element& element) {
    return element.children.size() == 1 && isEmpty(element.children[0]) &&
           (element.children[0].name == "true" || element.children[0].name == "false");
}

bool isType(const std::string& name) { return name[0] >= 'A' && name[0] <= 'Z'; }

/// Fields begin with a small letter; the items of a list bear the name of their type.
bool isList(const Element& element) {
    return isType(element.children[0].name) && element.children[0].name != "NULL";
}

bool isNamed(const Element& element) {
    return std::all_of(element.children.begin(), element.children.end(),
                       [](const Element& child) { return isEmpty(child) && !isType(child.name); });
}

Json valueOf(const Element& element);

Json namesOf(const Element& element) {
    Json names = Json::array();
    for (const Element& child : element.children) names.push_back(child.name);
    return names;
}

Json itemsOf(const Element& element) {
    Json items = Json::array();
    for (const Element& child : element.children) items.push_back(valueOf(child));
    return items;
}

Json choicesOf(const Element& element) {
    Json items = Json::array();
    for (const Element& child : element.children) items.push_back({{child.name, valueOf(child)}});
    return items;
}

Json fieldsOf(const Element& element) {
    Json fields = Json::object();
    for (const Element& child : element.children) fields[child.name] = valueOf(child);
    return fields;
}

Json valueOf(const Element& element) {
    if (element.children.empty()) return element.text;
    if (isBoolean(element)) return element.children[0].name == "true";
    if (isOneOf(element, choiceLists)) return choicesOf(element);
    if (isOneOf(element, openElements)) return fieldsOf(element);
    if (isNamed(element)) return namesOf(element);
    return isList(element) ? itemsOf(element) : fieldsOf(element);
}

}  // namespace

Json jsonFromXer(std::string_view xer) {
    Element root = Reader(xer).document();
    return Json{{root.name, valueOf(root)}};
}

}  // namespace tool
