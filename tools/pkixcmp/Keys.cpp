#include "tools/pkixcmp/Keys.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "capilite/StoreFind.h"
#include "platform/support/Text.h"
#include "tools/pkixcmp/Failure.h"
#include "tools/pkixcmp/Texts.h"

namespace tool {
namespace {

constexpr const char* vault = "VAULT";
constexpr unsigned int typesWithReaders[] = {PROV_ECDSA_P256, PROV_RSA_3072, PROV_ECDSA_P384};

bool hasReaders(int providerType) {
    for (unsigned int type : typesWithReaders) {
        if (type == static_cast<unsigned int>(providerType)) return true;
    }
    return false;
}

CACMPT_BLOB caCertificate(const std::string& path) {
    checkPath(path, "--ca");
    try {
        return Ini(path).find_binary("cert");
    } catch (const entry_not_found_exception& failure) {
        throw Failure("there is no CA at " + path + "; make one with \"pkixcmp root new --ca '" +
                          path + "'\"",
                      fullTextOf(failure));
    }
}

/// A certificate of the user's "My" with the container of its key, both closed with it.
struct InstalledCertificate {
    explicit InstalledCertificate(const CACMPT_BLOB& certificate)
        : context(CertStore_FindExisting(certificate, store, L"My", false, true)) {}
    ~InstalledCertificate() {
        if (context != nullptr) CertFreeCertificateContext(context);
        if (store != nullptr) CertCloseStore(store, CERT_CLOSE_FORCE);
    }
    InstalledCertificate(const InstalledCertificate&) = delete;
    InstalledCertificate& operator=(const InstalledCertificate&) = delete;

    void* store = nullptr;
    PCCERT_CONTEXT context;
};

std::string containerOfCa(const std::string& path) {
    InstalledCertificate installed(caCertificate(path));
    return installed.context != nullptr ? containerOf(installed.context) : "";
}

/// Runs a step that takes a PIN; a wrong one is told with the tries that are left.
template <class Step>
auto withPin(const std::string& container, Step step) -> decltype(step()) {
    try {
        return step();
    } catch (const CryptException& failure) {
        if (failure.code != SCARD_W_WRONG_CHV || container.empty()) throw;
        int tries = Container(container, 0).pinInfo().tries;
        throw Failure("wrong PIN for the container " + container + "; " + std::to_string(tries) +
                          (tries == 1 ? " try is left" : " tries are left"),
                      fullTextOf(failure));
    }
}

}  // namespace

void addNewKeyOptions(CLI::App* command, KeyOptions& options) {
    command->add_option("--container", options.container,
                        "Name of the new key container, alone or as \\\\.\\READER\\NAME "
                        "(a generated one)");
    command->add_option("--reader", options.reader,
                        "Reader it is made on: VAULT protects it by itself, DISK takes a PIN "
                        "(VAULT, or DISK with --pin)");
    command->add_option("--provider-type", options.providerType,
                        "Kind of key: 75 ECDSA P-256, 80 RSA-3072, 81 ECDSA P-384; without PIN and "
                        "reader 1 RSA, 16 ECDSA P-256, 76 RSA-3072");
    addPinOption(command, options.pin);
}

void addPinOption(CLI::App* command, std::string& pin) {
    command->add_option("--pin", pin,
                        "PIN of the container: pass:TEXT, env:NAME, file:PATH or fd:NUMBER (asked "
                        "on the terminal when one is needed)");
}

std::string planContainer(KeyOptions& options, CallerWndProv& dialogue) {
    std::string reader, name;
    split_container_name(options.container.c_str(), reader, name);
    if (!reader.empty() && !options.reader.empty() && reader != options.reader) {
        throw UsageError("--reader and --container name different readers");
    }
    if (reader.empty()) reader = options.reader;
    if (!hasReaders(options.providerType)) {
        if (!reader.empty() || !options.pin.empty()) {
            throw UsageError("provider type " + std::to_string(options.providerType) +
                             " has neither readers nor PINs");
        }
        dialogue.keyBits = options.keyBits;
        return name;
    }
    if (reader.empty()) reader = options.pin.empty() ? vault : "DISK";
    if (reader == vault && !options.pin.empty()) {
        throw UsageError("VAULT protects its containers by itself; take --reader DISK with --pin");
    }
    if (!options.pin.empty()) {
        dialogue.newPin = readSecret(options.pin);
    } else if (reader != vault) {
        dialogue.newPin = askSecret("PIN for the new container on " + reader, true);
    }
    dialogue.reader = reader;
    return full_container_name(reader, name);
}

Container::Container(const std::string& name, int providerType) {
    std::vector<unsigned int> types{static_cast<unsigned int>(providerType)};
    if (providerType == 0) types.assign(std::begin(typesWithReaders), std::end(typesWithReaders));
    for (unsigned int type : types) {
        if (CryptAcquireContextA(&handle_, name.c_str(), nullptr, type, CRYPT_SILENT)) {
            type_ = type;
            return;
        }
        if (GetLastError() != NTE_BAD_KEYSET && GetLastError() != NTE_BAD_PROV_TYPE) break;
    }
    throw CryptException(GetLastError(), __FILE__, __LINE__);
}

Container::~Container() {
    if (handle_ != 0) CryptReleaseContext(handle_, 0);
}

PinInfoHead Container::pinInfo() const {
    PinInfoHead head{};
    CACMPT_BLOB info = GetPinInfo(handle_);
    std::memcpy(&head, info.data, std::min<std::size_t>(info.size, sizeof head));
    return head;
}

void Container::readPin(std::string& source, CallerWndProv& dialogue) const {
    if (!source.empty()) {
        dialogue.pin = readSecret(source);
    } else if (takesPin()) {
        dialogue.pin = askSecret("PIN for " + name(), false);
    }
}

void Container::unlock(CallerWndProv& dialogue) const { unlockKey(handle_, dialogue); }

void unlockKey(unsigned long long provider, CallerWndProv& dialogue) {
    std::string name = get_unique(provider);
    doing("open the container " + name, [&] {
        withPin(name, [&] { return get_pin_load(dialogue, provider, name.c_str(), 0, 0); });
    });
}

std::string Container::name() const { return get_unique(handle_); }

unsigned int Container::keySpec() const {
    for (unsigned int spec : {AT_SIGNATURE, AT_KEYEXCHANGE}) {
        HCRYPTKEY key = 0;
        if (CryptGetUserKey(handle_, spec, &key)) {
            CryptDestroyKey(key);
            return spec;
        }
    }
    return 0;
}

CACMPT_BLOB Container::certificate(unsigned int keySpec) const {
    CACMPT_BLOB out;
    HCRYPTKEY key = 0;
    if (!CryptGetUserKey(handle_, keySpec, &key)) return out;
    DWORD length = 0;
    if (CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0) && length != 0) {
        out.resize(length);
        if (!CryptGetKeyParam(key, KP_CERTIFICATE, out.data, &length, 0)) out.clear();
    }
    CryptDestroyKey(key);
    return out;
}

unsigned long long Container::detach() {
    unsigned long long handle = handle_;
    handle_ = 0;
    return handle;
}

FreshKey::FreshKey(std::unique_ptr<PKIXCMP_Client> client)
    : client_(std::move(client)), container_(get_unique(client_->ProviderHandle)) {}

FreshKey::~FreshKey() {
    if (!kept_) remove();
}

void FreshKey::remove() noexcept {
    try {
        if (client_->Certificate.size != 0) {
            PKIXCMP_Base::CertStore_Del(L"Request", client_->Certificate, false);
        }
    } catch (const std::exception&) {  // no template was made yet
    }
    DWORD type = client_->ProviderType;
    client_.reset();
    HCRYPTPROV none = 0;
    CryptAcquireContextA(&none, container_.c_str(), nullptr, type, CRYPT_DELETEKEYSET);
}

std::string containerOf(PCCERT_CONTEXT certificate) {
    DWORD length = 0;
    if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr,
                                           &length)) {
        return {};
    }
    std::vector<std::max_align_t> room(length / sizeof(std::max_align_t) + 1);
    auto info = reinterpret_cast<CRYPT_KEY_PROV_INFO*>(room.data());
    if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, info,
                                           &length)) {
        return {};
    }
    return utf8FromWide(info->pwszContainerName);
}

void readCaPin(const std::string& path, std::string& source, CallerWndProv& dialogue) {
    if (!source.empty()) {
        dialogue.pin = readSecret(source);
    } else if (std::string name = containerOfCa(path); !name.empty()) {
        doing("open the CA at " + path, [&] { Container(name, 0).readPin(source, dialogue); });
    }
}

Container openContainer(const std::string& name, int providerType) {
    return doing("open the container " + name, [&] { return Container(name, providerType); });
}

std::unique_ptr<PKIXCMP_Server> openCa(const std::string& path, CallerWndProv& dialogue) {
    std::string name = containerOfCa(path);
    return doing("open the CA at " + path, [&] {
        return withPin(name, [&] {
            auto ca = std::make_unique<PKIXCMP_Server>(path.c_str(), &dialogue);
            unlockKey(ca->ProviderHandle, dialogue);
            return ca;
        });
    });
}

}  // namespace tool
