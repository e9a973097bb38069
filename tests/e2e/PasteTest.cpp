// "Paste and Match Style": the clipboard's plain text goes into the focused
// field of the page, without the formatting it was copied with. And typing
// reaches the page as soon as the window shows.
#include "E2ETest.h"

#include "Account.h"
#include "support/TestEnvironment.h"

#include <gtk/gtk.h>

namespace orvane::test {

class PasteTest : public E2ETest {
protected:
    void SetUp() override {
        server.handle("/e2e/pasted", [this](SoupServerMessage* message, const std::string&) {
            SoupMessageBody* body = soup_server_message_get_request_body(message);
            GBytesPtr bytes(soup_message_body_flatten(body));
            gsize size = 0;
            auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
            editorHTML = std::string(data ? data : "", size);
            ++changes;
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
        display = gdk_display_open(orvane.desktop().display().c_str());
        if (!display)
            return false;
        const char* html = "<b>bold</b> words";
        const char* plain = "bold words";
        GdkContentProvider* providers[] = {
            gdk_content_provider_new_for_bytes("text/html", g_bytes_new_static(html, strlen(html))),
            gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new_static(plain, strlen(plain))),
        };
        auto provider = adopt(gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers)));
        return gdk_clipboard_set_content(gdk_display_get_clipboard(display), provider.get());
    }

    GdkDisplay* display = nullptr;
    std::string editorHTML;
    int changes = 0;
};

TEST_F(PasteTest, ActionAndBothShortcutsPastePlainText) {
    ASSERT_TRUE(startOrvane("/e2e/paste.html"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("paste") == 1; }, 30s));
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kGreen, "paste-page"));
    ASSERT_TRUE(copyFormattedText());

    // A click gives the web view the keyboard focus and the editor the caret.
    ASSERT_TRUE(orvane.click(point.first, point.second));
    ASSERT_TRUE(orvane.activateAction("paste-plain"));
    ASSERT_TRUE(waitUntil([&] { return changes == 1; }, 20s));
    EXPECT_EQ(editorHTML, "bold words");

    unsigned long window = mainWindow();
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+shift+v"));
    ASSERT_TRUE(waitUntil([&] { return changes == 2; }, 20s));
    EXPECT_EQ(editorHTML, "bold wordsbold words");

    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+alt+shift+v"));
    ASSERT_TRUE(waitUntil([&] { return changes == 3; }, 20s));
    EXPECT_EQ(editorHTML, "bold wordsbold wordsbold words");
    EXPECT_EQ(editorHTML.find('<'), std::string::npos);

    // The shortcuts work in a page's pop-up window too. (WebKit itself
    // pastes plain text on Ctrl+Shift+V; the other one is only Orvane's.)
    auto geometry = orvane.geometry(window);
    ASSERT_TRUE(geometry);
    ASSERT_TRUE(orvane.click(geometry->x + geometry->width / 2, geometry->y + geometry->height - 40));
    ASSERT_TRUE(waitUntil([&] { return loads("paste-popup") == 1; }, 30s));
    std::vector<unsigned long> windows;
    ASSERT_TRUE(waitUntil([&] { return (windows = orvane.windowsTitled("Orvane")).size() == 2; }, 20s));
    unsigned long popup = windows[0] == window ? windows[1] : windows[0];
    auto popupGeometry = orvane.geometry(popup);
    ASSERT_TRUE(popupGeometry);
    ASSERT_TRUE(orvane.click(popupGeometry->x + popupGeometry->width / 2, popupGeometry->y + popupGeometry->height * 4 / 10));
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+alt+shift+v"));
    ASSERT_TRUE(waitUntil([&] { return changes == 4; }, 20s));
    EXPECT_EQ(editorHTML, "bold words");
}

TEST_F(PasteTest, TypingReachesThePageWithoutAClick) {
    Account account { newUUID(), "someone@example.com", newUUID() };
    orvane.writeAccountsFile({ { "accounts", { account.toJSON() } }, { "selectedAccountID", account.id } });
    ASSERT_TRUE(startOrvane("/e2e/paste.html"));
    ASSERT_TRUE(waitUntil([&] { return loads("paste") == 1; }, 30s));
    ASSERT_TRUE(waitForColor(webAreaPoint(), kGreen, "typing-page"));
    unsigned long window = mainWindow();
    ASSERT_TRUE(orvane.pressKeys(window, "h"));
    ASSERT_TRUE(orvane.pressKeys(window, "i"));
    ASSERT_TRUE(waitUntil([&] { return editorHTML == "hi"; }, 20s)) << editorHTML;
}

} // namespace orvane::test
