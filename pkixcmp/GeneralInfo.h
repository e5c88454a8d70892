#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include "capilite/Blob.h"
#include "platform/Export.h"

/// One item of a header's generalInfo: dotted identifier, and the DER of the value, empty when the
/// message has none.
struct PKIXCMP_API CACMPT_InfoTypeAndValue {
    CACMPT_InfoTypeAndValue() = default;
    CACMPT_InfoTypeAndValue(std::string itemOid, const CACMPT_BLOB& itemValue)
        : oid(std::move(itemOid)), value(itemValue) {}
    std::string oid;
    CACMPT_BLOB value;
};

class PKIXCMP_API CACMPT_InfoTypeAndValueList : public std::list<CACMPT_InfoTypeAndValue> {
public:
    using std::list<CACMPT_InfoTypeAndValue>::list;
    using std::list<CACMPT_InfoTypeAndValue>::insert;
    /// Replaces the item of the same identifier in its place, or appends.
    void insert(const CACMPT_InfoTypeAndValue& item);
};

/// The audit record that can ride in generalInfo.
struct PKIXCMP_API GeneralAudit {
    std::uint32_t type = 0;  // index of an event name, or any other number
    std::uint32_t session = 0;
    std::uint32_t event_counter = 0;
    bool success = false;
};

/// The items of a header's generalInfo (RFC 4210 5.1.1) with the audit record among them.
class PKIXCMP_API CACMPT_GeneralInfo : public CACMPT_InfoTypeAndValueList {
public:
    using CACMPT_InfoTypeAndValueList::CACMPT_InfoTypeAndValueList;
    /// Puts the audit record into the list, in place of one that is there. `Asn1Exception` when it
    /// cannot be encoded.
    void set_audit(const GeneralAudit& audit);
    /// Reads the first audit record; false, and the argument untouched, when there is none.
    /// `Asn1Exception` for one that does not decode.
    bool get_audit(GeneralAudit& audit) const;
};

/// The names of the event types, "Unspecified" to "StartSessionNewPin".
inline constexpr int GENERAL_EVENT_TYPES = 15;
PKIXCMP_API extern const char* const GeneralEventTypes[GENERAL_EVENT_TYPES];
/// The index of an event name, or the text read as a number (0x hexadecimal, 0 octal), 0 for text
/// that is neither.
PKIXCMP_API unsigned int GeneralEventType_fromString(const char* text);
