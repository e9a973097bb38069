// The usage ping's edges, on the test's clock: the once-an-hour rule, the
// address it sends, what makes it stay off, broken preferences, and the one
// real request it makes.
#include "Beacon.h"

#include "Files.h"
#include "SystemVersion.h"
#include "UnansweredRequests.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace orvane {
namespace {

using namespace std::chrono_literals;

constexpr double kLaunch = 1'700'000'000.75;
constexpr const char* kEndpoint = "https://stats.orvane.example/orvane/ping.txt";
constexpr const char* kKnownID = "0F3C2B1A-9D8E-4C7B-A6F5-E4D3C2B1A098";

std::string idIn(const std::string& uri) {
    size_t at = uri.find("?id=");
    return at == std::string::npos ? "" : uri.substr(at + 4, uri.find('&', at) - at - 4);
}

class BeaconTest : public ::testing::Test {
protected:
    Beacon::Configuration configuration(std::string endpoint = kEndpoint) {
        return { std::move(endpoint), "0.1.0", "12.0", preferencesPath };
    }
    // A beacon on the test's clock that records what it would send.
    std::unique_ptr<Beacon> launch(Beacon::Configuration config) {
        auto record = [this](const std::string& uri) { sent.push_back(uri); };
        return std::make_unique<Beacon>(std::move(config), [this] { return now; }, record);
    }
    std::unique_ptr<Beacon> launch() { return launch(configuration()); }
    std::string storedID() { return Preferences(preferencesPath).string(Beacon::kInstallIDKey).value_or(""); }

    const std::string folder = test::makeTempFolder("beacon");
    const std::string preferencesPath = folder + "/preferences.ini";
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
}

TEST_F(BeaconTest, UnknownVersionsAreQuestionMarksAndNoEndpointMeansNoPing) {
    EXPECT_EQ(Beacon::pingURI("http://127.0.0.1:8080/a%20b/ping?old=1#frag", "X", "1 & 2=3+4#", "", 5.5),
        "http://127.0.0.1:8080/a%20b/ping?id=X&v=1%20%26%202%3D3%2B4%23&os=?&t=5");
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example", "X", "", "", 0),
        "https://stats.orvane.example/?id=X&v=?&os=?&t=0");
    EXPECT_EQ(Beacon::pingURI("https://stats.orvane.example/", "X", "1", "12.0", HUGE_VAL), "");
    for (const char* endpoint : { "", "ftp://stats.orvane.example/ping", "not a url", "https:///no-host" }) {
        auto off = launch(configuration(endpoint));
        off->start();
        EXPECT_FALSE(off->isEnabled()) << endpoint;
    }
    EXPECT_TRUE(sent.empty());
    EXPECT_FALSE(Files::exists(preferencesPath)) << "no install id is made when nothing is sent";

    const std::pair<const char*, const char*> versions[] = {
        { "12", "12.0" }, { "24.04", "24.4" }, { "3.20.2", "3.20" }, { "39-beta", "39.0" }, { "rolling", "" },
        { "\"12\"", "" }, { "1234567890", "" },
    };
    for (auto [versionID, systemVersion] : versions)
        EXPECT_EQ(SystemVersion::fromVersionID(versionID).value_or(""), systemVersion) << versionID;
}

TEST_F(BeaconTest, BadOrUnwritablePreferencesStillAllowOnePingAnHour) {
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
        auto config = configuration();
        config.preferencesPath = path;
        auto beacon = launch(config);
        now = kLaunch;
        beacon->start();
        for (double minutes : { 30, 60 }) {
            now = kLaunch + minutes * 60;
            beacon->applicationBecameActive();
        }
        ASSERT_EQ(sent.size(), 2u) << path;
        EXPECT_EQ(idIn(sent[0]), idIn(sent[1]));
    }
    EXPECT_EQ(Files::read(preferencesPath, 65536), corrupt);
}

// The real request: one plain GET, never waited for and never retried,
// abandoned after its time-out or when the beacon goes.
TEST_F(BeaconTest, SendsOnePlainGETThatIsNeitherWaitedForNorRetried) {
    test::FixtureServer server;
    test::UnansweredRequests silent(server, "/silent");
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

    // A refused connection still counts as a ping.
    now += 3600;
    const unsigned closedPort = test::FixtureServer().port();
    const std::string refusing = "http://127.0.0.1:" + std::to_string(closedPort) + "/p";
    Beacon refused(configuration(refusing), [this] { return now; });
    refused.start();
    EXPECT_EQ(Preferences(preferencesPath).number(Beacon::kLastPingKey), now);
    test::drainEvents();
}

} // namespace
} // namespace orvane
