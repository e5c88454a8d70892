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

std::filesystem::path made(std::filesystem::path folder) {
    if (::access(folder.c_str(), F_OK) != 0) makeFolder(folder);
    return folder;
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

std::filesystem::path userHome() { return made(userFolder()); }

std::filesystem::path machineHome() { return made(machineFolder()); }

}  // namespace support
