#include "pkixcmp/SendPKIRequest.h"

#include <list>
#include <optional>
#include <string>

#include "capilite/CAException.h"
#include "platform/support/Text.h"
#include "retrieval/UrlRetriever.h"

namespace {

constexpr std::size_t bufferSize = 255;
constexpr long timeoutSeconds = 100;
constexpr int answered = 200;
constexpr int firstUntold = 512;  // errors from here on are told as one
constexpr int untold = 456;

std::string narrow(const wchar_t* text, const char* what) {
    if (text == nullptr) PKIXCMP_THROW(CAException, std::string(what) + " is missing");
    char buffer[bufferSize] = {};
    if (safe_wcsrtombs(buffer, text, sizeof buffer) == static_cast<std::size_t>(-1)) {
        PKIXCMP_THROW(CAException, std::string(what) + " is no text of at most 254 bytes");
    }
    return buffer;
}

std::optional<std::string> narrowIfGiven(const wchar_t* text, const char* what) {
    if (text == nullptr) return std::nullopt;
    return narrow(text, what);
}

}  // namespace

extern "C" int SendPKIRequest(const wchar_t* url, const wchar_t* header1, const wchar_t* header2,
                              const wchar_t* proxyAddress, const wchar_t* proxyAuth,
                              const CACMPT_BLOB& request, CACMPT_BLOB& reply) {
    std::string address = narrow(url, "url");
    std::list<std::string> headers = {narrow(header1, "header1"), narrow(header2, "header2")};
    auto proxy = narrowIfGiven(proxyAddress, "proxyAddress");
    auto credentials = narrowIfGiven(proxyAuth, "proxyAuth");

    UrlRetriever retriever;
    if (proxy) retriever.set_proxy_addr(proxy->c_str());
    if (credentials) retriever.set_proxy_auth(credentials->c_str());
    retriever.set_headers(headers);
    retriever.set_timeout(timeoutSeconds);
    retriever.set_postmessage(request.data, request.size);
    if (retriever.retrieve_url(address.c_str()) != 0) {
        reply.assign(retriever.get_data(), retriever.get_data_len());
        return answered;
    }
    int error = retriever.get_error();
    return error < firstUntold ? error : untold;
}
