#pragma once

#include <openssl/crypto.h>

#include <cstring>
#include <new>
#include <string_view>
#include <vector>

namespace provider {

/// Clears memory before it is given back, also what a growing vector leaves behind.
template <class T>
struct CleansingAllocator {
    using value_type = T;

    CleansingAllocator() = default;
    template <class U>
    CleansingAllocator(const CleansingAllocator<U>&) {}

    T* allocate(std::size_t count) { return static_cast<T*>(::operator new(count * sizeof(T))); }
    void deallocate(T* memory, std::size_t count) {
        OPENSSL_cleanse(memory, count * sizeof(T));
        ::operator delete(memory);
    }
    template <class U>
    bool operator==(const CleansingAllocator<U>&) const {
        return true;
    }
};

/// A PIN, a password or a raw secret.
using Secret = std::vector<char, CleansingAllocator<char>>;

inline Secret secretFrom(std::string_view text) { return {text.begin(), text.end()}; }

}  // namespace provider
