#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "capilite/CAException.h"
#include "pkixcmp/SendPKIRequest.h"
#include "tests/HttpPeer.h"

/// What a program finds that knows the name alone; null when there is none.
extern "C" [[gnu::weak]] decltype(SendPKIRequest) plainName __asm__("SendPKIRequest");

namespace {

std::wstring wide(const std::string& text) { return {text.begin(), text.end()}; }

int send(const std::wstring& url, const CACMPT_BLOB& request, CACMPT_BLOB& reply,
         const wchar_t* proxy = nullptr) {
    return SendPKIRequest(url.c_str(), L"Content-Type: application/pkixcmp", L"X-Trial: ж", proxy,
                          proxy != nullptr ? L"u:p" : nullptr, request, reply);
}

TEST(SendRequest, AnswersAndStatuses) {
    struct {
        HttpPeer::Answer answer;
        int result;
        std::string reply;  // it keeps what it held when the transfer failed
    } cases[] = {
        {HttpPeer::whole(200, "reply"), 200, "reply"},
        {HttpPeer::whole(200, ""), 200, ""},
        {HttpPeer::whole(201, "made"), 200, "made"},
        {HttpPeer::whole(302, "no"), 302, "before"},
        {HttpPeer::whole(400, "no"), 400, "before"},
        {HttpPeer::whole(511, "no"), 511, "before"},
        {HttpPeer::whole(512, "no"), 456, "before"},
        {HttpPeer::whole(599, "no"), 456, "before"},
        {HttpPeer::raw(""), 52, "before"},
    };
    const CACMPT_BLOB request("\x30\0\x01", 3);
    for (auto& c : cases) {
        HttpPeer peer(c.answer);
        CACMPT_BLOB reply("before", 6);
        EXPECT_EQ(send(wide(peer.url()), request, reply), c.result);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(reply.data), reply.size), c.reply);
        const std::string got = peer.requests().back();
        EXPECT_EQ(got.substr(got.size() - 3), std::string("\x30\0\x01", 3));
        EXPECT_LT(got.find("Content-Type: application/pkixcmp\r\n"), got.find("X-Trial: ж\r\n"));
    }
}

TEST(SendRequest, IsFoundByItsPlainName) { EXPECT_EQ(&plainName, &SendPKIRequest); }

TEST(SendRequest, GoesThroughTheProxy) {
    HttpPeer proxy(HttpPeer::whole(200, "by proxy"));
    CACMPT_BLOB reply;
    EXPECT_EQ(
        send(L"http://ca.example.test/", CACMPT_BLOB("m", 1), reply, wide(proxy.address()).c_str()),
        200);
    EXPECT_THAT(proxy.requests().back(), testing::HasSubstr("Proxy-Authorization: Basic dTpw\r\n"));
}

TEST(SendRequest, LongTextsAreRefusedBeforeAnythingIsSent) {
    HttpPeer peer(HttpPeer::whole(200, "ok"));
    const CACMPT_BLOB request("m", 1);
    std::wstring base = wide(peer.url());
    CACMPT_BLOB reply;
    EXPECT_EQ(send(base + std::wstring(254 - base.size(), L'x'), request, reply), 200);
    // 127 letters of two bytes fit, 128 do not.
    auto header = [](std::size_t count) { return std::wstring(count, L'ж'); };
    EXPECT_EQ(
        SendPKIRequest(base.c_str(), header(127).c_str(), L"", nullptr, nullptr, request, reply),
        200);
    std::size_t sent = peer.requests().size();
    std::wstring longUrl = base + std::wstring(255 - base.size(), L'x');
    std::wstring address = wide(peer.address()), broken(1, static_cast<wchar_t>(0xD800));
    std::wstring longText(255, L'x');
    struct {
        const wchar_t *url, *header1, *header2, *proxy, *auth;
    } cases[] = {
        {longUrl.c_str(), L"", L"", nullptr, nullptr},
        {base.c_str(), longText.c_str(), L"", nullptr, nullptr},
        {base.c_str(), L"", longText.c_str(), nullptr, nullptr},
        {base.c_str(), L"", L"", longText.c_str(), nullptr},
        {base.c_str(), L"", L"", address.c_str(), longText.c_str()},
        {base.c_str(), broken.c_str(), L"", nullptr, nullptr},
        {nullptr, L"", L"", nullptr, nullptr},
        {base.c_str(), nullptr, L"", nullptr, nullptr},
    };
    for (auto& c : cases) {
        EXPECT_THROW(SendPKIRequest(c.url, c.header1, c.header2, c.proxy, c.auth, request, reply),
                     CAException);
    }
    EXPECT_EQ(peer.requests().size(), sent);
}

}  // namespace
