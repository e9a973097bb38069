// The keys people reach for in a mail page, and the window's life. Typing
// goes to the page as soon as the window shows and after each account
// switch; Ctrl+F finds in it and Escape gives the keyboard back; Ctrl+R
// reloads it; "Paste and Match Style" puts the clipboard's plain text into
// the focused field, without the formatting it was copied with, in the main
// window and in a pop-up. With "Run in background" on (the default), closing
// the window leaves Orvane running with its pages alive and asks the
// Background portal; the next activation shows the same window with no page
// reloaded, and only Quit ends it. `orvane --background` starts it with the
// window hidden, and the window's size and the account's zoom come back from
// the last run.
#include "E2ETest.h"

#include "support/BusCall.h"

#include <cmath>

namespace orvane::test {

class PageKeysTest : public E2ETest {
protected:
    // The last `event` of the page ("key" it saw, HTML its editor holds), once it is this one.
    bool pageShows(const std::string& who, const std::string& value, const char* event = "key") {
        return waitUntil([&] {
            auto seen = events(who, event);
            return !seen.empty() && seen.back() == value;
        }, 20s);
    }
};

TEST_F(PageKeysTest, KeysReachThePageFindAndPastePlainAndAClosedWindowKeepsPagesLiveWithSizeAndZoom) {
    writeAccounts({ account(newUUID(), "mail"), account(newUUID(), "outlook") });
    auto zoomedWidth = [&](int expected) {
        auto width = [&] { return events("one", "width").back().get<int>(); };
        return waitUntil([&] { return std::abs(width() * 1.25 - expected) <= 2; }, 10s);
    };
    // The second account's page is an editor that reports its HTML.
    ASSERT_TRUE(startOrvane("/e2e/keys.html?who=one", "/e2e/paste.html?who=two"));
    ASSERT_TRUE(waitForEvents("one", "loaded"));
    unsigned long window = mainWindow();
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kRed, "keys-start"));
    ASSERT_TRUE(orvane.pressKeys(window, "h"));
    EXPECT_TRUE(pageShows("one", "h")) << "no click needed";

    // Ctrl+2 shows the second account (its page loads now), a click on the
    // first tile the first one: each time the keys reach the page shown.
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+2"));
    ASSERT_TRUE(waitForColor(point, kGreen, "keys-second"));
    ASSERT_TRUE(orvane.pressKeys(window, "x"));
    EXPECT_TRUE(pageShows("two", "x", "edited"));
    auto tile = pointIn(window, 0, 0);
    ASSERT_TRUE(orvane.click(tile.first + 37, tile.second + 88));
    ASSERT_TRUE(waitForColor(point, kRed, "keys-first"));
    ASSERT_TRUE(orvane.pressKeys(window, "y"));
    EXPECT_TRUE(pageShows("one", "y"));

    // Ctrl+F: typing goes to the search bar, and the page's first match is selected.
    auto bar = pointIn(window, 0.6, 0);
    bar.second += 75;
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+f"));
    ASSERT_TRUE(waitForScreenshot("find-bar-open", [&](const Screenshot& shot) {
        return !shot.pixel(bar.first, bar.second).near(kRed);
    }));
    for (const char* key : { "n", "e", "e", "d", "l", "e" })
        ASSERT_TRUE(orvane.pressKeys(window, key));
    runInPage("one",
        "const poll = () => String(getSelection()) == 'needle' ? report('selected') : setTimeout(poll, 50);"
        "poll();");
    ASSERT_TRUE(waitForEvents("one", "selected"));
    for (const auto& key : events("one", "key"))
        EXPECT_NE(key, "n") << "the search went to the page";
    ASSERT_TRUE(orvane.pressKeys(window, "Escape"));
    EXPECT_TRUE(waitForColor(bar, kRed, "find-bar-closed")) << "the page moved up in its place";
    ASSERT_TRUE(orvane.pressKeys(window, "z"));
    EXPECT_TRUE(pageShows("one", "z"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+r"));
    EXPECT_TRUE(waitForEvents("one", "loaded", 2));

    // Formatted text on orvane's clipboard, which this process owns and
    // serves while the test waits: the action pastes it plain.
    ASSERT_TRUE(display());
    GdkContentProvider* providers[] = {
        gdk_content_provider_new_for_bytes("text/html", g_bytes_new_static("<b>bold</b> words", 17)),
        gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new_static("bold words", 10)),
    };
    auto provider = adopt(gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers)));
    ASSERT_TRUE(gdk_clipboard_set_content(gdk_display_get_clipboard(display()), provider.get()));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+2"));
    ASSERT_TRUE(waitForColor(point, kGreen, "paste-page"));
    ASSERT_TRUE(orvane.activateAction("paste-plain"));
    ASSERT_TRUE(pageShows("two", "xbold words", "edited"));

    // So does its shortcut, in a page's pop-up window (WebKit itself pastes
    // plain text on Ctrl+Shift+V; Ctrl+Alt+Shift+V is only Orvane's).
    auto bottom = pointIn(window, 0.5, 1);
    ASSERT_TRUE(orvane.click(bottom.first, bottom.second - 40));
    ASSERT_TRUE(waitForEvents("popup", "loaded"));
    unsigned long popup = windows(2)[1];
    auto inPopup = pointIn(popup, 0.5, 0.4);
    ASSERT_TRUE(orvane.click(inPopup.first, inPopup.second));
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+alt+shift+v"));
    EXPECT_TRUE(pageShows("popup", "bold words", "edited"));

    runInPage("popup", "window.close()");
    ASSERT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").size() == 1; }, 20s));

    // Back on the first account, Ctrl+plus twice is 125 %: the page's CSS pixels are wider.
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+1"));
    ASSERT_TRUE(waitForColor(point, kRed, "background-before"));
    const int unzoomed = events("one", "width").back().get<int>();
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
    runInPage("one", "report('alive', document.title)");
    EXPECT_TRUE(waitForEvents("one", "alive"));
    ASSERT_TRUE(waitUntil([&] { return requests.size() == 1; }, 10s));
    gboolean autostart = TRUE;
    EXPECT_TRUE(g_variant_lookup(requests[0].get(), "autostart", "b", &autostart) && !autostart);

    // Run again, Orvane shows the same page, not reloaded.
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-back"));
    EXPECT_EQ(server.requestCount("/e2e/keys.html"), 2);
    EXPECT_TRUE(orvane.stop());

    // Started as at login: the page loads, no window shows until asked,
    // and then with the last run's size and zoom.
    ASSERT_TRUE(orvane.start({ "--background" }));
    ASSERT_TRUE(waitForEvents("one", "loaded", 3));
    EXPECT_TRUE(orvane.windowsTitled("Orvane").empty());
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-started-hidden"));
    EXPECT_EQ(server.requestCount("/e2e/keys.html"), 3);
    auto shown = orvane.geometry(mainWindow()).value_or(Screenshot::Rect {});
    EXPECT_EQ(std::pair(shown.width, shown.height), std::pair(1000, 640));
    EXPECT_TRUE(zoomedWidth(resized));
}

} // namespace orvane::test
