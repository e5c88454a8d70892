#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/Export.h"
#include "platform/asn1/Context.h"

// The primitive types of decoded values. All of them are views: the bytes belong to the context
// that the value was decoded or built in. None holds a terminating zero unless it says so.

/// The most arcs that an identifier may have.
inline constexpr std::uint32_t ASN1_K_MAXSUBIDS = 128;

/// An object identifier as arcs: count, then the arcs. Made when asked for; decoded values hold
/// `ASN1TObjId`.
struct _ASN1OBJID {
    std::uint32_t numids = 0;
    std::uint32_t subid[ASN1_K_MAXSUBIDS] = {};

    friend bool operator==(const _ASN1OBJID& a, const _ASN1OBJID& b) {
        return a.numids == b.numids && a.numids <= ASN1_K_MAXSUBIDS &&
               std::memcmp(a.subid, b.subid, a.numids * sizeof a.subid[0]) == 0;
    }
};
using ASN1OBJID = _ASN1OBJID;

/// A run of octets.
struct ASN1TDynOctStr {
    std::uint32_t numocts = 0;
    const std::uint8_t* data = nullptr;

    ASN1TDynOctStr() = default;
    ASN1TDynOctStr(std::uint32_t n, const std::uint8_t* p) : numocts(n), data(p) {}
    friend bool operator==(const ASN1TDynOctStr& a, const ASN1TDynOctStr& b) {
        return a.numocts == b.numocts &&
               (a.numocts == 0 || !std::memcmp(a.data, b.data, a.numocts));
    }
};

/// A bit string: bits counted from the top bit of the first octet. `data` holds
/// (numbits + 7) / 8 octets. When decoded, the unused bits are those that were received.
struct ASN1TDynBitStr {
    std::uint32_t numbits = 0;
    const std::uint8_t* data = nullptr;

    ASN1TDynBitStr() = default;
    ASN1TDynBitStr(std::uint32_t n, const std::uint8_t* p) : numbits(n), data(p) {}
    std::uint32_t numocts() const { return numbits / 8 + (numbits % 8 != 0); }
    /// Bit i, false behind the end.
    bool test(std::uint32_t i) const {
        return i < numbits && ((data[i / 8] >> (7 - i % 8)) & 1) != 0;
    }
};

/// An identifier as the content octets of its encoding.
struct PKIXCMP_API ASN1TObjId {
    std::uint32_t numocts = 0;
    const std::uint8_t* data = nullptr;

    constexpr ASN1TObjId() = default;
    constexpr ASN1TObjId(std::uint32_t n, const std::uint8_t* p) : numocts(n), data(p) {}
    /// The arcs; empty (numids 0) for octets that are no identifier or have more than 128 arcs.
    operator ASN1OBJID() const;
    friend bool operator==(const ASN1TObjId& a, const ASN1TObjId& b) {
        return a.numocts == b.numocts &&
               (a.numocts == 0 || !std::memcmp(a.data, b.data, a.numocts));
    }
};
PKIXCMP_API bool operator==(const ASN1TObjId& a, const ASN1OBJID& b);

/// A character string of any 8-bit type, or the big-endian octets of a BMPString or
/// UniversalString. Not zero-terminated.
struct ASN1TString {
    std::uint32_t length = 0;  // octets
    const char* data = nullptr;

    ASN1TString() = default;
    ASN1TString(std::uint32_t n, const char* p) : length(n), data(p) {}
    /// Refers to text that must outlive the value.
    explicit ASN1TString(std::string_view s)
        : length(static_cast<std::uint32_t>(s.size())), data(s.data()) {}
    std::string_view view() const { return {data ? data : "", length}; }
    friend bool operator==(const ASN1TString& a, const ASN1TString& b) {
        return a.view() == b.view();
    }
};

/// An INTEGER of any size, as zero-terminated text: "0x", two lower-case digits an octet, one more
/// "0" in front where a positive number has its top bit set. Null stands for no number.
using ASN1TBigInt = const char*;

/// A BOOLEAN that remembers the octet it was decoded from.
struct ASN1TBool {
    std::uint8_t octet = 0;
    ASN1TBool() = default;
    ASN1TBool(bool b) : octet(b ? 0xFF : 0) {}
    operator bool() const { return octet != 0; }
};

namespace asn1 {
struct Type;
}

/// The schema of an ASN.1 type, found by the C++ type that holds its values.
template <class T>
struct PKIXCMP_API Schema {
    static const asn1::Type type;
};

/// A value of a type that is known only by an identifier beside it: the whole encoding (tag,
/// length, content), and the decoded value where the identifier is known and the bytes decode.
/// Stored bytes win on encoding; a value alone (numocts 0) is encoded.
struct ASN1OpenType {
    std::uint32_t numocts = 0;
    const std::uint8_t* data = nullptr;
    const asn1::Type* type = nullptr;  // of `decoded`
    void* decoded = nullptr;

    ASN1OpenType() = default;
    ASN1OpenType(std::uint32_t n, const std::uint8_t* p) : numocts(n), data(p) {}
    /// The decoded value, or null when it is absent or of another type.
    template <class T>
    T* as() const {
        return type == &Schema<T>::type ? static_cast<T*>(decoded) : nullptr;
    }
    /// Points at a value that is to be encoded in place of bytes.
    template <class T>
    void set(T* value) {
        *this = ASN1OpenType{};
        type = &Schema<T>::type;
        decoded = value;
    }
};

/// The untyped side of every SEQUENCE OF and SET OF: a doubly linked list in a context.
struct ASN1CSeqOfList {
    struct NodeBase {
        NodeBase* next = nullptr;
        NodeBase* prev = nullptr;
    };
    NodeBase* head = nullptr;
    NodeBase* tail = nullptr;
    std::uint32_t count = 0;
    bool decoded = false;  // a SET OF so marked keeps its order when encoded, others are sorted

    void link(NodeBase* n) {
        n->next = nullptr;
        n->prev = tail;
        (tail ? tail->next : head) = n;
        tail = n;
        ++count;
    }
    void unlink(NodeBase* n) {
        (n->prev ? n->prev->next : head) = n->next;
        (n->next ? n->next->prev : tail) = n->prev;
        --count;
    }
    void clear() { *this = ASN1CSeqOfList{}; }
    bool empty() const { return head == nullptr; }
};

/// A list of T. Nodes live in the context given to `append`; copying the list object copies only
/// the reference to them.
template <class T>
struct ASN1TSeqOf : ASN1CSeqOfList {
    using value_type = T;
    struct Node : NodeBase {
        T value{};
    };

    template <bool Const>
    struct Iterator {
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using reference = std::conditional_t<Const, const T&, T&>;
        using pointer = std::conditional_t<Const, const T*, T*>;
        using iterator_category = std::forward_iterator_tag;
        NodeBase* node = nullptr;
        reference operator*() const { return static_cast<Node*>(node)->value; }
        pointer operator->() const { return &static_cast<Node*>(node)->value; }
        Iterator& operator++() {
            node = node->next;
            return *this;
        }
        Iterator operator++(int) {
            Iterator old = *this;
            node = node->next;
            return old;
        }
        friend bool operator==(Iterator a, Iterator b) { return a.node == b.node; }
    };
    using iterator = Iterator<false>;
    using const_iterator = Iterator<true>;
    iterator begin() { return {head}; }
    iterator end() { return {}; }
    const_iterator begin() const { return {head}; }
    const_iterator end() const { return {}; }
    T& front() { return static_cast<Node*>(head)->value; }
    const T& front() const { return static_cast<const Node*>(head)->value; }

    /// A new value-initialised element at the end, or null when the context has no memory left.
    T* append(ASN1CTXT* ctxt) {
        void* p = ctxt->alloc(sizeof(Node));
        if (p == nullptr) return nullptr;
        Node* n = new (p) Node;
        link(n);
        return &n->value;
    }
};

/// Memory for a T in a context, value-initialised; null when there is none left.
template <class T>
T* asn1New(ASN1CTXT* ctxt) {
    void* p = ctxt->alloc(sizeof(T));
    return p ? new (p) T{} : nullptr;
}
