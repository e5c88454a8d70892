#include "platform/support/Home.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

namespace support {

namespace {

std::filesystem::path environmentPath(const char* name) {
    const char* text = std::getenv(name);
    return text != nullptr ? text : "";
}

std::filesystem::path personalFolder() {
    std::filesystem::path home = environmentPath("HOME");
    if (!home.empty()) return home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir != nullptr) {
        return found->pw_dir;
    }
    return "/";
}

/// Makes the folder and those above it that are missing, each for its owner alone. What cannot be
/// made shows when a file in it is opened.
void makeFolder(const std::filesystem::path& folder) {
    std::error_code ignored;
    if (folder.empty() || std::filesystem::exists(folder, ignored)) return;
    if (folder.parent_path() != folder) makeFolder(folder.parent_path());
    ::mkdir(folder.c_str(), 0700);
}

/// Remembers the last folder made on this thread: the settings ask for it on every call.
const std::filesystem::path& made(std::filesystem::path& last, std::filesystem::path folder) {
    if (last != folder) {
        makeFolder(folder);
        last = std::move(folder);
    }
    return last;
}

std::filesystem::path userFolder() {
    if (auto home = environmentPath("PKIXCMP_HOME"); !home.empty()) return home / "user";
    if (auto data = environmentPath("XDG_DATA_HOME"); !data.empty()) return data / "pkixcmp";
    return personalFolder() / ".local/share/pkixcmp";
}

std::filesystem::path machineFolder() {
    if (auto home = environmentPath("PKIXCMP_HOME"); !home.empty()) return home / "machine";
    return "/var/lib/pkixcmp";
}

}  // namespace

std::filesystem::path userHome() {
    thread_local std::filesystem::path last;
    return made(last, userFolder());
}

std::filesystem::path machineHome() {
    thread_local std::filesystem::path last;
    return made(last, machineFolder());
}

}  // namespace support
