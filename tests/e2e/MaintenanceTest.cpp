// The usage ping and the update check of the real orvane: the ping goes once
// an hour with the install id kept in the preferences file, also across a
// restart; "Check for Updates…" is offered only when a feed is configured and
// reads it when chosen.
#include "E2ETest.h"

#include <glib.h>

namespace orvane::test {

class MaintenanceTest : public E2ETest { };

static std::optional<std::string> installIDIn(const std::string& configHome) {
    GKeyFile* file = g_key_file_new();
    std::optional<std::string> id;
    std::string path = configHome + "/Orvane/preferences.ini";
    if (g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr)) {
        gsize groups = 0;
        char** names = g_key_file_get_groups(file, &groups);
        for (gsize i = 0; i < groups && !id; ++i) {
            if (char* value = g_key_file_get_string(file, names[i], "OrvaneInstallID", nullptr)) {
                id = value;
                g_free(value);
            }
        }
        g_strfreev(names);
    }
    g_key_file_free(file);
    return id;
}

TEST_F(MaintenanceTest, UsagePingGoesOnceAnHourWithTheStoredInstallID) {
    server.serve("/orvane/ping.txt", "ok", "text/plain");
    orvane.setEnvironment("ORVANE_PING_URL", server.uri("/orvane/ping.txt"));
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/orvane/ping.txt") == 1; }, 20s));

    auto request = server.requests("/orvane/ping.txt").front();
    auto id = installIDIn(orvane.configHome());
    ASSERT_TRUE(id);
    EXPECT_EQ(id->size(), 36u);
    // Query items in their order: id, v, os, t.
    const std::string& q = request.query;
    EXPECT_EQ(q.rfind("id=" + *id + "&v=", 0), 0u) << q;
    size_t v = q.find("&v="), os = q.find("&os="), t = q.find("&t=");
    EXPECT_TRUE(v != std::string::npos && os != std::string::npos && t != std::string::npos && v < os && os < t) << q;
    EXPECT_EQ(request.headers.count("cookie"), 0u);

    // A restart within the hour sends nothing. Wait for something the new
    // run does well after start-up (an account's page loading) before
    // counting.
    ASSERT_TRUE(orvane.stop());
    ASSERT_TRUE(orvane.start());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("red") >= 1; }, 30s));
    EXPECT_EQ(server.requestCount("/orvane/ping.txt"), 1);
    EXPECT_EQ(installIDIn(orvane.configHome()), id) << "the install id never changes";
}

TEST_F(MaintenanceTest, CheckForUpdatesReadsTheConfiguredFeed) {
    server.serve("/appcast.xml", R"(<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel><title>Orvane</title>
<item><title>Orvane 99.0</title><sparkle:version>99.0</sparkle:version>
<enclosure url="https://example.com/orvane-99.tar.gz" sparkle:version="99.0"/></item>
</channel></rss>)", "application/rss+xml");
    orvane.setEnvironment("ORVANE_APPCAST_URL", server.uri("/appcast.xml"));
    ASSERT_TRUE(startOrvane());
    ASSERT_NE(mainWindow(), 0u);
    ASSERT_TRUE(waitUntil([&] {
        auto actions = orvane.actions();
        return actions && actions->contains("check-for-updates") && actions->at("check-for-updates");
    }, 10s)) << "offered when a feed is configured";
    EXPECT_EQ(server.requestCount("/appcast.xml"), 0) << "nothing is fetched until the user asks";
    ASSERT_TRUE(orvane.activateAction("check-for-updates"));
    EXPECT_TRUE(waitUntil([&] { return server.requestCount("/appcast.xml") == 1; }, 20s));
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
