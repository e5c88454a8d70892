#include <gmock/gmock.h>

#include "capilite/CAException.h"
#include "platform/support/LastError.h"
#include "platform/support/Text.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Failure, TextFramesMessageFileAndLine) {
    EXPECT_STREQ(CAException("x", "a/b", 7).what(), "Exception :'x' at file:'a/b' line:7");
    EXPECT_STREQ(CAException("", "a/b", 0).what(), "Exception :'' at file:'a/b' line:0");
    EXPECT_STREQ(CAException("it's", "", -12).what(), "Exception :'it's' at file:'' line:-12");
}

TEST(Failure, FamilyIsCaughtByItsBases) {
    EXPECT_THROW(throw Asn1DecodeException("m", "f", 1), Asn1Exception);
    EXPECT_THROW(throw Asn1EncodeException("m", "f", 1), Asn1Exception);
    EXPECT_THROW(throw CryptException(5, "f", 1), CAException);
    EXPECT_THROW(throw StoreException(5, L"My", "f", 1), CAException);
    EXPECT_THROW(throw CAValidateException("m", "f", 1), CAException);
    EXPECT_THROW(throw date_exception("m", "f", 1), std::runtime_error);
}

TEST(Failure, SourcePathHasNoPrefixAndNoExtension) {
    try {
        PKIXCMP_THROW(CAException, "x");
    } catch (const CAException& e) {
        EXPECT_EQ(e.file, "tests/capilite/failure_test");
        EXPECT_EQ(e.line, __LINE__ - 3);
    }
}

TEST(Failure, SystemTextStandsBehindAKnownCode) {
    CryptException known(ERROR_ACCESS_DENIED, "f", 1);
    EXPECT_EQ(known.code, ERROR_ACCESS_DENIED);
    EXPECT_THAT(utf8FromWindows1251(known.what()),
                StartsWith("Exception :'Ошибка 0x5: Access is denied."));
    CryptException unknown(0x80092002, "f", 1);
    EXPECT_EQ(unknown.code, 0x80092002);
    EXPECT_EQ(utf8FromWindows1251(unknown.what()),
              "Exception :'Ошибка 0x80092002.' at file:'f' line:1");
}

TEST(Failure, StoreNameIsWrittenInWindows1251) {
    StoreException known(ERROR_ACCESS_DENIED, L"Мои", "f", 1);
    EXPECT_THAT(
        utf8FromWindows1251(known.what()),
        StartsWith("Exception :'Ошибка 0x5 при работе с хранилищем 'Мои': Access is denied."));
    EXPECT_THAT(std::string(known.what()), HasSubstr("'\xCC\xEE\xE8'"));
    StoreException unknown(0xABCDEF01, nullptr, "f", 1);
    EXPECT_EQ(utf8FromWindows1251(unknown.what()),
              "Exception :'Ошибка 0xabcdef01 при работе с хранилищем ''.' at file:'f' line:1");
}

TEST(Failure, TextIsCutToItsBuffer) {
    for (std::size_t length : {400, 469, 470, 471, 472, 473, 600, 5000}) {
        StoreException e(ERROR_ACCESS_DENIED, std::wstring(length, L'x').c_str(), "f", 1);
        std::string what = e.what();
        EXPECT_THAT(what, EndsWith("' at file:'f' line:1")) << length;
        std::size_t message = what.size() - std::string("Exception :'' at file:'f' line:1").size();
        EXPECT_LT(message, 512u) << length;
        EXPECT_GT(message, length < 473 ? 440u : 510u) << length;
    }
}

}  // namespace
