#include "UpdaterController.h"

#include "SilentServer.h"
#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Kind = UpdaterController::Result::Kind;

std::string feedWith(const std::string& version) {
    return R"(<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
    <item><sparkle:version>0.0.9</sparkle:version><link>https://orvane.example/old</link></item>
    <item><sparkle:version>)" + version + R"(</sparkle:version><link>https://orvane.example/download</link>
      <description><![CDATA[<p>Sidebar <b>badges</b> are sharper.</p>]]></description></item></channel></rss>)";
}

UpdaterController::Configuration configuration(const std::string& feedURL, unsigned timeoutMilliseconds = 30000) {
    return { feedURL, "0.1.0", std::string("12.0"), timeoutMilliseconds };
}

// Runs one check to its end and returns its result.
UpdaterController::Result check(UpdaterController& updater) {
    std::optional<UpdaterController::Result> result;
    updater.checkForUpdates([&](const UpdaterController::Result& r) { result = r; });
    EXPECT_TRUE(test::waitUntil([&] { return result.has_value(); }, 15s));
    return result.value_or(UpdaterController::Result {});
}

TEST(UpdaterControllerTest, OneCheckAtATimeFindsANewerReleaseOrNone) {
    for (const char* feed : { "", "file:///etc/passwd", "feed.xml" }) {
        UpdaterController updater(configuration(feed));
        EXPECT_FALSE(updater.canCheckForUpdates()) << feed;
        bool called = false;
        updater.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        test::drainEvents();
        EXPECT_FALSE(called) << "without a feed no check can start";
    }

    test::FixtureServer server;
    server.serve("/appcast.xml", feedWith("0.2.0"), "application/rss+xml");
    UpdaterController updater(configuration(server.uri("/appcast.xml")));
    std::vector<bool> seen;
    auto subscription = updater.observeCanCheckForUpdates([&](bool can) { seen.push_back(can); });
    int results = 0;
    std::optional<UpdaterController::Result> result;
    updater.checkForUpdates([&](const UpdaterController::Result& r) { ++results; result = r; });
    updater.checkForUpdates([&](const UpdaterController::Result&) { ++results; });
    ASSERT_TRUE(test::waitUntil([&] { return result.has_value(); }));
    EXPECT_EQ(seen, (std::vector<bool> { true, false, true }));
    test::drainEvents();
    EXPECT_EQ(results, 1) << "the check asked for while one ran was ignored";
    EXPECT_EQ(server.requestCount("/appcast.xml"), 1);
    ASSERT_EQ(result->kind, Kind::UpdateAvailable);
    EXPECT_EQ(result->item->displayVersion, "0.2.0");
    EXPECT_EQ(result->item->downloadURL, "https://orvane.example/download");
    EXPECT_EQ(result->notes, "Sidebar badges are sharper.");
    EXPECT_EQ(result->currentVersion, "0.1.0");

    // The same version or only older ones: up to date; checks can repeat.
    for (const char* version : { "0.1.0", "0.1.0-beta" }) {
        server.serve("/appcast.xml", feedWith(version), "application/rss+xml");
        EXPECT_EQ(check(updater).kind, Kind::UpToDate) << version;
    }
}

TEST(UpdaterControllerTest, BrokenFeedsAndServersEndInAClearFailure) {
    test::FixtureServer server;
    server.serve("/html", "<html><body>Moved</body></html>");
    server.serve("/no-items", R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
        <item><sparkle:version>9.0</sparkle:version><link>javascript:alert(document.cookie)</link></item></channel></rss>)");
    server.serve("/50mb", std::string(50 * 1024 * 1024, ' '), "application/rss+xml");
    server.handle("/500", [](SoupServerMessage* message, const std::string&) { soup_server_message_set_status(message, 500, nullptr); });
    // A body without a length that never ends.
    struct Endless {
        size_t sent = 0;
        bool finished = false;
    } endless;
    server.handle("/endless", [&endless](SoupServerMessage* message, const std::string&) {
        static const std::string chunk(64 * 1024, ' ');
        soup_server_message_set_status(message, 200, nullptr);
        soup_message_headers_set_encoding(soup_server_message_get_response_headers(message), SOUP_ENCODING_CHUNKED);
        auto append = +[](SoupServerMessage* message, Endless* endless) {
            endless->sent += chunk.size();
            soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_STATIC, chunk.data(), chunk.size());
        };
        g_signal_connect(message, "wrote-chunk", G_CALLBACK(append), &endless);
        g_signal_connect_swapped(message, "finished", G_CALLBACK(+[](Endless* e) { e->finished = true; }), &endless);
        append(message, &endless);
    });
    test::SilentServer silent;
    const std::tuple<std::string, unsigned, const char*> cases[] = {
        { server.uri("/html"), 30000, "could not be read" },
        { server.uri("/no-items"), 30000, "lists no releases" },
        { server.uri("/500"), 30000, "HTTP 500" },
        { server.uri("/50mb"), 30000, "too large" },
        { server.uri("/endless"), 30000, "too large" },
        { "http://127.0.0.1:" + std::to_string(test::refusingLoopbackPort()) + "/appcast.xml", 30000, "could not reach" },
        { silent.uri("/appcast.xml"), 200, "did not answer in time" },
    };
    for (const auto& [feed, timeout, error] : cases) {
        UpdaterController updater(configuration(feed, timeout));
        auto result = check(updater);
        EXPECT_EQ(result.kind, Kind::Failed) << feed;
        EXPECT_NE(result.error.find(error), std::string::npos) << feed << ": " << result.error;
        EXPECT_TRUE(updater.canCheckForUpdates());
    }
    EXPECT_TRUE(test::waitUntil([&] { return endless.finished; })) << "the endless answer was dropped";
    EXPECT_LT(endless.sent, 32u * 1024 * 1024);

    // Destroying the controller mid-check cancels the request quietly.
    bool called = false;
    {
        UpdaterController updater(configuration(silent.uri("/appcast.xml")));
        updater.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        ASSERT_TRUE(test::waitUntil([&] { return silent.requests() == 2; }));
    }
    EXPECT_TRUE(test::waitUntil([&] { return silent.closedConnections() == 2; }));
    test::drainEvents();
    EXPECT_FALSE(called);
}

} // namespace
} // namespace orvane
