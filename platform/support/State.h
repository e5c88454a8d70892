#pragma once

#include <filesystem>

#include "platform/storage/Storage.h"

// The two sides of the lasting state.

namespace support {

enum class Side { user, machine };

/// As `userHome` and `machineHome`, but only named: nothing is made. The name holds until this
/// thread asks again.
const std::filesystem::path& home(Side side);

/// As `storage::openForReading`, but a state of the machine that may not be read counts as empty: a
/// user without rights on it still has their own.
storage::Access openForReading(Side side, const std::filesystem::path& folder);

}  // namespace support
