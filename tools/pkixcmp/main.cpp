#include <dlfcn.h>

#include <cstdio>
#include <cstring>

// The launcher. The program stands in a module beside it, which brings the library, libcrypto and
// SQLite along: more than half of the time of a short run. The version, which scripts and monitors
// ask for time and again, is told without them. No C++ library is used here, for the same reason.

namespace {

using Program = int (*)(int, char**);

Program load() {
    void* module = dlopen(PKIXCMP_MODULE, RTLD_LAZY | RTLD_LOCAL);
    void* program = module != nullptr ? dlsym(module, "pkixcmp_program") : nullptr;
    if (program == nullptr) {
        std::fprintf(stderr, "pkixcmp: not installed whole: %s\n", dlerror());
    }
    return reinterpret_cast<Program>(program);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (std::strcmp(argv[1], "--version") == 0 || std::strcmp(argv[1], "-V") == 0)) {
        return std::puts("pkixcmp " PKIXCMP_VERSION) < 0;
    }
    Program program = load();
    return program != nullptr ? program(argc, argv) : 1;
}
