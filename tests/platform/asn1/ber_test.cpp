#include <gtest/gtest.h>

#include "golden.h"
#include "platform/asn1/Tlv.h"
#include "platform/asn1/asn1data.h"

using namespace asn1data;

namespace {

/// A decoded value with what it lives in.
struct Decoded {
    ASN1BERDecodeBuffer buffer;
    void* value;
    int code;
    Decoded(const asn1::Type& type, std::string_view bytes)
        : buffer(octetsOf(bytes), bytes.size()),
          value(rtNewValue(buffer.getCtxtPtr(), type)),
          code(buffer.decode(type, value)) {}
    std::string error() { return rtErrGetText(buffer.getCtxtPtr()); }
};

TEST(Ber, FormsThatAreNotDerAreReadAndReportedAsLossy) {
    const struct {
        const char *type, *ber, *der;
    } cases[] = {
        {"AlgorithmIdentifier", "3080 06{2A03} 0000", "30{06{2A03}}"},
        {"AlgorithmIdentifier", "308104 06{2A03}", "30{06{2A03}}"},
        {"AlgorithmIdentifier", "30840000000406{2A03}", "30{06{2A03}}"},
        {"AlgorithmIdentifier", "30{06{2A03}3080 3080 0000 0000}", "30{06{2A03}3080308000000000}"},
        {"Extensions", "3080 3080 06{2A03} 2480 04{01} 24{04{02}04{03}} 0000 0000 0000",
         "30{30{06{2A03}04{010203}}}"},
        {"SubjectKeyIdentifier", "24{04{01}04{}04{02}}", "04{0102}"},
        {"SubjectKeyIdentifier", "24{}", "04{}"},
        {"CPSuri", "36{16{'ht'}04{'tp'}}", "16{'http'}"},
        {"ReasonFlags", "23{03{0001}03{0480}}", "03{040180}"},
        {"ReasonFlags", "2380 03{00} 23{03{00AA}} 03{0780} 0000", "03{07AA80}"},
        {"GeneralName", "A1{04{'a'}04{'b'}}", "81{'ab'}"},
        {"GeneralName", "A480 3080 0000 0000", "A4{30{}}"},
        {"InhibitAnyPolicy", "02{00000005}", "02{05}"},
        {"InhibitAnyPolicy", "02{FFFFFFFF80}", "02{80}"},
        {"PKIMessage", "3080 3080 0201 02 A480 3080 0000 0000 A4{30{}} 0000 B380 0500 0000 0000",
         "30{30{02{02}A4{30{}}A4{30{}}}B3{05{}}}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ber);
        const std::string ber = DerText::bytes(c.ber), der = DerText::bytes(c.der);
        Decoded d(typeNamed(c.type), ber);
        ASSERT_EQ(d.code, ASN_OK) << d.error();
        EXPECT_EQ(hexOf(encodeOrError(typeNamed(c.type), d.value)), hexOf(der));
        EXPECT_EQ(d.buffer.lossy(), der != ber);
    }
}

TEST(Ber, SlipsOfOthersAreGivenBackAsTheyStood) {
    const std::pair<const char*, const char*> cases[] = {
        {"BasicConstraintsSyntax", "30{01{00}}"},     // DEFAULT written out
        {"Extension", "30{06{2A03}01{00}04{}}"},      //
        {"GeneralSubtree", "30{82{'x'}80{00}}"},      //
        {"BasicConstraintsSyntax", "30{01{01}}"},     // TRUE other than 0xFF
        {"KeyUsage", "03{07FF}"},                     // unused bits set
        {"KeyUsage", "03{00A000}"},                   // trailing zero bits
        {"KeyUsage", "03{0400}"},                     //
        {"CertificateSerialNumber", "02{00000080}"},  // long integers
        {"CertificateSerialNumber", "02{FFFF80}"},    //
        {"RelativeDistinguishedName",                 // SET OF out of order
         "31{30{06{550407}13{'x'}}30{06{550403}13{'x'}}}"},
        {"Attributes", "31{30{06{2A03}31{05{}04{}}}}"},       //
        {"GeneralNames", "30{}"},                             // SIZE (1..MAX)
        {"CRLDistPointsSyntax", "30{30{}}"},                  //
        {"RDNSequence", "30{31{}}"},                          //
        {"AttributeTypeAndValue", "30{06{550403}02{05}}"},    // no string
        {"AttributeTypeAndValue", "30{06{550403}0C{FF}}"},    // no UTF-8
        {"AttributeTypeAndValue", "30{06{2A03}9F8101{00}}"},  // high tag number
        {"Extension", "30{06{551D0F}04{DEADBEEF}}"},          // malformed value
        {"Extension", "30{06{551D0F}04{}}"},                  //
        {"Extension", "30{06{551D13}04{30{}00}}"},            // bytes behind the value
        {"Extension", "30{06{551D13}04{3080 0000}}"},         // BER inside
        {"Time", "17{'whenever'}"},
    };
    for (const auto& [type, text] : cases) {
        SCOPED_TRACE(text);
        expectRoundTrip(typeNamed(type), DerText::bytes(text), Xer::stable);
    }
}

TEST(Ber, FaultsNameTheirCodePlaceAndPath) {
    const std::string certificate = "30{30{02{05}30{06{2A03}}30{}30{17{'x'}17{'y'}}30{}";
    const struct {
        const char* type;
        std::string text;
        int code;
        std::size_t offset;
        const char* path = "";
    } cases[] = {
        {"KeyUsage", "", ASN_E_ENDOFBUF, 0},
        {"KeyUsage", "04{00}", ASN_E_INVTAG, 0},
        {"KeyUsage", "03{}", ASN_E_INVVAL, 2},
        {"KeyUsage", "03{08FF}", ASN_E_INVVAL, 2},
        {"KeyUsage", "03{01}", ASN_E_INVVAL, 2},
        {"KeyUsage", "23{03{01FE}03{00}}", ASN_E_INVVAL, 6},
        {"KeyUsage", "23{03{00AA}03{05}}", ASN_E_INVVAL, 6},
        {"KeyUsage", "23{04{00}}", ASN_E_INVTAG, 2},
        {"KeyUsage", "23{03{}}", ASN_E_INVVAL, 2},
        {"SubjectKeyIdentifier", "2480 04{01}", ASN_E_ENDOFBUF, 0},
        {"SubjectKeyIdentifier", "0480 0000", ASN_E_INVLEN, 0},
        {"SubjectKeyIdentifier", "0485FFFFFFFFFF", ASN_E_INVLEN, 0},
        {"SubjectKeyIdentifier", "04841FFFFFFF", ASN_E_ENDOFBUF, 0},
        {"CRLNumber", "02{}", ASN_E_INVLEN, 2},
        {"CRLNumber", "22{02{01}}", ASN_E_INVTAG, 0},
        {"InhibitAnyPolicy", "02{}", ASN_E_INVLEN, 2},
        {"InhibitAnyPolicy", "02{0080000000}", ASN_E_TOOBIG, 2},
        {"PKIAudit", "30{02{80}02{00}02{00}01{FF}}", ASN_E_TOOBIG, 4, "type"},
        {"PKIAudit", "30{02{00}02{0100000000}02{00}01{FF}}", ASN_E_TOOBIG, 7, "session"},
        {"HoldInstruction", "06{}", ASN_E_INVVAL, 2},
        {"HoldInstruction", "06{2A80}", ASN_E_INVVAL, 2},
        {"NULLParams", "05{00}", ASN_E_INVLEN, 2},
        {"BasicConstraintsSyntax", "30{01{FFFF}}", ASN_E_INVLEN, 4, "cA"},
        {"BasicConstraintsSyntax", "30{02{00}01{FF}}", ASN_E_TRAILING, 5},
        {"BasicConstraintsSyntax", "30{04{}}", ASN_E_TRAILING, 2},
        {"BasicConstraintsSyntax", "30{}00", ASN_E_TRAILING, 2},
        {"BasicConstraintsSyntax", "10{}", ASN_E_INVTAG, 0},
        {"Time", "16{'x'}", ASN_E_CHOICE, 0},
        {"GeneralNames", "30{82{'x'}89{'y'}}", ASN_E_CHOICE, 5, "[1]"},
        {"PKIBody", "BB{30{}}", ASN_E_CHOICE, 0},
        {"PKIBody", "B3{}", ASN_E_ENDOFBUF, 2, "pkiconf"},
        {"PKIBody", "B3{05{}05{}}", ASN_E_TRAILING, 4, "pkiconf"},
        {"Name", "31{}", ASN_E_CHOICE, 0},
        {"RDNSequence", "30{31{30{06{550403}13{'A'}}30{06{550403}}}}", ASN_E_MISSING, 21,
         "[0][1].value"},
        {"Certificate", "30{}", ASN_E_MISSING, 2, "tbsCertificate"},
        {"Certificate", certificate + "30{30{06{2A03}}04{}}}}", ASN_E_MISSING, 33,
         "tbsCertificate.subjectPublicKeyInfo.subjectPublicKey"},
        {"Certificate",
         certificate + "30{30{06{2A03}}03{00}}A3{30{30{06{2A03}04{}}30{06{80}04{}}}}}}",
         ASN_E_INVVAL, 52, "tbsCertificate.extensions[1].extnID"},
        {"TBSCertList", "30{30{06{2A03}}30{}17{'x'}30{30{02{05}17{'y'}}30{02{}17{'z'}}}}",
         ASN_E_INVLEN, 25, "revokedCertificates"},
        {"RevokedCertificates", "30{30{02{05}16{'y'}}}", ASN_E_INVTAG, 7},
        {"RevokedCertificates", "30{30{02{05}17{'y'}31{}}}", ASN_E_INVTAG, 10},
        {"RevokedCertificates", "30{30{02{05}17{'y'}30{}05{}}}", ASN_E_TRAILING, 12},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Decoded d(typeNamed(c.type), DerText::bytes(c.text));
        EXPECT_EQ(d.code, c.code) << d.error();
        EXPECT_EQ(d.buffer.getCtxtPtr()->errorOffset(), c.offset);
        const std::size_t in = d.error().find(", in ");
        EXPECT_EQ(in == std::string::npos ? "" : d.error().substr(in + 5), c.path);
    }
}

// ---- Open types ---------------------------------------------------------------------------------

TEST(OpenTypes, MalformedKnownValuesAreNullInATreeAndFailuresWhenAskedFor) {
    const struct {
        const char* id;
        const char* value;
        bool known, good;
    } cases[] = {
        {"551D0F", "03{0520}", true, true},
        {"551D0F", "03{08}", true, false},
        {"551D0F", "04{00}", true, false},
        {"551D0F", "03{0520}00", true, false},
        {"551D0F", "", true, false},
        {"2A03", "FFFF", false, true},
        {"2A03", "", false, true},
        {"551D11", "30{82{'x'}8A{}}", true, false},
        {"2B060104018237150A", "30{}", true, true},
        {"2B0601050507300105", "05{}", true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.id) + " " + c.value);
        Decoded d(Schema<ASN1T_Extension>::type,
                  DerText::bytes("30{06{" + std::string(c.id) + "}04{" + c.value + "}}"));
        ASSERT_EQ(d.code, ASN_OK) << d.error();
        auto* extension = static_cast<ASN1T_Extension*>(d.value);
        EXPECT_EQ(extension->extnValue.decoded != nullptr, c.known && c.good);
        EXPECT_EQ(ExtensionSet::lookupObject(extension->extnID) != nullptr, c.known);
        EXPECT_EQ(ExtensionSet::lookupObject(static_cast<ASN1OBJID>(extension->extnID)),
                  ExtensionSet::lookupObject(extension->extnID));
        int code = asn1DTC_Extension(d.buffer.getCtxtPtr(), extension);
        EXPECT_EQ(code == ASN_OK, c.good);
        EXPECT_EQ(extension->extnValue.decoded != nullptr, c.known && c.good);
        if (!c.good) {
            EXPECT_NE(d.error().find("extnValue"), std::string::npos) << d.error();
        }
    }
}

TEST(OpenTypes, AttributeValuesOfTheSevenStringsAreDecodedOthersAreNull) {
    for (int tag = 0; tag < 31; ++tag) {
        std::string bytes = DerText::bytes("30{06{550403}00{'x'}}");
        bytes[7] = static_cast<char>(tag);
        Decoded d(Schema<ASN1T_AttributeTypeAndValue>::type, bytes);
        ASSERT_EQ(d.code, ASN_OK) << tag;
        auto* attribute = static_cast<ASN1T_AttributeTypeAndValue*>(d.value);
        auto* text = attribute->value.as<ASN1T_DirectoryString>();
        static const std::map<int, int> alternatives = {{12, 1}, {18, 2}, {19, 3}, {20, 4},
                                                        {22, 5}, {28, 6}, {30, 7}};
        auto found = alternatives.find(tag);
        ASSERT_EQ(text != nullptr, found != alternatives.end()) << tag;
        if (text == nullptr) {
            EXPECT_LT(asn1DTC_AttributeTypeAndValue(d.buffer.getCtxtPtr(), attribute), 0);
            continue;
        }
        EXPECT_EQ(text->t, found->second);
        EXPECT_EQ(text->u.text.view(), "x");
    }
}

TEST(OpenTypes, StrictDecodingOfInfoTypesAndRequestAttributes) {
    const struct {
        const char* text;
        bool attribute, good, decoded;
    } cases[] = {
        {"30{06{2A864886F70D01090E}31{30{}30{}}}", true, true, true},
        {"30{06{2B06010401823702010E}31{30{}}}", true, true, true},
        {"30{06{2A864886F70D01090E}31{05{}}}", true, false, false},
        {"30{06{2A03}31{05{}}}", true, true, false},
        {"30{06{2A850302022901}30{02{01}02{02}02{03}01{00}}}", false, true, true},
        {"30{06{2A850302022901}30{02{01}02{02}02{03}}}", false, false, false},
        {"30{06{2A850302022901}}", false, true, false},
        {"30{06{2A03}30{}}", false, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Decoded d(typeNamed(c.attribute ? "Attribute" : "InfoTypeAndValue"),
                  DerText::bytes(c.text));
        ASSERT_EQ(d.code, ASN_OK) << d.error();
        ASN1CTXT* ctxt = d.buffer.getCtxtPtr();
        auto* attribute = static_cast<ASN1T_Attribute*>(d.value);
        auto* info = static_cast<ASN1T_InfoTypeAndValue*>(d.value);
        int code =
            c.attribute ? asn1DTC_Attribute(ctxt, attribute) : asn1DTC_InfoTypeAndValue(ctxt, info);
        EXPECT_EQ(code == ASN_OK, c.good) << d.error();
        EXPECT_EQ((c.attribute ? attribute->values.front() : info->infoValue).decoded != nullptr,
                  c.decoded);
    }
}

// ---- Hostile input ------------------------------------------------------------------------------

std::string nestedMessages(int levels) {
    DerText text;
    text.keep("Body", DerText::bytes("B3{05{}}"));
    for (int i = 0; i < levels; ++i) {
        text.keep("Body", text.make("B4{30{30{30{02{02}A4{30{}}A4{30{}}}$Body}}}"));
    }
    return text.make("30{30{02{02}A4{30{}}A4{30{}}}$Body}");
}

TEST(HostileInput, NestingIsLimited) {
    const asn1::Type& type = Schema<ASN1T_PKIMessage>::type;
    std::string deep = nestedMessages(20);
    Decoded good(type, deep);
    ASSERT_EQ(good.code, ASN_OK) << good.error();
    EXPECT_EQ(hexOf(encodeOrError(type, good.value)), hexOf(deep));
    std::string tooDeep = nestedMessages(22);
    Decoded bad(type, tooDeep);
    EXPECT_EQ(bad.code, ASN_E_DEPTH);
    EXPECT_GT(bad.buffer.getCtxtPtr()->errorOffset(), 20U);
    EXPECT_TRUE(bad.error().find("body.nested[0].body.nested[0]") != std::string::npos);

    // Nested by hand in place of input: encoder, copier and XER writer must stop as well.
    ASN1CtxtRef context;
    ASN1T_PKIMessage message;
    message.header.sender.t = message.header.recipient.t = ASN1T_GeneralName::T_rfc822Name;
    message.body.t = ASN1T_PKIBody::T_pkiconf;
    for (int i = 0; i < 1000; ++i) {
        auto* inner = asn1New<ASN1T_PKIMessages>(context.get());
        *inner->append(context.get()) = message;
        message.body.t = ASN1T_PKIBody::T_nested;
        message.body.u.nested = inner;
    }
    EXPECT_NE(encodeOrError(type, &message).find("nested too deeply"), std::string::npos);
    ASN1T_PKIMessage copy;
    EXPECT_EQ(asn1Copy(context.get(), message, copy), ASN_E_DEPTH);
    std::string xer;
    EXPECT_EQ(rtEncodeXer(context.get(), type, &message, xer), ASN_E_DEPTH);
}

/// An extension whose value holds an extension, and so on, by way of directory attributes.
TEST(HostileInput, WhatWasDecodedCanBeCopiedHoweverDeep) {
    const asn1::Type& type = Schema<ASN1T_Extensions>::type;
    DerText text;
    text.keep("Extensions", DerText::bytes("30{}"));
    int good = 0;
    for (int levels = 0; levels < 20; ++levels) {
        text.keep("Extensions",
                  text.make("30{30{06{551D09}04{30{30{06{2A864886F70D01090E}31{$Extensions}}}}}}"));
        std::string bytes = text.make("$Extensions");
        Decoded d(type, bytes);
        if (d.code != ASN_OK) break;
        ++good;
        ASN1T_Extensions copy;
        ASSERT_EQ(rtCopyValue(d.buffer.getCtxtPtr(), type, d.value, &copy), ASN_OK) << levels;
        EXPECT_EQ(hexOf(encodeOrError(type, &copy)), hexOf(bytes));
    }
    EXPECT_EQ(good, 12);
}

TEST(HostileInput, NestedStringsAndIndefiniteLengthsAreLimited) {
    std::string segments = DerText::bytes("04{01}"), open;
    for (int i = 0; i < 70; ++i) segments = "\x24" + DerText::withLength(segments);
    EXPECT_EQ(Decoded(Schema<ASN1T_SubjectKeyIdentifier>::type, segments).code, ASN_E_DEPTH);
    for (int i = 0; i < 100000; ++i) open += "\x30\x80";
    EXPECT_EQ(Decoded(Schema<ASN1T_AlgorithmIdentifier>::type, open).code, ASN_E_DEPTH);
    EXPECT_EQ(Decoded(Schema<ASN1T_AttributeValues>::type, "\x31" + DerText::withLength(open)).code,
              ASN_E_DEPTH);
}

TEST(HostileInput, MemoryIsABoundedMultipleOfTheInput) {
    const std::pair<const char*, const char*> cases[] = {
        {"GeneralNames", "82{}"},
        {"RDNSequence", "31{}"},
        {"CRLDistPointsSyntax", "30{}"},
        {"RevReqContent", "30{30{}}"},
        {"Controls", "30{06{2B0601050507050202}30{02{00}30{}}}"}};
    for (const auto& [type, text] : cases) {
        SCOPED_TRACE(type);
        std::string item = DerText::bytes(text), content;
        while (content.size() < 1000000) content += item;
        std::string bytes = "\x30" + DerText::withLength(content);
        Decoded d(typeNamed(type), bytes);
        EXPECT_EQ(d.code, ASN_E_NOMEM);
        EXPECT_LT(d.buffer.getCtxtPtr()->used(), 20 * bytes.size());
        // The limit is that of the decode alone.
        EXPECT_NE(d.buffer.getCtxtPtr()->alloc(100000000), nullptr);
    }
}

// ---- Revoked certificates -----------------------------------------------------------------------

const char* revokedText =
    "30{30{02{05}17{'250101000000Z'}}"
    "30{02{0080}18{'20500101000000Z'}30{30{06{551D15}04{0A{01}}}}}"
    "30{02{FF}17{'250102000000Z'}}}";

std::vector<std::string> serialsOf(const ASN1T_RevokedCertificates& list) {
    std::vector<std::string> out;
    ASN1CtxtRef context;
    ASN1T_RevokedCertificates::Reader reader(list);
    ASN1T_RevokedCertificate entry;
    while (reader.next(context.get(), entry)) out.emplace_back(entry.userCertificate);
    EXPECT_EQ(context->errorCode(), 0);
    return out;
}

TEST(RevokedCertificates, AreWalkedAndFoundWhereTheyLie) {
    Decoded d(Schema<ASN1T_RevokedCertificates>::type, DerText::bytes(revokedText));
    ASSERT_EQ(d.code, ASN_OK) << d.error();
    auto& list = *static_cast<ASN1T_RevokedCertificates*>(d.value);
    EXPECT_EQ(serialsOf(list), (std::vector<std::string>{"0x05", "0x080", "0xff"}));

    ASN1CTXT* ctxt = d.buffer.getCtxtPtr();
    auto* built = list.built.append(ctxt);
    built->userCertificate = "0x77";
    built->revocationDate.t = ASN1T_Time::T_utcTime;
    built->revocationDate.u.text = ASN1TString("250103000000Z");
    EXPECT_EQ(serialsOf(list), (std::vector<std::string>{"0x05", "0x080", "0xff", "0x77"}));

    ASN1T_RevokedCertificate found;
    const std::uint8_t serials[] = {0x00, 0x80, 0x77, 0x05, 0xFF};
    ASSERT_TRUE(list.find(ctxt, {2, serials}, found));
    ASSERT_TRUE(found.m.crlEntryExtensionsPresent);
    EXPECT_EQ(found.crlEntryExtensions.front().extnValue.as<ASN1T_CRLReason>()->value, 1);
    ASSERT_TRUE(list.find(ctxt, {1, serials + 2}, found));
    EXPECT_EQ(found.revocationDate.u.text.view(), "250103000000Z");
    EXPECT_TRUE(list.find(ctxt, {1, serials + 4}, found));
    EXPECT_FALSE(list.find(ctxt, {1, serials + 1}, found));
    EXPECT_FALSE(list.find(ctxt, {3, serials}, found));

    std::string both = encodeOrError(Schema<ASN1T_RevokedCertificates>::type, &list);
    Decoded again(Schema<ASN1T_RevokedCertificates>::type, both);
    ASSERT_EQ(again.code, ASN_OK);
    EXPECT_EQ(serialsOf(*static_cast<ASN1T_RevokedCertificates*>(again.value)).size(), 4U);
}

TEST(RevokedCertificates, AnEntryThatIsBrokenInsideEndsTheWalk) {
    Decoded d(Schema<ASN1T_RevokedCertificates>::type,
              DerText::bytes("30{30{02{05}17{'x'}}30{02{06}17{'x'}30{05{}}}30{02{07}17{'x'}}}"));
    ASSERT_EQ(d.code, ASN_OK) << d.error();
    ASN1T_RevokedCertificates::Reader reader(*static_cast<ASN1T_RevokedCertificates*>(d.value));
    ASN1T_RevokedCertificate entry;
    ASN1CtxtRef context;
    EXPECT_TRUE(reader.next(context.get(), entry));
    EXPECT_FALSE(reader.next(context.get(), entry));
    EXPECT_LT(context->errorCode(), 0);
    EXPECT_FALSE(reader.next(context.get(), entry));
    std::string xer;
    EXPECT_LT(rtEncodeXer(context.get(), Schema<ASN1T_RevokedCertificates>::type, d.value, xer), 0);
    EXPECT_EQ(xer, "");

    const auto& list = *static_cast<ASN1T_RevokedCertificates*>(d.value);
    const std::pair<std::uint8_t, int> results[] = {{5, 1}, {6, ASN_E_INVTAG}, {7, 1}, {8, 0}};
    for (const auto& [serial, result] : results) {
        EXPECT_EQ(list.find(context.get(), {1, &serial}, entry), result) << int{serial};
    }
}

}  // namespace
