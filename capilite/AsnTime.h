#pragma once

#include <string_view>

#include "capilite/Date.h"
#include "platform/Export.h"
#include "platform/asn1/Buffers.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Time.h"

// ASN.1 time strings. Texts returned as `const char*` are zero-terminated and live in the context
// of the buffer. Failures of the runtime are `Asn1Exception` with its text.

PKIXCMP_API void ASN1Time_current(ASN1CTime& time);
PKIXCMP_API const char* ASN1UTCTime_current(ASN1BEREncodeBuffer& buffer);
PKIXCMP_API const char* ASN1GeneralizedTime_current(ASN1BEREncodeBuffer& buffer);
/// The text of the time object.
PKIXCMP_API const char* ASN1Time_set(ASN1BEREncodeBuffer& buffer, const ASN1CTime& time);

/// The earlier of two UTCTime texts, the second when they are the same moment. A text of the form
/// of a GeneralizedTime is compared as that moment, and given back as UTCTime text.
PKIXCMP_API const char* ASN1UTCTime_min(ASN1BEREncodeBuffer& buffer, const char* a, const char* b);
PKIXCMP_API std::string_view ASN1UTCTime_min(ASN1BEREncodeBuffer& buffer, std::string_view a,
                                             std::string_view b);
/// A UTCTime text moved on by a period, as UTCTime text whatever the year.
PKIXCMP_API const char* ASN1UTCTime_add(ASN1BEREncodeBuffer& buffer, const char* text,
                                        const CACMPT_Period& period);
PKIXCMP_API const char* ASN1UTCTime_add(ASN1BEREncodeBuffer& buffer, std::string_view text,
                                        const CACMPT_Period& period);

// Below, equal to or above zero as the first is earlier, the same or later. A tag other than 1 and
// 2 is `Asn1DecodeException` "Unsupported ASN1T_Time.t".
PKIXCMP_API int compare_time(const asn1data::ASN1T_Time& a, const asn1data::ASN1T_Time& b);
PKIXCMP_API int compare_time(const asn1data::ASN1T_Time& a, const ASN1CTime& b);
PKIXCMP_API int compare_time(const ASN1CTime& a, const asn1data::ASN1T_Time& b);
/// Texts with their tags.
PKIXCMP_API int compare_time(std::string_view a, int typeA, std::string_view b, int typeB);

/// Moves the time by days and milliseconds.
PKIXCMP_API void addDays(ASN1CTime& time, int days, int milliseconds);
