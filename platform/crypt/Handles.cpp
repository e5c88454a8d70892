#include "platform/crypt/Handles.h"

#include <openssl/rand.h>

#include <array>
#include <atomic>
#include <mutex>
#include <vector>

namespace provider {
namespace {

constexpr unsigned shardBits = 4;
constexpr std::size_t shardCount = 1U << shardBits;
constexpr std::size_t slotLimit = 1U << 28;

struct Slot {
    std::shared_ptr<HandleObject> object;
    std::uint32_t generation = 0;
    std::uint32_t references = 0;
};

class Shard {
public:
    Handle add(std::shared_ptr<HandleObject> object, std::size_t shard) {
        const std::lock_guard lock(mutex_);
        if (free_.empty()) {
            require(slots_.size() < slotLimit, NTE_NO_MEMORY);
            slots_.push_back({nullptr, firstGeneration(), 0});
            free_.reserve(slots_.capacity());  // so that a release never allocates
            free_.push_back(static_cast<std::uint32_t>(slots_.size() - 1));
        }
        const std::uint32_t index = free_.back();
        free_.pop_back();
        Slot& slot = slots_[index];
        slot.object = std::move(object);
        slot.references = 1;
        return static_cast<Handle>(slot.generation) << 32 | index << shardBits | shard;
    }

    bool refer(Handle handle, HandleKind kind) {
        const std::lock_guard lock(mutex_);
        Slot* slot = find(handle, kind);
        if (slot == nullptr || slot->references == UINT32_MAX) return false;
        ++slot->references;
        return true;
    }

    bool release(Handle handle, HandleKind kind) {
        std::shared_ptr<HandleObject> last;  // destroyed behind the lock
        const std::lock_guard lock(mutex_);
        Slot* slot = find(handle, kind);
        if (slot == nullptr) return false;
        if (--slot->references != 0) return true;
        last = std::move(slot->object);
        slot->object = nullptr;
        if (++slot->generation == 0) slot->generation = 1;
        free_.push_back(indexOf(handle));
        return true;
    }

    std::shared_ptr<HandleObject> object(Handle handle, HandleKind kind) {
        const std::lock_guard lock(mutex_);
        const Slot* slot = find(handle, kind);
        return slot == nullptr ? nullptr : slot->object;
    }

private:
    static std::uint32_t indexOf(Handle handle) {
        return static_cast<std::uint32_t>(handle) >> shardBits;
    }

    static std::uint32_t firstGeneration() {
        std::uint32_t random = 0;
        require(RAND_bytes(reinterpret_cast<unsigned char*>(&random), sizeof random) == 1,
                NTE_FAIL);
        return random == 0 ? 1 : random;
    }

    Slot* find(Handle handle, HandleKind kind) {
        const std::uint32_t index = indexOf(handle);
        if (index >= slots_.size()) return nullptr;
        Slot& slot = slots_[index];
        const bool live = slot.object != nullptr && slot.generation == handle >> 32;
        return live && slot.object->kind == kind ? &slot : nullptr;
    }

    std::mutex mutex_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
};

/// Never destroyed: handles may be released while the process ends.
std::array<Shard, shardCount>& shards() {
    static auto* table = new std::array<Shard, shardCount>;
    return *table;
}

Shard& shardOf(Handle handle) { return shards()[handle & (shardCount - 1)]; }

}  // namespace

Handle addHandle(std::shared_ptr<HandleObject> object) {
    static std::atomic<std::size_t> next{0};
    thread_local const std::size_t mine = next++ % shardCount;
    return shards()[mine].add(std::move(object), mine);
}

bool referHandle(Handle handle, HandleKind kind) { return shardOf(handle).refer(handle, kind); }

bool releaseHandle(Handle handle, HandleKind kind) { return shardOf(handle).release(handle, kind); }

std::shared_ptr<HandleObject> findHandle(Handle handle, HandleKind kind) {
    return shardOf(handle).object(handle, kind);
}

}  // namespace provider
