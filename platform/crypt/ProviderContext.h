#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/crypt/Handles.h"
#include "platform/crypt/Providers.h"

namespace provider {

class Container;

/// What a provider handle stands for: a type, and a container unless the context only verifies.
class ProviderContext : public HandleObject {
public:
    static constexpr HandleKind handleKind = HandleKind::provider;

    ProviderContext(const ProviderType& providerType, DWORD acquireFlags,
                    std::shared_ptr<Container> opened = nullptr);

    const ProviderType& type() const { return type_; }
    bool silent() const { return (flags_ & CRYPT_SILENT) != 0; }
    /// Fails with NTE_BAD_KEYSET in a context without a container.
    Container& container() const;
    /// Makes sure that the container's keys can be used, asking for the PIN where there is somebody
    /// to ask. A silent context asks nobody and fails with NTE_SILENT_CONTEXT.
    void unlock() const;

    /// One entry of an enumeration, and the code that becomes the last error when it is given.
    struct Entry {
        std::string bytes;
        DWORD code = ERROR_SUCCESS;
    };
    /// Gives the next entry of the enumeration of a parameter back; `list` is called for the first.
    /// The length reported is that of the longest entry, so one buffer serves them all.
    void enumerate(DWORD parameter, DWORD flags, const std::function<std::vector<Entry>()>& list,
                   BYTE* data, DWORD* length);

private:
    struct Cursor {
        std::vector<Entry> entries;
        std::size_t next = 0;
    };

    const ProviderType& type_;
    const DWORD flags_;
    const std::shared_ptr<Container> container_;
    std::mutex mutex_;
    std::map<DWORD, Cursor> cursors_;
};

}  // namespace provider
