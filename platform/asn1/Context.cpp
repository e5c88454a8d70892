#include "platform/asn1/Context.h"

#include <algorithm>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#define PKIXCMP_ARENA_EXACT 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PKIXCMP_ARENA_EXACT 1
#endif
#endif

namespace {

[[maybe_unused]] constexpr std::size_t smallestBlock = 8 * 1024 - 64;
[[maybe_unused]] constexpr std::size_t largestBlock = 1024 * 1024;
constexpr std::size_t largestPiece = std::size_t{1} << 34;  // far above any value

}  // namespace

struct alignas(16) ASN1CTXT::Block {
    Block* previous;
    std::size_t capacity;
    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(this + 1); }
};

ASN1CTXT::~ASN1CTXT() { reset(); }

void ASN1CTXT::reset() noexcept {
    while (blocks_ != nullptr) {
        Block* previous = blocks_->previous;
        std::free(blocks_);
        blocks_ = previous;
    }
    next_ = end_ = begin_ = nullptr;
    closed_ = 0;
    encodeBuffer_ = nullptr;
    encodeCapacity_ = encodeLength_ = 0;
    encodeFixed_ = false;
    decodePtr_ = decodeEnd_ = nullptr;
}

void* ASN1CTXT::allocSlow(std::size_t size) noexcept {
    std::size_t need = (size + (size == 0) + 15) & ~std::size_t{15};
    std::size_t taken = used();
    if (need < size || need > largestPiece) return nullptr;
    if (need > limit_ || taken > limit_ - need) return nullptr;
#ifdef PKIXCMP_ARENA_EXACT
    // Each piece is a block of its own, so that the sanitizer sees the end of it.
    std::size_t capacity = need;
#else
    std::size_t grown = blocks_ ? std::min(blocks_->capacity * 2, largestBlock) : smallestBlock;
    std::size_t capacity = std::max(need, grown);
#endif
    auto* block = static_cast<Block*>(std::malloc(sizeof(Block) + capacity));
    if (block == nullptr) return nullptr;
    block->previous = blocks_;
    block->capacity = capacity;
    blocks_ = block;
    closed_ = taken;
    begin_ = block->bytes();
    next_ = begin_ + need;
    end_ = begin_ + capacity;
    return begin_;
}

void ASN1CTXT::setError(int code, std::string_view text, std::size_t offset) {
    code_ = code;
    text_ = text;
    offset_ = offset;
    path_.clear();
}

void ASN1CTXT::addPath(std::string_view field) {
    if (!path_.empty() && path_.front() != '[') path_.insert(0, 1, '.');
    path_.insert(0, field);
}

void ASN1CTXT::clearError() noexcept {
    code_ = 0;
    offset_ = 0;
    text_.clear();
    path_.clear();
}

std::string ASN1CTXT::errorText() const {
    if (code_ == 0) return "no error";
    std::string out = "ASN.1 error " + std::to_string(code_) + ": " + text_;
    if (offset_ != 0) out += ", offset " + std::to_string(offset_);
    if (!path_.empty()) out += ", in " + path_;
    return out;
}
