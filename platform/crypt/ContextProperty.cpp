#include <cstring>
#include <string>

#include "platform/crypt/Context.h"
#include "platform/crypt/StoreGuard.h"
#include "platform/support/Text.h"

using certstore::Bytes;
using certstore::CertificateKind;
using certstore::CrlKind;
using certstore::guarded;
using certstore::Held;
using certstore::View;
using provider::require;

// Properties of contexts. The record of a private key is kept in a form of its own, since it holds
// pointers: three numbers, then two texts in UTF-8, each with its length in front; numbers are 32
// bits, low byte first.

namespace {

void putNumber(Bytes& out, DWORD number) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<BYTE>(number >> shift));
}

void putText(Bytes& out, const wchar_t* text) {
    std::string utf8 = utf8FromWide(text != nullptr ? text : L"");
    putNumber(out, static_cast<DWORD>(utf8.size()));
    out.insert(out.end(), utf8.begin(), utf8.end());
}

/// The record as it is kept, read back.
class KeptKey {
public:
    explicit KeptKey(View bytes) : rest_(bytes) {
        type = takeNumber();
        flags = takeNumber();
        keySpec = takeNumber();
        container = takeText();
        provider = takeText();
        require(rest_.empty(), NTE_BAD_DATA);
    }
    DWORD type, flags, keySpec;
    std::string container, provider;

private:
    DWORD takeNumber() {
        require(rest_.size() >= 4, NTE_BAD_DATA);
        DWORD number = 0;
        for (std::size_t i = 0; i < 4; ++i) number |= static_cast<DWORD>(rest_[i]) << (8 * i);
        rest_ = rest_.subspan(4);
        return number;
    }
    std::string takeText() {
        DWORD length = takeNumber();
        require(length <= rest_.size(), NTE_BAD_DATA);
        std::string text(rest_.begin(), rest_.begin() + length);
        rest_ = rest_.subspan(length);
        return text;
    }
    View rest_;
};

Bytes keptForm(const CRYPT_KEY_PROV_INFO& info) {
    require(info.cProvParam == 0, E_INVALIDARG);
    Bytes out;
    putNumber(out, info.dwProvType);
    putNumber(out, info.dwFlags);
    putNumber(out, info.dwKeySpec);
    putText(out, info.pwszContainerName);
    putText(out, info.pwszProvName);
    return out;
}

/// Gives the record with its texts behind it, all in the caller's buffer.
void giveKey(const KeptKey& key, void* data, DWORD* length) {
    require(length != nullptr, ERROR_INVALID_PARAMETER);
    std::wstring container = wideFromUtf8(key.container);
    std::wstring provider = wideFromUtf8(key.provider);
    std::size_t size =
        sizeof(CRYPT_KEY_PROV_INFO) + (container.size() + provider.size() + 2) * sizeof(wchar_t);
    DWORD room = *length;
    *length = static_cast<DWORD>(size);
    if (data == nullptr) return;
    require(room >= size, ERROR_MORE_DATA);
    auto* info = static_cast<CRYPT_KEY_PROV_INFO*>(data);
    auto* texts = reinterpret_cast<wchar_t*>(info + 1);
    std::copy_n(container.c_str(), container.size() + 1, texts);
    std::copy_n(provider.c_str(), provider.size() + 1, texts + container.size() + 1);
    *info = {texts, texts + container.size() + 1, key.type, key.flags, 0, nullptr, key.keySpec};
}

template <class Kind>
BOOL setProperty(const typename Kind::Context* context, DWORD id, const void* data) {
    return guarded([&] {
        auto& held = Held<Kind>::of(context);
        if (data == nullptr) return held.setProperty(id, nullptr);
        Bytes content;
        if (id == CERT_KEY_PROV_INFO_PROP_ID) {
            content = keptForm(*static_cast<const CRYPT_KEY_PROV_INFO*>(data));
        } else {
            const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(data);
            require(blob.pbData != nullptr || blob.cbData == 0, E_INVALIDARG);
            content.assign(blob.pbData, blob.pbData + blob.cbData);
        }
        held.setProperty(id, &content);
    });
}

/// The property, or what stands for it where it was never set: some follow from the bytes.
template <class Kind>
Bytes propertyOf(const Held<Kind>& held, DWORD id) {
    if (auto set = held.property(id)) return *set;
    if (id == CERT_SHA1_HASH_PROP_ID) {
        certstore::Hash hash = certstore::sha1(held.encoded());
        return {hash.begin(), hash.end()};
    }
    View key = held.keys().keyIdentifier;
    require(id == CERT_KEY_IDENTIFIER_PROP_ID && !key.empty(), CRYPT_E_NOT_FOUND);
    return {key.begin(), key.end()};
}

template <class Kind>
BOOL getProperty(const typename Kind::Context* context, DWORD id, void* data, DWORD* length) {
    return guarded([&] {
        Bytes content = propertyOf(Held<Kind>::of(context), id);
        if (id == CERT_KEY_PROV_INFO_PROP_ID) return giveKey(KeptKey(content), data, length);
        provider::giveBytes(content.data(), content.size(), static_cast<BYTE*>(data), length);
    });
}

}  // namespace

BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT context, DWORD id, DWORD, const void* data) {
    return setProperty<CertificateKind>(context, id, data);
}

BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT context, DWORD id, void* data,
                                       DWORD* length) {
    return getProperty<CertificateKind>(context, id, data, length);
}

BOOL CertSetCRLContextProperty(PCCRL_CONTEXT context, DWORD id, DWORD, const void* data) {
    return setProperty<CrlKind>(context, id, data);
}

BOOL CertGetCRLContextProperty(PCCRL_CONTEXT context, DWORD id, void* data, DWORD* length) {
    return getProperty<CrlKind>(context, id, data, length);
}

BOOL CryptAcquireCertificatePrivateKey(PCCERT_CONTEXT context, DWORD flags, void*,
                                       HCRYPTPROV* provider, DWORD* keySpec, BOOL* callerFrees) {
    return guarded([&] {
        require(provider != nullptr, ERROR_INVALID_PARAMETER);
        auto kept = Held<CertificateKind>::of(context).property(CERT_KEY_PROV_INFO_PROP_ID);
        require(kept.has_value(), CRYPT_E_NO_KEY_PROPERTY);
        KeptKey key(*kept);
        DWORD wanted = (key.flags & (CRYPT_MACHINE_KEYSET | CRYPT_SILENT)) | (flags & CRYPT_SILENT);
        const char* providerName = key.provider.empty() ? nullptr : key.provider.c_str();
        BOOL opened =
            CryptAcquireContextA(provider, key.container.c_str(), providerName, key.type, wanted);
        require(opened != 0, GetLastError());
        if (keySpec != nullptr) *keySpec = key.keySpec;
        if (callerFrees != nullptr) *callerFrees = 1;
    });
}
