#pragma once

#include <cstddef>
#include <iterator>
#include <string>

#include "capilite/Blob.h"
#include "config/IniExceptions.h"
#include "config/IniValue.h"
#include "platform/Export.h"

class CACMPT_PARSED_RDN;

/// A key of the configuration tree, addressed by a backslash path ("\local\ca"). Holds the path
/// alone: each read and write goes to the settings service, and nothing is kept open.
///
/// All failures are of the `config_exception` family, or the standard out-of-range and allocation
/// failures. Reading a value of the wrong type is a failure; a missing value is one only where it
/// says so.
class PKIXCMP_API Ini {
public:
    class const_iterator;

    /// The key "\local".
    Ini();
    /// The key at a path, of which one trailing backslash is removed.
    explicit Ini(const char* path);
    explicit Ini(const std::string& path) : Ini(path.c_str()) {}
    /// The key at a path relative to `base`, see `merge_path`. A path that climbs above the root is
    /// an `entry_bad_type_exception` with the word "ref".
    Ini(const Ini& base, const char* relativePath);

    const std::string& path() const { return path_; }
    void swap(Ini& other) noexcept { path_.swap(other.path_); }

    /// The path that `relative` names from here: null names this key, a leading backslash makes it
    /// absolute, each leading ".." climbs one level. False, with `out` untouched, when it climbs
    /// above the root.
    bool merge_path(const char* relative, std::string& out) const;
    /// The full path of a value of this key.
    void build_param_path(const char* name, std::string& out) const;
    /// Removes one trailing backslash.
    static void rback(std::string& path);

    // Looking up. False, with `out` untouched, when there is no such value.
    bool find(const char* name, IniValue& out) const;
    bool find(const char* name, std::string& out) const;
    bool find(const char* name, std::wstring& out) const;
    /// A distinguished name, stored as one text under the name or as a family of texts, one an
    /// attribute ("name_CommonName", "name_OrgUnit", …).
    bool find(const char* name, CACMPT_PARSED_RDN& out) const;
    std::string find_def(const char* name, const char* defaultText) const;
    // A missing value is an `entry_not_found_exception`.
    CACMPT_BLOB find_binary(const char* name) const;
    CACMPT_Period find_period(const char* name) const;

    // Writing, which creates the key and the value or replaces the value.
    void insert(const char* name, const char* value) const;
    void insert(const char* name, const std::string& value) const { insert(name, value.c_str()); }
    void insert(const char* name, const wchar_t* value) const;
    void insert(const char* name, const std::wstring& value) const { insert(name, value.c_str()); }
    void insert(const char* name, long value) const;
    void insert(const char* name, long long value) const;
    void insert(const char* name, bool value) const;
    void insert(const char* name, const CACMPT_BLOB& value) const;
    void insert(const char* name, int value) const;
    void insert(const char* name, unsigned value) const;
    void insert(const char* name, const CACMPT_Date& value) const;
    void insert(const char* name, const CACMPT_Period& value) const;
    /// Writes the name at the index in a table of `size` names.
    void insert(const char* name, const char* const* table, unsigned long size,
                const int& index) const;

    /// Removes a value and gives the service's code, 0 for success. Throws nothing for a missing
    /// one.
    int erase(const char* name) const;
    [[noreturn]] void throw_not_found(const char* name) const;

    /// The values of this key in the order of their names; with `keys` also the keys below it.
    const_iterator begin(bool keys = false) const;
    const_iterator end() const;

private:
    std::string path_;  // never ends in a backslash that `rback` can remove
};

/// Walks the values of a key. Owns a search of the settings service and the value it stands at.
class PKIXCMP_API Ini::const_iterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = IniValue;
    using difference_type = std::ptrdiff_t;
    using pointer = const IniValue*;
    using reference = const IniValue&;

    /// The end of any walk.
    const_iterator() = default;
    /// `keys` goes to the service: whether keys below are walked too.
    const_iterator(const std::string& path, bool keys, bool end);
    const_iterator(const const_iterator& other);
    const_iterator& operator=(const const_iterator& other);
    ~const_iterator();

    const IniValue& operator*() const { return value_; }
    const IniValue* operator->() const { return &value_; }
    /// Out of range on an end iterator.
    const_iterator& operator++();
    bool operator==(const const_iterator& other) const;
    bool isend() const { return search_ == End; }
    /// Closes the search and makes this the end.
    void setend();

private:
    static constexpr TSupportRegistrySearch End = -1;
    void next();
    void close();

    IniValue value_;
    TSupportRegistrySearch search_ = End;
};
