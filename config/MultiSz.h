#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

/// What `basic_multi_sz` needs of a character type, walking backwards included.
template <class Char>
struct char_rtraits : std::char_traits<Char> {
    /// The first character of the string whose terminating zero is at `terminator`; a zero must
    /// stand somewhere before it.
    static const Char* start(const Char* terminator) {
        while (terminator[-1] != Char()) --terminator;
        return terminator;
    }
};

/// A list of strings in one buffer: a leading zero, each string with its terminating zero, and a
/// final zero. An empty list is two zeros. The part behind the leading zero is the flat text that
/// interfaces of the platform take; pointers into the list live until it changes.
template <class Char, class Traits = char_rtraits<Char>>
class basic_multi_sz {
public:
    using value_type = const Char*;

    class const_iterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = const Char*;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = value_type;

        const_iterator() = default;
        explicit const_iterator(const Char* at) : at_(at) {}
        reference operator*() const { return at_; }
        const_iterator& operator++() {
            at_ += Traits::length(at_) + 1;
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        const_iterator& operator--() {
            at_ = Traits::start(at_ - 1);
            return *this;
        }
        const_iterator operator--(int) {
            const_iterator before = *this;
            --*this;
            return before;
        }
        bool operator==(const const_iterator&) const = default;

    private:
        const Char* at_ = nullptr;
    };
    using iterator = const_iterator;

    basic_multi_sz() : buffer_(2) {}
    /// From flat text that ends in two zeros; null gives an empty list.
    explicit basic_multi_sz(const Char* flat) : buffer_(2) {
        for (; flat && *flat != Char(); flat += Traits::length(flat) + 1) *this += flat;
    }

    /// Appends one string.
    basic_multi_sz& operator+=(const Char* text) {
        buffer_.insert(buffer_.end() - 1, text, text + Traits::length(text) + 1);
        ++count_;
        return *this;
    }
    basic_multi_sz& operator+=(const std::basic_string<Char>& text) {
        return *this += text.c_str();
    }

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    /// The flat text, without the leading zero.
    const Char* c_str() const { return buffer_.data() + 1; }
    /// The whole buffer, from the leading zero to the final one.
    const std::vector<Char>& buffer() const { return buffer_; }
    const_iterator begin() const { return const_iterator(buffer_.data() + 1); }
    const_iterator end() const { return const_iterator(final()); }
    bool operator==(const basic_multi_sz&) const = default;

private:
    const Char* final() const { return buffer_.data() + buffer_.size() - 1; }

    std::vector<Char> buffer_;
    std::size_t count_ = 0;
};

using multi_sz = basic_multi_sz<char>;
using wmulti_sz = basic_multi_sz<wchar_t>;
