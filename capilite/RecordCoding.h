#pragma once

#include "capilite/Blob.h"
#include "capilite/DecodeBuffer.h"
#include "platform/Export.h"
#include "platform/asn1/Runtime.h"

// DER of records and of the value classes over them. All failures are `Asn1Exception` with the
// runtime's text.
//
// A traits family `ASN1T_…_traits` names its `value_type` and `record_type` and moves a value into
// a record (`set`, whose parts live in the context), out of one (`get`), and copies the record
// (`copy`).

PKIXCMP_API CACMPT_BLOB asn1EncodeRecord(const asn1::Type& type, const void* record);
/// The record's parts live in the context.
PKIXCMP_API void asn1DecodeRecord(ASN1BERDecodeBuffer& buffer, const CACMPT_BLOB& encoded,
                                  const asn1::Type& type, void* record);

PKIXCMP_API void asn1DecodeRecord(ASN1CTXT* ctxt, const CACMPT_BLOB& encoded,
                                  const asn1::Type& type, void* record);
/// A deep copy whose parts live in the context.
PKIXCMP_API void asn1CopyRecord(ASN1CTXT* ctxt, const asn1::Type& type, const void* source,
                                void* target);

template <class Record>
CACMPT_BLOB asn1EncodeRecord(const Record& record) {
    return asn1EncodeRecord(Schema<Record>::type, &record);
}
template <class Record>
void asn1DecodeRecord(ASN1BERDecodeBuffer& buffer, const CACMPT_BLOB& encoded, Record& record) {
    asn1DecodeRecord(buffer, encoded, Schema<Record>::type, &record);
}

template <class Record>
void asn1DecodeRecord(ASN1CTXT* ctxt, const CACMPT_BLOB& encoded, Record& record) {
    asn1DecodeRecord(ctxt, encoded, Schema<Record>::type, &record);
}
template <class Record>
void asn1CopyRecord(ASN1CTXT* ctxt, const Record& source, Record& target) {
    asn1CopyRecord(ctxt, Schema<Record>::type, &source, &target);
}

template <class Traits>
CACMPT_BLOB asn1Encode(const typename Traits::value_type& value) {
    ASN1CtxtRef ctxt;
    typename Traits::record_type record;
    Traits::set(ctxt.get(), record, value);
    return asn1EncodeRecord(record);
}
template <class Traits>
void asn1Decode(const CACMPT_BLOB& encoded, typename Traits::value_type& value) {
    CACMPT_ASN1BERDecodeBuffer buffer;
    typename Traits::record_type record;
    asn1DecodeRecord(buffer, encoded, record);
    Traits::get(record, value);
}
