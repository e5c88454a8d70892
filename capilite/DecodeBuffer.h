#pragma once

#include "platform/Export.h"
#include "platform/asn1/Buffers.h"

/// The decode buffer of the value and message layers: its destructor drops the reference to the
/// context and nothing else, so what was decoded through it lives on in any other holder of the
/// context.
class PKIXCMP_API CACMPT_ASN1BERDecodeBuffer : public ASN1BERDecodeBuffer {
public:
    using ASN1BERDecodeBuffer::ASN1BERDecodeBuffer;
    ~CACMPT_ASN1BERDecodeBuffer() override = default;
};
