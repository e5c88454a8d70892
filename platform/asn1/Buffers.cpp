#include "platform/asn1/Buffers.h"

#include "platform/asn1/Schema.h"

ASN1MessageBufferIF::~ASN1MessageBufferIF() = default;
ASN1BEREncodeBuffer::~ASN1BEREncodeBuffer() = default;
ASN1BERDecodeBuffer::~ASN1BERDecodeBuffer() = default;
ASN1CType::~ASN1CType() = default;

void ASN1BERDecodeBuffer::setBuffer(const std::uint8_t* data, std::size_t length) {
    data_ = data;
    length_ = length;
}

int ASN1BERDecodeBuffer::decode(const asn1::Type& type, void* value) {
    return asn1::decodeBer(getCtxtPtr(), type, data_, length_, value, &lossy_);
}

int ASN1CType::Encode() {
    auto* buffer = dynamic_cast<ASN1BEREncodeBuffer*>(buffer_);
    if (buffer != nullptr) return buffer->encode(*type_, value_);
    context_->setError(ASN_E_INVVAL, "encoding needs an encode buffer", 0);
    return ASN_E_INVVAL;
}

int ASN1CType::Decode() {
    auto* buffer = dynamic_cast<ASN1BERDecodeBuffer*>(buffer_);
    if (buffer != nullptr) return buffer->decode(*type_, value_);
    context_->setError(ASN_E_INVVAL, "decoding needs a decode buffer", 0);
    return ASN_E_INVVAL;
}
