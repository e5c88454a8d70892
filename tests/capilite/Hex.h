#pragma once

#include <string>

#include "capilite/Blob.h"

// Blobs as hexadecimal text, the form in which the tests write DER.

inline std::string hexOf(const CACMPT_BLOB& blob) { return blob.writeToHexString(); }

inline CACMPT_BLOB fromHex(const std::string& digits) {
    CACMPT_BLOB blob;
    blob.readFromHexString(digits.c_str());
    return blob;
}
