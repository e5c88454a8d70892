#include <string>

#include "fuzz/Fuzz.h"
#include "platform/asn1/asn1data.h"

// The XER reader. The first octet chooses the type, the rest is the text.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    auto types = rtAllTypes();
    const asn1::Type& type = *types[data[0] % types.size()];
    std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);

    ASN1CtxtRef context;
    ASN1CTXT* ctxt = context.get();
    void* value = rtNewValue(ctxt, type);
    if (rtDecodeXer(ctxt, type, text, value) < 0) {
        require(ctxt->errorCode() < 0 && ctxt->errorOffset() <= text.size());
        return 0;
    }
    // What was read has a text, and reading that gives the same one.
    std::string first, second;
    void* again = rtNewValue(ctxt, type);
    require(rtEncodeXer(ctxt, type, value, first) == ASN_OK);
    require(rtDecodeXer(ctxt, type, first, again) == ASN_OK);
    require(rtEncodeXer(ctxt, type, again, second) == ASN_OK && first == second);

    // What can be encoded is decoded to the same bytes, unless it takes more than a decode may.
    ASN1BEREncodeBuffer encoded;
    if (encoded.encode(type, value) < 0) return 0;
    ASN1BERDecodeBuffer buffer(encoded.getMsgPtr(), encoded.getMsgLen());
    void* decoded = rtNewValue(buffer.getCtxtPtr(), type);
    if (int code = buffer.decode(type, decoded); code < 0) {
        require(code == ASN_E_NOMEM || code == ASN_E_DEPTH);
        return 0;
    }
    ASN1BEREncodeBuffer repeated;
    require(repeated.encode(type, decoded) == static_cast<int>(encoded.getMsgLen()));
    require(std::equal(encoded.getMsgPtr(), encoded.getMsgPtr() + encoded.getMsgLen(),
                       repeated.getMsgPtr()));
    return 0;
}
