#pragma once

#include <algorithm>
#include <concepts>
#include <string_view>
#include <type_traits>

#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/Schema.h"

// Builders of schemas from typed member pointers. Mistakes stop the compilation: the text after
// `throw` stands in the compiler's message. Names of fields are the names of their members, with
// "-" for "_". The marks of a record stand in the order of its optional and defaulted fields.

namespace asn1 {

// ---- Names ------------------------------------------------------------------------------------

template <std::size_t N>
struct Literal {
    char text[N] = {};
    consteval Literal(const char (&s)[N]) { std::copy_n(s, N, text); }
};
template <Literal L>
inline constexpr Literal storedLiteral = L;

template <auto Member>
consteval std::string_view memberName() {
    std::string_view s = __PRETTY_FUNCTION__;
    s = s.substr(0, s.find_first_of(";]", s.find("Member = ")));
    return s.substr(s.rfind(':') + 1);
}

template <auto Member>
struct MemberName {
    char text[memberName<Member>().size() + 1] = {};
    consteval MemberName() {
        std::ranges::transform(memberName<Member>(), text,
                               [](char c) { return c == '_' ? '-' : c; });
    }
};
template <auto Member>
inline constexpr MemberName<Member> storedMemberName{};

// ---- Places -----------------------------------------------------------------------------------

template <class T, class M>
constexpr std::uint32_t offsetOf(M T::*member) {
    union Overlay {
        T value;
        char bytes[sizeof(T)];
        constexpr Overlay() : bytes{} {}
        constexpr ~Overlay() {}
    } overlay;
    for (std::uint32_t i = 0; i < sizeof(T); ++i) {
        if (static_cast<const void*>(&overlay.bytes[i]) ==
            static_cast<const void*>(&(overlay.value.*member))) {
            return i;
        }
    }
    throw "the member lies outside its record";
}

template <class>
struct MemberTraits;
template <class T, class M>
struct MemberTraits<M T::*> {
    using Record = T;
    using Value = M;
};
template <auto Member>
using RecordOf = typename MemberTraits<decltype(Member)>::Record;
template <auto Member>
using ValueOf = typename MemberTraits<decltype(Member)>::Value;

// ---- Primitive types --------------------------------------------------------------------------

template <class T>
constexpr Type primitive(Kind kind, std::uint8_t id, const char* name) {
    static_assert(std::is_trivially_copyable_v<T> && alignof(T) <= 8);
    return {.kind = kind, .id = id, .size = sizeof(T), .name = name};
}

inline constexpr Type boolean = primitive<ASN1TBool>(Kind::boolean, tagBoolean, "BOOLEAN");
inline constexpr Type integer = primitive<std::int32_t>(Kind::integer, tagInteger, "INTEGER");
inline constexpr Type unsignedInteger =
    primitive<std::uint32_t>(Kind::unsignedInteger, tagInteger, "INTEGER");
inline constexpr Type bigInteger = primitive<ASN1TBigInt>(Kind::bigInteger, tagInteger, "INTEGER");
inline constexpr Type enumerated =
    primitive<std::int32_t>(Kind::enumerated, tagEnumerated, "ENUMERATED");
inline constexpr Type bitString =
    primitive<ASN1TDynBitStr>(Kind::bitString, tagBitString, "BIT_STRING");
inline constexpr Type octetString =
    primitive<ASN1TDynOctStr>(Kind::octetString, tagOctetString, "OCTET_STRING");
inline constexpr Type null = primitive<asn1::Kind>(Kind::null, tagNull, "NULL");
inline constexpr Type objectIdentifier =
    primitive<ASN1TObjId>(Kind::objectIdentifier, tagObjectIdentifier, "OBJECT_IDENTIFIER");
inline constexpr Type any = primitive<ASN1OpenType>(Kind::any, 0, "ANY");
/// An OCTET STRING that holds the encoding of an open type.
inline constexpr Type wrapped =
    primitive<ASN1OpenType>(Kind::wrapped, tagOctetString, "OCTET_STRING");
/// An encoding that is kept whole, tag included.
inline constexpr Type raw = primitive<ASN1TDynOctStr>(Kind::raw, 0, "ANY");

constexpr Type stringType(std::uint8_t id, const char* name) {
    return primitive<ASN1TString>(Kind::string, id, name);
}
inline constexpr Type utf8String = stringType(tagUtf8String, "UTF8String");
inline constexpr Type numericString = stringType(tagNumericString, "NumericString");
inline constexpr Type printableString = stringType(tagPrintableString, "PrintableString");
inline constexpr Type teletexString = stringType(tagTeletexString, "TeletexString");
inline constexpr Type ia5String = stringType(tagIa5String, "IA5String");
inline constexpr Type visibleString = stringType(tagVisibleString, "VisibleString");
inline constexpr Type universalString = stringType(tagUniversalString, "UniversalString");
inline constexpr Type bmpString = stringType(tagBmpString, "BMPString");
inline constexpr Type utcTime = stringType(tagUtcTime, "UTCTime");
inline constexpr Type generalizedTime = stringType(tagGeneralizedTime, "GeneralizedTime");

/// A type of its own name over a primitive one. T holds one value of the primitive's C++ type.
template <class T>
constexpr Type renamed(const Type& base, const char* name) {
    static_assert(std::is_trivially_copyable_v<T>);
    Type type = base;
    type.name = name;
    if (base.kind != Kind::null && sizeof(T) != base.size) throw "T is no value of the base type";
    type.size = sizeof(T);
    return type;
}

/// The same with names of bits or numbers.
template <class T, std::size_t N>
constexpr Type renamed(const Type& base, const char* name, const char* const (&names)[N]) {
    Type type = renamed<T>(base, name);
    type.names = names;
    type.nameCount = N;
    return type;
}

// ---- Lists ------------------------------------------------------------------------------------

template <class List>
constexpr Type list(Kind kind, std::uint8_t id, const Type& element, const char* name) {
    using Element = typename List::value_type;
    static_assert(std::is_base_of_v<ASN1TSeqOf<Element>, List>);
    static_assert(sizeof(List) == sizeof(ASN1CSeqOfList) && alignof(Element) <= 8);
    static_assert(sizeof(typename List::Node) == (nodeValueOffset + sizeof(Element) + 7) / 8 * 8);
    Type type = primitive<List>(kind, id, name);
    type.element = &element;
    return type;
}
template <class List>
constexpr Type sequenceOf(const Type& element, const char* name) {
    return list<List>(Kind::sequenceOf, tagSequence, element, name);
}
template <class List>
constexpr Type setOf(const Type& element, const char* name) {
    return list<List>(Kind::setOf, tagSet, element, name);
}

constexpr Type revokedCertificates(const Type& entry, const char* name) {
    Type type = primitive<asn1data::ASN1T_RevokedCertificates>(Kind::revoked, tagSequence, name);
    type.element = &entry;
    return type;
}

// ---- The type that a member has unless its schema says otherwise
// ---------------------------------

template <class M>
struct DefaultType {
    static constexpr const Type* type = &Schema<M>::type;
};
template <class M>
requires std::is_pointer_v<M>
struct DefaultType<M> : DefaultType<std::remove_pointer_t<M>> {
};
template <>
struct DefaultType<ASN1TBigInt> {
    static constexpr const Type* type = &bigInteger;
};
template <>
struct DefaultType<ASN1TBool> {
    static constexpr const Type* type = &boolean;
};
template <>
struct DefaultType<std::int32_t> {
    static constexpr const Type* type = &integer;
};
template <>
struct DefaultType<std::uint32_t> {
    static constexpr const Type* type = &unsignedInteger;
};
template <>
struct DefaultType<ASN1TDynBitStr> {
    static constexpr const Type* type = &bitString;
};
template <>
struct DefaultType<ASN1TDynOctStr> {
    static constexpr const Type* type = &octetString;
};
template <>
struct DefaultType<ASN1TObjId> {
    static constexpr const Type* type = &objectIdentifier;
};
template <>
struct DefaultType<ASN1OpenType> {
    static constexpr const Type* type = &any;
};
template <class T>
inline constexpr Type namelessList = sequenceOf<ASN1TSeqOf<T>>(*DefaultType<T>::type,
                                                               "SEQUENCE_OF");
template <class T>
struct DefaultType<ASN1TSeqOf<T>> {
    static constexpr const Type* type = &namelessList<T>;
};

// ---- Fields -----------------------------------------------------------------------------------

/// A context tag, at most 30.
struct Tag {
    std::uint8_t number = 0;
    bool given = false;
    bool isExplicit = false;
};
inline constexpr Tag untagged{};
constexpr Tag implicit(std::uint8_t n) { return {n, true, false}; }
constexpr Tag explicitly(std::uint8_t n) { return {n, true, true}; }

constexpr bool isConstructed(const Type& type) {
    return type.kind == Kind::sequence || type.kind == Kind::sequenceOf ||
           type.kind == Kind::setOf || type.kind == Kind::revoked || type.kind == Kind::raw;
}

/// Name, type and tag of a field.
constexpr Field field(const char* name, const Type& type, Tag tag) {
    if (tag.number > 30) throw "tag numbers above 30 are not supported";
    Field f{.name = name, .type = &type};
    bool open = type.kind == Kind::choice || type.kind == Kind::any;
    if (tag.given && !tag.isExplicit && open) throw "a CHOICE or ANY cannot be tagged implicitly";
    if (tag.given && tag.isExplicit) {
        f.id = static_cast<std::uint8_t>(0xA0 | tag.number);
        f.explicitTag = true;
    } else if (tag.given) {
        f.id = static_cast<std::uint8_t>((isConstructed(type) ? 0xA0 : 0x80) | tag.number);
    } else {
        f.id = type.id;
    }
    bool string = type.kind == Kind::bitString || type.kind == Kind::octetString ||
                  type.kind == Kind::string || type.kind == Kind::wrapped;
    f.idMask = f.id == 0 ? 0 : string && !f.explicitTag ? 0xDF : 0xFF;
    return f;
}

template <auto Member, Tag tag = untagged, const Type* type = DefaultType<ValueOf<Member>>::type>
struct Required {
    using Record = RecordOf<Member>;
    using Value = ValueOf<Member>;
    static constexpr Field make() {
        Field f = field(storedMemberName<Member>.text, *type, tag);
        if (type->size != sizeof(Value)) throw "the member does not hold a value of the type";
        f.offset = offsetOf(Member);
        return f;
    }
};

template <auto Member, Tag tag = untagged, const Type* type = DefaultType<ValueOf<Member>>::type>
struct Optional : Required<Member, tag, type> {
    static constexpr Field make() {
        Field f = Required<Member, tag, type>::make();
        f.presence = Presence::optional;
        return f;
    }
};

template <auto Member, std::int32_t value, Tag tag = untagged>
struct Defaulted : Required<Member, tag> {
    static constexpr Field make() {
        Field f = Required<Member, tag>::make();
        if (f.type->kind != Kind::integer && f.type->kind != Kind::boolean) {
            throw "only numbers and booleans have a DEFAULT";
        }
        f.presence = Presence::defaulted;
        f.defaultValue = value;
        return f;
    }
};

/// An open type, or a list of them, whose type an object set finds by the identifier in `Id`.
template <class F, auto Id, ObjectSet set>
struct Open : F {
    static_assert(std::same_as<ValueOf<Id>, ASN1TObjId>);
    static constexpr Field make() {
        Field f = F::make();
        f.set = set;
        f.idOffset = offsetOf(Id);
        return f;
    }
};

// ---- Records ----------------------------------------------------------------------------------

/// Whether encodings of the two fields can start with the same octet.
constexpr bool clash(const Field& a, const Field& b) {
    if (a.id == 0 && a.type->kind == Kind::choice) {
        for (int i = 0; i < a.type->fieldCount; ++i) {
            if (clash(a.type->fields[i], b)) return true;
        }
        return false;
    }
    if (b.id == 0 && b.type->kind == Kind::choice) return clash(b, a);
    if (a.id == 0 || b.id == 0) return true;
    return ((a.id ^ b.id) & a.idMask & b.idMask) == 0;
}

constexpr void checkFields(const Field* fields, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = i; fields[k].presence != Presence::required; ++k) {
            if (k + 1 == count) break;
            if (clash(fields[i], fields[k + 1])) throw "an optional field is ambiguous";
        }
        if (fields[i].idOffset == noOffset) continue;
        bool earlier = false;
        for (std::size_t k = 0; k < i; ++k) earlier |= fields[k].offset == fields[i].idOffset;
        if (!earlier) throw "the identifier of an open type does not stand in front of it";
    }
}

/// Checks that members follow one another without a gap that another member would fit in.
struct LayoutCheck {
    std::size_t end = 0;
    constexpr void add(std::size_t offset, std::size_t size, std::size_t align) {
        if (offset != (end + align - 1) / align * align) throw "a member is forgotten or swapped";
        end = offset + size;
    }
};

template <class T>
constexpr std::uint32_t marksOffset() {
    if constexpr (requires(T t) { t.m; }) {
        return offsetOf(&T::m);
    } else {
        return noOffset;
    }
}

template <class T, class... F>
struct FieldTable {
    Field fields[sizeof...(F)] = {};

    constexpr FieldTable() {
        static_assert((std::same_as<typename F::Record, T> && ...));
        LayoutCheck layout;
        std::uint32_t marks = marksOffset<T>(), mark = 0;
        if constexpr (requires(T t) { t.m; }) {
            layout.add(marks, sizeof(T::m), alignof(decltype(T::m)));
        }
        std::size_t i = 0;
        (place<F>(fields[i++], layout, marks, mark), ...);
        if constexpr (requires(T t) { t.m; }) {
            if (mark != sizeof(T::m)) throw "marks and optional fields differ in number";
        }
        layout.add(sizeof(T), 0, alignof(T));
        checkFields(fields, sizeof...(F));
    }

private:
    template <class One>
    constexpr void place(Field& f, LayoutCheck& layout, std::uint32_t marks, std::uint32_t& mark) {
        f = One::make();
        layout.add(f.offset, sizeof(typename One::Value), alignof(typename One::Value));
        if (f.presence == Presence::required) return;
        if (marks == noOffset) throw "a record with optional fields needs marks";
        f.mark = marks + mark++;
    }
};
template <class T, class... F>
inline constexpr FieldTable<T, F...> fieldTable{};

template <class T, class... F>
constexpr Type sequence(const char* name) {
    Type type = primitive<T>(Kind::sequence, tagSequence, name);
    type.fields = fieldTable<T, F...>.fields;
    type.fieldCount = sizeof...(F);
    return type;
}

// ---- Alternatives -----------------------------------------------------------------------------

/// An alternative that has a member of its own in the union.
template <auto Member, Tag tag = untagged, const Type* type = DefaultType<ValueOf<Member>>::type>
struct Alternative {
    static constexpr Field make() {
        Field f = field(storedMemberName<Member>.text, *type, tag);
        f.pointer =
            std::is_pointer_v<ValueOf<Member>> && !std::same_as<ValueOf<Member>, ASN1TBigInt>;
        if (!f.pointer && type->size != sizeof(ValueOf<Member>)) {
            throw "the member does not hold a value of the type";
        }
        return f;
    }
};

/// An alternative that shares its member with others, or has none.
template <Literal name, const Type* type, Tag tag = untagged>
struct Shared {
    static constexpr Field make() { return field(storedLiteral<name>.text, *type, tag); }
};

template <class T, class... A>
struct AlternativeTable {
    Field fields[sizeof...(A)] = {A::make()...};

    constexpr AlternativeTable() {
        for (std::size_t i = 0; i < sizeof...(A); ++i) {
            fields[i].offset = offsetOf(&T::u);
            if (fields[i].id == 0) throw "an alternative has no tag of its own";
            for (std::size_t k = 0; k < i; ++k) {
                if (clash(fields[i], fields[k])) throw "two alternatives share a tag";
            }
        }
    }
};
template <class T, class... A>
inline constexpr AlternativeTable<T, A...> alternativeTable{};

template <class T, class... A>
constexpr Type choice(const char* name) {
    static_assert(std::same_as<decltype(T::t), int>);
    if (offsetOf(&T::t) != 0) throw "`t` must come first";
    Type type = primitive<T>(Kind::choice, 0, name);
    type.fields = alternativeTable<T, A...>.fields;
    type.fieldCount = sizeof...(A);
    return type;
}

}  // namespace asn1
