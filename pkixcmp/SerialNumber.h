#pragma once

#include "platform/asn1/Context.h"

// Serial numbers of certificates. Internal to the library.

namespace pkixcmp_detail {

/// The serial number of an issued certificate: four random bytes, new for each certificate, in
/// front of a 48-bit counter. Two numbers of one CA differ in the counter as long as it has not
/// wrapped around.
class SerialNumber {
public:
    static constexpr int Length = 10;
    static constexpr int RandomLength = 4;
    /// Room for the text of a setting, with the terminating zero.
    static constexpr int TextRoom = 128;

    /// Reads the text of "certnum"; empty text is zero. False for text that is no number.
    bool read(const char* certnum);
    /// Replaces the random part.
    void draw(unsigned long long provider);
    /// Counts on; all ones wrap to zero and leave the random part alone.
    void count();
    /// Takes the counter of another number and keeps the random part.
    void takeCounter(const SerialNumber& other);
    /// Writes the text of "certnum": "0x" and the digits of all ten bytes, at most 23 characters.
    void print(char* certnum) const;
    /// The shortest text of the number for an INTEGER, in the context.
    const char* text(ASN1CTXT* context) const;

private:
    unsigned char bytes_[Length] = {};
};

/// A random serial number of 16 bytes as the text of an INTEGER, in the context.
const char* randomSerial(unsigned long long provider, ASN1CTXT* context);

}  // namespace pkixcmp_detail
