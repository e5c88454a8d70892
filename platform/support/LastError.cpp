#include "platform/support/LastError.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

thread_local std::uint32_t lastError = ERROR_SUCCESS;

struct CodeText {
    std::uint32_t code;
    std::string_view text;
};

// CRYPT_E_BAD_ENCODE has no row: it says no more than its number, and failures that carry it print
// the number alone.
constexpr CodeText texts[] = {
    {ERROR_SUCCESS, "The operation completed successfully."},
    {ERROR_FILE_NOT_FOUND, "The system cannot find the file specified."},
    {ERROR_ACCESS_DENIED, "Access is denied."},
    {ERROR_INVALID_HANDLE, "The handle is invalid."},
    {ERROR_NOT_ENOUGH_MEMORY, "Not enough memory to carry out this operation."},
    {ERROR_INVALID_DATA, "The data is invalid."},
    {ERROR_HANDLE_EOF, "The end of the file has been reached."},
    {ERROR_FILE_EXISTS, "The file exists."},
    {ERROR_INVALID_PARAMETER, "The parameter is incorrect."},
    {ERROR_BAD_ARGUMENTS, "One or more arguments are not correct."},
    {ERROR_INSUFFICIENT_BUFFER, "The buffer is too small for the data."},
    {ERROR_BUSY, "The requested resource is in use."},
    {ERROR_MORE_DATA, "More data is available."},
    {ERROR_NO_MORE_ITEMS, "No more data is available."},
    {ERROR_NO_UNICODE_TRANSLATION, "A character has no form in the target code page."},
    {ERROR_FILE_CORRUPT, "The file or folder is damaged and cannot be read."},
    {E_NOTIMPL, "Not implemented."},
    {E_INVALIDARG, "One or more arguments are invalid."},
    {NTE_BAD_UID, "Bad provider context."},
    {NTE_BAD_HASH, "Bad hash."},
    {NTE_BAD_KEY, "Bad key."},
    {NTE_BAD_LEN, "Bad length."},
    {NTE_BAD_DATA, "Bad data."},
    {NTE_BAD_SIGNATURE, "Invalid signature."},
    {NTE_BAD_ALGID, "Invalid algorithm specified."},
    {NTE_BAD_FLAGS, "Invalid flags specified."},
    {NTE_BAD_TYPE, "Invalid type specified."},
    {NTE_BAD_KEY_STATE, "The key is not valid for use in the specified state."},
    {NTE_BAD_HASH_STATE, "The hash is not valid for use in the specified state."},
    {NTE_NO_KEY, "The key does not exist."},
    {NTE_NO_MEMORY, "There is not enough memory for the operation."},
    {NTE_EXISTS, "The object already exists."},
    {NTE_PERM, "Access to the key is denied."},
    {NTE_NOT_FOUND, "The object was not found."},
    {NTE_BAD_PROVIDER, "Invalid provider specified."},
    {NTE_BAD_PROV_TYPE, "Invalid provider type specified."},
    {NTE_BAD_KEYSET, "The key container does not exist."},
    {NTE_PROV_TYPE_NOT_DEF, "The provider type is not defined."},
    {NTE_KEYSET_NOT_DEF, "The key container is not defined."},
    {NTE_KEYSET_ENTRY_BAD, "The key container cannot be opened or is damaged."},
    {NTE_SYS_ERR, "An error of the system occurred."},
    {NTE_SILENT_CONTEXT, "The provider may not ask the user in a silent context."},
    {NTE_BAD_KEYSET_PARAM, "The container name is not valid."},
    {NTE_FAIL, "An internal error occurred."},
    {CRYPT_E_FILE_ERROR, "An error occurred while reading or writing the file."},
    {CRYPT_E_NOT_FOUND, "The object or property cannot be found."},
    {CRYPT_E_EXISTS, "The object or property already exists."},
    {CRYPT_E_NO_KEY_PROPERTY, "The certificate has no property that names its private key."},
    {CRYPT_E_PENDING_CLOSE, "Contexts of the closed store are still in use."},
    {CRYPT_E_INVALID_NUMERIC_STRING, "The string holds a character that is not numeric."},
    {CRYPT_E_INVALID_PRINTABLE_STRING, "The string holds a character that is not printable."},
    {CRYPT_E_INVALID_IA5_STRING, "The string holds a character outside 7-bit ASCII."},
    {CRYPT_E_INVALID_X500_STRING, "The string holds an invalid X.500 name attribute."},
    {CRYPT_E_ASN1_BADTAG, "ASN.1 value with an unexpected tag."},
    {SCARD_E_NO_SUCH_READER, "The reader is unknown."},
    {SCARD_E_ANSWERABLE, "The reader does not answer."},
    {SCARD_W_WRONG_CHV, "The PIN is wrong."},
    {SCARD_W_CHV_BLOCKED, "The PIN is blocked: the number of tries is used up."},
    {SCARD_W_CANCELLED_BY_USER, "The action was cancelled by the user."},
};

constexpr std::uint32_t fromSystem = 0x1000;

}  // namespace

std::uint32_t GetLastError() { return lastError; }

void SetLastError(std::uint32_t code) { lastError = code; }

std::uint32_t FormatMessage(std::uint32_t flags, const void*, std::uint32_t messageId,
                            std::uint32_t, char* buffer, std::uint32_t size, void*) {
    if ((flags & fromSystem) == 0 || buffer == nullptr || size == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const CodeText* row = std::find_if(std::begin(texts), std::end(texts),
                                       [&](const CodeText& r) { return r.code == messageId; });
    if (row == std::end(texts)) return 0;
    std::size_t length = std::min<std::size_t>(row->text.size(), size - 1);
    std::memcpy(buffer, row->text.data(), length);
    buffer[length] = 0;
    return static_cast<std::uint32_t>(length);
}
