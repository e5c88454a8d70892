#pragma once

#include <openssl/err.h>

#include <new>
#include <utility>

#include "platform/crypt/CryptApi.h"

// How the provider layer fails inside: a thrown code, turned into a last error where a public
// function ends. Nothing but the code travels, so no secret can.

namespace provider {

struct Failure {
    DWORD code;
};

[[noreturn]] inline void fail(DWORD code) { throw Failure{code}; }

inline void require(bool condition, DWORD code) {
    if (!condition) fail(code);
}

/// Runs the body of a public function. Success leaves the last error alone, so that a caller may
/// clean up before it asks what failed.
template <class Body>
BOOL guarded(Body&& body) noexcept {
    DWORD code = ERROR_SUCCESS;
    try {
        std::forward<Body>(body)();
        return 1;
    } catch (const Failure& failure) {
        code = failure.code;
    } catch (const std::bad_alloc&) {
        code = NTE_NO_MEMORY;
    } catch (...) {
        code = NTE_FAIL;
    }
    ERR_clear_error();
    SetLastError(code);
    return 0;
}

/// Gives `size` bytes back by the two-call pattern.
void giveBytes(const void* bytes, std::size_t size, BYTE* data, DWORD* length);

}  // namespace provider
