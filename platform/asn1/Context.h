#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Export.h"

/// Memory and error state of one decoded or built value tree.
///
/// An arena: `alloc` only ever grows it, and dropping the context frees everything at once, so
/// values that live in it own nothing. Counted by reference: buffers hold one each
/// (`ASN1CtxtRef`). A context belongs to one thread at a time.
///
/// The error state is that of the last failure: a code below zero, a text that ends with the path
/// of field names down to the fault, and the absolute offset in the decoded input.
struct PKIXCMP_API ASN1CTXT {
    ASN1CTXT() = default;
    ASN1CTXT(const ASN1CTXT&) = delete;
    ASN1CTXT& operator=(const ASN1CTXT&) = delete;
    ~ASN1CTXT();

    /// Uninitialised memory aligned for any value, or null when none is left; not null for no
    /// octets.
    void* alloc(std::size_t size) noexcept {
        std::size_t need = (size + (size == 0) + 15) & ~std::size_t{15};
        if (need >= size && need <= static_cast<std::size_t>(end_ - next_)) {
            unsigned char* p = next_;
            next_ += need;
            return p;
        }
        return allocSlow(size);
    }
    /// Bytes taken from the arena so far; what the byte budget of a decode is measured by.
    std::size_t used() const noexcept { return closed_ + static_cast<std::size_t>(next_ - begin_); }
    /// Frees all values, keeps the context itself usable.
    void reset() noexcept;
    /// Refuses to grow the arena beyond this many bytes in use; checked when a block is added, so
    /// a little more may be handed out. Gives the limit that was in force.
    std::size_t setLimit(std::size_t limit) noexcept {
        std::size_t old = limit_;
        limit_ = limit;
        return old;
    }

    void setError(int code, std::string_view text, std::size_t offset);
    /// Puts a field name in front of the path of the error; called while a failure unwinds.
    void addPath(std::string_view field);
    void clearError() noexcept;
    int errorCode() const noexcept { return code_; }
    std::size_t errorOffset() const noexcept { return offset_; }
    /// The text of `rtErrGetText`.
    std::string errorText() const;

    void addRef() noexcept { ++refs_; }
    void release() noexcept {
        if (--refs_ == 0) delete this;
    }

private:
    struct Block;
    void* allocSlow(std::size_t size) noexcept;

    unsigned char* next_ = nullptr;
    unsigned char* end_ = nullptr;
    unsigned char* begin_ = nullptr;
    Block* blocks_ = nullptr;
    std::size_t closed_ = 0;
    std::size_t limit_ = static_cast<std::size_t>(-1);
    int refs_ = 0;
    int code_ = 0;
    std::size_t offset_ = 0;
    std::string text_;
    std::string path_;
    // What `xe_*` writes and `xd_*` reads through this context.
    friend struct ASN1CtxtCursor;
    unsigned char* encodeBuffer_ = nullptr;
    std::size_t encodeCapacity_ = 0;
    std::size_t encodeLength_ = 0;
    bool encodeFixed_ = false;  // the buffer is the caller's and does not grow
    const unsigned char* decodePtr_ = nullptr;
    const unsigned char* decodeEnd_ = nullptr;
};

/// One counted reference to a context.
class PKIXCMP_API ASN1CtxtRef {
public:
    /// A new context.
    ASN1CtxtRef() : ctxt_(new ASN1CTXT) { ctxt_->addRef(); }
    explicit ASN1CtxtRef(ASN1CTXT* ctxt) noexcept : ctxt_(ctxt) { ctxt_->addRef(); }
    ASN1CtxtRef(const ASN1CtxtRef& other) noexcept : ASN1CtxtRef(other.ctxt_) {}
    ASN1CtxtRef& operator=(const ASN1CtxtRef& other) noexcept {
        other.ctxt_->addRef();
        ctxt_->release();
        ctxt_ = other.ctxt_;
        return *this;
    }
    ~ASN1CtxtRef() { ctxt_->release(); }
    ASN1CTXT* get() const noexcept { return ctxt_; }
    ASN1CTXT* operator->() const noexcept { return ctxt_; }

private:
    ASN1CTXT* ctxt_;
};
