#include "capilite/Name.h"

#include <algorithm>

#include "capilite/CAException.h"
#include "capilite/NameSyntax.h"
#include "capilite/RecordCoding.h"

namespace {

using capilite::NAME_END;

/// Steps over the separator at the position and the white space behind it. False at the end of the
/// text.
bool stepOver(const std::wstring& text, unsigned long& position) {
    position = text.find_first_not_of(capilite::NAME_WHITE_SPACE, position + 1);
    return position != NAME_END;
}

bool isSeparator(const std::wstring& text, unsigned long position, unsigned int flags) {
    return position < text.size() &&
           capilite::inputSeparators(flags).find(text[position]) != std::wstring_view::npos;
}

template <class Record>
auto& appendTo(Record& list, ASN1CTXT* ctxt) {
    auto* item = list.append(ctxt);
    if (item == nullptr) PKIXCMP_THROW(CAException, "out of memory");
    return *item;
}

/// One text for each RDN, by which names are compared.
std::vector<std::wstring> texts(const CACMPT_Name& name) {
    std::vector<std::wstring> result;
    for (const CACMPT_RelativeDistinguishedName& rdn : name) {
        result.push_back(rdn.toString(CACMPT_NAME_NO_PLUS));
    }
    return result;
}

void readName(CACMPT_Name& name, const std::wstring& text, unsigned int flags,
              unsigned long& position) {
    while (position < text.size()) {
        name.push_back(CACMPT_RelativeDistinguishedName(text, flags, position));
        if (!isSeparator(text, position, flags) || !stepOver(text, position)) break;
    }
    if (flags & CACMPT_NAME_REVERSE) name.reverse();
}

}  // namespace

// ---- RDN ----

void CACMPT_RelativeDistinguishedName::fromString(const std::wstring& text, unsigned int flags) {
    unsigned long position = 0;
    fromString(text, flags, position);
}

void CACMPT_RelativeDistinguishedName::fromString(const std::wstring& text, unsigned int flags,
                                                  unsigned long& position) {
    const bool joined = (flags & CACMPT_NAME_NO_PLUS) == 0;
    CACMPT_RelativeDistinguishedName read;
    do {
        read.push_back(CACMPT_AttributeTypeAndValue(text, position, CACMPT_NoString, flags));
        if (position >= text.size() || text[position] != L'+' || !joined) break;
        // A "+" with nothing behind it wants an attribute all the same, and fails there.
        if (!stepOver(text, position)) position = text.size();
    } while (true);
    swap(read);
    keepsOrder_ = false;
}

std::wstring CACMPT_RelativeDistinguishedName::toString(unsigned int flags) const {
    const wchar_t* joint = flags & CACMPT_NAME_NO_PLUS ? L" " : L" + ";
    std::wstring text;
    for (auto it = begin(); it != end(); ++it) {
        if (it != begin()) text += joint;
        text += it->toString(flags);
    }
    return text;
}

CACMPT_BLOB CACMPT_RelativeDistinguishedName::encode() const {
    return asn1Encode<ASN1T_RelativeDistinguishedName_traits>(*this);
}

void CACMPT_RelativeDistinguishedName::decode(const CACMPT_BLOB& encoded) {
    asn1Decode<ASN1T_RelativeDistinguishedName_traits>(encoded, *this);
}

// ---- Name ----

void CACMPT_Name::fromString(const std::wstring& text, unsigned int flags,
                             unsigned long* position) {
    unsigned long own = 0;
    unsigned long& at = position ? *position : own;
    at = 0;
    fromString(text, flags, at);
}

void CACMPT_Name::fromString(const std::wstring& text, unsigned int flags,
                             unsigned long& position) {
    CACMPT_Name read;
    readName(read, text, flags, position);
    swap(read);
}

std::wstring CACMPT_Name::toString(unsigned int flags) const {
    const wchar_t* separator = flags & CACMPT_NAME_SEMICOLON ? L"; "
                               : flags & CACMPT_NAME_CRLF    ? L"\r\n"
                                                             : L", ";
    std::wstring text;
    auto write = [&](auto first, auto last) {
        for (auto it = first; it != last; ++it) {
            if (it != first) text += separator;
            text += it->toString(flags);
        }
    };
    if (flags & CACMPT_NAME_REVERSE) {
        write(rbegin(), rend());
    } else {
        write(begin(), end());
    }
    return text;
}

CACMPT_BLOB CACMPT_Name::encode() const { return asn1Encode<ASN1T_Name_traits>(*this); }

void CACMPT_Name::decode(const CACMPT_BLOB& encoded) {
    asn1Decode<ASN1T_Name_traits>(encoded, *this);
}

bool operator==(const CACMPT_Name& a, const CACMPT_Name& b) {
    if (a.size() != b.size()) return false;
    const std::vector<std::wstring> first = texts(a), second = texts(b);
    return std::all_of(first.begin(), first.end(), [&second](const std::wstring& text) {
        return std::find(second.begin(), second.end(), text) != second.end();
    });
}

// ---- Records ----

void ASN1T_RelativeDistinguishedName_traits::set(ASN1CTXT* ctxt, record_type& target,
                                                 const value_type& source) {
    target.clear();
    target.decoded = source.keepsOrder();
    for (const CACMPT_AttributeTypeAndValue& attribute : source) {
        ASN1T_AttributeTypeAndValue_traits::set(ctxt, appendTo(target, ctxt), attribute);
    }
}

void ASN1T_RelativeDistinguishedName_traits::get(const record_type& source, value_type& target) {
    CACMPT_RelativeDistinguishedName read;
    read.reserve(source.count);
    for (const asn1data::ASN1T_AttributeTypeAndValue& attribute : source) {
        ASN1T_AttributeTypeAndValue_traits::get(attribute, read.emplace_back());
    }
    target.swap(read);
    target.keepOrder(source.decoded);
}

void ASN1T_RelativeDistinguishedName_traits::copy(ASN1CTXT* ctxt, const record_type& source,
                                                  record_type& target) {
    asn1CopyRecord(ctxt, source, target);
}

void ASN1T_Name_traits::set(ASN1CTXT* ctxt, record_type& target, const value_type& source) {
    target.t = record_type::T_rdnSequence;
    target.u.rdnSequence.clear();
    for (const CACMPT_RelativeDistinguishedName& rdn : source) {
        ASN1T_RelativeDistinguishedName_traits::set(ctxt, appendTo(target.u.rdnSequence, ctxt),
                                                    rdn);
    }
}

void ASN1T_Name_traits::get(const record_type& source, value_type& target) {
    CACMPT_Name read;
    for (const asn1data::ASN1T_RelativeDistinguishedName& rdn : source.u.rdnSequence) {
        ASN1T_RelativeDistinguishedName_traits::get(rdn, read.emplace_back());
    }
    target.swap(read);
}

void ASN1T_Name_traits::copy(ASN1CTXT* ctxt, const record_type& source, record_type& target) {
    asn1CopyRecord(ctxt, source, target);
}
