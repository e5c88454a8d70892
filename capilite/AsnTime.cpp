#include "capilite/AsnTime.h"

#include <ctime>

#include "capilite/CAException.h"
#include "platform/asn1/Runtime.h"

namespace {

using asn1data::ASN1T_Time;

[[noreturn]] void throwRuntime(ASN1CTXT* ctxt) { PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt)); }

/// A text that is no time has no place in an order.
void checkRead(const ASN1CTime& time) {
    if (time.status() >= 0) return;
    ASN1CTXT* ctxt = time.getCtxtPtr();
    if (ctxt->errorCode() == 0) ctxt->setError(ASN_E_INVVAL, "time is not set", 0);
    throwRuntime(ctxt);
}

int compareRead(const ASN1CTime& a, const ASN1CTime& b) {
    checkRead(a);
    checkRead(b);
    return a.compare(b);
}

/// Calls `use` with the time object of a text and tag.
template <class Use>
int withTime(std::string_view text, int type, Use use) {
    ASN1BEREncodeBuffer buffer;
    if (type == ASN1T_Time::T_utcTime) return use(ASN1CUTCTime(buffer, text, false));
    if (type == ASN1T_Time::T_generalTime) return use(ASN1CGeneralizedTime(buffer, text, false));
    PKIXCMP_THROW(Asn1DecodeException, "Unsupported ASN1T_Time.t");
}

/// The tag whose form the text has. UTCTime wins, since ten digits are both.
int formOf(std::string_view text) {
    ASN1BEREncodeBuffer buffer;
    if (ASN1CUTCTime(buffer, text, false).status() >= 0) return ASN1T_Time::T_utcTime;
    checkRead(ASN1CGeneralizedTime(buffer, text, false));
    return ASN1T_Time::T_generalTime;
}

}  // namespace

void ASN1Time_current(ASN1CTime& time) {
    if (time.setTime(std::time(nullptr), true) != 0) throwRuntime(time.getCtxtPtr());
}

const char* ASN1UTCTime_current(ASN1BEREncodeBuffer& buffer) {
    ASN1CUTCTime time(buffer, "", true);
    ASN1Time_current(time);
    return ASN1Time_set(buffer, time);
}

const char* ASN1GeneralizedTime_current(ASN1BEREncodeBuffer& buffer) {
    ASN1CGeneralizedTime time(buffer, "", true);
    ASN1Time_current(time);
    return ASN1Time_set(buffer, time);
}

const char* ASN1Time_set(ASN1BEREncodeBuffer& buffer, const ASN1CTime& time) {
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    int length = time.getTimeStringLen();
    if (length < 0) throwRuntime(time.getCtxtPtr());
    auto* text = static_cast<char*>(rtMemHeapAlloc(ctxt, static_cast<std::size_t>(length) + 1));
    if (text == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    if (time.getTimeString(text, length + 1) == nullptr) throwRuntime(time.getCtxtPtr());
    return text;
}

std::string_view ASN1UTCTime_min(ASN1BEREncodeBuffer& buffer, std::string_view a,
                                 std::string_view b) {
    int formA = formOf(a), formB = formOf(b);
    bool first = compare_time(a, formA, b, formB) < 0;
    std::string_view earlier = first ? a : b;
    if ((first ? formA : formB) == ASN1T_Time::T_utcTime) return earlier;
    CACMPT_Date date;
    date1cpy(date, earlier, ASN1T_Time::T_generalTime);
    return date2cpy(buffer, date, ASN1T_Time::T_utcTime);
}

const char* ASN1UTCTime_min(ASN1BEREncodeBuffer& buffer, const char* a, const char* b) {
    std::string_view first(a ? a : ""), second(b ? b : "");
    std::string_view earlier = ASN1UTCTime_min(buffer, first, second);
    return earlier.data();
}

const char* ASN1UTCTime_add(ASN1BEREncodeBuffer& buffer, std::string_view text,
                            const CACMPT_Period& period) {
    checkRead(ASN1CUTCTime(buffer, text, false));
    CACMPT_Date date;
    date1cpy(date, text, ASN1T_Time::T_utcTime);
    date += period;
    return date2cpy(buffer, date, ASN1T_Time::T_utcTime);
}

const char* ASN1UTCTime_add(ASN1BEREncodeBuffer& buffer, const char* text,
                            const CACMPT_Period& period) {
    return ASN1UTCTime_add(buffer, std::string_view(text ? text : ""), period);
}

int compare_time(std::string_view a, int typeA, std::string_view b, int typeB) {
    return withTime(a, typeA, [&](const ASN1CTime& first) {
        return withTime(b, typeB,
                        [&](const ASN1CTime& second) { return compareRead(first, second); });
    });
}

int compare_time(const ASN1T_Time& a, const ASN1T_Time& b) {
    return compare_time(a.u.text.view(), a.t, b.u.text.view(), b.t);
}

int compare_time(const ASN1T_Time& a, const ASN1CTime& b) {
    return withTime(a.u.text.view(), a.t,
                    [&b](const ASN1CTime& first) { return compareRead(first, b); });
}

int compare_time(const ASN1CTime& a, const ASN1T_Time& b) {
    return withTime(b.u.text.view(), b.t,
                    [&a](const ASN1CTime& second) { return compareRead(a, second); });
}

void addDays(ASN1CTime& time, int days, int milliseconds) {
    checkRead(time);
    if (time.addDays(days) != 0 || time.addMilliseconds(milliseconds) != 0) {
        throwRuntime(time.getCtxtPtr());
    }
}
