#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/cmp.h>
#include <openssl/crmf.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <map>
#include <set>

#include "DerText.h"
#include "golden.h"
#include "platform/asn1/SchemaBuilder.h"
#include "platform/asn1/asn1data.h"

// Every type of every module against hand-composed encodings, which libcrypto confirms where it
// knows the type.

namespace {

const std::map<std::string, const asn1::Type*>& typesByName() {
#define TYPE_BY_NAME(name) {#name, &Schema<asn1data::ASN1T_##name>::type},
    static const std::map<std::string, const asn1::Type*> types = {
        PKIXCMP_PKIX1EXPLICIT_TYPES(TYPE_BY_NAME)  //
        PKIXCMP_PKIX1IMPLICIT_TYPES(TYPE_BY_NAME)  //
        PKIXCMP_PKCS10_TYPES(TYPE_BY_NAME)         //
        PKIXCMP_PKIXCRMF_TYPES(TYPE_BY_NAME)       //
        PKIXCMP_PKIXCMP_TYPES(TYPE_BY_NAME)        //
        PKIXCMP_CMS_TYPES(TYPE_BY_NAME)};
#undef TYPE_BY_NAME
    return types;
}

struct Vector {
    std::string type;
    std::string bytes;
};

const std::vector<Vector>& vectors() {
    static const std::vector<Vector> made = [] {
        std::vector<Vector> out;
        DerText text;
        for (const Golden& g : goldenTable()) {
            out.push_back({g.type, text.make(g.text)});
            text.keep(g.type, out.back().bytes);
        }
        return out;
    }();
    return made;
}

const asn1::Type& typeOf(const Vector& v) { return *typesByName().at(v.type); }

void expectSameBytes(const Vector& v) {
    const asn1::Type& type = typeOf(v);
    ASN1CtxtRef copyContext, xerContext;
    void* copy = rtNewValue(copyContext.get(), type);
    std::string xer;
    {
        ASN1BERDecodeBuffer buffer(octetsOf(v.bytes), v.bytes.size());
        void* value = rtNewValue(buffer.getCtxtPtr(), type);
        ASSERT_EQ(buffer.decode(type, value), ASN_OK) << rtErrGetText(buffer.getCtxtPtr());
        EXPECT_FALSE(buffer.lossy());
        EXPECT_EQ(hexOf(encodeOrError(type, value)), hexOf(v.bytes));
        ASSERT_EQ(rtCopyValue(copyContext.get(), type, value, copy), ASN_OK);
        ASSERT_EQ(rtEncodeXer(buffer.getCtxtPtr(), type, value, xer), ASN_OK)
            << rtErrGetText(buffer.getCtxtPtr());
    }  // the copy must not need what was decoded
    EXPECT_EQ(hexOf(encodeOrError(type, copy)), hexOf(v.bytes));

    void* read = rtNewValue(xerContext.get(), type);
    ASSERT_EQ(rtDecodeXer(xerContext.get(), type, xer, read), ASN_OK)
        << rtErrGetText(xerContext.get()) << "\n"
        << xer;
    EXPECT_EQ(hexOf(encodeOrError(type, read)), hexOf(v.bytes)) << xer;
    std::string again;
    EXPECT_EQ(rtEncodeXer(xerContext.get(), type, read, again), ASN_OK);
    EXPECT_EQ(again, xer);
}

TEST(GoldenVectors, GiveTheSameBytesAfterDecodingCopyingAndXer) {
    for (const Vector& v : vectors()) {
        SCOPED_TRACE(v.type + " " + hexOf(v.bytes));
        expectSameBytes(v);
    }
}

TEST(GoldenVectors, AreRefusedWhenCutOrLengthened) {
    for (const Vector& v : vectors()) {
        for (std::size_t length = 0; length <= v.bytes.size() + 1; ++length) {
            if (length == v.bytes.size()) continue;
            std::string input = v.bytes + '\0';
            input.resize(length);
            ASN1CtxtRef context;
            int code =
                decodeText(context.get(), typeOf(v), input, rtNewValue(context.get(), typeOf(v)));
            EXPECT_LT(code, 0) << v.type << " " << length;
            EXPECT_EQ(context->errorCode(), code);
            EXPECT_LE(context->errorOffset(), length);
        }
    }
}

/// What breaks in the middle must be refused, or be read as something that gives the bytes back.
TEST(GoldenVectors, ChangedOctetsAreRefusedOrGivenBack) {
    for (const Vector& v : vectors()) {
        for (std::size_t at = 0; at < v.bytes.size() && v.bytes.size() < 600; ++at) {
            for (int change : {0x01, 0x20, 0x80, 0xFF}) {
                std::string input = v.bytes;
                input[at] = static_cast<char>(input[at] ^ change);
                ASN1BERDecodeBuffer buffer(octetsOf(input), input.size());
                void* value = rtNewValue(buffer.getCtxtPtr(), typeOf(v));
                if (buffer.decode(typeOf(v), value) != ASN_OK || buffer.lossy()) continue;
                ASSERT_EQ(hexOf(encodeOrError(typeOf(v), value)), hexOf(input)) << v.type;
            }
        }
    }
}

TEST(Schemas, EachTypeHasAGoldenVector) {
    std::set<std::string> covered, known;
    for (const Vector& v : vectors()) covered.insert(v.type);
    for (const auto& entry : typesByName()) known.insert(entry.first);
    EXPECT_EQ(covered, known);
    EXPECT_EQ(rtAllTypes().size(), known.size());
}

TEST(Schemas, EachAlternativeAndEachOptionalFieldOccursInAGoldenVector) {
    std::set<std::string> missing;
    auto texts = [](const std::string& type) {
        std::string all;
        for (const Vector& v : vectors()) {
            if (v.type != type) continue;
            ASN1CtxtRef context;
            const asn1::Type& t = *typesByName().at(type);
            void* value = rtNewValue(context.get(), t);
            std::string xer;
            decodeText(context.get(), t, v.bytes, value);
            rtEncodeXer(context.get(), t, value, xer);
            all += xer;
        }
        return all;
    };
    for (const auto& [typeName, type] : typesByName()) {
        std::string all = texts(typeName);
        for (int i = 0; i < type->fieldCount; ++i) {
            std::string element = std::string("<") + type->fields[i].name;
            if (all.find(element + ">") == std::string::npos &&
                all.find(element + "/>") == std::string::npos) {
                missing.insert(typeName + "." + type->fields[i].name);
            }
        }
    }
    EXPECT_THAT(missing, ::testing::IsEmpty());
}

// ---- libcrypto as judge -------------------------------------------------------------------------

using Judge = std::string (*)(const std::string&);

/// What libcrypto gives back for an encoding, empty when it does not read it.
template <auto d2i, auto i2d, auto release>
std::string judge(const std::string& bytes) {
    const unsigned char* p = octetsOf(bytes);
    auto* value = d2i(nullptr, &p, static_cast<long>(bytes.size()));
    if (value == nullptr) return {};
    std::string out(static_cast<std::size_t>(i2d(value, nullptr)), '\0');
    auto* q = reinterpret_cast<unsigned char*>(out.data());
    i2d(value, &q);
    release(value);
    return out;
}
#define JUDGE(name) judge<d2i_##name, i2d_##name, name##_free>

/// For types that libcrypto knows by their item alone.
template <const ASN1_ITEM* (*item)()>
std::string judgeItem(const std::string& bytes) {
    const unsigned char* p = octetsOf(bytes);
    ASN1_VALUE* value = ASN1_item_d2i(nullptr, &p, static_cast<long>(bytes.size()), item());
    if (value == nullptr) return {};
    unsigned char* made = nullptr;
    int length = ASN1_item_i2d(value, &made, item());
    std::string out(reinterpret_cast<char*>(made), static_cast<std::size_t>(std::max(length, 0)));
    OPENSSL_free(made);
    ASN1_item_free(value, item());
    return out;
}

const std::map<std::string, Judge>& judges() {
    static const std::map<std::string, Judge> map = {
        {"AlgorithmIdentifier", JUDGE(X509_ALGOR)},
        {"Name", JUDGE(X509_NAME)},
        {"Extension", JUDGE(X509_EXTENSION)},
        {"Extensions", judgeItem<X509_EXTENSIONS_it>},
        {"Attribute", JUDGE(X509_ATTRIBUTE)},
        {"Validity", judgeItem<X509_VAL_it>},
        {"SubjectPublicKeyInfo", JUDGE(X509_PUBKEY)},
        {"Certificate", JUDGE(X509)},
        {"RevokedCertificate", JUDGE(X509_REVOKED)},
        {"CertificateList", JUDGE(X509_CRL)},
        {"SubjectKeyIdentifier", JUDGE(ASN1_OCTET_STRING)},
        {"KeyUsage", JUDGE(ASN1_BIT_STRING)},
        {"EDIPartyName", judgeItem<EDIPARTYNAME_it>},
        {"GeneralName", JUDGE(GENERAL_NAME)},
        {"GeneralNames", JUDGE(GENERAL_NAMES)},
        {"AuthorityKeyIdentifier", JUDGE(AUTHORITY_KEYID)},
        {"PrivateKeyUsagePeriod", JUDGE(PKEY_USAGE_PERIOD)},
        {"CertificatePoliciesSyntax", JUDGE(CERTIFICATEPOLICIES)},
        {"UserNotice", JUDGE(USERNOTICE)},
        {"PolicyMappingsSyntax", judgeItem<POLICY_MAPPINGS_it>},
        {"BasicConstraintsSyntax", JUDGE(BASIC_CONSTRAINTS)},
        {"NameConstraintsSyntax", judgeItem<NAME_CONSTRAINTS_it>},
        {"PolicyConstraintsSyntax", judgeItem<POLICY_CONSTRAINTS_it>},
        {"CRLDistPointsSyntax", JUDGE(CRL_DIST_POINTS)},
        {"ExtKeyUsageSyntax", JUDGE(EXTENDED_KEY_USAGE)},
        {"AuthorityInfoAccessSyntax", JUDGE(AUTHORITY_INFO_ACCESS)},
        {"IssuingDistributionPoint", JUDGE(ISSUING_DIST_POINT)},
        {"CRLReason", JUDGE(ASN1_ENUMERATED)},
        {"CertificationRequest", JUDGE(X509_REQ)},
        {"CertTemplate", judgeItem<OSSL_CRMF_CERTTEMPLATE_it>},
        {"CertId", JUDGE(OSSL_CRMF_CERTID)},
        {"PKIPublicationInfo", JUDGE(OSSL_CRMF_PKIPUBLICATIONINFO)},
        {"SinglePubInfo", JUDGE(OSSL_CRMF_SINGLEPUBINFO)},
        {"EncryptedValue", judgeItem<OSSL_CRMF_ENCRYPTEDVALUE_it>},
        {"CertReqMsg", JUDGE(OSSL_CRMF_MSG)},
        {"CertReqMessages", JUDGE(OSSL_CRMF_MSGS)},
        {"PBMParameter", JUDGE(OSSL_CRMF_PBMPARAMETER)},
        {"PKIHeader", JUDGE(OSSL_CMP_PKIHEADER)},
        {"PKIStatusInfo", judgeItem<OSSL_CMP_PKISI_it>},
        {"PKIMessage", JUDGE(OSSL_CMP_MSG)},
        {"IssuerAndSerialNumber", JUDGE(PKCS7_ISSUER_AND_SERIAL)},
    };
    return map;
}

TEST(Schemas, LibcryptoReadsTheGoldenVectorsAlike) {
    std::set<std::string> judged;
    for (const Vector& v : vectors()) {
        auto found = judges().find(v.type);
        if (found == judges().end()) continue;
        judged.insert(v.type);
        EXPECT_EQ(hexOf(found->second(v.bytes)), hexOf(v.bytes)) << v.type;
    }
    EXPECT_EQ(judged.size(), judges().size());
}

TEST(Schemas, LibcryptoReadsAMessageOfEachBodyAlike) {
    std::string header;
    std::set<char> bodies;
    for (const Vector& v : vectors()) {
        if (v.type == "PKIHeader") header = v.bytes;
        if (v.type != "PKIBody") continue;
        std::string message = "\x30" + DerText::withLength(header + v.bytes);
        EXPECT_EQ(hexOf(JUDGE(OSSL_CMP_MSG)(message)), hexOf(message));
        bodies.insert(v.bytes[0]);
    }
    EXPECT_EQ(bodies.size(), 27U);
}

// ---- Presence marks -----------------------------------------------------------------------------

struct Mark {
    const char* type;
    const char* field;
    std::size_t offset;
};

#define MARK(T, field)                                                     \
    {                                                                      \
#T, #field,                                                        \
            offsetof(asn1data::ASN1T_##T, m) +                             \
                offsetof(decltype(asn1data::ASN1T_##T::m), field##Present) \
    }
const Mark marks[] = {
#include "marks.inc"
};
#undef MARK

/// Builders number the marks in the order of the fields; their names must say the same.
TEST(Schemas, EachMarkBelongsToTheFieldOfItsName) {
    std::size_t count = 0;
    for (const auto& [typeName, type] : typesByName()) {
        if (type->kind != asn1::Kind::sequence) continue;
        for (int i = 0; i < type->fieldCount; ++i) count += type->fields[i].mark != asn1::noOffset;
    }
    EXPECT_EQ(count, std::size(marks));
    for (const Mark& mark : marks) {
        const asn1::Type& type = *typesByName().at(mark.type);
        const asn1::Field* end = type.fields + type.fieldCount;
        const asn1::Field* f = std::find_if(type.fields, end, [&](const asn1::Field& field) {
            return std::string_view(field.name) == mark.field;
        });
        ASSERT_NE(f, end) << mark.type << "." << mark.field;
        EXPECT_EQ(f->mark, mark.offset) << mark.type << "." << mark.field;
    }
}

// ---- Builders -----------------------------------------------------------------------------------

/// The builders run at compile time; run here, their refusals can be seen.
template <class F>
std::string refusal(F build) {
    try {
        build();
    } catch (const char* text) {
        return text;
    }
    return "none";
}

TEST(SchemaBuilders, RefuseMistakes) {
    using namespace asn1;
    using V = asn1data::ASN1T_Validity;
    using N = asn1data::ASN1T_UserNotice;
    using C = asn1data::ASN1T_DistributionPointName;
    using A = asn1data::ASN1T_AnotherName;
    const asn1::Type& name = Schema<asn1data::ASN1T_Name>::type;
    const asn1::Type& time = Schema<asn1data::ASN1T_Time>::type;
    auto optional = [](const asn1::Type& type) {
        Field f = field("x", type, untagged);
        f.presence = Presence::optional;
        return f;
    };
    auto pair = [&](const asn1::Type& first, const asn1::Type& second) {
        return refusal([&] {
            const Field fields[] = {optional(first), field("y", second, untagged)};
            checkFields(fields, 2);
        });
    };
    EXPECT_EQ(refusal([&] { field("x", name, implicit(0)); }),
              "a CHOICE or ANY cannot be tagged implicitly");
    EXPECT_EQ(refusal([&] { field("x", asn1::any, implicit(0)); }),
              "a CHOICE or ANY cannot be tagged implicitly");
    EXPECT_EQ(refusal([&] { field("x", name, explicitly(31)); }),
              "tag numbers above 30 are not supported");
    EXPECT_EQ(pair(asn1::integer, asn1::integer), "an optional field is ambiguous");
    EXPECT_EQ(pair(asn1::any, asn1::integer), "an optional field is ambiguous");
    EXPECT_EQ(pair(time, asn1::utcTime), "an optional field is ambiguous");
    EXPECT_EQ(pair(asn1::integer, asn1::boolean), "none");
    EXPECT_EQ(refusal([] { FieldTable<V, Required<&V::notAfter>>(); }),
              "a member is forgotten or swapped");
    EXPECT_EQ(refusal([] { FieldTable<V, Required<&V::notBefore>>(); }),
              "a member is forgotten or swapped");
    EXPECT_EQ(refusal([] { FieldTable<V, Required<&V::notAfter>, Required<&V::notBefore>>(); }),
              "a member is forgotten or swapped");
    EXPECT_EQ(refusal([] { FieldTable<V, Optional<&V::notBefore>, Required<&V::notAfter>>(); }),
              "a record with optional fields needs marks");
    EXPECT_EQ(refusal([] { FieldTable<N, Required<&N::noticeRef>, Optional<&N::explicitText>>(); }),
              "marks and optional fields differ in number");
    EXPECT_EQ(refusal([] { Defaulted<&A::type_id, 0>::make(); }),
              "only numbers and booleans have a DEFAULT");
    EXPECT_EQ(refusal([] {
                  AlternativeTable<C, Alternative<&C::U::fullName, implicit(0)>,
                                   Alternative<&C::U::fullName, implicit(0)>>();
              }),
              "two alternatives share a tag");
}

}  // namespace
