#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/crypt/ContainerHeader.h"
#include "platform/crypt/Folder.h"
#include "platform/crypt/KeyPair.h"
#include "platform/crypt/Readers.h"
#include "platform/crypt/Secret.h"

namespace provider {

/// A container of keys and certificates: a folder under a reader (doc/container-format.md), and
/// what one handle has opened of it. A container with a PIN is locked until the PIN is given.
/// Several objects, also of other processes, may stand for one container: every change locks the
/// folder and reads its header anew, and an object whose PIN was changed by another is locked
/// again as soon as it does so; until then the keys that it has opened serve it.
///
/// Safe to use from several threads at once.
class Container {
public:
    /// Gives the PIN that somebody was asked for; nothing when there is none to give.
    using PinQuestion = std::function<std::optional<Secret>()>;

    /// Makes an empty container: with an unset PIN, or protected by the provider, as its reader is.
    /// Fails with NTE_EXISTS where the name is taken.
    static std::shared_ptr<Container> create(Place place, const ProviderType& type);
    /// Fails with NTE_BAD_KEYSET where there is none, NTE_KEYSET_ENTRY_BAD for one that is not
    /// whole, NTE_BAD_PROV_TYPE for one of another provider type.
    static std::shared_ptr<Container> open(Place place, const ProviderType& type);
    /// Removes a container, also one that is not whole, and what an earlier removal left behind.
    static void remove(const Place& place);
    /// The containers of a reader that belong to a type; those that are not whole belong to every
    /// type.
    struct Listed {
        std::string name;
        bool whole;
    };
    static std::vector<Listed> list(const Reader& reader, const ProviderType& type);

    const Place& place() const { return place_; }
    Protection protection();
    /// Wrong PINs that a container with a PIN still bears, 0 once it is blocked.
    int triesLeft();

    /// Takes a PIN, which is tested when it is needed. In a container whose PIN is unset it becomes
    /// the PIN.
    void supplyPin(Secret pin);
    /// Sets another PIN; an empty one unsets it. Fails with SCARD_W_WRONG_CHV while locked.
    void changePin(const Secret& pin);
    /// Locks the keys of a container that the provider protects under a new secret.
    void changeOwnProtection();
    /// A random number other than 0 that stands for this object while it is open. Tests a PIN that
    /// was supplied; fails with SCARD_W_WRONG_CHV or SCARD_W_CHV_BLOCKED while locked.
    std::uint32_t identifier();
    /// Makes sure that the keys can be used, by a PIN that was supplied or else by asking once.
    /// With no question, fails as `identifier` does.
    void unlock(const PinQuestion& question);

    /// The keys; NTE_NO_KEY when there is none of this key spec. A private key needs the
    /// container unlocked.
    std::shared_ptr<const PublicKey> publicKey(DWORD spec);
    std::shared_ptr<const PrivateKey> privateKey(DWORD spec);
    /// Stores a key, in place of one of the same key spec and its certificate.
    void store(DWORD spec, std::shared_ptr<const PrivateKey> key, bool exportable);
    /// Fails with NTE_BAD_KEY for a certificate of another key, NTE_BAD_DATA for what is none.
    void storeCertificate(DWORD spec, Bytes certificate);
    /// Fails with NTE_NOT_FOUND when none was stored.
    std::vector<BYTE> certificate(DWORD spec);

private:
    struct Unlocked {
        Secret password;   // of the key files
        std::string lock;  // of the header that it belongs to
    };
    struct LoadedKey {
        std::string publicFile;  // tells whether the key is still the one on the disk
        std::shared_ptr<const PublicKey> publicKey;
        std::shared_ptr<const PrivateKey> privateKey;
    };

    Container(Place place, ContainerHeader header);

    Folder enter(Folder::Lock lock);
    void commit(const Folder& folder, ContainerHeader next);
    void openWithoutPin();
    void requireUnlocked();
    void openWithoutAsking();
    void testPin(const Folder& folder, Secret pin);
    void protectAgain(const std::function<Secret(ContainerHeader&)>& change);
    const StoredKey& stored(DWORD spec) const;
    LoadedKey& loaded(const StoredKey& key);
    std::shared_ptr<const PublicKey> loadPublic(const Folder& folder, const StoredKey& key);
    std::shared_ptr<const PrivateKey> loadPrivate(const Folder& folder, const StoredKey& key);

    const Place place_;
    std::mutex mutex_;
    ContainerHeader header_;
    std::optional<Secret> pending_;
    std::optional<Unlocked> unlocked_;
    std::map<DWORD, LoadedKey> loaded_;
    std::uint32_t identifier_ = 0;
};

}  // namespace provider
