#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/asn1/Runtime.h"

/// Encodings written as text: hexadecimal octets, 'characters', and `{...}` for a definite length
/// and what it covers. `30{06{2A0304}0C{'abc'}}`. `$Name` is the encoding kept under a name, and
/// `%Name` its content without identifier and length, for implicit tags.
class DerText {
public:
    static std::string bytes(std::string_view text) { return DerText().make(text); }

    std::string make(std::string_view text) {
        std::string out = run(text);
        if (!text.empty()) throw std::runtime_error("unbalanced " + std::string(text));
        return out;
    }
    void keep(const std::string& name, const std::string& encoding) { kept_[name] = encoding; }

    static std::string withLength(const std::string& content) {
        std::size_t n = content.size();
        std::string length;
        if (n < 128) return std::string(1, static_cast<char>(n)) + content;
        for (; n != 0; n >>= 8) length.insert(0, 1, static_cast<char>(n));
        return std::string(1, static_cast<char>(0x80 | length.size())) + length + content;
    }

private:
    std::string run(std::string_view& text) {
        std::string out;
        while (!text.empty() && text.front() != '}') {
            char c = text.front();
            if (c == ' ') {
                text.remove_prefix(1);
            } else if (c == '{') {
                text.remove_prefix(1);
                out += withLength(run(text));
                if (text.empty()) throw std::runtime_error("unbalanced");
                text.remove_prefix(1);
            } else if (c == '\'') {
                std::size_t end = text.find('\'', 1);
                out += text.substr(1, end - 1);
                text.remove_prefix(end + 1);
            } else if (c == '$' || c == '%') {
                std::size_t end = 1;
                while (end < text.size() && (std::isalnum(text[end]) || text[end] == '_')) ++end;
                const std::string& whole = kept_.at(std::string(text.substr(1, end - 1)));
                out += c == '$' ? whole : content(whole);
                text.remove_prefix(end);
            } else {
                out += static_cast<char>(std::stoi(std::string(text.substr(0, 2)), nullptr, 16));
                text.remove_prefix(2);
            }
        }
        return out;
    }
    static std::string content(const std::string& whole) {
        auto first = static_cast<unsigned char>(whole.at(1));
        return whole.substr(first < 0x80 ? 2 : 2 + (first & 0x7F));
    }

    std::map<std::string, std::string> kept_;
};

inline std::string hexOf(std::string_view bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        out += "0123456789ABCDEF"[c >> 4];
        out += "0123456789ABCDEF"[c & 15];
    }
    return out;
}

inline const std::uint8_t* octetsOf(std::string_view bytes) {
    return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

inline int decodeText(ASN1CTXT* ctxt, const asn1::Type& type, std::string_view bytes, void* value) {
    return rtDecodeBer(ctxt, type, octetsOf(bytes), bytes.size(), value);
}

/// The encoding of a value, or the error's text.
inline std::string encodeOrError(const asn1::Type& type, const void* value) {
    ASN1CtxtRef context;
    const std::uint8_t* bytes = nullptr;
    int length = rtEncodeDer(context.get(), type, value, &bytes);
    if (length < 0) return rtErrGetText(context.get());
    return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

/// The same of a value whose schema goes by its type.
template <class T>
std::string encodeOrError(const T& value) {
    return encodeOrError(Schema<T>::type, &value);
}

/// XER text of an encoding, or the error's text.
inline std::string xerOf(const asn1::Type& type, const std::string& der) {
    ASN1CtxtRef context;
    void* value = rtNewValue(context.get(), type);
    std::string xer;
    if (decodeText(context.get(), type, der, value) < 0 ||
        rtEncodeXer(context.get(), type, value, xer) < 0) {
        return rtErrGetText(context.get());
    }
    return xer;
}
