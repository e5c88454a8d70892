#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/cmp.h>
#include <openssl/crmf.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <set>
#include <span>
#include <tuple>

#include "golden.h"
#include "platform/asn1/SchemaBuilder.h"
#include "platform/asn1/asn1data.h"

// Every type of every module against hand-composed encodings, which libcrypto confirms where it
// knows the type.

namespace {

struct Vector {
    std::string type;
    std::string bytes;
};

const std::vector<Vector>& vectors() {
    static const std::vector<Vector> made = [] {
        std::vector<Vector> out;
        DerText text;
        for (const Golden& g : goldenTable()) {
            for (const std::string& each : g.texts) {
                out.push_back({g.type, text.make(each)});
                text.keep(g.type, out.back().bytes);
            }
        }
        return out;
    }();
    return made;
}

const asn1::Type& typeOf(const Vector& v) { return typeNamed(v.type); }

TEST(GoldenVectors, GiveTheSameBytesAfterDecodingCopyingAndXer) {
    for (const Vector& v : vectors()) {
        SCOPED_TRACE(v.type + " " + hexOf(v.bytes));
        expectRoundTrip(typeOf(v), v.bytes, Xer::exact);
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
    std::map<std::string, std::string> texts;
    for (const Vector& v : vectors()) texts[v.type] += xerOf(typeOf(v), v.bytes);
    for (const auto& [name, type] : typesByName()) {
        for (const asn1::Field& field : std::span(type->fields, type->fieldCount)) {
            EXPECT_THAT(texts[name],
                        ::testing::ContainsRegex(std::string("<") + field.name + "/?>"))
                << name;
        }
    }
}

// ---- libcrypto as judge -------------------------------------------------------------------------

using Judge = std::string (*)(const std::string&);

/// What libcrypto gives back for an encoding, empty when it does not read it.
template <const ASN1_ITEM* (*item)()>
std::string judge(const std::string& bytes) {
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
        {"AlgorithmIdentifier", judge<X509_ALGOR_it>},
        {"Name", judge<X509_NAME_it>},
        {"Extension", judge<X509_EXTENSION_it>},
        {"Extensions", judge<X509_EXTENSIONS_it>},
        {"Attribute", judge<X509_ATTRIBUTE_it>},
        {"Validity", judge<X509_VAL_it>},
        {"SubjectPublicKeyInfo", judge<X509_PUBKEY_it>},
        {"Certificate", judge<X509_it>},
        {"RevokedCertificate", judge<X509_REVOKED_it>},
        {"CertificateList", judge<X509_CRL_it>},
        {"SubjectKeyIdentifier", judge<ASN1_OCTET_STRING_it>},
        {"KeyUsage", judge<ASN1_BIT_STRING_it>},
        {"EDIPartyName", judge<EDIPARTYNAME_it>},
        {"GeneralName", judge<GENERAL_NAME_it>},
        {"GeneralNames", judge<GENERAL_NAMES_it>},
        {"AuthorityKeyIdentifier", judge<AUTHORITY_KEYID_it>},
        {"PrivateKeyUsagePeriod", judge<PKEY_USAGE_PERIOD_it>},
        {"CertificatePoliciesSyntax", judge<CERTIFICATEPOLICIES_it>},
        {"UserNotice", judge<USERNOTICE_it>},
        {"PolicyMappingsSyntax", judge<POLICY_MAPPINGS_it>},
        {"BasicConstraintsSyntax", judge<BASIC_CONSTRAINTS_it>},
        {"NameConstraintsSyntax", judge<NAME_CONSTRAINTS_it>},
        {"PolicyConstraintsSyntax", judge<POLICY_CONSTRAINTS_it>},
        {"CRLDistPointsSyntax", judge<CRL_DIST_POINTS_it>},
        {"ExtKeyUsageSyntax", judge<EXTENDED_KEY_USAGE_it>},
        {"AuthorityInfoAccessSyntax", judge<AUTHORITY_INFO_ACCESS_it>},
        {"IssuingDistributionPoint", judge<ISSUING_DIST_POINT_it>},
        {"CRLReason", judge<ASN1_ENUMERATED_it>},
        {"CertificationRequest", judge<X509_REQ_it>},
        {"CertTemplate", judge<OSSL_CRMF_CERTTEMPLATE_it>},
        {"CertId", judge<OSSL_CRMF_CERTID_it>},
        {"PKIPublicationInfo", judge<OSSL_CRMF_PKIPUBLICATIONINFO_it>},
        {"SinglePubInfo", judge<OSSL_CRMF_SINGLEPUBINFO_it>},
        {"EncryptedValue", judge<OSSL_CRMF_ENCRYPTEDVALUE_it>},
        {"CertReqMsg", judge<OSSL_CRMF_MSG_it>},
        {"CertReqMessages", judge<OSSL_CRMF_MSGS_it>},
        {"PBMParameter", judge<OSSL_CRMF_PBMPARAMETER_it>},
        {"PKIHeader", judge<OSSL_CMP_PKIHEADER_it>},
        {"PKIStatusInfo", judge<OSSL_CMP_PKISI_it>},
        {"PKIMessage", judge<OSSL_CMP_MSG_it>},
        {"IssuerAndSerialNumber", judge<PKCS7_ISSUER_AND_SERIAL_it>}};
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
        EXPECT_EQ(hexOf(judge<OSSL_CMP_MSG_it>(message)), hexOf(message));
        bodies.insert(v.bytes[0]);
    }
    EXPECT_EQ(bodies.size(), 27U);
}

// ---- Presence marks -----------------------------------------------------------------------------

/// Type, field and place of its mark.
using Marks = std::set<std::tuple<std::string, std::string, std::size_t>>;

#define MARK(T, field)                                                     \
    {                                                                      \
#T, #field,                                                        \
            offsetof(asn1data::ASN1T_##T, m) +                             \
                offsetof(decltype(asn1data::ASN1T_##T::m), field##Present) \
    }
const Marks namedMarks = {
#include "marks.inc"
};
#undef MARK

/// Builders number the marks in the order of the fields; their names must say the same.
TEST(Schemas, EachMarkBelongsToTheFieldOfItsName) {
    Marks built;
    for (const auto& [name, type] : typesByName()) {
        if (type->kind != asn1::Kind::sequence) continue;
        for (const asn1::Field& f : std::span(type->fields, type->fieldCount)) {
            if (f.mark != asn1::noOffset) built.emplace(name, f.name, f.mark);
        }
    }
    EXPECT_THAT(built, ::testing::ContainerEq(namedMarks));
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
