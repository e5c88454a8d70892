#include "capilite/BigInt.h"
#include "capilite/CAException.h"
#include "capilite/Contexts.h"
#include "capilite/Handles.h"
#include "capilite/StoreFind.h"
#include "pkixcmp/Party.h"

// Stores by name and side.

namespace {

/// Opens a store for a change; one that does not exist is created.
store_handle openForChange(const wchar_t* storeName, bool system) {
    store_handle store;
    if (!store.open(storeName, system, 0)) {
        PKIXCMP_THROW(StoreException, GetLastError(), storeName);
    }
    return store;
}

CrlContextPtr createCrl(const CACMPT_BLOB& crl) {
    CrlContextPtr context(CertCreateCRLContext(CERT_ENCODING, crl.data, crl.size));
    if (!context) PKIXCMP_THROW(CryptException, GetLastError());
    return context;
}

}  // namespace

void PKIXCMP_Base::CertStore_Find(std::list<CACMPT_BLOB>& out, const wchar_t* storeName,
                                  const wchar_t* issuerSubstring, const char* serial, bool system) {
    CACMPT_BLOB number;
    if (serial && *serial) {
        ctxt_handle context;
        if (!context.init()) PKIXCMP_THROW(CAException, "out of memory");
        Serial2Blob(context, number, serial);
    }
    store_handle store;
    if (!store.open(storeName, system, CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY)) return;
    const CertFindByIssuerSubStrAndSerial predicate(issuerSubstring, number);
    ::CertStore_Find(out, store.get(), predicate, false);
}

void PKIXCMP_Base::CrlStore_Find(std::list<CACMPT_BLOB>& out, const wchar_t* storeName,
                                 const wchar_t* issuerSubstring, bool system) {
    store_handle store;
    if (!store.open(storeName, system, CERT_STORE_OPEN_EXISTING | CERT_STORE_READONLY)) return;
    ::CrlStore_Find(out, store.get(), CrlFindByIssuerSubStr(issuerSubstring), false);
}

void PKIXCMP_Base::CertStore_Add(const wchar_t* storeName, const CACMPT_BLOB& certificate,
                                 bool system) {
    const CertContextPtr context(
        CertCreateCertificateContext(CERT_ENCODING, certificate.data, certificate.size));
    if (!context) PKIXCMP_THROW(CryptException, GetLastError());
    const store_handle store = openForChange(storeName, system);
    if (!CertAddCertificateContextToStore(store.get(), context.get(),
                                          CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

void PKIXCMP_Base::CertStore_Del(const wchar_t* storeName, const CACMPT_BLOB& certificate,
                                 bool system) {
    void* handle = nullptr;
    CertContextPtr found(CertStore_FindExisting(certificate, handle, storeName, system, false));
    if (!found) PKIXCMP_THROW(CryptException, GetLastError());
    const store_handle store(handle, false, false);
    // The deletion frees the context, whatever comes of it.
    if (!CertDeleteCertificateFromStore(found.release())) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

void PKIXCMP_Base::CrlStore_Add(const wchar_t* storeName, const CACMPT_BLOB& crl, bool system,
                                bool replace) {
    const CrlContextPtr context = createCrl(crl);
    const store_handle store = openForChange(storeName, system);
    if (!CertAddCRLContextToStore(store.get(), context.get(),
                                  replace ? CERT_STORE_ADD_REPLACE_EXISTING : CERT_STORE_ADD_ALWAYS,
                                  nullptr)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

void PKIXCMP_Base::CrlStore_Del(const wchar_t* storeName, const CACMPT_BLOB& crl, bool system) {
    const CrlContextPtr context = createCrl(crl);
    const store_handle store = openForChange(storeName, system);
    CrlContextPtr found(CertFindCRLInStore(store.get(), CERT_ENCODING, 0, CRL_FIND_EXISTING,
                                           context.get(), nullptr));
    if (found && !CertDeleteCRLFromStore(found.release())) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}
