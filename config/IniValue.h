#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "capilite/Blob.h"
#include "config/MultiSz.h"
#include "platform/Export.h"
#include "platform/support/Support.h"

class CACMPT_Date;
class CACMPT_Period;
class Ini;

/// One value fetched from the configuration tree. Owns a copy of it, or is null; copies are deep.
///
/// A getter throws `entry_bad_type_exception` when the value is of another type or out of the
/// type's range, `entry_bad_exception` when it is malformed, and the failure of the service's code
/// otherwise.
class PKIXCMP_API IniValue {
public:
    IniValue() = default;
    /// Takes the value over.
    explicit IniValue(TSupportRegistrySearchValue* value) : value_(value) {}
    IniValue(const IniValue& other);
    IniValue& operator=(const IniValue& other);
    IniValue(IniValue&&) noexcept = default;
    IniValue& operator=(IniValue&&) noexcept = default;

    /// The value's own name.
    std::string param() const;
    /// A code of TSupportRegistryType.
    int get_type() const;

    std::string get_string() const;
    void get_string(std::string& out) const;
    /// Copies into `out`. A string longer than `size` characters, the terminating zero not counted,
    /// is out of range; `out` must have room for the zero.
    void get_string(char* out, unsigned long size) const;
    void get_string(wchar_t* out, unsigned long size) const;
    std::wstring get_wstring() const;
    long get_long() const;
    long long get_long_long() const;
    bool get_bool() const;
    CACMPT_BLOB get_binary() const;
    int get_int() const;
    unsigned get_unsigned() const;
    CACMPT_Date get_date() const;
    CACMPT_Period get_period() const;
    /// The index of the text in a table of `size` names.
    int get_enum(const char* const* table, unsigned long size) const;
    /// The key that the path in this value names, absolute or relative to `base`.
    Ini get_ref(const Ini& base) const;
    multi_sz get_multi_sz() const;
    wmulti_sz get_wmulti_sz() const;

    /// True for a string that reads as a date.
    bool isdate() const;
    bool isnull() const { return !value_; }
    /// Equal name, type and content; a null value equals nothing, not even another null one.
    bool operator==(const IniValue& other) const;

    // False when the value does not fit; `out` is then untouched.
    static bool toint(long value, int& out);
    static bool tounsigned(long value, unsigned& out);
    static bool toenum(const char* text, const char* const* table, unsigned long size, int& out);

    TSupportRegistrySearchValue* get() const { return value_.get(); }

private:
    int read_name(std::string& name) const;
    [[noreturn]] void throw_bad_type(const char* word) const;
    [[noreturn]] void throw_bad() const;
    /// Nothing for success; else the failure that a getter of the type `word` gives for the code.
    void check(int code, const char* word) const;
    using TextReader = int (*)(const TSupportRegistrySearchValue*, std::size_t*, char*);
    std::string read_text(TextReader read, const char* word) const;

    struct Free {
        void operator()(TSupportRegistrySearchValue* value) const {
            support_registry_value_free(value);
        }
    };
    std::unique_ptr<TSupportRegistrySearchValue, Free> value_;
};
