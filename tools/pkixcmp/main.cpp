#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

// The launcher. The program stands in a module beside it, which brings the library, libcrypto and
// SQLite along: more than half of the time of a short run. The version, which scripts and monitors
// ask for time and again, is told without them. No C++ library is used here, for the same reason.

namespace {

using Program = int (*)(int, char**);

/// Where this program stands; the root folder when the system does not tell.
void ownFolder(char (&folder)[PATH_MAX]) {
    ssize_t length = readlink("/proc/self/exe", folder, sizeof folder - 1);
    folder[length > 0 ? length : 0] = 0;
    char* slash = std::strrchr(folder, '/');
    std::strcpy(slash != nullptr ? slash : folder, "/");
}

/// The module stands beside the launcher in a build folder and in a folder of the library's when
/// installed. Both are named in full, so that no search path has a say in what is run.
void* openModule() {
    char folder[PATH_MAX];
    ownFolder(folder);
    char path[2 * PATH_MAX];
    std::snprintf(path, sizeof path, "%s%s", folder, PKIXCMP_MODULE);
    if (access(path, F_OK) != 0) {
        std::snprintf(path, sizeof path, "%s%s/%s", folder, PKIXCMP_MODULE_FOLDER, PKIXCMP_MODULE);
    }
    return dlopen(path, RTLD_LAZY | RTLD_LOCAL);
}

Program load() {
    void* module = openModule();
    void* program = module != nullptr ? dlsym(module, "pkixcmp_program") : nullptr;
    if (program == nullptr) {
        std::fprintf(stderr, "pkixcmp: not installed whole: %s\n", dlerror());
    }
    return reinterpret_cast<Program>(program);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (std::strcmp(argv[1], "--version") == 0 || std::strcmp(argv[1], "-V") == 0)) {
        return std::puts("pkixcmp " PKIXCMP_VERSION) < 0 || std::fflush(stdout) != 0;
    }
    Program program = load();
    return program != nullptr ? program(argc, argv) : 1;
}
