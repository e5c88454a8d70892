#pragma once

#include <cstdint>
#include <list>

#include "capilite/Blob.h"
#include "capilite/CertName.h"
#include "capilite/CertificateStore.h"
#include "platform/Export.h"
#include "platform/crypt/CryptApi.h"

// Searching stores for whole encoded objects by predicate.

/// What is searched for: the platform's find type and parameter, narrowed by `operator==`. The
/// parameter is the caller's and outlives the search.
template <class Context>
class StoreFindParam {
public:
    explicit StoreFindParam(std::uint32_t type = 0, const void* parameter = nullptr)
        : findType(type), findParam(parameter) {}
    virtual ~StoreFindParam() = default;
    virtual bool operator==(const Context&) const { return true; }
    bool operator!=(const Context& context) const { return !(*this == context); }

    std::uint32_t findType;  // 0: every object of the store
    const void* findParam;

protected:
    StoreFindParam(const StoreFindParam&) = default;
    StoreFindParam& operator=(const StoreFindParam&) = default;
};

// Predicates. Texts and blobs are references to the caller's objects, which outlive the search,
// unless marked as owned; names that are compared by their normal form are owned. A null or empty
// one passes every object.

/// The text of the issuer holds the substring, and the serial number equals the one given, whose
/// bytes are little-endian as `Serial2Blob` makes them.
class PKIXCMP_API CertFindByIssuerSubStrAndSerial : public StoreFindParam<_CERT_CONTEXT> {
public:
    CertFindByIssuerSubStrAndSerial(const wchar_t* issuerSubstring, const CACMPT_BLOB& serial)
        : issuer_(issuerSubstring), serial_(serial) {}
    bool operator==(const _CERT_CONTEXT& context) const override;

private:
    const wchar_t* issuer_;
    const CACMPT_BLOB& serial_;
};

/// The normal forms of the subjects are equal, and the serial number (owned, little-endian) too.
class PKIXCMP_API CertFindBySubjectAndSerial : public StoreFindParam<_CERT_CONTEXT> {
public:
    CertFindBySubjectAndSerial(const CACMPT_BLOB& subject, const CACMPT_BLOB& serial);
    /// The serial as text ("0x12ab", decimal too); null or empty means any.
    CertFindBySubjectAndSerial(const CACMPT_BLOB& subject, const char* serial);
    bool operator==(const _CERT_CONTEXT& context) const override;

private:
    CACMPT_CERT_NAME subject_;  // keeps its normal form from the first comparison on
    CACMPT_BLOB serial_;
};

/// The issuers are equal byte for byte, and the serial number equals the one given, whose bytes are
/// big-endian.
class PKIXCMP_API CertFindByIssuerAndSerial : public StoreFindParam<_CERT_CONTEXT> {
public:
    CertFindByIssuerAndSerial(const CACMPT_BLOB& issuer, const CACMPT_BLOB& serial)
        : issuer_(issuer), serial_(serial) {}
    bool operator==(const _CERT_CONTEXT& context) const override;

private:
    const CACMPT_BLOB& issuer_;
    const CACMPT_BLOB& serial_;
};

/// The key bits (owned) are those of the certificate or key information given.
class PKIXCMP_API CertFindByPublicKey : public StoreFindParam<_CERT_CONTEXT> {
public:
    /// Decodes the certificate; throws `Asn1Exception`.
    explicit CertFindByPublicKey(const CACMPT_BLOB& certificate);
    explicit CertFindByPublicKey(const CACMPT_PublicKeyInfo& key);
    bool operator==(const _CERT_CONTEXT& context) const override;

private:
    CACMPT_BLOB key_;
};

/// Found by the platform alone, by the find type and parameter given.
class PKIXCMP_API CertFindByKeyIdentifier : public StoreFindParam<_CERT_CONTEXT> {
public:
    using StoreFindParam::StoreFindParam;
};

/// Found by the platform alone, by the find type and parameter given.
class PKIXCMP_API CertFindByCertificateHash : public StoreFindParam<_CERT_CONTEXT> {
public:
    using StoreFindParam::StoreFindParam;
};

/// The text of the issuer holds the substring.
class PKIXCMP_API CrlFindByIssuerSubStr : public StoreFindParam<_CRL_CONTEXT> {
public:
    explicit CrlFindByIssuerSubStr(const wchar_t* issuerSubstring) : issuer_(issuerSubstring) {}
    bool operator==(const _CRL_CONTEXT& context) const override;

private:
    const wchar_t* issuer_;
};

/// The normal forms of the issuers are equal.
class PKIXCMP_API CrlFindByIssuer : public StoreFindParam<_CRL_CONTEXT> {
public:
    explicit CrlFindByIssuer(const CACMPT_BLOB& issuer) : issuer_(issuer) {}
    bool operator==(const _CRL_CONTEXT& context) const override;

private:
    CACMPT_CERT_NAME issuer_;
};

/// As `CrlFindByIssuer`, and the CRL's authority key identifier does not contradict the key
/// identifier: one that is absent, unreadable or without a key identifier passes.
class PKIXCMP_API CrlFindByIssuerKeyId : public CrlFindByIssuer {
public:
    CrlFindByIssuerKeyId(const CACMPT_BLOB& issuer, const CACMPT_BLOB& keyId)
        : CrlFindByIssuer(issuer), keyId_(keyId) {}
    bool operator==(const _CRL_CONTEXT& context) const override;

private:
    const CACMPT_BLOB& keyId_;
};

/// The context of a certificate that stands in a store, with the store open. Null, with the last
/// error 0x80092004, when store or certificate is not there. Bytes that are no certificate are a
/// `CryptException`. The caller frees the context, then closes the store.
PKIXCMP_API const _CERT_CONTEXT* CertStore_FindExisting(const CACMPT_BLOB& certificate,
                                                        void*& store, const wchar_t* name,
                                                        bool system, bool readOnly);
/// Whether a certificate stands in an open store.
PKIXCMP_API bool CertStore_Is(const CACMPT_BLOB& certificate, void* store);
/// Appends the encoded objects that the predicate accepts, in store order.
PKIXCMP_API void CertStore_Find(std::list<CACMPT_BLOB>& out, void* store,
                                const StoreFindParam<_CERT_CONTEXT>& predicate, bool firstOnly);
PKIXCMP_API void CrlStore_Find(std::list<CACMPT_BLOB>& out, void* store,
                               const StoreFindParam<_CRL_CONTEXT>& predicate, bool firstOnly);
/// The provider handle on the private key of a certificate in a store. The caller owns the handle;
/// each failure is a `CryptException`.
PKIXCMP_API void FindInStoreAndAcquirePrivateKey(const CACMPT_BLOB& certificate,
                                                 const wchar_t* storeName, bool system,
                                                 unsigned long long& provider,
                                                 std::uint32_t& keySpec);
