#pragma once

#include <utility>

#include "platform/crypt/Failure.h"
#include "platform/storage/Storage.h"

// How stores and contexts fail: as the rest of the provider layer does, with failures of the
// storage turned into codes.

namespace certstore {

inline DWORD codeOf(storage::Fault fault) {
    switch (fault) {
        case storage::Fault::noRights:
            return ERROR_ACCESS_DENIED;
        case storage::Fault::damaged:
        case storage::Fault::newer:
            return ERROR_FILE_CORRUPT;
        case storage::Fault::busy:
            return ERROR_BUSY;
        case storage::Fault::noMemory:
            return NTE_NO_MEMORY;
        case storage::Fault::failed:
            break;
    }
    return CRYPT_E_FILE_ERROR;
}

/// Runs the body of a public function that tells success.
template <class Body>
BOOL guarded(Body&& body) noexcept {
    return provider::guarded([&] {
        try {
            body();
        } catch (const storage::Error& error) {
            provider::fail(codeOf(error.fault));
        }
    });
}

/// Runs the body of a public function that gives a pointer, null on failure.
template <class Body>
auto guardedPointer(Body&& body) noexcept {
    decltype(body()) result = nullptr;
    guarded([&] { result = body(); });
    return result;
}

}  // namespace certstore
