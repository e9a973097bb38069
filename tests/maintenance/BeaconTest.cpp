#include "Beacon.h"

#include "Files.h"
#include "SilentServer.h"
#include "SystemVersion.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace orvane {
namespace {

using namespace std::chrono_literals;

constexpr double kLaunch = 1'700'000'000.75;
constexpr const char* kKnownID = "0F3C2B1A-9D8E-4C7B-A6F5-E4D3C2B1A098";

std::vector<std::string> queryNames(const std::string& uri) {
    std::vector<std::string> names;
    auto query = uri.substr(uri.find('?') + 1);
    size_t start = 0;
    while (start < query.size()) {
        size_t end = query.find('&', start);
        if (end == std::string::npos)
            end = query.size();
        auto item = query.substr(start, end - start);
        names.push_back(item.substr(0, item.find('=')));
        start = end + 1;
    }
    return names;
}

std::string queryValue(const std::string& uri, const std::string& name) {
    GHashTable* params = g_uri_parse_params(uri.substr(uri.find('?') + 1).c_str(), -1, "&", G_URI_PARAMS_NONE, nullptr);
    if (!params)
        return {};
    auto* value = static_cast<const char*>(g_hash_table_lookup(params, name.c_str()));
    std::string result = value ? value : "";
    g_hash_table_unref(params);
    return result;
}

class BeaconTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = test::makeTempFolder("beacon");
        preferencesPath = folder + "/preferences.ini";
    }

    Beacon::Configuration configuration(std::string endpoint = "https://stats.orvane.example/orvane/ping.txt") {
        return {std::move(endpoint), "0.1.0", "12.0", preferencesPath};
    }

    // A beacon on the test's clock that records what it would send.
    std::unique_ptr<Beacon> launch(Beacon::Configuration config) {
        return std::make_unique<Beacon>(std::move(config), [this] { return now; },
            [this](const std::string& uri) { sent.push_back(uri); });
    }
    std::unique_ptr<Beacon> launch() { return launch(configuration()); }

    std::string storedID() { return Preferences(preferencesPath).string(Beacon::kInstallIDKey).value_or(""); }

    std::string folder;
    std::string preferencesPath;
    double now = kLaunch;
    std::vector<std::string> sent;
};

TEST_F(BeaconTest, PingsAtMostOnceAnHourWithTheSameInstallID) {
    auto beacon = launch();
    beacon->applicationBecameActive();
    EXPECT_TRUE(sent.empty()) << "nothing before start()";

    beacon->start();
    beacon->start();
    ASSERT_EQ(sent.size(), 1u) << "a second start() does nothing";
    EXPECT_EQ(queryNames(sent[0]), (std::vector<std::string> {"id", "v", "os", "t"}));
    EXPECT_TRUE(g_str_has_prefix(sent[0].c_str(), "https://stats.orvane.example/orvane/ping.txt?id="));
    std::string id = storedID();
    EXPECT_TRUE(g_uuid_string_is_valid(id.c_str()));
    EXPECT_EQ(id, GCharPtr(g_ascii_strup(id.c_str(), -1)).get()) << "upper-case";
    EXPECT_EQ(queryValue(sent[0], "id"), id);
    EXPECT_EQ(queryValue(sent[0], "v"), "0.1.0");
    EXPECT_EQ(queryValue(sent[0], "os"), "12.0");
    EXPECT_EQ(queryValue(sent[0], "t"), "1700000000") << "whole seconds, truncated";
    EXPECT_EQ(Preferences(preferencesPath).number(Beacon::kLastPingKey), kLaunch);

    // A second launch half an hour later sends nothing and keeps the id.
    beacon.reset();
    now = kLaunch + 1800;
    beacon = launch();
    beacon->start();
    EXPECT_EQ(sent.size(), 1u);

    now = kLaunch + 59 * 60;
    beacon->applicationBecameActive();
    EXPECT_EQ(sent.size(), 1u) << "59 minutes after the last ping";
    now = kLaunch + 60 * 60;
    beacon->applicationBecameActive();
    ASSERT_EQ(sent.size(), 2u) << "60 minutes after the last ping";
    EXPECT_EQ(queryValue(sent[1], "id"), id);
    EXPECT_EQ(queryValue(sent[1], "t"), "1700003600");
    beacon->applicationBecameActive();
    EXPECT_EQ(sent.size(), 2u);
}

// A last ping up to an hour ahead holds the next one back as usual; one
// further ahead (a clock set back, a damaged file) would hold it back for as
// long, and counts as none.
TEST_F(BeaconTest, ALastPingMoreThanAnHourAheadCountsAsNone) {
    struct Case { double lastPingOffset; bool pings; };
    for (const Case& c : {Case {-3600, true}, Case {-3599, false}, Case {1800, false}, Case {3600, false},
             Case {3601, true}, Case {7200, true}, Case {1e12, true}}) {
        SCOPED_TRACE(c.lastPingOffset);
        ASSERT_TRUE(Preferences(preferencesPath).setNumber(Beacon::kLastPingKey, kLaunch + c.lastPingOffset));
        sent.clear();
        launch()->start();
        EXPECT_EQ(sent.size(), c.pings ? 1u : 0u);
    }
}

TEST_F(BeaconTest, UnknownVersionsAreSentAsQuestionMarksAndNoEndpointMeansNoPing) {
    auto config = configuration();
    config.version = "";
    config.systemVersion = "";
    auto beacon = launch(config);
    beacon->start();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_NE(sent[0].find("&v=?&os=?&t="), std::string::npos) << sent[0];

    sent.clear();
    std::string untouched = folder + "/untouched.ini";
    for (const char* endpoint : {"", "ftp://stats.orvane.example/ping", "not a url", "https:///no-host"}) {
        auto off = launch({endpoint, "0.1.0", "12.0", untouched});
        off->start();
        off->applicationBecameActive();
        EXPECT_FALSE(off->isEnabled()) << endpoint;
    }
    EXPECT_TRUE(sent.empty());
    EXPECT_FALSE(Files::exists(untouched)) << "no install id is made when nothing is sent";
}

TEST_F(BeaconTest, OtherPreferencesSurviveAndStoredValuesAreUsed) {
    std::string original = std::string("# Written by hand\n[Window]\nwidth=800\n\n[Orvane]\nSomethingElse=kept\nOrvaneInstallID=")
        + kKnownID + "\nOrvaneLastPingAt=inf\n";
    ASSERT_TRUE(Files::replaceAtomically(preferencesPath, original));
    auto beacon = launch();
    beacon->start();
    ASSERT_EQ(sent.size(), 1u) << "a last-ping time that is not a finite number counts as absent";
    EXPECT_EQ(queryValue(sent[0], "id"), kKnownID);

    std::string after = Files::read(preferencesPath, 65536).value_or("");
    for (const char* kept : {"# Written by hand", "[Window]", "width=800", "SomethingElse=kept", kKnownID})
        EXPECT_NE(after.find(kept), std::string::npos) << kept << " in\n" << after;
    EXPECT_EQ(Preferences(preferencesPath).number(Beacon::kLastPingKey), kLaunch);

    // An id that is not a UUID is replaced (and the replacement kept).
    ASSERT_TRUE(Files::replaceAtomically(preferencesPath, "[Orvane]\nOrvaneInstallID=../../etc&x=1\n"));
    sent.clear();
    launch()->start();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_TRUE(g_uuid_string_is_valid(queryValue(sent[0], "id").c_str()));
    EXPECT_EQ(queryValue(sent[0], "id"), storedID());
}

TEST_F(BeaconTest, CorruptOrUnwritableKeyFilesStillAllowOnlyOnePingAnHour) {
    const std::string corrupt = "[Orvane\nOrvaneLastPingAt=\x01\xff garbage\n=== not a key file\n[Other]\nimportant=yes\n";
    ASSERT_TRUE(Files::replaceAtomically(preferencesPath, corrupt));
    std::string blocker = folder + "/not-a-folder";
    ASSERT_TRUE(Files::replaceAtomically(blocker, "a file where a folder should be"));

    for (const std::string& path : {preferencesPath, blocker + "/preferences.ini"}) {
        SCOPED_TRACE(path);
        sent.clear();
        now = kLaunch;
        auto config = configuration();
        config.preferencesPath = path;
        auto beacon = launch(config);
        beacon->start();
        ASSERT_EQ(sent.size(), 1u);
        now = kLaunch + 1800;
        beacon->applicationBecameActive();
        EXPECT_EQ(sent.size(), 1u) << "remembered in memory";
        now = kLaunch + 3600;
        beacon->applicationBecameActive();
        ASSERT_EQ(sent.size(), 2u);
        EXPECT_EQ(queryValue(sent[0], "id"), queryValue(sent[1], "id")) << "one id for the whole run";
    }
    EXPECT_EQ(Files::read(preferencesPath, 65536), corrupt) << "a file Orvane cannot parse is never overwritten";
    EXPECT_FALSE(Files::exists(blocker + "/preferences.ini"));
}

TEST(SystemVersion, SendsMajorDotMinorFromVersionID) {
    struct Case { const char* versionID; const char* sent; };
    for (const Case& c : {Case {"12", "12.0"}, Case {"24.04", "24.4"}, Case {"3.20.2", "3.20"}, Case {"8.10", "8.10"},
             Case {"12.", "12.0"}, Case {"39-beta", "39.0"}, Case {"2024.1", "2024.1"}})
        EXPECT_EQ(SystemVersion::fromVersionID(c.versionID), std::string(c.sent)) << c.versionID;
    for (const char* unknown : {"", "rolling", "\"12\"", "v12", "1234567890", "\xd9\xa3"})
        EXPECT_EQ(SystemVersion::fromVersionID(unknown), std::nullopt) << unknown;
}

TEST(BeaconURI, KeepsTheEndpointsAddressAndReplacesItsQuery) {
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example/orvane/ping.txt", kKnownID, "1.2.3", "12.0", 1700000000.999),
        std::string("https://stats.orvane.example/orvane/ping.txt?id=") + kKnownID + "&v=1.2.3&os=12.0&t=1700000000");
    EXPECT_EQ(Beacon::pingURI("http://127.0.0.1:8080/a%20b/ping?old=1#frag", "X", "1 & 2=3+4#", "12.0", 5.5),
        "http://127.0.0.1:8080/a%20b/ping?id=X&v=1%20%26%202%3D3%2B4%23&os=12.0&t=5");
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example", "X", "", "", 0), "https://stats.orvane.example/?id=X&v=?&os=?&t=0");
    for (const char* bad : {"", "stats.orvane.example/ping", "file:///tmp/ping", "javascript:alert(1)"})
        EXPECT_EQ(Beacon::pingURI(bad, "X", "1", "12.0", 5), "") << bad;
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example/", "X", "1", "12.0", std::numeric_limits<double>::infinity()), "");
}

// The real request, against a server on 127.0.0.1.
class BeaconRequestTest : public BeaconTest {
protected:
    std::unique_ptr<Beacon> launchLive() {
        return std::make_unique<Beacon>(configuration(server.uri("/orvane/ping.txt")), [this] { return now; });
    }

    test::FixtureServer server;
};

TEST_F(BeaconRequestTest, SendsOnePlainGETWithTheStoredInstallID) {
    ASSERT_TRUE(Files::replaceAtomically(preferencesPath, std::string("[Orvane]\nOrvaneInstallID=") + kKnownID + "\n"));
    server.serve("/orvane/ping.txt", "ok", "text/plain");
    auto beacon = launchLive();
    beacon->start();
    EXPECT_EQ(server.requestCount("/orvane/ping.txt"), 0) << "start() returns before the request is even made";
    ASSERT_TRUE(test::waitUntil([&] { return server.requestCount("/orvane/ping.txt") == 1; }));
    auto request = server.requests("/orvane/ping.txt")[0];
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.query, std::string("id=") + kKnownID + "&v=0.1.0&os=12.0&t=1700000000");
    EXPECT_EQ(request.headers.count("cookie"), 0u);
    EXPECT_EQ(request.headers.count("if-modified-since"), 0u);
    EXPECT_EQ(request.headers.count("if-none-match"), 0u);
}

TEST_F(BeaconRequestTest, ErrorsAndStallsAreNeitherRetriedNorWaitedFor) {
    server.handle("/orvane/ping.txt", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_status(message, 500, nullptr);
    });
    auto beacon = launchLive();
    beacon->start();
    ASSERT_TRUE(test::waitUntil([&] { return server.requestCount("/orvane/ping.txt") == 1; }));
    beacon->applicationBecameActive();
    EXPECT_FALSE(test::waitUntil([&] { return server.requestCount("/orvane/ping.txt") > 1; }, 1s)) << "no retry";
    beacon.reset();

    // A server that never answers: the request is abandoned after the
    // time-out (shortened here), and never repeated.
    test::SilentServer silent;
    now += 3600;
    auto config = configuration(silent.uri("/orvane/ping.txt"));
    config.timeoutMilliseconds = 200;
    beacon = std::make_unique<Beacon>(config, [this] { return now; });
    beacon->start();
    EXPECT_EQ(silent.requests(), 0);
    ASSERT_TRUE(test::waitUntil([&] { return silent.requests() == 1; }));
    EXPECT_TRUE(test::waitUntil([&] { return silent.closedConnections() == 1; })) << "the client gave up";
    EXPECT_FALSE(test::waitUntil([&] { return silent.requests() > 1; }, 1s)) << "no retry";

    // With the real 15-second time-out, dropping the beacon cancels the request.
    now += 3600;
    beacon = std::make_unique<Beacon>(configuration(silent.uri("/orvane/ping.txt")), [this] { return now; });
    beacon->start();
    ASSERT_TRUE(test::waitUntil([&] { return silent.requests() == 2; }));
    beacon.reset();
    EXPECT_TRUE(test::waitUntil([&] { return silent.closedConnections() == 2; }, 5s));
}

TEST_F(BeaconRequestTest, ARefusedConnectionStillCountsAsAPing) {
    std::string endpoint = "http://127.0.0.1:" + std::to_string(test::refusingLoopbackPort()) + "/orvane/ping.txt";
    auto config = configuration(endpoint);
    Beacon beacon(config, [this] { return now; });
    beacon.start();
    EXPECT_EQ(Preferences(preferencesPath).number(Beacon::kLastPingKey), kLaunch);
    test::drainEvents();
}

} // namespace
} // namespace orvane
