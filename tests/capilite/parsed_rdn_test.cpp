#include <gmock/gmock.h>

#include "capilite/CertName.h"
#include "capilite/Name.h"
#include "capilite/ParsedRdn.h"
#include "capilite/Strings.h"
#include "platform/asn1/Runtime.h"
#include "tests/PublicTool.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

namespace {

using asn1data::ASN1T_AttributeTypeAndValue;
using asn1data::ASN1T_DirectoryString;
using asn1data::ASN1T_Name;

CACMPT_PARSED_RDN fromText(const wchar_t* text) {
    CACMPT_PARSED_RDN name;
    name.assign(text);
    return name;
}

/// A name of one attribute whose value is of the universal tag, with content given as octets.
CACMPT_PARSED_RDN nameOf(const char* oid, unsigned int tag, const std::string& content) {
    ASN1CtxtRef ctxt;
    ASN1T_Name name;
    xe_setp(ctxt.get(), nullptr, 0);
    pkiAddRDNToListA(ctxt.get(), oid, "", name.u.rdnSequence, 12, 0);
    int length = xe_charstr(ctxt.get(), content, ASN1EXPL, static_cast<std::uint8_t>(tag));
    name.u.rdnSequence.front().front().value =
        ASN1OpenType(static_cast<std::uint32_t>(length), xe_getp(ctxt.get()));
    CACMPT_PARSED_RDN rdn;
    rdn.assign(name);
    return rdn;
}

std::string parseFailure(const CACMPT_PARSED_RDN& name) {
    CACMPT_PARSED_RDN_OLD old;
    return failureOf([&] { name.parse(old); });
}

CACMPT_PARSED_RDN_OLD fullRecord() {
    CACMPT_PARSED_RDN_OLD r;
    r.CommonName = L"Общее имя";
    r.EMail = "a@b";
    r.Country = "RU";
    r.State = L"Область";
    r.Locality = L"Город";
    r.Street = L"Улица";
    r.Organization = L"Организация";
    r.OrgUnit = L"Отдел";
    r.Title = L"Должность";
    r.GivenName = L"Имя";
    r.Initials = L"И";
    r.SurName = L"Фамилия";
    r.Pseudonym = L"Псевдоним";
    r.OGRN = "1";
    r.OGRNIP = "2";
    r.INN = "3";
    r.SNILS = "4";
    r.UnstructuredName = L"host";
    r.PostalCode = L"101000";
    return r;
}

TEST(ParsedRdn, ANewNameIsTheEmptyName) {
    CACMPT_PARSED_RDN name;
    EXPECT_EQ(hexOf(name), "3000");
    EXPECT_EQ(name.size, CACMPT_PARSED_RDN::m_empty_der_len);
    EXPECT_EQ(name.tostring(0), L"");
    name.assign(CACMPT_PARSED_RDN_OLD());
    EXPECT_EQ(hexOf(name), "3000");
    CACMPT_PARSED_RDN_OLD old = fullRecord();
    name.parse(old);
    EXPECT_EQ(old.CommonName, L"");
    EXPECT_EQ(hexOf(fromText(L"")), "3000");
}

TEST(ParsedRdn, AllFieldsInTheirOrder) {
    CACMPT_PARSED_RDN name;
    name.assign(fullRecord());
    const wchar_t* text =
        L"E=a@b, C=RU, S=Область, L=Город, STREET=Улица, O=Организация, OU=Отдел, T=Должность, "
        L"G=Имя, I=И, SN=Фамилия, PS=Псевдоним, OGRN=1, OGRNIP=2, INN=3, SNILS=4, "
        L"CN=Общее имя, UnstructuredName=host, PostalCode=101000";
    EXPECT_EQ(name.tostring(0), text);
    EXPECT_TRUE(name == fromText(text));  // the same string types as the register's
    EXPECT_EQ(runTool("openssl asn1parse -inform DER | sed -n 's/.*prim: *\\([A-Z0-9]*STRING\\).*/"
                      "\\1/p' | tr '\\n' ' '",
                      name.view()),
              "IA5STRING PRINTABLESTRING UTF8STRING UTF8STRING UTF8STRING UTF8STRING UTF8STRING "
              "UTF8STRING UTF8STRING UTF8STRING UTF8STRING UTF8STRING NUMERICSTRING NUMERICSTRING "
              "NUMERICSTRING NUMERICSTRING UTF8STRING UTF8STRING UTF8STRING ");
    CACMPT_PARSED_RDN_OLD back;
    name.parse(back);
    CACMPT_PARSED_RDN again;
    again.assign(back);
    EXPECT_TRUE(again == name);
    EXPECT_EQ(back.CommonName, L"Общее имя");
    EXPECT_EQ(back.SNILS, "4");
    EXPECT_EQ(back.PostalCode, L"101000");
}

TEST(ParsedRdn, LengthsOnWriting) {
    const std::string refused = "Asn1DecodeException Invalid RDN length.";
    using Record = CACMPT_PARSED_RDN_OLD;
    const auto expectLongest = [&](const char* what, auto field, std::size_t longest) {
        Record r;
        (r.*field).assign(longest, '1');
        EXPECT_NO_THROW(CACMPT_PARSED_RDN().assign(r)) << what;
        r.*field += '1';
        EXPECT_FAILURE(CACMPT_PARSED_RDN().assign(r), refused) << what;
    };
    expectLongest("E", &Record::EMail, 32769);
    expectLongest("C", &Record::Country, 32769);
    expectLongest("OGRN", &Record::OGRN, 32768);
    expectLongest("SNILS", &Record::SNILS, 32768);
    expectLongest("CN", &Record::CommonName, 32768);
    expectLongest("PostalCode", &Record::PostalCode, 32768);
    Record r;
    r.CommonName = std::wstring(L"good\0bad", 8);
    EXPECT_FAILURE(CACMPT_PARSED_RDN().assign(r), refused);
    r.CommonName = std::wstring(1, static_cast<wchar_t>(0xD800));
    EXPECT_ASN1_FAILURE(CACMPT_PARSED_RDN().assign(r));
}

// Tags in the order of the choice: 1 UTF8String to 7 BMPString.
constexpr unsigned int TAGS[] = {0, 12, 18, 19, 20, 22, 28, 30};

TEST(ParsedRdn, KindsOfValuesOnReading) {
    struct {
        const char* oid;
        const char* message;
        const char* accepted;  // choice numbers
    } const cases[] = {
        {"1.2.840.113549.1.9.1", "name.E", "12345"},
        {"2.5.4.6", "", "1234567"},
        {"2.5.4.8", "name.ST too long", "13467"},
        {"2.5.4.7", "name.L too long", "13467"},
        {"2.5.4.9", "name.Street too long", "13467"},
        {"2.5.4.10", "name.O too long", "13467"},
        {"2.5.4.11", "name.OU too long", "13467"},
        {"2.5.4.12", "name.T too long", "13467"},
        {"2.5.4.42", "name.GivenName too long", "13467"},
        {"2.5.4.43", "name.Initials too long", "13467"},
        {"2.5.4.4", "name.SurName too long", "13467"},
        {"2.5.4.65", "name.Pseudonym too long", "13467"},
        {"1.2.643.100.1", "Invalid CN.OGRN encoding", "23"},
        {"1.2.643.100.5", "Invalid CN.OGRNIP encoding", "23"},
        {"1.2.643.3.131.1.1", "Invalid CN.INN encoding", "23"},
        {"1.2.643.100.3", "Invalid CN.SNILS encoding", "23"},
        {"2.5.4.3", "name.CN too long", "13467"},
        {"1.2.840.113549.1.9.2", "name.UnstructuredName too long", "13467"},
        {"2.5.4.17", "name.UnstructuredName too long", "13467"},
    };
    for (const auto& c : cases) {
        for (int choice = 1; choice <= 7; ++choice) {
            const std::string content = choice == 6   ? std::string("\0\0\0001", 4)
                                        : choice == 7 ? std::string("\0001", 2)
                                                      : "1";
            bool accepted =
                std::string(c.accepted).find(static_cast<char>('0' + choice)) != std::string::npos;
            EXPECT_EQ(parseFailure(nameOf(c.oid, TAGS[choice], content)),
                      accepted ? "none" : std::string("Asn1DecodeException ") + c.message)
                << c.oid << " " << choice;
        }
    }
}

TEST(ParsedRdn, LengthsOnReading) {
    struct {
        const char* oid;
        int choice;
        std::string unit;
        std::size_t longest;
        const char* message;
    } const cases[] = {
        {"2.5.4.3", 1, "\xD0\xAF", 32768, "name.CN too long"},
        {"2.5.4.3", 3, "a", 32768, "name.CN too long"},
        {"2.5.4.11", 4, "a", 32768, "name.OU too long"},
        {"2.5.4.3", 6, std::string("\0\0\0a", 4), 32768, "name.CN too long"},
        {"2.5.4.17", 7, std::string("\0a", 2), 32768, "name.UnstructuredName too long"},
        {"1.2.840.113549.1.9.1", 5, "a", 32768, "name.E"},
    };
    for (const auto& c : cases) {
        std::string content;
        for (std::size_t i = 0; i < c.longest; ++i) content += c.unit;
        EXPECT_EQ(parseFailure(nameOf(c.oid, TAGS[c.choice], content)), "none") << c.choice;
        EXPECT_EQ(parseFailure(nameOf(c.oid, TAGS[c.choice], content + c.unit)),
                  std::string("Asn1DecodeException ") + c.message);
    }
    CACMPT_PARSED_RDN_OLD old;
    nameOf("1.2.643.3.131.1.1", 18, std::string(40000, '1')).parse(old);
    EXPECT_EQ(old.INN.size(), 32769u);  // cut without complaint
    nameOf("2.5.4.6", 19, std::string(40000, 'A')).parse(old);
    EXPECT_EQ(old.Country.size(), 40000u);  // not measured
    EXPECT_EQ(old.INN, "");
}

TEST(ParsedRdn, ValuesOnReading) {
    struct {
        int choice;
        std::string content;
        std::wstring text;
    } const cases[] = {
        {1, "\xD0\xAF", L"Я"},
        {3, "ab", L"ab"},
        {4, "\xC9", std::wstring(1, static_cast<wchar_t>(-55))},  // sign-extended
        {6, std::string("\0\1\xF6\0", 4), L"\x1F600"},
        {7, "\x04\x2F", L"Я"},
    };
    for (const auto& c : cases) {
        CACMPT_PARSED_RDN_OLD old;
        nameOf("2.5.4.3", TAGS[c.choice], c.content).parse(old);
        EXPECT_EQ(old.CommonName, c.text) << c.choice;
    }
    const std::string message = "Asn1DecodeException name.CN too long";
    for (const auto& [choice, content] : {std::pair<int, std::string>{1, "\xFF"},
                                          {1, std::string("a\0b", 3)},
                                          {3, std::string("a\0b", 3)},
                                          {7, "abc"},
                                          {6, std::string("\0\0\0a\0\0\0\0", 8)}}) {
        EXPECT_EQ(parseFailure(nameOf("2.5.4.3", TAGS[choice], content)), message) << choice;
    }
    // A value that is no string at all.
    EXPECT_EQ(parseFailure(nameOf("2.5.4.3", 2, "a")), message);
    EXPECT_EQ(parseFailure(nameOf("2.5.4.6", 2, "a")), "none");
}

TEST(ParsedRdn, RepeatedAndUnknownTypes) {
    CACMPT_PARSED_RDN_OLD old;
    fromText(L"OU=first, OU=second + 2.5.4.5=#01, 1.2.3.4=#02, DC=x, CN=end").parse(old);
    EXPECT_EQ(old.OrgUnit, L"second");
    EXPECT_EQ(old.CommonName, L"end");
    // An interrupted reading leaves what was read so far.
    EXPECT_EQ(failureOf([&] { fromText(L"CN=kept, INN=1, OU=#01, O=lost").parse(old); }),
              "Asn1DecodeException name.OU too long");
    EXPECT_EQ(old.CommonName, L"kept");
    EXPECT_EQ(old.Organization, L"");
}

TEST(ParsedRdn, BadInput) {
    for (const char* hex : {"", "30", "3101", "300000", "3003310100"}) {
        CACMPT_PARSED_RDN name(fromHex(hex));
        CACMPT_PARSED_RDN_OLD old;
        EXPECT_ASN1_FAILURE(name.parse(old)) << hex;
        EXPECT_ASN1_FAILURE(name.tostring(0)) << hex;
        CACMPT_ASN1BERDecodeBuffer buffer;
        EXPECT_ASN1_FAILURE(ASN1T_Name_set(buffer, name)) << hex;
    }
    ASN1CtxtRef ctxt;
    ASN1T_Name name;
    auto& list = name.u.rdnSequence;
    // The identifier is looked at before the text.
    for (std::size_t length : {1, 32769}) {
        const std::string text(length, 'a');
        const std::wstring wide(length, L'a');
        EXPECT_FAILURE(pkiAddRDNToListW(ctxt.get(), "2.x", wide.c_str(), list, 32769),
                       "CAException Can't convert str to oid.");
        EXPECT_FAILURE(pkiAddRDNToListA(ctxt.get(), "2.x", text.c_str(), list, 18, 32768),
                       "CAException Can't convert str to oid.");
    }
    EXPECT_ASN1_FAILURE(pkiAddRDNToListA(ctxt.get(), "5.5.5", "a", list, 12, 9));
    EXPECT_FAILURE(
        pkiAddRDNToListW(ctxt.get(), "2.5.4.3", std::wstring(32769, L'a').c_str(), list, 40000),
        "Asn1DecodeException Invalid RDN length.");
    EXPECT_TRUE(list.empty());
}

TEST(ParsedRdn, BuildingAListDisturbsNoEncoding) {
    ASN1CtxtRef ctxt;
    ASN1T_Name name;
    xe_setp(ctxt.get(), nullptr, 0);
    xe_charstr(ctxt.get(), "tail", ASN1EXPL, 12);
    pkiAddRDNToListW(ctxt.get(), "2.5.4.3", L"between", name.u.rdnSequence, 32769);
    xe_charstr(ctxt.get(), "ab", ASN1EXPL, 12);
    EXPECT_EQ(hexOf(CACMPT_BLOB(xe_getp(ctxt.get()), 10)), "0C0261620C047461696C");
    CACMPT_PARSED_RDN made;
    made.assign(name);
    EXPECT_EQ(made.tostring(0), L"CN=between");
    CACMPT_ASN1BERDecodeBuffer buffer;
    ASN1T_Name* record = ASN1T_Name_set(buffer, made);
    CACMPT_PARSED_RDN again;
    again.assign(*record);
    EXPECT_TRUE(again == made);
}

// ---- Normal forms ----

TEST(CertName, NormalForm) {
    const auto expectNormal = [](const char* oid, unsigned int tag, const char* content,
                                 const char* normal) {
        CACMPT_CERT_NAME name(nameOf(oid, tag, content));
        EXPECT_FALSE(name.norm);
        EXPECT_TRUE(name.fill_norm() == nameOf(oid, tag, normal)) << oid << content;
        EXPECT_TRUE(name == CACMPT_CERT_NAME(nameOf(oid, tag, normal)));
    };
    expectNormal("2.5.4.3", 19, "  Ab   C d  ", "ab c d");
    expectNormal("2.5.4.3", 19, "   ", "");
    expectNormal("2.5.4.3", 19, "", "");
    expectNormal("2.5.4.3", 19, "A\t B", "a\t b");  // a tab is no blank
    expectNormal("2.5.4.3", 12, "  Ab   C ", "  Ab   C ");
    expectNormal("2.5.4.3", 20, "A  B", "A  B");
    expectNormal("2.5.4.6", 19, " RU ", "ru");
    expectNormal("2.5.4.6", 12, " RU ", " RU ");
    expectNormal("1.2.840.113549.1.9.1", 19, "A@B", "a@b");
    expectNormal("1.2.840.113549.1.9.1", 22, "A@B", "A@B");
    for (const char* folded : {"2.5.4.8", "2.5.4.7", "2.5.4.10", "2.5.4.11", "2.5.4.12", "2.5.4.42",
                               "2.5.4.43", "2.5.4.4"}) {
        expectNormal(folded, 19, "A  B", "a b");
    }
    for (const char* other : {"2.5.4.5", "2.5.4.9", "1.2.3.4"}) {
        expectNormal(other, 19, "A  B", "A  B");
    }
}

TEST(CertName, ComparisonKeepsOrder) {
    CACMPT_CERT_NAME a(fromText(L"C=RU, CN=x, O=y")), b(fromText(L"C=RU, O=y, CN=x"));
    EXPECT_FALSE(a == b);
    CACMPT_CERT_NAME copy = a;
    EXPECT_TRUE(copy.norm && copy == a);
    EXPECT_EQ(copy.toString(), L"C=ru, CN=x, O=y");
    copy.assign(fromText(L"C=US"));
    EXPECT_FALSE(copy.norm);
    EXPECT_EQ(copy.toString(), L"C=us");
}

TEST(CertName, BadInput) {
    for (const char* hex : {"", "3001", "0400", "300E310C300A0603550406130355"}) {
        CACMPT_CERT_NAME name(fromHex(hex));
        EXPECT_ASN1_FAILURE(name.fill_norm()) << hex;
        EXPECT_FALSE(name.norm);
    }
}

}  // namespace
