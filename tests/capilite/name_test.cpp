#include "capilite/Name.h"

#include <gmock/gmock.h>

#include "capilite/AttributeRegister.h"
#include "capilite/Strings.h"
#include "tests/PublicTool.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

namespace {

constexpr unsigned int REVERSE = 0x02000000, COMMA = 0x04000000, CRLF = 0x08000000,
                       NO_QUOTING = 0x10000000, NO_PLUS = 0x20000000, SEMICOLON = 0x40000000,
                       UTF8_FOR_BMP = 0x00040000, VALUES = 1, OIDS = 2;
constexpr unsigned long END = std::wstring::npos;

/// The public tool's view of a name: one "type string-type value" a line.
std::string asn1parse(const CACMPT_BLOB& der) {
    return runTool(
        "openssl asn1parse -inform DER | sed -n "
        "'s/.*prim: *OBJECT *:\\(.*\\)/\\1/p; s/.*prim: *\\([A-Z0-9]*STRING\\) *:/\\1 /p'",
        der.view());
}

/// What a name text gives: the name written again, or the failure and the position.
std::wstring reread(const wchar_t* text, unsigned int in, unsigned int out) {
    unsigned long position = 4711;
    try {
        return CACMPT_Name(text, in, &position).toString(out);
    } catch (const CryptException& e) {
        char line[40];
        std::snprintf(line, sizeof line, "%08x at %ld", e.code, static_cast<long>(position));
        return towstring(line);
    }
}

// ---- Attributes ----

TEST(AttributeRegister, TableFromTextToDerAndBack) {
    struct {
        const char* oid;
        const wchar_t* name;
        const wchar_t* otherName;
        const char* tool;  // name that the public tool gives the type
        const char* type;
    } const rows[] = {
        {"2.5.4.3", L"CN", L"", "commonName", "UTF8STRING"},
        {"2.5.4.6", L"C", L"", "countryName", "PRINTABLESTRING"},
        {"2.5.4.7", L"L", L"", "localityName", "UTF8STRING"},
        {"2.5.4.8", L"S", L"ST", "stateOrProvinceName", "UTF8STRING"},
        {"1.2.840.113549.1.9.1", L"E", L"Email", "emailAddress", "IA5STRING"},
        {"2.5.4.10", L"O", L"", "organizationName", "UTF8STRING"},
        {"2.5.4.11", L"OU", L"", "organizationalUnitName", "UTF8STRING"},
        {"2.5.4.12", L"T", L"Title", "title", "UTF8STRING"},
        {"2.5.4.42", L"G", L"GivenName", "givenName", "UTF8STRING"},
        {"2.5.4.43", L"I", L"Initials", "initials", "UTF8STRING"},
        {"2.5.4.4", L"SN", L"", "surname", "UTF8STRING"},
        {"2.5.4.65", L"PS", L"", "pseudonym", "UTF8STRING"},
        {"0.9.2342.19200300.100.1.25", L"DC", L"", "domainComponent", "UTF8STRING"},
        {"2.5.4.9", L"STREET", L"", "streetAddress", "UTF8STRING"},
        {"2.5.4.24", L"", L"", "x121Address", "NUMERICSTRING"},
        {"1.2.643.100.1", L"OGRN", L"", "OGRN", "NUMERICSTRING"},
        {"1.2.643.100.5", L"OGRNIP", L"", "OGRNIP", "NUMERICSTRING"},
        {"1.2.643.3.131.1.1", L"INN", L"", "INN", "NUMERICSTRING"},
        {"1.2.643.100.3", L"SNILS", L"", "SNILS", "NUMERICSTRING"},
        {"1.2.840.113549.1.9.2", L"UnstructuredName", L"", "unstructuredName", "UTF8STRING"},
        {"2.5.4.16", L"PostalAddress", L"", "postalAddress", "UTF8STRING"},
        {"2.5.4.17", L"PostalCode", L"", "postalCode", "UTF8STRING"},
    };
    auto entry = CACMPT_ATAVRegister::registered.begin();
    std::string expected;
    CACMPT_Name all;
    for (const auto& row : rows) {
        ASSERT_NE(entry, CACMPT_ATAVRegister::registered.end());
        EXPECT_EQ(entry->oid, row.oid);
        EXPECT_EQ(entry->name, row.name);
        EXPECT_EQ(entry->otherName, row.otherName);
        EXPECT_EQ(entry->maxLength, 32768u);
        EXPECT_EQ(entry->otherStringType, 0);
        ++entry;
        const std::wstring oid = towstring(row.oid), given = *row.name ? row.name : oid;
        const std::wstring written = std::wstring(row.name) + L"=12";
        for (const std::wstring& type : {given, L"OID." + oid, oid, std::wstring(row.otherName)}) {
            if (type.empty()) continue;
            CACMPT_Name name(type + L"=12", 0);
            EXPECT_EQ(name.toString(0), written);
            EXPECT_EQ(name.toString(OIDS), oid + L"=12");
            CACMPT_Name back;
            back.decode(name.encode());
            EXPECT_EQ(back.toString(0), written);
        }
        all.push_back(CACMPT_RelativeDistinguishedName(given + L"=12", 0));
        expected += row.tool + std::string("\n") + row.type + " 12\n";
    }
    EXPECT_EQ(entry, CACMPT_ATAVRegister::registered.end());
    EXPECT_EQ(asn1parse(all.encode()), expected);
}

TEST(AttributeRegister, Lookups) {
    for (const wchar_t* name : {L"email=x", L"E=x", L"eMaIl=x"}) {
        EXPECT_EQ(CACMPT_Name(name, 0).toString(0), L"E=x");
    }
    EXPECT_EQ(CACMPT_ATAVRegister::typeToStr("1.2.3"), L"1.2.3");
    EXPECT_EQ(CACMPT_ATAVRegister::typeFromStr(L"oid.cn"), "oid.cn");  // the prefix has one case
    EXPECT_EQ(CACMPT_ATAVRegister::typeFromStr(L"OID.cn"), "2.5.4.3");
    EXPECT_EQ(CACMPT_ATAVRegister::typeFromStr(L"OID."), "OID.");
    CACMPT_ATAVRegister two("1.2.3.4", L"two", CACMPT_PrintableString, CACMPT_BMPString, 5);
    EXPECT_EQ(two.typeForString(L"plain"), CACMPT_PrintableString);
    EXPECT_EQ(two.typeForString(L"a@b"), CACMPT_BMPString);
    EXPECT_EQ(hexOf(CACMPT_ATAVRegister::valueFromStr("1.2.3.4", L"@", CACMPT_NoString, 0)),
              "1E020040");
    EXPECT_EQ(
        hexOf(CACMPT_ATAVRegister::valueFromStr("1.2.3.4", L"@", CACMPT_NoString, UTF8_FOR_BMP)),
        "0C0140");
    EXPECT_FAILURE(CACMPT_ATAVRegister::valueFromStr("1.2.3.4", L"123456", CACMPT_NoString, 0),
                   "CryptException 80092023");
    CACMPT_ATAVRegister::registered.pop_back();
}

TEST(AttributeValue, CharactersOfTheStringTypes) {
    const std::tuple<CACMPT_StringType, const wchar_t*, long> cases[] = {
        {CACMPT_PrintableString, L"azAZ09 '()+,-./:=?", -1},
        {CACMPT_PrintableString, L"ab*", 2},
        {CACMPT_PrintableString, L"@", 0},
        {CACMPT_PrintableString, L"a\u0430", 1},
        {CACMPT_IA5String, L"a\x7f", -1},
        {CACMPT_IA5String, L"a\x80", 1},
        {CACMPT_NumericString, L"0 9", -1},
        {CACMPT_NumericString, L"12a", 2},
        {CACMPT_UTF8String, L"\x1F600\x110000", -1},
        {CACMPT_BMPString, L"\x1F600", -1},
        {CACMPT_UniversalString, L"\x1F600", -1},
    };
    for (const auto& [type, text, firstBad] : cases) {  // -1: none
        unsigned long position = 4711;
        EXPECT_EQ(CanEncodeStringInStringType(text, type, &position), firstBad < 0);
        EXPECT_EQ(static_cast<long>(position), firstBad);
        EXPECT_EQ(CanEncodeStringInStringType(text, type, nullptr), firstBad < 0);
    }
    for (int type : {0, 3, 8, -1}) {
        auto t = static_cast<CACMPT_StringType>(type);
        EXPECT_FAILURE(CanEncodeStringInStringType(L"a", t, nullptr), "CryptException 80004001");
        EXPECT_TRUE(CanEncodeStringInStringType(L"", t, nullptr));
    }
    unsigned long skipped = 0;
    EXPECT_EQ(TrimWhitespace(L" \t\r\na b\n ", &skipped), L"a b");
    EXPECT_EQ(skipped, 4u);
    EXPECT_EQ(TrimWhitespace(L" \n", nullptr), L"");
}

TEST(AttributeValue, TextToDer) {
    struct {
        const char* oid;
        const wchar_t* text;
        int type;
        unsigned int flags;
        std::string der;  // or the failure
        long position;    // -1 is the end marker
    } const cases[] = {
        {"2.5.4.3", L"ab", 0, 0, "0C026162", -1},
        {"2.5.4.3", L"  a b\t, x", 0, 0, "0C03612062", 6},
        {"2.5.4.3", L"a+b", 0, 0, "0C0161", 1},
        {"2.5.4.3", L"a+b", 0, NO_PLUS, "0C03612B62", -1},
        {"2.5.4.3", L"a,b;c", 0, SEMICOLON | COMMA, "0C03612C62", 3},
        {"2.5.4.3", L"a,b\nc", 0, CRLF | SEMICOLON | COMMA, "0C03612C62", 3},
        {"2.5.4.3", L"a;b,c", 0, COMMA, "0C03613B62", 3},
        {"2.5.4.3", L"a\\,b", 0, 0, "0C03612C62", -1},
        {"2.5.4.3", L"a\\\\b", 0, 0, "0C026162", -1},
        {"2.5.4.3", L"\" a,\"\"b\\\" , x", 0, 0, "0C0620612C22625C", 10},
        {"2.5.4.3", L"a\"b,c\"d", 0, 0, "0C0561622C6364", -1},
        {"2.5.4.3", L"\"\"", 0, 0, "0C00", -1},
        {"2.5.4.3", L"\"a\"", 0, NO_QUOTING, "0C03226122", -1},
        {"2.5.4.3", L"#0102", 0, 0, "04020102", -1},
        {"2.5.4.3", L" # 01\t00 aB ,", 0, 0, "04030100AB", 12},
        {"2.5.4.3", L"\"#0102\"", 0, 0, "0C052330313032", -1},
        {"2.5.4.3", L"#012", 0, 0, "0C0423303132", -1},
        {"2.5.4.3", L"#", 0, 0, "0C0123", -1},
        {"2.5.4.3", L"Я\x1F600", 0, 0, "0C06D0AFF09F9880", -1},
        {"2.5.4.3", L"Я", 4, 0, "1E02042F", -1},
        {"2.5.4.3", L"\x1F600", 4, 0, "1E02F600", -1},  // the low 16 bits
        {"2.5.4.3", L"Я", 4, UTF8_FOR_BMP, "0C02D0AF", -1},
        {"2.5.4.3", L"Я", 6, 0, "1C040000042F", -1},
        {"2.5.4.3", L"ab", 2, 0, "13026162", -1},
        {"2.5.4.3", L"ab", 5, 0, "16026162", -1},
        {"2.5.4.3", L"12", 7, 0, "12023132", -1},
        {"2.5.4.3", L"\"\"", 3, 0, "1400", -1},
        {"1.2.3", L"ab", 2, 0, "13026162", -1},
        {"1.2.3", L"#00", 0, 0, "040100", -1},
        // Faults.
        {"1.2.3", L"ab", 0, 0, "CryptException 80092023", 0},
        {"2.5.4.3", L"", 0, 0, "CryptException 80092023", 0},
        {"2.5.4.3", L"  ,b", 0, 0, "CryptException 80092023", 2},
        {"2.5.4.3", L" \t", 0, 0, "CryptException 80092023", 2},
        {"2.5.4.3", L"a \"b,c", 0, 0, "CryptException 80092023", 2},
        {"2.5.4.3", L"\"a\"\"", 0, 0, "CryptException 80092023", 0},
        {"2.5.4.6", L"Р", 0, 0, "CryptException 80092021", 0},
        {"2.5.4.6", L"  R\"U_\"", 0, 0, "CryptException 80092021", 5},
        {"1.2.643.3.131.1.1", L"12a", 0, 0, "CryptException 80092020", 2},
        {"1.2.840.113549.1.9.1", L"a@\u0431", 0, 0, "CryptException 80092022", 2},
        {"2.5.4.3", L"a", 3, 0, "CryptException 80004001", 0},
        {"2.5.4.3", L"a", 9, 0, "CryptException 80004001", 0},
        {"2.5.4.3", L"\"\"", 9, 0, "CAException Unsupported string type", 0},
        {"2.5.4.3", L"\x110000", 0, 0, "CAException invalid string", 0},
    };
    for (const auto& c : cases) {
        unsigned long position = 0;
        auto type = static_cast<CACMPT_StringType>(c.type);
        const std::string result = resultOf([&] {
            return hexOf(CACMPT_ATAVRegister::valueFromStr(c.oid, c.text, position, type, c.flags));
        });
        EXPECT_EQ(result, c.der) << tostring(c.text);
        EXPECT_EQ(static_cast<long>(position), c.position) << tostring(c.text);
    }
}

TEST(AttributeValue, DerToText) {
    struct {
        const char *oid, *der;
        const char* text;  // or the failure
    } const cases[] = {
        {"2.5.4.3", "0C02D0AF", "Я"},
        {"2.5.4.3", "12023132", "12"},
        {"2.5.4.3", "13026162", "ab"},
        {"2.5.4.3", "1403C974E9", "\u00C9t\u00E9"},
        {"2.5.4.3", "1602612E", "a."},
        {"2.5.4.3", "1C040001F600", "\U0001F600"},
        {"2.5.4.3", "1E04042F0041", "ЯA"},
        {"2.5.4.3", "0C00", ""},
        {"1.2.3", "0C02d0AF", "#0C02D0AF"},
        {"2.5.4.16", "30080C02D0AF13023132", "Я|12"},
        {"2.5.4.16", "3000", ""},
        {"2.5.4.3", "0C01FF", "CAException invalid string"},
        {"2.5.4.3", "1E03042F00", "CAException invalid string"},
        {"2.5.4.3", "1C03042F00", "CAException invalid string"},
        {"2.5.4.3", "04020102", "CAException Unsupported string type"},
        {"2.5.4.3", "2C040C026162", "CAException Unsupported string type"},
        {"2.5.4.3", "", "Asn1Exception "},
        {"2.5.4.3", "0C05616263", "Asn1Exception "},
        {"2.5.4.3", "0C", "Asn1Exception "},
        {"2.5.4.16", "30030C0361", "Asn1Exception "},
        {"2.5.4.16", "3003020101", "Asn1Exception "},
    };
    for (const auto& c : cases) {
        std::string result = resultOf(
            [&] { return tostring(CACMPT_ATAVRegister::valueToStr(c.oid, fromHex(c.der))); });
        if (result.starts_with("Asn1Exception ")) result.resize(14);  // in whatever words
        EXPECT_EQ(result, c.text) << c.der;
    }
}

TEST(AttributeValue, LengthLimit) {
    const std::wstring fits(32768, L'a');
    EXPECT_EQ(CACMPT_Name(L"CN=" + fits, 0).toString(VALUES), fits);
    EXPECT_FAILURE(CACMPT_Name(L"CN=" + fits + L"a", 0), "CryptException 80092023");
    EXPECT_EQ(CACMPT_Name(L"CN=\"" + fits + L"\"", 0).toString(VALUES), fits);
}

TEST(AttributeTypeAndValue, PartsAndTheirTexts) {
    unsigned long position = 0;
    CACMPT_AttributeTypeAndValue a(L"cn", L" a , rest", position, CACMPT_NoString, 0);
    EXPECT_EQ(position, 3u);
    EXPECT_EQ(a.get_type(), "2.5.4.3");
    EXPECT_EQ(a.toString(0), L"CN=a");
    EXPECT_EQ(a.toString(VALUES), L"a");
    EXPECT_EQ(a.toString(OIDS), L"2.5.4.3=a");
    EXPECT_EQ(a.get_type_str(OIDS | REVERSE), L"2.5.4.3");
    a.set_value_str(L"\"x, y\"", CACMPT_BMPString);
    EXPECT_EQ(a.get_value_str(0), L"\"x, y\"");
    EXPECT_EQ(a.get_value_str(NO_QUOTING), L"x, y");
    EXPECT_FAILURE(a.set_value_str(L"x, y", CACMPT_NoString), "CryptException 80092023");
    EXPECT_EQ(a.get_value_str(NO_QUOTING), L"x, y");
    a.set_type_str(L"OID.o");
    EXPECT_EQ(a.get_type(), "2.5.4.10");
    CACMPT_AttributeTypeAndValue b;
    b.decode(a.encode());
    EXPECT_EQ(b.toString(0), L"O=\"x, y\"");
    CACMPT_AttributeTypeAndValue plain(CACMPT_AttrStringValue("2.5.4.3", L"a,\"b\"\\+#"));
    EXPECT_EQ(plain.get_value_str(NO_QUOTING), L"a,\"b\"\\+#");
    EXPECT_FAILURE(CACMPT_AttrStringValue("2.5.4.6", L"a@b"), "CryptException 80092021");
    EXPECT_FAILURE(CACMPT_AttrStringValue("1.2.3", L"a"), "CryptException 80092023");
    for (const char* oid : {"", "x", "1", "5.1.2"}) {
        b.set_type(oid);
        EXPECT_NE(failureOf([&] { b.encode(); }), "none") << oid;
    }
}

// ---- Names ----

TEST(Name, FromTextAndBack) {
    struct {
        const wchar_t* text;
        unsigned int in, out;
        const wchar_t* result;
    } const cases[] = {
        {L"CN=a, O=b", 0, 0, L"CN=a, O=b"},
        {L"CN=a;O=b", 0, 0, L"CN=a, O=b"},
        {L"CN=a, O=b", REVERSE, 0, L"O=b, CN=a"},
        {L"CN=a, O=b", REVERSE, REVERSE, L"CN=a, O=b"},
        {L"CN=a+O=b", 0, 0, L"CN=a + O=b"},
        {L"CN=a +\n O=b,C=RU", 0, NO_PLUS, L"CN=a O=b, C=RU"},
        {L"CN=a+b", NO_PLUS, 0, L"CN=\"a+b\""},
        {L"CN=a;b, O=c", COMMA, 0, L"CN=\"a;b\", O=c"},
        {L"CN=a,b; O=c", SEMICOLON, SEMICOLON | CRLF, L"CN=\"a,b\"; O=c"},
        {L"CN=a, b\r\nO=c;d", CRLF, CRLF, L"CN=\"a, b\"\r\nO=\"c;d\""},
        {L"CN=a,O=b", 0, VALUES, L"a, b"},
        {L"CN=a,1.2.643.100.1=1", 0, OIDS, L"2.5.4.3=a, 1.2.643.100.1=1"},
        {L"CN=\"a\"\"b\"", 0, 0, L"CN=\"a\"\"b\""},
        {L"CN=\"a\"\"b\"", 0, NO_QUOTING, L"CN=a\"b"},
        {L"CN=\" a\", O=\"b\t\", L=\"\"", 0, 0, L"CN=\" a\", O=\"b\t\", L=\"\""},
        {L"CN=\"\"", 0, NO_QUOTING, L"CN="},
        {L"CN=a\\,b", 0, 0, L"CN=\"a,b\""},
        {L"CN=\"x=y\",O=<,OU=>,L=#012,T=a\nb", 0, 0,
         L"CN=\"x=y\", O=\"<\", OU=\">\", L=\"#012\", T=\"a\nb\""},
        {L"CN=\ra\r,O=\"\ra\",L=a\rb", 0, 0, L"CN=a, O=\"\ra\", L=a\rb"},
        {L"2.5.4.24=12", 0, 0, L"=12"},  // an empty register name
        {L"2.25.329800735698586629295641978511506172918=#00", 0, 0,
         L"2.25.329800735698586629295641978511506172918=\"#040100\""},
        {L"1.2.3=#0102", 0, 0, L"1.2.3=\"#04020102\""},
        {L"Фамилия=x", 0, 0, L"80092023 at 0"},
        {L"SN=Иванов\\;, G=Пётр", 0, 0, L"SN=\"Иванов;\", G=Пётр"},
        {L"", 0, 0, L""},
        {L"CN=a,", 0, 0, L"CN=a"},
        {L"CN=a, \t", 0, 0, L"CN=a"},
        // Faults, with their place.
        {L"  ", 0, 0, L"80092023 at 0"},
        {L"CN=a,,O=b", 0, 0, L"80092023 at 5"},
        {L"CN=a, bad", 0, 0, L"80092023 at 6"},
        {L"CN=a, =b", 0, 0, L"80092023 at 6"},
        {L"CN=a+", 0, 0, L"80092023 at 5"},
        {L"CN=a+ ,O=b", 0, 0, L"80092023 at 6"},
        {L"CN=", 0, 0, L"80092023 at 3"},
        {L"CN=a, O= , L=c", 0, 0, L"80092023 at 9"},
        {L"CN=a, O=\"b", 0, 0, L"80092023 at 8"},
        {L"CN=РР, C=Р", 0, 0, L"80092021 at 9"},
        {L"CN=1, INN=12a", 0, 0, L"80092020 at 12"},
        {L"OID.1.2.3=#00", 0, 0, L"80092023 at 0"},
        {L"xyz=a", 0, 0, L"80092023 at 0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(reread(c.text, c.in, c.out), c.result) << tostring(c.text);
        if (std::wstring_view(c.result).starts_with(L"8009")) continue;
        CACMPT_Name name(c.text, c.in), back;
        back.decode(name.encode());
        EXPECT_EQ(back.toString(c.out), c.result) << tostring(c.text);
    }
}

TEST(Name, DerIsWhatThePublicToolReads) {
    CACMPT_Name name(L"C=RU, O=\"Рога, Копыта\", OU=b + CN=a, E=a@b, INN=0012", 0);
    EXPECT_EQ(asn1parse(name.encode()),
              "countryName\nPRINTABLESTRING RU\norganizationName\nUTF8STRING Рога, Копыта\n"
              "commonName\nUTF8STRING a\norganizationalUnitName\nUTF8STRING b\n"  // sorted
              "emailAddress\nIA5STRING a@b\nINN\nNUMERICSTRING 0012\n");
    EXPECT_EQ(hexOf(CACMPT_Name().encode()), "3000");
    CACMPT_RelativeDistinguishedName rdn(L"CN=a", 0), back;
    EXPECT_EQ(hexOf(rdn.encode()), "310A300806035504030C0161");
    back.decode(rdn.encode());
    EXPECT_EQ(back.toString(0), L"CN=a");
}

TEST(Name, NamesOfThePublicToolAreRead) {
    const std::pair<const char*, const wchar_t*> cases[] = {
        {"/C=RU/ST=Москва/O=ООО \\\"Рога\\\"/CN=Иван",
         L"C=RU, S=Москва, O=\"ООО \"\"Рога\"\"\", CN=Иван"},
        {"/DC=org/DC=example/CN=a+emailAddress=a@b", L"DC=org, DC=example, CN=a + E=a@b"},
        {"/serialNumber=12/SN=x/GN=y", L"2.5.4.5=\"#13023132\", SN=x, G=y"},
    };
    for (const auto& [subject, text] : cases) {
        const std::string der = runTool(
            std::string("openssl req -new -utf8 -multivalue-rdn -newkey ec -pkeyopt "
                        "ec_paramgen_curve:P-256 -nodes -keyout /dev/null -outform DER -subj \"") +
                subject + "\" 2>/dev/null",
            "");
        // CertificationRequest, its info, behind the version: the name.
        ASSERT_GT(der.size(), 20u);
        std::size_t at = der.find("\x02\x01\x00\x30", 0, 4) + 3;
        auto byte = [&der](std::size_t i) { return static_cast<unsigned char>(der[i]); };
        std::size_t length = byte(at + 1) < 0x80 ? byte(at + 1) + 2 : byte(at + 2) + 3;
        CACMPT_BLOB nameDer(der.data() + at, length);
        CACMPT_Name name;
        name.decode(nameDer);
        EXPECT_EQ(name.toString(0), text);
        EXPECT_TRUE(name.encode() == nameDer);
    }
}

TEST(Name, ADecodedRdnKeepsItsOrder) {
    // OU=b + CN=a
    const CACMPT_BLOB unsorted = fromHex("301631143008060355040B0C0162300806035504030C0161");
    CACMPT_Name name;
    name.decode(unsorted);
    EXPECT_EQ(name.toString(0), L"OU=b + CN=a");
    EXPECT_TRUE(name.encode() == unsorted);
    name.front().push_back(CACMPT_RelativeDistinguishedName(L"C=RU", 0).front());
    CACMPT_Name copy = name, back;
    back.decode(copy.encode());
    EXPECT_EQ(back.toString(0), L"OU=b + CN=a + C=RU");
}

TEST(Name, BadDer) {
    CACMPT_Name name(L"CN=kept", 0);
    for (const char* hex :
         {"", "30", "3001", "300000", "0401", "3003310100", "300C310A300806035504030C02",
          "300B310930070605550403", "300D310B3009060355040380"}) {
        EXPECT_ASN1_FAILURE(name.decode(fromHex(hex))) << hex;
    }
    EXPECT_EQ(name.toString(0), L"CN=kept");
    EXPECT_FAILURE(name.fromString(L"CN=other, bad", 0), "CryptException 80092023");
    EXPECT_EQ(name.toString(0), L"CN=kept");
}

TEST(Name, ComparisonIsOfTextsInAnyOrder) {
    const std::tuple<const wchar_t*, const wchar_t*, bool> cases[] = {
        {L"CN=a,O=b", L"O=b,CN=a", true},
        {L"CN=a,CN=a", L"CN=a", false},
        {L"CN=a,CN=a", L"CN=a,O=b", true},  // not symmetric
        {L"CN=a,O=b", L"CN=a,CN=a", false},
        {L"CN=a", L"CN=A", false},
        {L"", L"", true},
    };
    for (const auto& [a, b, equal] : cases) {
        EXPECT_EQ(CACMPT_Name(a, 0) == CACMPT_Name(b, 0), equal) << tostring(a);
    }
    // Two encodings of one text are equal.
    CACMPT_Name utf8(L"CN=a", 0), printable = utf8;
    printable.front().front().set_value(fromHex("130161"));
    EXPECT_TRUE(utf8 == printable);
    EXPECT_FALSE(utf8.encode() == printable.encode());
}

TEST(Name, PositionsOfRdns) {
    const std::wstring text = L"CN=a, O=b+L=c; C=RU";
    unsigned long position = 6;
    CACMPT_RelativeDistinguishedName rdn(text, 0, position);
    EXPECT_EQ(rdn.size(), 2u);
    EXPECT_EQ(position, 13u);
    position = 15;
    rdn.fromString(text, 0, position);
    EXPECT_EQ(position, END);
    EXPECT_FAILURE(rdn.fromString(text, 0, position), "CryptException 80092023");
    EXPECT_EQ(position, END);
    EXPECT_EQ(rdn.toString(0), L"C=RU");
    CACMPT_Name name;
    name.fromString(text, 0, position = 6);
    EXPECT_EQ(name.toString(0), L"O=b + L=c, C=RU");
    EXPECT_EQ(position, END);
}

}  // namespace
