#pragma once

#include "capilite/Blob.h"
#include "platform/Export.h"

/// Posts a message to a CA's HTTP front and gives back the answer. The headers are whole header
/// lines of the caller's; none is added. `proxyAddress` and `proxyAuth` may be null.
///
/// 200 says that an answer arrived and nothing about what is in it. Any other number is that of the
/// failed transfer, an HTTP status that is no 2xx or an error of the HTTP library, and 456 stands
/// for those of 512 or above; `reply` is then left as it was. A text of more than 254 bytes is
/// refused by `CAException` before anything is sent.
extern "C" PKIXCMP_API int SendPKIRequest(const wchar_t* url, const wchar_t* header1,
                                          const wchar_t* header2, const wchar_t* proxyAddress,
                                          const wchar_t* proxyAuth, const CACMPT_BLOB& request,
                                          CACMPT_BLOB& reply);
