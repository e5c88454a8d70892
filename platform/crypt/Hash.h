#pragma once

#include <memory>
#include <vector>

#include "platform/crypt/KeyPair.h"
#include "platform/crypt/ProviderContext.h"

namespace provider {

/// What a hash handle stands for. Reading the value finishes the hash: it takes no more data.
class Hash : public HandleObject {
public:
    static constexpr HandleKind handleKind = HandleKind::hash;

    Hash(std::shared_ptr<ProviderContext> context, const Algorithm& algorithm);

    const std::shared_ptr<ProviderContext>& context() const { return context_; }
    const Algorithm& algorithm() const { return algorithm_; }
    void add(const BYTE* data, std::size_t length);
    Bytes value();

private:
    const std::shared_ptr<ProviderContext> context_;
    const Algorithm& algorithm_;
    DigestContextPtr running_;  // null once finished
    std::vector<BYTE> value_;
};

}  // namespace provider
