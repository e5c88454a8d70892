#include "capilite/EncodeAnd.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "capilite/CAException.h"
#include "capilite/CryptGuards.h"
#include "capilite/DefaultProvider.h"
#include "capilite/Handles.h"
#include "capilite/PublicKeyRecord.h"
#include "capilite/Strings.h"
#include "platform/crypt/CryptApi.h"

using namespace asn1data;

namespace {

constexpr unsigned long oidBound = 255;

void encodeInto(ASN1BEREncodeBuffer& buffer, const ASN1CType& value) {
    if (value.EncodeTo(buffer) <= 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
}

// A hash of what the buffer holds.
void hashEncoded(HashHandle& hash, unsigned long long provider, unsigned int algorithm,
                 const ASN1BEREncodeBuffer& buffer) {
    if (!CryptCreateHash(provider, algorithm, 0, 0, hash.out()) ||
        !CryptHashData(hash, buffer.getMsgPtr(), static_cast<DWORD>(buffer.getMsgLen()), 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

// The record of the signature algorithm when it signs with keys of this kind, or null.
PCCRYPT_OID_INFO signatureOf(const char* signature, const char* key) {
    const ALG_ID hash = CertOIDToAlgId(signature);
    if (hash == 0 || (hash & ALG_CLASS_MASK) != ALG_CLASS_HASH) return nullptr;
    const char* hashOid = CertAlgIdToOID(hash);
    if (hashOid == nullptr) return nullptr;
    PCCRYPT_OID_INFO info = QXCryptGetSignatureOIDInfo(key, hashOid);
    return info != nullptr && std::strcmp(info->pszOID, signature) == 0 ? info : nullptr;
}

// The provider type that a signature algorithm asks for, 0 when it asks for none.
DWORD providerTypeOf(const CRYPT_OID_INFO& info) {
    DWORD words[3];
    if (info.dwGroupId != CRYPT_SIGN_ALG_OID_GROUP_ID || info.ExtraInfo.cbData < sizeof words) {
        return 0;
    }
    std::memcpy(words, info.ExtraInfo.pbData, sizeof words);
    return words[2];
}

}  // namespace

SimpleCryptProv::SimpleCryptProv(const ASN1T_AlgorithmIdentifier& algorithm) {
    char oid[oidBound];
    str1cpy(oid, algorithm.algorithm, oidBound, "Invalid ASN1T_AlgorithmIdentifier");
    handle = Quorvex::QXGetDefaultCSP(CertOIDToAlgId(oid));
    if (handle == 0) {
        SetLastError(CRYPT_E_NOT_FOUND);
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

SimpleCryptProv::SimpleCryptProv(unsigned int providerType)
    : handle(QXCAPI_I_GetDefaultProvider(providerType)) {
    if (handle == 0) PKIXCMP_THROW(CryptException, GetLastError());
}

unsigned int GetHashAlg(unsigned long long provider, unsigned int keySpec) {
    // Keys of the usual sizes fit, so that one call serves.
    alignas(CERT_PUBLIC_KEY_INFO) BYTE room[1024];
    std::unique_ptr<BYTE[]> more;
    auto* info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(room);
    DWORD length = sizeof room;
    BOOL exported = CryptExportPublicKeyInfo(provider, keySpec, CERT_ENCODING, info, &length);
    if (!exported && GetLastError() == ERROR_MORE_DATA) {
        more = std::make_unique<BYTE[]>(length);
        info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(more.get());
        exported = CryptExportPublicKeyInfo(provider, keySpec, CERT_ENCODING, info, &length);
    }
    if (!exported) PKIXCMP_THROW(CryptException, GetLastError());
    PCCRYPT_OID_INFO hash = QXCryptGetDefaultHashOIDInfo(info);
    return hash != nullptr ? hash->Algid : 0;
}

ASN1TDynBitStr* ASN1EncodeBuffer_EncodeAndSignUnsafe(unsigned long long provider,
                                                     unsigned int keySpec,
                                                     ASN1BEREncodeBuffer& buffer,
                                                     ASN1CType& value) {
    encodeInto(buffer, value);
    HashHandle hash;
    hashEncoded(hash, provider, GetHashAlg(provider, keySpec), buffer);
    DWORD length = 0;
    if (!CryptSignHashA(hash, keySpec, nullptr, 0, nullptr, &length)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    ASN1CTXT* context = buffer.getCtxtPtr();
    auto* bytes = static_cast<BYTE*>(rtMemHeapAlloc(context, length));
    auto* signature = asn1New<ASN1TDynBitStr>(context);
    if (bytes == nullptr || signature == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    // The length told first is the most it can be; an ECDSA signature varies.
    if (!CryptSignHashA(hash, keySpec, nullptr, 0, bytes, &length)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    std::reverse(bytes, bytes + length);
    *signature = ASN1TDynBitStr(length * 8, bytes);
    return signature;
}

void ASN1SignatureToBlob(CACMPT_BLOB& out, const ASN1TDynBitStr& signature, int reverse) {
    const std::uint32_t length = (signature.numbits + 7) / 8;
    if (length * 8 < signature.numbits) {
        PKIXCMP_THROW(Asn1DecodeException, "signature too long");
    }
    out.assign(signature.data, length);
    if (reverse != 0) std::reverse(out.data, out.data + length);
}

bool ASN1EncodeBuffer_EncodeAndVerifyUnsafe(ASN1BEREncodeBuffer& buffer, ASN1CType& value,
                                            const ASN1TDynBitStr& signature,
                                            const ASN1T_SubjectPublicKeyInfo& key,
                                            unsigned long long provider,
                                            unsigned int hashAlgorithm) {
    CACMPT_BLOB reversed;
    ASN1SignatureToBlob(reversed, signature, 1);
    encodeInto(buffer, value);
    HashHandle hash;
    hashEncoded(hash, provider, hashAlgorithm, buffer);
    const PublicKeyRecord record(key, 128, "algorithm id too long");
    KeyHandle imported;
    if (!CryptImportPublicKeyInfoEx(provider, CERT_ENCODING, record.get(), 0, 0, nullptr,
                                    imported.out())) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    return CryptVerifySignatureA(hash, reversed.data, reversed.size, imported, nullptr, 0) != 0;
}

bool ASN1EncodeBuffer_EncodeAndVerifyUnsafe(ASN1BEREncodeBuffer& buffer, ASN1CType& value,
                                            const ASN1TDynBitStr& signature,
                                            const ASN1T_SubjectPublicKeyInfo& key,
                                            const ASN1T_AlgorithmIdentifier& signatureAlgorithm) {
    char signatureOid[oidBound];
    char keyOid[oidBound];
    str1cpy(signatureOid, signatureAlgorithm.algorithm, oidBound,
            "Invalid ASN1T_AlgorithmIdentifier");
    str1cpy(keyOid, key.algorithm.algorithm, oidBound, "Invalid ASN1T_AlgorithmIdentifier");
    PCCRYPT_OID_INFO info = signatureOf(signatureOid, keyOid);
    if (info == nullptr) return false;
    const DWORD type = providerTypeOf(*info);
    const prov_handle provider(type != 0 ? SimpleCryptProv(type).handle
                                         : SimpleCryptProv(key.algorithm).handle);
    return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(buffer, value, signature, key, provider,
                                                  info->Algid);
}

#define PKIXCMP_SIGNS(Type)                                                    \
    template PKIXCMP_API ASN1TDynBitStr* ASN1EncodeBuffer_EncodeAndSign<Type>( \
        unsigned long long, unsigned int, ASN1BEREncodeBuffer&, Type&)
#define PKIXCMP_VERIFIES(Type)                                                                 \
    template PKIXCMP_API bool ASN1EncodeBuffer_EncodeAndVerify<Type>(                          \
        ASN1BEREncodeBuffer&, Type&, const ASN1TDynBitStr&, const ASN1T_SubjectPublicKeyInfo&, \
        unsigned long long, unsigned int)
PKIXCMP_SIGNS(ASN1C_PKIMessage);
PKIXCMP_SIGNS(ASN1C_CertTemplate);
PKIXCMP_SIGNS(ASN1C_CertificationRequest_certificationRequestInfo);
PKIXCMP_SIGNS(ASN1C_TBSCertificate);
PKIXCMP_SIGNS(ASN1C_TBSCertList);
PKIXCMP_VERIFIES(ASN1C_PKIMessage);
PKIXCMP_VERIFIES(ASN1C_CertTemplate);
PKIXCMP_VERIFIES(ASN1C_CertificationRequest_certificationRequestInfo);
PKIXCMP_VERIFIES(ASN1C_TBSCertificate);
