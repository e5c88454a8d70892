#pragma once

#include "capilite/Strings.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/crypt/CryptApi.h"

/// A decoded public key as the provider's record. Refers to the decoded one, which must outlive it.
class PublicKeyRecord {
public:
    /// `Asn1DecodeException` with `message` when the dotted identifier does not fit `bound`
    /// characters with the zero, at most 255.
    PublicKeyRecord(const asn1data::ASN1T_SubjectPublicKeyInfo& key, unsigned long bound,
                    const char* message) {
        str1cpy(oid_, key.algorithm.algorithm, bound, message);
        info_.Algorithm.pszObjId = oid_;
        if (key.algorithm.m.parametersPresent) {
            info_.Algorithm.Parameters = {key.algorithm.parameters.numocts,
                                          const_cast<BYTE*>(key.algorithm.parameters.data)};
        }
        info_.PublicKey = {key.subjectPublicKey.numocts(),
                           const_cast<BYTE*>(key.subjectPublicKey.data), 0};
    }
    PublicKeyRecord(const PublicKeyRecord&) = delete;
    PublicKeyRecord& operator=(const PublicKeyRecord&) = delete;

    const CERT_PUBLIC_KEY_INFO* get() const { return &info_; }
    const char* oid() const { return oid_; }

private:
    char oid_[255];
    CERT_PUBLIC_KEY_INFO info_{};
};
