#include "config/IniExceptions.h"

#include <new>

#include "platform/support/Support.h"

config_exception::~config_exception() = default;
rights_exception::~rights_exception() = default;
entry_not_found_exception::~entry_not_found_exception() = default;
entry_bad_exception::~entry_bad_exception() = default;
entry_bad_type_exception::~entry_bad_type_exception() = default;

void ini_throw::throw_memory() { throw std::bad_alloc(); }

void ini_throw::throw_rights(const std::string& text) { throw rights_exception(text); }

void ini_throw::throw_entry_not_found(const std::string& text) {
    throw entry_not_found_exception(text);
}

void ini_throw::throw_bad(const std::string& text) { throw entry_bad_exception(text); }

void ini_throw::throw_bad_type(const std::string& text) { throw entry_bad_type_exception(text); }

void ini_throw::throw_runtime(const std::string& text) { throw config_exception(text); }

void ini_throw::throw_out_of_range(const std::string& text) { throw std::out_of_range(text); }

void ini_throw::throw_code(int code) {
    switch (code) {
        case SUPPORT_NO_MEMORY:
            throw_memory();
        case SUPPORT_NO_RIGHTS:
            throw_rights();
        case SUPPORT_NOT_FOUND:
            throw_entry_not_found();
        case SUPPORT_BAD_VALUE:
            throw_bad();
        case SUPPORT_BAD_TYPE:
            throw_bad_type();
        default: {
            char text[255] = {};
            if (support_error_text(code, text, sizeof text) != SUPPORT_OK) throw_runtime();
            throw_runtime(text);
        }
    }
}
