// Orvane's start, in the user's language (LANGUAGE=fr): the usage ping with
// the install id kept in the preferences file, links handed to the running
// instance, and "Check for Updates…" reading its feed only when chosen. An
// installed Orvane loads its web-process extension from beside itself, and
// only from a folder no other user can change. (Return in the empty state
// adds the first account: MainWindowTest; a new account's page on screen:
// AccountSwitchTest.)
#include "E2ETest.h"

#include <sys/stat.h>

namespace orvane::test {

using StartupTest = E2ETest;

TEST_F(StartupTest, FirstStartPingsTakesLinksSpeaksFrenchAndAnInstalledCopyTrustsOnlyItsOwnFolder) {
    server.serve("/ping.txt", "ok", "text/plain");
    server.serve("/appcast.xml", "<rss><channel></channel></rss>", "application/rss+xml");
    orvane.setEnvironment("ORVANE_PING_URL", server.uri("/ping.txt"));
    orvane.setEnvironment("ORVANE_APPCAST_URL", server.uri("/appcast.xml"));
    orvane.setEnvironment("LC_ALL", "C.UTF-8");
    orvane.setEnvironment("LANGUAGE", "fr");
    ASSERT_TRUE(startOrvane());
    ASSERT_NE(mainWindow(), 0u);
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/ping.txt") == 1; }, 20s));
    auto preferences = Files::read(orvane.configHome() + "/Orvane/preferences.ini", 1 << 16).value_or("");
    auto at = preferences.find("OrvaneInstallID=");
    ASSERT_NE(at, std::string::npos) << preferences;
    std::string id = preferences.substr(at + 16, 36);
    EXPECT_TRUE(server.requests("/ping.txt")[0].query.starts_with("id=" + id + "&v="));

    // A second process hands its link over and ends; the first keeps its one
    // window.
    int pid = orvane.pid();
    EXPECT_TRUE(orvane.openURL("mailto:someone@example.com?subject=Hello"));
    EXPECT_EQ(orvane.pid(), pid);
    EXPECT_EQ(orvane.windowsTitled("Orvane").size(), 1u);
    ASSERT_TRUE(orvane.activateAction("preferences"));
    EXPECT_TRUE(waitUntil([&] { return orvane.windowsTitled("Préférences").size() == 1; })) << "translated";

    EXPECT_EQ(server.requestCount("/appcast.xml"), 0) << "nothing is fetched until the user asks";
    ASSERT_TRUE(orvane.activateAction("check-for-updates"));
    EXPECT_TRUE(waitUntil([&] { return server.requestCount("/appcast.xml") == 1; }, 20s));
    EXPECT_TRUE(orvane.stop()) << "app.quit ends it cleanly";
    // A normal run leaves nothing of Orvane's own in its output.
    EXPECT_EQ(orvane.log().find("Orvane-"), std::string::npos) << orvane.log();
    EXPECT_EQ(server.requestCount("/ping.txt"), 1);

    std::string prefix = orvane.folder() + "/prefix";
    auto installed = orvane.run({ "cmake", "--install", ORVANE_BUILD_DIR, "--prefix", prefix }, 60s);
    ASSERT_TRUE(installed && installed->status == 0) << (installed ? installed->output : "cmake did not run");
    std::string extensions = prefix + "/" + ORVANE_WEBEXT_INSTALL_DIR;
    ASSERT_TRUE(g_file_test((extensions + "/liborvane_webext.so").c_str(), G_FILE_TEST_IS_REGULAR));
    orvane.setBinary(prefix + "/bin/orvane");
    // Whether the pages of the next run carry the extension's stamp.
    auto stampOnNextStart = [&](int run) -> std::string {
        if (!startOrvane("/notify/index.html?who=gmail")
            || (run == 1 && !orvane.activateAction("add-account")) || !waitForEvents("gmail", "loaded", run))
            return "no page";
        runInPage("gmail", "report('stamp', typeof window.__orvanePage)");
        if (!waitForEvents("gmail", "stamp", run))
            return "no answer";
        orvane.stop();
        return events("gmail", "stamp").back().get<std::string>();
    };

    // Group-writable: refused, so pages carry no stamp (the build tree's
    // folder, private, is no fallback).
    ASSERT_EQ(chmod(extensions.c_str(), 0775), 0);
    EXPECT_EQ(stampOnNextStart(1), "undefined");
    EXPECT_NE(orvane.log().find("Running without the web-process extension"), std::string::npos);
    ASSERT_EQ(chmod(extensions.c_str(), 0755), 0);
    EXPECT_EQ(stampOnNextStart(2), "string");
}

} // namespace orvane::test
