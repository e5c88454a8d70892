#pragma once

#include "capilite/Blob.h"
#include "capilite/Choice.h"
#include "capilite/Date.h"
#include "platform/Export.h"
#include "platform/asn1/PKIX1Explicit.h"

/// The ASN.1 Time over a date (RFC 5280 4.1.2.5): a year below 2050 is UTCTime, any other
/// GeneralizedTime. The default is the Unix epoch.
class PKIXCMP_API CACMPT_TimeChoice {
public:
    static constexpr int T_utcTime = 1, T_generalTime = 2;

    CACMPT_TimeChoice() : CACMPT_TimeChoice(CACMPT_Date(0, 0)) {}
    CACMPT_TimeChoice(const CACMPT_Date& date) { set_time(date); }
    CACMPT_TimeChoice(const CACMPT_TimeChoice&) = default;
    CACMPT_TimeChoice& operator=(const CACMPT_TimeChoice&) = default;

    /// Chooses the alternative by the year.
    void set_time(const CACMPT_Date& date);
    /// Null when there is no alternative, that is after `clear`.
    const CACMPT_Date* get_time() const;
    int get_type() const { return choice_.get_type(); }
    void clear() { choice_.clear(); }
    CACMPT_BLOB encode() const;
    void decode(const CACMPT_BLOB& encoded);

private:
    Choice<CACMPT_Date, CACMPT_Date> choice_;
};

/// Moves a time between its value class and the record.
struct PKIXCMP_API ASN1T_Time_traits {
    using value_type = CACMPT_TimeChoice;
    using record_type = asn1data::ASN1T_Time;
    /// The text goes to the context. Without an alternative the target stays as it was.
    static void set(ASN1CTXT* ctxt, record_type& target, const value_type& source);
    /// The tag is not kept: the alternative is chosen again by the year.
    static void get(const record_type& source, value_type& target);
    static void copy(ASN1CTXT* ctxt, const record_type& source, record_type& target);
};
