#include "capilite/Oid.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "capilite/Ascii.h"
#include "capilite/CAException.h"
#include "platform/asn1/ObjectIdentifier.h"
#include "platform/asn1/Runtime.h"

namespace {

constexpr std::size_t TEXT_SIZE = 512;

const char* skipSpace(const char* p) {
    while (capilite::isAsciiSpace(*p)) ++p;
    return p;
}

/// Adds the number at `p` as an arc and moves behind it. False for one that does not fit.
bool readArc(const char*& p, ASN1OBJID& oid) {
    char* end = nullptr;
    errno = 0;
    unsigned long arc = std::strtoul(p, &end, 0);
    if (errno == ERANGE || arc > 0xFFFFFFFF || oid.numids == ASN1_K_MAXSUBIDS) return false;
    oid.subid[oid.numids++] = static_cast<std::uint32_t>(arc);
    p = end;
    return true;
}

/// Whether an arc of more than one digit starts with a zero.
bool hasOctalArc(std::string_view text) {
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        const bool starts = i == 0 || text[i - 1] == '.';
        if (starts && text[i] == '0' && text[i + 1] != '.') return true;
    }
    return false;
}

template <class Oid>
int toText(std::string& text, const Oid& oid) {
    char buffer[TEXT_SIZE];
    if (rtOidToStr(oid, buffer, sizeof buffer) < 0) return 0;
    text = buffer;
    return 1;
}

}  // namespace

bool str2oid(const char* text, ASN1OBJID* oid) {
    constexpr bool failed = true;
    if (text == nullptr || oid == nullptr) return failed;
    oid->numids = 0;
    if (!readArc(text, *oid)) return failed;
    for (text = skipSpace(text); *text == '.'; text = skipSpace(text)) {
        if (!readArc(++text, *oid)) return failed;
    }
    return *text != '\0' ? failed : !failed;
}

bool str2oid(ASN1CTXT* context, const char* text, ASN1TObjId* oid) {
    constexpr bool failed = true;
    ASN1OBJID arcs;
    if (!str2oid(text, &arcs)) return rtSetOID(context, oid, &arcs) < 0;
    std::string octets;  // of an identifier with arcs that `ASN1OBJID` has no room for
    if (text == nullptr || hasOctalArc(text) || !asn1::oidFromText(text, octets)) {
        context->setError(ASN_E_INVVAL, "text is no object identifier", 0);
        return failed;
    }
    const std::uint8_t* copy = rtCopyBytes(context, octets.data(), octets.size());
    if (copy == nullptr) return failed;
    *oid = ASN1TObjId(static_cast<std::uint32_t>(octets.size()), copy);
    return !failed;
}

ASN1OBJID str2oid(const char* text) {
    ASN1OBJID oid;
    if (str2oid(text, &oid)) PKIXCMP_THROW(CAException, "Can't convert str to oid.");
    return oid;
}

int oid2str(std::string& text, const ASN1OBJID* oid) { return oid ? toText(text, oid) : 0; }

int oid2str(std::string& text, const ASN1TObjId& oid) { return toText(text, oid); }
