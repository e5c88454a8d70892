#include "capilite/Base64.h"

#include <gmock/gmock.h>

#include <cstring>
#include <optional>

#include "capilite/Blob.h"
#include "platform/support/LastError.h"
#include "tests/PublicTool.h"
#include "tests/capilite/Failure.h"

namespace {

constexpr std::uint32_t BAD_ARGUMENTS = 0xA0, MORE_DATA = 0xEA, AT_DASH = 0x26,
                        BAD_TEXT = 0x80092002;

const unsigned char* bytes(const std::string& s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}

std::string sample(std::size_t n) {
    std::string s;
    for (std::size_t i = 0; i < n; ++i) s += static_cast<char>(i * 151 + n);
    return s;
}

std::string encode(const std::string& in) {
    unsigned int length = 0;
    EXPECT_TRUE(base64_encode(bytes(in), static_cast<unsigned>(in.size()), nullptr, &length));
    std::string out(length, '?');
    EXPECT_TRUE(base64_encode(bytes(in), static_cast<unsigned>(in.size()), out.data(), &length));
    EXPECT_EQ(length, out.size());
    return out;
}

struct Decoded {
    int result;
    std::uint32_t error;
    unsigned int length;
    std::string bytes;
};

Decoded decode(const std::string& text) {
    std::string out(10000, '?');
    Decoded d{0, 0, 10000, {}};
    SetLastError(0x1234);
    d.result = base64_decode(text.data(), static_cast<unsigned>(text.size()),
                             reinterpret_cast<unsigned char*>(out.data()), &d.length);
    d.error = GetLastError();
    d.bytes = out.substr(0, d.length);
    return d;
}

TEST(Base64, EveryLengthIsWhatPublicToolsWrite) {
    for (std::size_t n = 1; n <= 200; ++n) {
        const std::string in = sample(n);
        const std::string text = encode(in);
        EXPECT_EQ(text.size(), n / 48 * 65 + (n % 48 ? 1 + (n % 48 + 2) / 3 * 4 : 0)) << n;
        if (n % 16 < 3 || n % 48 > 44) {
            ASSERT_EQ(text, runTool("base64 -w 64", in)) << n;
            ASSERT_EQ(runTool("openssl base64 -d", text), in) << n;
        }
        Decoded d = decode(text);
        ASSERT_TRUE(d.result && d.error == 0) << n;
        ASSERT_EQ(d.bytes, in) << n;
    }
    EXPECT_EQ(encode(std::string()), "");
}

TEST(Base64, EveryLengthComesBackFromArmour) {
    for (std::size_t n = 1; n <= 200; ++n) {
        CACMPT_BLOB in(sample(n).data(), n);
        CACMPT_BLOB text = in.toBase64Hdr(CACMPT_BLOB::Base64CertificateHeader,
                                          CACMPT_BLOB::Base64CertificateFooter);
        ASSERT_TRUE(text.view().starts_with("-----BEGIN CERTIFICATE-----\n"));
        ASSERT_TRUE(text.view().ends_with("\n-----END CERTIFICATE-----\n"));
        // Whatever lines are named.
        ASSERT_EQ(text.fromBase64Hdr(CACMPT_BLOB::Base64CRLHeader, "").view(), in.view()) << n;
        ASSERT_EQ(in.toBase64().fromBase64().view(), in.view()) << n;
    }
}

TEST(Base64, ArmourOfPublicToolsIsRead) {
    const std::string pem =
        runTool("openssl crl -in " PKIXCMP_TEST_DATA "/stores/plain.crl -inform DER", "");
    CACMPT_BLOB text(pem.data(), pem.size()), expected;
    expected.readFromFile(PKIXCMP_TEST_DATA "/stores/plain.crl");
    EXPECT_TRUE(text.fromBase64Hdr("", "") == expected);
    CACMPT_BLOB ours =
        expected.toBase64Hdr(CACMPT_BLOB::Base64CRLHeader, CACMPT_BLOB::Base64CRLFooter);
    EXPECT_EQ(runTool("openssl crl -outform DER", ours.view()), expected.view());
}

TEST(Base64, Texts) {
    struct {
        const char* text;
        int result;
        std::uint32_t error;
        std::string bytes;
    } const cases[] = {
        {"QUJD", 1, 0, "ABC"},
        {"QUI=", 1, 0, "AB"},
        {"QQ==", 1, 0, "A"},
        {"Q U\tJ\nD\r", 1, 0, "ABC"},
        {"QUJDQU", 1, 0, ""},  // no group of four at the end, no padding
        {"QUJ!", 0, BAD_TEXT, ""},
        {"QU!", 1, 0, ""},  // dropped with the last characters
        {"QU!=", 0, BAD_TEXT, ""},
        {"QU=", 0, BAD_TEXT, ""},  // padding makes the end count
        {"QUJD-ignored!", 1, AT_DASH, "ABC"},
        {"QUI-", 0, BAD_TEXT, ""},
        {"-", 1, AT_DASH, ""},
        {"\xd1\xd5\xca\xc4", 1, 0, "ABC"},            // the top bit is folded away
        {"QUI=QUI=", 1, 0, std::string("AB\0A", 4)},  // padding counts in the whole text
        {"====", 1, 0, ""},                           // never below zero
        {"========", 1, 0, ""},
        {"QUJD\n", 1, 0, "ABC"},
        {" \n", 1, 0, ""},
    };
    for (const auto& c : cases) {
        Decoded d = decode(c.text);
        EXPECT_EQ(d.result, c.result) << c.text;
        EXPECT_EQ(d.error, c.error) << c.text;
        EXPECT_EQ(d.bytes, c.bytes) << c.text;
    }
}

// The decoder's last line is exactly full when 46 or 47 bytes stand in it.
TEST(Base64, FullLastLineWithPaddingBeforeAFooter) {
    for (std::size_t n : {46, 47, 48, 94, 95}) {
        const std::string in = sample(n);
        EXPECT_EQ(decode(encode(in) + "-----END").bytes, in) << n;
    }
}

/// Every output below the needed size is refused, told that size, and not overrun.
template <class Convert>
void expectToNeed(std::size_t needed, Convert convert) {
    for (unsigned int capacity = 0; capacity <= needed; ++capacity) {
        std::string out(capacity + 1, '?');
        unsigned int length = capacity;
        EXPECT_EQ(convert(out.data(), &length), capacity == needed) << capacity;
        EXPECT_EQ(GetLastError(), capacity == needed ? 0 : MORE_DATA) << capacity;
        EXPECT_EQ(length, needed) << capacity;
        EXPECT_EQ(out[capacity], '?') << capacity;
    }
}

TEST(Base64, OutputsThatAreTooSmall) {
    const Base64HeaderPair pair = {sizeof pair, "HEAD", "FOOT"};
    for (unsigned int n : {1, 48, 100}) {
        const std::string in = sample(n), text = encode(in);
        expectToNeed(n, [&](char* out, unsigned int* length) {
            return base64_decode(text.data(), static_cast<unsigned>(text.size()),
                                 reinterpret_cast<unsigned char*>(out), length);
        });
        expectToNeed(text.size(), [&](char* out, unsigned int* length) {
            return base64_encode(bytes(in), n, out, length);
        });
        expectToNeed(5 + text.size() + 5, [&](char* out, unsigned int* length) {
            return base64hdr_encode(&pair, bytes(in), n, out, length);
        });
    }
}

TEST(Base64, BadArguments) {
    unsigned int n = 9;
    unsigned char byte = 0;
    char text[200];
    const Base64HeaderPair good = {sizeof good, "h", "f"}, wrongSize = {1, "h", "f"},
                           noHeader = {sizeof good, nullptr, "f"},
                           noFooter = {sizeof good, "h", nullptr};
    const char* body = nullptr;
    auto refused = [](int result, std::uint32_t error) {
        return !result && GetLastError() == error;
    };
    EXPECT_TRUE(refused(base64_encode(nullptr, 0, text, &n), BAD_ARGUMENTS));
    EXPECT_TRUE(refused(base64_encode(&byte, 1, text, nullptr), BAD_ARGUMENTS));
    EXPECT_TRUE(refused(base64_encode(&byte, 0xFFFFFFF0, nullptr, &n), BAD_ARGUMENTS));
    EXPECT_TRUE(refused(base64_decode(nullptr, 0, &byte, &n), BAD_ARGUMENTS));
    EXPECT_TRUE(refused(base64_decode("QUJD", 4, &byte, nullptr), BAD_ARGUMENTS));
    for (const Base64HeaderPair* pair : {&wrongSize, &noHeader, &noFooter}) {
        EXPECT_TRUE(refused(base64hdr_encode(pair, &byte, 1, text, &n), BAD_ARGUMENTS));
    }
    EXPECT_TRUE(refused(base64hdr_encode(nullptr, &byte, 1, text, &n), BAD_ARGUMENTS));
    EXPECT_TRUE(refused(base64hdr_encode(&good, nullptr, 1, text, &n), BAD_ARGUMENTS));
    EXPECT_TRUE(refused(base64hdr_encode(&good, &byte, 1, text, nullptr), BAD_ARGUMENTS));
    n = 9;
    EXPECT_TRUE(refused(base64hdr_decode("x", 0, &byte, &n), BAD_TEXT));
    EXPECT_EQ(n, 0u);
    EXPECT_TRUE(refused(base64hdr_decode(nullptr, 4, &byte, &n), BAD_TEXT));
    EXPECT_FALSE(skip_base64_header(nullptr, 7, &body, &n));
    EXPECT_EQ(n, 7u);
}

TEST(Base64, SkippingArmour) {
    struct {
        const char* text;
        std::optional<std::string_view> body;
    } const cases[] = {
        {"-----BEGIN X-----\nQUJD\n-----END X-----", "QUJD\n-----END X-----"},
        {" \r\n\tQUJD", "QUJD"},
        {"QUJD", "QUJD"},
        {"--- BEGIN\tX --- \n QUJD", "QUJD"},
        {"-a-QUJD", "QUJD"},
        {"-a-b-QUJD", "b-QUJD"},  // a dash within the words closes them
        {"-----", std::nullopt},  // the walk ends with the text
        {"-----BEGIN X-----\n", std::nullopt},
        {"-----BEGIN X", std::nullopt},
        {" \n ", std::nullopt},
    };
    for (const auto& c : cases) {
        const char* body = nullptr;
        unsigned int length = 0;
        auto size = static_cast<unsigned>(std::strlen(c.text));
        bool found = skip_base64_header(c.text, size, &body, &length) != 0;
        EXPECT_EQ(found, c.body.has_value()) << c.text;
        EXPECT_EQ(length, found ? c.body->size() : size) << c.text;
        if (!found) continue;
        EXPECT_EQ(std::string_view(body, length), *c.body);
    }
}

TEST(Base64, BlobsTellFailuresByName) {
    CACMPT_BLOB empty, bad("QU!D", 4), dashes("---", 3);
    EXPECT_FAILURE(empty.toBase64(), "CAException base64_encode failed");
    EXPECT_FAILURE(bad.toBase64Hdr(nullptr, "f"), "CAException base64_encode failed");
    EXPECT_FAILURE(bad.fromBase64(), "CAException invalid base 64 format");
    EXPECT_FAILURE(dashes.fromBase64Hdr("", ""), "CAException invalid base 64 format");
    EXPECT_EQ(CACMPT_BLOB("QUJDQU", 6).fromBase64().capacity, 0u);
}

}  // namespace
