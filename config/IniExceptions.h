#pragma once

#include <stdexcept>
#include <string>

#include "platform/Export.h"

// The failures of the configuration layer. They are a family of their own, apart from the failures
// of the rest of the library. `def` is the text that a failure carries when it has none of its own.

class PKIXCMP_API config_exception : public std::runtime_error {
public:
    static constexpr const char* def = "General config exception";
    explicit config_exception(const std::string& text = def) : std::runtime_error(text) {}
    ~config_exception() override;
};

class PKIXCMP_API rights_exception : public config_exception {
public:
    static constexpr const char* def = "Not enough rights";
    explicit rights_exception(const std::string& text = def) : config_exception(text) {}
    ~rights_exception() override;
};

class PKIXCMP_API entry_not_found_exception : public config_exception {
public:
    static constexpr const char* def = "Entry not found";
    explicit entry_not_found_exception(const std::string& text = def) : config_exception(text) {}
    ~entry_not_found_exception() override;
};

/// A stored value that is malformed.
class PKIXCMP_API entry_bad_exception : public config_exception {
public:
    static constexpr const char* def = "Entry bad";
    explicit entry_bad_exception(const std::string& text = def) : config_exception(text) {}
    ~entry_bad_exception() override;
};

/// A stored value of another type than the one asked for, or outside its range.
class PKIXCMP_API entry_bad_type_exception : public entry_bad_exception {
public:
    static constexpr const char* def = "Entry type bad";
    explicit entry_bad_type_exception(const std::string& text = def) : entry_bad_exception(text) {}
    ~entry_bad_type_exception() override;
};

/// One throwing function for each kind of failure.
struct PKIXCMP_API ini_throw {
    static constexpr const char* out_of_range_def = "out of range";

    [[noreturn]] static void throw_memory();
    [[noreturn]] static void throw_rights(const std::string& text = rights_exception::def);
    [[noreturn]] static void throw_entry_not_found(
        const std::string& text = entry_not_found_exception::def);
    [[noreturn]] static void throw_bad(const std::string& text = entry_bad_exception::def);
    [[noreturn]] static void throw_bad_type(
        const std::string& text = entry_bad_type_exception::def);
    [[noreturn]] static void throw_runtime(const std::string& text = config_exception::def);
    [[noreturn]] static void throw_out_of_range(const std::string& text = out_of_range_def);
    /// The failure that stands for a code of the settings service.
    [[noreturn]] static void throw_code(int code);
};
