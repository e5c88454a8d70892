#include "capilite/RecordCoding.h"

#include "capilite/CAException.h"

CACMPT_BLOB asn1EncodeRecord(const asn1::Type& type, const void* record) {
    ASN1BEREncodeBuffer buffer;
    if (buffer.encode(type, record) < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
    return CACMPT_BLOB(buffer.getMsgPtr(), buffer.getMsgLen());
}

void asn1DecodeRecord(ASN1BERDecodeBuffer& buffer, const CACMPT_BLOB& encoded,
                      const asn1::Type& type, void* record) {
    buffer.setBuffer(encoded.data, encoded.size);
    if (buffer.decode(type, record) < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(buffer.getCtxtPtr()));
    }
}

void asn1DecodeRecord(ASN1CTXT* ctxt, const CACMPT_BLOB& encoded, const asn1::Type& type,
                      void* record) {
    if (rtDecodeBer(ctxt, type, encoded.data, encoded.size, record) < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt));
    }
}

void asn1CopyRecord(ASN1CTXT* ctxt, const asn1::Type& type, const void* source, void* target) {
    if (rtCopyValue(ctxt, type, source, target) < 0) {
        PKIXCMP_THROW(Asn1Exception, rtErrGetText(ctxt));
    }
}
