#include "platform/support/State.h"

#include "platform/support/Home.h"

namespace support {

std::filesystem::path home(Side side) { return side == Side::user ? userHome() : machineHome(); }

storage::Access openForReading(Side side, const std::filesystem::path& folder) {
    try {
        return storage::openForReading(folder);
    } catch (const storage::Error& error) {
        if (side != Side::machine || error.fault != storage::Fault::noRights) throw;
        return storage::Access();
    }
}

}  // namespace support
