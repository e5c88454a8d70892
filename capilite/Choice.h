#pragma once

#include <cstddef>
#include <utility>
#include <variant>

/// A holder of one numbered alternative, counted from 1; 0 is none. Alternatives may be of the same
/// type and are told apart by their number.
template <class... Alternatives>
class Choice {
public:
    /// The number of the alternative held.
    int get_type() const { return static_cast<int>(value_.index()); }

    /// Destroys what is held and holds a value of alternative N.
    template <std::size_t N, class... Args>
    void set(Args&&... args) {
        static_assert(N >= 1 && N <= sizeof...(Alternatives));
        value_.template emplace<N>(std::forward<Args>(args)...);
    }
    /// The value of alternative N, or null when another is held.
    template <std::size_t N>
    auto* get() {
        return std::get_if<N>(&value_);
    }
    template <std::size_t N>
    const auto* get() const {
        return std::get_if<N>(&value_);
    }
    void clear() { value_.template emplace<0>(); }

private:
    std::variant<std::monostate, Alternatives...> value_;
};
