// Orvane's start: the empty state and its commands, links handed to the
// running instance, and the first account added by Return; the usage ping it
// sends at start with the install id kept in the preferences file, and
// "Check for Updates…", offered when a feed is configured and reading it
// only when chosen.
#include "E2ETest.h"

namespace orvane::test {

using StartupTest = E2ETest;

TEST_F(StartupTest, FirstStartOffersItsCommandsTakesLinksAndReturnAddsGmail) {
    ASSERT_TRUE(startOrvane());
    unsigned long window = mainWindow();
    ASSERT_NE(window, 0u);
    auto hints = orvane.run({ "xprop", "-id", std::to_string(window), "WM_NORMAL_HINTS" }).value_or(OrvaneProcess::Result {});
    EXPECT_NE(hints.output.find("minimum size: 820 by 520"), std::string::npos) << hints.output;

    auto actions = orvane.actions();
    ASSERT_TRUE(actions);
    for (const char* name : { "add-account", "add-outlook-account", "select-account", "print", "paste-plain",
             "make-default", "preferences", "shortcuts", "about", "quit" })
        EXPECT_TRUE(actions->contains(name) && actions->at(name)) << name;
    // With no update feed configured, "Check for Updates…" is greyed out.
    EXPECT_TRUE(actions->contains("check-for-updates") && !actions->at("check-for-updates"));
    // With no account, "Select Account 1" has nothing to select.
    EXPECT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));

    // A second process hands its link over and ends; the first keeps its one
    // window and its (empty) account list.
    int pid = orvane.pid();
    EXPECT_TRUE(orvane.openURL("mailto:someone@example.com?subject=Hello"));
    EXPECT_TRUE(orvane.openURL("https://example.org/not-a-mail-link"));
    EXPECT_EQ(orvane.pid(), pid);
    EXPECT_EQ(orvane.windowsTitled("Orvane").size(), 1u);
    EXPECT_TRUE(orvane.accountIDs().empty());

    // The empty state's suggested button (accent blue, in the middle three
    // fifths of the window) is the default: Return adds a Gmail account.
    auto geometry = orvane.geometry(window);
    ASSERT_TRUE(geometry);
    Screenshot::Rect band { geometry->x, geometry->y + geometry->height / 5, geometry->width, geometry->height * 3 / 5 };
    EXPECT_TRUE(waitForScreenshot("empty-state", [&](const Screenshot& shot) {
        return shot.share(band, { 0x35, 0x84, 0xe4 }) > 0.005;
    }));
    EXPECT_EQ(server.requestCount("/e2e/red.html"), 0);
    ASSERT_TRUE(orvane.pressKeys(window, "Return"));
    ASSERT_TRUE(waitUntil([&] { return orvane.accountIDs().size() == 1; }, 20s));
    auto account = orvane.accounts()["accounts"][0];
    EXPECT_TRUE(!account.contains("service") || account["service"] == "mail");
    EXPECT_EQ(orvane.selectedAccountID(), orvane.accountIDs().front());
    EXPECT_TRUE(waitUntil([&] { return loads("red") == 1; }, 30s));
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "first-account"));

    EXPECT_TRUE(orvane.stop()) << "app.quit ends it cleanly";
    // A normal run leaves nothing of Orvane's own in its output.
    EXPECT_EQ(orvane.log().find("Orvane-"), std::string::npos) << orvane.log();
}

TEST_F(StartupTest, ThePingCarriesTheStoredInstallIDAndTheFeedIsReadOnlyWhenAsked) {
    server.serve("/ping.txt", "ok", "text/plain");
    server.serve("/appcast.xml", R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
<item><enclosure url="https://example.com/orvane-99.tar.gz" sparkle:version="99.0"/></item></channel></rss>)", "application/rss+xml");
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
