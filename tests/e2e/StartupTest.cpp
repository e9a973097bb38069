// Orvane's start: the empty state, the commands offered over D-Bus, the
// first account added by D-Bus or by Return, and links handed to a running
// instance.
#include "E2ETest.h"

namespace orvane::test {

class StartupTest : public E2ETest { };

TEST_F(StartupTest, FreshStartShowsEmptyStateAndReturnAddsGmailAccount) {
    ASSERT_TRUE(startOrvane());
    unsigned long window = mainWindow();
    ASSERT_NE(window, 0u);
    auto geometry = orvane.geometry(window);
    ASSERT_TRUE(geometry);
    EXPECT_GE(geometry->width, 820);
    EXPECT_GE(geometry->height, 520);
    auto hints = ChildProcess::run({ "xprop", "-id", std::to_string(window), "WM_NORMAL_HINTS" }, orvane.environment());
    ASSERT_TRUE(hints);
    EXPECT_NE(hints->output.find("minimum size: 820 by 520"), std::string::npos) << hints->output;
    EXPECT_TRUE(accountIDs().empty());

    // The suggested-action button sits in the middle of the window: look for
    // its accent blue in a band across the window's centre.
    Screenshot::Rect band { geometry->x, geometry->y + geometry->height / 3, geometry->width, geometry->height / 3 };
    const Screenshot::Color accent { 0x35, 0x84, 0xe4 };
    EXPECT_TRUE(waitForScreenshot("empty-state", [&](const Screenshot& shot) { return shot.share(band, accent) > 0.005; }));
    EXPECT_EQ(server.requestCount("/e2e/red.html"), 0);

    // Return triggers the window's default button, "Add Gmail Account".
    ASSERT_TRUE(orvane.pressKeys(window, "Return"));
    ASSERT_TRUE(waitUntil([&] { return accountIDs().size() == 1; }, 20s));
    auto file = orvane.accounts();
    EXPECT_FALSE(file["accounts"][0].contains("service") && file["accounts"][0]["service"] != "mail");
    EXPECT_EQ(orvane.selectedAccountID(), accountIDs().front());
    EXPECT_TRUE(waitUntil([&] { return loads("red") == 1; }, 30s));
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "first-account"));
}

TEST_F(StartupTest, CommandsAreOfferedOverDBus) {
    ASSERT_TRUE(startOrvane());
    auto actions = orvane.actions();
    ASSERT_TRUE(actions);
    for (const char* name : { "add-account", "add-outlook-account", "select-account", "print", "paste-plain",
             "shortcuts", "about", "quit" }) {
        ASSERT_TRUE(actions->contains(name)) << name;
        EXPECT_TRUE(actions->at(name)) << name;
    }
    // Settings and the default-handler request are offered too; with no
    // update feed configured, "Check for Updates…" is greyed out.
    for (const char* name : { "make-default", "preferences", "check-for-updates" })
        EXPECT_TRUE(actions->contains(name)) << name;
    EXPECT_FALSE(actions->contains("check-for-updates") && actions->at("check-for-updates"));

    // With no account, "Select Account 1" does nothing and print has no page.
    EXPECT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_TRUE(orvane.activateAction("print"));
    EXPECT_TRUE(accountIDs().empty());
    EXPECT_TRUE(orvane.isRunning());
    EXPECT_TRUE(orvane.stop());
}

TEST_F(StartupTest, AddAccountOverDBusLoadsItsPage) {
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    auto ids = accountIDs();
    ASSERT_EQ(ids.size(), 1u);
    auto account = orvane.accounts()["accounts"][0];
    EXPECT_TRUE(!account.contains("service") || account["service"] == "mail");
    EXPECT_EQ(orvane.selectedAccountID(), ids.front());
    EXPECT_TRUE(waitUntil([&] { return loads("red") == 1; }, 30s));
    EXPECT_EQ(server.requestCount("/e2e/red.html"), 1);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "one-account"));
    // A normal run leaves nothing of Orvane's own in its output.
    EXPECT_EQ(orvane.log().find("Orvane-"), std::string::npos) << orvane.log();
}

TEST_F(StartupTest, LinksReachTheRunningInstance) {
    ASSERT_TRUE(startOrvane());
    ASSERT_NE(mainWindow(), 0u);
    int pid = orvane.pid();

    // The second process hands the link over and ends; the first keeps its
    // one window and its (empty) account list.
    EXPECT_TRUE(orvane.openURL("mailto:someone@example.com?subject=Hello"));
    EXPECT_TRUE(orvane.openURL("https://example.org/not-a-mail-link"));
    EXPECT_TRUE(orvane.isRunning());
    EXPECT_EQ(orvane.pid(), pid);
    EXPECT_EQ(orvane.windowsTitled("Orvane").size(), 1u);
    EXPECT_TRUE(accountIDs().empty());
    EXPECT_TRUE(orvane.stop());
}

} // namespace orvane::test
