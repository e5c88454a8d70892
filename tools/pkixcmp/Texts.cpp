#include "tools/pkixcmp/Texts.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <limits>

#include "capilite/CAException.h"
#include "capilite/Name.h"
#include "platform/support/Text.h"
#include "tools/pkixcmp/Failure.h"

namespace tool {
namespace {

using asn1data::ASN1T_GeneralName;

std::uint64_t secondsIn(char unit) {
    switch (unit) {
        case 's':
            return 1;
        case 'm':
            return 60;
        case 'h':
            return 3600;
        case 'd':
            return 86400;
        case 'w':
            return 7 * 86400;
        case 'y':
            return 365 * 86400;
        default:
            return 0;
    }
}

/// An address of 4 or 16 octets in the context.
ASN1TDynOctStr readAddress(ASN1CTXT* ctxt, const std::string& text) {
    unsigned char octets[16];
    std::size_t length = 0;
    if (inet_pton(AF_INET, text.c_str(), octets) == 1) {
        length = 4;
    } else if (inet_pton(AF_INET6, text.c_str(), octets) == 1) {
        length = 16;
    } else {
        throw UsageError("--san ip:" + text + " is no IP address");
    }
    return {static_cast<std::uint32_t>(length), rtCopyBytes(ctxt, octets, length)};
}

ASN1TString readAscii(const std::string& value, const std::string& text) {
    bool ascii =
        std::all_of(value.begin(), value.end(), [](char c) { return c > 0x20 && c < 0x7F; });
    if (value.empty() || !ascii) {
        throw UsageError("--san " + text +
                         " must be ASCII without blanks; write other letters in their encoded "
                         "form (punycode, percent)");
    }
    return ASN1TString(value);
}

/// `value` keeps the text that the name refers to.
void readGeneralName(ASN1CTXT* ctxt, const std::string& text, std::string& value,
                     ASN1T_GeneralName& out) {
    std::size_t colon = text.find(':');
    std::string kind = text.substr(0, colon);
    value = colon == std::string::npos ? "" : text.substr(colon + 1);
    if (kind == "dns") {
        out.t = ASN1T_GeneralName::T_dNSName;
        out.u.dNSName = readAscii(value, text);
    } else if (kind == "email") {
        out.t = ASN1T_GeneralName::T_rfc822Name;
        out.u.rfc822Name = readAscii(value, text);
    } else if (kind == "uri") {
        out.t = ASN1T_GeneralName::T_uniformResourceIdentifier;
        out.u.uniformResourceIdentifier = readAscii(value, text);
    } else if (kind == "ip") {
        out.t = ASN1T_GeneralName::T_iPAddress;
        out.u.iPAddress = readAddress(ctxt, value);
    } else {
        throw UsageError("--san takes dns:NAME, email:ADDR, uri:URI or ip:ADDR, not '" + text +
                         "'");
    }
}

}  // namespace

CACMPT_Period readPeriod(const std::string& text, const char* option) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    auto [stop, code] = std::from_chars(text.data(), end, number);
    std::uint64_t unit = stop + 1 == end ? secondsIn(*stop) : 0;
    if (code != std::errc{} || unit == 0 || number == 0 ||
        number > std::numeric_limits<std::uint32_t>::max() / unit) {
        throw UsageError(std::string(option) +
                         " takes a number and a unit of s, m, h, d, w or y, "
                         "as in 30d, not '" +
                         text + "'");
    }
    return CACMPT_Period(static_cast<unsigned int>(number * unit), 0);
}

CACMPT_Date readDate(const std::string& text, const char* option) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, used = 0;
    int size = static_cast<int>(text.size());
    bool read =
        (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ%n", &y, &mo, &d, &h, &mi, &s, &used) ==
             6 &&
         used == size) ||
        (std::sscanf(text.c_str(), "%4d%2d%2d%2d%2d%2dZ%n", &y, &mo, &d, &h, &mi, &s, &used) == 6 &&
         used == size);
    try {
        if (read) {
            _SYSTEMTIME time{};
            time.wYear = static_cast<std::uint16_t>(y);
            time.wMonth = static_cast<std::uint16_t>(mo);
            time.wDay = static_cast<std::uint16_t>(d);
            time.wHour = static_cast<std::uint16_t>(h);
            time.wMinute = static_cast<std::uint16_t>(mi);
            time.wSecond = static_cast<std::uint16_t>(s);
            return CACMPT_Date(time);
        }
    } catch (const date_exception&) {  // a day that the calendar lacks: told below
    }
    throw UsageError(std::string(option) +
                     " takes a time like 2026-11-21T10:00:00Z or 20261121100000Z, not '" + text +
                     "'");
}

std::string dateText(const CACMPT_Date& date) {
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", date.year(), date.month(),
                  date.day(), date.hour(), date.minute(), date.second());
    return text;
}

CACMPT_PARSED_RDN readName(const std::string& text, const char* option) {
    std::wstring wide = wideFromUtf8(text);
    CACMPT_Name name;
    unsigned long at = 0;
    try {
        name.fromString(wide, 0, &at);
    } catch (const std::exception& failure) {
        throw UsageError(std::string(option) + " '" + text + "': " + meaningOf(failure));
    }
    if (at < wide.size()) {
        throw UsageError(std::string(option) + " '" + text + "': cannot be read from '" +
                         utf8FromWide(wide.substr(at)) + "' on");
    }
    if (name.empty()) throw UsageError(std::string(option) + " must not be empty");
    CACMPT_PARSED_RDN out;
    out.assign(wide);
    return out;
}

void checkPath(const std::string& path, const char* option) {
    if (path.size() < 2 || path.front() != '\\' || path.back() == '\\') {
        throw UsageError(std::string(option) + " takes a path like '\\local\\ca', not '" + path +
                         "'");
    }
}

std::string nameText(const CACMPT_PARSED_RDN& name) { return utf8FromWide(name.tostring(3)); }

void setHeaderName(wchar_t (&target)[PKIXCMP_NAME_CHARS], const CACMPT_PARSED_RDN& name) {
    std::wstring text = L"dn:" + name.tostring(3);
    if (text.size() >= PKIXCMP_NAME_CHARS) {
        throw Failure("a name is too long for a message: " + std::to_string(text.size()) +
                      " characters");
    }
    std::copy(text.begin(), text.end(), target);
    target[text.size()] = 0;
}

CACMPT_Extension subjectAltName(const std::vector<std::string>& names) {
    ASN1CtxtRef ctxt;
    std::vector<std::string> values(names.size());
    asn1data::ASN1T_SubjectAltName list;
    for (std::size_t i = 0; i < names.size(); ++i) {
        readGeneralName(ctxt.get(), names[i], values[i], *list.append(ctxt.get()));
    }
    return CACMPT_Extension(CACMPT_ExtValue(asn1data::id_ce_subjectAltName, &list), false);
}

CACMPT_Extension keyUsage(const std::vector<std::string>& names) {
    std::string text = "<KeyUsage>";
    for (const std::string& name : names) {
        if (std::find(std::begin(KeyUsageNames), std::end(KeyUsageNames), name) ==
            std::end(KeyUsageNames)) {
            std::string known;
            for (const char* other : KeyUsageNames) known += std::string(" ") + other;
            throw UsageError("--key-usage knows" + known + ", not '" + name + "'");
        }
        text += "<" + name + "/>";
    }
    return CACMPT_Extension("2.5.29.15", text + "</KeyUsage>", true);
}

FreeText freeText(const std::string& text) {
    FreeText out;
    if (!text.empty()) out.emplace_back(wideFromUtf8(text), Encoding::DEFAULT_READ);
    return out;
}

std::string freeTextOf(const FreeText& text) {
    std::string out;
    for (const FreeTextItem& item : text) {
        if (!out.empty()) out += "; ";
        out += utf8FromWide(item.text);
    }
    return printable(out);
}

std::string hex(const unsigned char* bytes, std::size_t length) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

std::string printable(const std::string& text) {
    std::wstring wide = wideFromUtf8(text);
    for (wchar_t& c : wide) {
        if (c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0xFFFD) c = L'?';
    }
    return utf8FromWide(wide);
}

}  // namespace tool
