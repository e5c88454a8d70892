#include "capilite/RecordHelpers.h"

#include <string>
#include <vector>

#include "capilite/CAException.h"
#include "capilite/CryptGuards.h"
#include "capilite/Oid.h"
#include "capilite/RecordCoding.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/Runtime.h"
#include "platform/crypt/CryptApi.h"

namespace {

using namespace asn1data;

constexpr const char* OUT_OF_MEMORY = "out of memory";

[[noreturn]] void throwLastError() { PKIXCMP_THROW(CryptException, GetLastError()); }

template <class T>
T* newRecord(ASN1CTXT* context) {
    T* record = asn1New<T>(context);
    if (record == nullptr) PKIXCMP_THROW(CAException, OUT_OF_MEMORY);
    return record;
}

const std::uint8_t* copyBytes(ASN1CTXT* context, const void* bytes, std::size_t n) {
    const std::uint8_t* copy = rtCopyBytes(context, bytes, n);
    if (copy == nullptr && n != 0) PKIXCMP_THROW(CAException, OUT_OF_MEMORY);
    return copy;
}

/// Sets identifier and parameters; no parameters leave the field absent.
void fillAlgorithm(ASN1CTXT* context, ASN1T_AlgorithmIdentifier& record, const char* oidText,
                   const unsigned char* parameters, std::uint32_t length) {
    if (str2oid(context, oidText, &record.algorithm)) {
        PKIXCMP_THROW(Asn1DecodeException, "str2oid failed");
    }
    if (parameters == nullptr || length == 0) return;
    record.m.parametersPresent = true;
    record.parameters = ASN1OpenType(length, copyBytes(context, parameters, length));
}

/// The exported public key of a provider's key, with all that it points at.
class PublicKeyInfo {
public:
    PublicKeyInfo(unsigned long long prov, unsigned int keySpec, DWORD encodingType) {
        DWORD length = 0;
        if (!CryptExportPublicKeyInfo(prov, keySpec, encodingType, nullptr, &length)) {
            throwLastError();
        }
        bytes_.resize((length + sizeof(Unit) - 1) / sizeof(Unit));
        if (!CryptExportPublicKeyInfo(prov, keySpec, encodingType, info(), &length)) {
            throwLastError();
        }
    }
    CERT_PUBLIC_KEY_INFO* info() { return reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(bytes_.data()); }
    const CERT_PUBLIC_KEY_INFO* operator->() { return info(); }

private:
    using Unit = std::max_align_t;
    std::vector<Unit> bytes_;
};

/// DER of a little-endian number.
CACMPT_BLOB encodeNumber(const CACMPT_BLOB& number) {
    const char* type = reinterpret_cast<const char*>(X509_MULTI_BYTE_INTEGER);
    CRYPT_DATA_BLOB source = {number.size, number.data};
    DWORD length = 0;
    if (!CryptEncodeObject(CERT_ENCODING, type, &source, nullptr, &length)) throwLastError();
    CACMPT_BLOB encoded;
    encoded.resize(length);
    if (!CryptEncodeObject(CERT_ENCODING, type, &source, encoded.data, &length)) throwLastError();
    encoded.size = length;
    return encoded;
}

template <class Extensions, class Oid>
auto* findItem(Extensions& extensions, const Oid& oid) {
    for (auto& item : extensions) {
        if (item.extnID == oid) return &item;
    }
    return static_cast<decltype(&*extensions.begin())>(nullptr);
}

template <class Oid>
const ASN1OpenType* findValue(const ASN1T_Extensions& extensions, const Oid& oid, bool& critical) {
    const ASN1T_Extension* item = findItem(extensions, oid);
    if (item == nullptr) return nullptr;
    critical = item->critical;
    return &item->extnValue;
}

}  // namespace

// ---- Extensions ----

ASN1T_Extension* ASN1T_Extensions_find_item(ASN1T_Extensions& extensions, const ASN1TObjId& oid) {
    return findItem(extensions, oid);
}
ASN1T_Extension* ASN1T_Extensions_find_item(ASN1T_Extensions& extensions, const ASN1OBJID& oid) {
    return findItem(extensions, oid);
}
const ASN1T_Extension* ASN1T_Extensions_find_item(const ASN1T_Extensions& extensions,
                                                  const ASN1TObjId& oid) {
    return findItem(extensions, oid);
}
const ASN1T_Extension* ASN1T_Extensions_find_item(const ASN1T_Extensions& extensions,
                                                  const ASN1OBJID& oid) {
    return findItem(extensions, oid);
}
const ASN1OpenType* ASN1T_Extensions_find(const ASN1T_Extensions& extensions, const ASN1TObjId& oid,
                                          bool& critical) {
    return findValue(extensions, oid, critical);
}
const ASN1OpenType* ASN1T_Extensions_find(const ASN1T_Extensions& extensions, const ASN1OBJID& oid,
                                          bool& critical) {
    return findValue(extensions, oid, critical);
}

// ---- Keys and algorithms ----

ASN1T_SubjectPublicKeyInfo* ASN1T_SubjectPublicKeyInfo_set(unsigned long long prov,
                                                           unsigned int keySpec,
                                                           ASN1CTXT* context) {
    PublicKeyInfo key(prov, keySpec, X509_ASN_ENCODING);
    auto* record = newRecord<ASN1T_SubjectPublicKeyInfo>(context);
    fillAlgorithm(context, record->algorithm, key->Algorithm.pszObjId,
                  key->Algorithm.Parameters.pbData, key->Algorithm.Parameters.cbData);
    const CRYPT_BIT_BLOB& bits = key->PublicKey;
    std::uint32_t unused = bits.cbData == 0 ? 0 : bits.cUnusedBits & 7;
    record->subjectPublicKey =
        ASN1TDynBitStr(bits.cbData * 8 - unused, copyBytes(context, bits.pbData, bits.cbData));
    return record;
}

ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(ASN1CTXT* context, const char* oidText,
                                                         const unsigned char* parameters,
                                                         unsigned int length) {
    auto* record = newRecord<ASN1T_AlgorithmIdentifier>(context);
    fillAlgorithm(context, *record, oidText, parameters, length);
    return record;
}

ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(ASN1CTXT* context, const char* oidText,
                                                         const CACMPT_BLOB* parameters) {
    return parameters
               ? ASN1T_AlgorithmIdentifier_set(context, oidText, parameters->data, parameters->size)
               : ASN1T_AlgorithmIdentifier_set(context, oidText, nullptr, 0);
}

ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(ASN1CTXT* context, unsigned long long prov,
                                                         unsigned int keySpec) {
    PublicKeyInfo key(prov, keySpec, CERT_ENCODING);
    PCCRYPT_OID_INFO algorithm = QXCryptGetDefaultSignatureOIDInfo(key.info());
    if (algorithm == nullptr) PKIXCMP_THROW(CAException, "oid info not found");
    // RFC 4055 section 5: parameters of an RSA signature are NULL; RFC 5758: of ECDSA, absent.
    static constexpr unsigned char null[] = {0x05, 0x00};
    ASN1OBJID keyType;
    bool rsa = !str2oid(key->Algorithm.pszObjId, &keyType) && id_rsaEncryption == keyType;
    return ASN1T_AlgorithmIdentifier_set(context, algorithm->pszOID, rsa ? null : nullptr,
                                         rsa ? sizeof null : 0);
}

void ASN1T_AlgorithmIdentifier_get(CACMPT_AlgorithmIdentifier& target,
                                   const ASN1T_AlgorithmIdentifier& record) {
    constexpr std::size_t limit = 254;
    static_assert(limit < sizeof target.algorithm);
    if (rtOidToStr(record.algorithm, target.algorithm, limit) < 0) {
        PKIXCMP_THROW(Asn1DecodeException, "algorithm identifier is too long");
    }
    if (record.m.parametersPresent) {
        target.parameters.assign(record.parameters.data, record.parameters.numocts);
    }
}

ASN1T_KeyIdentifier* ASN1T_KeyIdentifier_set(unsigned long long prov, ASN1CTXT* context,
                                             const ASN1TDynBitStr& bits) {
    HashHandle hash;
    if (!CryptCreateHash(prov, CALG_SHA1, 0, 0, hash.out())) throwLastError();
    if (!CryptHashData(hash, bits.data, bits.numocts(), 0)) throwLastError();
    DWORD length = 0;
    if (!CryptGetHashParam(hash, HP_HASHVAL, nullptr, &length, 0)) throwLastError();
    auto* value = static_cast<std::uint8_t*>(rtMemHeapAlloc(context, length));
    if (value == nullptr) PKIXCMP_THROW(CAException, OUT_OF_MEMORY);
    if (!CryptGetHashParam(hash, HP_HASHVAL, value, &length, 0)) throwLastError();
    auto* record = newRecord<ASN1T_KeyIdentifier>(context);
    record->numocts = length;
    record->data = value;
    return record;
}

// ---- Small records ----

void fillIssuerAndSerialNumber(ASN1CTXT* context, ASN1T_IssuerAndSerialNumber** record,
                               const CACMPT_BLOB& issuer, const CACMPT_BLOB& serial) {
    auto* made = newRecord<ASN1T_IssuerAndSerialNumber>(context);
    asn1DecodeRecord(context, issuer, made->issuer);
    ASN1T_CertificateSerialNumber number;
    asn1DecodeRecord(context, encodeNumber(serial), number);
    made->serialNumber = number.value;
    *record = made;
}

void fillNullParams(ASN1BEREncodeBuffer& encodeBuffer, ASN1BERDecodeBuffer& decodeBuffer,
                    ASN1T_AlgorithmIdentifier& record) {
    ASN1T_NULLParams null;
    int length = ASN1C_NULLParams(encodeBuffer, null).Encode();
    if (length < 0) PKIXCMP_THROW(Asn1Exception, rtErrGetText(encodeBuffer.getCtxtPtr()));
    auto n = static_cast<std::uint32_t>(length);
    record.parameters =
        ASN1OpenType(n, copyBytes(decodeBuffer.getCtxtPtr(), encodeBuffer.getMsgPtr(), n));
    record.m.parametersPresent = true;
}
