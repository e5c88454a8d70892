#include "capilite/TimeChoice.h"

#include <cstring>

#include "capilite/CAException.h"
#include "capilite/RecordCoding.h"

void CACMPT_TimeChoice::set_time(const CACMPT_Date& date) {
    // No lower bound: a date before 1950 is UTCTime too.
    constexpr int firstGeneralizedYear = 2050;
    if (date.year() < firstGeneralizedYear) {
        choice_.set<T_utcTime>(date);
    } else {
        choice_.set<T_generalTime>(date);
    }
}

const CACMPT_Date* CACMPT_TimeChoice::get_time() const {
    const CACMPT_Date* utc = choice_.get<T_utcTime>();
    return utc ? utc : choice_.get<T_generalTime>();
}

CACMPT_BLOB CACMPT_TimeChoice::encode() const { return asn1Encode<ASN1T_Time_traits>(*this); }

void CACMPT_TimeChoice::decode(const CACMPT_BLOB& encoded) {
    asn1Decode<ASN1T_Time_traits>(encoded, *this);
}

void ASN1T_Time_traits::set(ASN1CTXT* ctxt, record_type& target, const value_type& source) {
    const CACMPT_Date* date = source.get_time();
    if (date == nullptr) return;
    ASN1BEREncodeBuffer buffer;
    const char* text = rtCopyCharStr(ctxt, date2cpy(buffer, *date, source.get_type()));
    if (text == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    target.t = source.get_type();
    target.u.text = ASN1TString(std::string_view(text));
}

void ASN1T_Time_traits::get(const record_type& source, value_type& target) {
    CACMPT_Date date;
    date1cpy(date, source.u.text, source.t);
    target.set_time(date);
}

void ASN1T_Time_traits::copy(ASN1CTXT* ctxt, const record_type& source, record_type& target) {
    if (asn1data::asn1Copy_Time(ctxt, source, target) < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt));
    }
}
