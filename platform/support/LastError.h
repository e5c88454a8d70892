#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Export.h"

// The last error of the calling thread, its codes, and their texts.

PKIXCMP_API std::uint32_t GetLastError();
PKIXCMP_API void SetLastError(std::uint32_t code);

/// Writes the text of a code into `buffer` of `size` characters, cut to fit, and returns the
/// characters written, 0 when the code has no text. Flags, source, language and arguments are those
/// of the function of this name; only the system's own texts exist (flags 0x1200).
PKIXCMP_API std::uint32_t FormatMessage(std::uint32_t flags, const void* source,
                                        std::uint32_t messageId, std::uint32_t languageId,
                                        char* buffer, std::uint32_t size, void* arguments);

// Codes used by the platform layer. System codes are small numbers, those of the certificate and
// key interfaces have the top bit set.
inline constexpr std::uint32_t ERROR_SUCCESS = 0;
inline constexpr std::uint32_t ERROR_FILE_NOT_FOUND = 2;
inline constexpr std::uint32_t ERROR_ACCESS_DENIED = 5;
inline constexpr std::uint32_t ERROR_INVALID_HANDLE = 6;
inline constexpr std::uint32_t ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr std::uint32_t ERROR_INVALID_DATA = 13;
inline constexpr std::uint32_t ERROR_HANDLE_EOF = 0x26;
inline constexpr std::uint32_t ERROR_FILE_EXISTS = 80;
inline constexpr std::uint32_t ERROR_INVALID_PARAMETER = 87;
inline constexpr std::uint32_t ERROR_BAD_ARGUMENTS = 0xA0;
inline constexpr std::uint32_t ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr std::uint32_t ERROR_BUSY = 170;
inline constexpr std::uint32_t ERROR_MORE_DATA = 0xEA;
inline constexpr std::uint32_t ERROR_NO_MORE_ITEMS = 0x103;
inline constexpr std::uint32_t ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr std::uint32_t ERROR_FILE_CORRUPT = 1392;
inline constexpr std::uint32_t E_NOTIMPL = 0x80004001;
inline constexpr std::uint32_t E_INVALIDARG = 0x80070057;
inline constexpr std::uint32_t NTE_BAD_UID = 0x80090001;
inline constexpr std::uint32_t NTE_BAD_HASH = 0x80090002;
inline constexpr std::uint32_t NTE_BAD_KEY = 0x80090003;
inline constexpr std::uint32_t NTE_BAD_LEN = 0x80090004;
inline constexpr std::uint32_t NTE_BAD_DATA = 0x80090005;
inline constexpr std::uint32_t NTE_BAD_SIGNATURE = 0x80090006;
inline constexpr std::uint32_t NTE_BAD_ALGID = 0x80090008;
inline constexpr std::uint32_t NTE_BAD_FLAGS = 0x80090009;
inline constexpr std::uint32_t NTE_BAD_TYPE = 0x8009000A;
inline constexpr std::uint32_t NTE_BAD_KEY_STATE = 0x8009000B;
inline constexpr std::uint32_t NTE_BAD_HASH_STATE = 0x8009000C;
inline constexpr std::uint32_t NTE_NO_KEY = 0x8009000D;
inline constexpr std::uint32_t NTE_NO_MEMORY = 0x8009000E;
inline constexpr std::uint32_t NTE_EXISTS = 0x8009000F;
inline constexpr std::uint32_t NTE_PERM = 0x80090010;
inline constexpr std::uint32_t NTE_NOT_FOUND = 0x80090011;
inline constexpr std::uint32_t NTE_BAD_PROVIDER = 0x80090013;
inline constexpr std::uint32_t NTE_BAD_PROV_TYPE = 0x80090014;
inline constexpr std::uint32_t NTE_BAD_KEYSET = 0x80090016;
inline constexpr std::uint32_t NTE_PROV_TYPE_NOT_DEF = 0x80090017;
inline constexpr std::uint32_t NTE_KEYSET_NOT_DEF = 0x80090019;
inline constexpr std::uint32_t NTE_KEYSET_ENTRY_BAD = 0x8009001A;
inline constexpr std::uint32_t NTE_SYS_ERR = 0x80090021;
inline constexpr std::uint32_t NTE_SILENT_CONTEXT = 0x80090022;
inline constexpr std::uint32_t NTE_BAD_KEYSET_PARAM = 0x8009001F;
inline constexpr std::uint32_t NTE_FAIL = 0x80090020;
inline constexpr std::uint32_t CRYPT_E_BAD_ENCODE = 0x80092002;
inline constexpr std::uint32_t CRYPT_E_NOT_FOUND = 0x80092004;
inline constexpr std::uint32_t CRYPT_E_EXISTS = 0x80092005;
inline constexpr std::uint32_t CRYPT_E_NO_KEY_PROPERTY = 0x8009200B;
inline constexpr std::uint32_t CRYPT_E_PENDING_CLOSE = 0x8009200F;
inline constexpr std::uint32_t CRYPT_E_INVALID_NUMERIC_STRING = 0x80092020;
inline constexpr std::uint32_t CRYPT_E_INVALID_PRINTABLE_STRING = 0x80092021;
inline constexpr std::uint32_t CRYPT_E_INVALID_IA5_STRING = 0x80092022;
inline constexpr std::uint32_t CRYPT_E_INVALID_X500_STRING = 0x80092023;
inline constexpr std::uint32_t CRYPT_E_FILE_ERROR = 0x80092003;
inline constexpr std::uint32_t CRYPT_E_ASN1_BADTAG = 0x8009310B;
inline constexpr std::uint32_t SCARD_E_NO_SUCH_READER = 0x80100009;
inline constexpr std::uint32_t SCARD_W_WRONG_CHV = 0x8010006B;
inline constexpr std::uint32_t SCARD_W_CHV_BLOCKED = 0x8010006C;
inline constexpr std::uint32_t SCARD_W_CANCELLED_BY_USER = 0x8010006E;
inline constexpr std::uint32_t SCARD_E_ANSWERABLE = 0x8010002A;
