#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "DerText.h"
#include "platform/asn1/asn1data.h"

// Objects made by other implementations. They lie outside the source tree; where they are absent
// the tests have nothing to read and pass.

namespace {

std::string fileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// The bytes must come back from the decoded tree, from a copy of it, and its XER text must be
/// read.
void expectRoundTrip(const asn1::Type& type, const std::string& bytes, const std::string& what) {
    SCOPED_TRACE(what);
    ASN1BERDecodeBuffer buffer(octetsOf(bytes), bytes.size());
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    void* value = rtNewValue(ctxt, type);
    ASSERT_EQ(buffer.decode(type, value), ASN_OK) << rtErrGetText(ctxt);
    EXPECT_FALSE(buffer.lossy());
    EXPECT_TRUE(encodeOrError(type, value) == bytes);
    void* copy = rtNewValue(ctxt, type);
    ASSERT_EQ(rtCopyValue(ctxt, type, value, copy), ASN_OK);
    EXPECT_TRUE(encodeOrError(type, copy) == bytes);
    std::string xer, again;
    ASSERT_EQ(rtEncodeXer(ctxt, type, value, xer), ASN_OK) << rtErrGetText(ctxt);
    ASSERT_EQ(rtDecodeXer(ctxt, type, xer, copy), ASN_OK) << rtErrGetText(ctxt) << xer;
    EXPECT_EQ(rtEncodeXer(ctxt, type, copy, again), ASN_OK);
    EXPECT_EQ(again, xer);
}

/// The octets that the first value of a file takes; some carry more behind it.
std::size_t firstValue(const std::string& bytes) {
    ASN1CtxtRef context;
    std::uint8_t tag = 0;
    std::size_t length = 0;
    xd_setp(context.get(), octetsOf(bytes), bytes.size());
    if (xd_tag_len(context.get(), &tag, &length) < 0) return 0;
    const std::uint8_t* content = xd_content(context.get(), length);
    return static_cast<std::size_t>(content - octetsOf(bytes)) + length;
}

/// Type of a sample by its folder, and by its name where it is a part of a message.
const asn1::Type* typeOfSample(const std::filesystem::path& path) {
    std::string folder = path.parent_path().filename(), name = path.filename();
    if (folder == "certs") return &Schema<asn1data::ASN1T_Certificate>::type;
    if (folder == "crls") return &Schema<asn1data::ASN1T_CertificateList>::type;
    if (folder == "csr") return &Schema<asn1data::ASN1T_CertificationRequest>::type;
    if (folder != "cmp") return nullptr;
    if (name.find("_header") != std::string::npos) return &Schema<asn1data::ASN1T_PKIHeader>::type;
    if (name.find("certreqmsgs") != std::string::npos) {
        return &Schema<asn1data::ASN1T_CertReqMessages>::type;
    }
    if (name.find("certreqmsg") != std::string::npos) {
        return &Schema<asn1data::ASN1T_CertReqMsg>::type;
    }
    return &Schema<asn1data::ASN1T_PKIMessage>::type;
}

TEST(Samples, OfOtherImplementationsComeBackByteForByte) {
    std::filesystem::path root = PKIXCMP_SOURCE_DIR "/../shared/samples";
    if (!std::filesystem::exists(root)) return;
    int count = 0;
    for (const auto& file : std::filesystem::recursive_directory_iterator(root)) {
        const asn1::Type* type = file.is_regular_file() ? typeOfSample(file.path()) : nullptr;
        if (type == nullptr) continue;
        std::string bytes = fileBytes(file.path());
        // Certificates in libcrypto's "trusted" form carry settings behind the certificate.
        if (std::size_t length = firstValue(bytes); length < bytes.size()) {
            ASN1CtxtRef context;
            EXPECT_EQ(decodeText(context.get(), *type, bytes, rtNewValue(context.get(), *type)),
                      ASN_E_TRAILING);
            bytes.resize(length);
        }
        expectRoundTrip(*type, bytes, file.path());
        ++count;
    }
    EXPECT_GT(count, 150);
}

TEST(Samples, CertificatesOfTheSystemComeBackByteForByte) {
    BIO* bundle = BIO_new_file("/etc/ssl/certs/ca-certificates.crt", "r");
    if (bundle == nullptr) return;
    char *name = nullptr, *header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
    while (PEM_read_bio(bundle, &name, &header, &data, &length) == 1) {
        expectRoundTrip(Schema<asn1data::ASN1T_Certificate>::type,
                        {reinterpret_cast<char*>(data), static_cast<std::size_t>(length)}, name);
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    BIO_free(bundle);
}

}  // namespace
