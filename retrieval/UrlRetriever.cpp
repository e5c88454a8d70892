#include "retrieval/UrlRetriever.h"

#include <curl/curl.h>
#include <strings.h>

#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "retrieval/CURLGlobalInit.h"

// Of libcurl's header only the numbers are used: the library itself is bound at run time.

namespace {

constexpr std::size_t longestAnswer = std::size_t{16} << 20;
constexpr long mostRedirections = 5;
constexpr long usualTimeout = 60;
// Libraries before 7.85 know protocols by these options and bits, which the header deprecates.
constexpr int optionProtocols = 181, optionRedirectionProtocols = 182;
constexpr long protocolBits = 1 | 2;

/// A list of header lines in libcurl's memory.
class HeaderList {
public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() {
        if (list_ != nullptr) CURLGlobalInit::instance().curl_slist_free_all(list_);
    }
    void add(const char* line) {
        void* longer = CURLGlobalInit::instance().curl_slist_append(list_, line);
        if (longer == nullptr) throw std::bad_alloc();
        list_ = longer;
    }
    void* get() const { return list_; }

private:
    void* list_ = nullptr;
};

bool names(const std::string& line, std::string_view field) {
    return line.size() > field.size() && line[field.size()] == ':' &&
           ::strncasecmp(line.c_str(), field.data(), field.size()) == 0;
}

}  // namespace

struct UrlRetriever::State {
    CURLGlobalInit& curl = CURLGlobalInit::instance();
    void* handle = nullptr;
    std::list<std::string> headers;
    std::vector<unsigned char> message;
    bool posts = false;
    long timeout = usualTimeout;
    std::string proxyAddress;
    std::string proxyAuth;

    std::vector<unsigned char> answer;
    int refusal = 0;  // why the answer was not taken any further
    int error = 0;

    ~State() {
        if (handle != nullptr) curl.curl_easy_cleanup(handle);
    }

    template <class Value>
    bool set(int option, Value value) {
        return curl.curl_easy_setopt(handle, option, value) == CURLE_OK;
    }
    int open();
    int setUp(const char* url, const HeaderList& lines);
    bool setProtocols();
    int fillHeaders(HeaderList& lines) const;
    int perform(const char* url);
    static std::size_t take(char* data, std::size_t size, std::size_t count, void* self) noexcept;
};

/// libcurl's receiver of the answer. Anything but the octets given ends the transfer.
std::size_t UrlRetriever::State::take(char* data, std::size_t size, std::size_t count,
                                      void* self) noexcept {
    auto& state = *static_cast<State*>(self);
    std::size_t octets = size * count;
    if (octets > longestAnswer - state.answer.size()) {
        state.refusal = CURLE_FILESIZE_EXCEEDED;
        return 0;
    }
    try {
        state.answer.insert(state.answer.end(), data, data + octets);
        return octets;
    } catch (...) {
        state.refusal = CURLE_OUT_OF_MEMORY;
        return 0;
    }
}

int UrlRetriever::State::open() {
    if (!curl.CURLAvailable()) return CURLE_FAILED_INIT;
    if (handle == nullptr) handle = curl.curl_easy_init();
    return handle != nullptr ? CURLE_OK : CURLE_FAILED_INIT;
}

bool UrlRetriever::State::setProtocols() {
    bool known =
        set(CURLOPT_PROTOCOLS_STR, "http,https") && set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    return known ||
           (set(optionProtocols, protocolBits) && set(optionRedirectionProtocols, protocolBits));
}

/// The caller's lines, and for each header that libcurl would add by itself one that takes it away.
int UrlRetriever::State::fillHeaders(HeaderList& lines) const {
    bool hasType = false, hasAccept = false, hasExpect = false;
    for (std::string line : headers) {
        if (line.ends_with("\r\n")) line.resize(line.size() - 2);
        if (line.find_first_of("\r\n") != line.npos) return CURLE_BAD_FUNCTION_ARGUMENT;
        if (line.empty()) continue;
        hasType |= names(line, "Content-Type");
        hasAccept |= names(line, "Accept");
        hasExpect |= names(line, "Expect");
        lines.add(line.c_str());
    }
    if (!hasType) lines.add("Content-Type:");
    if (!hasAccept) lines.add("Accept:");
    if (!hasExpect) lines.add("Expect:");
    lines.add("Proxy-Connection:");
    return CURLE_OK;
}

int UrlRetriever::State::setUp(const char* url, const HeaderList& lines) {
    bool good = setProtocols() && set(CURLOPT_NOSIGNAL, 1L) && set(CURLOPT_URL, url) &&
                set(CURLOPT_HTTPHEADER, lines.get()) && set(CURLOPT_TIMEOUT, timeout) &&
                set(CURLOPT_PROXY, proxyAddress.c_str()) && set(CURLOPT_NOPROXY, "") &&
                set(CURLOPT_PROXYUSERPWD, proxyAuth.empty() ? nullptr : proxyAuth.c_str()) &&
                set(CURLOPT_MAXREDIRS, mostRedirections) &&
                set(CURLOPT_FOLLOWLOCATION, posts ? 0L : 1L) &&
                set(CURLOPT_WRITEFUNCTION, &State::take) &&
                set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    if (posts) {
        // Set in this order: the size first keeps a zero octet from ending the message.
        good = good && set(CURLOPT_POST, 1L) &&
               set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(message.size())) &&
               set(CURLOPT_POSTFIELDS,
                   message.empty() ? "" : reinterpret_cast<const char*>(message.data()));
    } else {
        good = good && set(CURLOPT_HTTPGET, 1L);
    }
    return good ? CURLE_OK : CURLE_UNKNOWN_OPTION;
}

int UrlRetriever::State::perform(const char* url) {
    if (url == nullptr) return CURLE_URL_MALFORMAT;
    if (int code = open(); code != CURLE_OK) return code;
    HeaderList lines;
    if (int code = fillHeaders(lines); code != CURLE_OK) return code;
    if (int code = setUp(url, lines); code != CURLE_OK) return code;
    int code = curl.curl_easy_perform(handle);
    set(CURLOPT_HTTPHEADER, static_cast<void*>(nullptr));  // the list goes with this call
    if (refusal != 0) return refusal;
    if (code != CURLE_OK) return code;
    long status = 0;
    curl.curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    if (status == 0) return CURLE_WEIRD_SERVER_REPLY;
    return status >= 200 && status < 300 ? 0 : static_cast<int>(status);
}

UrlRetriever::UrlRetriever() : state_(std::make_unique<State>()) {}
UrlRetriever::~UrlRetriever() = default;

void UrlRetriever::set_headers(const std::list<std::string>& headers) { state_->headers = headers; }

void UrlRetriever::set_timeout(long seconds) { state_->timeout = seconds > 0 ? seconds : 0; }

void UrlRetriever::set_postmessage(const void* message, std::size_t length) {
    auto* octets = static_cast<const unsigned char*>(message);
    state_->message.assign(octets, octets + (octets != nullptr ? length : 0));
    state_->posts = true;
}

void UrlRetriever::set_proxy_addr(const char* address) {
    state_->proxyAddress = address != nullptr ? address : "";
}

void UrlRetriever::set_proxy_auth(const char* credentials) {
    state_->proxyAuth = credentials != nullptr ? credentials : "";
}

int UrlRetriever::retrieve_url(const char* url) {
    state_->answer.clear();
    state_->refusal = 0;
    state_->error = state_->perform(url);
    if (state_->error == 0) return 1;
    state_->answer.clear();
    return 0;
}

const unsigned char* UrlRetriever::get_data() const { return state_->answer.data(); }

std::size_t UrlRetriever::get_data_len() const { return state_->answer.size(); }

int UrlRetriever::get_error() const { return state_->error; }
