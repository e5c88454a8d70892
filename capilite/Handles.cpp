#include "capilite/Handles.h"

#include <string>

#include "capilite/RecordCoding.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Runtime.h"
#include "platform/crypt/CryptApi.h"

namespace {

/// The last error as a signed result: a system code is moved into the range of results.
int lastErrorResult() {
    auto code = static_cast<int>(GetLastError());
    if (code == 0) code = static_cast<int>(NTE_FAIL);  // a refusal without a reason is still one
    return code > 0 ? static_cast<int>((static_cast<unsigned>(code) & 0xFFFF) | 0x80070000) : code;
}

void checkAcquired(unsigned long long handle) {
    if (handle == 0) AtlThrowImpl(lastErrorResult());
}

}  // namespace

void AtlThrowImpl(int code) { throw CAtlException(code); }

bool ctxt_handle::init() { return rtInitContext(&ctxt_) == 0; }

void ctxt_handle::release() { rtFreeContext(&ctxt_); }

void prov_handle::acquire_any() {
    release();
    HCRYPTPROV handle = 0;
    if (!CryptAcquireContextA(&handle, nullptr, nullptr, PROV_ECDSA_P256, CRYPT_VERIFYCONTEXT)) {
        handle = 0;
    }
    checkAcquired(handle);
    handle_ = handle;
}

void prov_handle::acquire_default(unsigned int algorithm) {
    release();
    unsigned long long handle = QXCAPI_I_CryptGetDefaultCryptProv(algorithm);
    checkAcquired(handle);
    handle_ = handle;
}

void prov_handle::acquire_default(const CACMPT_BLOB& publicKey) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    asn1data::ASN1T_SubjectPublicKeyInfo record;
    asn1DecodeRecord(buffer, publicKey, record);
    acquire_default(CertOIDToAlgId(rtOidToString(record.algorithm.algorithm).c_str()));
}

void prov_handle::release() {
    if (handle_ != 0) CryptReleaseContext(detach(), 0);
}
