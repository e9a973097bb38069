// Orvane's upkeep: what an update feed means (Appcast), one check at a time and what the user reads
// for each feed and fetch outcome (UpdaterController; the fetch itself is tests/base/HTTPFetchTest's,
// the dialog UpdateDialogTest's in tests/app/SettingsViewUITest), the usage ping on the test's clock
// (Beacon), what a hand-edited or damaged preferences.ini gives for the window and the zoom, and the
// autostart entry.
#include "Appcast.h"
#include "Autostart.h"
#include "Beacon.h"
#include "SessionPreferences.h"
#include "UpdaterController.h"

#include "Files.h"
#include "SystemVersion.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using Kind = UpdaterController::Result::Kind;
using Failure = HTTPFetch::Failure;

// Requests to a path of a FixtureServer that are read and never answered. The server notices nothing while
// a message is paused, so whether the client gave up is read from the connection itself.
struct UnansweredRequests {
    UnansweredRequests(test::FixtureServer& server, const std::string& path) {
        server.handle(path, [this](SoupServerMessage* message, const std::string&) {
            sockets.emplace_back(soup_server_message_get_socket(message));
            soup_server_message_pause(message);
        });
    }
    // How many of those connections the client has closed.
    long closed() const {
        return std::count_if(sockets.begin(), sockets.end(), [](const Ref<GSocket>& socket) {
            char byte;
            return recv(g_socket_get_fd(socket.get()), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
        });
    }
    std::vector<Ref<GSocket>> sockets;
};

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

UpdaterController::Configuration checkConfiguration(const std::string& feedURL) {
    return { feedURL, "0.1.0", std::string("12.0") };
}

// Bounds, valid text, web addresses only (its seeds hold unsafe ones) and the version order's symmetry hold
// for any feed (fuzz/AppcastFuzzer); here is what a feed means. Shaped like feeds in the wild: newest item
// not first, the enclosure-attribute style next to the element style, a minimum system version, items for
// other systems and channels, items missing what they need, and an address that names a user.
TEST(AppcastTest, PicksTheNewestItemThisSystemMayInstallAndRefusesWhatIsNotAFeed) {
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

    const std::tuple<const char*, const char*, int> versions[] = {
        { "1.10", "1.9", 1 }, { "1.0.", "1.0", 0 }, { "1.0.1", "1.0", 1 }, { "2.0", "2.0b3", 1 },
        { "1.0", "1.0-beta", 1 }, { "1.0-beta2", "1.0-beta10", -1 }, { "010", "9", 1 },
        { "\xd9\xa3", "0.1.0", -1 }, { "99999999999999999999999999", "99999999999999999999999998", 1 },
    };
    for (const auto& [a, b, order] : versions)
        EXPECT_EQ(Appcast::compareVersions(a, b), order) << a << " vs " << b;

    // What is not a feed, or has a document type, is refused; notes read as plain text.
    const std::string dtd = R"(<!DOCTYPE rss [<!ENTITY secret SYSTEM "file:///etc/passwd">]>
<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><item><title>)";
    const std::string item = R"(</title><sparkle:version>9</sparkle:version>
<link>https://orvane.example/</link></item></channel></rss>)";
    const std::string refused[] = {
        "hello", "<html><body>Not found</body></html>",
        dtd + "&secret;" + item, feed(std::string(Appcast::kMaxFeedBytes, ' ')),
    };
    for (const std::string& bytes : refused)
        EXPECT_FALSE(Appcast::parse(bytes)) << bytes.substr(0, 80);

    EXPECT_EQ(Appcast::plainText("<p>One   two\n three</p><script>alert(1)</script><style>p{}</style>"
                                 "<p>Four<br>Five &amp; six</p>"),
        "One two three\n\nFour\nFive & six");
}

TEST(UpdaterControllerTest, OneCheckAtATimeNoneWithoutAFeedNoAnswerAfterDestructionAndAResultForEachEnd) {
    // What is not a web address is no feed (which addresses are is AppcastTest's).
    UpdaterController noFeed(checkConfiguration("feed.xml"));
    EXPECT_FALSE(noFeed.canCheckForUpdates());
    bool called = false;
    noFeed.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
    test::drainEvents();
    EXPECT_FALSE(called) << "without a feed no check can start";

    test::FixtureServer server;
    server.serve("/appcast.xml", feedWith("0.2.0"), "application/rss+xml");
    UpdaterController updater(checkConfiguration(server.uri("/appcast.xml")));
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
    ASSERT_EQ(result->kind, Kind::UpdateAvailable);
    EXPECT_EQ(result->item->displayVersion, "0.2.0");
    EXPECT_EQ(result->notes, "Sidebar badges are sharper.");

    // Destroyed mid-check: the request is cancelled and nobody is called.
    UnansweredRequests silent(server, "/silent");
    {
        UpdaterController silent(checkConfiguration(server.uri("/silent")));
        silent.checkForUpdates([&](const UpdaterController::Result&) { called = true; });
        ASSERT_TRUE(test::waitUntil([&] { return server.requestCount("/silent") == 1; }));
    }
    EXPECT_TRUE(test::waitUntil([&] { return silent.closed() == 1; }, 5s)) << "the request was cancelled";
    EXPECT_FALSE(called);

    // What the user reads for each way the fetch ends: every failure has a message for the dialog to show;
    // an unreadable feed and one that lists nothing fail.
    const auto config = checkConfiguration("https://orvane.example/appcast.xml");
    const std::pair<HTTPFetch::Outcome, Kind> outcomes[] = {
        { { .body = feedWith("0.1.0") }, Kind::UpToDate },
        { { .body = feedWith("0.1.0-beta") }, Kind::UpToDate }, // not an update: older than 0.1.0
        { { .body = "<html><body>Moved</body></html>" }, Kind::Failed },
        { { .body = feed("<item><sparkle:version>9.0</sparkle:version><link>javascript:x</link></item>") },
            Kind::Failed },
        { { Failure::Status, 500 }, Kind::Failed }, { { Failure::Transport }, Kind::Failed },
    };
    for (const auto& [outcome, kind] : outcomes) {
        auto result = UpdaterController::resultOf(outcome, config);
        EXPECT_EQ(result.kind, kind) << int(outcome.failure) << " " << outcome.body;
        EXPECT_EQ(result.error.empty(), kind != Kind::Failed) << result.error;
    }
    // The status and the transport's own error are part of what the user reads.
    for (const auto& [outcome, text] :
        { std::pair { HTTPFetch::Outcome { Failure::Status, 500 }, "HTTP 500" },
            { { .failure = Failure::Transport, .error = "Refused" }, ": Refused" } })
        EXPECT_NE(UpdaterController::resultOf(outcome, config).error.find(text), std::string::npos) << text;
}

constexpr double kLaunch = 1'700'000'000.75;
constexpr const char* kEndpoint = "https://stats.orvane.example/orvane/ping.txt";
constexpr const char* kKnownID = "0F3C2B1A-9D8E-4C7B-A6F5-E4D3C2B1A098";

std::string idIn(const std::string& uri) {
    size_t at = uri.find("?id=");
    return at == std::string::npos ? "" : uri.substr(at + 4, uri.find('&', at) - at - 4);
}

class BeaconTest : public ::testing::Test {
protected:
    Beacon::Configuration configuration(std::string endpoint = kEndpoint, std::string path = {}) {
        return { std::move(endpoint), "0.1.0", "12.0", path.empty() ? preferencesPath : path };
    }
    // A beacon on the test's clock that records what it would send.
    std::unique_ptr<Beacon> launch(std::string endpoint = kEndpoint, std::string path = {}) {
        auto record = [this](const std::string& uri) { sent.push_back(uri); };
        return std::make_unique<Beacon>(configuration(endpoint, path), [this] { return now; }, record);
    }
    std::string storedID() { return Preferences(preferencesPath).string(Beacon::kInstallIDKey).value_or(""); }

    const std::string folder = test::makeTempFolder("beacon");
    const std::string preferencesPath = folder + "/preferences.ini";
    double now = kLaunch;
    std::vector<std::string> sent;
};

TEST_F(BeaconTest, PingsAtMostOnceAnHourWithTheSameInstallIDWhateverThePreferencesFileHolds) {
    auto beacon = launch();
    beacon->applicationBecameActive();
    EXPECT_TRUE(sent.empty()) << "nothing before start()";
    beacon->start();
    beacon->start();
    ASSERT_EQ(sent.size(), 1u) << "a second start() does nothing";
    std::string id = storedID();
    EXPECT_EQ(sent[0], kEndpoint + ("?id=" + id) + "&v=0.1.0&os=12.0&t=1700000000");
    EXPECT_EQ(id, GCharPtr(g_ascii_strup(id.c_str(), -1)).get()) << "upper-case";

    now = kLaunch + 59 * 60;
    beacon->applicationBecameActive();
    EXPECT_EQ(sent.size(), 1u) << "59 minutes after the last ping";
    now = kLaunch + 60 * 60;
    beacon->applicationBecameActive();
    beacon->applicationBecameActive();
    ASSERT_EQ(sent.size(), 2u) << "60 minutes after the last ping";
    EXPECT_EQ(idIn(sent[1]), id);

    // A last ping up to an hour ahead holds the next one back as usual; one
    // further ahead (a clock set back, a damaged file) counts as none.
    for (auto [offset, pings] : { std::pair(-3599.0, 0u), std::pair(3600.0, 0u), std::pair(3601.0, 1u),
             std::pair(1e12, 1u) }) {
        ASSERT_TRUE(Preferences(preferencesPath).setNumber(Beacon::kLastPingKey, kLaunch + offset));
        sent.clear();
        now = kLaunch;
        launch()->start();
        EXPECT_EQ(sent.size(), pings) << offset;
    }

    // A hand-edited file with a bad id and last-ping time.
    sent.clear();
    const std::string handWritten = "# Written by hand\n[Window]\nwidth=800\n";
    const std::string bad = "[Orvane]\nOrvaneInstallID=../../etc&x=1\nOrvaneLastPingAt=inf\n";
    ASSERT_TRUE(Files::replaceAtomically(preferencesPath, handWritten + bad));
    launch()->start();
    const std::string after = Files::read(preferencesPath, 65536).value_or("");
    for (const char* kept : { "# Written by hand\n", "[Window]\nwidth=800\n" })
        EXPECT_NE(after.find(kept), std::string::npos) << kept << " in\n" << after;
    ASSERT_EQ(sent.size(), 1u) << "a last-ping time that is not a finite number counts as absent";
    EXPECT_TRUE(g_uuid_string_is_valid(idIn(sent[0]).c_str())) << "an id that is not a UUID is replaced";
    EXPECT_EQ(idIn(sent[0]), storedID());

    // A file Orvane cannot parse is never overwritten; the last ping and the
    // id are remembered in memory for the run.
    const std::string corrupt = "[Orvane\nOrvaneLastPingAt=\x01\xff garbage\n=== not a key file\n";
    ASSERT_TRUE(Files::replaceAtomically(preferencesPath, corrupt));
    ASSERT_TRUE(Files::replaceAtomically(folder + "/not-a-folder", "a file where a folder should be"));
    for (const std::string& path : { preferencesPath, folder + "/not-a-folder/preferences.ini" }) {
        sent.clear();
        auto remembering = launch(kEndpoint, path);
        now = kLaunch;
        remembering->start();
        for (double minutes : { 30, 60 }) {
            now = kLaunch + minutes * 60;
            remembering->applicationBecameActive();
        }
        ASSERT_EQ(sent.size(), 2u) << path;
        EXPECT_EQ(idIn(sent[0]), idIn(sent[1]));
    }
    EXPECT_EQ(Files::read(preferencesPath, 65536), corrupt);
}

TEST_F(BeaconTest, UnknownVersionsAreQuestionMarksAndNoEndpointMeansNoPing) {
    EXPECT_EQ(Beacon::pingURI("http://127.0.0.1:8080/a%20b/ping?old=1#frag", "X", "1 & 2=3+4#", "", 5.5),
        "http://127.0.0.1:8080/a%20b/ping?id=X&v=1%20%26%202%3D3%2B4%23&os=?&t=5");
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example", "X", "", "", 0),
        "https://stats.orvane.example/?id=X&v=?&os=?&t=0");
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example/", "X", "1", "12.0", HUGE_VAL), "");
    for (const char* endpoint : { "", "ftp://stats.orvane.example/ping", "https:///no-host" }) {
        auto off = launch(endpoint);
        off->start();
        EXPECT_FALSE(off->isEnabled()) << endpoint;
    }
    EXPECT_TRUE(sent.empty());
    EXPECT_FALSE(Files::exists(preferencesPath)) << "no install id is made when nothing is sent";

    const std::pair<const char*, const char*> versions[] = {
        { "12", "12.0" }, { "24.04", "24.4" }, { "3.20.2", "3.20" }, { "rolling", "" }, { "1234567890", "" },
    };
    for (auto [versionID, systemVersion] : versions)
        EXPECT_EQ(SystemVersion::fromVersionID(versionID).value_or(""), systemVersion) << versionID;
}

// The real request: one plain GET, never waited for and never retried,
// abandoned after its time-out or when the beacon goes.
TEST_F(BeaconTest, SendsOnePlainGETThatIsNeitherWaitedForNorRetried) {
    test::FixtureServer server;
    UnansweredRequests silent(server, "/silent");
    ASSERT_TRUE(Preferences(preferencesPath).setString(Beacon::kInstallIDKey, kKnownID));
    auto config = configuration(server.uri("/silent"));
    config.timeoutMilliseconds = 200;
    auto beacon = std::make_unique<Beacon>(config, [this] { return now; });
    beacon->start();
    EXPECT_EQ(server.requestCount("/silent"), 0) << "start() returns before the request is even made";
    ASSERT_TRUE(test::waitUntil([&] { return silent.closed() == 1; })) << "the client gave up";
    auto request = server.requests("/silent").at(0);
    EXPECT_EQ(request.method + " " + request.query,
        std::string("GET id=") + kKnownID + "&v=0.1.0&os=12.0&t=1700000000");
    for (const char* header : { "cookie", "if-modified-since", "if-none-match" })
        EXPECT_EQ(request.headers.count(header), 0u) << header;

    now += 3600;
    beacon = std::make_unique<Beacon>(configuration(server.uri("/silent")), [this] { return now; });
    beacon->start();
    ASSERT_TRUE(test::waitUntil([&] { return server.requestCount("/silent") == 2; }));
    beacon.reset();
    EXPECT_TRUE(test::waitUntil([&] { return silent.closed() == 2; }, 5s)) << "dropping the beacon cancels";
    EXPECT_EQ(server.requestCount("/silent"), 2) << "no retry";
}

std::optional<SessionPreferences::WindowSize> windowFrom(const std::string& lines) {
    std::string path = test::makeTempFolder("session") + "/preferences.ini";
    Files::replaceAtomically(path, "[Orvane]\n" + lines);
    Preferences preferences(path);
    return SessionPreferences(preferences).windowSize(820, 520);
}

TEST(SessionPreferencesTest, WindowSizeAndZoomStayWithinTheirBounds) {
    using Size = SessionPreferences::WindowSize;
    const std::pair<std::string, std::optional<Size>> cases[] = {
        { "window-width=1000\nwindow-height=640\nwindow-maximized=true\n", Size { 1000, 640, true } },
        { "window-width=300\nwindow-height=99999999\n",
            Size { 820, SessionPreferences::kMaxWindowSide, false } },
        { "window-width=1000.6\nwindow-height=700\nwindow-maximized=yes\n", Size { 1001, 700, false } },
        { "window-width=-5\nwindow-height=700\n", std::nullopt },
        { "window-width=nan\nwindow-height=700\n", std::nullopt },
        { "window-width=1000\n", std::nullopt },
        { "window-width=wide\nwindow-height=tall\n", std::nullopt },
    };
    for (const auto& [lines, expected] : cases)
        EXPECT_EQ(windowFrom(lines), expected) << lines;

    Preferences preferences(test::makeTempFolder("session") + "/preferences.ini");
    SessionPreferences session(preferences);
    const std::string id = "0F3C2B1A-9D8E-4C7B-A6F5-E4D3C2B1A098";
    EXPECT_TRUE(session.setZoom(id, 40));
    EXPECT_EQ(session.zoom(id), 3.0);
    for (const std::string& bad : { ""s, "a=b"s, "x\ny"s, "zoom[1]"s, std::string(65, 'a') })
        EXPECT_FALSE(session.setZoom(bad, 2.0)) << bad;

    const std::tuple<double, double, double> steps[] = { // level, in, out
        { 1.0, 1.1, 0.9 }, { 0.3, 0.5, 0.3 }, { 3.0, 3.0, 2.5 }, { 1.2, 1.25, 1.1 }, { 0.01, 0.5, 0.3 },
        { 1e9, 3.0, 2.5 },
    };
    for (auto [level, in, out] : steps) {
        EXPECT_EQ(SessionPreferences::zoomIn(level), in) << level;
        EXPECT_EQ(SessionPreferences::zoomOut(level), out) << level;
    }
}

// The desktop reads Exec as a quoted command line; the program and the
// option come back whole whatever the path holds.
TEST(SessionPreferencesTest, AutostartEntryRunsThisProgramInTheBackground) {
    for (const std::string path : { "/usr/bin/orvane", "/opt/My Apps/or\"va$ne`\\%u/orvane" }) {
        auto text = Autostart::entryText(path);
        ASSERT_TRUE(text) << path;
        g_autoptr(GKeyFile) file = g_key_file_new();
        ASSERT_TRUE(g_key_file_load_from_data(file, text->c_str(), text->size(), G_KEY_FILE_NONE, nullptr));
        g_autofree char* exec = g_key_file_get_string(file, "Desktop Entry", "Exec", nullptr);
        g_auto(GStrv) argv = nullptr;
        ASSERT_TRUE(g_shell_parse_argv(exec, nullptr, &argv, nullptr)) << exec;
        std::string program = argv[0];
        for (size_t at = 0; (at = program.find("%%", at)) != std::string::npos; ++at)
            program.erase(at, 1);
        EXPECT_EQ(program, path);
        EXPECT_EQ(std::vector<std::string>(argv + 1, argv + g_strv_length(argv)),
            std::vector<std::string> { "--background" });
    }
    for (const std::string path : { "", "orvane", "/bin/or\nvane" })
        EXPECT_FALSE(Autostart::entryText(path)) << path;
}

} // namespace
} // namespace orvane
