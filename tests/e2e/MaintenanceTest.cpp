// The usage ping and the update check of the real orvane: the ping goes at
// start with the install id kept in the preferences file; "Check for
// Updates…" is offered when a feed is configured and reads it only when chosen.
#include "E2ETest.h"

#include "Files.h"

namespace orvane::test {

using MaintenanceTest = E2ETest;

TEST_F(MaintenanceTest, ThePingCarriesTheStoredInstallIDAndTheFeedIsReadOnlyWhenAsked) {
    server.serve("/ping.txt", "ok", "text/plain");
    server.serve("/appcast.xml", R"(<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><title>Orvane</title>
<item><title>Orvane 99.0</title><enclosure url="https://example.com/orvane-99.tar.gz" sparkle:version="99.0"/></item>
</channel></rss>)", "application/rss+xml");
    orvane.setEnvironment("ORVANE_PING_URL", server.uri("/ping.txt"));
    orvane.setEnvironment("ORVANE_APPCAST_URL", server.uri("/appcast.xml"));
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/ping.txt") == 1; }, 20s));
    std::string preferences = Files::read(orvane.configHome() + "/Orvane/preferences.ini", 1 << 16).value_or("");
    auto at = preferences.find("OrvaneInstallID=");
    ASSERT_NE(at, std::string::npos) << preferences;
    std::string id = preferences.substr(at + 16, 36);
    EXPECT_EQ(server.requests("/ping.txt").front().query.rfind("id=" + id + "&v=", 0), 0u);

    ASSERT_NE(mainWindow(), 0u);
    auto actions = orvane.actions();
    ASSERT_TRUE(actions && actions->contains("check-for-updates") && actions->at("check-for-updates"));
    EXPECT_EQ(server.requestCount("/appcast.xml"), 0) << "nothing is fetched until the user asks";
    ASSERT_TRUE(orvane.activateAction("check-for-updates"));
    EXPECT_TRUE(waitUntil([&] { return server.requestCount("/appcast.xml") == 1; }, 20s));
    EXPECT_TRUE(orvane.isRunning());
    EXPECT_EQ(server.requestCount("/ping.txt"), 1);
}

} // namespace orvane::test
