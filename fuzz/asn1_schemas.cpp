#include <string>

#include "fuzz/Fuzz.h"
#include "platform/asn1/Tlv.h"
#include "platform/asn1/asn1data.h"

// All schemas through decoder, encoder, copier and both XER interpreters. The first octet chooses
// the type; input that starts like a SEQUENCE is taken whole as each of the objects that files
// hold, so that such files serve as seeds.

namespace {

std::string encode(const asn1::Type& type, const void* value) {
    ASN1BEREncodeBuffer buffer;
    int length = buffer.encode(type, value);
    require(length >= 0);
    return {reinterpret_cast<const char*>(buffer.getMsgPtr()), buffer.getMsgLen()};
}

/// Each of the first entries that can be read is found by its serial number.
void findEach(ASN1CTXT* ctxt, const asn1data::ASN1T_TBSCertList& list) {
    asn1data::ASN1T_RevokedCertificates::Reader reader(list.revokedCertificates);
    asn1data::ASN1T_RevokedCertificate entry, found;
    for (int i = 0; i < 32 && reader.next(ctxt, entry); ++i) {
        asn1data::ASN1T_CertificateSerialNumber serial{entry.userCertificate};
        std::string bytes = encode(Schema<asn1data::ASN1T_CertificateSerialNumber>::type, &serial);
        asn1::Header header;
        const auto* octets = reinterpret_cast<const std::uint8_t*>(bytes.data());
        require(asn1::readHeader(octets, octets + bytes.size(), header) == ASN_OK);
        const auto length = static_cast<std::uint32_t>(header.end - header.content);
        require(list.revokedCertificates.find(ctxt, {length, header.content}, found) == 1);
        require(std::string_view(found.userCertificate) == entry.userCertificate);
    }
}

/// A decoded value must give its bytes back, its copy too; what encoding normalises must stay so.
void tryType(const asn1::Type& type, const std::uint8_t* data, std::size_t size) {
    ASN1BERDecodeBuffer buffer(data, size);
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    void* value = rtNewValue(ctxt, type);
    if (buffer.decode(type, value) < 0) {
        require(ctxt->errorCode() < 0 && ctxt->errorOffset() <= size);
        return;
    }
    std::string bytes = encode(type, value);
    require(buffer.lossy() || bytes == std::string(reinterpret_cast<const char*>(data), size));

    ASN1CtxtRef copies;
    void* copy = rtNewValue(copies.get(), type);
    require(rtCopyValue(copies.get(), type, value, copy) == ASN_OK);
    require(encode(type, copy) == bytes);

    ASN1BERDecodeBuffer again(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    void* second = rtNewValue(again.getCtxtPtr(), type);
    if (int code = again.decode(type, second); code < 0) {
        require(code == ASN_E_NOMEM);  // shorter bytes have a smaller budget
    } else {
        require(!again.lossy() && encode(type, second) == bytes);
    }

    if (&type == &Schema<asn1data::ASN1T_CertificateList>::type) {
        findEach(ctxt, static_cast<asn1data::ASN1T_CertificateList*>(value)->tbsCertList);
    }

    std::string xer, repeated;
    if (rtEncodeXer(ctxt, type, value, xer) < 0) return;
    void* read = rtNewValue(copies.get(), type);
    require(rtDecodeXer(copies.get(), type, xer, read) == ASN_OK);
    require(rtEncodeXer(ctxt, type, read, repeated) == ASN_OK && repeated == xer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    if (data[0] == 0x30) {
        for (const asn1::Type* type : {&Schema<asn1data::ASN1T_Certificate>::type,
                                       &Schema<asn1data::ASN1T_CertificateList>::type,
                                       &Schema<asn1data::ASN1T_CertificationRequest>::type,
                                       &Schema<asn1data::ASN1T_CertReqMessages>::type,
                                       &Schema<asn1data::ASN1T_PKIMessage>::type}) {
            tryType(*type, data, size);
        }
        return 0;
    }
    auto types = rtAllTypes();
    tryType(*types[(data[0] < 0x30 ? data[0] : data[0] - 1) % types.size()], data + 1, size - 1);
    return 0;
}
