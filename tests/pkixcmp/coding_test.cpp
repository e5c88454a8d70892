#include <ctime>

#include "capilite/Strings.h"
#include "tests/pkixcmp/Enrolment.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(GeneralNameText, TakesThreeForms) {
    const struct {
        const wchar_t* text;
        int tag;
        const char* value;
    } cases[] = {
        {L"rfc:a@b.c", 2, "a@b.c"}, {L"dns: \t host", 3, "host"},       {L"dns:", 3, ""},
        {L"dns:   ", 3, ""},        {L"rfc:\x0434@b", 2, "\xD0\xB4@b"}, {L"dns:a:b", 3, "a:b"},
    };
    ASN1BEREncodeBuffer buffer;
    ASN1T_GeneralName name;
    for (const auto& c : cases) {
        EXPECT_EQ(str2general(c.text, name, buffer), 0) << tostring(c.text);
        EXPECT_EQ(name.t, c.tag);
        EXPECT_EQ(name.u.dNSName.view(), c.value);
    }
    for (const wchar_t* refused :
         {L"DNS:host", L"Dn:CN=a", L" dn:CN=a", L"uri:http://a", L"x:dns:a", L"dns", L":", L""}) {
        EXPECT_EQ(str2general(refused, name, buffer), 1) << tostring(refused);
    }
    EXPECT_EQ(str2general(nullptr, name, buffer), 1);
}

TEST(GeneralNameText, DirectoryNamesOutliveTheirDecoding) {
    ASN1BEREncodeBuffer buffer;
    ASN1T_GeneralName name;
    ASSERT_EQ(str2general(L"dn: CN=\x0410\x043D\x043D\x0430, O=Trial", name, buffer), 0);
    CACMPT_PARSED_RDN der;
    GeneralizedNameParse(name, der);
    EXPECT_EQ(der.tostring(3), L"CN=\x0410\x043D\x043D\x0430, O=Trial");
    ASN1T_GeneralName empty;
    ASSERT_EQ(str2general(L"dn:", empty, buffer), 0);
    GeneralizedNameParse(empty, der);
    EXPECT_EQ(hexOf(der), "3000");
    EXPECT_THROW(str2general(L"dn:nothing", name, buffer), CAException);
}

// A whole message around a header: encoded by us, given to the caller as bytes.
CACMPT_BLOB encoded(const PKIXCMP_Message& record) {
    ASN1BEREncodeBuffer buffer;
    CACMPT_ASN1BERDecodeBuffer items;
    ASN1T_PKIMessage message;
    message.body.t = ASN1T_PKIBody::T_pkiconf;
    ASN1CMPMessage_Encode(record, message, buffer, items);
    return asn1EncodeRecord(message);
}

PKIXCMP_Message addressed() {
    PKIXCMP_Message record;
    std::wcscpy(record.SenderGeneralName, L"dn:CN=Alice");
    std::wcscpy(record.RecipientGeneralName, L"dn:CN=Trial Root");
    return record;
}

class MessageHeader : public EnrolmentTest {};

TEST_F(MessageHeader, EmptyRecordGivesVersionAndTimeAlone) {
    const CACMPT_BLOB der = encoded(addressed());
    Decoded<ASN1T_PKIMessage> message(der);
    const auto& m = message->header.m;
    EXPECT_EQ(message->header.pvno, 0);
    EXPECT_TRUE(m.messageTimePresent);
    EXPECT_FALSE(m.transactionIDPresent || m.senderNoncePresent || m.senderKIDPresent ||
                 m.recipKIDPresent || m.recipNoncePresent || m.freeTextPresent ||
                 m.generalInfoPresent || m.protectionAlgPresent);
    EXPECT_THAT(openssl("asn1parse -inform DER -in " + file("m.der", der)),
                AllOf(HasSubstr("INTEGER           :00"), HasSubstr(":Trial Root"),
                      HasSubstr("GENERALIZEDTIME   :20"), Not(HasSubstr("OCTET STRING"))));
}

TEST_F(MessageHeader, FieldsComeBackAsTheyWereSent) {
    PKIXCMP_Message sent = addressed();
    sent.transactionID.assign("\0\1\2", 3);
    sent.sender_nonce.assign("n");
    sent.sender_kid.assign("a key identifier");
    sent.FreeText.emplace_back(L"\x043F\x0440\x0438\x0432\x0435\x0442", Encoding::DEFAULT_WRITE);
    sent.FreeText.emplace_back(L"any", Encoding::DEFAULT_READ);
    sent.FreeText.emplace_back(std::wstring(L"cut\0here", 8), "en");
    sent.GeneralInfo.insert({"1.2.3.4", CACMPT_BLOB("\x05\x00", 2)});
    sent.GeneralInfo.insert({"1.3.6.1.5.5.7.4.13", CACMPT_BLOB()});
    sent.GeneralInfo.push_back({"1.2.3.4", CACMPT_BLOB("\x02\x01\x07", 3)});
    const std::time_t before = std::time(nullptr);  // the clock that messages are stamped by

    Decoded<ASN1T_PKIMessage> message(encoded(sent));
    const PKIXCMP_Message got = headOf(message.value);

    EXPECT_STREQ(got.SenderGeneralName, L"CN=Alice");
    EXPECT_STREQ(got.RecipientGeneralName, L"CN=Trial Root");
    EXPECT_LE(before, got.SubmittedWhen.getTime());
    EXPECT_GE(std::time(nullptr), got.SubmittedWhen.getTime());
    EXPECT_EQ(got.transactionID, sent.transactionID);
    EXPECT_EQ(got.sender_nonce, sent.sender_nonce);
    EXPECT_EQ(got.sender_kid, sent.sender_kid);
    std::vector<std::pair<std::wstring, std::string>> texts;
    for (const auto& item : got.FreeText) texts.emplace_back(item.text, item.language.value);
    EXPECT_THAT(texts,
                testing::ElementsAre(std::pair(L"\x043F\x0440\x0438\x0432\x0435\x0442", "ru-ru"),
                                     std::pair(L"any", "*"), std::pair(L"cut", "en")));
    std::vector<std::string> items;
    for (const auto& item : got.GeneralInfo) {
        items.push_back(item.oid + " " + hexOf(item.value));
    }
    EXPECT_THAT(items,
                testing::ElementsAre("1.2.3.4 0500", "1.3.6.1.5.5.7.4.13 ", "1.2.3.4 020107"));
}

TEST_F(MessageHeader, ParsingReplacesAllButFreeText) {
    PKIXCMP_Message sent = addressed();
    sent.FreeText.emplace_back(L"one", "en");
    Decoded<ASN1T_PKIMessage> message(encoded(sent));
    message->header.m.messageTimePresent = false;
    PKIXCMP_Message record = addressed();
    record.sender_nonce.assign("stale");
    record.GeneralInfo.insert({"1.2.3", CACMPT_BLOB()});
    record.FreeText.emplace_back(L"zero", "en");
    record.SubmittedWhen = CACMPT_Date::Now();
    ASN1CMPMessage_Parse(message.value, record);
    EXPECT_EQ(record.sender_nonce.size, 0u);
    EXPECT_TRUE(record.GeneralInfo.empty());
    EXPECT_EQ(record.FreeText.size(), 2u);
    EXPECT_EQ(record.SubmittedWhen, CACMPT_Date(0, 0));
}

TEST_F(MessageHeader, RecordsThatCannotBeSentAreRefused) {
    const auto refused = [](auto change) {
        PKIXCMP_Message record = addressed();
        change(record);
        return failure([&] { encoded(record); });
    };
    EXPECT_EQ(refused([](auto& m) { std::wcscpy(m.RecipientGeneralName, L"CN=x"); }),
              "Asn1DecodeException invalid RecipientGeneralName");
    EXPECT_EQ(refused([](auto& m) { std::wcscpy(m.SenderGeneralName, L"ip:1"); }),
              "Asn1DecodeException invalid SenderGeneralName");
    for (const char* oid : {"", "1", "1.x", "3.1"}) {
        EXPECT_EQ(refused([&](auto& m) {
                      m.GeneralInfo.push_back({oid, CACMPT_BLOB()});
                  }),
                  "Asn1DecodeException Invalid oid");
    }
    EXPECT_EQ(refused([](auto& m) { m.FreeText.emplace_back(L"x", "\xE9"); }),
              "Asn1EncodeException invalid ASN1T_PKIFreeText");
    EXPECT_EQ(refused([](auto& m) { m.FreeText.emplace_back(L"\xD800", "en"); }),
              "Asn1EncodeException invalid ASN1T_PKIFreeText");
    // The value of a known item must be one.
    EXPECT_THAT(refused([](auto& m) {
                    m.GeneralInfo.push_back({"1.2.643.2.2.41.1", CACMPT_BLOB("\x05\x00", 2)});
                }),
                testing::StartsWith("Asn1Exception "));
}

TEST_F(MessageHeader, MessagesThatCannotBeReadAreRefused) {
    const std::string longest(4095, 'x');
    std::string longestWide;  // of two octets a character
    for (int i = 0; i < 4095; ++i) longestWide += "\xD0\xB4";
    const struct {
        std::string text;
        const char* failure;
        const wchar_t* begin;
        std::size_t length;
        const char* language;
    } cases[] = {
        {longest, "none", L"x", 4095, "*"},
        {longestWide, "none", L"\x0434", 4095, "*"},
        {longest + "x", "Asn1DecodeException Free text too long", L"", 0, ""},
        {std::string("before\0behind", 13), "none", L"before", 6, "*"},
        {std::string(1, '\0'), "none", L"", 0, "*"},
        {"\xFF", "Asn1DecodeException Free text too long", L"", 0, ""},
        {"\xE0\xB8\x81\xE0\xB9\x92\xE0\xB9\x95\xE0\xB9\xBEtext", "none", L"text", 4, "ru"},
        {"\xE0\xB8\x81\xE0\xB9\xBEtext", "none", L"text", 4, ""},
        {"\xE0\xB8\x81\xE0\xB9\x92text", "CAException Invalid Encoding format", L"", 0, ""},
        {"\xE0\xB8\x81", "CAException Invalid Encoding format", L"", 0, ""},
    };
    const CACMPT_BLOB der = encoded(addressed());
    for (const auto& c : cases) {
        Decoded<ASN1T_PKIMessage> message(der);
        message->header.m.freeTextPresent = true;
        *message->header.freeText.append(message.ctxt()) = ASN1TString(std::string_view(c.text));
        PKIXCMP_Message record;
        EXPECT_FAILURE(ASN1CMPMessage_Parse(message.value, record), c.failure);
        if (std::string_view(c.failure) != "none") continue;
        ASSERT_EQ(record.FreeText.size(), 1u);
        const FreeTextItem& item = record.FreeText.front();
        EXPECT_EQ(item.text.size(), c.length);
        EXPECT_TRUE(item.text.starts_with(c.begin));
        EXPECT_EQ(item.language.value, c.language);
    }
}

TEST_F(MessageHeader, PeersOfOtherNamesAreRefused) {
    Decoded<ASN1T_PKIMessage> message(encoded(addressed()));
    message->header.sender.t = ASN1T_GeneralName::T_rfc822Name;
    message->header.sender.u.rfc822Name = ASN1TString(std::string_view("a@b"));
    EXPECT_FAILURE(headOf(message.value), "Asn1DecodeException Unsupported GeneralName.t");
}

TEST_F(MessageHeader, IdentifiersAreReadUpToTheirRoom) {
    PKIXCMP_Message record = addressed();
    record.GeneralInfo.push_back({"1.2.3", {}});
    Decoded<ASN1T_PKIMessage> message(encoded(record));
    std::string octets("\x2A\x90\x80\x80\x80\x80\x00", 7);  // one arc of 40 bits
    octets.append(54, '\1');
    const auto read = [&] {
        message->header.generalInfo.front().infoType =
            ASN1TObjId(static_cast<std::uint32_t>(octets.size()),
                       reinterpret_cast<const std::uint8_t*>(octets.data()));
        return headOf(message.value).GeneralInfo;
    };
    record.GeneralInfo = read();
    const std::string longest = record.GeneralInfo.front().oid;
    EXPECT_EQ(longest.size(), 124u);
    EXPECT_TRUE(longest.starts_with("1.2.549755813888.1.1"));
    Decoded<ASN1T_PKIMessage> again(encoded(record));
    EXPECT_EQ(headOf(again.value).GeneralInfo.front().oid, longest);
    octets.append(2, '\1');
    EXPECT_EQ(failure(read), "Asn1DecodeException oid too long");
}

// Each item takes a buffer of its own: a megabyte of small ones would take half a gigabyte.
TEST_F(MessageHeader, ItemsAreReadUpToTheirBound) {
    const CACMPT_BLOB der = encoded(addressed());
    for (const int count : {1024, 1025}) {
        Decoded<ASN1T_PKIMessage> message(der);
        message->header.m.generalInfoPresent = true;
        for (int i = 0; i < count; ++i) {
            message->header.generalInfo.append(message.ctxt())->infoType = id_it_implicitConfirm;
        }
        EXPECT_EQ(failure([&] { headOf(message.value); }),
                  count == 1024 ? "none" : "Asn1DecodeException too many items of generalInfo");
    }
}

TEST_F(MessageHeader, ALongNameIsCutToTheRecord) {
    Decoded<ASN1T_PKIMessage> message(encoded(addressed()));
    std::wstring text;
    for (int i = 0; i < 300; ++i) text += L"OU=" + std::wstring(60, L'x') + L", ";
    CACMPT_PARSED_RDN name;
    name.assign(text + L"CN=end");
    name.parse(message.buffer, *message->header.sender.u.directoryName);
    const PKIXCMP_Message record = headOf(message.value);
    EXPECT_EQ(std::wcslen(record.SenderGeneralName), 8191u);
    EXPECT_TRUE(text.starts_with(record.SenderGeneralName));
    EXPECT_STREQ(record.RecipientGeneralName, L"CN=Trial Root");
}

TEST(GeneralInfo, CarriesOneAuditRecord) {
    CACMPT_GeneralInfo info;
    GeneralAudit audit{1, 2, 3, true};
    EXPECT_FALSE(info.get_audit(audit));
    EXPECT_EQ(audit.session, 2u);
    info.set_audit(audit);
    EXPECT_EQ(hexOf(info.front().value), "300C0201010201020201030101FF");
    info.set_audit({0xFFFFFFFF, 0, 0x80000000, false});
    ASSERT_EQ(info.size(), 1u);
    EXPECT_EQ(info.front().oid, "1.2.643.2.2.41.1");
    EXPECT_EQ(hexOf(info.front().value), "3014020500FFFFFFFF02010002050080000000010100");
    ASSERT_TRUE(info.get_audit(audit));
    EXPECT_EQ(audit.type, 0xFFFFFFFFu);
    EXPECT_EQ(audit.event_counter, 0x80000000u);
    EXPECT_FALSE(audit.success);
    for (const char* bad :
         {"", "3000", "300C02010102010202010301", "30100206010000000000020102020103010100"}) {
        info.front().value = fromHex(bad);
        EXPECT_ASN1_FAILURE(info.get_audit(audit)) << bad;
    }
}

TEST(StatusBits, StandAtTheirTablePositions) {
    const std::pair<std::uint32_t, const char*> cases[] = {
        {FailureInfo::badAlg, "8000"},
        {FailureInfo::badPOP, "0040"},
        {FailureInfo::timeNotAvailable, "0020"},
        {FailureInfo::systemFailure, "0002"},
        {FailureInfo::badRequest | FailureInfo::systemFailure, "2002"}};
    ASN1CtxtRef context;
    ASN1TDynBitStr bits;
    for (const auto& [set, hex] : cases) {
        ASSERT_TRUE(FailureInfo_Encode(context.get(), bits, set | 0x400));
        EXPECT_EQ(bits.numbits, 15u);
        EXPECT_EQ(hexOf(CACMPT_BLOB(bits.data, 2)), hex);
        EXPECT_EQ(FailureInfo_Parse(bits), set);
    }
    EXPECT_FALSE(FailureInfo_Encode(context.get(), bits, 0x400));
    const std::uint8_t all[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(FailureInfo_Parse(ASN1TDynBitStr(32, all)), 0x203C3FFu);
    EXPECT_EQ(FailureInfo_Parse(ASN1TDynBitStr(3, all)), 7u);
    EXPECT_EQ(FailureInfo_Parse(ASN1TDynBitStr()), 0u);
    ASSERT_TRUE(ReasonFlags_Encode(context.get(), bits, ReasonFlags::certificateHold));
    EXPECT_EQ(bits.numbits, 7u);
    EXPECT_EQ(bits.data[0], 0x02);
    EXPECT_EQ(ReasonFlags_Parse(ASN1TDynBitStr(32, all)), 0x7Fu);
}

}  // namespace
