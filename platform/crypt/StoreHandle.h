#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/crypt/Handles.h"
#include "platform/support/State.h"

namespace certstore {

/// One side's state that a store's objects stand in, named by its folder: what was opened stays the
/// same when the environment changes.
struct Place {
    support::Side side = support::Side::user;
    std::filesystem::path folder;

    storage::Access openForReading() const { return support::openForReading(side, folder); }
    storage::Access openForWriting() const { return storage::openForWriting(folder); }
};

/// An open store.
class StoreHandle : public provider::HandleObject {
public:
    static constexpr provider::HandleKind handleKind = provider::HandleKind::store;

    StoreHandle(std::string storeName, support::Side side, bool isReadOnly);

    const std::string name;  // UTF-8
    const bool readOnly;
    /// Where objects are read from, in this order: the user's view holds the machine's objects too.
    /// The first is where they are written.
    std::vector<Place> places;
};

/// Fails with ERROR_INVALID_HANDLE for a stale or foreign one.
std::shared_ptr<StoreHandle> storeOf(HCERTSTORE store);
HCERTSTORE toHandle(provider::Handle handle);
provider::Handle fromHandle(HCERTSTORE store);

}  // namespace certstore
