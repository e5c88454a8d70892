#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "capilite/Blob.h"
#include "capilite/CertificateStore.h"
#include "pkixcmp/Messages.h"
#include "platform/Export.h"

class WndProv;

/// What client and CA share: a provider context, a key spec and the party's own
/// certificate, and the operations that need no more than these.
///
/// Owns `ProviderName` and the library's start count; who derives from it releases
/// `ProviderHandle`. An object belongs to one thread at a time. All failures are members of the
/// `CAException` family.
class PKIXCMP_API PKIXCMP_Base {
public:
    /// The stores that are searched beside the system's own for certificates of other parties.
    virtual const CertificateStore* Get_ADD_STORE() const = 0;
    virtual int Get_ADD_STORE_LEN() const = 0;
    virtual ~PKIXCMP_Base();
    PKIXCMP_Base(const PKIXCMP_Base&) = delete;
    PKIXCMP_Base& operator=(const PKIXCMP_Base&) = delete;

    std::uint32_t KeySpec = 0;  // 2 signature, 1 exchange, 0 no key
    std::uint32_t ProviderType = 0;
    char* ProviderName = nullptr;  // owned, may be null
    unsigned long long ProviderHandle = 0;
    CACMPT_BLOB Certificate;  // DER, empty while there is none

    // Decoding. Each believes what it reads, fills the record without clearing it first and gives
    // 0.
    static int CertReqMessage_Decode(const CACMPT_BLOB& message, RequestInfo* request);
    static int CertRepMessage_Decode(const CACMPT_BLOB& message, CertificateInfo* certificate);
    static int Cert_Decode(const CACMPT_BLOB& encoded, CertificateInfo* certificate);
    static int ErrorMsgInfo_Decode(const CACMPT_BLOB& message, ErrorMsgInfo* error);
    /// A signed error message. An empty sender becomes the subject of `certificate`.
    static int ErrorMsgInfo_EncodeAndSign(const ErrorMsgInfo* error, CACMPT_BLOB& out,
                                          unsigned long provider, unsigned long keySpec,
                                          CACMPT_BLOB& certificate);

    /// A PKCS#10 request (RFC 2986) for this party's key with subject and extensions of the record;
    /// with `makeTemplate` also `CreateTemplate` in the user's store.
    void PKCS10_EncodeAndSign(RequestInfo* request, CACMPT_BLOB& out, bool makeTemplate);
    /// The self-signed certificate, valid for a year, that ties the key to the store "Request"
    /// until the issued one arrives. It becomes `Certificate`. The flags are those of the store:
    /// 0x10000 the user's side, 0x20000 the machine's.
    void CreateTemplate(RequestInfo* request, unsigned int storeFlags);

    /// Stores the certificate beside its key in the container.
    static void InstallCertificateToContainer(const CACMPT_BLOB& certificate,
                                              unsigned long long provider, unsigned int keySpec);
    /// Adds the certificate to a system store with a reference to the container of its key.
    static void InstallCertificateToStore(const CACMPT_BLOB& certificate,
                                          unsigned long long provider, unsigned int keySpec,
                                          const wchar_t* storeName, unsigned int flags);

    /// Creates a container and a key in it; the handle is the caller's. `flag` makes the key
    /// exportable.
    static void GenerateKeyPair(WndProv& wnd, const char* providerName, int providerType,
                                const char* reader, const char* container, unsigned long keySpec,
                                bool flag, unsigned long long& provider);

    // Stores by name and side (`system`: the machine's). Finding in a store that does not exist
    // gives nothing; adding creates it.
    static void CertStore_Find(std::list<CACMPT_BLOB>& out, const wchar_t* storeName,
                               const wchar_t* issuerSubstring, const char* serial, bool system);
    static void CrlStore_Find(std::list<CACMPT_BLOB>& out, const wchar_t* storeName,
                              const wchar_t* issuerSubstring, bool system);
    static void CertStore_Add(const wchar_t* storeName, const CACMPT_BLOB& certificate,
                              bool system);
    /// An absent certificate is a failure.
    static void CertStore_Del(const wchar_t* storeName, const CACMPT_BLOB& certificate,
                              bool system);
    static void CrlStore_Add(const wchar_t* storeName, const CACMPT_BLOB& crl, bool system,
                             bool replace);
    /// An absent CRL is no failure.
    static void CrlStore_Del(const wchar_t* storeName, const CACMPT_BLOB& crl, bool system);

protected:
    PKIXCMP_Base();
    /// Replaces the owned copy of the provider's name; null clears it.
    void setProviderName(const char* name);
};
