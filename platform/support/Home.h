#pragma once

#include <filesystem>

#include "platform/Export.h"

namespace support {

/// Where a user's and the machine's state lives: `user/` and `machine/` under PKIXCMP_HOME when that
/// is set, else `$XDG_DATA_HOME/pkixcmp` (`~/.local/share/pkixcmp`) and `/var/lib/pkixcmp`. The
/// environment is read on every call; the folder need not be there yet.
PKIXCMP_API std::filesystem::path userHome();
PKIXCMP_API std::filesystem::path machineHome();

}  // namespace support
