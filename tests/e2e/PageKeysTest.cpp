// The keys people reach for in a mail page: typing goes to the page as soon
// as the window shows and after each account switch; Ctrl+F finds in it and
// Escape gives the keyboard back; Ctrl+R reloads it; "Paste and Match Style"
// puts the clipboard's plain text into the focused field, without the
// formatting it was copied with, in the main window and in a pop-up.
#include "E2ETest.h"

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

TEST_F(PageKeysTest, KeysReachThePageShownFindSelectsInItAndPastesArePlainText) {
    writeAccounts({ newAccount(), newAccount("outlook") });
    serveWithRemote("/e2e/keys-red.html", "/e2e/red.html",
        "addEventListener('keydown', e => report('key', e.key));"
        "document.body.insertAdjacentHTML('afterbegin', '<p>hay needle hay needle hay needle</p>');");
    // The second account's page is an editor that reports its HTML.
    ASSERT_TRUE(startOrvane("/e2e/keys-red.html?who=one", "/e2e/paste.html?who=two"));
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
    orvane.screenshot("find-bar");
    ASSERT_TRUE(orvane.pressKeys(window, "Escape"));
    EXPECT_TRUE(waitForColor(bar, kRed, "find-bar-closed")) << "the page moved up in its place";
    ASSERT_TRUE(orvane.pressKeys(window, "z"));
    EXPECT_TRUE(pageShows("one", "z"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+r"));
    EXPECT_TRUE(waitForEvents("one", "loaded", 2));

    // Formatted text on orvane's clipboard, which this process owns and
    // serves while the test waits: the action and both shortcuts paste it plain.
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
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+shift+v"));
    ASSERT_TRUE(pageShows("two", "xbold wordsbold words", "edited"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+alt+shift+v"));
    ASSERT_TRUE(pageShows("two", "xbold wordsbold wordsbold words", "edited"));

    // The shortcut works in a page's pop-up window too (WebKit itself pastes
    // plain text on Ctrl+Shift+V; this one is only Orvane's).
    auto bottom = pointIn(window, 0.5, 1);
    ASSERT_TRUE(orvane.click(bottom.first, bottom.second - 40));
    ASSERT_TRUE(waitForEvents("popup", "loaded"));
    unsigned long popup = windows(2)[1];
    auto inPopup = pointIn(popup, 0.5, 0.4);
    ASSERT_TRUE(orvane.click(inPopup.first, inPopup.second));
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+alt+shift+v"));
    EXPECT_TRUE(pageShows("popup", "bold words", "edited"));
}

} // namespace orvane::test
