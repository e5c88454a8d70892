#include "capilite/BigInt.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "capilite/Ascii.h"
#include "capilite/CAException.h"
#include "platform/asn1/Runtime.h"

namespace {

constexpr const char* FAILED = "decode integer failed";

}  // namespace

void ASN1T_BigInt_set(char* text, const unsigned char* bytes, int n) {
    static constexpr char digits[] = "0123456789abcdef";
    *text++ = '0';
    *text++ = 'x';
    if (n <= 0) {
        *text = '0';
        return;
    }
    if (bytes[0] & 0x80) *text++ = '0';
    for (int i = 0; i < n; ++i) {
        *text++ = digits[bytes[i] >> 4];
        *text++ = digits[bytes[i] & 15];
    }
    *text = '\0';
}

int hextodgt(char digit) {
    int value = capilite::hexDigitValue(digit);
    if (value < 0) PKIXCMP_THROW(Asn1DecodeException, FAILED);
    return value;
}

void ASN1T_BigInt_get(const char* text, unsigned char* bytes, int n) {
    if (n > 0) std::memset(bytes, 0, static_cast<std::size_t>(n));
    if (text == nullptr || *text == '\0') return;
    std::size_t length = std::strlen(text);
    if (length < 3 || text[0] != '0' || text[1] != 'x') {
        PKIXCMP_THROW(Asn1DecodeException, FAILED);
    }
    const char* first = text + 2;
    if (length % 2 != 0 && *first++ != '0') PKIXCMP_THROW(Asn1DecodeException, FAILED);
    const char* pair = text + length;
    for (int i = n - 1; i >= 0 && pair > first; --i) {
        pair -= 2;
        bytes[i] = static_cast<unsigned char>(hextodgt(pair[0]) << 4 | hextodgt(pair[1]));
    }
}

void ASN1T_BigInt_inc(unsigned char* bytes, int n, int lowest) {
    for (int i = n - 1; i >= std::max(lowest, 0); --i) {
        if (++bytes[i] != 0) return;
    }
}

CACMPT_BigInteger StringToBigInteger(const std::string& text) {
    std::size_t size = text.size() < 4 ? 1 : (text.size() - 2) / 2;
    CACMPT_BigInteger number;
    number.resize(size);
    ASN1T_BigInt_get(text.c_str(), number.data, static_cast<int>(size));
    return number;
}

std::string BigIntegerToString(const CACMPT_BigInteger& number) {
    std::vector<char> text(std::size_t{2} * number.size + 4);
    ASN1T_BigInt_set(text.data(), number.data, static_cast<int>(number.size));
    return text.data();
}

CACMPT_BigInteger ASN1StringToBigInteger(const char* text) {
    return StringToBigInteger(text ? text : "");
}

const char* BigIntegerToASN1String(ASN1CTXT* context, const CACMPT_BigInteger& number) {
    std::string text = BigIntegerToString(number);
    auto* copy = static_cast<char*>(rtMemHeapAlloc(context, text.size() + 1));
    if (copy == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void Serial2Blob(ASN1CTXT* context, CACMPT_BLOB& blob, const char* text) {
    ASN1BigInt number;
    rtBigIntInit(&number);
    if (rtBigIntSetStr(context, &number, text ? text : "", 0) < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(context));
    }
    std::string& octets = number.mag;
    // Zero is an octet, as in the serial number of a context: a blob of none stands for no number.
    if (octets.empty()) octets.assign(1, '\0');
    if (number.sign > 0 && (octets.front() & 0x80) != 0) octets.insert(0, 1, '\0');
    std::reverse(octets.begin(), octets.end());
    blob.assign(octets);
    rtBigIntFree(&number);
}
