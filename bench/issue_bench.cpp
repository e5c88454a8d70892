#include <benchmark/benchmark.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <vector>

#include "capilite/RecordCoding.h"
#include "pkixcmp/Client.h"
#include "pkixcmp/KeyContainers.h"
#include "pkixcmp/Protection.h"
#include "pkixcmp/Server.h"
#include "platform/crypt/CryptApi.h"

// One ir issued in process, P-256: proof of possession checked, pre-processed, issued with a
// counter in memory. Beside it the bare libcrypto cost of the same two signatures and one
// verification, with ready keys, in turn with it, so that both sides see the same machine.

namespace {

using namespace asn1data;

void check(bool good, const char* what) {
    if (good) return;
    std::cerr << what << " failed\n";
    std::exit(1);
}

double cpuMicroseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double median(std::vector<double>& values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

/// A CA and a request in a home of their own, gone with the object.
class Setting {
public:
    Setting() {
        std::string pattern = std::filesystem::temp_directory_path() / "pkixcmp-bench-XXXXXX";
        check(::mkdtemp(pattern.data()) != nullptr, "mkdtemp");
        home_ = pattern;
        ::setenv("PKIXCMP_HOME", pattern.c_str(), 1);
        OldWndProv wnd(std::string("VAULT"), "");
        ca.reset(PKIXCMP_Server::GenerateRoot(
            "\\local\\ca", L"CN=Trial Root, O=Trial", {}, L"Trial", false, nullptr, PROV_ECDSA_P256,
            "\\\\.\\VAULT\\ca", CACMPT_Period::OneYear, CACMPT_Date(0, 0), nullptr,
            CACMPT_Period::OneDay, &wnd));
        for (int i = 0; i < requests; ++i) {
            const std::string container = "\\\\.\\VAULT\\alice" + std::to_string(i);
            irs_.push_back(makeIr(wnd, container.c_str()));
        }
    }
    ~Setting() {
        ca.reset();
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }

    void issue() {
        const CACMPT_BLOB& ir = irs_[next_++ % irs_.size()];
        CACMPT_ASN1BERDecodeBuffer buffer;
        ASN1T_PKIMessage message;
        asn1DecodeRecord(buffer, ir, message);
        ASN1T_CertReqMsg& asked = message.body.u.ir->front();
        const lSimpleCryptProv provider(asked.certReq.certTemplate.publicKey.algorithm);
        ASN1BEREncodeBuffer scratch;
        check(VerifyProofOfPosession(provider.handle, scratch, asked), "proof");
        CryptReleaseContext(provider.handle, 0);
        CertificateInfo record;
        ca->CertReqMessage_PreProcess(ir, &record, 0);
        ca->CertReqMessage_Process(&record, reply, certnum);
    }

    std::unique_ptr<PKIXCMP_Server> ca;
    CACMPT_BLOB reply;
    char certnum[128] = "";

private:
    /// As many keys as make it unlikely that one is still known from the request before.
    static constexpr int requests = 64;

    static CACMPT_BLOB makeIr(WndProv& wnd, const char* container) {
        const std::unique_ptr<PKIXCMP_Client> client(PKIXCMP_Client::GenerateKeyPair(
            wnd, nullptr, nullptr, PROV_ECDSA_P256, container, AT_SIGNATURE, false));
        RequestInfo request;
        request.RequestType = REQUEST_TYPE_INIT_CERTIFICATE;
        request.Subject.assign(L"CN=Alice, O=Trial");
        std::wcscpy(request.RecipientGeneralName, L"dn:CN=Trial Root, O=Trial");
        request.Extensions.Insert(
            CACMPT_Extension("2.5.29.15", "<KeyUsage><digitalSignature/></KeyUsage>", true));
        request.Extensions.Insert(CACMPT_Extension(
            "2.5.29.17", "<SubjectAltName><dNSName>alice.example</dNSName></SubjectAltName>",
            false));
        CACMPT_BLOB ir;
        client->CertReqMessage_EncodeAndSign(&request, ir);
        return ir;
    }

    std::filesystem::path home_;
    std::vector<CACMPT_BLOB> irs_;
    std::size_t next_ = 0;
};

/// The same signatures made and checked with nothing around them.
class Bare {
public:
    Bare() : key_(EVP_EC_gen("P-256")), signer_(EVP_MD_CTX_new()), verifier_(EVP_MD_CTX_new()) {
        check(key_ && signer_ && verifier_, "key");
        sign();
    }
    ~Bare() {
        EVP_MD_CTX_free(signer_);
        EVP_MD_CTX_free(verifier_);
        EVP_PKEY_free(key_);
    }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    void twoSignaturesAndOneVerification() {
        sign();
        sign();
        check(EVP_DigestVerifyInit(verifier_, nullptr, EVP_sha256(), nullptr, key_) == 1 &&
                  EVP_DigestVerify(verifier_, signature_, length_, data_, sizeof data_) == 1,
              "verify");
    }

private:
    void sign() {
        length_ = sizeof signature_;
        check(EVP_DigestSignInit(signer_, nullptr, EVP_sha256(), nullptr, key_) == 1 &&
                  EVP_DigestSign(signer_, signature_, &length_, data_, sizeof data_) == 1,
              "sign");
    }

    EVP_PKEY* key_;
    EVP_MD_CTX* signer_;
    EVP_MD_CTX* verifier_;
    unsigned char data_[400] = {};
    unsigned char signature_[80];
    std::size_t length_ = 0;
};

void issueOverBare(benchmark::State& state) {
    Setting setting;
    Bare bare;
    std::vector<double> issueTimes, bareTimes;
    for (auto _ : state) {
        const double start = cpuMicroseconds();
        setting.issue();
        const double between = cpuMicroseconds();
        bare.twoSignaturesAndOneVerification();
        const double end = cpuMicroseconds();
        issueTimes.push_back(between - start);
        bareTimes.push_back(end - between);
    }
    state.counters["issue_us"] = median(issueTimes);
    state.counters["bare_us"] = median(bareTimes);
    state.counters["ratio"] = median(issueTimes) / median(bareTimes);
}
BENCHMARK(issueOverBare)->MinTime(2);

}  // namespace
