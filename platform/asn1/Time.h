#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/asn1/Buffers.h"

/// A calendar time with the text form of an ASN.1 time type. Setters return 0, or a code below zero
/// with the error in the context of the buffer. Getters return the field, or a code below zero when
/// the text given to the constructor does not parse; an empty text is a time that is not set yet.
class PKIXCMP_API ASN1CTime {
public:
    virtual ~ASN1CTime();

    void clear();
    int setYear(int year);
    int setMonth(int month);  // 1..12
    int setDay(int day);      // 1..31
    int setHour(int hour);
    int setMinute(int minute);
    int setSecond(int second);
    /// Fraction of a second; `digits` is how many decimal digits `fraction` has, at most 9.
    int setFraction(int fraction, int digits);
    int getYear() const;
    int getMonth() const;
    int getDay() const;
    int getHour() const;
    int getMinute() const;
    int getSecond() const;
    int getFraction() const;  // milliseconds
    /// The code of the fault in the text given, 0 when it parsed.
    int status() const { return status_; }
    /// Sets the time. Without `utc`, and unless the DER form was asked for, the fields are the
    /// local time's and the text ends in its offset; otherwise it ends in "Z".
    int setTime(std::time_t time, bool utc);
    int addDays(int days);
    int addMilliseconds(int milliseconds);
    /// Below, equal to or above zero as this time is earlier, the same or later.
    int compare(const ASN1CTime& other) const;
    /// Length of the text, or a code below zero when the time has none in this type.
    int getTimeStringLen() const;
    /// Writes the text and a terminating zero; null when it does not fit or has no text.
    const char* getTimeString(char* buffer, int size) const;
    ASN1CTXT* getCtxtPtr() const { return context_.get(); }

protected:
    enum class Kind { utc, generalized };
    ASN1CTime(Kind kind, ASN1MessageBufferIF& buffer, std::string_view text, bool der);

private:
    int fail(const char* text) const;
    int setField(int& field, int value, int low, int high, const char* text);
    bool complete() const;
    int parse(std::string_view text);
    std::string format() const;
    long long ticks() const;  // milliseconds since 1970
    int setTicks(long long ticks);

    ASN1CtxtRef context_;
    Kind kind_;
    bool der_;
    int status_ = 0;
    int year_ = 0, month_ = 0, day_ = 0, hour_ = 0, minute_ = 0, second_ = 0;
    int millisecond_ = 0;
    int zone_ = 0;  // minutes east of UTC that the fields are given in
};

/// RFC 5280 4.1.2.5.1. Years below 50 are 20xx; a year written keeps its last two digits.
/// The last argument asks for the DER form on output.
class PKIXCMP_API ASN1CUTCTime : public ASN1CTime {
public:
    ASN1CUTCTime(ASN1MessageBufferIF& buffer, std::string_view text, bool der = true)
        : ASN1CTime(Kind::utc, buffer, text, der) {}
};

/// RFC 5280 4.1.2.5.2.
class PKIXCMP_API ASN1CGeneralizedTime : public ASN1CTime {
public:
    ASN1CGeneralizedTime(ASN1MessageBufferIF& buffer, std::string_view text, bool der = true)
        : ASN1CTime(Kind::generalized, buffer, text, der) {}
};
