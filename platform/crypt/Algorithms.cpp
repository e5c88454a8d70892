#include "platform/crypt/Algorithms.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace provider {
namespace {

constexpr Algorithm table[] = {
    {Group::hash, "1.3.14.3.2.26", L"sha1", CALG_SHA1, 0, "SHA1", false},
    {Group::hash, "2.16.840.1.101.3.4.2.1", L"sha256", CALG_SHA_256, 0, "SHA2-256", true},
    {Group::hash, "2.16.840.1.101.3.4.2.2", L"sha384", CALG_SHA_384, 0, "SHA2-384", true},
    {Group::hash, "2.16.840.1.101.3.4.2.3", L"sha512", CALG_SHA_512, 0, "SHA2-512", true},
    {Group::key, "1.2.840.113549.1.1.1", L"RSA", CALG_RSA_SIGN, CALG_RSA_KEYX, "RSA", true},
    {Group::key, "1.2.840.10045.2.1", L"ECC", CALG_ECDSA, CALG_ECDH, "EC", true},
    {Group::signature, "1.2.840.113549.1.1.11", L"sha256RSA", CALG_SHA_256, CALG_RSA_SIGN, nullptr,
     true},
    {Group::signature, "1.2.840.113549.1.1.12", L"sha384RSA", CALG_SHA_384, CALG_RSA_SIGN, nullptr,
     true},
    {Group::signature, "1.2.840.113549.1.1.13", L"sha512RSA", CALG_SHA_512, CALG_RSA_SIGN, nullptr,
     true},
    {Group::signature, "1.2.840.113549.1.1.5", L"sha1RSA", CALG_SHA1, CALG_RSA_SIGN, nullptr,
     false},
    {Group::signature, "1.2.840.10045.4.3.2", L"sha256ECDSA", CALG_SHA_256, CALG_ECDSA, nullptr,
     true},
    {Group::signature, "1.2.840.10045.4.3.3", L"sha384ECDSA", CALG_SHA_384, CALG_ECDSA, nullptr,
     true},
    {Group::signature, "1.2.840.10045.4.3.4", L"sha512ECDSA", CALG_SHA_512, CALG_ECDSA, nullptr,
     true},
    {Group::signature, "1.2.840.10045.4.1", L"sha1ECDSA", CALG_SHA1, CALG_ECDSA, nullptr, false},
};
constexpr std::size_t rowCount = std::size(table);
static_assert(rowCount <= algorithmLimit);

constexpr BYTE prime256v1[] = {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
constexpr BYTE secp384r1[] = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x22};

const KeyShape shapes[] = {
    {"RSA", 2048, nullptr, {}, CALG_SHA_256},      {"RSA", 3072, nullptr, {}, CALG_SHA_256},
    {"RSA", 4096, nullptr, {}, CALG_SHA_256},      {"EC", 256, "P-256", prime256v1, CALG_SHA_256},
    {"EC", 384, "P-384", secp384r1, CALG_SHA_384},
};

/// The records of the interface, one a row, with the extra data of signatures.
struct Records {
    std::array<CRYPT_OID_INFO, rowCount> info{};
    std::array<std::array<DWORD, 3>, rowCount> extra{};

    Records() {
        for (std::size_t i = 0; i < rowCount; ++i) {
            const Algorithm& row = table[i];
            info[i] = {sizeof(CRYPT_OID_INFO),        row.oid, row.name,
                       static_cast<DWORD>(row.group), row.id,  {0, nullptr}};
            if (row.group != Group::signature) continue;
            extra[i] = {row.keyId, 0, 0};
            info[i].ExtraInfo = {sizeof extra[i], reinterpret_cast<BYTE*>(extra[i].data())};
        }
    }
};

/// Fetched once; libcrypto's own clean-up may run before ours would, so they are never freed.
struct Digests {
    std::array<EVP_MD*, rowCount> fetched{};
    Digests() {
        for (std::size_t i = 0; i < rowCount; ++i) {
            if (table[i].group != Group::hash) continue;
            fetched[i] = EVP_MD_fetch(nullptr, table[i].libcrypto, nullptr);
        }
    }
};

const Algorithm* keyOf(const CERT_PUBLIC_KEY_INFO* key) {
    if (key == nullptr || key->Algorithm.pszObjId == nullptr) return nullptr;
    return findAlgorithm(Group::key, key->Algorithm.pszObjId);
}

const Algorithm* defaultHash(const CERT_PUBLIC_KEY_INFO* key) {
    const Algorithm* algorithm = keyOf(key);
    if (algorithm == nullptr) return nullptr;
    const CRYPT_DATA_BLOB& parameters = key->Algorithm.Parameters;
    const KeyShape* shape = findShape(*algorithm, {parameters.pbData, parameters.cbData});
    return shape == nullptr ? nullptr : findAlgorithm(shape->hash);
}

}  // namespace

std::span<const Algorithm> algorithms() { return table; }
std::span<const KeyShape> keyShapes() { return shapes; }

std::size_t indexOf(const Algorithm& algorithm) {
    return static_cast<std::size_t>(&algorithm - table);
}

const Algorithm* findAlgorithm(Group group, std::string_view oid) {
    for (const Algorithm& row : table) {
        if (row.group == group && oid == row.oid) return &row;
    }
    return nullptr;
}

const Algorithm* findAlgorithm(ALG_ID id) {
    for (const Algorithm& row : table) {
        if (row.group == Group::signature) continue;
        if (row.id == id || (row.keyId != 0 && row.keyId == id)) return &row;
    }
    return nullptr;
}

const Algorithm* findSignature(const Algorithm& key, const Algorithm& hash) {
    for (const Algorithm& row : table) {
        if (row.group == Group::signature && row.id == hash.id && row.keyId == key.id) return &row;
    }
    return nullptr;
}

const KeyShape* findShape(const Algorithm& key, unsigned bits) {
    for (const KeyShape& shape : shapes) {
        if (shape.bits == bits && std::strcmp(shape.libcrypto, key.libcrypto) == 0) return &shape;
    }
    return nullptr;
}

const KeyShape* findShape(std::string_view text) {
    for (const KeyShape& shape : shapes) {
        const std::string size = shape.curve != nullptr ? shape.curve : std::to_string(shape.bits);
        if (text == shape.libcrypto + (":" + size)) return &shape;
    }
    return nullptr;
}

const KeyShape* findShape(const Algorithm& key, std::span<const BYTE> parameters) {
    for (const KeyShape& shape : shapes) {
        if (std::strcmp(shape.libcrypto, key.libcrypto) != 0) continue;
        if (shape.curve == nullptr) return &shape;
        if (std::ranges::equal(parameters, shape.parameters)) return &shape;
    }
    return nullptr;
}

const EVP_MD* digestOf(const Algorithm& hash) {
    static const Digests* const digests = new Digests;
    const EVP_MD* digest = digests->fetched[indexOf(hash)];
    require(digest != nullptr, NTE_BAD_ALGID);
    return digest;
}

PCCRYPT_OID_INFO infoOf(const Algorithm& algorithm) {
    static Records* const records = new Records;
    return &records->info[indexOf(algorithm)];
}

}  // namespace provider

using provider::Algorithm;
using provider::Group;

ALG_ID CertOIDToAlgId(const char* oid) {
    if (oid == nullptr) return 0;
    for (const Algorithm& row : provider::algorithms()) {
        if (std::strcmp(row.oid, oid) == 0) return row.id;
    }
    return 0;
}

const char* CertAlgIdToOID(ALG_ID algorithm) {
    const Algorithm* row = provider::findAlgorithm(algorithm);
    return row == nullptr ? nullptr : row->oid;
}

PCCRYPT_OID_INFO QXCryptGetDefaultHashOIDInfo(const char* publicKeyOid) {
    if (publicKeyOid == nullptr) return nullptr;
    // The identifier alone says no curve: the hash of the smallest key serves.
    const Algorithm* key = provider::findAlgorithm(Group::key, publicKeyOid);
    if (key == nullptr) return nullptr;
    for (const provider::KeyShape& shape : provider::shapes) {
        if (std::strcmp(shape.libcrypto, key->libcrypto) == 0) {
            return provider::infoOf(*provider::findAlgorithm(shape.hash));
        }
    }
    return nullptr;
}

PCCRYPT_OID_INFO QXCryptGetDefaultHashOIDInfo(const CERT_PUBLIC_KEY_INFO* key) {
    const Algorithm* hash = provider::defaultHash(key);
    return hash == nullptr ? nullptr : provider::infoOf(*hash);
}

PCCRYPT_OID_INFO QXCryptGetDefaultSignatureOIDInfo(const CERT_PUBLIC_KEY_INFO* key) {
    const Algorithm* hash = provider::defaultHash(key);
    if (hash == nullptr) return nullptr;
    const Algorithm* signature = provider::findSignature(*provider::keyOf(key), *hash);
    return signature == nullptr ? nullptr : provider::infoOf(*signature);
}

PCCRYPT_OID_INFO QXCryptGetSignatureOIDInfo(const char* publicKeyOid, const char* hashOid) {
    if (publicKeyOid == nullptr || hashOid == nullptr) return nullptr;
    const Algorithm* key = provider::findAlgorithm(Group::key, publicKeyOid);
    const Algorithm* hash = provider::findAlgorithm(Group::hash, hashOid);
    if (key == nullptr || hash == nullptr) return nullptr;
    const Algorithm* signature = provider::findSignature(*key, *hash);
    return signature == nullptr ? nullptr : provider::infoOf(*signature);
}
