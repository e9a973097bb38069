// Files dragged from another program and dropped on orvane's window become
// attachments in the page on screen; links stay the page's. A real XDND drag
// from a window of orvane_drag_source (a program of its own, so the test
// process never holds a connection to the X server it stops), moved with
// xdotool, onto the stand-in Gmail page, which reports what it sees.
#include "E2ETest.h"

#include "Files.h"
#include "support/FixturePageScript.h"

namespace orvane::test {

namespace {

// Added to the stand-in page: sends what the page logs and the drops that
// reach it to /drop/report.
constexpr const char* kReporter = R"JS(
(function () {
    const send = entry => fetch('/drop/report', { method: 'POST', body: JSON.stringify(entry) }).catch(() => {});
    const log = window.__fixtureLog || [];
    const push = log.push.bind(log);
    log.push = (...entries) => {
        for (const entry of entries)
            send(Object.assign({ at: performance.now() }, entry));
        return push(...entries);
    };
    document.addEventListener('drop', () => send({ type: 'page-drop' }), true);
    addEventListener('load', () => send({ type: 'loaded' }));
})();
)JS";

} // namespace

class DropAttachTest : public E2ETest {
protected:
    void SetUp() override {
        server.handle("/drop/report", [this](SoupServerMessage* message, const std::string&) {
            GBytesPtr bytes(soup_message_body_flatten(soup_server_message_get_request_body(message)));
            gsize size = 0;
            auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
            auto report = nlohmann::json::parse(std::string(data ? data : "", size), nullptr, false);
            if (report.is_object())
                reports.push_back(report);
            soup_server_message_set_status(message, 204, nullptr);
        });
        serveFixtureWithScript(server, "/gmail/", "/gmail/index.html", [] { return std::string(kReporter); });
    }
    void TearDown() override {
        if (m_source)
            g_subprocess_force_exit(m_source.get());
        E2ETest::TearDown();
    }

    std::vector<nlohmann::json> reportsOf(const std::string& type) const {
        std::vector<nlohmann::json> found;
        for (const auto& report : reports)
            if (report.value("type", "") == type)
                found.push_back(report);
        return found;
    }
    bool waitForReports(const std::string& type, size_t count) {
        return waitUntil([&] { return reportsOf(type).size() >= count; }, 30s);
    }

    // Drags what `orvane_drag_source files PATH… | link URI` offers from its
    // window (right of orvane's, at the top) to (x, y), in small steps and with
    // a few moves at the drop point, the way a hand would.
    bool drag(const std::vector<std::string>& content, int x, int y) {
        if (m_source) {
            g_subprocess_force_exit(m_source.get());
            waitUntil([&] { return orvane.windowsTitled("Drag Source").empty(); });
        }
        std::vector<std::string> argv = { ORVANE_DRAG_SOURCE };
        argv.insert(argv.end(), content.begin(), content.end());
        m_source = orvane.spawn(argv);
        std::vector<unsigned long> windows;
        if (!waitUntil([&] { return (windows = orvane.windowsTitled("Drag Source")).size() == 1; }, 20s))
            return false;
        std::vector<std::string> moves = { "xdotool", "windowmove", std::to_string(windows[0]), "1150", "120",
            "windowraise", std::to_string(windows[0]), "mousemove", "1200", "170", "sleep", "0.1", "mousedown", "1", "sleep", "0.1" };
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

    std::vector<nlohmann::json> reports;
    Ref<GSubprocess> m_source;
};

TEST_F(DropAttachTest, FilesDroppedOnGmailOpenComposeAndAttachWhileLinksStayThePages) {
    ASSERT_TRUE(startOrvane("/gmail/", "/outlook/mail/", "/calendar/"));
    // With no account there is nothing to attach to: nothing happens.
    auto point = webAreaPoint();
    ASSERT_TRUE(drag({ "files", makeFile("lonely.txt"), orvane.folder() }, point.first, point.second));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForReports("loaded", 1));
    EXPECT_TRUE(reportsOf("files-chosen").empty());

    ASSERT_TRUE(drag({ "files", makeFile("report.pdf"), makeFile("holiday photo.jpg") }, point.first, point.second));
    ASSERT_TRUE(waitForReports("files-chosen", 1));
    auto chosen = reportsOf("files-chosen").front();
    EXPECT_EQ(chosen["names"], nlohmann::json::array({ "report.pdf", "holiday photo.jpg" }));
    // The drop opened a compose form first, and the page never got the drop.
    ASSERT_EQ(reportsOf("compose-clicked").size(), 1u);
    EXPECT_LT(reportsOf("compose-clicked").front()["at"].get<double>(), chosen["at"].get<double>());
    EXPECT_TRUE(reportsOf("page-drop").empty());
    EXPECT_FALSE(chooserShown());

    // A web link offers text/uri-list too, yet it is no file: the page gets it.
    ASSERT_TRUE(drag({ "link", "https://example.org/dropped-link" }, point.first, point.second));
    ASSERT_TRUE(waitForReports("page-drop", 1));
    EXPECT_EQ(reportsOf("files-chosen").size(), 1u);
    EXPECT_FALSE(chooserShown());
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
