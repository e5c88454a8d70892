#pragma once

#include "platform/Export.h"

namespace Quorvex {

/// A verification-only provider context that supports an algorithm, 0 when there is none. The
/// caller owns a reference and releases it with `CryptReleaseContext`.
PKIXCMP_API unsigned long long QXGetDefaultCSP(unsigned int algorithm);

}  // namespace Quorvex
