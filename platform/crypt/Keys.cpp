#include <algorithm>
#include <cstring>

#include "platform/crypt/Container.h"
#include "platform/crypt/Hash.h"
#include "platform/crypt/KeyPair.h"
#include "platform/crypt/ProviderContext.h"

// Key handles: keys of a container and imported public keys; signing and verifying with them.

namespace provider {
namespace {

constexpr DWORD keyFlags = CRYPT_EXPORTABLE;
constexpr std::size_t longestDerHeader = 5;  // a certificate of at most 16 MiB

/// What a key handle stands for.
class Key : public HandleObject {
public:
    static constexpr HandleKind handleKind = HandleKind::key;

    explicit Key(std::shared_ptr<const PublicKey> imported)
        : HandleObject(handleKind), publicKey(std::move(imported)) {}
    Key(std::shared_ptr<ProviderContext> owner, DWORD keySpec)
        : HandleObject(handleKind),
          publicKey(owner->container().publicKey(keySpec)),
          context(std::move(owner)),
          spec(keySpec) {}

    /// The container that the key stands in; fails with NTE_BAD_KEY for an imported one.
    Container& container() const {
        require(context != nullptr, NTE_BAD_KEY);
        return context->container();
    }

    const std::shared_ptr<const PublicKey> publicKey;
    const std::shared_ptr<ProviderContext> context;
    const DWORD spec = 0;
};

/// The shape of a new key: the provider's, or the one of its algorithm with the size in the upper
/// half of the flags.
const KeyShape& newKeyShape(const ProviderType& type, DWORD flags) {
    const KeyShape& usual = keyShapeOf(type);
    const DWORD bits = flags >> 16;
    if (bits == 0) return usual;
    const KeyShape* sized = findShape(keyAlgorithmOf(usual), bits);
    require(sized != nullptr, NTE_BAD_LEN);
    return *sized;
}

void generateKey(const std::shared_ptr<ProviderContext>& context, DWORD spec, DWORD flags,
                 HCRYPTKEY* key) {
    require(spec == AT_KEYEXCHANGE || spec == AT_SIGNATURE, NTE_BAD_ALGID);
    require((flags & 0xFFFF & ~keyFlags) == 0, NTE_BAD_FLAGS);
    Container& container = context->container();
    const KeyShape& shape = newKeyShape(context->type(), flags);
    context->unlock();
    container.store(spec, PrivateKey::generate(shape), (flags & CRYPT_EXPORTABLE) != 0);
    *key = addHandle(std::make_shared<Key>(context, spec));
}

/// A DER certificate behind a pointer alone: its header says how long it is.
Bytes certificateAt(const BYTE* data) {
    require(data != nullptr, ERROR_INVALID_PARAMETER);
    require(data[0] == 0x30, NTE_BAD_DATA);
    const std::size_t header = data[1] < 0x80 ? 2 : 2 + (data[1] & std::size_t{0x7F});
    require(header <= longestDerHeader, NTE_BAD_DATA);
    const auto length = readDerLength(data, header);
    require(length.has_value(), NTE_BAD_DATA);
    return {data, length->header + length->content};
}

void getKeyParameter(const Key& key, DWORD parameter, BYTE* data, DWORD* length) {
    const Algorithm& algorithm = key.publicKey->algorithm();
    if (parameter == KP_CERTIFICATE) {
        const std::vector<BYTE> certificate = key.container().certificate(key.spec);
        giveBytes(certificate.data(), certificate.size(), data, length);
    } else if (parameter == KP_ALGID) {
        const ALG_ID id = key.spec == AT_KEYEXCHANGE ? algorithm.keyId : algorithm.id;
        giveBytes(&id, sizeof id, data, length);
    } else if (parameter == KP_KEYLEN) {
        const DWORD bits = key.publicKey->size();
        giveBytes(&bits, sizeof bits, data, length);
    } else {
        fail(NTE_BAD_TYPE);
    }
}

void requireNoDescription(const char* description) {
    require(description == nullptr || *description == 0, ERROR_INVALID_PARAMETER);
}

void signHash(Hash& hash, DWORD spec, BYTE* signature, DWORD* length) {
    require(length != nullptr, ERROR_INVALID_PARAMETER);
    const ProviderContext& context = *hash.context();
    Container& container = context.container();
    const std::size_t longest = container.publicKey(spec)->longestSignature();
    if (signature == nullptr || *length < longest) {
        return giveBytes(nullptr, longest, signature, length);
    }
    context.unlock();
    const std::vector<BYTE> made = container.privateKey(spec)->sign(hash.algorithm(), hash.value());
    std::ranges::reverse_copy(made, signature);
    *length = static_cast<DWORD>(made.size());
}

void verifySignature(Hash& hash, const BYTE* signature, DWORD length, const Key& key) {
    require(signature != nullptr || length == 0, ERROR_INVALID_PARAMETER);
    require(length <= largestSignature, NTE_BAD_SIGNATURE);
    BYTE wire[largestSignature];
    std::reverse_copy(signature, signature + length, wire);
    require(key.publicKey->verify(hash.algorithm(), hash.value(), {wire, length}),
            NTE_BAD_SIGNATURE);
}

/// Puts a SubjectPublicKeyInfo's parts behind the record, in the caller's buffer.
void givePublicKey(const PublicKey& key, CERT_PUBLIC_KEY_INFO* info, DWORD* length) {
    require(length != nullptr, ERROR_INVALID_PARAMETER);
    const std::string_view oid = key.algorithm().oid;
    const Bytes parameters = key.parameters();
    const Bytes bits = key.bits();
    const std::size_t needed = sizeof *info + oid.size() + 1 + parameters.size() + bits.size();
    const DWORD room = *length;
    *length = static_cast<DWORD>(needed);
    if (info == nullptr) return;
    require(room >= needed, ERROR_MORE_DATA);
    BYTE* place = reinterpret_cast<BYTE*>(info + 1);
    const auto put = [&place](const auto& bytes) {
        BYTE* start = place;
        place = std::copy(bytes.begin(), bytes.end(), place);
        return start;
    };
    info->Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), put(parameters)};
    info->PublicKey = {static_cast<DWORD>(bits.size()), put(bits), 0};
    info->Algorithm.pszObjId = reinterpret_cast<char*>(put(oid));
    *place = 0;
}

void requireEncoding(DWORD encodingType) {
    require((encodingType & X509_ASN_ENCODING) != 0, ERROR_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace provider

using namespace provider;

BOOL CryptGenKey(HCRYPTPROV provider, DWORD keySpec, DWORD flags, HCRYPTKEY* key) {
    return guarded([&] {
        require(key != nullptr, ERROR_INVALID_PARAMETER);
        generateKey(handled<ProviderContext>(provider), keySpec, flags, key);
    });
}

BOOL CryptGetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) {
    return guarded([&] {
        require(key != nullptr, ERROR_INVALID_PARAMETER);
        auto context = handled<ProviderContext>(provider);
        auto found = std::make_shared<Key>(context, keySpec);
        context->unlock();
        *key = addHandle(std::move(found));
    });
}

BOOL CryptDestroyKey(HCRYPTKEY key) {
    return guarded([&] { require(releaseHandle(key, HandleKind::key), ERROR_INVALID_HANDLE); });
}

BOOL CryptSetKeyParam(HCRYPTKEY key, DWORD parameter, const BYTE* data, DWORD flags) {
    return guarded([&] {
        const auto object = handled<Key>(key);
        require(parameter == KP_CERTIFICATE, NTE_BAD_TYPE);
        require(flags == 0, NTE_BAD_FLAGS);
        object->container().storeCertificate(object->spec, certificateAt(data));
    });
}

BOOL CryptGetKeyParam(HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* length, DWORD flags) {
    return guarded([&] {
        require(flags == 0, NTE_BAD_FLAGS);
        getKeyParameter(*handled<Key>(key), parameter, data, length);
    });
}

BOOL CryptSignHashA(HCRYPTHASH hash, DWORD keySpec, const char* description, DWORD flags,
                    BYTE* signature, DWORD* length) {
    return guarded([&] {
        require(flags == 0, NTE_BAD_FLAGS);
        requireNoDescription(description);
        signHash(*handled<Hash>(hash), keySpec, signature, length);
    });
}

BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD length, HCRYPTKEY key,
                           const char* description, DWORD flags) {
    return guarded([&] {
        require(flags == 0, NTE_BAD_FLAGS);
        requireNoDescription(description);
        verifySignature(*handled<Hash>(hash), signature, length, *handled<Key>(key));
    });
}

BOOL CryptExportPublicKeyInfo(HCRYPTPROV provider, DWORD keySpec, DWORD encodingType,
                              CERT_PUBLIC_KEY_INFO* info, DWORD* length) {
    return guarded([&] {
        requireEncoding(encodingType);
        const auto context = handled<ProviderContext>(provider);
        givePublicKey(*context->container().publicKey(keySpec), info, length);
    });
}

BOOL CryptImportPublicKeyInfoEx(HCRYPTPROV provider, DWORD encodingType,
                                const CERT_PUBLIC_KEY_INFO* info, ALG_ID algorithm, DWORD flags,
                                void* aux, HCRYPTKEY* key) {
    return guarded([&] {
        require(info != nullptr && key != nullptr && aux == nullptr, ERROR_INVALID_PARAMETER);
        require(flags == 0, NTE_BAD_FLAGS);
        requireEncoding(encodingType);
        handled<ProviderContext>(provider);
        auto imported = PublicKey::import(*info);
        const Algorithm& own = imported->algorithm();
        require(algorithm == 0 || algorithm == own.id || algorithm == own.keyId, NTE_BAD_ALGID);
        *key = addHandle(std::make_shared<Key>(std::move(imported)));
    });
}
