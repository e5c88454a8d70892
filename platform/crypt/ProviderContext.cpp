#include "platform/crypt/ProviderContext.h"

#include <openssl/rand.h>

#include <algorithm>
#include <climits>

#include "platform/crypt/Container.h"
#include "platform/crypt/PinCallback.h"

namespace provider {
namespace {

constexpr DWORD knownFlags = CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET | CRYPT_MACHINE_KEYSET |
                             CRYPT_SILENT | CRYPT_VERIFYCONTEXT;

bool isEmpty(const char* text) { return text == nullptr || *text == 0; }

/// The handle of a context as the flags want it; 0 when a container was removed. A container's
/// place follows from its reader, so CRYPT_MACHINE_KEYSET changes nothing.
Handle acquire(const ProviderType& type, const char* container, DWORD flags) {
    require((flags & ~knownFlags) == 0, NTE_BAD_FLAGS);
    const DWORD action = flags & (CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET | CRYPT_VERIFYCONTEXT);
    if (action == CRYPT_VERIFYCONTEXT) {
        require(isEmpty(container), NTE_BAD_KEYSET_PARAM);
        return addHandle(std::make_shared<ProviderContext>(type, flags));
    }
    require(action == 0 || action == CRYPT_NEWKEYSET || action == CRYPT_DELETEKEYSET,
            NTE_BAD_FLAGS);
    Place place = findPlace(type, container, action == CRYPT_NEWKEYSET);
    if (action == CRYPT_DELETEKEYSET) {
        Container::remove(place);
        return 0;
    }
    auto opened = action == CRYPT_NEWKEYSET ? Container::create(std::move(place), type)
                                            : Container::open(std::move(place), type);
    return addHandle(std::make_shared<ProviderContext>(type, flags, std::move(opened)));
}

}  // namespace

ProviderContext::ProviderContext(const ProviderType& providerType, DWORD acquireFlags,
                                 std::shared_ptr<Container> opened)
    : HandleObject(handleKind),
      type_(providerType),
      flags_(acquireFlags),
      container_(std::move(opened)) {}

Container& ProviderContext::container() const {
    require(container_ != nullptr, NTE_BAD_KEYSET);
    return *container_;
}

void ProviderContext::unlock() const {
    if (silent()) {
        container().unlock([]() -> std::optional<Secret> { fail(NTE_SILENT_CONTEXT); });
    } else {
        container().unlock(pinQuestion());
    }
}

void ProviderContext::enumerate(DWORD parameter, DWORD flags,
                                const std::function<std::vector<Entry>()>& list, BYTE* data,
                                DWORD* length) {
    require(length != nullptr, ERROR_INVALID_PARAMETER);
    require((flags & ~CRYPT_FIRST) == 0, NTE_BAD_FLAGS);
    const std::lock_guard guard(mutex_);
    Cursor& cursor = cursors_[parameter];
    if ((flags & CRYPT_FIRST) != 0) cursor = {list(), 0};
    std::size_t longest = 1;  // of an empty list too, so that a buffer of this size is not null
    for (const Entry& entry : cursor.entries) longest = std::max(longest, entry.bytes.size());
    if (data == nullptr) return giveBytes(nullptr, longest, nullptr, length);
    require(cursor.next < cursor.entries.size(), ERROR_NO_MORE_ITEMS);
    const Entry& entry = cursor.entries[cursor.next];
    std::string padded = entry.bytes;
    padded.resize(longest, '\0');
    giveBytes(padded.data(), longest, data, length);
    SetLastError(entry.code);
    ++cursor.next;
}

}  // namespace provider

using namespace provider;

BOOL CryptAcquireContextA(HCRYPTPROV* provider, const char* container, const char* providerName,
                          DWORD type, DWORD flags) {
    const BOOL acquired = guarded([&] {
        require(provider != nullptr, ERROR_INVALID_PARAMETER);
        *provider = 0;
        *provider = acquire(findProvider(type, providerName), container, flags);
    });
    // Callers look at the code after a success too.
    if (acquired) SetLastError(ERROR_SUCCESS);
    return acquired;
}

BOOL CryptReleaseContext(HCRYPTPROV provider, DWORD flags) {
    return guarded([&] {
        require(flags == 0, NTE_BAD_FLAGS);
        require(releaseHandle(provider, HandleKind::provider), ERROR_INVALID_HANDLE);
    });
}

BOOL CryptContextAddRef(HCRYPTPROV provider, DWORD* reserved, DWORD flags) {
    return guarded([&] {
        require(reserved == nullptr, ERROR_INVALID_PARAMETER);
        require(flags == 0, NTE_BAD_FLAGS);
        require(referHandle(provider, HandleKind::provider), ERROR_INVALID_HANDLE);
    });
}

BOOL CryptGenRandom(HCRYPTPROV provider, DWORD length, BYTE* buffer) {
    return guarded([&] {
        handled<ProviderContext>(provider);
        require(length <= INT_MAX, NTE_BAD_LEN);
        require(buffer != nullptr || length == 0, ERROR_INVALID_PARAMETER);
        if (length == 0) return;
        require(RAND_bytes(buffer, static_cast<int>(length)) == 1, NTE_FAIL);
    });
}
