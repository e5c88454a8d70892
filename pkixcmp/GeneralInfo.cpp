#include "pkixcmp/GeneralInfo.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "capilite/CAException.h"
#include "capilite/DecodeBuffer.h"
#include "platform/asn1/asn1data.h"

namespace {

constexpr const char* auditOid = "1.2.643.2.2.41.1";

}  // namespace

const char* const GeneralEventTypes[GENERAL_EVENT_TYPES] = {"Unspecified",
                                                            "ProcessCert",
                                                            "ProcessCRL",
                                                            "RejectCert",
                                                            "RevokeCert",
                                                            "CessationCert",
                                                            "ResumeCert",
                                                            "ArchiveCert",
                                                            "DeleteCert",
                                                            "StartSession",
                                                            "Affiliation",
                                                            "NewAuthorizedPerson",
                                                            "AuthorizedPersonStart",
                                                            "StopSession",
                                                            "StartSessionNewPin"};

unsigned int GeneralEventType_fromString(const char* text) {
    if (text == nullptr) return 0;
    for (int i = 0; i < GENERAL_EVENT_TYPES; ++i) {
        if (std::strcmp(text, GeneralEventTypes[i]) == 0) return static_cast<unsigned int>(i);
    }
    return static_cast<unsigned int>(std::strtoul(text, nullptr, 0));
}

void CACMPT_InfoTypeAndValueList::insert(const CACMPT_InfoTypeAndValue& item) {
    auto same =
        std::find_if(begin(), end(), [&](const auto& other) { return other.oid == item.oid; });
    if (same == end()) {
        push_back(item);
    } else {
        *same = item;
    }
}

void CACMPT_GeneralInfo::set_audit(const GeneralAudit& audit) {
    asn1data::ASN1T_PKIAudit record;
    record.type = audit.type;
    record.session = audit.session;
    record.event_counter = audit.event_counter;
    record.success = audit.success;
    ASN1BEREncodeBuffer buffer;
    if (asn1data::ASN1C_PKIAudit(buffer, record).Encode() <= 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    insert({auditOid, CACMPT_BLOB(buffer.getMsgPtr(), buffer.getMsgLen())});
}

bool CACMPT_GeneralInfo::get_audit(GeneralAudit& audit) const {
    auto item =
        std::find_if(begin(), end(), [](const auto& other) { return other.oid == auditOid; });
    if (item == end()) return false;
    asn1data::ASN1T_PKIAudit record;
    CACMPT_ASN1BERDecodeBuffer buffer(item->value.data, item->value.size);
    if (asn1data::ASN1C_PKIAudit(buffer, record).Decode() < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    audit = {record.type, record.session, record.event_counter, record.success};
    return true;
}
