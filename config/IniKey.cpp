#include "config/IniKey.h"

#include <cstring>

#include "capilite/Date.h"
#include "capilite/ParsedRdn.h"
#include "capilite/Strings.h"

namespace {

void check(int code) {
    if (code != SUPPORT_OK) ini_throw::throw_code(code);
}

/// Whether a relative path starts with a step to the key above.
bool stepsUp(const std::string& name) {
    return name.size() > 1 && name.compare(0, 2, "..") == 0 &&
           (name.size() == 2 || name[2] == '\\');
}

}  // namespace

Ini::Ini() : path_("\\local") {}

Ini::Ini(const char* path) : path_(path ? path : "") { rback(path_); }

Ini::Ini(const Ini& base, const char* relativePath) {
    if (!base.merge_path(relativePath, path_)) {
        ini_throw::throw_bad_type("Entry: '" + std::string(relativePath) + "' ref expected");
    }
}

void Ini::rback(std::string& path) {
    if (path.ends_with('\\')) path.pop_back();
}

bool Ini::merge_path(const char* relative, std::string& out) const {
    if (!relative) {
        out = path_;
        return true;
    }
    std::string name = relative;
    if (name.starts_with('\\')) {
        out = name;
        return true;
    }
    std::string base = path_;
    while (stepsUp(name)) {
        name.erase(0, name.size() == 2 ? 2 : 3);
        if (base.empty()) return false;
        const std::size_t last = base.rfind('\\');
        base.resize(last == std::string::npos ? 0 : last);
    }
    base += '\\' + name;
    rback(base);
    out = base;
    return true;
}

void Ini::build_param_path(const char* name, std::string& out) const {
    out = path_ + '\\' + (name ? name : "");
}

bool Ini::find(const char* name, IniValue& out) const {
    std::string path;
    build_param_path(name, path);
    TSupportRegistrySearchValue* value = nullptr;
    const int code = support_registry_find(path.c_str(), &value);
    if (code == SUPPORT_NOT_FOUND) return false;
    check(code);
    out = IniValue(value);
    return true;
}

bool Ini::find(const char* name, std::string& out) const {
    IniValue value;
    if (!find(name, value)) return false;
    out = value.get_string();
    return true;
}

bool Ini::find(const char* name, std::wstring& out) const {
    IniValue value;
    if (!find(name, value)) return false;
    out = value.get_wstring();
    return true;
}

bool Ini::find(const char* name, CACMPT_PARSED_RDN& out) const {
    std::wstring whole;
    if (find(name, whole)) {
        out.assign(whole);
        return true;
    }
    CACMPT_PARSED_RDN_OLD record;
    bool any = false;
    const auto read = [&](const char* suffix, auto& field) {
        any |= find((std::string(name) + '_' + suffix).c_str(), field);
    };
    read("EMail", record.EMail);
    read("Country", record.Country);
    read("State", record.State);
    read("Locality", record.Locality);
    read("Organization", record.Organization);
    read("OrgUnit", record.OrgUnit);
    read("Title", record.Title);
    read("GivenName", record.GivenName);
    read("Initials", record.Initials);
    read("SurName", record.SurName);
    read("Pseudonym", record.Pseudonym);
    read("CommonName", record.CommonName);
    if (any) out.assign(record);
    return any;
}

std::string Ini::find_def(const char* name, const char* defaultText) const {
    std::string text = defaultText ? defaultText : "";
    find(name, text);
    return text;
}

CACMPT_BLOB Ini::find_binary(const char* name) const {
    IniValue value;
    if (!find(name, value)) throw_not_found(name);
    return value.get_binary();
}

CACMPT_Period Ini::find_period(const char* name) const {
    IniValue value;
    if (!find(name, value)) throw_not_found(name);
    return value.get_period();
}

void Ini::insert(const char* name, const char* value) const {
    std::string path;
    build_param_path(name, path);
    check(support_registry_put_string(path.c_str(), value ? value : ""));
}

void Ini::insert(const char* name, const wchar_t* value) const {
    insert(name, tostring(value ? value : L"").c_str());
}

void Ini::insert(const char* name, long value) const {
    std::string path;
    build_param_path(name, path);
    check(support_registry_put_long(path.c_str(), value));
}

void Ini::insert(const char* name, long long value) const {
    std::string path;
    build_param_path(name, path);
    check(support_registry_put_long_long(path.c_str(), value));
}

void Ini::insert(const char* name, bool value) const {
    std::string path;
    build_param_path(name, path);
    check(support_registry_put_bool(path.c_str(), value));
}

void Ini::insert(const char* name, const CACMPT_BLOB& value) const {
    std::string path;
    build_param_path(name, path);
    check(support_registry_put_hex(path.c_str(), value.size, value.data));
}

void Ini::insert(const char* name, int value) const { insert(name, long{value}); }

void Ini::insert(const char* name, unsigned value) const { insert(name, long{value}); }

void Ini::insert(const char* name, const CACMPT_Date& value) const {
    insert(name, value.getGeneralizedTime());
}

void Ini::insert(const char* name, const CACMPT_Period& value) const {
    insert(name, value.getGeneralizedTime());
}

void Ini::insert(const char* name, const char* const* table, unsigned long size,
                 const int& index) const {
    if (index < 0 || static_cast<unsigned long>(index) >= size) ini_throw::throw_out_of_range();
    insert(name, table[index]);
}

int Ini::erase(const char* name) const {
    std::string path;
    build_param_path(name, path);
    return support_registry_delete_param(path.c_str());
}

void Ini::throw_not_found(const char* name) const {
    std::string path;
    build_param_path(name, path);
    ini_throw::throw_entry_not_found("Entry: '" + path + "' not found");
}

Ini::const_iterator Ini::begin(bool keys) const {
    return const_iterator(path_.empty() ? "\\" : path_, keys, false);
}

Ini::const_iterator Ini::end() const { return const_iterator(); }

Ini::const_iterator::const_iterator(const std::string& path, bool keys, bool end) {
    if (end) return;
    check(support_registry_search_open(path.c_str(), keys, &search_));
    if (search_ == End) ini_throw::throw_out_of_range();
    try {
        next();
    } catch (...) {
        close();
        throw;
    }
}

Ini::const_iterator::const_iterator(const const_iterator& other) : value_(other.value_) {
    if (!other.isend()) check(support_registry_search_cpy(other.search_, &search_));
}

Ini::const_iterator& Ini::const_iterator::operator=(const const_iterator& other) {
    const_iterator copy(other);
    std::swap(value_, copy.value_);
    std::swap(search_, copy.search_);
    return *this;
}

Ini::const_iterator::~const_iterator() { close(); }

Ini::const_iterator& Ini::const_iterator::operator++() {
    if (isend()) ini_throw::throw_out_of_range();
    next();
    return *this;
}

bool Ini::const_iterator::operator==(const const_iterator& other) const {
    if (isend() || other.isend()) return isend() == other.isend();
    return support_registry_search_cmp(search_, other.search_) == 0;
}

void Ini::const_iterator::setend() {
    close();
    value_ = IniValue();
}

void Ini::const_iterator::next() {
    TSupportRegistrySearchValue* value = nullptr;
    const int code = support_registry_search_next(search_, &value);
    if (code == SUPPORT_NOT_FOUND) return setend();
    check(code);
    value_ = IniValue(value);
}

void Ini::const_iterator::close() {
    if (search_ != 0 && search_ != End) support_registry_search_close(search_);
    search_ = End;
}
