#include <cstring>
#include <cwchar>
#include <new>
#include <vector>

#include "capilite/BigInt.h"
#include "capilite/CAException.h"
#include "capilite/Contexts.h"
#include "capilite/CryptGuards.h"
#include "capilite/Handles.h"
#include "capilite/ParsedRdn.h"
#include "capilite/StoreFind.h"
#include "platform/asn1/asn1data.h"

const wchar_t* const ROOT_STORE = L"Root";
const wchar_t* const CA_STORE = L"CA";
const wchar_t* const CACHE_STORE = L"Cache";

namespace {

unsigned long sideFlag(bool system) {
    return system ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
}

const char* structType(std::size_t number) { return reinterpret_cast<const char*>(number); }

bool sameBytes(const CACMPT_BLOB& blob, const CRYPT_DATA_BLOB& data) {
    return blob.size == data.cbData &&
           (blob.size == 0 || std::memcmp(blob.data, data.pbData, blob.size) == 0);
}

bool holdsText(const CRYPT_DATA_BLOB& name, const wchar_t* substring) {
    if (!substring || !*substring) return true;
    const CACMPT_PARSED_RDN parsed(CACMPT_BLOB(name.pbData, name.cbData));
    return parsed.tostring(3).find(substring) != std::wstring::npos;
}

bool sameName(const CACMPT_CERT_NAME& name, const CRYPT_DATA_BLOB& other) {
    return name == CACMPT_CERT_NAME(other.pbData, other.cbData);
}

/// The content octets of a serial number without the zero that keeps it positive.
CACMPT_BigInteger bigEndianSerial(const CRYPT_DATA_BLOB& serial) {
    DWORD length = 0;
    std::vector<BYTE> encoded;
    const char* const integer = structType(X509_MULTI_BYTE_INTEGER);
    if (!CryptEncodeObject(CERT_ENCODING, integer, &serial, nullptr, &length)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    encoded.resize(length);
    if (!CryptEncodeObject(CERT_ENCODING, integer, &serial, encoded.data(), &length)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    ASN1BERDecodeBuffer buffer(encoded.data(), length);
    asn1data::ASN1T_CertificateSerialNumber number;
    if (asn1data::ASN1C_CertificateSerialNumber(buffer, number).Decode() < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    return ASN1StringToBigInteger(number.value);
}

CACMPT_BLOB littleEndianSerial(const char* text) {
    CACMPT_BLOB serial;
    if (!text || !*text) return serial;
    ctxt_handle context;
    if (!context.init()) PKIXCMP_THROW(CAException, "out of memory");
    Serial2Blob(context, serial, text);
    return serial;
}

CertContextPtr createContext(const CACMPT_BLOB& certificate) {
    return CertContextPtr(
        CertCreateCertificateContext(CERT_ENCODING, certificate.data, certificate.size));
}

CertContextPtr findExisting(void* store, const CERT_CONTEXT& context) {
    return CertContextPtr(
        CertFindCertificateInStore(store, CERT_ENCODING, 0, CERT_FIND_EXISTING, &context, nullptr));
}

/// Walks a store, handing each context back to `next`, which frees it.
template <class Owner, class Next, class Predicate, class Encoded>
void findAll(std::list<CACMPT_BLOB>& out, const Predicate& predicate, bool firstOnly, Next next,
             Encoded encoded) {
    Owner context;
    while (context = Owner(next(context.release())), context) {
        if (predicate != *context) continue;
        out.push_back(encoded(*context));
        if (firstOnly) return;
    }
}

/// What a CRL says about its signer's key; nothing when it says nothing that can be read.
std::vector<BYTE> authorityKeyId(const CRL_INFO& crl) {
    for (DWORD i = 0; i < crl.cExtension; ++i) {
        const CERT_EXTENSION& extension = crl.rgExtension[i];
        if (std::strcmp(extension.pszObjId, "2.5.29.35") != 0) continue;
        const CRYPT_DATA_BLOB& value = extension.Value;
        DWORD length = 0;
        const auto decode = [&](void* room) {
            return CryptDecodeObject(CERT_ENCODING, structType(X509_AUTHORITY_KEY_ID), value.pbData,
                                     value.cbData, 0, room, &length);
        };
        if (!decode(nullptr)) return {};
        std::vector<BYTE> room(length);
        if (!decode(room.data())) return {};
        CERT_AUTHORITY_KEY_ID_INFO info;
        std::memcpy(&info, room.data(), sizeof info);
        return {info.KeyId.pbData, info.KeyId.pbData + info.KeyId.cbData};
    }
    return {};
}

}  // namespace

void CertificateStore::Set(const wchar_t* name, bool system) {
    try {
        name_ = name ? std::optional<std::wstring>(name) : std::nullopt;
    } catch (const std::bad_alloc&) {
        PKIXCMP_THROW(CAException, "out of memory");
    }
    system_ = system;
}

void CertificateStore::Set(const wchar_t* prefixedName) {
    const std::wstring_view text = prefixedName ? prefixedName : L"";
    for (const std::wstring_view prefix : {L"user.", L"system."}) {
        if (text.starts_with(prefix)) {
            return Set(prefixedName + prefix.size(), prefix.front() == L's');
        }
    }
    PKIXCMP_THROW(CAException, "Store should be EITHER user or system");
}

bool CertificateStore::operator<(const CertificateStore& other) const {
    if (system_ != other.system_) return !system_;
    return name_ < other.name_;
}

store_handle::store_handle(void* const& handle, bool isRoot, bool duplicate) : isRoot_(isRoot) {
    if (!handle) PKIXCMP_THROW(CAException, "Store handle is NULL.");
    handle_ = duplicate ? CertDuplicateStore(handle) : handle;
    if (!handle_) PKIXCMP_THROW(CryptException, GetLastError());
}

store_handle::store_handle(const store_handle& other) : isRoot_(other.isRoot_) {
    if (!other.handle_) return;
    handle_ = CertDuplicateStore(other.handle_);
    if (!handle_) PKIXCMP_THROW(CryptException, GetLastError());
}

store_handle::store_handle(store_handle&& other) noexcept
    : handle_(other.handle_), isRoot_(other.isRoot_) {
    other.handle_ = nullptr;
}

store_handle& store_handle::operator=(store_handle other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(isRoot_, other.isRoot_);
    return *this;
}

store_handle::~store_handle() { close(); }

void store_handle::close() {
    if (handle_) CertCloseStore(handle_, 0);
    handle_ = nullptr;
}

bool store_handle::open(const wchar_t* name, bool system, unsigned long flags) {
    return open(name, flags | sideFlag(system));
}

bool store_handle::open(const wchar_t* name, unsigned long flags) {
    if (handle_) PKIXCMP_THROW(CAException, "Store already opened.");
    isRoot_ = name && std::wcscmp(name, ROOT_STORE) == 0;
    handle_ =
        CertOpenStore(structType(CERT_STORE_PROV_SYSTEM), 0, 0, static_cast<DWORD>(flags), name);
    return handle_ != nullptr;
}

bool CertFindByIssuerSubStrAndSerial::operator==(const _CERT_CONTEXT& context) const {
    const CERT_INFO& info = *context.pCertInfo;
    return (serial_.empty() || sameBytes(serial_, info.SerialNumber)) &&
           holdsText(info.Issuer, issuer_);
}

CertFindBySubjectAndSerial::CertFindBySubjectAndSerial(const CACMPT_BLOB& subject,
                                                       const CACMPT_BLOB& serial)
    : subject_(subject), serial_(serial) {}

CertFindBySubjectAndSerial::CertFindBySubjectAndSerial(const CACMPT_BLOB& subject,
                                                       const char* serial)
    : subject_(subject), serial_(littleEndianSerial(serial)) {}

bool CertFindBySubjectAndSerial::operator==(const _CERT_CONTEXT& context) const {
    const CERT_INFO& info = *context.pCertInfo;
    return (serial_.empty() || sameBytes(serial_, info.SerialNumber)) &&
           (subject_.empty() || sameName(subject_, info.Subject));
}

bool CertFindByIssuerAndSerial::operator==(const _CERT_CONTEXT& context) const {
    const CERT_INFO& info = *context.pCertInfo;
    if (!issuer_.empty() && !sameBytes(issuer_, info.Issuer)) return false;
    return serial_.empty() || serial_ == bigEndianSerial(info.SerialNumber);
}

CertFindByPublicKey::CertFindByPublicKey(const CACMPT_BLOB& certificate) {
    ASN1BERDecodeBuffer buffer(certificate.data, certificate.size);
    asn1data::ASN1T_Certificate decoded;
    if (asn1data::ASN1C_Certificate(buffer, decoded).Decode() < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    const ASN1TDynBitStr& bits = decoded.tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
    key_.assign(bits.data, bits.numocts());
}

CertFindByPublicKey::CertFindByPublicKey(const CACMPT_PublicKeyInfo& key) : key_(key.key) {}

bool CertFindByPublicKey::operator==(const _CERT_CONTEXT& context) const {
    const CRYPT_BIT_BLOB& bits = context.pCertInfo->SubjectPublicKeyInfo.PublicKey;
    return key_.empty() || sameBytes(key_, {bits.cbData, bits.pbData});
}

bool CrlFindByIssuerSubStr::operator==(const _CRL_CONTEXT& context) const {
    return holdsText(context.pCrlInfo->Issuer, issuer_);
}

bool CrlFindByIssuer::operator==(const _CRL_CONTEXT& context) const {
    return issuer_.empty() || sameName(issuer_, context.pCrlInfo->Issuer);
}

bool CrlFindByIssuerKeyId::operator==(const _CRL_CONTEXT& context) const {
    if (!CrlFindByIssuer::operator==(context)) return false;
    if (keyId_.empty()) return true;
    std::vector<BYTE> id = authorityKeyId(*context.pCrlInfo);
    return id.empty() || sameBytes(keyId_, {static_cast<DWORD>(id.size()), id.data()});
}

const _CERT_CONTEXT* CertStore_FindExisting(const CACMPT_BLOB& certificate, void*& store,
                                            const wchar_t* name, bool system, bool readOnly) {
    store = nullptr;
    const CertContextPtr sought = createContext(certificate);
    if (!sought) PKIXCMP_THROW(CryptException, GetLastError());
    const DWORD flags = static_cast<DWORD>(sideFlag(system)) | CERT_STORE_OPEN_EXISTING |
                        (readOnly ? CERT_STORE_READONLY : 0);
    HCERTSTORE opened = CertOpenStore(structType(CERT_STORE_PROV_SYSTEM), 0, 0, flags, name);
    CertContextPtr found = opened ? findExisting(opened, *sought) : nullptr;
    if (!found) {
        if (opened) CertCloseStore(opened, 0);
        SetLastError(CRYPT_E_NOT_FOUND);
        return nullptr;
    }
    store = opened;
    return found.release();
}

bool CertStore_Is(const CACMPT_BLOB& certificate, void* store) {
    const CertContextPtr context = createContext(certificate);
    if (!context) return false;
    std::list<CACMPT_BLOB> found;
    CertStore_Find(found, store, StoreFindParam<_CERT_CONTEXT>(CERT_FIND_EXISTING, context.get()),
                   true);
    return !found.empty();
}

void CertStore_Find(std::list<CACMPT_BLOB>& out, void* store,
                    const StoreFindParam<_CERT_CONTEXT>& predicate, bool firstOnly) {
    findAll<CertContextPtr>(
        out, predicate, firstOnly,
        [&](PCCERT_CONTEXT previous) {
            return CertFindCertificateInStore(store, CERT_ENCODING, 0, predicate.findType,
                                              predicate.findParam, previous);
        },
        [](const CERT_CONTEXT& c) { return CACMPT_BLOB(c.pbCertEncoded, c.cbCertEncoded); });
}

void CrlStore_Find(std::list<CACMPT_BLOB>& out, void* store,
                   const StoreFindParam<_CRL_CONTEXT>& predicate, bool firstOnly) {
    findAll<CrlContextPtr>(
        out, predicate, firstOnly,
        [&](PCCRL_CONTEXT previous) {
            return CertFindCRLInStore(store, CERT_ENCODING, 0, predicate.findType,
                                      predicate.findParam, previous);
        },
        [](const CRL_CONTEXT& c) { return CACMPT_BLOB(c.pbCrlEncoded, c.cbCrlEncoded); });
}

void FindInStoreAndAcquirePrivateKey(const CACMPT_BLOB& certificate, const wchar_t* storeName,
                                     bool system, unsigned long long& provider,
                                     std::uint32_t& keySpec) {
    const CertContextPtr sought = createContext(certificate);
    if (!sought) PKIXCMP_THROW(CryptException, GetLastError());
    store_handle store;
    if (!store.open(storeName, system, CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    const CertContextPtr found = findExisting(store.get(), *sought);
    if (!found) PKIXCMP_THROW(CryptException, GetLastError());
    DWORD spec = 0;
    const HCRYPTPROV handle = openPrivateKey(found.get(), spec);
    if (handle == 0) PKIXCMP_THROW(CryptException, GetLastError());
    provider = handle;
    keySpec = spec;
}
