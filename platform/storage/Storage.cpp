#include "platform/storage/Storage.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <mutex>

#include "platform/storage/SqliteConnection.h"

// Which connection serves whom: each thread keeps one for each folder it works in. No connection
// crosses a fork, where locks taken by the parent would seem to be the child's: before a fork all
// connections of the process are closed, as soon as the calls in hand have ended, and reopened when
// they are next used.

namespace storage {

namespace {

constexpr const char* fileName = "pkixcmp.db";
constexpr std::size_t keptFolders = 8;
constexpr auto lookInterval = std::chrono::milliseconds(10);

using Clock = std::chrono::steady_clock;

/// A thread's connection to the database of a folder.
struct Folder {
    std::filesystem::path path;
    std::filesystem::path file;
    unsigned generation = 0;   // of the process that opened the connection
    Clock::time_point looked;  // when the file was last seen to be the one opened
    struct stat identity = {};
    std::unique_ptr<sqlite::Connection> connection;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<Stores> stores;

    explicit Folder(const std::filesystem::path& folder) : path(folder), file(folder / fileName) {}
    ~Folder() { close(); }
    void close();
    bool isOpen() const { return connection != nullptr; }
    void dropIfStale(bool writing);
    bool identify();
    void connect(bool writing);
};

/// What one thread has open.
class ThreadState {
public:
    ThreadState();
    ~ThreadState();
    Folder& folder(const std::filesystem::path& path);

    std::mutex inUse;      // held during an access, and by a fork
    bool holding = false;  // an access of this thread is alive; only this thread looks
    std::vector<std::unique_ptr<Folder>> folders;  // the one used last in front
};

/// What the process has open. Locks are taken in the order `lock`, `inUse`, `opening`. Never
/// destroyed: threads may outlive the statics.
struct Process {
    std::mutex lock;
    std::vector<ThreadState*> threads;
    std::mutex opening;  // a file is made and closed again: that must not meet an open of the same
    std::atomic<bool> forking = false;
    std::atomic<unsigned> generation = 0;  // forks between this process and the first

    Process() { ::pthread_atfork(beforeFork, afterFork, inChild); }
    static void beforeFork();
    static void afterFork();
    static void inChild();
};

Process& process() {
    static Process* const instance = new Process;
    return *instance;
}

ThreadState& thisThread() {
    thread_local ThreadState state;
    return state;
}

void Process::beforeFork() {
    Process& self = process();
    // A thread may fork before it ever opened anything: its state is made here, before the lock
    // is held, because making it takes the lock.
    ThreadState& forker = thisThread();
    self.lock.lock();
    self.forking = true;
    for (ThreadState* thread : self.threads) {
        // A thread that forks in the middle of its own access keeps it; the child lets it be.
        if (thread == &forker && thread->holding) continue;
        thread->inUse.lock();
        for (auto& folder : thread->folders) folder->close();
    }
    self.opening.lock();
}

void Process::afterFork() {
    Process& self = process();
    self.forking = false;
    self.opening.unlock();
    for (ThreadState* thread : self.threads) {
        if (thread != &thisThread() || !thread->holding) thread->inUse.unlock();
    }
    self.lock.unlock();
}

void Process::inChild() {
    Process& self = process();
    ++self.generation;
    // The other threads stayed with the parent, and what they had here is room for new ones.
    std::erase_if(self.threads, [](ThreadState* thread) { return thread != &thisThread(); });
    afterFork();
}

ThreadState::ThreadState() {
    std::lock_guard guard(process().lock);
    process().threads.push_back(this);
}

ThreadState::~ThreadState() {
    std::lock_guard guard(process().lock);
    std::erase(process().threads, this);
    folders.clear();
}

Folder& ThreadState::folder(const std::filesystem::path& path) {
    auto found = std::find_if(folders.begin(), folders.end(),
                              [&](const auto& folder) { return folder->path == path; });
    if (found == folders.end()) {
        if (folders.size() == keptFolders) folders.pop_back();
        found = folders.insert(folders.end(), std::make_unique<Folder>(path));
    }
    std::rotate(folders.begin(), found, found + 1);
    return *folders.front();
}

void Folder::close() {
    stores.reset();
    settings.reset();
    if (connection != nullptr && generation != process().generation) connection->abandon();
    connection.reset();
}

/// Closes a connection that is another process's, or whose file was removed or replaced. A read
/// does not look at the file each time: that would double its cost.
void Folder::dropIfStale(bool writing) {
    if (!isOpen()) return;
    if (generation != process().generation) return close();
    Clock::time_point now = Clock::now();
    if (!writing && now - looked < lookInterval) return;
    looked = now;
    struct stat present = {};
    if (::stat(file.c_str(), &present) != 0 || present.st_ino != identity.st_ino ||
        present.st_dev != identity.st_dev) {
        close();
    }
}

[[noreturn]] void failFile(const std::filesystem::path& file, int error) {
    bool noRights =
        error == EACCES || error == EPERM || error == EROFS || error == ENOENT || error == ENOTDIR;
    throw Error(noRights ? Fault::noRights : Fault::failed,
                file.string() + ": " + std::strerror(error));
}

/// Makes the entries of a folder last, where the file system knows how to (EINVAL: it does not).
/// False, with errno, when that failed.
bool syncFolder(const std::filesystem::path& path) {
    int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return false;
    const bool good = ::fsync(folder) == 0 || errno == EINVAL;
    const int error = errno;
    ::close(folder);
    errno = error;
    return good;
}

/// Makes an empty file for its owner alone, lasting once this returns.
void makeFile(const std::filesystem::path& file) {
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    int made = ::open(file.c_str(), flags, 0600);
    if (made < 0 && errno == ENOENT) {
        makeFolder(file.parent_path());
        made = ::open(file.c_str(), flags, 0600);
    }
    if (made < 0) {
        if (errno == EEXIST) return;
        failFile(file, errno);
    }
    ::close(made);
    if (!syncFolder(file.parent_path())) failFile(file, errno);
}

/// False when there is no file.
bool Folder::identify() {
    if (::stat(file.c_str(), &identity) == 0) return true;
    if (errno != ENOENT && errno != ENOTDIR) failFile(file, errno);
    return false;
}

void Folder::connect(bool writing) {
    if (!writing && !identify()) return;
    std::lock_guard guard(process().opening);
    if (writing) makeFile(file);
    if (!identify()) return;
    auto opened = std::make_unique<sqlite::Connection>(file);
    if (!sqlite::hasSchema(*opened)) {
        if (!writing) return;
        sqlite::makeSchema(*opened);
    }
    settings = sqlite::makeSettings(*opened);
    stores = sqlite::makeStores(*opened);
    connection = std::move(opened);
    generation = process().generation;
    looked = Clock::now();
}

}  // namespace

class Access::Holder {
public:
    Holder(const std::filesystem::path& path, bool writing) : thread_(thisThread()) {
        if (thread_.holding) throw Error(Fault::failed, "the state is in use by its own thread");
        // A thread that makes one call after another would hardly ever let a fork in.
        if (process().forking) std::lock_guard wait(process().lock);
        lock_ = std::unique_lock(thread_.inUse);
        folder_ = &thread_.folder(path);
        folder_->dropIfStale(writing);
        if (!folder_->isOpen()) folder_->connect(writing);
        thread_.holding = true;
    }
    /// A connection on which anything failed is not trusted further.
    ~Holder() {
        if (std::uncaught_exceptions() > exceptions_) folder_->close();
        thread_.holding = false;
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    Folder& folder() const { return *folder_; }

private:
    ThreadState& thread_;
    std::unique_lock<std::mutex> lock_;
    Folder* folder_ = nullptr;
    int exceptions_ = std::uncaught_exceptions();
};

void makeFolder(const std::filesystem::path& folder) {
    if (folder.empty() || ::access(folder.c_str(), F_OK) == 0) return;
    if (folder.parent_path() != folder) makeFolder(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0) return;
    // A folder above that may not be opened still holds the entry, only not for sure after a crash.
    syncFolder(folder.has_parent_path() ? folder.parent_path() : ".");
}

Access::Access() = default;
Access::Access(std::unique_ptr<Holder> holder) : holder_(std::move(holder)) {}
Access::Access(Access&&) noexcept = default;
Access& Access::operator=(Access&&) noexcept = default;
Access::~Access() = default;
Settings& Access::settings() const { return *holder_->folder().settings; }
Stores& Access::stores() const { return *holder_->folder().stores; }

Access openForReading(const std::filesystem::path& folder) {
    auto holder = std::make_unique<Access::Holder>(folder, false);
    if (!holder->folder().isOpen()) holder.reset();
    return Access(std::move(holder));
}

Access openForWriting(const std::filesystem::path& folder) {
    return Access(std::make_unique<Access::Holder>(folder, true));
}

}  // namespace storage
