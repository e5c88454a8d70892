#include "config/Ini.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>

#include "capilite/Date.h"
#include "capilite/ParsedRdn.h"
#include "tests/TempHome.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

class IniTest : public testing::Test {
protected:
    /// The value under a name of `ini`, which must exist.
    IniValue value(const char* name) const {
        IniValue found;
        EXPECT_TRUE(ini.find(name, found)) << name;
        return found;
    }

    TempHome home;
    Ini ini{"\\local\\test"};
};

TEST(IniPath, MergesRelativePaths) {
    const struct {
        const char *base, *relative;
        const char* merged;  // null: climbs above the root
    } cases[] = {
        {"\\local\\ca", nullptr, "\\local\\ca"},
        {"\\local\\ca", "sub\\", "\\local\\ca\\sub"},
        {"\\local\\ca", "\\config\\x\\", "\\config\\x\\"},
        {"\\local\\ca", "..\\other", "\\local\\other"},
        {"\\local\\ca", "..\\..\\other", "\\other"},
        {"\\local\\ca", "..\\..", ""},
        {"\\local\\ca", "..\\..\\..\\other", nullptr},
        {"\\local\\ca", "..x", "\\local\\ca\\..x"},
        {"\\local\\ca", "a\\..\\b", "\\local\\ca\\a\\..\\b"},
        {"\\", "..", nullptr},
        {"plain", "..\\x", "\\x"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.base) + " + " + (c.relative ? c.relative : "(null)"));
        std::string out = "untouched";
        EXPECT_EQ(Ini(c.base).merge_path(c.relative, out), c.merged != nullptr);
        EXPECT_EQ(out, c.merged ? c.merged : "untouched");
        const auto merge = [&] { return Ini(Ini(c.base), c.relative).path(); };
        if (c.merged) {
            EXPECT_EQ(merge(), c.merged);
        } else {
            EXPECT_THAT(merge, ThrowsMessage<entry_bad_type_exception>(HasSubstr(" ref expected")));
        }
    }
    const char* const trailing[][2] = {
        {"\\a\\", "\\a\\v"}, {"\\a\\\\", "\\a\\\\v"}, {"\\", "\\v"}, {"", "\\v"}};
    for (const auto& [path, full] : trailing) {  // one backslash goes
        std::string out;
        Ini(path).build_param_path("v", out);
        EXPECT_EQ(out, full);
    }
    EXPECT_EQ(Ini().path(), "\\local");
}

TEST(IniFailure, CodesOfTheServiceHaveTheirClasses) {
    const auto run = [](int code) { return [code] { ini_throw::throw_code(code); }; };
    EXPECT_THROW(run(0x1001)(), std::bad_alloc);
    EXPECT_THAT(run(0x1007), ThrowsMessage<rights_exception>("Not enough rights"));
    EXPECT_THAT(run(0x2000), ThrowsMessage<entry_not_found_exception>("Entry not found"));
    EXPECT_THAT(run(0x2001), ThrowsMessage<entry_bad_exception>("Entry bad"));
    EXPECT_THAT(run(0x2004), ThrowsMessage<entry_bad_type_exception>("Entry type bad"));
    EXPECT_THAT(run(0x7ABC), ThrowsMessage<config_exception>("General config exception"));
    EXPECT_THAT([] { ini_throw::throw_out_of_range(); },
                ThrowsMessage<std::out_of_range>("out of range"));
    char text[255];
    ASSERT_EQ(support_error_text(SUPPORT_FAILED, text, sizeof text), 0);
    EXPECT_THAT(run(SUPPORT_FAILED), ThrowsMessage<config_exception>(text));
}

TEST(MultiSz, KeepsEveryStringBetweenZeros) {
    multi_sz list;
    EXPECT_EQ(list.buffer(), std::vector<char>(2));
    EXPECT_TRUE(list.begin() == list.end());
    list += "one";
    list += std::string("second");
    const char layout[] = "\0one\0second\0";
    EXPECT_EQ(list.buffer(), std::vector<char>(layout, layout + sizeof layout));
    EXPECT_THAT(std::vector<std::string>(list.begin(), list.end()), ElementsAre("one", "second"));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_STREQ(*--list.end(), "second");
    EXPECT_STREQ(*--(--list.end()), "one");
    EXPECT_EQ(multi_sz(list.c_str()), list);
    EXPECT_EQ(multi_sz("\0"), multi_sz());
    const multi_sz copy = list;
    list += "third";
    EXPECT_EQ(copy.size(), 2u);
    EXPECT_THAT(std::vector<std::string>(copy.begin(), copy.end()), ElementsAre("one", "second"));
}

TEST_F(IniTest, EveryTypeReadsBack) {
    const auto same = [&](const auto& written, auto getter) {
        ini.insert("v", written);
        EXPECT_EQ((value("v").*getter)(), written);
    };
    std::string (IniValue::*const getString)() const = &IniValue::get_string;
    const CACMPT_Date date("20491231235959.000001Z");
    same(std::string("Привет"), getString);
    same(std::wstring(L"Жё€𝄞"), &IniValue::get_wstring);
    same(-5000000000L, &IniValue::get_long);
    same(0x7FFFFFFFFFFFFFFFLL, &IniValue::get_long_long);
    same(true, &IniValue::get_bool);
    same(false, &IniValue::get_bool);
    same(CACMPT_BLOB("\0\xFF\x01", 3), &IniValue::get_binary);
    same(CACMPT_BLOB(), &IniValue::get_binary);
    same(-2147483647 - 1, &IniValue::get_int);
    same(4294967295u, &IniValue::get_unsigned);
    EXPECT_FALSE(value("v").isdate());
    same(CACMPT_Period::OneDay * 400, &IniValue::get_period);
    EXPECT_EQ(ini.find_period("v"), CACMPT_Period::OneDay * 400);
    same(date, &IniValue::get_date);
    EXPECT_TRUE(value("v").isdate());
    std::string text;
    value("v").get_string(text);
    EXPECT_EQ(text, date.getGeneralizedTime());
    EXPECT_EQ(value("v").get_type(), 1);
    EXPECT_EQ(value("v").param(), "v");
    ini.insert("v", "no date");
    EXPECT_FALSE(value("v").isdate());
    EXPECT_THROW(value("v").get_date(), entry_bad_type_exception);
}

/// Each getter refuses every other type and names its own in the message.
TEST_F(IniTest, GettersRefuseOtherTypes) {
    ini.insert("string", "text");
    ini.insert("long", 1L);
    ini.insert("long long", 1LL);
    ini.insert("bool", true);
    ini.insert("binary", CACMPT_BLOB("b", 1));
    ASSERT_EQ(support_registry_put_multi_string("\\local\\test\\multi_sz", "a\0b\0"), 0);
    const char* const table[] = {"text"};
    const struct {
        const char* word;
        const char* stored;  // the only type that the getter takes
        std::function<void(const IniValue&)> get;
    } getters[] = {
        {"string", "string", [](const IniValue& v) { v.get_string(); }},
        {"long", "long", [](const IniValue& v) { v.get_long(); }},
        {"long long", "long long", [](const IniValue& v) { v.get_long_long(); }},
        {"bool", "bool", [](const IniValue& v) { v.get_bool(); }},
        {"binary", "binary", [](const IniValue& v) { v.get_binary(); }},
        {"int", "long", [](const IniValue& v) { v.get_int(); }},
        {"unsigned", "long", [](const IniValue& v) { v.get_unsigned(); }},
        {"date", nullptr, [](const IniValue& v) { v.get_date(); }},
        {"date", "string", [](const IniValue& v) { v.get_period(); }},
        {"enum", "string", [&](const IniValue& v) { v.get_enum(table, 1); }},
        {"ref", "string", [](const IniValue& v) { v.get_ref(Ini()); }},
        {"multi_sz", "multi_sz", [](const IniValue& v) { v.get_multi_sz(); }},
    };
    const char* const types[] = {"string", "long", "long long", "bool", "binary", "multi_sz"};
    for (const auto& getter : getters) {
        for (const char* type : types) {
            const auto get = [&] { getter.get(value(type)); };
            if (getter.stored && std::strcmp(getter.stored, type) == 0) {
                EXPECT_NO_THROW(get()) << getter.word << " of " << type;
            } else {
                EXPECT_THAT(
                    get, ThrowsMessage<entry_bad_type_exception>(std::string("Entry: '") + type +
                                                                 "' " + getter.word + " expected"));
            }
        }
    }
    const IniValue multi = value("multi_sz");
    EXPECT_EQ(multi.get_multi_sz(), multi_sz("a\0b\0"));
    EXPECT_EQ(multi.get_wmulti_sz(), wmulti_sz(L"a\0b\0"));
}

TEST_F(IniTest, NumbersOutsideTheirRangeAreOfTheWrongType) {
    const auto stored = [&](long number) {
        ini.insert("n", number);
        return value("n");
    };
    const auto refused = [](const char* word) {
        return ThrowsMessage<entry_bad_type_exception>(std::string("Entry: 'n' ") + word +
                                                       " expected");
    };
    for (long n : {0L, -1L, 2147483647L, -2147483648L}) EXPECT_EQ(stored(n).get_int(), n);
    for (long n : {2147483648L, -2147483649L, 4294967295L, 4294967296L}) {
        EXPECT_THAT([&] { stored(n).get_int(); }, refused("int")) << n;
    }
    for (long n : {0L, 2147483648L, 4294967295L}) EXPECT_EQ(stored(n).get_unsigned(), n);
    for (long n : {-1L, -2147483648L, -2147483649L, 4294967296L}) {
        EXPECT_THAT([&] { stored(n).get_unsigned(); }, refused("unsigned")) << n;
    }
}

TEST_F(IniTest, EnumsAreNamesOfATable) {
    const char* const names[] = {"off", "on", "auto"};
    for (int i : {2, 0}) {
        ini.insert("mode", names, 3, i);
        EXPECT_EQ(value("mode").get_string(), names[i]);
        EXPECT_EQ(value("mode").get_enum(names, 3), i);
    }
    EXPECT_THROW(ini.insert("mode", names, 3, 3), std::out_of_range);
    EXPECT_THROW(ini.insert("mode", names, 3, -1), std::out_of_range);
    EXPECT_EQ(value("mode").get_string(), "off");
    EXPECT_THAT([&] { value("mode").get_enum(names + 1, 2); },
                ThrowsMessage<entry_bad_type_exception>("Entry: 'mode' enum expected"));
}

TEST_F(IniTest, CopiesIntoACallersBuffer) {
    ini.insert("s", "Жabc");  // five bytes, four characters
    char narrow[6];
    wchar_t wide[5];
    EXPECT_THROW(value("s").get_string(narrow, 4), std::out_of_range);
    value("s").get_string(narrow, 5);
    EXPECT_STREQ(narrow, "Жabc");
    EXPECT_THROW(value("s").get_string(wide, 3), std::out_of_range);
    value("s").get_string(wide, 4);
    EXPECT_EQ(std::wstring(wide), L"Жabc");
}

TEST_F(IniTest, ReferencesNameOtherKeys) {
    const char* const cases[][2] = {
        {"sub", "\\local\\test\\sub"}, {"..\\ca", "\\local\\ca"}, {"\\config\\x\\", "\\config\\x"}};
    for (const auto& [text, path] : cases) {
        ini.insert("ref", text);
        EXPECT_EQ(value("ref").get_ref(ini).path(), path);
    }
    ini.insert("ref", "..\\..\\..\\x");
    EXPECT_THAT([&] { value("ref").get_ref(ini); },
                ThrowsMessage<entry_bad_type_exception>("Entry: 'ref' ref expected"));
}

TEST_F(IniTest, MissingValues) {
    IniValue none;
    std::string text = "kept";
    EXPECT_FALSE(ini.find("no", none));
    EXPECT_TRUE(none.isnull());
    EXPECT_FALSE(ini.find("no", text));
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(ini.find_def("no", "default"), "default");
    EXPECT_EQ(ini.find_def("no", nullptr), "");
    const char* const message = "Entry: '\\local\\test\\no' not found";
    EXPECT_THAT([&] { ini.find_binary("no"); }, ThrowsMessage<entry_not_found_exception>(message));
    EXPECT_THAT([&] { ini.find_period("no"); }, ThrowsMessage<entry_not_found_exception>(message));
    EXPECT_NO_THROW(ini.erase("no"));
    ini.insert("yes", "there");
    EXPECT_EQ(ini.find_def("yes", "default"), "there");
    EXPECT_EQ(ini.erase("yes"), 0);
    EXPECT_FALSE(ini.find("yes", text));
    EXPECT_THROW(none.get_string(), config_exception);
    EXPECT_THROW(none.param(), config_exception);
    EXPECT_FALSE(none == none);
}

TEST_F(IniTest, ValuesCompareByNameTypeAndContent) {
    ini.insert("a", "x");
    ini.insert("b", "x");
    const IniValue a = value("a");
    IniValue copy = a;
    EXPECT_TRUE(copy == a);
    EXPECT_FALSE(a == value("b"));
    EXPECT_FALSE(a == IniValue());
    ini.insert("a", "y");
    EXPECT_FALSE(a == value("a"));
    EXPECT_EQ(copy.get_string(), "x");  // a copy is not the tree
    copy = IniValue();
    EXPECT_TRUE(copy.isnull());
}

TEST_F(IniTest, NamesStandInOneTextOrInSeveral) {
    CACMPT_PARSED_RDN name;
    const CACMPT_PARSED_RDN before = name;
    EXPECT_FALSE(ini.find("dn", name));
    EXPECT_EQ(name, before);
    ini.insert("dn_CommonName", L"Алиса");
    ASSERT_TRUE(ini.find("dn", name));
    EXPECT_EQ(name.tostring(0), L"CN=Алиса");
    const char* const suffixes[] = {"EMail",        "Country", "State",    "Locality",
                                    "Organization", "OrgUnit", "Title",    "GivenName",
                                    "Initials",     "SurName", "Pseudonym"};
    for (const char* suffix : suffixes) {
        ini.insert((std::string("dn_") + suffix).c_str(), suffix);
    }
    ASSERT_TRUE(ini.find("dn", name));
    CACMPT_PARSED_RDN_OLD f;
    name.parse(f);
    EXPECT_EQ(f.EMail + f.Country, "EMailCountry");
    EXPECT_EQ(f.State + f.Locality + f.Organization + f.OrgUnit + f.Title + f.GivenName +
                  f.Initials + f.SurName + f.Pseudonym + f.CommonName,
              L"StateLocalityOrganizationOrgUnitTitleGivenNameInitialsSurNamePseudonymАлиса");
    ini.insert("dn", L"CN=Whole");  // goes before the family
    ASSERT_TRUE(ini.find("dn", name));
    EXPECT_EQ(name.tostring(0), L"CN=Whole");
}

TEST_F(IniTest, WalksTheValuesOfAKey) {
    const auto names = [&](bool keys) {
        std::vector<std::string> out;
        for (auto it = ini.begin(keys); it != ini.end(); ++it) out.push_back(it->param());
        return out;
    };
    EXPECT_TRUE(names(false).empty());
    for (const char* name : {"b", "a", "c"}) ini.insert(name, name);
    Ini(ini, "sub").insert("deep", 1L);
    EXPECT_THAT(names(false), ElementsAre("a", "b", "c"));
    EXPECT_THAT(names(true), testing::UnorderedElementsAre("a", "b", "c", "sub"));

    Ini::const_iterator it(ini.path(), false, false);
    Ini::const_iterator other(ini.path(), false, false);
    EXPECT_TRUE(it == other);
    ++it;
    EXPECT_FALSE(it == other);
    const Ini::const_iterator copy = it;  // keeps its place
    ++it;
    EXPECT_EQ(copy->get_string(), "b");
    EXPECT_EQ(it->get_string(), "c");
    other = copy;
    EXPECT_EQ((++other)->get_string(), "c");
    ++it;
    EXPECT_TRUE(it.isend());
    EXPECT_TRUE(it == Ini::const_iterator(ini.path(), false, true));
    EXPECT_THROW(++it, std::out_of_range);
    other.setend();
    EXPECT_TRUE(other == it);
    EXPECT_FALSE(copy == it);
}

}  // namespace
