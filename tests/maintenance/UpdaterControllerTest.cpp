// The update check's own part: one check at a time, and what the user reads
// for each feed and each way the fetch ends. How the feed is fetched
// (status, size, time-out, redirects) is HTTPFetch's, tests/base/HTTPFetchTest.
#include "UpdaterController.h"

#include "UnansweredRequests.h"
#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Kind = UpdaterController::Result::Kind;
using Failure = HTTPFetch::Failure;

std::string feedWith(const std::string& version) {
    return R"(<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
    <item><sparkle:version>0.0.9</sparkle:version><link>https://orvane.example/old</link></item>
    <item><sparkle:version>)" + version + R"(</sparkle:version><link>https://orvane.example/download</link>
      <description><![CDATA[<p>Sidebar <b>badges</b> are sharper.</p>]]></description></item></channel></rss>)";
}

UpdaterController::Configuration configuration(const std::string& feedURL) {
    return { feedURL, "0.1.0", std::string("12.0") };
}

TEST(UpdaterControllerTest, OneCheckAtATimeNoneWithoutAFeedAndNoAnswerAfterDestruction) {
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
    EXPECT_EQ(result->kind, Kind::UpdateAvailable);

    // Destroyed mid-check: the request is cancelled and nobody is called.
    test::UnansweredRequests silent(server, "/silent");
    bool called = false;
    {
        UpdaterController silent(configuration(server.uri("/silent")));
        silent.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        ASSERT_TRUE(test::waitUntil([&] { return server.requestCount("/silent") == 1; }));
    }
    EXPECT_TRUE(test::waitUntil([&] { return silent.closed() == 1; }, 5s)) << "the request was cancelled";
    EXPECT_FALSE(called);
}

TEST(UpdaterControllerTest, FeedsAndFetchOutcomesBecomeTheUsersResult) {
    const auto config = configuration("https://orvane.example/appcast.xml");
    HTTPFetch::Outcome fetched;
    fetched.body = feedWith("0.2.0");
    auto available = UpdaterController::resultOf(fetched, config);
    ASSERT_EQ(available.kind, Kind::UpdateAvailable);
    EXPECT_EQ(available.item->displayVersion, "0.2.0");
    EXPECT_EQ(available.item->downloadURL, "https://orvane.example/download");
    EXPECT_EQ(available.notes, "Sidebar badges are sharper.");
    EXPECT_EQ(available.currentVersion, "0.1.0");

    const std::tuple<std::string, Kind, const char*> feeds[] = {
        { feedWith("0.1.0"), Kind::UpToDate, "" },
        { feedWith("0.1.0-beta"), Kind::UpToDate, "" },
        { "<html><body>Moved</body></html>", Kind::Failed, "could not be read" },
        { R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><item><sparkle:version>9.0</sparkle:version>
            <link>javascript:alert(document.cookie)</link></item></channel></rss>)", Kind::Failed, "lists no releases" },
    };
    for (const auto& [feed, kind, error] : feeds) {
        auto result = UpdaterController::evaluate(feed, config);
        EXPECT_EQ(result.kind, kind) << feed;
        EXPECT_NE(result.error.find(error), std::string::npos) << result.error;
    }

    auto failed = [](Failure failure, unsigned status = 0, std::string error = "") {
        HTTPFetch::Outcome outcome;
        outcome.failure = failure;
        outcome.status = status;
        outcome.error = std::move(error);
        return outcome;
    };
    const std::pair<HTTPFetch::Outcome, const char*> outcomes[] = {
        { failed(Failure::Status, 500), "answered with an error (HTTP 500)" },
        { failed(Failure::TooLarge), "too large" },
        { failed(Failure::TimedOut), "did not answer in time" },
        { failed(Failure::Transport, 0, "Connection refused"), "could not reach the update server: Connection refused" },
        { failed(Failure::Address), "an address it does not follow" },
        { failed(Failure::Cancelled), "interrupted" },
    };
    for (const auto& [outcome, error] : outcomes) {
        auto result = UpdaterController::resultOf(outcome, config);
        EXPECT_EQ(result.kind, Kind::Failed) << error;
        EXPECT_NE(result.error.find(error), std::string::npos) << result.error;
    }
}

} // namespace
} // namespace orvane
