#pragma once

#include <filesystem>

#include "platform/Export.h"

namespace support {

/// Where a user's and the machine's state lives: `user/` and `machine/` under PKIXCMP_HOME when
/// that is set, else `$XDG_DATA_HOME/pkixcmp` (`~/.local/share/pkixcmp`) and `/var/lib/pkixcmp`.
/// The environment is read on every call. A folder that is missing is made with mode 0700; one that
/// cannot be made is named all the same, and opening a file in it fails.
PKIXCMP_API std::filesystem::path userHome();
PKIXCMP_API std::filesystem::path machineHome();

}  // namespace support
