#include <sys/stat.h>

#include <cstring>
#include <stdexcept>

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

    /// The kind of PIN that the container takes.
    int pinKind(HCRYPTPROV provider) {
        PinInfoHead head{};
        DWORD length = sizeof head;
        EXPECT_TRUE(
            CryptGetProvParam(provider, PP_AUTH_INFO, reinterpret_cast<BYTE*>(&head), &length, 0));
        EXPECT_EQ(length, 6U);
        return head.kind;
    }

    /// A self-signed certificate of the key in a container of DISK without a PIN.
    Bytes certificateOf(const char* name) {
        const auto pem = onlyFile(container("DISK", name), ".pem").string();
        openssl("pkcs8 -in " + pem + " -passin pass: -out clear.pem");
        openssl("req -x509 -key clear.pem -subj /CN=test -days 1 -outform DER -out cert.der");
        return readFile(file("cert.der"));
    }
};

TEST_F(ProviderContainer, NamesAreChecked) {
    const std::string longest(200, 'n');
    const std::string full = "\\\\.\\DISK\\";
    const std::pair<DWORD, std::vector<std::string>> cases[] = {
        {ERROR_SUCCESS,
         {"plain", full + "with spaces, (signs) and 'quotes'", full + "ключ", full + "group.1",
          full + longest, "\\\\.\\\\noreader"}},
        {NTE_BAD_KEYSET_PARAM,
         {full + longest + "n", "", full, "\\\\.\\DISK", "\\\\.\\", full + ".", full + "..",
          full + "../../escaped", full + "a/b", full + "a\\b", full + ".hidden",
          full + "line\nbreak", full + "\x7F", full + "\xFF\xFE"}},
        {SCARD_E_NO_SUCH_READER, {"\\\\.\\CARD\\name", "\\\\.\\..\\name"}},
    };
    for (const auto& [code, names] : cases) {
        for (const std::string& name : names) {
            for (const DWORD flags : {CRYPT_NEWKEYSET, 0U, CRYPT_DELETEKEYSET}) {
                EXPECT_EQ(acquire(name.c_str(), flags), code) << name << " " << flags;
            }
        }
    }
    EXPECT_EQ(acquire(nullptr, CRYPT_NEWKEYSET), NTE_BAD_KEYSET_PARAM);
}

TEST_F(ProviderContainer, ComesAndGoes) {
    const std::pair<DWORD, const char*> containers[] = {
        {PROV_RSA, "one"}, {PROV_ECDSA_P256, "\\\\.\\DISK\\one"}, {PROV_ECDSA_P256, "one"}};
    const std::pair<DWORD, DWORD> steps[] = {{0, NTE_BAD_KEYSET},
                                             {CRYPT_DELETEKEYSET, NTE_BAD_KEYSET},
                                             {CRYPT_NEWKEYSET, ERROR_SUCCESS},
                                             {CRYPT_NEWKEYSET, NTE_EXISTS},
                                             {0, ERROR_SUCCESS},
                                             {CRYPT_DELETEKEYSET, ERROR_SUCCESS},
                                             {0, NTE_BAD_KEYSET}};
    for (const auto& [type, name] : containers) {
        for (const auto& [flags, code] : steps) {
            EXPECT_EQ(acquire(name, flags, type), code) << name << " " << flags;
        }
    }
}

TEST_F(ProviderContainer, FlagsAndTypesAreChecked) {
    const struct {
        const char *name, *provider;
        DWORD type, flags, code;
    } cases[] = {
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
    for (const auto& c : cases) {
        HCRYPTPROV handle = 0;
        EXPECT_EQ(codeOf(CryptAcquireContextA(&handle, c.name, c.provider, c.type, c.flags)),
                  c.code);
        if (handle != 0) CryptReleaseContext(handle, 0);
    }
    EXPECT_FALSE(std::filesystem::exists(file("user/readers/DISK")));
}

TEST_F(ProviderContainer, TellsItsNames) {
    const struct {
        DWORD type;
        const char *given, *unique;
        int kind;
    } cases[] = {
        {PROV_ECDSA_P256, "\\\\.\\DISK\\a", "\\\\.\\DISK\\a", 0},
        {PROV_ECDSA_P256, "\\\\.\\VAULT\\b", "\\\\.\\VAULT\\b", 6},
        {PROV_ECDSA_P384, "c", "\\\\.\\VAULT\\c", 6},
        {PROV_RSA, "d", "d", 5},
        {PROV_ECDSA_PLAIN, "\\\\.\\DISK\\e", "e", 5},
    };
    for (const auto& c : cases) {
        const Context made(c.given, c.type, CRYPT_NEWKEYSET);
        const std::string name(1, c.unique[std::strlen(c.unique) - 1]);
        EXPECT_EQ(textParameter(made, PP_CONTAINER), name);
        EXPECT_EQ(textParameter(made, PP_UNIQUE_CONTAINER), c.unique);
        EXPECT_EQ(textParameter(made, PP_FQCN, 0x10), c.unique);
        EXPECT_NE(Context(textParameter(made, PP_UNIQUE_CONTAINER).c_str(), c.type, 0), 0U);
        DWORD length = 0;
        EXPECT_EQ(codeOf(CryptGetProvParam(made, PP_FQCN, nullptr, &length, 0)), NTE_BAD_FLAGS);
        EXPECT_EQ(pinKind(made), c.kind);
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
    EXPECT_EQ(codeOf(generate(verifier)), NTE_BAD_KEYSET);
}

TEST_F(ProviderContainer, OpensslReadsKeys) {
    const Context disk("\\\\.\\DISK\\d", PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(disk));
    const auto diskPem = onlyFile(container("DISK", "d"), ".pem");
    openssl("pkcs8 -in " + diskPem.string() + " -passin pass: -out clear.pem");
    ASSERT_TRUE(setPin(disk, PP_CHANGE_AUTH, "12345678"));
    const auto lockedPem = onlyFile(container("DISK", "d"), ".pem").string();
    EXPECT_THROW(openssl("pkcs8 -in " + lockedPem + " -passin pass: -out clear.pem"),
                 std::runtime_error);
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
            " | tr a-f A-F | basenc --base16 -d | openssl dgst -sha256 -mac HMAC -macopt "
            "hexkey:$(cat " +
            file("user/vault.key").string() + ") -r | cut -d' ' -f1 > pass");
    openssl("pkcs8 -in " + onlyFile(folder, ".pem").string() + " -passin file:pass -out v.pem");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(file("user"))) {
        const auto beyondOwner = entry.status().permissions() & std::filesystem::perms(077);
        EXPECT_EQ(beyondOwner, std::filesystem::perms::none) << entry.path();
    }
}

TEST_F(ProviderContainer, KeySizeComesFromTheFlags) {
    const struct {
        DWORD type, spec, flags, code;
        DWORD bits = 0;
        ALG_ID algorithm = 0;
    } cases[] = {
        {PROV_RSA, AT_SIGNATURE, 0, ERROR_SUCCESS, 2048, CALG_RSA_SIGN},
        {PROV_RSA, AT_KEYEXCHANGE, 3072U << 16 | CRYPT_EXPORTABLE, ERROR_SUCCESS, 3072,
         CALG_RSA_KEYX},
        {PROV_RSA, AT_SIGNATURE, 512U << 16, NTE_BAD_LEN},
        {PROV_ECDSA_PLAIN, AT_SIGNATURE, 384U << 16, ERROR_SUCCESS, 384, CALG_ECDSA},
        {PROV_ECDSA_PLAIN, AT_SIGNATURE, 2048U << 16, NTE_BAD_LEN},
        {PROV_ECDSA_PLAIN, AT_KEYEXCHANGE, 0, ERROR_SUCCESS, 256, CALG_ECDH},
        {PROV_ECDSA_PLAIN, AT_SIGNATURE, 2, NTE_BAD_FLAGS},
        {PROV_ECDSA_PLAIN, 3, 0, NTE_BAD_ALGID},
    };
    int name = 0;
    for (const auto& c : cases) {
        const Context made(std::to_string(++name).c_str(), c.type, CRYPT_NEWKEYSET);
        HCRYPTKEY key = 0;
        EXPECT_EQ(codeOf(CryptGenKey(made, c.spec, c.flags, &key)), c.code) << name;
        if (c.code != ERROR_SUCCESS) continue;
        EXPECT_EQ(number(CryptGetKeyParam, key, KP_KEYLEN), c.bits);
        EXPECT_EQ(number(CryptGetKeyParam, key, KP_ALGID), c.algorithm);
        EXPECT_TRUE(CryptDestroyKey(key));
    }
}

TEST_F(ProviderContainer, KeepsTheCertificateOfItsKey) {
    const Context made("\\\\.\\DISK\\c", PROV_ECDSA_P256, CRYPT_NEWKEYSET);
    const Context other("\\\\.\\DISK\\o", PROV_ECDSA_P384, CRYPT_NEWKEYSET);
    ASSERT_TRUE(generate(made) && generate(other));
    const Bytes foreign = certificateOf("o"), own = certificateOf("c");
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGetUserKey(made, AT_SIGNATURE, &key));
    DWORD length = 0;
    EXPECT_EQ(codeOf(CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0)), NTE_NOT_FOUND);
    const struct {
        const char* what;
        Bytes bytes;
        DWORD code;
    } cases[] = {
        {"another key's", foreign, NTE_BAD_KEY},
        {"no sequence", {0x04, 0x00}, NTE_BAD_DATA},
        {"indefinite length", {0x30, 0x80, 0, 0, 0}, NTE_BAD_DATA},
        {"length of four octets", {0x30, 0x84, 0x7F, 0xFF, 0xFF, 0xFF}, NTE_BAD_DATA},
        {"empty", {0x30, 0x00}, NTE_BAD_DATA},
        {"no certificate", {0x30, 0x02, 0x05, 0x00}, NTE_BAD_DATA},
        {"its own", own, ERROR_SUCCESS},
    };
    for (const auto& c : cases) {
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
    const std::pair<const char*, int> readers[] = {{"CARD", 0}, {"SAFE", 6}, {"DISK", 0}};
    for (const auto& [reader, kind] : readers) {
        put("\\config\\Readers\\" + std::string(reader),
            (kind == 6 ? "vault:" : "") + file(reader).string());
    }
    const Context verifier(nullptr, PROV_ECDSA_P256, CRYPT_VERIFYCONTEXT);
    EXPECT_THAT(entries(verifier, PP_ENUMREADERS, 1), ElementsAre("CARD", "DISK", "SAFE", "VAULT"));
    for (const auto& [reader, kind] : readers) {
        const std::string name = "\\\\.\\" + std::string(reader) + "\\n";
        const Context made(name.c_str(), PROV_ECDSA_P256, CRYPT_NEWKEYSET);
        EXPECT_EQ(pinKind(made), kind);
        EXPECT_TRUE(std::filesystem::exists(file(reader) / "n/header"));
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
        EXPECT_EQ(number(CryptGetKeyParam, key, KP_KEYLEN), bits);
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
        EXPECT_THAT(types, ElementsAre(1, 16, 75, 76, 80, 81));
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
    const std::pair<const char*, std::function<void(const Path&)>> cases[] = {
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
    for (const auto& [what, damage] : cases) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(generate(Context(name, PROV_ECDSA_P256, CRYPT_NEWKEYSET)));
        damage(container("DISK", "d"));
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
    const auto vault = file("user/vault.key");
    std::filesystem::permissions(vault, std::filesystem::perms(0644));
    EXPECT_EQ(status(Context("v", PROV_ECDSA_P256, 0)), NTE_PERM);
    std::filesystem::remove(vault);
    EXPECT_EQ(status(Context("v", PROV_ECDSA_P256, 0)), NTE_KEYSET_ENTRY_BAD);
    EXPECT_FALSE(std::filesystem::exists(vault));
}

}  // namespace
}  // namespace provider_test
