#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Lasting state: settings and stores of certificates and CRLs. Each folder holds one whole state
// (a user's, the machine's); which folder is whose is decided above. What stands here is the
// interface, one engine behind it is the embedded default.
//
// Every change is one transaction: it is on the disk when the call returns, or it never happened,
// also when the process is killed. Several processes and threads may work on one state at the same
// time; a writer waits for the others. A process may fork whenever it likes.
//
// Failures are thrown as `storage::Error`.

namespace storage {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

enum class Fault {
    noRights,  // the folder or the file may not be read or written
    damaged,   // what is there is no state of ours, or a broken one
    newer,     // written by a later version
    busy,      // another process kept the state locked for longer than anyone should
    noMemory,
    failed,  // the disk is full or broken, or anything else
};

class Error : public std::runtime_error {
public:
    Error(Fault kind, const std::string& text) : std::runtime_error(text), fault(kind) {}
    const Fault fault;
};

/// What a setting holds. `type` is its owner's business, the engine only keeps it.
struct Setting {
    std::string name;
    int type = 0;
    std::variant<std::int64_t, std::string, Bytes> content;
};

/// A tree of settings. A key is named by its components joined with backslashes, without one at
/// either end; the root is the empty text. Names and components are compared byte for byte. A key
/// is there when a setting stands in it or below it.
class Settings {
public:
    virtual ~Settings() = default;
    virtual std::optional<Setting> find(std::string_view key, std::string_view name) = 0;
    /// Creates or replaces.
    virtual void put(std::string_view key, const Setting& setting) = 0;
    /// False when there was none.
    virtual bool erase(std::string_view key, std::string_view name) = 0;
    /// Replaces a setting by what `change` makes of it (null: there is none), in one transaction:
    /// no other writer comes between. Nothing is written when it returns nothing or throws.
    using Change = std::function<std::optional<Setting>(const Setting*)>;
    virtual void update(std::string_view key, std::string_view name, const Change& change) = 0;
    /// The settings of a key whose names stand behind `after`, in the order of their names' bytes;
    /// at most `limit`. An empty `after` begins at the first: no name is empty.
    virtual std::vector<Setting> settings(std::string_view key, std::string_view after,
                                          std::size_t limit) = 0;
    /// The last components of the keys directly below a key, likewise.
    virtual std::vector<std::string> keys(std::string_view key, std::string_view after,
                                          std::size_t limit) = 0;
};

enum class ObjectKind { certificate = 1, crl = 2 };

struct Property {
    std::uint32_t id = 0;
    Bytes content;
};

/// An object on its way into a store: its bytes, what it is found by, its properties.
struct NewObject {
    ObjectKind kind = ObjectKind::certificate;
    BytesView encoded;
    BytesView hash;  // of `encoded`
    BytesView keyIdentifier;
    BytesView subject;
    BytesView issuer;
    std::vector<Property> properties;
};

/// An object of a store. `row` names it in this state and is never given to another.
struct StoredObject {
    std::int64_t row = 0;
    Bytes encoded;
};

/// What adding does when the store holds an object of the same bytes.
enum class IfPresent { refuse, keep, replace };

struct Added {
    std::int64_t row = 0;
    bool wasPresent = false;
};

enum class SearchBy { any, hash, keyIdentifier, subject, issuer };

struct Search {
    std::string_view store;
    ObjectKind kind = ObjectKind::certificate;
    SearchBy by = SearchBy::any;
    BytesView value;
};

/// A run of found objects in the order they were added.
struct Page {
    std::vector<StoredObject> objects;
    bool more = false;  // the search may go on behind the last of them
};

/// Named stores of objects.
class Stores {
public:
    virtual ~Stores() = default;
    virtual bool exists(std::string_view store) = 0;
    /// False when it is there already.
    virtual bool create(std::string_view store) = 0;
    /// Names in the order of their bytes; nothing behind the last.
    virtual std::optional<std::string> nameAt(std::size_t index) = 0;
    /// A store that is missing is made. Replacing keeps the object's place and gives it the
    /// properties of the new one.
    virtual Added add(std::string_view store, const NewObject& object, IfPresent ifPresent) = 0;
    /// False when there is no such object.
    virtual bool erase(std::int64_t row) = 0;
    /// At most `limit` objects behind the row `after`, fewer when they are big. No lock is held
    /// between pages.
    virtual Page find(const Search& search, std::int64_t after, std::size_t limit) = 0;
    virtual std::optional<Bytes> property(std::int64_t row, std::uint32_t id) = 0;
    virtual std::vector<Property> properties(std::int64_t row) = 0;
    /// Null removes. False when there is no such object.
    virtual bool setProperty(std::int64_t row, std::uint32_t id, const Bytes* content) = 0;
};

/// The state in a folder, held by one thread. Short-lived: a thread that holds one must not open
/// the same folder again, nor fork, and lets it go before it waits for anyone.
class Access {
public:
    class Holder;
    Access();
    explicit Access(std::unique_ptr<Holder> holder);
    Access(Access&&) noexcept;
    Access& operator=(Access&&) noexcept;
    ~Access();

    /// False when there is no state in the folder: there is nothing to read.
    explicit operator bool() const { return holder_ != nullptr; }
    Settings& settings() const;
    Stores& stores() const;

private:
    std::unique_ptr<Holder> holder_;
};

/// Makes a folder and those above it that are missing, each for its owner alone. What cannot be
/// made shows when a file in it is opened.
void makeFolder(const std::filesystem::path& folder);

/// Empty when nothing was ever written to the folder. A state that was removed or replaced under a
/// running process is noticed by its next write, and by reads within a hundredth of a second.
Access openForReading(const std::filesystem::path& folder);
/// Makes the state (mode 0600) and its folder when they are missing; never empty.
Access openForWriting(const std::filesystem::path& folder);

}  // namespace storage
