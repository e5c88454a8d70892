#include "platform/asn1/Numbers.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/asn1/Runtime.h"

namespace asn1 {
namespace {

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return 99;
}

}  // namespace

std::string decimalFromOctets(std::string_view octets) {
    std::vector<std::uint32_t> groups;  // of nine digits, lowest first
    for (char octet : octets) {
        std::uint64_t carry = static_cast<unsigned char>(octet);
        for (std::uint32_t& group : groups) {
            carry += static_cast<std::uint64_t>(group) << 8;
            group = static_cast<std::uint32_t>(carry % 1000000000);
            carry /= 1000000000;
        }
        if (carry != 0) groups.push_back(static_cast<std::uint32_t>(carry));
    }
    if (groups.empty()) return "0";
    std::string out = std::to_string(groups.back());
    for (std::size_t i = groups.size() - 1; i-- > 0;) {
        std::string digits = std::to_string(groups[i]);
        out.append(9 - digits.size(), '0').append(digits);
    }
    return out;
}

bool octetsFromDigits(std::string_view digits, unsigned radix, std::string& out) {
    if (digits.empty()) return false;
    std::vector<std::uint32_t> words;  // lowest first
    for (char c : digits) {
        int digit = digitValue(c);
        if (digit >= static_cast<int>(radix)) return false;
        std::uint64_t carry = static_cast<std::uint64_t>(digit);
        for (std::uint32_t& word : words) {
            carry += static_cast<std::uint64_t>(word) * radix;
            word = static_cast<std::uint32_t>(carry);
            carry >>= 32;
        }
        if (carry != 0) words.push_back(static_cast<std::uint32_t>(carry));
        if (words.size() > maxDecimalOctets / 4) return false;
    }
    out.clear();
    for (std::size_t i = words.size(); i-- > 0;) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            auto octet = static_cast<char>(words[i] >> shift);
            if (octet != 0 || !out.empty()) out.push_back(octet);
        }
    }
    return true;
}

const char* bigIntText(ASN1CTXT* ctxt, const std::uint8_t* content, std::size_t length) {
    auto* text = static_cast<char*>(ctxt->alloc(2 * length + 4));
    if (text == nullptr) return nullptr;
    char* p = text;
    *p++ = '0';
    *p++ = 'x';
    const std::uint8_t* end = content + length;
    if (length >= 2 && content[0] == 0 && content[1] >= 0x80) {
        *p++ = '0';  // stands for the octet that keeps the number positive
        ++content;
    }
    for (; content != end; ++content) {
        *p++ = "0123456789abcdef"[*content >> 4];
        *p++ = "0123456789abcdef"[*content & 15];
    }
    *p = '\0';
    return text;
}

long bigIntLength(const char* text) {
    if (text == nullptr || text[0] != '0' || text[1] != 'x') return ASN_E_INVVAL;
    const char* digits = text + 2;
    const char* end = digits;
    while (digitValue(*end) < 16) ++end;
    long count = end - digits;
    if (*end != '\0' || count == 0 || (count % 2 == 1 && *digits != '0')) return ASN_E_INVVAL;
    return (count + 1) / 2;
}

void bigIntContent(const char* text, std::uint8_t* out) {
    const char* p = text + 2;
    if (std::strlen(p) % 2 == 1) {
        *out++ = 0;
        ++p;
    }
    for (; *p != '\0'; p += 2) {
        *out++ = static_cast<std::uint8_t>(digitValue(p[0]) << 4 | digitValue(p[1]));
    }
}

}  // namespace asn1

void rtBigIntInit(ASN1BigInt* number) { *number = ASN1BigInt{}; }

void rtBigIntFree(ASN1BigInt* number) { *number = ASN1BigInt{}; }

int rtBigIntSetStr(ASN1CTXT* ctxt, ASN1BigInt* number, const char* text, int radix) {
    std::string_view digits = text ? text : "";
    bool negative = digits.starts_with('-');
    if (negative) digits.remove_prefix(1);
    if (radix == 0) {
        if (digits.starts_with("0x") || digits.starts_with("0X")) {
            radix = 16;
            digits.remove_prefix(2);
        } else {
            radix = digits.size() > 1 && digits.front() == '0' ? 8 : 10;
        }
    }
    std::string magnitude;
    if (radix < 2 || radix > 36 ||
        !asn1::octetsFromDigits(digits, static_cast<unsigned>(radix), magnitude)) {
        ctxt->setError(ASN_E_INVVAL, "text is no integer", 0);
        return ASN_E_INVVAL;
    }
    number->mag = std::move(magnitude);
    number->sign = number->mag.empty() ? 0 : negative ? -1 : 1;
    return ASN_OK;
}
