#include "ProviderFixture.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "platform/crypt/Der.h"
#include "tests/PublicTool.h"

namespace provider_test {
namespace {

Bytes reversed(Bytes bytes) {
    std::ranges::reverse(bytes);
    return bytes;
}

}  // namespace

std::string ProviderTest::openssl(const std::string& arguments) const {
    return runTool("cd " + file("").string() + " && openssl " + arguments, "");
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
    ASSERT_TRUE(std::ofstream(path, std::ios::binary) << content << std::flush) << path;
}

void writeFile(const std::filesystem::path& path, const Bytes& content) {
    writeFile(path, std::string(content.begin(), content.end()));
}

Bytes readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << path;
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

std::filesystem::path onlyFile(const std::filesystem::path& folder, std::string_view extension) {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == extension) found.push_back(entry.path());
    }
    EXPECT_EQ(found.size(), 1U) << folder << extension;
    return found.empty() ? std::filesystem::path() : found.front();
}

DWORD codeOf(BOOL result) { return result ? ERROR_SUCCESS : GetLastError(); }

BOOL generate(HCRYPTPROV provider, DWORD spec, DWORD flags) {
    HCRYPTKEY key = 0;
    return CryptGenKey(provider, spec, flags, &key) && CryptDestroyKey(key);
}

BOOL setPin(HCRYPTPROV provider, DWORD parameter, const char* pin, BYTE kind) {
    PinParam auth;
    auth.kind = kind;
    auth.text = pin;
    return CryptSetProvParam(provider, parameter, reinterpret_cast<const BYTE*>(&auth), 0);
}

DWORD status(HCRYPTPROV provider, DWORD* identifier) {
    DWORD value = 0, length = sizeof value;
    const DWORD code = codeOf(CryptGetProvParam(provider, PP_CONTAINER_STATUS,
                                                reinterpret_cast<BYTE*>(&value), &length, 0));
    if (identifier != nullptr) *identifier = value;
    return code;
}

std::string textParameter(HCRYPTPROV provider, DWORD parameter, DWORD flags) {
    DWORD length = 0;
    if (!CryptGetProvParam(provider, parameter, nullptr, &length, flags)) return "(failed)";
    std::string text(length, '\0');
    EXPECT_TRUE(CryptGetProvParam(provider, parameter, reinterpret_cast<BYTE*>(text.data()),
                                  &length, flags));
    EXPECT_EQ(text.back(), '\0');
    text.pop_back();
    return text;
}

HCRYPTHASH hashOf(HCRYPTPROV provider, ALG_ID algorithm, std::string_view text) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(CryptCreateHash(provider, algorithm, 0, 0, &hash));
    EXPECT_TRUE(CryptHashData(hash, reinterpret_cast<const BYTE*>(text.data()),
                              static_cast<DWORD>(text.size()), 0));
    return hash;
}

Bytes sign(HCRYPTPROV provider, std::string_view text, ALG_ID algorithm, DWORD spec) {
    const HCRYPTHASH hash = hashOf(provider, algorithm, text);
    DWORD length = 0;
    Bytes signature;
    if (CryptSignHashA(hash, spec, nullptr, 0, nullptr, &length)) {
        signature.resize(length);
        if (!CryptSignHashA(hash, spec, nullptr, 0, signature.data(), &length)) length = 0;
    }
    signature.resize(length);
    CryptDestroyHash(hash);  // must leave the code of a failure alone
    return reversed(signature);
}

BOOL verify(HCRYPTPROV provider, HCRYPTKEY key, std::string_view text, const Bytes& signature,
            ALG_ID algorithm) {
    const HCRYPTHASH hash = hashOf(provider, algorithm, text);
    const Bytes given = reversed(signature);
    const BOOL result = CryptVerifySignatureA(hash, given.data(), static_cast<DWORD>(given.size()),
                                              key, nullptr, 0);
    CryptDestroyHash(hash);
    return result;
}

CERT_PUBLIC_KEY_INFO KeyRecord::info() {
    return {{oid.data(), {static_cast<DWORD>(parameters.size()), parameters.data()}},
            {static_cast<DWORD>(bits.size()), bits.data(), 0}};
}

KeyRecord exportKey(HCRYPTPROV provider, DWORD spec) {
    DWORD length = 0;
    EXPECT_TRUE(CryptExportPublicKeyInfo(provider, spec, X509_ASN_ENCODING, nullptr, &length))
        << std::hex << GetLastError();
    std::vector<CERT_PUBLIC_KEY_INFO> buffer(length / sizeof(CERT_PUBLIC_KEY_INFO) + 1);
    CERT_PUBLIC_KEY_INFO* info = buffer.data();
    EXPECT_TRUE(CryptExportPublicKeyInfo(provider, spec, CERT_ENCODING, info, &length));
    const auto bytes = [](const auto& blob) {
        return Bytes(blob.pbData, blob.pbData + blob.cbData);
    };
    return {info->Algorithm.pszObjId, bytes(info->Algorithm.Parameters), bytes(info->PublicKey)};
}

KeyRecord keyFromSpki(const Bytes& spki) {
    provider::DerReader outer(spki);
    provider::DerReader fields(outer.next(0x30).value().content);
    provider::DerReader algorithm(fields.next(0x30).value().content);
    const auto oid = algorithm.next(0x06).value();
    const auto parameters = algorithm.next();
    const auto bits = fields.next(0x03).value().content.subspan(1);
    KeyRecord key{provider::dottedOid(oid.content), {}, {bits.begin(), bits.end()}};
    if (parameters) key.parameters.assign(parameters->whole.begin(), parameters->whole.end());
    return key;
}

HCRYPTKEY import(HCRYPTPROV provider, KeyRecord record) {
    HCRYPTKEY key = 0;
    const CERT_PUBLIC_KEY_INFO info = record.info();
    CryptImportPublicKeyInfoEx(provider, CERT_ENCODING, &info, 0, 0, nullptr, &key);
    return key;
}

}  // namespace provider_test
