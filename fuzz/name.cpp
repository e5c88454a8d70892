#include "capilite/Name.h"

#include <cstring>

#include "capilite/CertName.h"
#include "capilite/ParsedRdn.h"
#include "fuzz/Fuzz.h"
#include "platform/support/Text.h"

// Names from text and from DER. The first five octets choose: four of flags, one whether the rest
// is text or an encoding.

namespace {

/// Whether the text of the name reads back: a value in quotes keeps its backslashes, a bare one
/// loses them, and types without a name are written without one.
bool readsBack(const std::wstring& input, const std::wstring& output) {
    return input.find(L'\\') == input.npos && output.find(L'#') == output.npos &&
           !output.starts_with(L"=") && output.find(L" =") == output.npos;
}

void readText(const std::wstring& text, unsigned int flags) {
    CACMPT_Name name;
    unsigned long position = 0;
    if (!accepted([&] { name.fromString(text, flags, &position); })) {
        require(position <= text.size());
        return;
    }
    CACMPT_BLOB der;
    if (!accepted([&] { der = name.encode(); })) return;  // a dotted type may be no identifier
    CACMPT_Name decoded;
    decoded.decode(der);
    require(decoded.encode() == der);
    std::wstring written;
    if (!accepted([&] { written = name.toString(0); })) return;
    if (readsBack(text, written)) require(CACMPT_Name(written, 0).encode() == der);
}

void readDer(const CACMPT_BLOB& der, unsigned int flags) {
    CACMPT_Name name;
    const CACMPT_PARSED_RDN parsed(der);
    const CACMPT_CERT_NAME certName(der);
    CACMPT_PARSED_RDN_OLD old;
    bool decoded = accepted([&] { name.decode(der); });
    accepted([&] { parsed.parse(old); });
    bool normalised = accepted([&] { certName.fill_norm(); });
    require(!normalised || decoded);
    if (normalised) require(CACMPT_CERT_NAME(*certName.norm).fill_norm() == *certName.norm);
    if (!decoded) return;
    accepted([&] { name.toString(flags); });
    CACMPT_Name again;
    if (accepted([&] { again.decode(name.encode()); })) require(again.encode() == name.encode());
    accepted([&] { CACMPT_PARSED_RDN().assign(old); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 5) return 0;
    unsigned int flags = 0;
    std::memcpy(&flags, data, sizeof flags);
    const bool asText = (data[4] & 1) != 0;
    data += 5;
    size -= 5;
    if (asText) {
        readText(wideFromUtf8({reinterpret_cast<const char*>(data), size}), flags);
    } else {
        readDer(CACMPT_BLOB(data, size), flags);
    }
    return 0;
}
