#include "pkixcmp/Party.h"

#include <cstring>

#include "platform/support/Support.h"

PKIXCMP_Base::PKIXCMP_Base() { support_load_library(); }

PKIXCMP_Base::~PKIXCMP_Base() {
    delete[] ProviderName;
    support_unload_library();
}

void PKIXCMP_Base::setProviderName(const char* name) {
    char* copy = nullptr;
    if (name != nullptr) {
        const std::size_t room = std::strlen(name) + 1;
        copy = new char[room];
        std::memcpy(copy, name, room);
    }
    delete[] ProviderName;
    ProviderName = copy;
}
