#include <string_view>

#include "fuzz/Fuzz.h"
#include "platform/crypt/ContainerHeader.h"
#include "platform/crypt/KeyPair.h"

// Public keys, the keys of certificates, and the headers of key containers. The first octet
// chooses.

namespace {

using provider::Bytes;
using provider::PublicKey;

void readHeader(Bytes data) {
    const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
    const std::string written = provider::ContainerHeader::parse(text).text();
    require(provider::ContainerHeader::parse(written).text() == written);
}

/// A key that is taken is the same key when it comes in its parts, and accepts no signature of
/// junk.
void readKey(Bytes spki) {
    const auto key = PublicKey::import(spki);
    const auto again =
        PublicKey::import(provider::KeyParts{key->algorithm().oid, key->parameters(), key->bits()});
    require(key->matches(*again));
    const auto* hash = provider::findAlgorithm(CALG_SHA_256);
    require(!key->verify(*hash, std::vector<BYTE>(32, 1), spki));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const Bytes rest(data + 1, size - 1);
    try {
        switch (data[0] % 3) {
            case 0:
                readKey(rest);
                break;
            case 1:
                readKey(provider::publicKeyOfCertificate(rest));
                break;
            default:
                readHeader(rest);
        }
    } catch (const provider::Failure& failure) {
        require(failure.code == NTE_BAD_KEY || failure.code == NTE_BAD_ALGID ||
                failure.code == NTE_BAD_DATA || failure.code == NTE_KEYSET_ENTRY_BAD);
    }
    return 0;
}
