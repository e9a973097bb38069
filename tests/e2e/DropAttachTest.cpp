// Files dragged from another program and dropped on orvane's window become
// attachments in the page on screen; links stay the page's. A real XDND drag
// from a window of orvane_drag_source (a program of its own, so the test
// process never holds a connection to the X server it stops), moved with
// xdotool, onto the stand-in Gmail page, which reports what it sees.
#include "E2ETest.h"

#include "Files.h"

namespace orvane::test {

namespace {

// Added to the stand-in page: reports what it logs, and drops that reach it.
constexpr const char* kReporter = R"JS(
const log = window.__fixtureLog, push = log.push.bind(log);
log.push = (...entries) => {
    entries.forEach(entry => report(entry.type, Object.assign({ at: performance.now() }, entry)));
    return push(...entries);
};
document.addEventListener('drop', () => report('page-drop'), true);
)JS";

} // namespace

class DropAttachTest : public E2ETest {
protected:
    void TearDown() override {
        if (m_source)
            g_subprocess_force_exit(m_source.get());
        E2ETest::TearDown();
    }

    // Drags what `orvane_drag_source files PATH… | link URI` offers from its
    // window (right of orvane's, at the top) to (x, y), in small steps and
    // with a few moves at the drop point, the way a hand would.
    bool drag(const std::vector<std::string>& content, int x, int y) {
        if (m_source) {
            g_subprocess_force_exit(m_source.get());
            waitUntil([&] { return orvane.windowsTitled("Drag Source").empty(); });
        }
        std::vector<std::string> argv = { ORVANE_DRAG_SOURCE };
        argv.insert(argv.end(), content.begin(), content.end());
        m_source = orvane.spawn(argv);
        std::vector<unsigned long> found;
        if (!waitUntil([&] { return (found = orvane.windowsTitled("Drag Source")).size() == 1; }, 20s))
            return false;
        std::string source = std::to_string(found[0]);
        std::vector<std::string> moves = { "xdotool", "windowmove", source, "1150", "120", "windowraise", source,
            "mousemove", "1200", "170", "sleep", "0.1", "mousedown", "1", "sleep", "0.1" };
        for (int step = 1; step <= 24; ++step)
            moves.insert(moves.end(), { "mousemove", std::to_string(1200 + (x - 1200) * step / 24),
                                          std::to_string(170 + (y - 170) * step / 24), "sleep", "0.03" });
        for (int wiggle : { 1, -1, 0 })
            moves.insert(moves.end(), { "mousemove", std::to_string(x + wiggle), std::to_string(y), "sleep", "0.1" });
        moves.insert(moves.end(), { "mouseup", "1" });
        auto result = orvane.run(moves);
        return result && result->status == 0;
    }

    std::string makeFile(const std::string& name) {
        std::string path = orvane.folder() + "/" + name;
        EXPECT_TRUE(Files::replaceAtomically(path, "contents of " + name));
        return path;
    }
    bool chooserShown() const { return !orvane.windowsTitled("Select Files").empty(); }

    Ref<GSubprocess> m_source;
};

TEST_F(DropAttachTest, FilesDroppedOnGmailOpenComposeAndAttachWhileLinksStayThePages) {
    serveWithRemote("/gmail/", "/gmail/index.html", kReporter);
    ASSERT_TRUE(startOrvane("/gmail/?who=gmail", "/outlook/mail/", "/calendar/"));
    // With no account there is nothing to attach to: nothing happens.
    auto point = webAreaPoint();
    ASSERT_TRUE(drag({ "files", makeFile("lonely.txt"), orvane.folder() }, point.first, point.second));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    EXPECT_TRUE(events("gmail", "files-chosen").empty());

    ASSERT_TRUE(drag({ "files", makeFile("report.pdf"), makeFile("holiday photo.jpg") }, point.first, point.second));
    ASSERT_TRUE(waitForEvents("gmail", "files-chosen"));
    auto chosen = events("gmail", "files-chosen").front().data;
    EXPECT_EQ(chosen["names"], nlohmann::json::array({ "report.pdf", "holiday photo.jpg" }));
    // The drop opened a compose form first, and the page never got the drop.
    ASSERT_EQ(events("gmail", "compose-clicked").size(), 1u);
    EXPECT_LT(events("gmail", "compose-clicked").front().data["at"].get<double>(), chosen["at"].get<double>());
    EXPECT_TRUE(events("gmail", "page-drop").empty());
    EXPECT_FALSE(chooserShown());

    // A web link offers text/uri-list too, yet it is no file: the page gets it.
    ASSERT_TRUE(drag({ "link", "https://example.org/dropped-link" }, point.first, point.second));
    ASSERT_TRUE(waitForEvents("gmail", "page-drop"));
    EXPECT_EQ(events("gmail", "files-chosen").size(), 1u);
    EXPECT_FALSE(chooserShown());
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
