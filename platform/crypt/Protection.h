#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/crypt/Der.h"
#include "platform/crypt/Libcrypto.h"
#include "platform/crypt/Secret.h"

// How keys and secrets lie on the disk. One scrypt (N 2^14, r 8, p 1) costs 31 ms.

namespace provider {

/// A private key as PKCS#8 in PEM, encrypted with PBES2 (RFC 8018), scrypt and AES-256-CBC.
std::string encryptKey(EVP_PKEY* key, const Secret& password);
/// Fails with NTE_KEYSET_ENTRY_BAD for a damaged file and for a wrong password.
PkeyPtr decryptKey(Bytes pem, const Secret& password);

/// A secret under a PIN: scrypt and AES-256-GCM, as three words of hexadecimal digits (salt, nonce,
/// sealed octets with the tag). Opening with another PIN gives nothing; a text that is no sealed
/// secret fails with NTE_KEYSET_ENTRY_BAD.
std::string seal(const Secret& secret, const Secret& pin);
std::optional<Secret> unseal(const std::string& sealed, const Secret& pin);
Secret randomSecret();

/// The password of a container that the provider protects by itself: the hexadecimal HMAC-SHA-256
/// of its salt under the vault key, a random key in the user's home.
Secret vaultPassword(const std::string& salt);
/// Makes the vault key where there is none.
void ensureVaultKey();
std::string randomSalt();

}  // namespace provider
