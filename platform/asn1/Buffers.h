#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/Export.h"
#include "platform/asn1/BasicTypes.h"
#include "platform/asn1/Context.h"

/// What an encode buffer and a decode buffer have in common: a counted reference to a context, in
/// which the values live that were decoded or built through it.
class PKIXCMP_API ASN1MessageBufferIF {
public:
    virtual ~ASN1MessageBufferIF();
    ASN1CTXT* getCtxtPtr() const { return ctxt_.get(); }
    const ASN1CtxtRef& getContext() const { return ctxt_; }

protected:
    ASN1MessageBufferIF() = default;
    explicit ASN1MessageBufferIF(const ASN1CtxtRef& ctxt) : ctxt_(ctxt) {}
    ASN1MessageBufferIF(const ASN1MessageBufferIF&) = default;
    ASN1MessageBufferIF& operator=(const ASN1MessageBufferIF&) = default;

private:
    ASN1CtxtRef ctxt_;
};

/// Holds the DER of the last value encoded into it. Encoding writes from the back of one growing
/// array. A new encoding replaces the one before; memory taken from the context stays.
class PKIXCMP_API ASN1BEREncodeBuffer : public ASN1MessageBufferIF {
public:
    ASN1BEREncodeBuffer() = default;
    explicit ASN1BEREncodeBuffer(const ASN1CtxtRef& ctxt) : ASN1MessageBufferIF(ctxt) {}
    ~ASN1BEREncodeBuffer() override;
    ASN1BEREncodeBuffer(const ASN1BEREncodeBuffer&) = delete;
    ASN1BEREncodeBuffer& operator=(const ASN1BEREncodeBuffer&) = delete;

    /// Encodes a value of the type; the length, or a code below zero with the error in the context.
    int encode(const asn1::Type& type, const void* value);
    const std::uint8_t* getMsgPtr() const { return bytes_.data() + start_; }
    std::size_t getMsgLen() const { return bytes_.size() - start_; }
    /// A copy of the encoding in the context's memory, null when there is none left.
    const std::uint8_t* getMsgCopy() const;

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t start_ = 0;
};

/// Reads values from bytes. The input is copied once into the context, so decoded values never
/// point at the caller's bytes and live as long as the context. Inputs from 512 MiB on, nesting
/// deeper than 64 levels, and values that would take more than 64 KiB and sixteen times their input
/// besides the copy are refused.
class PKIXCMP_API ASN1BERDecodeBuffer : public ASN1MessageBufferIF {
public:
    ASN1BERDecodeBuffer() = default;
    ASN1BERDecodeBuffer(const std::uint8_t* data, std::size_t length) { setBuffer(data, length); }
    explicit ASN1BERDecodeBuffer(const ASN1CtxtRef& ctxt) : ASN1MessageBufferIF(ctxt) {}
    ~ASN1BERDecodeBuffer() override;

    /// Points at the bytes that the next decode reads; they must last until then.
    void setBuffer(const std::uint8_t* data, std::size_t length);
    /// Decodes one value that must use up the input. 0, or a code below zero with the error in the
    /// context.
    int decode(const asn1::Type& type, void* value);
    /// True when the last decode read something that encoding the value would not give back
    /// byte for byte, such as an indefinite length.
    bool lossy() const { return lossy_; }

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t length_ = 0;
    bool lossy_ = false;
};

/// A value of some type together with the buffer it is encoded into or decoded from.
class PKIXCMP_API ASN1CType {
public:
    virtual ~ASN1CType();
    /// Encodes the value; the length in octets, or a code below zero. Requires an encode buffer.
    int Encode();
    /// Decodes the value; 0, or a code below zero. Requires a decode buffer.
    int Decode();
    ASN1CTXT* getCtxtPtr() const { return context_.get(); }
    const asn1::Type& getType() const { return *type_; }
    void* getValue() const { return value_; }
    /// The same value over another encode buffer.
    int EncodeTo(ASN1BEREncodeBuffer& buffer) const { return buffer.encode(*type_, value_); }

protected:
    ASN1CType(ASN1MessageBufferIF& buffer, const asn1::Type& type, void* value)
        : buffer_(&buffer), context_(buffer.getContext()), type_(&type), value_(value) {}
    ASN1CType(const ASN1CType&) = default;
    ASN1CType& operator=(const ASN1CType&) = default;

private:
    ASN1MessageBufferIF* buffer_;
    ASN1CtxtRef context_;
    const asn1::Type* type_;
    void* value_;
};

/// The control object of a type. `asn1data::ASN1C_Name` is `ASN1Control<asn1data::ASN1T_Name>`.
template <class T>
class ASN1Control : public ASN1CType {
public:
    using value_type = T;
    ASN1Control(ASN1MessageBufferIF& buffer, T& value)
        : ASN1CType(buffer, Schema<T>::type, &value) {}
    ASN1Control(ASN1MessageBufferIF& buffer, const T& value)
        : ASN1CType(buffer, Schema<T>::type, const_cast<T*>(&value)) {}
    T& operator*() const { return *static_cast<T*>(getValue()); }
    T* operator->() const { return static_cast<T*>(getValue()); }
};

/// Declares the schema of `asn1data::ASN1T_name`, outside of any namespace.
#define PKIXCMP_ASN1_SCHEMA(name) \
    template <>                   \
    PKIXCMP_API const asn1::Type Schema<asn1data::ASN1T_##name>::type;
/// Declares the control object of `ASN1T_name`, inside `asn1data`.
#define PKIXCMP_ASN1_CONTROL(name) using ASN1C_##name = ASN1Control<ASN1T_##name>;
