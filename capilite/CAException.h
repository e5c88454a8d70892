#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/Export.h"

// The failures of the library. A function that cannot do its job throws a member of this family.
// Each carries the path of the source that threw it, relative to the source tree and without
// extension, and the line; both also stand in the text of `what`.

class PKIXCMP_API CAException : public std::runtime_error {
public:
    CAException(const char* message, const char* file, int line);
    CAException(const std::string& message, const char* sourceFile, int sourceLine)
        : CAException(message.c_str(), sourceFile, sourceLine) {}
    ~CAException() override;

    /// "Exception :'" message "' at file:'" file "' line:" line.
    static std::string format_string(const char* message, const char* file, int line);

    std::string file;
    std::int32_t line;
};

/// A failure reported by the ASN.1 runtime, with its text; also files that cannot be read.
class PKIXCMP_API Asn1Exception : public CAException {
public:
    using CAException::CAException;
    ~Asn1Exception() override;
};

/// Input that is well-formed for the runtime but unacceptable here.
class PKIXCMP_API Asn1DecodeException : public Asn1Exception {
public:
    using Asn1Exception::Asn1Exception;
    ~Asn1DecodeException() override;
};

/// A value that cannot be put into its ASN.1 form.
class PKIXCMP_API Asn1EncodeException : public Asn1Exception {
public:
    using Asn1Exception::Asn1Exception;
    ~Asn1EncodeException() override;
};

/// A failed call of the cryptographic interface. The text is in Windows-1251.
class PKIXCMP_API CryptException : public CAException {
public:
    CryptException(unsigned int code, const char* file, int line);
    ~CryptException() override;

    std::uint32_t code;  // of GetLastError or the failing call's result
};

/// A failed operation on a named store. The code survives only in the text, which is in
/// Windows-1251.
class PKIXCMP_API StoreException : public CAException {
public:
    StoreException(unsigned int code, const wchar_t* storeName, const char* file, int line);
    ~StoreException() override;
};

class PKIXCMP_API CAValidateException : public CAException {
public:
    using CAException::CAException;
    ~CAValidateException() override;
};

/// Broken-down time that the calendar conversion refuses.
class PKIXCMP_API date_exception : public CAException {
public:
    using CAException::CAException;
    ~date_exception() override;
};

namespace pkixcmp_detail {

/// The path of a source without its extension. `__FILE__` is relative to the source tree by the
/// build's -fmacro-prefix-map.
template <std::size_t N>
struct SourcePath {
    char text[N] = {};
    consteval SourcePath(const char (&file)[N]) {
        std::size_t end = N - 1;
        for (std::size_t i = N - 1; i > 0 && file[i] != '/'; --i) {
            if (file[i] == '.') end = i;
        }
        for (std::size_t i = 0; i < end; ++i) text[i] = file[i];
    }
};
template <SourcePath Path>
inline constexpr const char* sourcePath = Path.text;

}  // namespace pkixcmp_detail

/// The source path that failures of this file carry. A file whose failures carry another path says
/// so after its includes: #undef PKIXCMP_SOURCE / #define PKIXCMP_SOURCE "pkixcmp/CA_CMP_Root".
#define PKIXCMP_SOURCE (pkixcmp_detail::sourcePath<__FILE__>)

/// Throws a failure with this source's path and line: PKIXCMP_THROW(CAException, "text").
#define PKIXCMP_THROW(Type, ...) throw Type(__VA_ARGS__, PKIXCMP_SOURCE, __LINE__)
