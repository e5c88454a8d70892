#include "config/IniValue.h"

#include <cstring>
#include <limits>
#include <vector>

#include "capilite/CAException.h"
#include "capilite/Date.h"
#include "capilite/Strings.h"
#include "config/IniKey.h"

namespace {

std::string quotedEntry(const std::string& name) { return "Entry: '" + name + "' "; }

}  // namespace

IniValue::IniValue(const IniValue& other) {
    if (!other.value_) return;
    TSupportRegistrySearchValue* copy = nullptr;
    if (int code = support_registry_value_cpy(other.value_.get(), &copy)) {
        ini_throw::throw_code(code);
    }
    value_.reset(copy);
}

IniValue& IniValue::operator=(const IniValue& other) {
    IniValue copy(other);
    value_.swap(copy.value_);
    return *this;
}

int IniValue::read_name(std::string& name) const {
    std::size_t count = 0;
    if (int code = support_registry_value_name(value_.get(), &count, nullptr)) return code;
    name.resize(count);
    const int code = support_registry_value_name(value_.get(), &count, name.data());
    name.resize(code ? 0 : count);
    return code;
}

void IniValue::throw_bad_type(const char* word) const {
    std::string name;
    if (read_name(name)) ini_throw::throw_bad_type();
    ini_throw::throw_bad_type(quotedEntry(name) + word + " expected");
}

void IniValue::throw_bad() const {
    std::string name;
    if (read_name(name)) ini_throw::throw_bad();
    ini_throw::throw_bad(quotedEntry(name) + "bad formated");
}

void IniValue::check(int code, const char* word) const {
    switch (code) {
        case SUPPORT_OK:
            return;
        case SUPPORT_BAD_TYPE:
            throw_bad_type(word);
        case SUPPORT_BAD_VALUE:
            throw_bad();
        default:
            ini_throw::throw_code(code);
    }
}

std::string IniValue::read_text(TextReader read, const char* word) const {
    std::size_t count = 0;
    check(read(value_.get(), &count, nullptr), word);
    std::string text(count, '\0');
    check(read(value_.get(), &count, text.data()), word);
    text.resize(count);
    return text;
}

std::string IniValue::param() const {
    std::string name;
    check(read_name(name), "unknown");
    return name;
}

int IniValue::get_type() const {
    int type = 0;
    check(support_registry_value_type(value_.get(), &type), "unknown");
    return type;
}

std::string IniValue::get_string() const {
    return read_text(support_registry_value_string, "string");
}

void IniValue::get_string(std::string& out) const { out = get_string(); }

void IniValue::get_string(char* out, unsigned long size) const {
    const std::string text = get_string();
    if (text.size() > size) ini_throw::throw_out_of_range();
    std::memcpy(out, text.c_str(), text.size() + 1);
}

void IniValue::get_string(wchar_t* out, unsigned long size) const {
    const std::wstring text = get_wstring();
    if (text.size() > size) ini_throw::throw_out_of_range();
    std::char_traits<wchar_t>::copy(out, text.c_str(), text.size() + 1);
}

std::wstring IniValue::get_wstring() const { return towstring(get_string().c_str()); }

long IniValue::get_long() const {
    long number = 0;
    check(support_registry_value_long(value_.get(), &number), "long");
    return number;
}

long long IniValue::get_long_long() const {
    long long number = 0;
    check(support_registry_value_long_long(value_.get(), &number), "long long");
    return number;
}

bool IniValue::get_bool() const {
    bool flag = false;
    check(support_registry_value_bool(value_.get(), &flag), "bool");
    return flag;
}

CACMPT_BLOB IniValue::get_binary() const {
    std::size_t count = 0;
    check(support_registry_value_hex(value_.get(), &count, nullptr), "binary");
    std::vector<unsigned char> bytes(count);
    if (count) check(support_registry_value_hex(value_.get(), &count, bytes.data()), "binary");
    CACMPT_BLOB blob;
    blob.assign(bytes.data(), static_cast<unsigned>(count));
    return blob;
}

int IniValue::get_int() const {
    long number = 0;
    int out = 0;
    check(support_registry_value_long(value_.get(), &number), "int");
    if (!toint(number, out)) throw_bad_type("int");
    return out;
}

unsigned IniValue::get_unsigned() const {
    long number = 0;
    unsigned out = 0;
    check(support_registry_value_long(value_.get(), &number), "unsigned");
    if (!tounsigned(number, out)) throw_bad_type("unsigned");
    return out;
}

CACMPT_Date IniValue::get_date() const {
    const std::string text = read_text(support_registry_value_string, "date");
    try {
        return CACMPT_Date(text);
    } catch (const CAException&) {
        throw_bad_type("date");
    }
}

CACMPT_Period IniValue::get_period() const {
    const std::string text = read_text(support_registry_value_string, "date");
    try {
        return CACMPT_Period(text.c_str());
    } catch (const CAException&) {
        throw_bad_type("date");
    }
}

int IniValue::get_enum(const char* const* table, unsigned long size) const {
    int index = 0;
    const std::string text = read_text(support_registry_value_string, "enum");
    if (!toenum(text.c_str(), table, size, index)) throw_bad_type("enum");
    return index;
}

Ini IniValue::get_ref(const Ini& base) const {
    std::string path;
    if (!base.merge_path(read_text(support_registry_value_string, "ref").c_str(), path)) {
        throw_bad_type("ref");
    }
    return Ini(path);
}

multi_sz IniValue::get_multi_sz() const {
    return multi_sz(read_text(support_registry_value_multi_string, "multi_sz").c_str());
}

wmulti_sz IniValue::get_wmulti_sz() const {
    wmulti_sz wide;
    for (const char* text : get_multi_sz()) wide += towstring(text);
    return wide;
}

bool IniValue::isdate() const {
    return get_type() == SUPPORT_REGISTRY_STRING && CACMPT_Date::is_valid_date(get_string());
}

bool IniValue::operator==(const IniValue& other) const {
    return value_ && other.value_ &&
           support_registry_value_cmp(value_.get(), other.value_.get()) == 0;
}

bool IniValue::toint(long value, int& out) {
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
        return false;
    }
    out = static_cast<int>(value);
    return true;
}

bool IniValue::tounsigned(long value, unsigned& out) {
    if (value < 0 || value > static_cast<long>(std::numeric_limits<unsigned>::max())) return false;
    out = static_cast<unsigned>(value);
    return true;
}

bool IniValue::toenum(const char* text, const char* const* table, unsigned long size, int& out) {
    for (unsigned long i = 0; i < size; ++i) {
        if (table[i] && std::strcmp(text, table[i]) == 0) {
            out = static_cast<int>(i);
            return true;
        }
    }
    return false;
}
