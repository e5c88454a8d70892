#pragma once

#include <cstdio>
#include <string>

#include "platform/Export.h"

/// Opens a file under the thread's intended identity, and again while the open is interrupted:
/// attempts follow at once, then yielding, then every four milliseconds, and end after the 8192nd
/// repetition. Null when there is no file, with its `errno`; failures for good are told to the
/// system log. Blocks signals in the calling thread while it sleeps.
extern "C" PKIXCMP_API std::FILE* support_an_fopen(const char* name, const char* mode);

namespace capilite {

/// What the retrying open does to the world; replaced in tests by one that fails on demand.
struct OpenOperations {
    int (*enterIdentity)();
    int (*leaveIdentity)();
    std::FILE* (*open)(const char* name, const char* mode);
    void (*yield)();
    void (*sleep)(unsigned microseconds);
    void (*log)(const std::string& line);
};
PKIXCMP_API std::FILE* openRetrying(const char* name, const char* mode,
                                    const OpenOperations& operations);

}  // namespace capilite
