#pragma once

#include <memory>
#include <string>

#include "pkixcmp/Party.h"

/// An end entity: owns a provider context with a key, knows its certificate, and turns a filled
/// `RequestInfo` into the bytes of a request. Nothing is sent by it.
///
/// States, seen from the fields: no key (a context without container), key without certificate
/// (`GenerateKeyPair`), request open (`Certificate` is the self-signed template, also in the store
/// "Request"), enrolled (`Certificate` is the issued one, also in "My").
class PKIXCMP_API PKIXCMP_Client : public PKIXCMP_Base {
public:
    /// The stores "CA" and "Trust" of the machine's side.
    static const CertificateStore ADD_STORE[2];
    const CertificateStore* Get_ADD_STORE() const override;
    int Get_ADD_STORE_LEN() const override;

    /// A client without a key.
    PKIXCMP_Client(const char* providerName, unsigned int providerType);
    /// The client whose certificate stands under "cert" at a path of the configuration tree; an
    /// empty path gives a client without a key.
    PKIXCMP_Client(WndProv& wnd, const char* configPath, const char* providerName,
                   unsigned int providerType);
    /// The client of a certificate in the store "My", or of an open request in "Request".
    PKIXCMP_Client(WndProv& wnd, const CACMPT_BLOB& certificate, bool isRequest,
                   const char* providerName, unsigned int providerType);
    ~PKIXCMP_Client() override;
    /// Makes the object a client without a key.
    void init(const char* providerName, unsigned int providerType);
    /// Makes it the client of a certificate in "My", or in "Request".
    void init(WndProv& wnd, const CACMPT_BLOB& certificate, bool isRequest);

    /// The client of the open request for a public key; the caller owns it. Takes a certificate of
    /// the key or the key bits. "No request!" unless exactly one template stands in "Request".
    static PKIXCMP_Client* OpenRequest(WndProv& wnd, const CACMPT_BLOB& publicKey);
    /// A new client, owned by the caller, with a new key in a new container ("\\.\READER\NAME", a
    /// reader alone, a name alone, or empty for a generated name and a question for the reader).
    static PKIXCMP_Client* GenerateKeyPair(WndProv& wnd, const char* configPath,
                                           const char* providerName, int providerType,
                                           const char* container, unsigned long keySpec, bool flag);
    /// Asks for a new PIN and sets it; false when the person cancels.
    bool ChangePin(WndProv& wnd);

    /// The message for `request->RequestType`: an ir goes out unprotected, all others signed by the
    /// present key. For an ir and a kur also makes the template of the new key.
    void CertReqMessage_EncodeAndSign(RequestInfo* request, CACMPT_BLOB& out);
    /// Makes the new key of a key update (`NewKeyClient`) and fills the request from the present
    /// certificate. Gives 0.
    int UpdateKey(WndProv& wnd, RequestInfo* request, const char* configPath,
                  const char* providerName, int providerType, const char* container,
                  unsigned long keySpec, bool flag);
    static void UpdateKeyInfo(RequestInfo* request, const CACMPT_BLOB& certificate);

    /// Puts an issued certificate beside its key, into "My", and under "cert" at the path when one
    /// is given; then removes the template from "Request".
    void CertRepMessage_Install(const CACMPT_BLOB& certificate, const char* configPath);
    /// Reads the certificate out of a certificate announcement. Checks no signature. Gives 0.
    static int CertAnnContent_DecodeAndVerify(const CACMPT_BLOB& message, CACMPT_BLOB& certificate);

    std::string ConfigPath;
    std::unique_ptr<PKIXCMP_Client> NewKeyClient;  // the new key during a key update

private:
    /// Holds the context in place of the one before.
    void takeProvider(unsigned long long provider);
};
