#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/crypt/CryptApi.h"

// Signing and verifying through the provider layer, each against libcrypto alone doing the same
// work on a ready key in the same run. Both sides take turns in small batches; the figures are
// medians of the thread's CPU time, `ratio` is ours over libcrypto's.

namespace {

constexpr int batch = 8;
const std::vector<BYTE> message(300, 0x5A);

double microseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double median(std::vector<double> values) {
    std::ranges::nth_element(values,
                             values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
    return values[values.size() / 2];
}

using Work = std::function<bool()>;

double timeOf(const Work& work, bool& good) {
    const double start = microseconds();
    for (int i = 0; i < batch; ++i) good = work() && good;
    return (microseconds() - start) / batch;
}

void compare(benchmark::State& state, const Work& ours, const Work& bare) {
    std::vector<double> oursTimes;
    std::vector<double> bareTimes;
    bool good = true;
    for ([[maybe_unused]] auto iteration : state) {
        bareTimes.push_back(timeOf(bare, good));
        oursTimes.push_back(timeOf(ours, good));
    }
    if (!good) return state.SkipWithError("a call failed");
    const double oursMedian = median(oursTimes);
    const double bareMedian = median(bareTimes);
    state.counters["ours_us"] = oursMedian;
    state.counters["libcrypto_us"] = bareMedian;
    state.counters["ratio"] = oursMedian / bareMedian;
}

/// A container in a home of its own, for as long as the program runs.
HCRYPTPROV newContainer(DWORD type) {
    static const std::string home = [] {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "crypt-bench-XXXXXX").string();
        const std::string made = ::mkdtemp(pattern.data());
        ::setenv("PKIXCMP_HOME", made.c_str(), 1);
        return made;
    }();
    static int number = 0;
    HCRYPTPROV provider = 0;
    HCRYPTKEY key = 0;
    CryptAcquireContextA(&provider, std::to_string(++number).c_str(), nullptr, type,
                         CRYPT_NEWKEYSET);
    CryptGenKey(provider, AT_SIGNATURE, 0, &key);
    CryptDestroyKey(key);
    return provider;
}

std::vector<CERT_PUBLIC_KEY_INFO> exportKey(HCRYPTPROV provider) {
    DWORD length = 0;
    CryptExportPublicKeyInfo(provider, AT_SIGNATURE, CERT_ENCODING, nullptr, &length);
    std::vector<CERT_PUBLIC_KEY_INFO> info(length / sizeof(CERT_PUBLIC_KEY_INFO) + 1);
    CryptExportPublicKeyInfo(provider, AT_SIGNATURE, CERT_ENCODING, info.data(), &length);
    return info;
}

/// What signing a message takes: the default hash of the key, then the signature.
std::vector<BYTE> sign(HCRYPTPROV provider) {
    const auto info = exportKey(provider);
    const PCCRYPT_OID_INFO algorithm = QXCryptGetDefaultHashOIDInfo(info.data());
    HCRYPTHASH hash = 0;
    CryptCreateHash(provider, algorithm->Algid, 0, 0, &hash);
    CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0);
    DWORD length = 0;
    CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, nullptr, &length);
    std::vector<BYTE> signature(length);
    const BOOL made = CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &length);
    signature.resize(made ? length : 0);
    CryptDestroyHash(hash);
    return signature;
}

/// What verifying takes: a provider for the algorithm, the hash, the key.
bool verify(const CERT_PUBLIC_KEY_INFO& info, const std::vector<BYTE>& signature) {
    const HCRYPTPROV provider =
        QXCAPI_I_CryptGetDefaultCryptProv(CertOIDToAlgId(info.Algorithm.pszObjId));
    HCRYPTHASH hash = 0;
    HCRYPTKEY key = 0;
    CryptCreateHash(provider, QXCryptGetDefaultHashOIDInfo(&info)->Algid, 0, 0, &hash);
    CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0);
    CryptImportPublicKeyInfoEx(provider, CERT_ENCODING, &info, 0, 0, nullptr, &key);
    const BOOL valid = CryptVerifySignatureA(hash, signature.data(),
                                             static_cast<DWORD>(signature.size()), key, nullptr, 0);
    CryptDestroyKey(key);
    CryptDestroyHash(hash);
    CryptReleaseContext(provider, 0);
    return valid != 0;
}

/// libcrypto alone: a ready key, contexts that are used again, a fetched digest.
class Bare {
public:
    explicit Bare(DWORD type)
        : digest_(
              EVP_MD_fetch(nullptr, type == PROV_ECDSA_P384 ? "SHA2-384" : "SHA2-256", nullptr)),
          hash_(EVP_MD_CTX_new()) {
        key_ = type == PROV_RSA || type == PROV_RSA_3072
                   ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA",
                                       std::size_t{type == PROV_RSA ? 2048U : 3072U})
                   : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC",
                                       type == PROV_ECDSA_P384 ? "P-384" : "P-256");
        signer_ = EVP_PKEY_CTX_new_from_pkey(nullptr, key_, nullptr);
        EVP_PKEY_sign_init(signer_);
        EVP_PKEY_CTX_set_signature_md(signer_, digest_);
        verifier_ = EVP_PKEY_CTX_new_from_pkey(nullptr, key_, nullptr);
        EVP_PKEY_verify_init(verifier_);
        EVP_PKEY_CTX_set_signature_md(verifier_, digest_);
        signature_.resize(static_cast<std::size_t>(EVP_PKEY_get_size(key_)));
        sign();
    }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;
    ~Bare() {
        EVP_PKEY_CTX_free(signer_);
        EVP_PKEY_CTX_free(verifier_);
        EVP_PKEY_free(key_);
        EVP_MD_CTX_free(hash_);
        EVP_MD_free(digest_);
    }

    bool sign() {
        hash();
        length_ = signature_.size();
        return EVP_PKEY_sign(signer_, signature_.data(), &length_, value_, valueLength_) == 1;
    }
    bool verify() {
        hash();
        return EVP_PKEY_verify(verifier_, signature_.data(), length_, value_, valueLength_) == 1;
    }

private:
    void hash() {
        EVP_DigestInit_ex2(hash_, digest_, nullptr);
        EVP_DigestUpdate(hash_, message.data(), message.size());
        EVP_DigestFinal_ex(hash_, value_, &valueLength_);
    }

    EVP_MD* digest_;
    EVP_MD_CTX* hash_;
    EVP_PKEY* key_;
    EVP_PKEY_CTX* signer_;
    EVP_PKEY_CTX* verifier_;
    std::vector<BYTE> signature_;
    std::size_t length_ = 0;
    BYTE value_[EVP_MAX_MD_SIZE];
    unsigned valueLength_ = 0;
};

void signing(benchmark::State& state, DWORD type) {
    Bare bare(type);
    const HCRYPTPROV provider = newContainer(type);
    compare(
        state, [&] { return !sign(provider).empty(); }, [&] { return bare.sign(); });
    CryptReleaseContext(provider, 0);
}

/// Verifying with so many keys in turn; those of many are never found ready.
void verifying(benchmark::State& state, DWORD type, std::size_t keys) {
    Bare bare(type);
    std::vector<std::vector<CERT_PUBLIC_KEY_INFO>> infos;
    std::vector<std::vector<BYTE>> signatures;
    const HCRYPTPROV provider = newContainer(type);
    for (std::size_t i = 0; i < keys; ++i) {
        HCRYPTKEY key = 0;
        if (i != 0 && CryptGenKey(provider, AT_SIGNATURE, 0, &key)) CryptDestroyKey(key);
        infos.push_back(exportKey(provider));
        signatures.push_back(sign(provider));
    }
    std::size_t turn = 0;
    const auto ours = [&] {
        turn = (turn + 1) % keys;
        return verify(*infos[turn].data(), signatures[turn]);
    };
    compare(state, ours, [&] { return bare.verify(); });
    CryptReleaseContext(provider, 0);
}

BENCHMARK_CAPTURE(signing, P256, PROV_ECDSA_PLAIN);
BENCHMARK_CAPTURE(signing, RSA2048, PROV_RSA);
BENCHMARK_CAPTURE(signing, P384, PROV_ECDSA_P384);
BENCHMARK_CAPTURE(verifying, P256_known_key, PROV_ECDSA_PLAIN, 1);
BENCHMARK_CAPTURE(verifying, P256_new_key, PROV_ECDSA_PLAIN, 200);
BENCHMARK_CAPTURE(verifying, RSA2048_known_key, PROV_RSA, 1);
BENCHMARK_CAPTURE(verifying, P384_known_key, PROV_ECDSA_P384, 1);

}  // namespace
