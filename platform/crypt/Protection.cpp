#include "platform/crypt/Protection.h"

#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rand.h>

#include <array>
#include <climits>
#include <sstream>

#include "platform/crypt/Folder.h"
#include "platform/support/Home.h"

namespace provider {
namespace {

constexpr std::uint64_t scryptN = 1 << 14;
constexpr std::uint64_t scryptR = 8;
constexpr std::uint64_t scryptP = 1;
constexpr std::uint64_t scryptMemory = 32ULL << 20;
constexpr std::size_t keySize = 32;
constexpr std::size_t saltSize = 16;
constexpr std::size_t nonceSize = 12;
constexpr std::size_t tagSize = 16;
constexpr const char* vaultFile = "vault.key";

template <class Octets>
Octets randomOctets(std::size_t size) {
    Octets octets(size);
    require(
        RAND_bytes(reinterpret_cast<unsigned char*>(octets.data()), static_cast<int>(size)) == 1,
        NTE_FAIL);
    return octets;
}

/// Hexadecimal digits without intermediate copies, so that a secret can be written too.
template <class Text, class Octets>
Text hexFrom(const Octets& octets) {
    Text text;
    text.reserve(octets.size() * 2);
    for (const auto octet : octets) {
        text.push_back("0123456789abcdef"[static_cast<BYTE>(octet) >> 4]);
        text.push_back("0123456789abcdef"[static_cast<BYTE>(octet) & 15]);
    }
    return text;
}

BYTE digitFrom(char c) {
    const bool digit = c >= '0' && c <= '9';
    require(digit || (c >= 'a' && c <= 'f'), NTE_KEYSET_ENTRY_BAD);
    return static_cast<BYTE>(digit ? c - '0' : c - 'a' + 10);
}

template <class Octets>
Octets octetsFrom(std::string_view hex, std::size_t size) {
    require(hex.size() == size * 2, NTE_KEYSET_ENTRY_BAD);
    Octets octets(size);
    for (std::size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<typename Octets::value_type>(digitFrom(hex[2 * i]) << 4 |
                                                             digitFrom(hex[2 * i + 1]));
    }
    return octets;
}

const unsigned char* octets(const Secret& secret) {
    return reinterpret_cast<const unsigned char*>(secret.data());
}
unsigned char* octets(Secret& secret) { return reinterpret_cast<unsigned char*>(secret.data()); }

/// A password of no characters is a pointer too: libcrypto takes null for "none given".
const char* passwordText(const Secret& password) { return password.empty() ? "" : password.data(); }

Secret stretch(const Secret& pin, const std::vector<BYTE>& salt) {
    Secret key(keySize);
    require(EVP_PBE_scrypt(passwordText(pin), pin.size(), salt.data(), salt.size(), scryptN,
                           scryptR, scryptP, scryptMemory, octets(key), key.size()) == 1,
            NTE_FAIL);
    return key;
}

CipherContextPtr beginCipher(const Secret& key, const std::vector<BYTE>& nonce, bool encrypt) {
    CipherContextPtr context(EVP_CIPHER_CTX_new());
    require(context && EVP_CipherInit_ex2(context.get(), EVP_aes_256_gcm(), octets(key),
                                          nonce.data(), encrypt ? 1 : 0, nullptr) == 1,
            NTE_FAIL);
    return context;
}

std::optional<Folder> homeFolder() { return Folder::open(support::userHome(), Folder::Lock::none); }

Secret readVaultKey() {
    const auto home = homeFolder();
    const auto digits = home ? home->readSecret(vaultFile, 2 * keySize + 1) : std::nullopt;
    require(digits.has_value(), NTE_KEYSET_ENTRY_BAD);
    require(home->isPrivate(vaultFile), NTE_PERM);
    require(digits->size() >= 2 * keySize, NTE_KEYSET_ENTRY_BAD);
    return octetsFrom<Secret>({digits->data(), 2 * keySize}, keySize);
}

}  // namespace

std::string encryptKey(EVP_PKEY* key, const Secret& password) {
    const KeyInfoPtr info(EVP_PKEY2PKCS8(key));
    AlgorithmPtr scheme(PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, saltSize, nullptr,
                                              scryptN, scryptR, scryptP));
    require(info && scheme, NTE_FAIL);
    const EncryptedKeyPtr sealed(PKCS8_set0_pbe(
        passwordText(password), static_cast<int>(password.size()), info.get(), scheme.get()));
    require(sealed != nullptr, NTE_FAIL);
    scheme.release();  // belongs to `sealed` now
    const BioPtr text(BIO_new(BIO_s_mem()));
    require(text && PEM_write_bio_PKCS8(text.get(), sealed.get()) == 1, NTE_NO_MEMORY);
    const char* start = nullptr;
    const long length = BIO_get_mem_data(text.get(), &start);
    return std::string(start, static_cast<std::size_t>(length));
}

PkeyPtr decryptKey(Bytes pem, const Secret& password) {
    require(pem.size() <= INT_MAX, NTE_KEYSET_ENTRY_BAD);
    const BioPtr text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    const EncryptedKeyPtr sealed(text ? PEM_read_bio_PKCS8(text.get(), nullptr, nullptr, nullptr)
                                      : nullptr);
    require(sealed != nullptr, NTE_KEYSET_ENTRY_BAD);
    const KeyInfoPtr info(
        PKCS8_decrypt(sealed.get(), passwordText(password), static_cast<int>(password.size())));
    require(info != nullptr, NTE_KEYSET_ENTRY_BAD);
    PkeyPtr key(EVP_PKCS82PKEY(info.get()));
    require(key != nullptr, NTE_KEYSET_ENTRY_BAD);
    return key;
}

std::string seal(const Secret& secret, const Secret& pin) {
    const auto salt = randomOctets<std::vector<BYTE>>(saltSize);
    const auto nonce = randomOctets<std::vector<BYTE>>(nonceSize);
    const CipherContextPtr context = beginCipher(stretch(pin, salt), nonce, true);
    std::vector<BYTE> out(secret.size() + tagSize);
    int written = 0;
    int rest = 0;
    const bool sealed = EVP_EncryptUpdate(context.get(), out.data(), &written, octets(secret),
                                          static_cast<int>(secret.size())) == 1 &&
                        EVP_EncryptFinal_ex(context.get(), out.data() + written, &rest) == 1 &&
                        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, tagSize,
                                            out.data() + secret.size()) == 1;
    require(sealed, NTE_FAIL);
    return hexFrom<std::string>(salt) + " " + hexFrom<std::string>(nonce) + " " +
           hexFrom<std::string>(out);
}

std::optional<Secret> unseal(const std::string& sealed, const Secret& pin) {
    std::istringstream words(sealed);
    std::array<std::string, 3> word;
    words >> word[0] >> word[1] >> word[2];
    const auto salt = octetsFrom<std::vector<BYTE>>(word[0], saltSize);
    const auto nonce = octetsFrom<std::vector<BYTE>>(word[1], nonceSize);
    auto content = octetsFrom<std::vector<BYTE>>(word[2], keySize + tagSize);
    const CipherContextPtr context = beginCipher(stretch(pin, salt), nonce, false);
    Secret secret(keySize);
    int written = 0;
    int rest = 0;
    const bool opened = EVP_DecryptUpdate(context.get(), octets(secret), &written, content.data(),
                                          static_cast<int>(keySize)) == 1 &&
                        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, tagSize,
                                            content.data() + keySize) == 1 &&
                        EVP_DecryptFinal_ex(context.get(), octets(secret) + written, &rest) == 1;
    ERR_clear_error();
    if (!opened) return std::nullopt;
    return secret;
}

Secret randomSecret() { return randomOctets<Secret>(keySize); }

std::string randomSalt() { return hexFrom<std::string>(randomOctets<std::vector<BYTE>>(saltSize)); }

Secret vaultPassword(const std::string& salt) {
    const auto saltOctets = octetsFrom<std::vector<BYTE>>(salt, saltSize);
    const Secret key = readVaultKey();
    Secret mac(EVP_MAX_MD_SIZE);
    std::size_t length = 0;
    require(EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA256", nullptr, key.data(), key.size(),
                      saltOctets.data(), saltOctets.size(), octets(mac), mac.size(),
                      &length) != nullptr,
            NTE_FAIL);
    mac.resize(length);
    return hexFrom<Secret>(mac);
}

void ensureVaultKey() {
    const Folder home = Folder::openOrMake(support::userHome(), Folder::Lock::exclusive);
    if (home.has(vaultFile)) return;
    Secret text = hexFrom<Secret>(randomSecret());
    text.push_back('\n');
    home.write(vaultFile, std::string_view(text.data(), text.size()));
}

}  // namespace provider
