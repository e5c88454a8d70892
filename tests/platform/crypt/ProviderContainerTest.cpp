#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "ProviderFixture.h"
#include "platform/support/Support.h"

// Containers: their names, their life, what lies on the disk, certificates, enumerations.

namespace provider_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ProviderContainer : public ProviderTest {
protected:
    DWORD acquire(const char* name, DWORD flags, DWORD type = PROV_ECDSA_P256) {
        const Context context(name, type, flags);
        return GetLastError();
    }

    /// The entries of an enumeration up to their first zero; "!" marks one that is not whole.
    std::vector<std::string> entries(HCRYPTPROV provider, DWORD parameter, std::size_t part = 0) {
        DWORD length = 0;
        EXPECT_TRUE(CryptGetProvParam(provider, parameter, nullptr, &length, CRYPT_FIRST));
        std::vector<std::string> found;
        Bytes entry(length);
        for (DWORD flag = CRYPT_FIRST;; flag = CRYPT_NEXT) {
            if (!CryptGetProvParam(provider, parameter, entry.data(), &length, flag)) break;
            const bool whole = GetLastError() == ERROR_SUCCESS;
            const char* text = reinterpret_cast<const char*>(entry.data());
            for (std::size_t i = 0; i < part; ++i) text += std::strlen(text) + 1;
            found.push_back((whole ? "" : "!") + std::string(text));
        }
        EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
        return found;
    }

    /// A self-signed certificate of the key in a container of VAULT or one with an empty PIN.
    Bytes certificateOf(const std::filesystem::path& pem, const std::string& password) {
        openssl("pkcs8 -in " + pem.string() + " -passin pass:" + password + " -out clear.pem");
        openssl("req -x509 -key clear.pem -subj /CN=test -days 1 -outform DER -out cert.der");
        return readFile(file("cert.der"));
    }
};

TEST_F(ProviderContainer, NamesAreChecked) {
    const std::string longest(200, 'n');
    const std::string full = "\\\\.\\DISK\\";
    struct Case {
        std::string name;
        DWORD code;
    };
    const Case cases[] = {
        {"plain", ERROR_SUCCESS},
        {full + "with spaces, (signs) and 'quotes'", ERROR_SUCCESS},
        {full + "ключ", ERROR_SUCCESS},
        {full + "group.1", ERROR_SUCCESS},
        {full + longest, ERROR_SUCCESS},
        {"\\\\.\\\\noreader", ERROR_SUCCESS},
        {full + longest + "n", NTE_BAD_KEYSET_PARAM},
        {"", NTE_BAD_KEYSET_PARAM},
        {full, NTE_BAD_KEYSET_PARAM},
        {"\\\\.\\DISK", NTE_BAD_KEYSET_PARAM},
        {"\\\\.\\", NTE_BAD_KEYSET_PARAM},
        {full + ".", NTE_BAD_KEYSET_PARAM},
        {full + "..", NTE_BAD_KEYSET_PARAM},
        {full + "../../escaped", NTE_BAD_KEYSET_PARAM},
        {full + "a/b", NTE_BAD_KEYSET_PARAM},
        {full + "a\\b", NTE_BAD_KEYSET_PARAM},
        {full + ".hidden", NTE_BAD_KEYSET_PARAM},
        {full + "line\nbreak", NTE_BAD_KEYSET_PARAM},
        {full + "\x7F", NTE_BAD_KEYSET_PARAM},
        {full + "\xFF\xFE", NTE_BAD_KEYSET_PARAM},
        {"\\\\.\\CARD\\name", SCARD_E_NO_SUCH_READER},
        {"\\\\.\\..\\name", SCARD_E_NO_SUCH_READER},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(acquire(c.name.c_str(), CRYPT_NEWKEYSET), c.code) << c.name;
        EXPECT_EQ(acquire(c.name.c_str(), 0), c.code) << c.name;
        EXPECT_EQ(acquire(c.name.c_str(), CRYPT_DELETEKEYSET), c.code) << c.name;
    }
    EXPECT_EQ(acquire(nullptr, CRYPT_NEWKEYSET), NTE_BAD_KEYSET_PARAM);
}

TEST_F(ProviderContainer, ComesAndGoes) {
    struct Case {
        DWORD type;
        const char* name;
    };
    const Case cases[] = {
        {PROV_RSA, "one"}, {PROV_ECDSA_P256, "\\\\.\\DISK\\one"}, {PROV_ECDSA_P256, "one"}};
    for (const Case& c : cases) {
        EXPECT_EQ(acquire(c.name, 0, c.type), NTE_BAD_KEYSET) << c.name;
        EXPECT_EQ(acquire(c.name, CRYPT_DELETEKEYSET, c.type), NTE_BAD_KEYSET) << c.name;
        EXPECT_EQ(acquire(c.name, CRYPT_NEWKEYSET, c.type), ERROR_SUCCESS) << c.name;
        EXPECT_EQ(acquire(c.name, CRYPT_NEWKEYSET, c.type), NTE_EXISTS) << c.name;
        EXPECT_EQ(acquire(c.name, 0, c.type), ERROR_SUCCESS) << c.name;
        EXPECT_EQ(acquire(c.name, CRYPT_DELETEKEYSET, c.type), ERROR_SUCCESS) << c.name;
        EXPECT_EQ(acquire(c.name, 0, c.type), NTE_BAD_KEYSET) << c.name;
    }
}

TEST_F(ProviderContainer, FlagsAndTypesAreChecked) {
    struct Case {
        const char* name;
        const char* provider;
        DWORD type;
        DWORD flags;
        DWORD code;
    };
    const Case cases[] = {
        {nullptr, nullptr, 2, CRYPT_VERIFYCONTEXT, NTE_PROV_TYPE_NOT_DEF},
        {nullptr, nullptr, 0, CRYPT_VERIFYCONTEXT, NTE_PROV_TYPE_NOT_DEF},
        {nullptr, "Unknown Provider", 75, CRYPT_VERIFYCONTEXT, NTE_KEYSET_NOT_DEF},
        {nullptr, "PKIXCMP RSA Provider", 75, CRYPT_VERIFYCONTEXT, NTE_BAD_PROV_TYPE},
        {nullptr, "PKIXCMP RSA Provider", 0, CRYPT_VERIFYCONTEXT, ERROR_SUCCESS},
        {"name", nullptr, 75, CRYPT_VERIFYCONTEXT, NTE_BAD_KEYSET_PARAM},
        {"name", nullptr, 75, CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET, NTE_BAD_FLAGS},
        {nullptr, nullptr, 75, CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET, NTE_BAD_FLAGS},
        {"name", nullptr, 75, 0x100, NTE_BAD_FLAGS},
        {"name", nullptr, 75, CRYPT_NEWKEYSET | CRYPT_MACHINE_KEYSET, ERROR_SUCCESS},
        {"name", nullptr, 80, 0, NTE_BAD_PROV_TYPE},
    };
    for (const Case& c : cases) {
        HCRYPTPROV handle = 0;
        EXPECT_EQ(codeOf(CryptAcquireContextA(&handle, c.name, c.provider, c.type, c.flags)),
                  c.code);
        if (handle != 0) CryptReleaseContext(handle, 0);
    }
    EXPECT_FALSE(std::filesystem::exists(home() / "user/readers/DISK"));
}

TEST_F(ProviderContainer, TellsItsNames) {
    struct Case {
        DWORD type;
        const char* given;
        const char* unique;
        int kind;
    };
    const Case cases[] = {
        {PROV_ECDSA_P256, "\\\\.\\DISK\\a", "\\\\.\\DISK\\a", 0},
        {PROV_ECDSA_P256, "\\\\.\\VAULT\\b", "\\\\.\\VAULT\\b", 6},
        {PROV_ECDSA_P384, "c", "\\\\.\\VAULT\\c", 6},
        {PROV_RSA, "d", "d", 5},
        {PROV_ECDSA_PLAIN, "\\\\.\\DISK\\e", "e", 5},
    };
    for (const Case& c : cases) {
        const Context made(c.given, c.type, CRYPT_NEWKEYSET);
        const std::string name(1, c.unique[std::strlen(c.unique) - 1]);
        EXPECT_EQ(textParameter(made, PP_CONTAINER), name);
        EXPECT_EQ(textParameter(made, PP_UNIQUE_CONTAINER), c.unique);
        EXPECT_EQ(textParameter(made, PP_FQCN, 0x10), c.unique);
        EXPECT_NE(Context(textParameter(made, PP_UNIQUE_CONTAINER).c_str(), c.type, 0), 0U);
        DWORD length = 0;
        EXPECT_EQ(codeOf(CryptGetProvParam(made, PP_FQCN, nullptr, &length, 0)), NTE_BAD_FLAGS);
        PinInfoHead head{};
        length = sizeof head;
        EXPECT_TRUE(
            CryptGetProvParam(made, PP_AUTH_INFO, reinterpret_cast<BYTE*>(&head), &length, 0));
        EXPECT_EQ(head.kind, c.kind);
        EXPECT_EQ(length, 6U);
        DWORD identifier = 0;
        EXPECT_EQ(status(made, &identifier), ERROR_SUCCESS);
        EXPECT_NE(identifier, 0U);
    }
    // A plain name finds a container of another reader, the full one does not.
    EXPECT_EQ(acquire("a", 0), ERROR_SUCCESS);
    EXPECT_EQ(acquire("\\\\.\\VAULT\\a", 0), NTE_BAD_KEYSET);
    const Context verifier(nullptr, PROV_RSA, CRYPT_VERIFYCONTEXT);
    for (const DWORD parameter : {PP_CONTAINER, PP_UNIQUE_CONTAINER, PP_AUTH_INFO}) {
        DWORD length = 0;
        EXPECT_EQ(codeOf(CryptGetProvParam(verifier, parameter, nullptr, &length, 0)),
                  NTE_BAD_KEYSET);
    }
    HCRYPTKEY key = 0;
    EXPECT_EQ(codeOf(CryptGenKey(verifier, AT_SIGNATURE, 0, &key)), NTE_BAD_KEYSET);
}

TEST_F(ProviderContainer, OpensslReadsKeys) {
    const Context disk("\\\\.\\DISK\\d", PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(disk));
    const auto diskPem = onlyFile(container("DISK", "d"), ".pem");
    openssl("pkcs8 -in " + diskPem.string() + " -passin pass: -out clear.pem");
    ASSERT_TRUE(setPin(disk, PP_CHANGE_AUTH, "12345678"));
    const auto lockedPem = onlyFile(container("DISK", "d"), ".pem").string();
    EXPECT_FALSE(opensslSucceeds("pkcs8 -in " + lockedPem + " -passin pass: -out clear.pem"));
    openssl("pkcs8 -in " + lockedPem + " -passin pass:12345678 -out clear.pem");
    openssl("pkey -in clear.pem -pubout -outform DER -out public.der");
    EXPECT_EQ(readFile(file("public.der")), readFile(onlyFile(container("DISK", "d"), ".pub")));
    EXPECT_THAT(
        openssl("asn1parse -in " + lockedPem),
        ::testing::AllOf(::testing::HasSubstr("PBES2"), ::testing::HasSubstr(":scrypt"),
                         ::testing::HasSubstr(":4000"), ::testing::HasSubstr("aes-256-cbc")));

    // The password of a self-protected container follows from the vault key and the salt.
    const Context vault("\\\\.\\VAULT\\v", PROV_ECDSA_P384, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(vault, AT_KEYEXCHANGE, CRYPT_EXPORTABLE));
    const auto folder = container("VAULT", "v");
    const std::string salt = "$(sed -n 's/^salt //p' " + (folder / "header").string() + ")";
    openssl("version; printf " + salt +
            " | xxd -r -p | openssl dgst -sha256 -mac HMAC -macopt "
            "hexkey:$(cat " +
            (home() / "user/vault.key").string() + ") -r | cut -d' ' -f1 > pass");
    openssl("pkcs8 -in " + onlyFile(folder, ".pem").string() + " -passin file:pass -out v.pem");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home() / "user")) {
        const auto beyondOwner = entry.status().permissions() & std::filesystem::perms(077);
        EXPECT_EQ(beyondOwner, std::filesystem::perms::none) << entry.path();
    }
}

TEST_F(ProviderContainer, KeySizeComesFromTheFlags) {
    struct Case {
        DWORD type;
        DWORD flags;
        DWORD code;
        DWORD bits;
        ALG_ID algorithm;
        DWORD spec;
    };
    const Case cases[] = {
        {PROV_RSA, 0, ERROR_SUCCESS, 2048, CALG_RSA_SIGN, AT_SIGNATURE},
        {PROV_RSA, 3072U << 16 | CRYPT_EXPORTABLE, ERROR_SUCCESS, 3072, CALG_RSA_KEYX,
         AT_KEYEXCHANGE},
        {PROV_RSA, 512U << 16, NTE_BAD_LEN, 0, 0, AT_SIGNATURE},
        {PROV_ECDSA_PLAIN, 384U << 16, ERROR_SUCCESS, 384, CALG_ECDSA, AT_SIGNATURE},
        {PROV_ECDSA_PLAIN, 2048U << 16, NTE_BAD_LEN, 0, 0, AT_SIGNATURE},
        {PROV_ECDSA_PLAIN, 0, ERROR_SUCCESS, 256, CALG_ECDH, AT_KEYEXCHANGE},
        {PROV_ECDSA_PLAIN, 2, NTE_BAD_FLAGS, 0, 0, AT_SIGNATURE},
        {PROV_ECDSA_PLAIN, 0, NTE_BAD_ALGID, 0, 0, 3},
    };
    int number = 0;
    for (const Case& c : cases) {
        const Context made(std::to_string(++number).c_str(), c.type, CRYPT_NEWKEYSET);
        HCRYPTKEY key = 0;
        EXPECT_EQ(codeOf(CryptGenKey(made, c.spec, c.flags, &key)), c.code) << number;
        if (c.code != ERROR_SUCCESS) continue;
        DWORD bits = 0;
        ALG_ID algorithm = 0;
        DWORD length = 4;
        EXPECT_TRUE(CryptGetKeyParam(key, KP_KEYLEN, reinterpret_cast<BYTE*>(&bits), &length, 0));
        EXPECT_TRUE(
            CryptGetKeyParam(key, KP_ALGID, reinterpret_cast<BYTE*>(&algorithm), &length, 0));
        EXPECT_EQ(bits, c.bits);
        EXPECT_EQ(algorithm, c.algorithm);
        EXPECT_TRUE(CryptDestroyKey(key));
    }
}

TEST_F(ProviderContainer, KeepsTheCertificateOfItsKey) {
    const Context made("\\\\.\\DISK\\c", PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    const Context other("\\\\.\\DISK\\o", PROV_ECDSA_P384, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(made) && generate(other));
    const Bytes foreign = certificateOf(onlyFile(container("DISK", "o"), ".pem"), "");
    const Bytes own = certificateOf(onlyFile(container("DISK", "c"), ".pem"), "");
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGetUserKey(made, AT_SIGNATURE, &key));
    DWORD length = 0;
    EXPECT_EQ(codeOf(CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0)), NTE_NOT_FOUND);
    struct Case {
        const char* what;
        Bytes bytes;
        DWORD code;
    };
    const Case cases[] = {
        {"another key's", foreign, NTE_BAD_KEY},
        {"no sequence", {0x04, 0x00}, NTE_BAD_DATA},
        {"indefinite length", {0x30, 0x80, 0, 0, 0}, NTE_BAD_DATA},
        {"length of four octets", {0x30, 0x84, 0x7F, 0xFF, 0xFF, 0xFF}, NTE_BAD_DATA},
        {"empty", {0x30, 0x00}, NTE_BAD_DATA},
        {"no certificate", {0x30, 0x02, 0x05, 0x00}, NTE_BAD_DATA},
        {"its own", own, ERROR_SUCCESS},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(codeOf(CryptSetKeyParam(key, KP_CERTIFICATE, c.bytes.data(), 0)), c.code)
            << c.what;
    }
    CryptDestroyKey(key);
    // Another handle reads it back; a new key drops it.
    const Context again("\\\\.\\DISK\\c", PROV_ECDSA_P256, 0);
    ASSERT_TRUE(CryptGetUserKey(again, AT_SIGNATURE, &key));
    ASSERT_TRUE(CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0));
    Bytes stored(length);
    ASSERT_TRUE(CryptGetKeyParam(key, KP_CERTIFICATE, stored.data(), &length, 0));
    EXPECT_EQ(stored, own);
    EXPECT_EQ(readFile(onlyFile(container("DISK", "c"), ".cer")), own);
    ASSERT_TRUE(generate(again));
    EXPECT_EQ(codeOf(CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0)), NTE_NOT_FOUND);
    EXPECT_TRUE(CryptDestroyKey(key));
    // The handle that was open all the while signs with the new key too once it looks again.
    const Bytes signature = sign(again, "text");
    key = import(made, exportKey(again));
    EXPECT_TRUE(verify(made, key, "text", signature));
    EXPECT_TRUE(CryptDestroyKey(key));
}

TEST_F(ProviderContainer, Enumerates) {
    const Context verifier(nullptr, PROV_ECDSA_P256, CRYPT_VERIFYCONTEXT);
    EXPECT_THAT(entries(verifier, PP_ENUMCONTAINERS), IsEmpty());
    for (const char* name : {"\\\\.\\VAULT\\z", "\\\\.\\DISK\\longer name", "\\\\.\\DISK\\b"}) {
        ASSERT_NE(Context(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET), 0U);
    }
    ASSERT_NE(Context("\\\\.\\DISK\\a", PROV_ECDSA_P384, CRYPT_NEWKEYSET), 0U);
    std::filesystem::create_directory(container("DISK", "half"));
    writeFile(container("DISK", "stray"), "no container");
    EXPECT_THAT(entries(verifier, PP_ENUMCONTAINERS),
                ElementsAre("\\\\.\\DISK\\b", "!\\\\.\\DISK\\half", "\\\\.\\DISK\\longer name",
                            "!\\\\.\\DISK\\stray", "\\\\.\\VAULT\\z"));
    EXPECT_THAT(entries(verifier, PP_ENUMREADERS, 1), ElementsAre("DISK", "VAULT"));
    const Context plain(nullptr, PROV_ECDSA_PLAIN, CRYPT_VERIFYCONTEXT);
    EXPECT_THAT(entries(plain, PP_ENUMREADERS), IsEmpty());

    Bytes entry(sizeof(PROV_ENUMALGS));
    std::vector<ALG_ID> algorithms;
    DWORD length = sizeof(PROV_ENUMALGS);
    DWORD flag = CRYPT_FIRST;
    while (CryptGetProvParam(plain, PP_ENUMALGS, entry.data(), &length, flag)) {
        algorithms.push_back(reinterpret_cast<const PROV_ENUMALGS*>(entry.data())->aiAlgid);
        flag = CRYPT_NEXT;
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_THAT(algorithms, ElementsAre(CALG_SHA1, CALG_SHA_256, CALG_SHA_384, CALG_SHA_512,
                                        CALG_ECDSA, CALG_ECDH));
}

TEST_F(ProviderContainer, SettingsMoveReadersAndChooseKeys) {
    const auto put = [](const std::string& path, const std::string& text) {
        ASSERT_EQ(support_registry_put_string(path.c_str(), text.c_str()), SUPPORT_OK) << path;
    };
    put("\\config\\Readers\\CARD", file("card").string());
    put("\\config\\Readers\\SAFE", "vault:" + file("safe").string());
    put("\\config\\Readers\\DISK", file("disk").string());
    const Context verifier(nullptr, PROV_ECDSA_P256, CRYPT_VERIFYCONTEXT);
    EXPECT_THAT(entries(verifier, PP_ENUMREADERS, 1), ElementsAre("CARD", "DISK", "SAFE", "VAULT"));
    const std::pair<const char*, int> places[] = {{"card", 0}, {"safe", 6}, {"disk", 0}};
    for (const auto& [reader, kind] : places) {
        std::string name = "\\\\.\\" + std::string(reader) + "\\n";
        std::ranges::transform(name, name.begin(), [](char c) { return std::toupper(c); });
        const Context made(name.c_str(), PROV_ECDSA_P256, CRYPT_NEWKEYSET);
        PinInfoHead head{};
        DWORD length = sizeof head;
        EXPECT_TRUE(
            CryptGetProvParam(made, PP_AUTH_INFO, reinterpret_cast<BYTE*>(&head), &length, 0));
        EXPECT_EQ(head.kind, kind);
        EXPECT_TRUE(std::filesystem::exists(file(reader) / "N" / "header"));
    }

    const std::pair<const char*, DWORD> algorithms[] = {
        {"EC:P-384", 384}, {"RSA:2048", 2048}, {"EC:P-999", 0}, {"", 0}};
    for (const auto& [algorithm, bits] : algorithms) {
        put("\\config\\Providers\\16\\Algorithm", algorithm);
        const Context made("key", PROV_ECDSA_PLAIN, CRYPT_NEWKEYSET);
        HCRYPTKEY key = 0;
        EXPECT_EQ(codeOf(CryptGenKey(made, AT_SIGNATURE, 0, &key)),
                  bits == 0 ? NTE_BAD_ALGID : ERROR_SUCCESS)
            << algorithm;
        DWORD size = 0;
        DWORD length = sizeof size;
        CryptGetKeyParam(key, KP_KEYLEN, reinterpret_cast<BYTE*>(&size), &length, 0);
        EXPECT_EQ(size, bits);
        CryptDestroyKey(key);
        EXPECT_EQ(acquire("key", CRYPT_DELETEKEYSET, PROV_ECDSA_PLAIN), ERROR_SUCCESS);
    }
}

TEST_F(ProviderContainer, ProvidersAreEnumerated) {
    for (const auto enumerate : {CryptEnumProviderTypesA, CryptEnumProvidersA}) {
        std::vector<DWORD> types;
        for (DWORD index = 0;; ++index) {
            DWORD type = 0;
            DWORD length = 4;
            char small[4];
            const DWORD code = codeOf(enumerate(index, nullptr, 0, &type, small, &length));
            if (code == ERROR_NO_MORE_ITEMS) break;
            EXPECT_EQ(code, ERROR_MORE_DATA);
            std::string name(length, '\0');
            ASSERT_TRUE(enumerate(index, nullptr, 0, &type, name.data(), &length));
            types.push_back(type);
            HCRYPTPROV handle = 0;
            EXPECT_TRUE(
                CryptAcquireContextA(&handle, nullptr, name.c_str(), type, CRYPT_VERIFYCONTEXT));
            EXPECT_EQ(textParameter(handle, PP_NAME) + '\0', name);
            CryptReleaseContext(handle, 0);
        }
        EXPECT_THAT(types, ElementsAre(1, 16, 75, 80, 81));
    }
}

TEST_F(ProviderContainer, DamageIsReported) {
    using Path = std::filesystem::path;
    const auto edit = [](const Path& folder, const std::string& from, const std::string& to) {
        const Bytes content = readFile(folder / "header");
        std::string text(content.begin(), content.end());
        text.replace(text.find(from), from.size(), to);
        writeFile(folder / "header", text);
    };
    struct Case {
        const char* what;
        std::function<void(const Path&)> damage;
    };
    const Case cases[] = {
        {"no header", [](const Path& f) { std::filesystem::remove(f / "header"); }},
        {"empty header", [](const Path& f) { writeFile(f / "header", ""); }},
        {"header cut off", [](const Path& f) { std::filesystem::resize_file(f / "header", 60); }},
        {"later format", [&](const Path& f) { edit(f, "container 1", "container 2"); }},
        {"file outside", [&](const Path& f) { edit(f, " signature-", " ../signature-"); }},
        {"no number", [&](const Path& f) { edit(f, "generation 1", "generation one"); }},
        {"text behind the end", [&](const Path& f) { edit(f, "end\n", "end\nmore\n"); }},
        {"two keys of one kind",
         [&](const Path& f) { edit(f, "end\n", "key 2 kept a.pem b.pub\nend\n"); }},
        {"certificate of no key",
         [&](const Path& f) { edit(f, "end\n", "certificate 1 c.cer\nend\n"); }},
        {"no tries", [](const Path& f) { std::filesystem::remove(f / "tries"); }},
        {"too many tries", [](const Path& f) { writeFile(f / "tries", "9\n"); }},
        {"tries cut off", [](const Path& f) { writeFile(f / "tries", "3"); }},
        {"no key", [](const Path& f) { std::filesystem::remove(onlyFile(f, ".pem")); }},
        {"no public key", [](const Path& f) { std::filesystem::remove(onlyFile(f, ".pub")); }},
        {"header is a folder",
         [](const Path& f) {
             std::filesystem::remove(f / "header");
             std::filesystem::create_directory(f / "header");
         }},
        {"header is a pipe",
         [](const Path& f) {
             std::filesystem::remove(f / "header");
             ::mkfifo((f / "header").c_str(), 0600);
         }},
    };
    const char* name = "\\\\.\\DISK\\d";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(generate(Context(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET)));
        c.damage(container("DISK", "d"));
        EXPECT_EQ(acquire(name, 0), NTE_KEYSET_ENTRY_BAD);
        EXPECT_EQ(acquire(name, CRYPT_NEWKEYSET), NTE_EXISTS);
        EXPECT_EQ(acquire(name, CRYPT_DELETEKEYSET), ERROR_SUCCESS);
        EXPECT_TRUE(std::filesystem::is_empty(container("DISK", "d").parent_path()));
    }
}

TEST_F(ProviderContainer, DamagedKeysAreNeverUsed) {
    const char* name = "\\\\.\\DISK\\d";
    ASSERT_TRUE(generate(Context(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET)));
    ASSERT_TRUE(generate(Context("\\\\.\\DISK\\e", PROV_ECDSA_P256, CRYPT_NEWKEYSET)));
    const auto pem = onlyFile(container("DISK", "d"), ".pem");
    // Another key in the place of this one opens, but is not the one that the container shows.
    for (const Bytes& content : {readFile(onlyFile(container("DISK", "e"), ".pem")), Bytes{'x'}}) {
        writeFile(pem, content);
        EXPECT_THAT(sign(Context(name, PROV_ECDSA_P256, 0), "text"), IsEmpty());
        EXPECT_EQ(GetLastError(), NTE_KEYSET_ENTRY_BAD);
    }
}

TEST_F(ProviderContainer, KeysAreOverwrittenBeforeTheyGo) {
    const char* name = "\\\\.\\DISK\\w";
    const Context made(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    for (const bool removed : {false, true}) {
        ASSERT_TRUE(generate(made));
        const auto pem = onlyFile(container("DISK", "w"), ".pem");
        const auto seen = file(pem.filename().string());
        std::filesystem::create_hard_link(pem, seen);
        EXPECT_TRUE(removed ? acquire(name, CRYPT_DELETEKEYSET) == ERROR_SUCCESS
                            : setPin(made, PP_CHANGE_AUTH, "1234"));
        EXPECT_THAT(readFile(seen), ::testing::Each(0)) << removed;
    }
}

TEST_F(ProviderContainer, VaultKeyMustBePrivateAndPresent) {
    ASSERT_TRUE(generate(Context("v", PROV_ECDSA_P256, CRYPT_NEWKEYSET)));
    const auto vault = home() / "user/vault.key";
    std::filesystem::permissions(vault, std::filesystem::perms(0644));
    EXPECT_EQ(status(Context("v", PROV_ECDSA_P256, 0)), NTE_PERM);
    std::filesystem::remove(vault);
    EXPECT_EQ(status(Context("v", PROV_ECDSA_P256, 0)), NTE_KEYSET_ENTRY_BAD);
    EXPECT_FALSE(std::filesystem::exists(vault));
}

}  // namespace
}  // namespace provider_test
