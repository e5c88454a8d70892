#pragma once

#include <openssl/evp.h>

#include <span>
#include <string_view>

#include "platform/crypt/Failure.h"

// The algorithm table: hashes, public-key algorithms and signatures with their identifiers and
// numbers, and the sizes and curves of keys with their default hashes. To add an algorithm is to
// add a row. Rows live as long as the process.

namespace provider {

enum class Group : DWORD { hash = 1, key = 3, signature = 4 };

struct Algorithm {
    Group group;
    const char* oid;
    const wchar_t* name;
    ALG_ID id;              // of a hash; of a signing key; for a signature that of its hash
    ALG_ID keyId;           // of a key used for exchange; for a signature that of its key
    const char* libcrypto;  // libcrypto's name; null for a signature
    bool signs;             // false: kept for verifying and for key identifiers only
};

/// A size or curve that keys of an algorithm can have.
struct KeyShape {
    const char* libcrypto;  // name of the key algorithm
    unsigned bits;
    const char* curve;                 // null for RSA
    std::span<const BYTE> parameters;  // DER of the curve's identifier
    ALG_ID hash;                       // the default one
};

inline constexpr std::size_t algorithmLimit = 24;
/// Place of a row in the table, below `algorithmLimit`.
std::size_t indexOf(const Algorithm& algorithm);
std::span<const Algorithm> algorithms();
std::span<const KeyShape> keyShapes();

/// Null when there is none.
const Algorithm* findAlgorithm(Group group, std::string_view oid);
/// A hash, or a key by its signing or its exchange number.
const Algorithm* findAlgorithm(ALG_ID id);
const Algorithm* findSignature(const Algorithm& key, const Algorithm& hash);

/// A shape by its size; null when the algorithm has no such size.
const KeyShape* findShape(const Algorithm& key, unsigned bits);
/// The shape "EC:P-384" or "RSA:3072"; null when unknown.
const KeyShape* findShape(std::string_view text);
/// The shape of a public key by its parameters: its curve, or the smallest where the parameters do
/// not say (RSA). Null when unknown.
const KeyShape* findShape(const Algorithm& key, std::span<const BYTE> parameters);

/// The fetched digest of a hash row, kept for the process.
const EVP_MD* digestOf(const Algorithm& hash);
PCCRYPT_OID_INFO infoOf(const Algorithm& algorithm);

}  // namespace provider
