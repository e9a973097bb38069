// With "Run in background" on (the default), closing the window leaves
// Orvane running with its pages alive and asks the Background portal; the
// next activation shows the same window with no page reloaded, and only
// Quit ends it. `orvane --background` starts it with the window hidden.
#include "E2ETest.h"

#include "support/BusCall.h"

namespace orvane::test {

using BackgroundTest = E2ETest;

TEST_F(BackgroundTest, ClosedWindowKeepsPagesLiveUntilQuitAndBackgroundStartShowsNoWindow) {
    writeAccounts({ newAccount() });
    serveWithRemote("/e2e/live.html", "/e2e/red.html");
    ASSERT_TRUE(startOrvane("/e2e/live.html?who=gmail"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kRed, "background-before"));
    // The Background portal: records each request's options and grants it.
    std::vector<GVariantPtr> requests;
    BusService portal(orvane.bus(), "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
        "<node><interface name='org.freedesktop.portal.Background'><method name='RequestBackground'>"
        "<arg type='s'/><arg type='a{sv}'/><arg type='o' direction='out'/></method></interface></node>",
        [&](const std::string&, GVariant* parameters, const char* sender) {
            requests.emplace_back(g_variant_get_child_value(parameters, 1));
            const char* token = "";
            g_variant_lookup(requests.back().get(), "handle_token", "&s", &token);
            std::string path
                = "/org/freedesktop/portal/desktop/request/" + std::string(sender + 1) + "/" + token;
            std::replace(path.begin(), path.end(), '.', '_');
            auto granted = g_variant_new_parsed("(@u 0, {'background': <true>, 'autostart': <false>})");
            g_dbus_connection_emit_signal(
                orvane.bus(), sender, path.c_str(), "org.freedesktop.portal.Request", "Response", granted, nullptr);
            return g_variant_new("(o)", path.c_str());
        });

    // The header bar's close button, at its right end.
    auto geometry = orvane.geometry(mainWindow()).value();
    ASSERT_TRUE(orvane.click(geometry.x + geometry.width - 24, geometry.y + 24));
    ASSERT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").empty(); }, 10s));
    runInPage("gmail", "report('alive', document.title)");
    EXPECT_TRUE(waitForEvents("gmail", "alive"));
    ASSERT_TRUE(waitUntil([&] { return requests.size() == 1; }, 10s));
    gboolean autostart = TRUE;
    EXPECT_TRUE(g_variant_lookup(requests[0].get(), "autostart", "b", &autostart) && !autostart);
    EXPECT_TRUE(orvane.isRunning());

    // Run again, Orvane shows the same page, not reloaded.
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-back"));
    EXPECT_EQ(server.requestCount("/e2e/live.html"), 1);
    EXPECT_EQ(events("gmail", "loaded").size(), 1u);
    EXPECT_TRUE(orvane.stop());

    // Started as at login: the page loads, no window shows until asked.
    ASSERT_TRUE(orvane.start({ "--background" }));
    ASSERT_TRUE(waitForEvents("gmail", "loaded", 2));
    EXPECT_TRUE(orvane.windowsTitled("Orvane").empty());
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-started-hidden"));
    EXPECT_EQ(server.requestCount("/e2e/live.html"), 2);
}

} // namespace orvane::test
