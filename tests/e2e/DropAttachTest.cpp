// Files dragged from another program and dropped on orvane's window become
// attachments in the page on screen; links stay the page's. A real XDND drag
// from a window of the test process, moved with xdotool, onto the stand-in
// Gmail page, which reports what it sees.
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
    bool chooserShown() const { return !orvane.windowsTitled("Select Files").empty(); }

    GtkWindow* m_window = nullptr;
};

TEST_F(DropAttachTest, FilesDroppedOnGmailOpenComposeAndAttachWhileLinksStayThePages) {
    serveWithRemote("/gmail/", "/gmail/index.html", "drop-reporter.js");
    ASSERT_TRUE(startOrvane("/gmail/?who=gmail", "/outlook/mail/", "/calendar/"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    auto point = webAreaPoint();

    ASSERT_TRUE(drag(uris({ file("report.pdf"), file("holiday photo.jpg") }), point.first, point.second));
    ASSERT_TRUE(waitForEvents("gmail", "files-chosen"));
    auto chosen = events("gmail", "files-chosen").front();
    EXPECT_EQ(chosen["names"], nlohmann::json::array({ "report.pdf", "holiday photo.jpg" }));
    // The drop opened a compose form first, and the page never got the drop.
    ASSERT_EQ(events("gmail", "compose-clicked").size(), 1u);
    EXPECT_LT(events("gmail", "compose-clicked")[0]["at"].get<double>(), chosen["at"].get<double>());
    EXPECT_TRUE(events("gmail", "page-drop").empty());
    EXPECT_FALSE(chooserShown());

    // A web link is no file: the page gets it.
    ASSERT_TRUE(drag(uris({ "https://example.org/dropped-link" }), point.first, point.second));
    ASSERT_TRUE(waitForEvents("gmail", "page-drop"));
    EXPECT_EQ(events("gmail", "files-chosen").size(), 1u);
    EXPECT_FALSE(chooserShown());
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
