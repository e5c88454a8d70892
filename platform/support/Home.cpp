#include "platform/support/Home.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/support/State.h"

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

std::filesystem::path nameUserHome(const char* home) {
    if (*home != 0) return std::filesystem::path(home) / "user";
    if (auto data = environmentPath("XDG_DATA_HOME"); !data.empty()) return data / "pkixcmp";
    return personalFolder() / ".local/share/pkixcmp";
}

std::filesystem::path nameMachineHome(const char* home) {
    if (*home != 0) return std::filesystem::path(home) / "machine";
    return "/var/lib/pkixcmp";
}

/// The names last worked out, kept as long as the variable says the same: settings ask on every
/// call. Without the variable nothing is kept.
struct Named {
    std::string variable;
    std::filesystem::path user, machine;

    void update() {
        const char* home = std::getenv("PKIXCMP_HOME");
        if (home == nullptr) home = "";
        if (*home != 0 && variable == home) return;
        user = nameUserHome(home);
        machine = nameMachineHome(home);
        variable = home;
    }
};

}  // namespace

const std::filesystem::path& home(Side side) {
    thread_local Named named;
    named.update();
    return side == Side::user ? named.user : named.machine;
}

std::filesystem::path userHome() {
    storage::makeFolder(home(Side::user));
    return home(Side::user);
}

std::filesystem::path machineHome() {
    storage::makeFolder(home(Side::machine));
    return home(Side::machine);
}

}  // namespace support
