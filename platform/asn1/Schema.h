#pragma once

#include <cstdint>
#include <string>

#include "platform/asn1/BasicTypes.h"
#include "platform/asn1/Tlv.h"

// What the interpreters walk: a description of each ASN.1 type together with where its parts lie in
// the C++ type that holds its values. Built at compile time by SchemaBuilder.h; immutable.

namespace asn1 {

enum class Kind : std::uint8_t {
    boolean,           // ASN1TBool
    integer,           // std::int32_t
    unsignedInteger,   // std::uint32_t
    bigInteger,        // ASN1TBigInt
    enumerated,        // std::int32_t
    bitString,         // ASN1TDynBitStr
    octetString,       // ASN1TDynOctStr
    null,              // nothing
    objectIdentifier,  // ASN1TObjId
    string,            // ASN1TString; the universal tag in `id` says which
    any,               // ASN1OpenType
    wrapped,           // ASN1OpenType: an OCTET STRING around the encoding
    raw,               // ASN1TDynOctStr: the whole encoding, of any type
    sequence,          // a record
    choice,            // a record that starts with the int `t`
    sequenceOf,        // ASN1CSeqOfList
    setOf,             // ASN1CSeqOfList
    revoked            // asn1data::ASN1T_RevokedCertificates
};

enum class Presence : std::uint8_t { required, optional, defaulted };

struct Type;
/// The type that an object set puts behind an identifier, or null.
using ObjectSet = const Type* (*)(const ASN1TObjId& id);

inline constexpr std::uint32_t noOffset = 0xFFFFFFFF;

/// A field of a SEQUENCE or an alternative of a CHOICE.
struct Field {
    const char* name = nullptr;
    const Type* type = nullptr;
    std::uint32_t offset = 0;
    std::uint32_t mark = noOffset;  // of the bool that says "present", or "written" for a DEFAULT
    std::uint8_t id = 0;            // the first identifier octet; 0 for an untagged CHOICE or ANY
    std::uint8_t idMask = 0xFF;     // bits of it that count: strings may be constructed
    bool explicitTag = false;       // `id` stands in front of the type's own identifier
    bool pointer = false;           // an alternative that is held by pointer
    Presence presence = Presence::required;
    std::int32_t defaultValue = 0;
    ObjectSet set = nullptr;            // for open types, which type stands behind
    std::uint32_t idOffset = noOffset;  // the identifier at this offset
};

struct Type {
    Kind kind = Kind::null;
    std::uint8_t id = 0;  // universal identifier octet; 0 for CHOICE and ANY
    std::uint16_t fieldCount = 0;
    std::uint16_t nameCount = 0;
    std::uint32_t size = 0;  // of the C++ type
    const char* name = nullptr;
    const Field* fields = nullptr;  // of a SEQUENCE; alternatives in the order of `t`
    const Type* element = nullptr;  // of SEQUENCE OF and SET OF
    const char* const* names =
        nullptr;  // of bits or of ENUMERATED values; null where one is missing
};

/// Values stand behind the links of a list node.
inline constexpr std::uint32_t nodeValueOffset = sizeof(ASN1CSeqOfList::NodeBase);

inline bool isStringKind(Kind kind) {
    return kind == Kind::bitString || kind == Kind::octetString || kind == Kind::string ||
           kind == Kind::wrapped;
}

template <class T>
T& at(void* value, std::uint32_t offset = 0) {
    return *reinterpret_cast<T*>(static_cast<char*>(value) + offset);
}
template <class T>
const T& at(const void* value, std::uint32_t offset = 0) {
    return *reinterpret_cast<const T*>(static_cast<const char*>(value) + offset);
}

/// Whether an encoding that starts with the octet can be a value of the type.
bool accepts(const Type& type, std::uint8_t octet);

/// The alternative that an encoding's first octet selects; its index is `t` minus one. -1 for none.
inline int findAlternative(const Type& choice, std::uint8_t octet) {
    for (int i = 0; i < choice.fieldCount; ++i) {
        const Field& f = choice.fields[i];
        if ((octet & f.idMask) == f.id) return i;
    }
    return -1;
}

/// Whether a field holds its DEFAULT.
inline bool isDefault(const Field& field, const void* record) {
    if (field.presence != Presence::defaulted) return false;
    if (field.type->kind == Kind::boolean) {
        return static_cast<bool>(at<ASN1TBool>(record, field.offset)) == (field.defaultValue != 0);
    }
    return at<std::int32_t>(record, field.offset) == field.defaultValue;
}

/// Whether a field is to be written: marked, or different from its DEFAULT.
inline bool isWritten(const Field& field, const void* record) {
    if (field.presence == Presence::required || at<bool>(record, field.mark)) return true;
    return field.presence == Presence::defaulted && !isDefault(field, record);
}

/// Where the value of an alternative lies; null for a pointer that is null.
inline const void* alternativeValue(const Field& alternative, const void* choice) {
    const void* slot = static_cast<const char*>(choice) + alternative.offset;
    return alternative.pointer ? *static_cast<const void* const*>(slot) : slot;
}

/// Field names from a fault outwards, collected while a failure unwinds and put into the context's
/// error at the end. Costs nothing until something fails.
class FaultPath {
public:
    void name(const char* field) { push({field, 0}); }
    void index(std::uint32_t i) { push({nullptr, i}); }
    void clear() { count_ = 0; }
    void addTo(ASN1CTXT& ctxt) const {
        for (int i = 0; i < count_; ++i) {
            ctxt.addPath(steps_[i].field ? std::string(steps_[i].field)
                                         : "[" + std::to_string(steps_[i].index) + "]");
        }
    }

private:
    struct Step {
        const char* field;
        std::uint32_t index;
    };
    void push(Step step) {
        if (count_ < capacity) steps_[count_++] = step;
    }
    static constexpr int capacity = 2 * maxDepth;
    Step steps_[capacity];
    int count_ = 0;
};

/// Counts a level of nesting while it lives.
class DepthGuard {
public:
    explicit DepthGuard(int& depth) : depth_(depth) { ++depth_; }
    ~DepthGuard() { --depth_; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    bool tooDeep() const { return depth_ > maxDepth; }

private:
    int& depth_;
};

/// Lets a context take no more than `more` octets beyond what it holds, while it lives. A tighter
/// limit in force stays so.
class Budget {
public:
    Budget(ASN1CTXT& ctxt, std::size_t more) : ctxt_(ctxt) {
        std::size_t limit = ctxt.used() + more;
        before_ = ctxt.setLimit(limit);
        if (before_ < limit) ctxt.setLimit(before_);
    }
    ~Budget() { ctxt_.setLimit(before_); }
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

private:
    ASN1CTXT& ctxt_;
    std::size_t before_;
};

/// Decodes a value that must use up the input, which is copied into the context first.
int decodeBer(ASN1CTXT* ctxt, const Type& type, const std::uint8_t* data, std::size_t length,
              void* value, bool* lossy);

}  // namespace asn1
