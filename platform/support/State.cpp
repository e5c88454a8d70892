#include "platform/support/State.h"

namespace support {

storage::Access openForReading(Side side, const std::filesystem::path& folder) {
    try {
        return storage::openForReading(folder);
    } catch (const storage::Error& error) {
        if (side != Side::machine || error.fault != storage::Fault::noRights) throw;
        return storage::Access();
    }
}

}  // namespace support
