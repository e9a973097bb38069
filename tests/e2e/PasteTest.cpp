// Typing reaches the page as soon as the window shows, and "Paste and Match
// Style" puts the clipboard's plain text into the focused field, without the
// formatting it was copied with, in the main window and in a pop-up.
#include "E2ETest.h"

namespace orvane::test {

class PasteTest : public E2ETest {
protected:
    // Waits until the page's editor holds this HTML.
    bool editorShows(const std::string& who, const std::string& html) {
        return waitUntil([&] {
            auto edits = events(who, "edited");
            return !edits.empty() && edits.back().data == html;
        }, 20s);
    }
};

TEST_F(PasteTest, TypingNeedsNoClickAndTheActionAndBothShortcutsPastePlainText) {
    writeAccounts({ newAccount() });
    ASSERT_TRUE(startOrvane("/e2e/paste.html?who=paste"));
    ASSERT_TRUE(waitForEvents("paste", "loaded"));
    ASSERT_TRUE(waitForColor(webAreaPoint(), kGreen, "paste-page"));
    unsigned long window = mainWindow();
    ASSERT_TRUE(orvane.pressKeys(window, "h"));
    ASSERT_TRUE(orvane.pressKeys(window, "i"));
    ASSERT_TRUE(editorShows("paste", "hi"));

    // Formatted text on orvane's clipboard, which this process owns and
    // serves while the test waits.
    ASSERT_TRUE(display());
    GdkContentProvider* providers[] = {
        gdk_content_provider_new_for_bytes("text/html", g_bytes_new_static("<b>bold</b> words", 17)),
        gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new_static("bold words", 10)),
    };
    auto provider = adopt(gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers)));
    ASSERT_TRUE(gdk_clipboard_set_content(gdk_display_get_clipboard(display()), provider.get()));

    ASSERT_TRUE(orvane.activateAction("paste-plain"));
    ASSERT_TRUE(editorShows("paste", "hibold words"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+shift+v"));
    ASSERT_TRUE(editorShows("paste", "hibold wordsbold words"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+alt+shift+v"));
    ASSERT_TRUE(editorShows("paste", "hibold wordsbold wordsbold words"));

    // The shortcut works in a page's pop-up window too (WebKit itself pastes
    // plain text on Ctrl+Shift+V; this one is only Orvane's).
    auto bottom = pointIn(window, 0.5, 1);
    ASSERT_TRUE(orvane.click(bottom.first, bottom.second - 40));
    ASSERT_TRUE(waitForEvents("popup", "loaded"));
    unsigned long popup = windows(2)[1];
    auto inPopup = pointIn(popup, 0.5, 0.4);
    ASSERT_TRUE(orvane.click(inPopup.first, inPopup.second));
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+alt+shift+v"));
    EXPECT_TRUE(editorShows("popup", "bold words"));
}

} // namespace orvane::test
