// Typing reaches the page as soon as the window shows, and "Paste and Match
// Style" puts the clipboard's plain text into the focused field, without the
// formatting it was copied with, in the main window and in a pop-up.
#include "E2ETest.h"

#include "Account.h"

#include <gtk/gtk.h>

namespace orvane::test {

class PasteTest : public E2ETest {
protected:
    void SetUp() override {
        server.handle("/e2e/pasted", [this](SoupServerMessage* message, const std::string&) {
            GBytesPtr bytes(soup_message_body_flatten(soup_server_message_get_request_body(message)));
            gsize size = 0;
            auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
            editorHTML = std::string(data ? data : "", size);
            soup_server_message_set_status(message, 204, nullptr);
        });
    }
    void TearDown() override {
        if (display)
            gdk_display_close(display);
        E2ETest::TearDown();
    }

    // Puts formatted text on orvane's clipboard; this process owns it and
    // answers orvane's requests while the test waits.
    bool copyFormattedText() {
        display = gdk_display_open(orvane.getenv("DISPLAY"));
        if (!display)
            return false;
        GdkContentProvider* providers[] = {
            gdk_content_provider_new_for_bytes("text/html", g_bytes_new_static("<b>bold</b> words", 17)),
            gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new_static("bold words", 10)),
        };
        auto provider = adopt(gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers)));
        return gdk_clipboard_set_content(gdk_display_get_clipboard(display), provider.get());
    }
    bool editorShows(const std::string& html) {
        return waitUntil([&] { return editorHTML == html; }, 20s);
    }

    GdkDisplay* display = nullptr;
    std::string editorHTML;
};

TEST_F(PasteTest, TypingNeedsNoClickAndTheActionAndBothShortcutsPastePlainText) {
    Account account { newUUID(), "someone@example.com", newUUID() };
    orvane.writeAccountsFile({ { "accounts", { account.toJSON() } }, { "selectedAccountID", account.id } });
    ASSERT_TRUE(startOrvane("/e2e/paste.html"));
    ASSERT_TRUE(waitUntil([&] { return loads("paste") == 1; }, 30s));
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kGreen, "paste-page"));
    unsigned long window = mainWindow();
    ASSERT_TRUE(orvane.pressKeys(window, "h"));
    ASSERT_TRUE(orvane.pressKeys(window, "i"));
    ASSERT_TRUE(editorShows("hi")) << editorHTML;

    ASSERT_TRUE(copyFormattedText());
    ASSERT_TRUE(orvane.activateAction("paste-plain"));
    ASSERT_TRUE(editorShows("hibold words")) << editorHTML;
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+shift+v"));
    ASSERT_TRUE(editorShows("hibold wordsbold words")) << editorHTML;
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+alt+shift+v"));
    ASSERT_TRUE(editorShows("hibold wordsbold wordsbold words")) << editorHTML;

    // The shortcut works in a page's pop-up window too (WebKit itself pastes
    // plain text on Ctrl+Shift+V; this one is only Orvane's).
    auto bottom = pointIn(window, 0.5, 1);
    ASSERT_TRUE(orvane.click(bottom.first, bottom.second - 40));
    ASSERT_TRUE(waitUntil([&] { return loads("paste-popup") == 1; }, 30s));
    unsigned long popup = windows(2)[1];
    auto inPopup = pointIn(popup, 0.5, 0.4);
    ASSERT_TRUE(orvane.click(inPopup.first, inPopup.second));
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+alt+shift+v"));
    EXPECT_TRUE(editorShows("bold words")) << editorHTML;
}

} // namespace orvane::test
