// What a Gmail page's compose form gets and keeps. Files dragged from
// another program and dropped on orvane's window become attachments in the
// page on screen, in a compose form the drop opens; links stay the page's (a
// real XDND drag from a window of the test process, moved with xdotool).
// Idle accounts sleep: with ORVANE_HIBERNATE_AFTER=2, an account not
// selected for two seconds loses its web process and its tile dims, and
// selecting it brings its page back; a page whose compose form holds typed
// text never sleeps, so the text is still there.
#include "E2ETest.h"

#include "Files.h"

namespace orvane::test {

class DropAttachTest : public E2ETest {
protected:
    void TearDown() override {
        if (m_window)
            gtk_window_destroy(m_window);
        E2ETest::TearDown();
    }

    // Shows a window of this process on orvane's display (right of orvane's,
    // at the top) that offers the content, and drags from it to (x, y) in
    // small steps, with a few moves at the drop point, the way a hand would.
    bool drag(GdkContentProvider* content, int x, int y) {
        if (m_window)
            gtk_window_destroy(m_window);
        m_window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_display(m_window, display());
        gtk_window_set_title(m_window, "Drag Source");
        gtk_window_set_decorated(m_window, FALSE);
        GtkWidget* area = gtk_label_new("drag");
        gtk_widget_set_size_request(area, 100, 100);
        GtkDragSource* source = gtk_drag_source_new();
        gtk_drag_source_set_content(source, content);
        g_object_unref(content);
        gtk_widget_add_controller(area, GTK_EVENT_CONTROLLER(source));
        gtk_window_set_child(m_window, area);
        gtk_window_present(m_window);
        std::vector<unsigned long> found;
        if (!waitUntil([&] { return (found = orvane.windowsTitled("Drag Source")).size() == 1; }, 20s))
            return false;
        std::string window = std::to_string(found[0]);
        std::vector<std::string> moves = { "windowmove", window, "1150", "120", "windowraise", window };
        auto moveTo = [&](int toX, int toY, const char* pause) {
            std::vector<std::string> move
                = { "mousemove", std::to_string(toX), std::to_string(toY), "sleep", pause };
            moves.insert(moves.end(), move.begin(), move.end());
        };
        moveTo(1200, 170, "0.1");
        moves.insert(moves.end(), { "mousedown", "1", "sleep", "0.1" });
        for (int step = 1; step <= 24; ++step)
            moveTo(1200 + (x - 1200) * step / 24, 170 + (y - 170) * step / 24, "0.03");
        for (int wiggle : { 1, -1, 0 })
            moveTo(x + wiggle, y, "0.1");
        moves.insert(moves.end(), { "mouseup", "1" });
        return orvane.xdotool(moves);
    }

    // What file managers and browsers offer: a text/uri-list.
    static GdkContentProvider* uris(const std::vector<std::string>& list) {
        std::string text;
        for (const auto& uri : list)
            text += uri + "\r\n";
        return gdk_content_provider_new_for_bytes("text/uri-list", g_bytes_new(text.data(), text.size()));
    }
    std::string file(const std::string& name) {
        std::string path = orvane.folder() + "/" + name;
        EXPECT_TRUE(Files::replaceAtomically(path, "contents of " + name));
        return GCharPtr(g_filename_to_uri(path.c_str(), nullptr, nullptr)).get();
    }

    GtkWindow* m_window = nullptr;

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

TEST_F(DropAttachTest, DroppedFilesAttachToAFormTheDropOpensWhoseTypedTextKeepsItsIdlePageAwake) {
    writeAccounts(
        { account(newUUID(), "mail"), account(newUUID(), "outlook"), account(newUUID(), "calendar") });
    orvane.setEnvironment("ORVANE_HIBERNATE_AFTER", "2");
    orvane.setEnvironment("G_MESSAGES_DEBUG", "Orvane");
    serveWithRemote("/gmail/", "/gmail/index.html", "compose-reporter.js");
    // The calendar page's second load waits until the test lets it go.
    holdSecondAnswer("/e2e/blue.html");
    ASSERT_TRUE(startOrvane("/gmail/?who=gmail"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded") && waitUntil([&] { return loads("green") == 1; }, 30s));
    unsigned long window = mainWindow();

    // Files dropped on the selected Gmail page.
    auto point = webAreaPoint();
    ASSERT_TRUE(drag(uris({ file("report.pdf"), file("holiday photo.jpg") }), point.first, point.second));
    ASSERT_TRUE(waitForEvents("gmail", "files-chosen"));
    auto chosen = events("gmail", "files-chosen").front();
    EXPECT_EQ(chosen["names"], nlohmann::json::array({ "report.pdf", "holiday photo.jpg" }));
    // The drop opened a compose form first, and the page never got the drop.
    ASSERT_EQ(events("gmail", "compose-clicked").size(), 1u);
    EXPECT_LT(events("gmail", "compose-clicked")[0]["at"].get<double>(), chosen["at"].get<double>());
    EXPECT_TRUE(events("gmail", "page-drop").empty());

    // A web link is no file: the page gets it.
    ASSERT_TRUE(drag(uris({ "https://example.org/dropped-link" }), point.first, point.second));
    ASSERT_TRUE(waitForEvents("gmail", "page-drop"));

    // Typed into the compose form the drop opened.
    auto forms = [&] { return events("gmail", "form"); };
    ASSERT_TRUE(waitUntil([&] { return !forms().empty() && forms().back().is_object(); }, 10s));
    auto [x, y] = point;
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
    ASSERT_TRUE(waitUntil([&] {
        std::string log = orvane.log();
        size_t first = log.find("holds typed text");
        return first != std::string::npos && log.find("holds typed text", first + 1) != std::string::npos;
    }, 20s)) << "asked twice";
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
