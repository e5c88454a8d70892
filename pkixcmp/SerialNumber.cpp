#include "pkixcmp/SerialNumber.h"

#include <algorithm>
#include <cstring>

#include "capilite/BigInt.h"
#include "capilite/CAException.h"
#include "pkixcmp/Server.h"
#include "platform/asn1/Runtime.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/CA_CMP_Util"

void ASN1T_BigInt_gen(unsigned long long provider, unsigned char* bytes, int length) {
    if (!CryptGenRandom(provider, static_cast<DWORD>(length), bytes)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

namespace pkixcmp_detail {
namespace {

/// DER wants no zero bytes in front of a number (X.690 8.3.2), though random ones may have them.
const char* integerText(const unsigned char* bytes, int length, ASN1CTXT* context) {
    while (length > 1 && *bytes == 0) {
        ++bytes;
        --length;
    }
    char text[2 * 16 + 4] = {};
    ASN1T_BigInt_set(text, bytes, length);
    const char* copy = rtCopyCharStr(context, text);
    if (copy == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return copy;
}

}  // namespace

bool SerialNumber::read(const char* certnum) {
    if (std::strlen(certnum) >= TextRoom) return false;
    try {
        ASN1T_BigInt_get(certnum, bytes_, Length);
        return true;
    } catch (const Asn1DecodeException&) {
        return false;
    }
}

void SerialNumber::draw(unsigned long long provider) {
    ASN1T_BigInt_gen(provider, bytes_, RandomLength);
}

void SerialNumber::count() { ASN1T_BigInt_inc(bytes_, Length, RandomLength); }

void SerialNumber::takeCounter(const SerialNumber& other) {
    std::copy(other.bytes_ + RandomLength, other.bytes_ + Length, bytes_ + RandomLength);
}

void SerialNumber::print(char* certnum) const { ASN1T_BigInt_set(certnum, bytes_, Length); }

const char* SerialNumber::text(ASN1CTXT* context) const {
    return integerText(bytes_, Length, context);
}

const char* randomSerial(unsigned long long provider, ASN1CTXT* context) {
    unsigned char bytes[16];
    ASN1T_BigInt_gen(provider, bytes, sizeof bytes);
    return integerText(bytes, sizeof bytes, context);
}

}  // namespace pkixcmp_detail
