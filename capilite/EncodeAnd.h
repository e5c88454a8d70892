#pragma once

#include "capilite/Blob.h"
#include "platform/Export.h"
#include "platform/asn1/asn1data.h"

// Encoded values signed and signatures over them checked. The private key stays in the provider; a
// signer is a provider handle and a key spec. The hash follows from the key. Signature
// bytes are reversed between provider and bit string. A wrong signature is a false result; failed
// calls of the provider are `CryptException`, failures of the ASN.1 runtime `Asn1Exception`.

/// A provider context for an algorithm or a provider type. The user releases the handle with
/// `CryptReleaseContext`; `CryptException` when there is none.
struct PKIXCMP_API SimpleCryptProv {
    explicit SimpleCryptProv(const asn1data::ASN1T_AlgorithmIdentifier& algorithm);
    explicit SimpleCryptProv(unsigned int providerType);
    unsigned long long handle = 0;
};
/// A copy of a control object, which gives up its own reference to the context and leaves that of
/// the original alone.
template <class T>
class Asn1CtxtUnrefInDestructor : public T {
public:
    explicit Asn1CtxtUnrefInDestructor(const T& original) : T(original) {}
};

/// Encodes the value into the buffer and signs exactly those bytes. The bit string lives in the
/// buffer's context.
PKIXCMP_API ASN1TDynBitStr* ASN1EncodeBuffer_EncodeAndSignUnsafe(unsigned long long provider,
                                                                 unsigned int keySpec,
                                                                 ASN1BEREncodeBuffer& buffer,
                                                                 ASN1CType& value);
template <class T>
ASN1TDynBitStr* ASN1EncodeBuffer_EncodeAndSign(unsigned long long provider, unsigned int keySpec,
                                               ASN1BEREncodeBuffer& buffer, T& value) {
    Asn1CtxtUnrefInDestructor<T> copy(value);
    return ASN1EncodeBuffer_EncodeAndSignUnsafe(provider, keySpec, buffer, copy);
}

/// Checks a signature over the encoding of the value, with the hash given.
PKIXCMP_API bool ASN1EncodeBuffer_EncodeAndVerifyUnsafe(
    ASN1BEREncodeBuffer& buffer, ASN1CType& value, const ASN1TDynBitStr& signature,
    const asn1data::ASN1T_SubjectPublicKeyInfo& key, unsigned long long provider,
    unsigned int hashAlgorithm);
/// The same, with provider and hash found from signature algorithm and key. False also when the
/// two do not belong together.
PKIXCMP_API bool ASN1EncodeBuffer_EncodeAndVerifyUnsafe(
    ASN1BEREncodeBuffer& buffer, ASN1CType& value, const ASN1TDynBitStr& signature,
    const asn1data::ASN1T_SubjectPublicKeyInfo& key,
    const asn1data::ASN1T_AlgorithmIdentifier& signatureAlgorithm);
template <class T>
bool ASN1EncodeBuffer_EncodeAndVerify(ASN1BEREncodeBuffer& buffer, T& value,
                                      const ASN1TDynBitStr& signature,
                                      const asn1data::ASN1T_SubjectPublicKeyInfo& key,
                                      unsigned long long provider, unsigned int hashAlgorithm) {
    Asn1CtxtUnrefInDestructor<T> copy(value);
    return ASN1EncodeBuffer_EncodeAndVerifyUnsafe(buffer, copy, signature, key, provider,
                                                  hashAlgorithm);
}

// The members of the two families that the library exports.
#define PKIXCMP_SIGNS(Type)                                                           \
    extern template PKIXCMP_API ASN1TDynBitStr* ASN1EncodeBuffer_EncodeAndSign<Type>( \
        unsigned long long, unsigned int, ASN1BEREncodeBuffer&, Type&)
#define PKIXCMP_VERIFIES(Type)                                               \
    extern template PKIXCMP_API bool ASN1EncodeBuffer_EncodeAndVerify<Type>( \
        ASN1BEREncodeBuffer&, Type&, const ASN1TDynBitStr&,                  \
        const asn1data::ASN1T_SubjectPublicKeyInfo&, unsigned long long, unsigned int)
PKIXCMP_SIGNS(asn1data::ASN1C_PKIMessage);
PKIXCMP_SIGNS(asn1data::ASN1C_CertTemplate);
PKIXCMP_SIGNS(asn1data::ASN1C_CertificationRequest_certificationRequestInfo);
PKIXCMP_SIGNS(asn1data::ASN1C_TBSCertificate);
PKIXCMP_SIGNS(asn1data::ASN1C_TBSCertList);
PKIXCMP_VERIFIES(asn1data::ASN1C_PKIMessage);
PKIXCMP_VERIFIES(asn1data::ASN1C_CertTemplate);
PKIXCMP_VERIFIES(asn1data::ASN1C_CertificationRequest_certificationRequestInfo);
PKIXCMP_VERIFIES(asn1data::ASN1C_TBSCertificate);
#undef PKIXCMP_SIGNS
#undef PKIXCMP_VERIFIES

/// The bytes of a signature, last byte first with `reverse`.
PKIXCMP_API void ASN1SignatureToBlob(CACMPT_BLOB& out, const ASN1TDynBitStr& signature,
                                     int reverse);
/// The hash that goes with a party's key, 0 when unknown.
PKIXCMP_API unsigned int GetHashAlg(unsigned long long provider, unsigned int keySpec);
