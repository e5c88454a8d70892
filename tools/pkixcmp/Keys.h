#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "capilite/ASN1Util.h"
#include "config/Ini.h"
#include "pkixcmp/PKIXCMP_Base.h"
#include "tools/pkixcmp/Secrets.h"

namespace tool {

/// Where a key lives, as the command line says it.
struct KeyOptions {
    std::string reader;
    std::string container;
    std::string pin;
    int providerType = 75;
    int keyBits = 0;
};

/// --container, --reader, --pin and --provider-type of a command that makes a key.
void addNewKeyOptions(CLI::App* command, KeyOptions& options);
/// --pin alone, for a command that uses a key.
void addPinOption(CLI::App* command, std::string& pin);

/// "\\.\READER\NAME" of a new container, and the dialogue filled with all that making it takes. The
/// PIN is asked for here if it must be. Without a reader it is the one that needs nothing from
/// anybody, VAULT; a PIN asks for DISK.
std::string planContainer(KeyOptions& options, CallerWndProv& dialogue);

/// An open key container that takes no part in a client or CA.
class Container {
public:
    /// Opens a container by its name, as `container ls` prints it. Provider type 0 looks through
    /// those with readers. A `CryptException` when there is none that can be opened.
    Container(const std::string& name, int providerType);
    ~Container();
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    unsigned long long handle() const { return handle_; }
    unsigned int type() const { return type_; }
    /// How it is protected (kind 0 by a PIN, 6 by the provider itself), and the tries left.
    PinInfoHead pinInfo() const;
    bool takesPin() const { return pinInfo().kind == 0; }
    /// Takes the PIN from `source`, or asks for it, when the container takes one.
    void readPin(std::string& source, CallerWndProv& dialogue) const;
    /// Opens the key with the PIN of the dialogue; a wrong one is a Failure.
    void unlock(CallerWndProv& dialogue) const;
    /// The full name.
    std::string name() const;
    /// The signature key, else the exchange key; 0 when it holds neither.
    unsigned int keySpec() const;
    /// DER of the certificate beside the key, empty when there is none.
    CACMPT_BLOB certificate(unsigned int keySpec) const;
    /// Gives the handle away.
    unsigned long long detach();

private:
    unsigned long long handle_ = 0;
    unsigned int type_ = 0;
};

/// The same, with a Failure that says what was to be opened.
Container openContainer(const std::string& name, int providerType);

/// A key made for one request. Unless it is kept it goes again, with the template of the request,
/// so that a failure leaves nothing behind.
class FreshKey {
public:
    explicit FreshKey(std::unique_ptr<PKIXCMP_Client> client);
    ~FreshKey();
    FreshKey(const FreshKey&) = delete;
    FreshKey& operator=(const FreshKey&) = delete;

    PKIXCMP_Client* operator->() { return client_.get(); }
    const std::string& container() const { return container_; }
    void keep(bool kept = true) { kept_ = kept; }

private:
    void remove() noexcept;

    std::unique_ptr<PKIXCMP_Client> client_;
    std::string container_;
    bool kept_ = false;
};

/// Opens the key of a provider handle with the PIN of the dialogue, if it takes one.
void unlockKey(unsigned long long provider, CallerWndProv& dialogue);

/// The CA of a configuration path, its key ready for use.
std::unique_ptr<PKIXCMP_Server> openCa(const std::string& path, CallerWndProv& dialogue);
/// What must be asked before a CA is opened: its PIN, when its key takes one.
void readCaPin(const std::string& path, std::string& source, CallerWndProv& dialogue);

/// The container that a certificate of a store names as its key's, empty when there is none.
std::string containerOf(PCCERT_CONTEXT certificate);

}  // namespace tool
