#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "golden.h"

// Objects made by other implementations.

namespace {

#ifdef PKIXCMP_SAMPLES

std::string fileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
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
    if (folder == "certs") return &typeNamed("Certificate");
    if (folder == "crls") return &typeNamed("CertificateList");
    if (folder == "csr") return &typeNamed("CertificationRequest");
    if (folder != "cmp") return nullptr;
    if (name.find("_header") != std::string::npos) return &typeNamed("PKIHeader");
    if (name.find("certreqmsgs") != std::string::npos) return &typeNamed("CertReqMessages");
    if (name.find("certreqmsg") != std::string::npos) return &typeNamed("CertReqMsg");
    return &typeNamed("PKIMessage");
}

TEST(Samples, OfOtherImplementationsComeBackByteForByte) {
    int count = 0;
    for (const auto& file : std::filesystem::recursive_directory_iterator(PKIXCMP_SAMPLES)) {
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
        SCOPED_TRACE(file.path().string());
        expectRoundTrip(*type, bytes, Xer::stable);
        ++count;
    }
    EXPECT_GT(count, 150);
}

#endif

TEST(Samples, CertificatesOfTheSystemComeBackByteForByte) {
    BIO* bundle = BIO_new_file("/etc/ssl/certs/ca-certificates.crt", "r");
    ASSERT_NE(bundle, nullptr) << "install the package ca-certificates";
    char *name = nullptr, *header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
    int count = 0;
    while (PEM_read_bio(bundle, &name, &header, &data, &length) == 1) {
        expectRoundTrip(typeNamed("Certificate"),
                        {reinterpret_cast<char*>(data), static_cast<std::size_t>(length)},
                        Xer::stable);
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
        ++count;
    }
    BIO_free(bundle);
    EXPECT_GT(count, 50);
}

}  // namespace
