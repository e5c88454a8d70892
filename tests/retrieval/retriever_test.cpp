#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "retrieval/CURLGlobalInit.h"
#include "retrieval/UrlRetriever.h"
#include "tests/HttpPeer.h"
#include "tests/PublicTool.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

std::string dataOf(const UrlRetriever& retriever) {
    return {reinterpret_cast<const char*>(retriever.get_data()), retriever.get_data_len()};
}

TEST(Curl, IsBoundWhenFirstAskedForAndStaysSo) {
    CURLGlobalInit own;
    EXPECT_EQ(own.curl_easy_init, nullptr);
    EXPECT_FALSE(own.loadTried);
    EXPECT_TRUE(own.CURLAvailable());
    EXPECT_TRUE(own.loadTried);
    EXPECT_TRUE(own.curl_global_init && own.curl_easy_setopt && own.curl_formadd &&
                own.curl_formfree && own.curl_slist_append);
    CURLGlobalInit failed;
    failed.loadTried = true;  // as a failed load leaves it
    EXPECT_FALSE(failed.CURLAvailable());
}

TEST(Retriever, StatusesAndBrokenAnswers) {
    const std::string big(20 << 20, 'x');
    struct {
        const char* what;
        HttpPeer::Answer answer;
        int error;
        std::string data;
    } cases[] = {
        {"plain", HttpPeer::whole(200, "body"), 0, "body"},
        {"empty", HttpPeer::whole(200, ""), 0, ""},
        {"zeros", HttpPeer::whole(201, std::string("a\0b", 3)), 0, std::string("a\0b", 3)},
        {"399", HttpPeer::whole(399, "no"), 399, ""},
        {"400", HttpPeer::whole(400, "no"), 400, ""},
        {"404", HttpPeer::whole(404, ""), 404, ""},
        {"503", HttpPeer::whole(503, "busy"), 503, ""},
        {"599", HttpPeer::whole(599, "busy"), 599, ""},
        {"chunked",
         HttpPeer::raw(
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n"),
         0, "abc"},
        {"until close", HttpPeer::raw("HTTP/1.1 200 OK\r\n\r\nabc"), 0, "abc"},
        {"cut short", HttpPeer::raw("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"), 18, ""},
        {"cut chunk",
         HttpPeer::raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\nabc"), 18, ""},
        {"nothing", HttpPeer::raw(""), 52, ""},
        {"no HTTP", HttpPeer::raw("220 smtp.example ready\r\n\r\n"), 1, ""},
        {"too long", HttpPeer::whole(200, big), 63, ""},
        {"endless",
         [](int socket, const std::string&) {
             std::string piece(1 << 16, 'x');
             bool open = HttpPeer::sendAll(socket, "HTTP/1.1 200 OK\r\n\r\n");
             while (open) open = HttpPeer::sendAll(socket, piece);
             return false;
         },
         63, ""},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        HttpPeer peer(c.answer);
        for (bool posts : {false, true}) {
            UrlRetriever retriever;
            if (posts) retriever.set_postmessage("msg", 3);
            retriever.set_timeout(20);
            EXPECT_EQ(retriever.retrieve_url(peer.url().c_str()) != 0, c.error == 0);
            EXPECT_EQ(retriever.get_error(), c.error);
            EXPECT_EQ(dataOf(retriever), c.data);
        }
    }
}

TEST(Retriever, PostsTheBytesWithNoHeaderOfItsOwn) {
    HttpPeer peer(HttpPeer::whole(200, "ok"));
    const std::string message("\x30\x03\0\r\n\xFF", 6);
    struct {
        std::list<std::string> headers;
        std::vector<std::string> sent;
    } cases[] = {
        {{}, {}},
        {{"", ""}, {}},
        {{"Content-Type: application/pkixcmp", "Accept: application/pkixcmp"},
         {"Content-Type: application/pkixcmp", "Accept: application/pkixcmp"}},
        {{"content-type: text/plain", "X-First: 1", "X-Second: 2"},
         {"content-type: text/plain", "X-First: 1", "X-Second: 2"}},
        {{"X-Ended: 1\r\n", "X-Next: 2", "\r\n"}, {"X-Ended: 1", "X-Next: 2"}},
    };
    for (auto& c : cases) {
        UrlRetriever retriever;
        retriever.set_headers(c.headers);
        retriever.set_postmessage(message.data(), message.size());
        ASSERT_TRUE(retriever.retrieve_url(peer.url("/ca?x=1").c_str())) << retriever.get_error();
        std::vector<std::string> lines = {"POST /ca?x=1 HTTP/1.1", "Host: " + peer.address()};
        lines.insert(lines.end(), c.sent.begin(), c.sent.end());
        lines.push_back("Content-Length: 6");
        std::vector<std::string> got;
        std::string request = peer.requests().back();
        std::size_t head = request.find("\r\n\r\n");
        for (std::size_t at = 0; at < head;) {
            std::size_t end = request.find("\r\n", at);
            got.push_back(request.substr(at, end - at));
            at = end + 2;
        }
        EXPECT_THAT(got, testing::UnorderedElementsAreArray(lines));
        EXPECT_EQ(request.substr(head + 4), message);
    }
}

TEST(Retriever, PostsNothingAndMuch) {
    HttpPeer peer(HttpPeer::whole(200, "ok"));
    for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{3} << 20}) {
        UrlRetriever retriever;
        std::string message(size, '\0');
        retriever.set_postmessage(message.data(), size);
        ASSERT_TRUE(retriever.retrieve_url(peer.url().c_str())) << retriever.get_error();
        std::string request = peer.requests().back();
        EXPECT_THAT(request, StartsWith("POST / HTTP/1.1\r\n"));
        EXPECT_THAT(request, HasSubstr("Content-Length: " + std::to_string(size) + "\r\n"));
        EXPECT_EQ(request.size() - request.find("\r\n\r\n") - 4, size);
    }
    UrlRetriever nothing;
    nothing.set_postmessage(nullptr, 0);
    EXPECT_TRUE(nothing.retrieve_url(peer.url().c_str()));
    EXPECT_THAT(peer.requests().back(), StartsWith("POST"));
}

TEST(Retriever, FetchesFollowRedirectionsAndPostsDoNot) {
    std::string target;
    auto redirect = [&](int socket, const std::string& request) {
        bool arrived = request.find(" /end ") != request.npos;
        return arrived ? HttpPeer::whole(200, "there")(socket, request)
                       : HttpPeer::whole(302, "", "Location: " + target + "\r\n")(socket, request);
    };
    HttpPeer peer(redirect);
    struct {
        std::string target;
        bool posts;
        int error;
        std::size_t requests;
    } cases[] = {
        {"/end", false, 0, 2},
        {"/end", true, 302, 1},
        {"/again", false, 47, 6},
        {"file:///etc/passwd", false, 1, 1},
        {"ftp://127.0.0.1/x", false, 1, 1},
    };
    for (auto& c : cases) {
        target = c.target;
        std::size_t before = peer.requests().size();
        UrlRetriever retriever;
        if (c.posts) retriever.set_postmessage("m", 1);
        EXPECT_EQ(retriever.retrieve_url(peer.url("/start").c_str()) != 0, c.error == 0);
        EXPECT_EQ(retriever.get_error(), c.error) << c.target;
        EXPECT_EQ(peer.requests().size() - before, c.requests) << c.target;
    }
}

TEST(Retriever, WhatIsNoHttpUrlOrHeaderIsRefused) {
    HttpPeer peer(HttpPeer::whole(200, "ok"));
    for (const char* url : {"", "http://", "file:///etc/passwd", "ftp://127.0.0.1/", "nonsense://x",
                            "http://127.0.0.1:99999/", "http://exa mple/"}) {
        UrlRetriever retriever;
        EXPECT_FALSE(retriever.retrieve_url(url)) << url;
        EXPECT_THAT(retriever.get_error(), testing::AnyOf(1, 3)) << url;
    }
    UrlRetriever retriever;
    EXPECT_FALSE(retriever.retrieve_url(nullptr));
    EXPECT_EQ(retriever.get_error(), 3);
    retriever.set_headers({"X-One: 1\r\nX-Smuggled: 2"});
    EXPECT_FALSE(retriever.retrieve_url(peer.url().c_str()));
    EXPECT_EQ(retriever.get_error(), 43);
    EXPECT_TRUE(peer.requests().empty());
}

TEST(Retriever, SlowPeersAreCutByTheTimeout) {
    HttpPeer peer([](int socket, const std::string&) {
        bool open = HttpPeer::sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
        for (int i = 0; open && i < 100; ++i) {
            open = HttpPeer::sendAll(socket, "x");
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    });
    UrlRetriever retriever;
    retriever.set_timeout(1);
    auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(retriever.retrieve_url(peer.url().c_str()));
    EXPECT_EQ(retriever.get_error(), 28);
    EXPECT_EQ(retriever.get_data_len(), 0u);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
}

TEST(Retriever, KeepsItsConnectionAndForgetsTheLastAnswer) {
    int turn = 0;
    HttpPeer peer([&](int socket, const std::string& request) {
        return HttpPeer::whole(turn++ == 1 ? 500 : 200, "answer")(socket, request);
    });
    UrlRetriever retriever;
    EXPECT_TRUE(retriever.retrieve_url(peer.url().c_str()));
    EXPECT_EQ(dataOf(retriever), "answer");
    EXPECT_FALSE(retriever.retrieve_url(peer.url().c_str()));
    EXPECT_EQ(retriever.get_error(), 500);
    EXPECT_EQ(retriever.get_data_len(), 0u);
    retriever.set_postmessage("m", 1);
    EXPECT_TRUE(retriever.retrieve_url(peer.url().c_str()));
    EXPECT_EQ(retriever.get_error(), 0);
    EXPECT_EQ(dataOf(retriever), "answer");
    EXPECT_EQ(peer.connections(), 1);
}

TEST(Retriever, GoesThroughTheProxyItIsGivenAndNoOther) {
    HttpPeer proxy(HttpPeer::whole(200, "by proxy")), origin(HttpPeer::whole(200, "direct"));
    ::setenv("http_proxy", proxy.url().c_str(), 1);
    {
        UrlRetriever direct;
        EXPECT_TRUE(direct.retrieve_url(origin.url().c_str()));
        EXPECT_EQ(dataOf(direct), "direct");
    }
    ::unsetenv("http_proxy");

    UrlRetriever retriever;
    retriever.set_proxy_addr(proxy.address().c_str());
    retriever.set_proxy_auth("user:secret");
    ::setenv("no_proxy", "*", 1);
    EXPECT_TRUE(retriever.retrieve_url("http://ca.example.test/cmp"));
    ::unsetenv("no_proxy");
    EXPECT_EQ(dataOf(retriever), "by proxy");
    EXPECT_THAT(proxy.requests(),
                ElementsAre(AllOf(StartsWith("GET http://ca.example.test/cmp HTTP/1.1\r\n"),
                                  HasSubstr("Proxy-Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"),
                                  Not(HasSubstr("Proxy-Connection")))));
    retriever.set_proxy_addr(nullptr);
    retriever.set_proxy_auth(nullptr);
    EXPECT_TRUE(retriever.retrieve_url(origin.url().c_str()));
    EXPECT_THAT(origin.requests().back(), Not(HasSubstr("Proxy")));
}

TEST(Retriever, TheProgramItselfIsNotLinkedWithLibcurl) {
    // Only what is loaded at run time may have it: the dynamic section of this program names none.
    const std::string program = "/proc/" + std::to_string(::getpid()) + "/exe";
    EXPECT_THAT(runTool("readelf -d " + program + " | grep NEEDED", ""), Not(HasSubstr("curl")));
}

}  // namespace
