#pragma once

#include <cstdint>
#include <memory>

#include "platform/crypt/Failure.h"

// Handles of the provider layer: 64-bit numbers for counted objects. A number holds a slot and the
// slot's generation, which starts at random and moves on with every release, so a stale number and
// a made-up one are told from a live one. Slots stand in several tables, each with its own lock; a
// thread takes new slots from one of them, so threads with handles of their own rarely meet.

namespace provider {

using Handle = unsigned long long;

enum class HandleKind : std::uint8_t { provider, key, hash, store };

class HandleObject {
public:
    explicit HandleObject(HandleKind objectKind) : kind(objectKind) {}
    virtual ~HandleObject() = default;
    HandleObject(const HandleObject&) = delete;
    HandleObject& operator=(const HandleObject&) = delete;

    const HandleKind kind;
};

/// A new handle with one reference.
Handle addHandle(std::shared_ptr<HandleObject> object);
/// Takes one more reference; false when the handle is not a live one of this kind.
bool referHandle(Handle handle, HandleKind kind);
/// Drops a reference; the handle dies with the last. The object lives on while it is in use.
bool releaseHandle(Handle handle, HandleKind kind);
/// Null when the handle is not a live one of this kind.
std::shared_ptr<HandleObject> findHandle(Handle handle, HandleKind kind);

/// The object of type `T` behind a handle; fails with ERROR_INVALID_HANDLE.
template <class T>
std::shared_ptr<T> handled(Handle handle) {
    auto object = findHandle(handle, T::handleKind);
    require(object != nullptr, ERROR_INVALID_HANDLE);
    return std::static_pointer_cast<T>(std::move(object));
}

}  // namespace provider
