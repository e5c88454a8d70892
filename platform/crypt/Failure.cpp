#include "platform/crypt/Failure.h"

#include <cstring>

namespace provider {

void giveBytes(const void* bytes, std::size_t size, BYTE* data, DWORD* length) {
    require(length != nullptr, ERROR_INVALID_PARAMETER);
    require(size <= 0x7FFFFFFF, NTE_BAD_LEN);
    const DWORD room = *length;
    *length = static_cast<DWORD>(size);
    if (data == nullptr) return;
    require(room >= size, ERROR_MORE_DATA);
    if (size != 0) std::memcpy(data, bytes, size);
}

}  // namespace provider
