#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/crypt/Der.h"
#include "platform/crypt/Failure.h"
#include "platform/crypt/Secret.h"

// Folders of files that are written whole or not at all, and locked between processes. Files have
// mode 0600, folders 0700. Disk errors end as NTE_PERM, NTE_NO_MEMORY or NTE_SYS_ERR.

namespace provider {

/// Called before each step that changes the disk, with the step's name; false makes the step fail
/// as a disk error does. For tests: null, the default, lets every step happen.
using FileStep = bool (*)(const char* step);
void setFileStep(FileStep step);

/// How the names of files begin that a write has not come to its end with.
inline constexpr std::string_view temporaryPrefix = ".tmp-";

/// A name that no other file has, behind a prefix.
std::string uniqueName(std::string_view prefix);

/// An open folder. The lock, where one is taken, is held until the object dies; it is advisory and
/// holds against other processes and other objects of this one.
class Folder {
public:
    enum class Lock { none, shared, exclusive };

    /// Nothing when the folder does not exist, or was removed while its lock was waited for. Fails
    /// with NTE_KEYSET_ENTRY_BAD when something else has its name.
    static std::optional<Folder> open(const std::filesystem::path& path, Lock lock);
    /// Makes the folder and those above it where they are missing.
    static Folder openOrMake(const std::filesystem::path& path, Lock lock);

    Folder(Folder&& other) noexcept;
    Folder& operator=(Folder&& other) noexcept;
    ~Folder();

    bool has(const std::string& name) const;
    /// Names of files and folders, in order.
    std::vector<std::string> list() const;
    /// Nothing when there is no such plain file, or it is larger than `limit`.
    std::optional<std::vector<BYTE>> read(const std::string& name, std::size_t limit) const;
    /// The same for a file that holds a secret in clear: no copy of it stays behind.
    std::optional<Secret> readSecret(const std::string& name, std::size_t limit) const;
    /// True when only the owner can read the file.
    bool isPrivate(const std::string& name) const;

    /// Replaces or makes a file; after a crash it has its old content or the new one.
    void write(const std::string& name, Bytes content) const;
    void write(const std::string& name, std::string_view content) const;
    /// Overwrites and removes a file; no failure when it is not there.
    void remove(const std::string& name) const;

    /// A new, empty folder inside this one.
    Folder makeFolder(const std::string& name) const;
    void rename(const std::string& from, const std::string& to) const;
    /// Removes a file, or a folder with what is in it.
    void removeAll(const std::string& name) const;

private:
    explicit Folder(int descriptor) : descriptor_(descriptor) {}
    void sync() const;
    void writeTemporary(const std::string& name, Bytes content) const;

    int descriptor_;
};

}  // namespace provider
