#pragma once

#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "platform/storage/Storage.h"
#include "platform/support/Support.h"

// What the functions of the settings service share: one value, the parts of a path, and how a
// failure inside becomes a code.

struct TSupportRegistrySearchValue_ {
    storage::Setting setting;
};

namespace support::settings {

/// A failure of the service by its code.
struct Failure {
    int code;
};

inline void require(bool condition, int code) {
    if (!condition) throw Failure{code};
}

/// Runs the body of a public function, whose result is a code.
template <class Body>
int guarded(Body&& body) noexcept {
    try {
        body();
        return SUPPORT_OK;
    } catch (const Failure& failure) {
        return failure.code;
    } catch (const storage::Error& error) {
        return error.fault == storage::Fault::noRights ? SUPPORT_NO_RIGHTS : SUPPORT_FAILED;
    } catch (const std::bad_alloc&) {
        return SUPPORT_NO_MEMORY;
    } catch (...) {
        return SUPPORT_FAILED;
    }
}

/// The components of a path joined by single backslashes; empty ones between two backslashes and at
/// the end are passed over. Fails for a path that does not begin with a backslash.
std::string joinedPath(const char* path);

/// A path taken apart into the key and the name of a value in it.
struct Place {
    std::string key;
    std::string name;
    explicit Place(const char* path);
    bool isMachines() const;
};

}  // namespace support::settings
