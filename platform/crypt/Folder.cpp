#include "platform/crypt/Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>

namespace provider {
namespace {

std::atomic<FileStep> fileStep{nullptr};

[[noreturn]] void failErrno() {
    switch (errno) {
        case EACCES:
        case EPERM:
        case EROFS:
            fail(NTE_PERM);
        case ENOMEM:
            fail(NTE_NO_MEMORY);
        default:
            fail(NTE_SYS_ERR);
    }
}

/// Announces a step, then does it. `action` gives a negative number with `errno` when it fails.
template <class Action>
void step(const char* name, Action&& action) {
    const FileStep watched = fileStep;
    require(watched == nullptr || watched(name), NTE_SYS_ERR);
    while (action() < 0) {
        if (errno != EINTR) failErrno();
    }
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) ::close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number_; }
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

void writeAll(int descriptor, Bytes content) {
    while (!content.empty()) {
        const ssize_t written = ::write(descriptor, content.data(), content.size());
        if (written < 0 && errno != EINTR) failErrno();
        if (written > 0) content = content.subspan(static_cast<std::size_t>(written));
    }
}

bool sameFile(int descriptor, const char* path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::stat(path, &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void makeFolders(const std::filesystem::path& path) {
    std::error_code ignored;
    if (path.empty() || std::filesystem::is_directory(path, ignored)) return;
    makeFolders(path.parent_path());
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) failErrno();
    const auto parent = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    const Descriptor above(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (above.get() < 0 || ::fsync(above.get()) != 0) failErrno();
}

bool isFolder(int parent, const std::string& name) {
    struct stat about {};
    return ::fstatat(parent, name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(about.st_mode);
}

template <class Octets>
std::optional<Octets> readPlainFile(int folder, const std::string& name, std::size_t limit) {
    // Without O_NONBLOCK, a pipe of this name would hang the caller.
    const Descriptor file(
        ::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat about {};
    if (file.get() < 0 && errno == EACCES) fail(NTE_PERM);
    if (file.get() < 0 || ::fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode) ||
        static_cast<std::uintmax_t>(about.st_size) > limit) {
        return std::nullopt;
    }
    Octets content(static_cast<std::size_t>(about.st_size));
    std::size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t got = ::read(file.get(), content.data() + filled, content.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return std::nullopt;
        filled += static_cast<std::size_t>(got);
    }
    return content;
}

}  // namespace

void setFileStep(FileStep watched) { fileStep = watched; }

std::string uniqueName(std::string_view prefix) {
    std::array<unsigned char, 8> random{};
    require(RAND_bytes(random.data(), random.size()) == 1, NTE_FAIL);
    std::string name(prefix);
    for (const unsigned char octet : random) {
        name += "0123456789abcdef"[octet >> 4];
        name += "0123456789abcdef"[octet & 15];
    }
    return name;
}

std::optional<Folder> Folder::open(const std::filesystem::path& path, Lock lock) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        if (errno == ENOENT) return std::nullopt;
        if (errno == ENOTDIR) fail(NTE_KEYSET_ENTRY_BAD);
        failErrno();
    }
    Folder folder(descriptor);
    if (lock == Lock::none) return folder;
    while (::flock(descriptor, lock == Lock::shared ? LOCK_SH : LOCK_EX) != 0) {
        if (errno != EINTR) failErrno();
    }
    if (!sameFile(descriptor, path.c_str())) return std::nullopt;
    return folder;
}

Folder Folder::openOrMake(const std::filesystem::path& path, Lock lock) {
    makeFolders(path);
    auto folder = open(path, lock);
    require(folder.has_value(), NTE_SYS_ERR);
    return std::move(*folder);
}

Folder::Folder(Folder&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Folder& Folder::operator=(Folder&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Folder::~Folder() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

bool Folder::has(const std::string& name) const {
    struct stat about {};
    return ::fstatat(descriptor_, name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0;
}

std::vector<std::string> Folder::list() const {
    // A descriptor of its own: reading a folder moves the descriptor's place.
    const int own = ::openat(descriptor_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(own < 0 ? nullptr : ::fdopendir(own),
                                                        ::closedir);
    if (directory == nullptr) failErrno();
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    std::ranges::sort(names);
    return names;
}

std::optional<std::vector<BYTE>> Folder::read(const std::string& name, std::size_t limit) const {
    return readPlainFile<std::vector<BYTE>>(descriptor_, name, limit);
}

std::optional<Secret> Folder::readSecret(const std::string& name, std::size_t limit) const {
    return readPlainFile<Secret>(descriptor_, name, limit);
}

bool Folder::isPrivate(const std::string& name) const {
    struct stat about {};
    return ::fstatat(descriptor_, name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0 &&
           (about.st_mode & 077) == 0;
}

void Folder::sync() const {
    step("sync folder", [&] { return ::fsync(descriptor_); });
}

void Folder::writeTemporary(const std::string& name, Bytes content) const {
    int number = -1;
    step("create file", [&] {
        number = ::openat(descriptor_, name.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
        return number;
    });
    const Descriptor file(number);
    step("write file", [] { return 0; });
    writeAll(file.get(), content);
    step("sync file", [&] { return ::fsync(file.get()); });
}

void Folder::write(const std::string& name, Bytes content) const {
    const std::string temporary = uniqueName(temporaryPrefix);
    try {
        writeTemporary(temporary, content);
        step("rename file",
             [&] { return ::renameat(descriptor_, temporary.c_str(), descriptor_, name.c_str()); });
    } catch (...) {
        ::unlinkat(descriptor_, temporary.c_str(), 0);
        throw;
    }
    sync();
}

void Folder::write(const std::string& name, std::string_view content) const {
    write(name, Bytes(reinterpret_cast<const BYTE*>(content.data()), content.size()));
}

void Folder::remove(const std::string& name) const {
    const Descriptor file(
        ::openat(descriptor_, name.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat about {};
    if (file.get() >= 0 && ::fstat(file.get(), &about) == 0 && S_ISREG(about.st_mode)) {
        step("wipe file", [] { return 0; });
        writeAll(file.get(), std::vector<BYTE>(static_cast<std::size_t>(about.st_size)));
        step("sync wiped file", [&] { return ::fsync(file.get()); });
    }
    step("remove file", [&] {
        const int result = ::unlinkat(descriptor_, name.c_str(), 0);
        return result != 0 && errno == ENOENT ? 0 : result;
    });
}

Folder Folder::makeFolder(const std::string& name) const {
    step("make folder", [&] { return ::mkdirat(descriptor_, name.c_str(), 0700); });
    const int inner =
        ::openat(descriptor_, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (inner < 0) failErrno();
    return Folder(inner);
}

void Folder::rename(const std::string& from, const std::string& to) const {
    step("rename folder",
         [&] { return ::renameat(descriptor_, from.c_str(), descriptor_, to.c_str()); });
    sync();
}

void Folder::removeAll(const std::string& name) const {
    if (!isFolder(descriptor_, name)) return remove(name);
    const int inner =
        ::openat(descriptor_, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (inner < 0) failErrno();
    const Folder folder(inner);
    for (const std::string& file : folder.list()) folder.removeAll(file);
    step("remove folder", [&] { return ::unlinkat(descriptor_, name.c_str(), AT_REMOVEDIR); });
    sync();
}

}  // namespace provider
