#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "capilite/CAException.h"

// What the fuzz targets share.

/// The entry that each target defines.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the run, so that the input is kept.
inline void require(bool condition) {
    if (!condition) std::abort();
}

/// Calls an action that may refuse its input with a failure of the library; true when it did not.
template <class Action>
bool accepted(Action action) {
    try {
        action();
        return true;
    } catch (const CAException&) {
        return false;
    }
}
