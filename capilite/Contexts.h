#pragma once

#include <memory>

#include "platform/crypt/CryptApi.h"

// Owners of the platform's certificate and CRL contexts.

struct CertContextFree {
    void operator()(PCCERT_CONTEXT context) const { CertFreeCertificateContext(context); }
};
using CertContextPtr = std::unique_ptr<const CERT_CONTEXT, CertContextFree>;

struct CrlContextFree {
    void operator()(PCCRL_CONTEXT context) const { CertFreeCRLContext(context); }
};
using CrlContextPtr = std::unique_ptr<const CRL_CONTEXT, CrlContextFree>;
