// Idle accounts sleep: with ORVANE_HIBERNATE_AFTER=2, an account not
// selected for two seconds loses its web process and its tile dims, and
// selecting it brings its page back; a page whose compose form holds typed
// text never sleeps, so the text is still there.
#include "E2ETest.h"

namespace orvane::test {

class HibernationTest : public E2ETest {
protected:
    // How far the inside of a tile stands out from the account column's
    // background (below the add button): dimming brings it closer. The
    // Outlook and calendar tiles have the same colour; their middles are
    // these many pixels below the window's top, left of their initials.
    static constexpr int kOutlookTile = 141, kCalendarTile = 211;
    int tileContrast(const Screenshot& shot, int tile) {
        auto [x, y] = pointIn(mainWindow(), 0, 0);
        Screenshot::Color c = shot.pixel(x + 26, y + tile), background = shot.pixel(x + 26, y + 360);
        return std::abs(c.red - background.red) + std::abs(c.green - background.green)
            + std::abs(c.blue - background.blue);
    }
    std::string typedTo() const { return formField("gmail", "toText"); }
};

TEST_F(HibernationTest, AnIdleAccountSleepsAndWakesWhileTypedTextKeepsAPageAwake) {
    writeAccounts(
        { account(newUUID(), "mail"), account(newUUID(), "outlook"), account(newUUID(), "calendar") });
    orvane.setEnvironment("ORVANE_HIBERNATE_AFTER", "2");
    orvane.setEnvironment("G_MESSAGES_DEBUG", "Orvane");
    serveWithRemote("/gmail/", "/gmail/index.html", "form-reporter.js");
    // The calendar page's second load waits until the test lets it go.
    holdSecondAnswer("/e2e/blue.html");
    ASSERT_TRUE(startOrvane("/gmail/?who=gmail"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded") && waitUntil([&] { return loads("green") == 1; }, 30s));
    unsigned long window = mainWindow();

    // Typed into the selected Gmail page's compose form.
    runInPage("gmail", "document.querySelector('[gh=cm]').click()");
    auto forms = [&] { return events("gmail", "form"); };
    ASSERT_TRUE(waitUntil([&] { return !forms().empty() && forms().back().is_object(); }, 10s));
    auto [x, y] = webAreaPoint();
    ASSERT_TRUE(orvane.click(x - 400, y));
    runInPage("gmail", "document.querySelector('[aria-label=\"To recipients\"]').focus(); report('focused')");
    ASSERT_TRUE(waitForEvents("gmail", "focused"));
    for (std::string typed : { "t", "to", "tom" }) {
        ASSERT_TRUE(orvane.pressKeys(window, typed.substr(typed.size() - 1)));
        ASSERT_TRUE(waitUntil([&] { return typedTo() == typed; }, 10s)) << typedTo();
    }

    // The calendar, never selected, sleeps: one web process fewer, its tile dimmed.
    ASSERT_TRUE(waitUntil([&] { return loads("blue") == 1; }, 30s));
    ASSERT_TRUE(waitUntil([&] { return webProcesses().size() == 2; }, 30s)) << webProcesses().size();
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    EXPECT_TRUE(waitForScreenshot("calendar-asleep", [&](const Screenshot& shot) {
        return tileContrast(shot, kCalendarTile) * 10 < tileContrast(shot, kOutlookTile) * 7;
    }));

    // Gmail, idle now but with text in its form, is asked and stays awake.
    auto asked = [&] {
        std::string log = orvane.log(), line = "holds typed text";
        size_t count = 0;
        for (size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1))
            ++count;
        return count;
    };
    ASSERT_TRUE(waitUntil([&] { return asked() >= 2; }, 20s));
    EXPECT_EQ(webProcesses().size(), 2u);
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    runInPage("gmail", "lastForm = ''");
    ASSERT_TRUE(waitForEvents("gmail", "form", 3));
    EXPECT_EQ(typedTo(), "tom");
    EXPECT_EQ(server.requestCount("/gmail/"), 1);

    // Selecting the calendar wakes it: its snapshot shows while its page
    // loads again, and its tile is bright.
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(3)));
    ASSERT_TRUE(waitUntil([&] { return bool(held); }, 30s));
    EXPECT_TRUE(waitForColor(webAreaPoint(), { 0x1d, 0x4e, 0xd8 }, "calendar-snapshot"));
    soup_server_message_unpause(held.get());
    EXPECT_TRUE(waitUntil([&] { return loads("blue") == 2 && webProcesses().size() == 3; }, 30s));
    EXPECT_TRUE(waitForScreenshot("calendar-awake-tile", [&](const Screenshot& shot) {
        int outlook = tileContrast(shot, kOutlookTile);
        return std::abs(tileContrast(shot, kCalendarTile) - outlook) * 10 < outlook;
    }));
}

} // namespace orvane::test
