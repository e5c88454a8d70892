#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "platform/Export.h"

/// Fetches an object by an http or https URL, or posts a message to one and takes the answer.
///
/// Settings hold for all later retrievals; a retriever keeps its connection between them. It sends
/// the headers it is given and none of its own beyond those that HTTP asks for. Redirections are
/// followed for what is fetched (five at most), not for what is posted. Proxies are used as they
/// are set here, whatever the environment says. An answer of more than 16 MiB is refused.
///
/// A retriever serves one thread at a time.
class PKIXCMP_API UrlRetriever {
public:
    UrlRetriever();
    UrlRetriever(const UrlRetriever&) = delete;
    UrlRetriever& operator=(const UrlRetriever&) = delete;
    ~UrlRetriever();

    /// Whole header lines ("Content-Type: application/pkixcmp"), with or without the end of line.
    void set_headers(const std::list<std::string>& headers);
    /// For a whole retrieval; 0 sets no limit. A minute when never set.
    void set_timeout(long seconds);
    /// Makes the retrieval a POST of a copy of the bytes, which may be none.
    void set_postmessage(const void* message, std::size_t length);
    /// "host:port" or a URL; null or empty for none.
    void set_proxy_addr(const char* address);
    /// "user:password"; null or empty for none.
    void set_proxy_auth(const char* credentials);

    /// Non-zero when an answer of HTTP status 2xx came, whole.
    int retrieve_url(const char* url);

    /// The answer; empty after a failure. The pointer holds until the next retrieval.
    const unsigned char* get_data() const;
    std::size_t get_data_len() const;
    /// 0 after a success; else the HTTP status where one came, or libcurl's number of the failure.
    int get_error() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
