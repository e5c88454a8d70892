#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/asn1/BasicTypes.h"

// Big integers between their three forms: content octets of an INTEGER, the "0x" text of
// ASN1TBigInt, and decimal text. Decimal conversion is quadratic and therefore bounded.

namespace asn1 {

/// The longest number, in octets, that is converted to or from decimal.
inline constexpr std::size_t maxDecimalOctets = 1024;

/// Decimal digits of an unsigned number of big-endian octets.
std::string decimalFromOctets(std::string_view octets);
/// Big-endian octets, without leading zeros, of an unsigned number in digits of the radix (2..36).
/// False for an empty text, anything that is no digit, or a number above `maxDecimalOctets`.
bool octetsFromDigits(std::string_view digits, unsigned radix, std::string& out);

/// The text of an INTEGER's content octets.
const char* bigIntText(ASN1CTXT* ctxt, const std::uint8_t* content, std::size_t length);
/// Count of content octets that the text stands for, or below zero for a text that is none.
long bigIntLength(const char* text);
/// Writes those octets; the text must have been measured by `bigIntLength`.
void bigIntContent(const char* text, std::uint8_t* out);

}  // namespace asn1
