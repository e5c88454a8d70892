#pragma once

#include <string>

#include "capilite/Date.h"
#include "pkixcmp/Extensions.h"
#include "pkixcmp/Party.h"

/// A certification authority: an open provider handle on the CA's key, its certificate, and the
/// path of its configuration.
///
/// Under the path stand "caname", "cert", "certnum" (the last serial number), "crl_update" and
/// "cdp". Without a key every operation that signs fails with "no CA private key".
class PKIXCMP_API PKIXCMP_Server : public PKIXCMP_Base {
public:
    /// The stores "CA", "Trust" and "RA" of the machine's side.
    static const CertificateStore ADD_STORE[3];
    const CertificateStore* Get_ADD_STORE() const override;
    int Get_ADD_STORE_LEN() const override;

    /// An object without key or certificate, on which `GenerateRoot` can be called.
    PKIXCMP_Server(const char* providerName, unsigned int providerType);
    /// The CA whose certificate stands under "cert" at the path.
    PKIXCMP_Server(const char* configPath, WndProv* wnd);
    ~PKIXCMP_Server() override;
    void init(const char* providerName, unsigned int providerType);
    void init(const CACMPT_BLOB& certificate, WndProv* wnd);
    /// Gives up key and parts. A second call does nothing.
    void release();

    /// Creates the CA's key and self-signed root certificate and installs them. `container` is
    /// "\\.\READER\NAME"; an empty name is generated. `notBefore` zero means now.
    void GenerateRoot(const wchar_t* subject, const CACMPT_Extensions& extensions,
                      const char* providerName, int providerType, const char* container, bool split,
                      const CACMPT_Period& validity, const CACMPT_Date& notBefore, const char* cdp,
                      WndProv* wnd);
    /// The same, and writes the configuration. The caller owns the result.
    static PKIXCMP_Server* GenerateRoot(const char* configPath, const wchar_t* subject,
                                        const CACMPT_Extensions& extensions, const wchar_t* caName,
                                        bool split, const char* providerName, int providerType,
                                        const char* container, const CACMPT_Period& validity,
                                        const CACMPT_Date& notBefore, const char* cdp,
                                        const CACMPT_Period& crlUpdate, WndProv* wnd);

    /// Checks a request and builds the certificate to be, which lacks only its serial number and
    /// signature. The caller may then change extensions and validity of the record.
    void CertReqMessage_PreProcess(const CACMPT_BLOB& message, CertificateInfo* certificate);
    void CertReqMessage_PreProcess(const CACMPT_BLOB& message, CertificateInfo* certificate, int);
    /// The same for an existing certificate, which is treated as a cross request.
    void CertReqCert_PreProcess(const CACMPT_BLOB& encoded, CertificateInfo* certificate);
    void CertReqCert_PreProcess(const CACMPT_BLOB& encoded, CertificateInfo* certificate, int);
    /// Gives the certificate its serial number, signs it and forms the signed reply. Any number of
    /// processes may issue from one CA: "certnum" is counted on in one step when all that can
    /// refuse the request has been tried, so no number is given out twice. A failure leaves
    /// "certnum" as it was, an absent one perhaps empty; a process that dies before the reply, or
    /// whose signature fails while another one issues, leaves a number unused.
    void CertReqMessage_Process(CertificateInfo* certificate, CACMPT_BLOB& reply);
    /// The same with the "certnum" text in the caller's hands: `certnum` has room for 128
    /// characters.
    void CertReqMessage_Process(CertificateInfo* certificate, CACMPT_BLOB& reply, char* certnum);
    /// A refusal of the raw request of the record with its reject status, text and failure bits.
    void CertReqMessage_Reject(RequestInfo& request, CACMPT_BLOB& reply, bool sign);

    /// The CA's new container, with its signature key. `container` is "\\.\READER\NAME"; an empty
    /// name is generated, an empty reader asked for unless `wnd` is null or keeps the PIN. `random`
    /// is an open provider for random numbers and the list of readers. `parts` receives the opened
    /// parts of a split key, null for one that the provider protects itself: a container that takes
    /// a PIN then gets that of the CA's operator through `wnd`, as a new container of a client
    /// does, unless `no_pin` leaves it open or the provider has dialogues of its own. Provider
    /// types without readers take the name alone.
    static unsigned long long create_container_root(WndProv* wnd, const char* container,
                                                    const char* providerName, unsigned int type,
                                                    bool exportable, void*& parts,
                                                    unsigned long long random);
    /// Opens what a CA's container needs beside itself, which is nothing for a key that the
    /// provider protects: no question goes to `wnd`. A container locked by a PIN stays locked until
    /// `get_pin_load`, unless a PIN callback answers the provider. A container that is opened
    /// through others is a `CryptException`.
    static void read_container_root(unsigned long long root, WndProv* wnd, void*& parts);
    /// Releases the handle and the parts.
    static void close_container_root(unsigned long long provider, void*& parts);

    const std::string& configPath() const { return configPath_; }

private:
    void* parts_ = nullptr;
    std::string configPath_;
};

/// Fills `length` bytes with random ones of the provider.
PKIXCMP_API void ASN1T_BigInt_gen(unsigned long long provider, unsigned char* bytes, int length);
/// The reader of a container as the result, its name through the argument.
PKIXCMP_API std::string fqcn(unsigned long long provider, std::string& container);
