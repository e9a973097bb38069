// With "Run in background" on (the default), closing the window leaves
// Orvane running with its pages alive and asks the Background portal; the
// next activation shows the same window with no page reloaded, and only
// Quit ends it. `orvane --background` starts it with the window hidden, and
// the window's size and the account's zoom come back from the last run.
#include "E2ETest.h"

#include "support/BusCall.h"

#include <cmath>

namespace orvane::test {

using BackgroundTest = E2ETest;

TEST_F(BackgroundTest, ClosedWindowKeepsPagesLiveUntilQuitAndTheNextRunKeepsSizeAndZoom) {
    writeAccounts({ newAccount() });
    serveWithRemote("/e2e/live.html", "/e2e/red.html",
        "for (const type of ['load', 'resize']) addEventListener(type, () => report('width', innerWidth));");
    auto zoomedWidth = [&](int expected) {
        auto width = [&] { return events("gmail", "width").back().get<int>(); };
        return waitUntil([&] { return std::abs(width() * 1.25 - expected) <= 2; }, 10s);
    };
    ASSERT_TRUE(startOrvane("/e2e/live.html?who=gmail"));
    ASSERT_TRUE(waitForEvents("gmail", "width"));
    unsigned long window = mainWindow();
    ASSERT_TRUE(waitForColor(webAreaPoint(), kRed, "background-before"));

    // Ctrl+plus twice is 125 %: the page's CSS pixels are wider.
    const int unzoomed = events("gmail", "width").back().get<int>();
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+plus"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+plus"));
    EXPECT_TRUE(zoomedWidth(unzoomed));
    const int resized = unzoomed + 1000 - orvane.geometry(window).value().width;
    ASSERT_TRUE(orvane.xdotool({ "windowsize", std::to_string(window), "1000", "640" }));
    ASSERT_TRUE(zoomedWidth(resized)); // Orvane has taken the new size once the page has
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
            const char* request = "org.freedesktop.portal.Request";
            g_dbus_connection_emit_signal(
                orvane.bus(), sender, path.c_str(), request, "Response", granted, nullptr);
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

    // Started as at login: the page loads, no window shows until asked,
    // and then with the last run's size and zoom.
    ASSERT_TRUE(orvane.start({ "--background" }));
    ASSERT_TRUE(waitForEvents("gmail", "loaded", 2));
    EXPECT_TRUE(orvane.windowsTitled("Orvane").empty());
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-started-hidden"));
    EXPECT_EQ(server.requestCount("/e2e/live.html"), 2);
    auto shown = orvane.geometry(mainWindow()).value_or(Screenshot::Rect {});
    EXPECT_EQ(shown.width, 1000);
    EXPECT_EQ(shown.height, 640);
    EXPECT_TRUE(zoomedWidth(resized));
}

} // namespace orvane::test
