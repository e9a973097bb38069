// The keys people reach for in a mail page: after an account switch typing
// goes to the page; Ctrl+F finds in it and Escape gives the keyboard back;
// Ctrl+R reloads it.
#include "E2ETest.h"

namespace orvane::test {

class PageKeysTest : public E2ETest {
protected:
    // The last key the page saw, once it is this one.
    bool pageGotKey(const std::string& who, const std::string& key) {
        return waitUntil([&] {
            auto keys = events(who, "key");
            return !keys.empty() && keys.back().data == key;
        }, 10s);
    }
};

TEST_F(PageKeysTest, SwitchesPutTheKeyboardInThePageAndFindSelectsTheWordInIt) {
    writeAccounts({ newAccount(), newAccount("outlook") });
    const std::string keys = "addEventListener('keydown', e => report('key', e.key));"
                             "document.body.insertAdjacentHTML('afterbegin', '<p>hay needle hay needle hay needle</p>');";
    serveWithRemote("/e2e/keys-red.html", "/e2e/red.html", keys);
    serveWithRemote("/e2e/keys-green.html", "/e2e/green.html", keys);
    ASSERT_TRUE(startOrvane("/e2e/keys-red.html?who=one", "/e2e/keys-green.html?who=two"));
    ASSERT_TRUE(waitForEvents("one", "loaded"));
    unsigned long window = mainWindow();
    auto point = webAreaPoint();

    // Ctrl+2 shows the second account (its page loads now), a click on the
    // first tile the first one: each time the keys reach the page shown.
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+2"));
    ASSERT_TRUE(waitForColor(point, kGreen, "keys-second"));
    ASSERT_TRUE(orvane.pressKeys(window, "x"));
    EXPECT_TRUE(pageGotKey("two", "x"));
    auto tile = pointIn(window, 0, 0);
    ASSERT_TRUE(orvane.click(tile.first + 37, tile.second + 88));
    ASSERT_TRUE(waitForColor(point, kRed, "keys-first"));
    ASSERT_TRUE(orvane.pressKeys(window, "y"));
    EXPECT_TRUE(pageGotKey("one", "y"));

    // Ctrl+F: typing goes to the search bar, and the page's first match is selected.
    auto bar = pointIn(window, 0.6, 0);
    bar.second += 75;
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+f"));
    ASSERT_TRUE(waitForScreenshot("find-bar-open", [&](const Screenshot& shot) { return !shot.pixel(bar.first, bar.second).near(kRed); }));
    for (const char* key : { "n", "e", "e", "d", "l", "e" })
        ASSERT_TRUE(orvane.pressKeys(window, key));
    runInPage("one", "const poll = () => String(getSelection()) == 'needle' ? report('selected') : setTimeout(poll, 50); poll();");
    ASSERT_TRUE(waitForEvents("one", "selected"));
    for (const auto& key : events("one", "key"))
        EXPECT_NE(key.data, "n") << "the search went to the page";
    orvane.screenshot("find-bar");
    ASSERT_TRUE(orvane.pressKeys(window, "Escape"));
    EXPECT_TRUE(waitForColor(bar, kRed, "find-bar-closed")) << "the page moved up in its place";
    ASSERT_TRUE(orvane.pressKeys(window, "z"));
    EXPECT_TRUE(pageGotKey("one", "z"));

    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+r"));
    EXPECT_TRUE(waitForEvents("one", "loaded", 2));
}

} // namespace orvane::test
