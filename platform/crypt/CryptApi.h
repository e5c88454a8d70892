#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Export.h"
#include "platform/support/LastError.h"
#include "platform/support/Time.h"

// The CryptoAPI-shaped interface: providers, key containers, hashes, signatures, certificate
// contexts and stores, over libcrypto.
//
// Every function returning BOOL gives 0 on failure, with the reason in `GetLastError`. Handles are
// opaque 64-bit numbers checked on every call: a stale or foreign one gives ERROR_INVALID_HANDLE.
// Functions that give back text or bytes are called twice: with a null buffer for the length, then
// with one; too small a buffer gives ERROR_MORE_DATA and the length needed. The layer may be used
// from several threads on different handles.

using BYTE = std::uint8_t;
using DWORD = std::uint32_t;
using BOOL = int;
using ALG_ID = std::uint32_t;
using HCRYPTPROV = unsigned long long;
using HCRYPTKEY = unsigned long long;
using HCRYPTHASH = unsigned long long;
using HCERTSTORE = void*;

// Provider types. Types 75, 80 and 81 have readers and PINs.
inline constexpr DWORD PROV_RSA = 1;
inline constexpr DWORD PROV_ECDSA_PLAIN = 16;
inline constexpr DWORD PROV_ECDSA_P256 = 75;
inline constexpr DWORD PROV_RSA_3072_PLAIN = 76;
inline constexpr DWORD PROV_RSA_3072 = 80;
inline constexpr DWORD PROV_ECDSA_P384 = 81;

// Key specs.
inline constexpr DWORD AT_KEYEXCHANGE = 1;
inline constexpr DWORD AT_SIGNATURE = 2;

// Algorithm identifiers: class in the bits 0xE000 (hash 0x8000, signature 0x2000, exchange 0xA000).
inline constexpr ALG_ID ALG_CLASS_MASK = 0xE000;
inline constexpr ALG_ID ALG_CLASS_HASH = 0x8000;
inline constexpr ALG_ID CALG_SHA1 = 0x8004;
inline constexpr ALG_ID CALG_SHA_256 = 0x800C;
inline constexpr ALG_ID CALG_SHA_384 = 0x800D;
inline constexpr ALG_ID CALG_SHA_512 = 0x800E;
inline constexpr ALG_ID CALG_RSA_SIGN = 0x2400;
inline constexpr ALG_ID CALG_RSA_KEYX = 0xA400;
inline constexpr ALG_ID CALG_ECDSA = 0x2203;
inline constexpr ALG_ID CALG_ECDH = 0xAA05;

// Flags of CryptAcquireContextA.
inline constexpr DWORD CRYPT_NEWKEYSET = 8;
inline constexpr DWORD CRYPT_DELETEKEYSET = 0x10;
inline constexpr DWORD CRYPT_MACHINE_KEYSET = 0x20;
inline constexpr DWORD CRYPT_SILENT = 0x40;
inline constexpr DWORD CRYPT_VERIFYCONTEXT = 0xF0000000;
// Flags of CryptGenKey; the key size in bits stands in the upper half.
inline constexpr DWORD CRYPT_EXPORTABLE = 1;

// Provider parameters.
inline constexpr DWORD PP_NAME = 4;
inline constexpr DWORD PP_CONTAINER = 6;
inline constexpr DWORD PP_PROVTYPE = 16;
inline constexpr DWORD PP_ENUMALGS = 22;  // entries of PROV_ENUMALGS
inline constexpr DWORD PP_UNIQUE_CONTAINER = 36;
inline constexpr DWORD PP_SET_AUTH = 107;     // PinParam: supply the PIN, or set the protection
inline constexpr DWORD PP_CHANGE_AUTH = 108;  // PinParam: change the PIN or the protection
inline constexpr DWORD PP_CONTAINER_STATUS = 109;  // 32-bit identifier of an opened container
inline constexpr DWORD PP_FQCN = 111;              // with flag 0x10
inline constexpr DWORD PP_ENUMREADERS = 114;       // two zero-terminated strings an entry
inline constexpr DWORD PP_SET_PART = 117;          // hand one part identifier to a container
inline constexpr DWORD PP_AUTH_INFO = 120;         // PIN information
// Full names of the containers of a type. The last error is 0 with each name, or
// NTE_KEYSET_ENTRY_BAD with that of a container that is damaged: it can be removed but not opened.
inline constexpr DWORD PP_ENUMCONTAINERS = 2;
inline constexpr DWORD CRYPT_FIRST = 1;
inline constexpr DWORD CRYPT_NEXT = 0;
// Key parameters.
inline constexpr DWORD KP_ALGID = 7;
inline constexpr DWORD KP_KEYLEN = 9;
inline constexpr DWORD KP_CERTIFICATE = 26;
// Hash parameters.
inline constexpr DWORD HP_HASHVAL = 2;
inline constexpr DWORD HP_HASHSIZE = 4;

/// One entry of PP_ENUMALGS; the first word is the algorithm.
struct PROV_ENUMALGS {
    ALG_ID aiAlgid;
    DWORD dwBitLen;
    DWORD dwNameLen;
    char szName[20];
};

/// The record given with PP_SET_AUTH and PP_CHANGE_AUTH, and the head of what PP_AUTH_INFO gives.
/// Kind 0 carries a PIN in `text`; 1 one part identifier in `value`; 2 a quorum of `N` part
/// identifiers in `values`, `K` needed; 4 asks the provider for its own dialogue; 5 means no PIN; 6
/// a container that the provider protects by itself.
struct PinParam {
    BYTE kind = 0;
    std::int16_t N = 0;
    std::int16_t K = 0;
    union {
        const char* text;
        const std::uint32_t* values;
        std::uint32_t value;
    };
    PinParam() : text(nullptr) {}
};
/// Bytes of PP_AUTH_INFO: this head, then for kind 1 the name of the container it refers to, for
/// kind 2 the names of its N children, each with its terminating zero.
struct PinInfoHead {
    BYTE kind;
    BYTE tries;      // kind 0: wrong PINs that the container still bears; else 0
    std::int16_t N;  // kind 1 has its name at offset 4: N and K are absent there
    std::int16_t K;
};

struct CRYPT_DATA_BLOB {
    DWORD cbData;
    BYTE* pbData;
};
struct CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
};
struct CRYPT_ALGORITHM_IDENTIFIER {
    char* pszObjId;
    CRYPT_DATA_BLOB Parameters;
};
struct CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
};
struct CERT_EXTENSION {
    char* pszObjId;
    BOOL fCritical;
    CRYPT_DATA_BLOB Value;
};
/// What a certificate says. Integers are little-endian, names are DER.
struct CERT_INFO {
    DWORD dwVersion;
    CRYPT_DATA_BLOB SerialNumber;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CRYPT_DATA_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CRYPT_DATA_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
};
struct CRL_INFO {
    DWORD dwVersion;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CRYPT_DATA_BLOB Issuer;
    FILETIME ThisUpdate;
    FILETIME NextUpdate;  // zero when absent
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
};
/// Contexts are counted: `CertDuplicate…` takes a reference, `CertFree…` drops one.
struct _CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    CERT_INFO* pCertInfo;
    HCERTSTORE hCertStore;
};
using CERT_CONTEXT = _CERT_CONTEXT;
using PCCERT_CONTEXT = const CERT_CONTEXT*;
struct _CRL_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCrlEncoded;
    DWORD cbCrlEncoded;
    CRL_INFO* pCrlInfo;
    HCERTSTORE hCertStore;
};
using CRL_CONTEXT = _CRL_CONTEXT;
using PCCRL_CONTEXT = const CRL_CONTEXT*;

/// Property 2 of a certificate context: where its private key is.
struct CRYPT_KEY_PROV_INFO {
    wchar_t* pwszContainerName;
    wchar_t* pwszProvName;
    DWORD dwProvType;
    DWORD dwFlags;
    DWORD cProvParam;
    void* rgProvParam;
    DWORD dwKeySpec;
};
struct CERT_AUTHORITY_KEY_ID_INFO {
    CRYPT_DATA_BLOB KeyId;
    CRYPT_DATA_BLOB CertIssuer;
    CRYPT_DATA_BLOB CertSerialNumber;
};

/// One row of the algorithm table.
struct CRYPT_OID_INFO {
    DWORD cbSize;
    const char* pszOID;
    const wchar_t* pwszName;
    DWORD dwGroupId;  // 1 hash, 3 public key, 4 signature
    ALG_ID Algid;
    CRYPT_DATA_BLOB ExtraInfo;
};
using PCCRYPT_OID_INFO = const CRYPT_OID_INFO*;
inline constexpr DWORD CRYPT_SIGN_ALG_OID_GROUP_ID = 4;

// Encoding types, stores, find types, properties.
inline constexpr DWORD X509_ASN_ENCODING = 1;
inline constexpr DWORD CERT_ENCODING = 0x10001;
inline constexpr std::size_t CERT_STORE_PROV_SYSTEM = 10;
inline constexpr DWORD CERT_SYSTEM_STORE_CURRENT_USER = 0x10000;
inline constexpr DWORD CERT_SYSTEM_STORE_LOCAL_MACHINE = 0x20000;
inline constexpr DWORD CERT_STORE_CREATE_NEW = 0x2000;
inline constexpr DWORD CERT_STORE_OPEN_EXISTING = 0x4000;
inline constexpr DWORD CERT_STORE_READONLY = 0x8000;
inline constexpr DWORD CERT_CLOSE_FORCE = 1;
inline constexpr DWORD CERT_CLOSE_CHECK = 2;
inline constexpr DWORD CERT_FIND_ANY = 0;
inline constexpr DWORD CERT_FIND_SHA1_HASH = 0x10000;       // CRYPT_DATA_BLOB
inline constexpr DWORD CERT_FIND_SUBJECT_NAME = 0x20007;    // CRYPT_DATA_BLOB, DER of the name
inline constexpr DWORD CERT_FIND_ISSUER_NAME = 0x20004;     // CRYPT_DATA_BLOB
inline constexpr DWORD CERT_FIND_EXISTING = 0xD0000;        // PCCERT_CONTEXT
inline constexpr DWORD CERT_FIND_KEY_IDENTIFIER = 0xF0000;  // CRYPT_DATA_BLOB
inline constexpr DWORD CERT_FIND_PUBLIC_KEY = 0x60000;      // CERT_PUBLIC_KEY_INFO
inline constexpr DWORD CRL_FIND_ANY = 0;
inline constexpr DWORD CRL_FIND_EXISTING = 2;  // PCCRL_CONTEXT
inline constexpr DWORD CERT_STORE_ADD_NEW = 1;
inline constexpr DWORD CERT_STORE_ADD_USE_EXISTING = 2;
inline constexpr DWORD CERT_STORE_ADD_REPLACE_EXISTING = 3;  // replaces an object of the same bytes
inline constexpr DWORD CERT_STORE_ADD_ALWAYS = 4;            // leaves what is there
inline constexpr DWORD CERT_KEY_PROV_INFO_PROP_ID = 2;
inline constexpr DWORD CERT_SHA1_HASH_PROP_ID = 3;
inline constexpr DWORD CERT_KEY_IDENTIFIER_PROP_ID = 20;
// Structure types of CryptEncodeObject and CryptDecodeObject.
inline constexpr std::size_t X509_NAME_BYTES = 7;
inline constexpr std::size_t X509_AUTHORITY_KEY_ID = 9;
inline constexpr std::size_t X509_INTEGER = 27;
inline constexpr std::size_t X509_MULTI_BYTE_INTEGER = 28;
inline constexpr std::size_t X509_ENUMERATED = 29;

// ---- Providers and containers (platform/crypt/Provider) ----

/// Opens a provider, and a container in it unless CRYPT_VERIFYCONTEXT is given. A container name is
/// "\\.\READER\NAME"; null with CRYPT_VERIFYCONTEXT. NAME alone, or with an empty reader, means the
/// reader VAULT for a new container and the first reader that has it for an old one. Types without
/// readers ignore the reader. A null provider name is the default one of the type; type 0 is the
/// type of the named provider. With CRYPT_DELETEKEYSET the container is removed and `*provider` is
/// 0. Success sets the last error to 0. A container that has a PIN stays locked until PP_SET_AUTH
/// or the PIN callback gives it.
PKIXCMP_API BOOL CryptAcquireContextA(HCRYPTPROV* provider, const char* container,
                                      const char* providerName, DWORD type, DWORD flags);
PKIXCMP_API BOOL CryptReleaseContext(HCRYPTPROV provider, DWORD flags);
PKIXCMP_API BOOL CryptContextAddRef(HCRYPTPROV provider, DWORD* reserved, DWORD flags);
PKIXCMP_API BOOL CryptGetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* length,
                                   DWORD flags);
PKIXCMP_API BOOL CryptSetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data,
                                   DWORD flags);
PKIXCMP_API BOOL CryptEnumProviderTypesA(DWORD index, DWORD* reserved, DWORD flags, DWORD* type,
                                         char* name, DWORD* nameLength);
PKIXCMP_API BOOL CryptEnumProvidersA(DWORD index, DWORD* reserved, DWORD flags, DWORD* type,
                                     char* name, DWORD* nameLength);
PKIXCMP_API BOOL CryptGenRandom(HCRYPTPROV provider, DWORD length, BYTE* buffer);

// ---- Keys, hashes, signatures ----

PKIXCMP_API BOOL CryptGenKey(HCRYPTPROV provider, DWORD keySpec, DWORD flags, HCRYPTKEY* key);
/// Needs the container open, as signing does: where it takes a PIN and none was given, the PIN
/// callback is asked, once, unless the context is silent.
PKIXCMP_API BOOL CryptGetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key);
PKIXCMP_API BOOL CryptDestroyKey(HCRYPTKEY key);
/// KP_CERTIFICATE takes a DER certificate, which carries its own length, and stores it beside the
/// key; the length is read from at most the first five octets.
PKIXCMP_API BOOL CryptSetKeyParam(HCRYPTKEY key, DWORD parameter, const BYTE* data, DWORD flags);
PKIXCMP_API BOOL CryptGetKeyParam(HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* length,
                                  DWORD flags);
PKIXCMP_API BOOL CryptCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags,
                                 HCRYPTHASH* hash);
PKIXCMP_API BOOL CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags);
PKIXCMP_API BOOL CryptGetHashParam(HCRYPTHASH hash, DWORD parameter, BYTE* data, DWORD* length,
                                   DWORD flags);
PKIXCMP_API BOOL CryptDestroyHash(HCRYPTHASH hash);
/// The signature comes low byte first: the octets of the wire form reversed.
PKIXCMP_API BOOL CryptSignHashA(HCRYPTHASH hash, DWORD keySpec, const char* description,
                                DWORD flags, BYTE* signature, DWORD* length);
PKIXCMP_API BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD length,
                                       HCRYPTKEY key, const char* description, DWORD flags);
/// The structure and all it points at stand in the caller's buffer.
PKIXCMP_API BOOL CryptExportPublicKeyInfo(HCRYPTPROV provider, DWORD keySpec, DWORD encodingType,
                                          CERT_PUBLIC_KEY_INFO* info, DWORD* length);
PKIXCMP_API BOOL CryptImportPublicKeyInfoEx(HCRYPTPROV provider, DWORD encodingType,
                                            const CERT_PUBLIC_KEY_INFO* info, ALG_ID algorithm,
                                            DWORD flags, void* aux, HCRYPTKEY* key);

// ---- Algorithm table ----

/// 0 for an unknown identifier. A signature identifier gives its hash's algorithm, a key identifier
/// the key's.
PKIXCMP_API ALG_ID CertOIDToAlgId(const char* oid);
PKIXCMP_API const char* CertAlgIdToOID(ALG_ID algorithm);
/// The default hash of a public-key identifier; null when unknown.
PKIXCMP_API PCCRYPT_OID_INFO QXCryptGetDefaultHashOIDInfo(const char* publicKeyOid);
/// The same, choosing by the key itself where the identifier serves several sizes (id-ecPublicKey
/// with P-384 takes SHA-384).
PKIXCMP_API PCCRYPT_OID_INFO QXCryptGetDefaultHashOIDInfo(const CERT_PUBLIC_KEY_INFO* key);
/// The default signature algorithm for a key; null when unknown.
PKIXCMP_API PCCRYPT_OID_INFO QXCryptGetDefaultSignatureOIDInfo(const CERT_PUBLIC_KEY_INFO* key);
/// The signature algorithm of a public-key identifier with a hash identifier; null when unknown.
/// Its Algid is the hash, its extra data three 32-bit words: key algorithm, flags, provider type
/// (0: found by the key's algorithm).
PKIXCMP_API PCCRYPT_OID_INFO QXCryptGetSignatureOIDInfo(const char* publicKeyOid,
                                                        const char* hashOid);
/// A verification-only context of a provider type, one per process; 0 on failure. The caller owns a
/// reference.
PKIXCMP_API HCRYPTPROV QXCAPI_I_GetDefaultProvider(DWORD type);
/// The same for an algorithm; 0 when no default provider has it.
PKIXCMP_API HCRYPTPROV QXCAPI_I_CryptGetDefaultCryptProv(ALG_ID algorithm);

/// Asks for a PIN: writes at most `size` characters with the zero into `pin`, false when there is
/// none to give.
using QXCryptPinCallback = bool (*)(void* context, char* pin, std::size_t size);
PKIXCMP_API void QXCryptGetPinCallback(QXCryptPinCallback* callback, void** context);
PKIXCMP_API void QXCryptSetPinCallback(QXCryptPinCallback callback, void* context);

// ---- Certificate and CRL contexts, stores (platform/crypt/Store) ----

PKIXCMP_API PCCERT_CONTEXT CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded,
                                                        DWORD length);
PKIXCMP_API PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT context);
PKIXCMP_API BOOL CertFreeCertificateContext(PCCERT_CONTEXT context);
/// Property 2 takes a CRYPT_KEY_PROV_INFO, any other a CRYPT_DATA_BLOB; null removes it. A context
/// that stands in a store changes the store too.
PKIXCMP_API BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT context, DWORD id, DWORD flags,
                                                   const void* data);
PKIXCMP_API BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT context, DWORD id, void* data,
                                                   DWORD* length);
PKIXCMP_API PCCRL_CONTEXT CertCreateCRLContext(DWORD encodingType, const BYTE* encoded,
                                               DWORD length);
PKIXCMP_API PCCRL_CONTEXT CertDuplicateCRLContext(PCCRL_CONTEXT context);
PKIXCMP_API BOOL CertFreeCRLContext(PCCRL_CONTEXT context);
PKIXCMP_API BOOL CertSetCRLContextProperty(PCCRL_CONTEXT context, DWORD id, DWORD flags,
                                           const void* data);
PKIXCMP_API BOOL CertGetCRLContextProperty(PCCRL_CONTEXT context, DWORD id, void* data,
                                           DWORD* length);

/// `storeProvider` 10 (the number as a pointer) opens a system store by its wide name; the flags
/// are a side and CERT_STORE_OPEN_EXISTING, CERT_STORE_CREATE_NEW, CERT_STORE_READONLY. The user's
/// view holds the machine's objects too when it is read; writing goes to the side that was asked
/// for. Without a side flag the user's is taken. Null on failure.
PKIXCMP_API HCERTSTORE CertOpenStore(const char* storeProvider, DWORD encodingType,
                                     HCRYPTPROV provider, DWORD flags, const void* name);
PKIXCMP_API HCERTSTORE CertDuplicateStore(HCERTSTORE store);
PKIXCMP_API BOOL CertCloseStore(HCERTSTORE store, DWORD flags);
/// The names of the stores of one side in order; false behind the last.
PKIXCMP_API BOOL CertEnumSystemStoreNames(DWORD side, DWORD index, wchar_t* name, DWORD* length);
PKIXCMP_API BOOL CertAddCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context,
                                                  DWORD disposition, PCCERT_CONTEXT* added);
PKIXCMP_API BOOL CertAddCRLContextToStore(HCERTSTORE store, PCCRL_CONTEXT context,
                                          DWORD disposition, PCCRL_CONTEXT* added);
/// Both free the context, also on failure.
PKIXCMP_API BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT context);
PKIXCMP_API BOOL CertDeleteCRLFromStore(PCCRL_CONTEXT context);
/// The next object behind `previous` (which is freed) in store order, or null with
/// CRYPT_E_NOT_FOUND. Holds no lock between calls.
PKIXCMP_API PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE store, DWORD encodingType,
                                                      DWORD findFlags, DWORD findType,
                                                      const void* parameter,
                                                      PCCERT_CONTEXT previous);
PKIXCMP_API PCCRL_CONTEXT CertFindCRLInStore(HCERTSTORE store, DWORD encodingType, DWORD findFlags,
                                             DWORD findType, const void* parameter,
                                             PCCRL_CONTEXT previous);
PKIXCMP_API PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous);
PKIXCMP_API PCCRL_CONTEXT CertEnumCRLsInStore(HCERTSTORE store, PCCRL_CONTEXT previous);
/// Opens the container that property 2 of the context names. `*callerFrees` says whether the caller
/// owns the handle.
PKIXCMP_API BOOL CryptAcquireCertificatePrivateKey(PCCERT_CONTEXT context, DWORD flags,
                                                   void* parameters, HCRYPTPROV* provider,
                                                   DWORD* keySpec, BOOL* callerFrees);
/// Structure types 28 (CRYPT_DATA_BLOB, little-endian integer), 29 and 27 (32-bit number), 9
/// (CERT_AUTHORITY_KEY_ID_INFO). The structure and all it points at stand in the caller's buffer.
PKIXCMP_API BOOL CryptEncodeObject(DWORD encodingType, const char* structType, const void* data,
                                   BYTE* encoded, DWORD* length);
PKIXCMP_API BOOL CryptDecodeObject(DWORD encodingType, const char* structType, const BYTE* encoded,
                                   DWORD encodedLength, DWORD flags, void* data, DWORD* length);
