#include "platform/asn1/Runtime.h"

#include <cstring>

int rtInitContext(ASN1CTXT* ctxt) {
    ctxt->reset();
    ctxt->clearError();
    return ASN_OK;
}

void rtFreeContext(ASN1CTXT* ctxt) { ctxt->reset(); }

void* rtMemHeapAlloc(ASN1CTXT* ctxt, std::size_t size) { return ctxt->alloc(size); }

void* rtMemHeapAllocZ(ASN1CTXT* ctxt, std::size_t size) {
    void* p = ctxt->alloc(size);
    if (p != nullptr) std::memset(p, 0, size);
    return p;
}

std::string rtErrGetText(ASN1CTXT* ctxt) { return ctxt->errorText(); }

const char* rtCopyCharStr(ASN1CTXT* ctxt, std::string_view text) {
    auto* p = static_cast<char*>(ctxt->alloc(text.size() + 1));
    if (p == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(p, text.data(), text.size());
    p[text.size()] = '\0';
    return p;
}

const std::uint8_t* rtCopyBytes(ASN1CTXT* ctxt, const void* data, std::size_t length) {
    auto* p = static_cast<std::uint8_t*>(ctxt->alloc(length));
    if (p != nullptr && length != 0) std::memcpy(p, data, length);
    return p;
}
