#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

#include "platform/asn1/asn1data.h"

// A certificate with eight extensions, read whole: by this library's decoder, which reads names and
// extensions with the rest, and by libcrypto's d2i_X509 with the same names and extensions touched.

namespace {

template <auto Free>
struct Freer {
    template <class T>
    void operator()(T* p) const {
        Free(p);
    }
};
using X509Ptr = std::unique_ptr<X509, Freer<X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>>;

void check(bool good, const char* what) {
    if (good) return;
    std::cerr << what << " failed\n";
    std::exit(1);
}

void addName(X509_NAME* name, const char* commonName) {
    const char* parts[][2] = {{"C", "RU"}, {"O", "Trial Works"}, {"CN", commonName}};
    for (auto& part : parts) {
        check(X509_NAME_add_entry_by_txt(name, part[0], MBSTRING_UTF8,
                                         reinterpret_cast<const unsigned char*>(part[1]), -1, -1,
                                         0) == 1,
              "name");
    }
}

void addExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, certificate, certificate, nullptr, nullptr, 0);
    ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &ctx, nid, value));
    check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value);
}

/// A P-256 certificate of about 830 octets.
std::vector<unsigned char> makeCertificate() {
    KeyPtr key(EVP_EC_gen("P-256"));
    X509Ptr certificate(X509_new());
    X509* c = certificate.get();
    check(key && c, "key");
    X509_set_version(c, 2);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(c), 0x8123456789abcdef);
    X509_gmtime_adj(X509_getm_notBefore(c), 0);
    X509_gmtime_adj(X509_getm_notAfter(c), 86400L * 365);
    addName(X509_get_subject_name(c), "Alice of the benchmark");
    addName(X509_get_issuer_name(c), "Trial Root of the benchmark");
    X509_set_pubkey(c, key.get());
    addExtension(c, NID_subject_key_identifier, "hash");
    addExtension(c, NID_authority_key_identifier, "keyid:always");
    addExtension(c, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(c, NID_key_usage, "critical,digitalSignature,keyEncipherment");
    addExtension(c, NID_ext_key_usage, "serverAuth,clientAuth,emailProtection");
    addExtension(c, NID_subject_alt_name,
                 "DNS:alice.example.org,DNS:www.alice.example.org,email:alice@example.org,"
                 "URI:http://example.org/alice");
    addExtension(c, NID_crl_distribution_points,
                 "URI:http://crl.example.org/trial-root/current.crl");
    addExtension(c, NID_info_access,
                 "OCSP;URI:http://ocsp.example.org/trial,caIssuers;URI:http://ca.example.org/"
                 "trial-root.cer");
    check(X509_sign(c, key.get(), EVP_sha256()) > 0, "signing");
    std::vector<unsigned char> der(static_cast<std::size_t>(i2d_X509(c, nullptr)));
    unsigned char* p = der.data();
    i2d_X509(c, &p);
    return der;
}

const std::vector<unsigned char>& certificate() {
    static const std::vector<unsigned char> der = makeCertificate();
    return der;
}

void reportSize(benchmark::State& state) {
    state.counters["octets"] = static_cast<double>(certificate().size());
}

void decode(benchmark::State& state) {
    const auto& der = certificate();
    for (auto _ : state) {
        ASN1BERDecodeBuffer buffer(der.data(), der.size());
        asn1data::ASN1T_Certificate value;
        check(buffer.decode(Schema<asn1data::ASN1T_Certificate>::type, &value) == 0, "decode");
        for (const auto& extension : value.tbsCertificate.extensions) {
            check(extension.extnValue.decoded != nullptr, "extension");
        }
        benchmark::DoNotOptimize(value);
    }
    reportSize(state);
}
BENCHMARK(decode);

void touchName(const X509_NAME* name) {
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        ASN1_STRING* text = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, i));
        benchmark::DoNotOptimize(ASN1_STRING_get0_data(text));
    }
}

void decodeByLibcrypto(benchmark::State& state) {
    const auto& der = certificate();
    for (auto _ : state) {
        const unsigned char* p = der.data();
        X509Ptr value(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
        check(value != nullptr, "d2i_X509");
        touchName(X509_get_subject_name(value.get()));
        touchName(X509_get_issuer_name(value.get()));
        for (int i = 0; i < X509_get_ext_count(value.get()); ++i) {
            X509_EXTENSION* extension = X509_get_ext(value.get(), i);
            void* decoded = X509V3_EXT_d2i(extension);
            check(decoded != nullptr, "X509V3_EXT_d2i");
            const X509V3_EXT_METHOD* method = X509V3_EXT_get(extension);
            ASN1_item_free(static_cast<ASN1_VALUE*>(decoded), ASN1_ITEM_ptr(method->it));
        }
    }
    reportSize(state);
}
BENCHMARK(decodeByLibcrypto);

struct Decoded {
    ASN1BERDecodeBuffer buffer{certificate().data(), certificate().size()};
    asn1data::ASN1T_Certificate value;
    Decoded() {
        check(buffer.decode(Schema<asn1data::ASN1T_Certificate>::type, &value) == 0, "decode");
    }
};

void encode(benchmark::State& state) {
    Decoded decoded;
    ASN1BEREncodeBuffer buffer;
    for (auto _ : state) {
        int length = buffer.encode(Schema<asn1data::ASN1T_Certificate>::type, &decoded.value);
        check(static_cast<std::size_t>(length) == certificate().size(), "encode");
    }
}
BENCHMARK(encode);

void copy(benchmark::State& state) {
    Decoded decoded;
    for (auto _ : state) {
        ASN1CtxtRef context;
        asn1data::ASN1T_Certificate value;
        check(asn1Copy(context.get(), decoded.value, value) == 0, "copy");
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(copy);

/// A CRL of a million entries without extensions: its decode, and the search for an absent serial.
std::vector<std::uint8_t> makeCrl(int count) {
    ASN1CtxtRef context;
    asn1data::ASN1T_CertificateList crl;
    crl.tbsCertList.m.versionPresent = true;
    crl.tbsCertList.signature.algorithm = asn1::oid<"1.2.840.10045.4.3.2">;
    crl.signatureAlgorithm = crl.tbsCertList.signature;
    crl.tbsCertList.thisUpdate.t = asn1data::ASN1T_Time::T_utcTime;
    crl.tbsCertList.thisUpdate.u.text = ASN1TString("250101000000Z");
    crl.tbsCertList.m.revokedCertificatesPresent = true;
    for (int i = 0; i < count; ++i) {
        auto* entry = crl.tbsCertList.revokedCertificates.built.append(context.get());
        char serial[32];
        std::snprintf(serial, sizeof serial, "0x5a%08x%08x%08x", i, i * 7, i * 13);
        entry->userCertificate = rtCopyCharStr(context.get(), serial);
        entry->revocationDate = crl.tbsCertList.thisUpdate;
    }
    ASN1BEREncodeBuffer buffer;
    int length = buffer.encode(Schema<asn1data::ASN1T_CertificateList>::type, &crl);
    check(length > 0, "CRL");
    return {buffer.getMsgPtr(), buffer.getMsgPtr() + length};
}

void decodeLargeCrl(benchmark::State& state) {
    std::vector<std::uint8_t> der = makeCrl(1000000);
    const std::uint8_t absent[] = {0x5B, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    for (auto _ : state) {
        ASN1BERDecodeBuffer buffer(der.data(), der.size());
        asn1data::ASN1T_CertificateList crl;
        check(buffer.decode(Schema<asn1data::ASN1T_CertificateList>::type, &crl) == 0, "decode");
        asn1data::ASN1T_RevokedCertificate entry;
        check(crl.tbsCertList.revokedCertificates.find(buffer.getCtxtPtr(), {sizeof absent, absent},
                                                       entry) == 0,
              "search");
    }
    state.counters["octets"] = static_cast<double>(der.size());
}
BENCHMARK(decodeLargeCrl)->Unit(benchmark::kMillisecond);

}  // namespace
