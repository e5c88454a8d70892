#include "platform/crypt/Container.h"

#include <openssl/rand.h>

#include <algorithm>

#include "platform/crypt/Protection.h"

namespace provider {
namespace {

constexpr const char* headerFile = "header";
constexpr const char* triesFile = "tries";
constexpr std::string_view makingPrefix = ".making-";
constexpr std::string_view removingPrefix = ".removing-";
constexpr std::string_view signaturePrefix = "signature-";
constexpr std::string_view exchangePrefix = "exchange-";
constexpr int allTries = 3;
constexpr std::size_t longestHeader = 64 << 10;
constexpr std::size_t longestKeyFile = 64 << 10;
constexpr std::size_t longestCertificate = 16 << 20;

ContainerHeader readHeader(const Folder& folder) {
    const auto content = folder.read(headerFile, longestHeader);
    require(content.has_value(), NTE_KEYSET_ENTRY_BAD);
    return ContainerHeader::parse(
        {reinterpret_cast<const char*>(content->data()), content->size()});
}

int readTries(const Folder& folder) {
    const auto content = folder.read(triesFile, 2);
    const bool whole = content && content->size() == 2 && (*content)[1] == '\n';
    require(whole && (*content)[0] >= '0' && (*content)[0] <= '0' + allTries, NTE_KEYSET_ENTRY_BAD);
    return (*content)[0] - '0';
}

void writeTries(const Folder& folder, int tries) {
    folder.write(triesFile, std::to_string(tries) + "\n");
}

/// Everything that the header names is there.
void requireWhole(const Folder& folder, const ContainerHeader& header) {
    for (const StoredKey& key : header.keys) {
        for (const std::string* file : {&key.privateFile, &key.publicFile, &key.certificateFile}) {
            require(file->empty() || folder.has(*file), NTE_KEYSET_ENTRY_BAD);
        }
    }
    if (header.protection == Protection::pin) readTries(folder);
}

/// Removes what a change left behind that did not come to its end: the container's lock is held, so
/// nobody else is at work. A key may lie there under a PIN that was changed since.
void sweep(const Folder& folder, const ContainerHeader& header) {
    for (const std::string& name : folder.list()) {
        const bool ours = name.starts_with(temporaryPrefix) || name.starts_with(signaturePrefix) ||
                          name.starts_with(exchangePrefix);
        if (ours && !header.names(name)) folder.remove(name);
    }
}

/// The same for a reader, under its lock.
void sweepReader(const Folder& reader) {
    for (const std::string& name : reader.list()) {
        if (name.starts_with(makingPrefix) || name.starts_with(removingPrefix)) {
            reader.removeAll(name);
        }
    }
}

std::string fileStem(DWORD spec) {
    return uniqueName(spec == AT_SIGNATURE ? signaturePrefix : exchangePrefix);
}

ContainerHeader newHeader(const Place& place, const ProviderType& type) {
    ContainerHeader header;
    header.providerType = type.type;
    header.protection = !type.readers                 ? Protection::none
                        : place.reader.selfProtecting ? Protection::self
                                                      : Protection::pin;
    if (header.protection != Protection::pin) header.salt = randomSalt();
    return header;
}

bool isSelfProtected(const ContainerHeader& header) {
    return header.protection == Protection::self || header.protection == Protection::none;
}

}  // namespace

Container::Container(Place place, ContainerHeader header)
    : place_(std::move(place)), header_(std::move(header)) {}

std::shared_ptr<Container> Container::create(Place place, const ProviderType& type) {
    ContainerHeader header = newHeader(place, type);
    if (isSelfProtected(header)) ensureVaultKey();
    const Folder reader = Folder::openOrMake(place.reader.folder, Folder::Lock::exclusive);
    sweepReader(reader);
    require(!reader.has(place.name), NTE_EXISTS);
    const std::string making = uniqueName(makingPrefix);
    const Folder folder = reader.makeFolder(making);
    folder.write(headerFile, header.text());
    if (header.protection == Protection::pin) writeTries(folder, allTries);
    reader.rename(making, place.name);
    return std::shared_ptr<Container>(new Container(std::move(place), std::move(header)));
}

std::shared_ptr<Container> Container::open(Place place, const ProviderType& type) {
    const auto folder = Folder::open(place.path(), Folder::Lock::shared);
    require(folder.has_value(), NTE_BAD_KEYSET);
    ContainerHeader header = readHeader(*folder);
    require(header.providerType == type.type, NTE_BAD_PROV_TYPE);
    requireWhole(*folder, header);
    return std::shared_ptr<Container>(new Container(std::move(place), std::move(header)));
}

void Container::remove(const Place& place) {
    const auto reader = Folder::open(place.reader.folder, Folder::Lock::exclusive);
    require(reader.has_value(), NTE_BAD_KEYSET);
    sweepReader(*reader);
    require(reader->has(place.name), NTE_BAD_KEYSET);
    const std::string removing = uniqueName(removingPrefix);
    {
        // Whoever is at work in the container finishes first. What is no folder has no such user.
        std::optional<Folder> folder;
        try {
            folder = Folder::open(place.path(), Folder::Lock::exclusive);
        } catch (const Failure& failure) {
            if (failure.code != NTE_KEYSET_ENTRY_BAD) throw;
        }
        reader->rename(place.name, removing);
    }
    reader->removeAll(removing);
}

std::vector<Container::Listed> Container::list(const Reader& reader, const ProviderType& type) {
    std::vector<Listed> found;
    const auto folder = Folder::open(reader.folder, Folder::Lock::none);
    if (!folder) return found;
    for (const std::string& name : folder->list()) {
        if (!isContainerName(name)) continue;
        try {
            open({reader, name}, type);
            found.push_back({name, true});
        } catch (const Failure& failure) {
            if (failure.code == NTE_KEYSET_ENTRY_BAD) found.push_back({name, false});
        }
    }
    return found;
}

Protection Container::protection() {
    const std::lock_guard guard(mutex_);
    return header_.protection;
}

int Container::triesLeft() {
    const std::lock_guard guard(mutex_);
    const Folder folder = enter(Folder::Lock::shared);
    return header_.protection == Protection::pin ? readTries(folder) : 0;
}

/// Opens the folder and reads its header anew. What was unlocked under an earlier protection is
/// locked by that.
Folder Container::enter(Folder::Lock lock) {
    auto folder = Folder::open(place_.path(), lock);
    require(folder.has_value(), NTE_BAD_KEYSET);
    ContainerHeader present = readHeader(*folder);
    require(present.providerType == header_.providerType, NTE_BAD_PROV_TYPE);
    header_ = std::move(present);
    if (unlocked_ && unlocked_->lock != header_.lock()) {
        unlocked_.reset();
        loaded_.clear();
    }
    if (lock == Folder::Lock::exclusive) sweep(*folder, header_);
    return std::move(*folder);
}

/// The new header makes a change come true; what it no longer names goes.
void Container::commit(const Folder& folder, ContainerHeader next) {
    folder.write(headerFile, next.text());
    header_ = std::move(next);
    sweep(folder, header_);
}

/// Opens what needs no PIN, which another object may also have changed the protection of.
void Container::openWithoutPin() {
    if (unlocked_) return;
    if (isSelfProtected(header_)) {
        unlocked_ = Unlocked{vaultPassword(header_.salt), header_.lock()};
    } else if (header_.protection == Protection::pin && !header_.pinSet()) {
        unlocked_ = Unlocked{Secret(), header_.lock()};
    }
}

void Container::requireUnlocked() {
    openWithoutPin();
    require(unlocked_.has_value(), SCARD_W_WRONG_CHV);
}

void Container::supplyPin(Secret pin) {
    {
        const std::lock_guard guard(mutex_);
        require(header_.protection == Protection::pin || pin.empty(), NTE_BAD_TYPE);
        if (header_.protection != Protection::pin) return;
        enter(Folder::Lock::shared);
        if (header_.pinSet()) {
            pending_ = std::move(pin);
            return;
        }
    }
    changePin(pin);
}

void Container::changePin(const Secret& pin) {
    const std::lock_guard guard(mutex_);
    require(header_.protection == Protection::pin || pin.empty(), NTE_BAD_TYPE);
    if (header_.protection != Protection::pin) return;
    openWithoutAsking();
    protectAgain([&](ContainerHeader& next) {
        Secret secret = randomSecret();
        if (header_.pinSet()) {
            auto kept = unseal(header_.sealed, unlocked_->password);
            require(kept.has_value(), NTE_KEYSET_ENTRY_BAD);
            secret = std::move(*kept);
        }
        next.sealed = pin.empty() ? std::string() : seal(secret, pin);
        return pin;
    });
}

void Container::changeOwnProtection() {
    const std::lock_guard guard(mutex_);
    require(isSelfProtected(header_), NTE_BAD_TYPE);
    openWithoutAsking();
    protectAgain([](ContainerHeader& next) {
        next.salt = randomSalt();
        return vaultPassword(next.salt);
    });
}

/// Writes every key under a new password and then the header that names them: one step.
void Container::protectAgain(const std::function<Secret(ContainerHeader&)>& change) {
    const Folder folder = enter(Folder::Lock::exclusive);
    requireUnlocked();
    ContainerHeader next = header_;
    ++next.generation;
    Secret password = change(next);
    for (StoredKey& key : next.keys) {
        const auto privateKey = loadPrivate(folder, key);
        key.privateFile = fileStem(key.spec) + ".pem";
        folder.write(key.privateFile, encryptKey(privateKey->get(), password));
    }
    std::string lock = next.lock();
    commit(folder, std::move(next));
    unlocked_ = Unlocked{std::move(password), std::move(lock)};
    if (header_.protection == Protection::pin && readTries(folder) != allTries) {
        writeTries(folder, allTries);
    }
}

/// The try is used up on the disk before the PIN is looked at, so that nothing that happens then, a
/// crash included, gives one try too many.
void Container::testPin(const Folder& folder, Secret pin) {
    const int tries = readTries(folder);
    require(tries > 0, SCARD_W_CHV_BLOCKED);
    writeTries(folder, tries - 1);
    const bool right = header_.pinSet() ? unseal(header_.sealed, pin).has_value() : pin.empty();
    require(right, tries == 1 ? SCARD_W_CHV_BLOCKED : SCARD_W_WRONG_CHV);
    writeTries(folder, allTries);
    unlocked_ = Unlocked{std::move(pin), header_.lock()};
}

void Container::openWithoutAsking() {
    if (pending_) {
        Secret pin = std::move(*pending_);
        pending_.reset();
        unlocked_.reset();
        loaded_.clear();
        const Folder folder = enter(Folder::Lock::exclusive);
        testPin(folder, std::move(pin));
        return;
    }
    if (unlocked_) return;
    const Folder folder = enter(Folder::Lock::shared);
    openWithoutPin();
    if (unlocked_) return;
    require(header_.protection == Protection::pin, NTE_BAD_TYPE);
    fail(readTries(folder) == 0 ? SCARD_W_CHV_BLOCKED : SCARD_W_WRONG_CHV);
}

std::uint32_t Container::identifier() {
    const std::lock_guard guard(mutex_);
    openWithoutAsking();
    while (identifier_ == 0) {
        require(RAND_bytes(reinterpret_cast<unsigned char*>(&identifier_), sizeof identifier_) == 1,
                NTE_FAIL);
    }
    return identifier_;
}

void Container::unlock(const PinQuestion& question) {
    {
        const std::lock_guard guard(mutex_);
        const bool supplied = pending_.has_value();
        try {
            return openWithoutAsking();
        } catch (const Failure& failure) {
            if (failure.code != SCARD_W_WRONG_CHV || supplied || !question) throw;
        }
    }
    // Asked without the lock held: whoever answers may use this container meanwhile.
    std::optional<Secret> pin = question();
    require(pin && !pin->empty(), SCARD_W_CANCELLED_BY_USER);
    const std::lock_guard guard(mutex_);
    pending_ = std::move(*pin);
    openWithoutAsking();
}

const StoredKey& Container::stored(DWORD spec) const {
    const StoredKey* key = header_.key(spec);
    require(key != nullptr, NTE_NO_KEY);
    return *key;
}

Container::LoadedKey& Container::loaded(const StoredKey& key) {
    LoadedKey& entry = loaded_[key.spec];
    if (entry.publicFile != key.publicFile) entry = {key.publicFile, nullptr, nullptr};
    return entry;
}

std::shared_ptr<const PublicKey> Container::loadPublic(const Folder& folder, const StoredKey& key) {
    LoadedKey& entry = loaded(key);
    if (entry.publicKey == nullptr) {
        const auto content = folder.read(key.publicFile, longestKeyFile);
        require(content.has_value(), NTE_KEYSET_ENTRY_BAD);
        entry.publicKey = PublicKey::import(Bytes(*content));
    }
    return entry.publicKey;
}

std::shared_ptr<const PrivateKey> Container::loadPrivate(const Folder& folder,
                                                         const StoredKey& key) {
    requireUnlocked();
    LoadedKey& entry = loaded(key);
    if (entry.privateKey == nullptr) {
        const auto content = folder.read(key.privateFile, longestKeyFile);
        require(content.has_value(), NTE_KEYSET_ENTRY_BAD);
        PkeyPtr opened = decryptKey(*content, unlocked_->password);
        require(loadPublic(folder, key)->matches(opened.get()), NTE_KEYSET_ENTRY_BAD);
        entry.privateKey = std::make_shared<const PrivateKey>(std::move(opened));
    }
    return entry.privateKey;
}

std::shared_ptr<const PublicKey> Container::publicKey(DWORD spec) {
    const std::lock_guard guard(mutex_);
    const auto ready = loaded_.find(spec);
    if (ready != loaded_.end() && ready->second.publicKey) return ready->second.publicKey;
    const Folder folder = enter(Folder::Lock::shared);
    return loadPublic(folder, stored(spec));
}

std::shared_ptr<const PrivateKey> Container::privateKey(DWORD spec) {
    const std::lock_guard guard(mutex_);
    requireUnlocked();
    const auto ready = loaded_.find(spec);
    if (ready != loaded_.end() && ready->second.privateKey) return ready->second.privateKey;
    const Folder folder = enter(Folder::Lock::shared);
    return loadPrivate(folder, stored(spec));
}

void Container::store(DWORD spec, std::shared_ptr<const PrivateKey> key, bool exportable) {
    const std::lock_guard guard(mutex_);
    const Folder folder = enter(Folder::Lock::exclusive);
    requireUnlocked();
    const std::string stem = fileStem(spec);
    const StoredKey entry{spec, exportable, stem + ".pem", stem + ".pub", ""};
    const std::vector<BYTE> publicInfo = key->publicKeyInfo();
    folder.write(entry.privateFile, encryptKey(key->get(), unlocked_->password));
    folder.write(entry.publicFile, Bytes(publicInfo));
    ContainerHeader next = header_;
    std::erase_if(next.keys, [&](const StoredKey& old) { return old.spec == spec; });
    next.keys.push_back(entry);
    commit(folder, std::move(next));
    loaded_[spec] = {entry.publicFile, PublicKey::import(Bytes(publicInfo)), std::move(key)};
}

void Container::storeCertificate(DWORD spec, Bytes certificate) {
    const std::lock_guard guard(mutex_);
    const Folder folder = enter(Folder::Lock::exclusive);
    const auto own = loadPublic(folder, stored(spec));
    require(certificate.size() <= longestCertificate, NTE_BAD_DATA);
    std::shared_ptr<const PublicKey> certified;
    const Bytes info = publicKeyOfCertificate(certificate);
    try {
        certified = PublicKey::import(info);
    } catch (const Failure&) {
        fail(NTE_BAD_KEY);  // not a key that could be this one
    }
    require(own->matches(*certified), NTE_BAD_KEY);
    ContainerHeader next = header_;
    const std::string file = fileStem(spec) + ".cer";
    next.key(spec)->certificateFile = file;
    folder.write(file, certificate);
    commit(folder, std::move(next));
}

std::vector<BYTE> Container::certificate(DWORD spec) {
    const std::lock_guard guard(mutex_);
    const Folder folder = enter(Folder::Lock::shared);
    const StoredKey& key = stored(spec);
    require(!key.certificateFile.empty(), NTE_NOT_FOUND);
    auto content = folder.read(key.certificateFile, longestCertificate);
    require(content.has_value(), NTE_KEYSET_ENTRY_BAD);
    return std::move(*content);
}

}  // namespace provider
