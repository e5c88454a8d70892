#include "pkixcmp/Records.h"

#include <gmock/gmock.h>

#include <memory>

namespace {

const std::string emptyName("\x30\x00", 2);

std::string bytes(const CACMPT_BLOB& blob) { return std::string(blob.view()); }

CACMPT_BLOB blob(std::string_view text) { return CACMPT_BLOB(text.data(), text.size()); }

void fillHead(PKIXCMP_Message& head) {
    std::wcscpy(head.SenderGeneralName, L"dn:CN=a");
    std::wcscpy(head.RecipientGeneralName, L"dn:CN=b");
    head.SubmittedWhen = CACMPT_Date::Now();
    head.GeneralInfo.insert({"1.2.3", blob("x")});
    head.ExtraCerts.push_back(blob("c"));
    head.sender_nonce = head.transactionID = head.sender_kid = blob("n");
    head.FreeText.emplace_back(L"kept", Encoding::DEFAULT_WRITE);
}

TEST(Records, ClearEmptiesTheRequestAndKeepsWhatAnAnswerNeeds) {
    auto request = std::make_unique<RequestInfo>();
    fillHead(*request);
    request->RequestID = request->RequestType = request->Status = 7;
    request->RawRequest = request->RequestSignature = request->RawOldCertificate = blob("raw");
    request->Subject.assign(L"CN=a");
    request->NewSubject.assign(L"CN=b");
    std::strcpy(request->SubjectPublicKey.algorithm, "1.2");
    request->SubjectPublicKey.key = blob("k");
    request->Extensions.emplace_back();
    std::strcpy(request->RequestSignatureAlgorithm, "1.2");
    std::strcpy(request->OldCertificateSerialNumber, "0x01");
    std::strcpy(request->SerialNumber, "0x02");
    request->ResolvedWhen = request->RevokedWhen = request->RevokedEffectiveWhen =
        CACMPT_Date::Now();
    request->RevokedReason = 3;
    request->ChangeNameTextOld.emplace_back(L"old", "en");
    request->RejectStatus = PKI_STATUS_REJECTION;
    request->RejectText.emplace_back(L"no", "en");
    request->RejectFailureInfo = FailureInfo::badPOP;
    const std::string newSubject = bytes(request->NewSubject);

    request->clear();

    const CACMPT_Date zero(0, 0);
    EXPECT_EQ(request->SenderGeneralName[0], L'\0');
    EXPECT_EQ(request->RecipientGeneralName[0], L'\0');
    EXPECT_EQ(request->SubmittedWhen, zero);
    EXPECT_TRUE(request->GeneralInfo.empty());
    EXPECT_TRUE(request->ExtraCerts.empty());
    for (const CACMPT_BLOB* field :
         {&request->sender_nonce, &request->transactionID, &request->sender_kid,
          &request->RawRequest, &request->RequestSignature, &request->RawOldCertificate,
          &request->SubjectPublicKey.key}) {
        EXPECT_EQ(field->size, 0u);
    }
    EXPECT_GT(request->sender_nonce.capacity, 0u);  // the buffers stay
    EXPECT_EQ(bytes(request->Subject), emptyName);
    EXPECT_TRUE(request->Extensions.empty());
    for (const char* field :
         {request->SubjectPublicKey.algorithm, request->SerialNumber,
          request->RequestSignatureAlgorithm, request->OldCertificateSerialNumber}) {
        EXPECT_STREQ(field, "");
    }
    EXPECT_EQ(request->RequestID | request->RequestType | request->Status, 0);
    EXPECT_EQ(request->RevokedReason, 0u);
    for (const CACMPT_Date& date :
         {request->ResolvedWhen, request->RevokedWhen, request->RevokedEffectiveWhen}) {
        EXPECT_EQ(date, zero);
    }

    EXPECT_EQ(request->FreeText.size(), 1u);
    EXPECT_EQ(bytes(request->NewSubject), newSubject);
    EXPECT_EQ(request->ChangeNameTextOld.size(), 1u);
    EXPECT_EQ(request->RejectStatus, PKI_STATUS_REJECTION);
    EXPECT_EQ(request->RejectText.size(), 1u);
    EXPECT_EQ(request->RejectFailureInfo, FailureInfo::badPOP);
}

TEST(Records, FreeTextIsFoundByLanguage) {
    FreeText text;
    EXPECT_EQ(text.find(Encoding::DEFAULT_READ), text.end());
    text.emplace_back(L"one", "en");
    text.emplace_back(L"two", "ru-ru");
    text.emplace_back(L"three", "ru-ru");
    EXPECT_EQ(text.find(Encoding::DEFAULT_READ)->text, L"one");
    EXPECT_EQ(text.find(Encoding::DEFAULT_WRITE)->text, L"two");
    EXPECT_EQ(text.find("RU-RU")->text, L"two");
    EXPECT_EQ(text.find("fr"), text.end());
    EXPECT_EQ(std::as_const(text).find("en"), text.begin());
}

TEST(Records, InsertKeepsIdentifiersUnique) {
    CACMPT_GeneralInfo info;
    info.insert({"1.2.3", blob("a")});
    info.insert({"1.2.4", blob("b")});
    info.insert({"1.2.3", blob("c")});
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info.front().oid, "1.2.3");
    EXPECT_EQ(bytes(info.front().value), "c");
}

TEST(Records, BitNamesReadBack) {
    const std::pair<std::uint32_t, const char*> failures[] = {
        {0, ""},
        {FailureInfo::badAlg, "badAlg"},
        {FailureInfo::systemFailure | FailureInfo::badPOP, "badPOP|systemFailure"},
        {0x400 | FailureInfo::timeNotAvailable, "timeNotAvailable|0x400"}};
    for (const auto& [bits, text] : failures) {
        EXPECT_EQ(FailureInfo(bits).toString(), text);
        EXPECT_EQ(FailureInfo().fromString(text), bits) << text;
    }
    ReasonFlags reasons;
    EXPECT_EQ(reasons.fromString(nullptr), 0u);
    EXPECT_EQ(reasons.fromString(" certificateHold | caCompromise\n"), 0x44u);
    EXPECT_EQ(reasons.toString(), "caCompromise|certificateHold");
}

TEST(Records, EventTypesByNameOrNumber) {
    const std::pair<const char*, unsigned int> cases[] = {
        {"Unspecified", 0}, {"StopSession", 13}, {"StartSessionNewPin", 14}, {"0x20", 32},
        {"010", 8},         {"77", 77},          {"stopsession", 0},         {"", 0}};
    for (const auto& [text, type] : cases) {
        EXPECT_EQ(GeneralEventType_fromString(text), type) << text;
    }
}

}  // namespace
