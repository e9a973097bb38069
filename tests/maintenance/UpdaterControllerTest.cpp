#include "UpdaterController.h"

#include "SilentServer.h"
#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <memory>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Kind = UpdaterController::Result::Kind;

std::string feedWith(const std::string& version, const std::string& link = "https://orvane.example/download") {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel>
    <title>Orvane</title>
    <item>
      <title>Version 0.0.9</title>
      <sparkle:version>0.0.9</sparkle:version>
      <link>https://orvane.example/old</link>
    </item>
    <item>
      <title>Version )" + version + R"(</title>
      <sparkle:version>)" + version + R"(</sparkle:version>
      <description><![CDATA[<p>Sidebar <b>badges</b> are sharper.</p>]]></description>
      <link>)" + link + R"(</link>
    </item>
  </channel>
</rss>)";
}

class UpdaterControllerTest : public ::testing::Test {
protected:
    UpdaterController::Configuration configuration(const std::string& feedURL) {
        return {feedURL, "0.1.0", std::string("12.0"), 30000};
    }

    // Runs one check to its end and returns its result.
    UpdaterController::Result check(UpdaterController& updater) {
        std::optional<UpdaterController::Result> result;
        updater.checkForUpdates([&](const UpdaterController::Result& r) { result = r; });
        EXPECT_TRUE(test::waitUntil([&] { return result.has_value(); }, 15s));
        return result.value_or(UpdaterController::Result {});
    }

    UpdaterController::Result checkFeed(const std::string& path) {
        UpdaterController updater(configuration(server.uri(path)));
        return check(updater);
    }

    test::FixtureServer server;
};

TEST_F(UpdaterControllerTest, WithoutAFeedNoCheckCanStart) {
    for (const char* feed : {"", "file:///etc/passwd", "javascript:alert(1)", "feed.xml"}) {
        UpdaterController updater(configuration(feed));
        std::vector<bool> seen;
        auto subscription = updater.observeCanCheckForUpdates([&](bool can) { seen.push_back(can); });
        EXPECT_EQ(seen, std::vector<bool> {false}) << feed;
        bool called = false;
        updater.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        EXPECT_FALSE(updater.isChecking());
        test::drainEvents();
        EXPECT_FALSE(called);
    }
}

TEST_F(UpdaterControllerTest, ACheckDisablesFurtherChecksUntilItEnds) {
    server.serve("/appcast.xml", feedWith("0.2.0"), "application/rss+xml");
    UpdaterController updater(configuration(server.uri("/appcast.xml")));
    std::vector<bool> seen;
    auto subscription = updater.observeCanCheckForUpdates([&](bool can) { seen.push_back(can); });

    int results = 0;
    std::optional<UpdaterController::Result> result;
    updater.checkForUpdates([&](const UpdaterController::Result& r) { ++results; result = r; });
    EXPECT_FALSE(updater.canCheckForUpdates());
    updater.checkForUpdates([&](const UpdaterController::Result&) { ++results; });
    ASSERT_TRUE(test::waitUntil([&] { return result.has_value(); }));
    EXPECT_TRUE(updater.canCheckForUpdates());
    EXPECT_EQ(seen, (std::vector<bool> {true, false, true}));
    test::drainEvents();
    EXPECT_EQ(results, 1) << "the check asked for while one ran was ignored";
    EXPECT_EQ(server.requestCount("/appcast.xml"), 1);

    ASSERT_EQ(result->kind, Kind::UpdateAvailable);
    ASSERT_TRUE(result->item);
    EXPECT_EQ(result->item->displayVersion, "0.2.0");
    EXPECT_EQ(result->item->downloadURL, "https://orvane.example/download");
    EXPECT_EQ(result->notes, "Sidebar badges are sharper.");
    EXPECT_EQ(result->currentVersion, "0.1.0");

    // The same version, or only older ones, is up to date; checks can repeat.
    server.serve("/appcast.xml", feedWith("0.1.0"), "application/rss+xml");
    EXPECT_EQ(check(updater).kind, Kind::UpToDate);
    server.serve("/appcast.xml", feedWith("0.1.0-beta"), "application/rss+xml");
    EXPECT_EQ(check(updater).kind, Kind::UpToDate);
}

TEST_F(UpdaterControllerTest, BrokenFeedsAndServersEndInAClearFailure) {
    server.serve("/html", "<html><body>Moved</body></html>");
    server.serve("/empty", "", "application/rss+xml");
    server.serve("/no-items", "<rss version=\"2.0\"><channel><title>Orvane</title></channel></rss>");
    server.serve("/unsafe", R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
        <item><sparkle:version>9.0</sparkle:version><link>javascript:alert(document.cookie)</link></item>
        <item><sparkle:version>9.1</sparkle:version><enclosure url="file:///etc/passwd"/></item>
        </channel></rss>)");
    server.handle("/500", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_status(message, 500, nullptr);
    });
    server.serve("/50mb", std::string(50 * 1024 * 1024, ' '), "application/rss+xml");
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

    struct Case { const char* path; const char* error; };
    for (const Case& c : {Case {"/html", "could not be read"}, Case {"/empty", "could not be read"},
             Case {"/no-items", "lists no releases"}, Case {"/unsafe", "lists no releases"},
             Case {"/500", "HTTP 500"}, Case {"/50mb", "too large"}, Case {"/endless", "too large"}}) {
        auto result = checkFeed(c.path);
        EXPECT_EQ(result.kind, Kind::Failed) << c.path;
        EXPECT_NE(result.error.find(c.error), std::string::npos) << c.path << ": " << result.error;
        EXPECT_FALSE(result.item);
    }
    EXPECT_TRUE(test::waitUntil([&] { return endless.finished; })) << "the endless answer was dropped";
    EXPECT_LT(endless.sent, 32u * 1024 * 1024);

    std::string refused = "http://127.0.0.1:" + std::to_string(test::refusingLoopbackPort()) + "/appcast.xml";
    UpdaterController refusedUpdater(configuration(refused));
    auto unreachable = check(refusedUpdater);
    EXPECT_EQ(unreachable.kind, Kind::Failed);
    EXPECT_NE(unreachable.error.find("could not reach"), std::string::npos) << unreachable.error;

    test::SilentServer silent;
    auto config = configuration(silent.uri("/appcast.xml"));
    config.timeoutMilliseconds = 200;
    UpdaterController stalled(config);
    auto result = check(stalled);
    EXPECT_EQ(result.kind, Kind::Failed);
    EXPECT_NE(result.error.find("did not answer in time"), std::string::npos) << result.error;
    EXPECT_TRUE(stalled.canCheckForUpdates());
}

TEST_F(UpdaterControllerTest, DestroyingTheControllerMidCheckCancelsQuietly) {
    test::SilentServer silent;
    bool called = false;
    {
        UpdaterController updater(configuration(silent.uri("/appcast.xml")));
        updater.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        ASSERT_TRUE(test::waitUntil([&] { return silent.requests() == 1; }));
    }
    EXPECT_TRUE(test::waitUntil([&] { return silent.closedConnections() == 1; }));
    test::drainEvents();
    EXPECT_FALSE(called);
}

} // namespace
} // namespace orvane
