// HTTPFetch: the one way Orvane fetches anything of its own.
#include "HTTPFetch.h"

#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <optional>

namespace orvane::test {
namespace {

std::optional<HTTPFetch::Outcome> fetch(HTTPFetch::Request request, GCancellable* cancellable = nullptr) {
    std::optional<HTTPFetch::Outcome> outcome;
    HTTPFetch::start(std::move(request), cancellable, [&](HTTPFetch::Outcome result) { outcome = std::move(result); });
    EXPECT_FALSE(outcome) << "the completion ran inside start()";
    EXPECT_TRUE(waitUntil([&] { return outcome.has_value(); }, 10s));
    return outcome;
}

HTTPFetch::Request to(std::string address) {
    HTTPFetch::Request request;
    request.address = std::move(address);
    return request;
}

void redirect(FixtureServer& server, const std::string& path, std::string location) {
    server.handle(path, [location](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_redirect(message, SOUP_STATUS_FOUND, location.c_str());
    });
}

TEST(HTTPFetchTest, StatusSizeRedirectsAndAddresses) {
    FixtureServer server;
    server.serve("/ok", "hello", "text/plain");
    server.handle("/missing", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_status(message, SOUP_STATUS_NOT_FOUND, nullptr);
        soup_server_message_set_response(message, "text/html", SOUP_MEMORY_COPY, "an error page", 13);
    });
    server.serve("/big", std::string(2000, 'x'), "text/plain");
    redirect(server, "/hop", "/ok");
    redirect(server, "/to-file", "file:///etc/passwd");
    redirect(server, "/loop", "/loop");

    auto ok = fetch(to(server.uri("/hop")));
    ASSERT_TRUE(ok);
    EXPECT_TRUE(ok->ok());
    EXPECT_EQ(ok->body, "hello");
    EXPECT_EQ(ok->contentType, "text/plain");

    auto missing = fetch(to(server.uri("/missing")));
    EXPECT_EQ(missing->failure, HTTPFetch::Failure::Status);
    EXPECT_EQ(missing->status, 404u);
    EXPECT_TRUE(missing->body.empty()) << "an error page is never a body";

    // A body without a length that never ends is cut off as it arrives.
    bool endlessFinished = false;
    static size_t endlessSent = 0;
    server.handle("/endless", [&endlessFinished](SoupServerMessage* message, const std::string&) {
        static const std::string chunk(64 * 1024, ' ');
        auto append = +[](SoupServerMessage* message) {
            endlessSent += chunk.size();
            soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_STATIC, chunk.data(), chunk.size());
        };
        soup_server_message_set_status(message, 200, nullptr);
        soup_message_headers_set_encoding(soup_server_message_get_response_headers(message), SOUP_ENCODING_CHUNKED);
        g_signal_connect(message, "wrote-chunk", G_CALLBACK(append), nullptr);
        g_signal_connect_swapped(message, "finished", G_CALLBACK(+[](bool* finished) { *finished = true; }), &endlessFinished);
        append(message);
    });
    for (const char* path : { "/big", "/endless" }) {
        HTTPFetch::Request bounded = to(server.uri(path));
        bounded.maxBytes = 1000;
        EXPECT_EQ(fetch(bounded)->failure, HTTPFetch::Failure::TooLarge) << path;
    }
    EXPECT_TRUE(waitUntil([&] { return endlessFinished; })) << "the endless answer was dropped";
    EXPECT_LT(endlessSent, 4u << 20) << "soon after the bound";
    const unsigned closedPort = FixtureServer().port();
    auto refused = fetch(to("http://127.0.0.1:" + std::to_string(closedPort) + "/"));
    EXPECT_EQ(refused->failure, HTTPFetch::Failure::Transport);
    EXPECT_FALSE(refused->error.empty());

    EXPECT_EQ(fetch(to(server.uri("/to-file")))->failure, HTTPFetch::Failure::Address);
    EXPECT_EQ(fetch(to(server.uri("/loop")))->failure, HTTPFetch::Failure::Address);
    EXPECT_EQ(server.requestCount("/loop"), HTTPFetch::kMaxRedirects + 1);
    for (const char* address : { "file:///etc/passwd", "ftp://127.0.0.1/x", "http:///nohost", "not an address" })
        EXPECT_EQ(fetch(to(address))->failure, HTTPFetch::Failure::Address) << address;
}

TEST(HTTPFetchTest, CookiesGoOnlyWhereLibsoupSaysTheyApplyAndNeverAcrossHosts) {
    FixtureServer server;
    server.serve("/images/a.png", "png");
    server.serve("/other/b.png", "png");
    redirect(server, "/images/away", server.uriOnHost("localhost", "/images/a.png"));

    auto cookie = [](const char* name, const char* domain, const char* path, bool secure) {
        SoupCookie* c = soup_cookie_new(name, "v", domain, path, -1);
        soup_cookie_set_secure(c, secure);
        return c;
    };
    GList* cookies = nullptr;
    cookies = g_list_append(cookies, cookie("host", "127.0.0.1", "/", false));
    cookies = g_list_append(cookies, cookie("images", "127.0.0.1", "/images", false));
    cookies = g_list_append(cookies, cookie("secure", "127.0.0.1", "/", true));
    cookies = g_list_append(cookies, cookie("elsewhere", "example.org", "/", false));
    // Would apply where the redirect below leads.
    cookies = g_list_append(cookies, cookie("redirected", "localhost", "/", false));
    SoupCookie* expired = cookie("expired", "127.0.0.1", "/", false);
    soup_cookie_set_max_age(expired, 0);
    cookies = g_list_append(cookies, expired);

    auto sent = [&](const std::string& path, const std::string& address) {
        server.resetCounts();
        HTTPFetch::Request request = to(address);
        request.cookies = cookies;
        request.userAgent = "Orvane-Test";
        EXPECT_TRUE(fetch(request)->ok()) << address;
        auto requests = server.requests(path);
        EXPECT_EQ(requests.size(), 1u) << path;
        if (requests.empty())
            return std::string("(no request)");
        EXPECT_EQ(requests[0].headers["user-agent"], "Orvane-Test");
        return requests[0].headers["cookie"];
    };
    EXPECT_EQ(sent("/images/a.png", server.uri("/images/a.png")), "host=v; images=v");
    EXPECT_EQ(sent("/other/b.png", server.uri("/other/b.png")), "host=v");
    // After a redirect to another host no cookie goes at all.
    EXPECT_EQ(sent("/images/a.png", server.uri("/images/away")), "");
    g_list_free_full(cookies, reinterpret_cast<GDestroyNotify>(soup_cookie_free));
}

TEST(HTTPFetchTest, TimeOutAndCancelEndTheFetchOnce) {
    FixtureServer server;
    // Never answers: the message is paused and left so.
    server.handle("/silent", [](SoupServerMessage* message, const std::string&) { soup_server_message_pause(message); });

    HTTPFetch::Request slow = to(server.uri("/silent"));
    slow.timeoutMilliseconds = 200;
    EXPECT_EQ(fetch(slow)->failure, HTTPFetch::Failure::TimedOut);

    Ref<GCancellable> cancellable = adopt(g_cancellable_new());
    int calls = 0;
    std::optional<HTTPFetch::Outcome> outcome;
    HTTPFetch::start(to(server.uri("/silent")), cancellable.get(), [&](HTTPFetch::Outcome result) {
        ++calls;
        outcome = std::move(result);
    });
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/silent") == 2; }));
    g_cancellable_cancel(cancellable.get());
    ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }));
    EXPECT_EQ(outcome->failure, HTTPFetch::Failure::Cancelled);
    drainEvents();
    EXPECT_EQ(calls, 1);
}

} // namespace
} // namespace orvane::test
