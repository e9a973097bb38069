// The update check: what a feed means (Appcast), and the check's own part,
// one check at a time and what the user reads for each feed and each way the
// fetch ends (UpdaterController). How the feed is fetched (status, size,
// time-out, redirects) is HTTPFetch's, tests/base/HTTPFetchTest; what the
// dialog offers is tests/app/UpdateDialogUITest's.
#include "Appcast.h"
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

std::string feed(const std::string& items) {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel><title>Orvane</title>)" + items + "</channel></rss>";
}

std::string feedWith(const std::string& version) {
    return feed(R"(<item><sparkle:version>0.0.9</sparkle:version><link>https://orvane.example/old</link>
    </item><item><sparkle:version>)" + version + R"(</sparkle:version>
      <link>https://orvane.example/download</link>
      <description><![CDATA[<p>Sidebar <b>badges</b> are sharper.</p>]]></description></item>)");
}

UpdaterController::Configuration configuration(const std::string& feedURL) {
    return { feedURL, "0.1.0", std::string("12.0") };
}

// Bounds, valid text, web addresses only (its seeds hold unsafe ones) and the
// version order's symmetry hold for any feed (fuzz/AppcastFuzzer); here is
// what a feed means. Shaped like feeds in the wild: newest item not first,
// the enclosure-attribute style next to the element style, a minimum system
// version, items for other systems and channels, items missing what they
// need, and an address that names a user.
TEST(AppcastTest, PicksTheNewestItemThisSystemMayInstallAndKeepsOnlyWebAddresses) {
    auto appcast = Appcast::parse(feed(R"(
    <item><title>Version 1.9</title><sparkle:version>1.9</sparkle:version>
      <description><![CDATA[<h2>Fixes</h2><ul><li>Faster start</li><li>Fewer crashes</li></ul>]]>
      </description><enclosure url="https://dl.orvane.example/orvane-1.9.flatpak" length="1024"/></item>
    <item><sparkle:version>200</sparkle:version>
      <sparkle:minimumSystemVersion>13.0</sparkle:minimumSystemVersion>
      <link>https://orvane.example/download/2.0</link></item>
    <item><sparkle:releaseNotesLink>https://orvane.example/notes/1.10.html</sparkle:releaseNotesLink>
      <enclosure url="https://dl.orvane.example/1.10" sparkle:version="1.10"
        sparkle:shortVersionString="1.10 &#x202E;gpj.exe"/></item>
    <item><sparkle:version>900</sparkle:version>
      <enclosure url="https://dl.orvane.example/9.zip" sparkle:os="macos"/></item>
    <item><sparkle:version>500</sparkle:version><sparkle:channel>beta</sparkle:channel>
      <link>https://orvane.example/beta</link></item>
    <item><title>No version</title><link>https://orvane.example/none</link></item>
    <item><sparkle:version>700</sparkle:version></item>
    <item><sparkle:version>9</sparkle:version><enclosure url="https://orvane.example@evil.example/x"/></item>
    <item><sparkle:version>1.2</sparkle:version><link>javascript:x</link>
      <enclosure url="https://dl.orvane.example/1.2"/></item>
    )"));
    ASSERT_TRUE(appcast);
    ASSERT_EQ(appcast->items().size(), 4u) << "other systems or channels, no version or no download";
    const auto& first = appcast->items()[0];
    EXPECT_EQ(first.downloadURL, "https://dl.orvane.example/orvane-1.9.flatpak");
    EXPECT_EQ(Appcast::plainText(first.descriptionHTML), "Fixes\n\n• Faster start\n• Fewer crashes");
    EXPECT_EQ(appcast->items()[1].downloadURL, "https://orvane.example/download/2.0") << "<link>: the page";
    const auto& attributes = appcast->items()[2];
    EXPECT_EQ(attributes.version, "1.10");
    EXPECT_EQ(attributes.displayVersion, "1.10 gpj.exe") << "the bidirectional override is not shown";
    EXPECT_EQ(attributes.releaseNotesURL, "https://orvane.example/notes/1.10.html");
    EXPECT_EQ(appcast->items()[3].downloadURL, "https://dl.orvane.example/1.2") << "else the enclosure";

    EXPECT_EQ(appcast->newest(std::string("12.0"))->version, "1.10") << "1.10 > 1.9; 2.0 needs 13.0";
    EXPECT_EQ(appcast->newest(std::string("13.0"))->version, "200");
    EXPECT_EQ(appcast->newest(std::nullopt)->version, "200") << "an unknown system is not held back";
    EXPECT_EQ(Appcast::parse(feed(""))->newest(std::string("12.0")), nullptr);

    const std::tuple<const char*, const char*, int> versions[] = {
        { "1.10", "1.9", 1 }, { "1.0.", "1.0", 0 }, { "1.0.1", "1.0", 1 }, { "2.0", "2.0b3", 1 },
        { "2.0b4", "2.0b3", 1 }, { "1.0", "1.0-beta", 1 }, { "1.0-beta", "0.1.0", 1 },
        { "1.0-beta2", "1.0-beta10", -1 }, { "010", "9", 1 }, { "\xd9\xa3", "0.1.0", -1 },
        { "99999999999999999999999999", "99999999999999999999999998", 1 },
    };
    for (const auto& [a, b, order] : versions)
        EXPECT_EQ(Appcast::compareVersions(a, b), order) << a << " vs " << b;
}

TEST(AppcastTest, RefusesWhatIsNotAFeedOrHasADocumentTypeAndReadsNotesAsPlainText) {
    const std::string dtd = R"(<?xml version="1.0"?><!DOCTYPE rss [<!ENTITY a "aaaaaaaaaa">
<!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;"><!ENTITY secret SYSTEM "file:///etc/passwd">]>
<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><item><title>)";
    const std::string item = R"(</title><sparkle:version>9</sparkle:version>
<link>https://orvane.example/</link></item></channel></rss>)";
    const std::string refused[] = {
        "hello", "<html><body>Not found</body></html>",
        "<?xml version=\"1.0\"?><feed xmlns=\"http://www.w3.org/2005/Atom\"/>",
        dtd + "&b;" + item, dtd + "&secret;" + item, feed(std::string(Appcast::kMaxFeedBytes, ' ')),
    };
    for (const std::string& bytes : refused)
        EXPECT_FALSE(Appcast::parse(bytes)) << bytes.substr(0, 80);

    EXPECT_EQ(Appcast::plainText("<p>One   two\n three</p><script>alert(1)</script><style>p{}</style>"
                                 "<p>Four<br>Five &amp; six</p>"),
        "One two three\n\nFour\nFive & six");
}

TEST(UpdaterControllerTest, OneCheckAtATimeNoneWithoutAFeedAndNoAnswerAfterDestruction) {
    for (const char* feedURL : { "file:///etc/passwd", "feed.xml" }) {
        UpdaterController updater(configuration(feedURL));
        EXPECT_FALSE(updater.canCheckForUpdates()) << feedURL;
        bool called = false;
        updater.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        test::drainEvents();
        EXPECT_FALSE(called) << "without a feed no check can start";
    }

    test::FixtureServer server;
    server.serve("/appcast.xml", feedWith("0.2.0"), "application/rss+xml");
    UpdaterController updater(configuration(server.uri("/appcast.xml")));
    int results = 0;
    std::optional<UpdaterController::Result> result;
    updater.checkForUpdates([&](const UpdaterController::Result& r) {
        ++results;
        result = r;
    });
    updater.checkForUpdates([&](const UpdaterController::Result&) { ++results; });
    ASSERT_TRUE(test::waitUntil([&] { return result.has_value(); }));
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
    EXPECT_EQ(available.notes, "Sidebar badges are sharper.");
    EXPECT_EQ(available.currentVersion, "0.1.0");

    const std::tuple<std::string, Kind, const char*> feeds[] = {
        { feedWith("0.1.0"), Kind::UpToDate, "" },
        { feedWith("0.1.0-beta"), Kind::UpToDate, "" },
        { "<html><body>Moved</body></html>", Kind::Failed, "could not be read" },
        { feed("<item><sparkle:version>9.0</sparkle:version><link>javascript:x</link></item>"), Kind::Failed,
            "lists no releases" },
    };
    for (const auto& [text, kind, error] : feeds) {
        auto result = UpdaterController::evaluate(text, config);
        EXPECT_EQ(result.kind, kind) << text;
        EXPECT_NE(result.error.find(error), std::string::npos) << result.error;
    }

    // Every failure says what went wrong; the status and the transport's own
    // error are part of it.
    const std::tuple<Failure, unsigned, std::string, const char*> outcomes[] = {
        { Failure::Status, 500, "", "answered with an error (HTTP 500)" },
        { Failure::Transport, 0, "Refused", "could not reach the update server: Refused" },
        { Failure::TooLarge, 0, "", "" }, { Failure::TimedOut, 0, "", "" }, { Failure::Address, 0, "", "" },
        { Failure::Cancelled, 0, "", "" },
    };
    for (const auto& [failure, status, error, message] : outcomes) {
        HTTPFetch::Outcome outcome;
        outcome.failure = failure;
        outcome.status = status;
        outcome.error = error;
        auto result = UpdaterController::resultOf(outcome, config);
        EXPECT_EQ(result.kind, Kind::Failed) << int(failure);
        EXPECT_TRUE(!result.error.empty() && result.error.find(message) != std::string::npos) << result.error;
    }
}

} // namespace
} // namespace orvane
