#pragma once

#include <string_view>

#include "platform/asn1/BasicTypes.h"
#include "platform/asn1/Context.h"

// The XML text of extensions that is read by hand. Internal to the library.

namespace pkixcmp_detail {

/// Reads XML text from the front: tags without attributes, no comments, no entities. An operation
/// that gives false leaves the cursor where it was. Views point into the text.
class XmlCursor {
public:
    explicit XmlCursor(std::string_view text) : rest_(text) {}
    /// What stands between "<" and ">"; blanks and line feeds around the tag are skipped.
    bool tag(std::string_view& inner);
    /// The name of an end tag.
    bool endTag(std::string_view& name);
    /// The name of an empty tag.
    bool emptyTag(std::string_view& name);
    /// Everything up to the next "<" or the end.
    std::string_view text();
    std::string_view rest() const { return rest_; }
    bool atEnd() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

/// Without white space at both ends.
std::string_view stripped(std::string_view text);

/// An extension whose text is read here and not by the ASN.1 runtime. `read` makes the decoded
/// value in the context, null for no value, and gives false for text that is not the extension's.
struct ExtensionTextForm {
    ASN1TObjId id;
    const char* failure;
    bool (*read)(ASN1CTXT* context, XmlCursor& text, void*& value);
};
/// The form of an identifier, or null.
const ExtensionTextForm* findExtensionTextForm(const ASN1TObjId& id);

}  // namespace pkixcmp_detail
