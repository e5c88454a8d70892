#include "capilite/CAException.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/support/LastError.h"
#include "platform/support/Text.h"

namespace {

constexpr std::size_t TEXT_SIZE = 512;
constexpr std::uint32_t FROM_SYSTEM_IGNORING_INSERTS = 0x1200;

/// The text for a code behind `known`, or `unknown` alone when the system has no text for it; both
/// cut to the size of the buffer.
std::string withSystemText(const std::string& known, const std::string& unknown,
                           std::uint32_t code) {
    char buffer[TEXT_SIZE] = {};
    std::size_t used = std::min(known.size(), TEXT_SIZE - 1);
    std::memcpy(buffer, known.data(), used);
    if (FormatMessage(FROM_SYSTEM_IGNORING_INSERTS, nullptr, code, 0, buffer + used,
                      static_cast<std::uint32_t>(TEXT_SIZE - used), nullptr) == 0) {
        return unknown.substr(0, TEXT_SIZE - 1);
    }
    return {buffer, strnlen(buffer, TEXT_SIZE)};
}

std::string hexadecimal(unsigned int code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", code);
    return text;
}

std::string cryptMessage(unsigned int code) {
    std::string head = support::cp1251<"Ошибка "> + hexadecimal(code);
    return withSystemText(head + ": ", head + ".", code);
}

std::string storeMessage(unsigned int code, const wchar_t* storeName) {
    std::string head = support::cp1251<"Ошибка "> + hexadecimal(code) +
                       support::cp1251<" при работе с хранилищем '"> +
                       windows1251FromWide(storeName ? storeName : L"") + "'";
    return withSystemText(head + ": ", head + ".", code);
}

}  // namespace

CAException::CAException(const char* message, const char* sourceFile, int sourceLine)
    : std::runtime_error(format_string(message, sourceFile, sourceLine)),
      file(sourceFile ? sourceFile : ""),
      line(sourceLine) {}

std::string CAException::format_string(const char* message, const char* file, int line) {
    std::string text = "Exception :'";
    text += message ? message : "";
    text += "' at file:'";
    text += file ? file : "";
    text += "' line:";
    text += std::to_string(line);
    return text;
}

CryptException::CryptException(unsigned int systemCode, const char* sourceFile, int sourceLine)
    : CAException(cryptMessage(systemCode), sourceFile, sourceLine), code(systemCode) {}

StoreException::StoreException(unsigned int code, const wchar_t* storeName, const char* sourceFile,
                               int sourceLine)
    : CAException(storeMessage(code, storeName), sourceFile, sourceLine) {}

// Defined here so that each class has its type information in this library alone.
CAException::~CAException() = default;
Asn1Exception::~Asn1Exception() = default;
Asn1DecodeException::~Asn1DecodeException() = default;
Asn1EncodeException::~Asn1EncodeException() = default;
CryptException::~CryptException() = default;
StoreException::~StoreException() = default;
CAValidateException::~CAValidateException() = default;
date_exception::~date_exception() = default;
