// HTTPFetch: the one way Orvane fetches anything of its own.
#include "HTTPFetch.h"

#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <optional>

namespace orvane::test {
namespace {

using Failure = HTTPFetch::Failure;

class HTTPFetchTest : public ::testing::Test {
protected:
    HTTPFetch::Outcome fetch(const HTTPFetch::Request& request) {
        std::optional<HTTPFetch::Outcome> outcome;
        HTTPFetch::start(request, nullptr, [&](HTTPFetch::Outcome result) { outcome = std::move(result); });
        EXPECT_FALSE(outcome) << "the completion ran inside start()";
        EXPECT_TRUE(waitUntil([&] { return outcome.has_value(); }));
        return outcome.value_or(HTTPFetch::Outcome {});
    }
    void redirect(const std::string& path, std::string location) {
        server.handle(path, [location](SoupServerMessage* message, const std::string&) {
            soup_server_message_set_redirect(message, SOUP_STATUS_FOUND, location.c_str());
        });
    }

    FixtureServer server;
};

TEST_F(HTTPFetchTest, StatusSizeRedirectsAddressesTimeOutAndCancel) {
    server.serve("/ok", "hello", "text/plain");
    server.serve("/missing", "an error page", "text/html", SOUP_STATUS_NOT_FOUND);
    server.serve("/big", std::string(2000, 'x'), "text/plain");
    redirect("/hop", "/ok");
    redirect("/to-file", "file:///etc/passwd");
    redirect("/loop", "/loop");

    auto ok = fetch({ server.uri("/hop") });
    EXPECT_TRUE(ok.ok() && ok.body == "hello" && ok.contentType == "text/plain");
    auto missing = fetch({ server.uri("/missing") });
    EXPECT_TRUE(missing.failure == Failure::Status && missing.status == 404u);
    EXPECT_TRUE(missing.body.empty()) << "an error page is never a body";

    // A body without a length that never ends is cut off as it arrives.
    bool endlessFinished = false;
    static size_t endlessSent = 0;
    server.handle("/endless", [&endlessFinished](SoupServerMessage* message, const std::string&) {
        static const std::string chunk(64 * 1024, ' ');
        auto append = +[](SoupServerMessage* message) {
            endlessSent += chunk.size();
            soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_STATIC,
                chunk.data(), chunk.size());
        };
        soup_server_message_set_status(message, 200, nullptr);
        auto* headers = soup_server_message_get_response_headers(message);
        soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
        g_signal_connect(message, "wrote-chunk", G_CALLBACK(append), nullptr);
        g_signal_connect_swapped(message, "finished", G_CALLBACK(+[](bool* finished) { *finished = true; }),
            &endlessFinished);
        append(message);
    });
    for (const char* path : { "/big", "/endless" }) {
        auto bounded = fetch({ .address = server.uri(path), .maxBytes = 1000 });
        EXPECT_EQ(bounded.failure, Failure::TooLarge) << path;
    }
    EXPECT_TRUE(waitUntil([&] { return endlessFinished; })) << "the endless answer was dropped";
    EXPECT_LT(endlessSent, 4u << 20) << "soon after the bound";

    const unsigned closedPort = FixtureServer().port();
    auto refused = fetch({ "http://127.0.0.1:" + std::to_string(closedPort) + "/" });
    EXPECT_EQ(refused.failure, Failure::Transport);
    EXPECT_FALSE(refused.error.empty());
    using namespace std::string_literals;
    for (const std::string& address : { server.uri("/to-file"), server.uri("/loop"), "file:///etc/passwd"s,
             "ftp://127.0.0.1/x"s, "http:///nohost"s, "not an address"s })
        EXPECT_EQ(fetch({ address }).failure, Failure::Address) << address;
    EXPECT_EQ(server.requestCount("/loop"), HTTPFetch::kMaxRedirects + 1);

    // Never answers: the message is paused and left so.
    server.handle("/silent", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_pause(message);
    });
    auto slow = fetch({ .address = server.uri("/silent"), .timeoutMilliseconds = 200 });
    EXPECT_EQ(slow.failure, Failure::TimedOut);
    Ref<GCancellable> cancellable = adopt(g_cancellable_new());
    std::vector<Failure> ends;
    HTTPFetch::start({ server.uri("/silent") }, cancellable.get(),
        [&](HTTPFetch::Outcome outcome) { ends.push_back(outcome.failure); });
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/silent") == 2; }));
    g_cancellable_cancel(cancellable.get());
    ASSERT_TRUE(waitUntil([&] { return !ends.empty(); }));
    drainEvents();
    EXPECT_EQ(ends, std::vector<Failure> { Failure::Cancelled }) << "cancelled, once";
}

TEST_F(HTTPFetchTest, CookiesGoOnlyWhereLibsoupSaysTheyApplyAndNeverAcrossHosts) {
    server.serve("/images/a.png", "png");
    server.serve("/other/b.png", "png");
    redirect("/images/away", server.uriOnHost("localhost", "/images/a.png"));

    // Which apply (path, secure, expiry) is libsoup's own rule; the last
    // would apply where the redirect below leads.
    const std::tuple<const char*, const char*, const char*> made[] = { { "host", "127.0.0.1", "/" },
        { "images", "127.0.0.1", "/images" }, { "redirected", "localhost", "/" } };
    GList* cookies = nullptr;
    for (const auto& [name, domain, path] : made)
        cookies = g_list_append(cookies, soup_cookie_new(name, "v", domain, path, -1));
    auto sent = [&](const std::string& path, const std::string& address) {
        server.resetCounts();
        EXPECT_TRUE(fetch({ .address = address, .userAgent = "Orvane-Test", .cookies = cookies }).ok());
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

} // namespace
} // namespace orvane::test
