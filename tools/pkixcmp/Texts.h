#pragma once

#include <string>
#include <vector>

#include "capilite/Date.h"
#include "capilite/ParsedRdn.h"
#include "pkixcmp/Messages.h"

// Between the texts of the command line and the values of the library. Texts are UTF-8; one that
// cannot be read is a UsageError.

namespace tool {

/// "30d", "12h", "2w", "1y": a whole number and a unit of s, m (minutes), h, d, w or y.
CACMPT_Period readPeriod(const std::string& text, const char* option);
/// "2026-11-21T10:00:00Z" or "20261121100000Z", UTC.
CACMPT_Date readDate(const std::string& text, const char* option);
/// "2026-11-21T10:00:00Z".
std::string dateText(const CACMPT_Date& date);

/// "CN=Alice, O=Trial" as the DER of a name. An empty name is refused, and so is a text of which
/// only the front was read.
CACMPT_PARSED_RDN readName(const std::string& text, const char* option);
std::string nameText(const CACMPT_PARSED_RDN& name);
/// A UsageError unless the text has the form of a path of the configuration tree.
void checkPath(const std::string& path, const char* option);
/// Fills a name of a message's header with "dn:" and the name.
void setHeaderName(wchar_t (&target)[PKIXCMP_NAME_CHARS], const CACMPT_PARSED_RDN& name);

/// subjectAltName of texts "dns:NAME", "email:ADDR", "uri:URI", "ip:ADDR".
CACMPT_Extension subjectAltName(const std::vector<std::string>& names);
/// keyUsage, critical, of the names of RFC 5280 4.2.1.3.
CACMPT_Extension keyUsage(const std::vector<std::string>& names);

/// One element without a language, none for empty text.
FreeText freeText(const std::string& text);
/// The elements joined by "; ".
std::string freeTextOf(const FreeText& text);

/// Lower-case hexadecimal.
std::string hex(const unsigned char* bytes, std::size_t length);
/// Text of anyone's for a line of ours: control characters and bytes that are no UTF-8 become "?".
std::string printable(const std::string& text);

}  // namespace tool
