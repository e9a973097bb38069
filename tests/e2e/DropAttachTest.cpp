// Files dragged from another program and dropped on orvane's window become
// attachments in the page on screen: a real XDND drag from a window of this
// test process, moved with xdotool, onto the stand-in Gmail and Outlook
// pages. The pages report what they see to the fixture server.
#include "DragSource.h"
#include "E2ETest.h"

#include "Files.h"
#include "support/FixturePageScript.h"
#include "support/TestEnvironment.h"

#include <algorithm>

namespace orvane::test {

namespace {

// Added to the stand-in pages: sends what the page logs, what reaches it of
// a drag, its file inputs' style changes, the pointer's page coordinates and
// (once a compose form is open) where its controls are, to /drop/report.
constexpr const char* kReporter = R"JS(
(function () {
    'use strict';
    const send = entry => {
        entry.page = location.pathname;
        entry.at = performance.now();
        fetch('/drop/report', { method: 'POST', body: JSON.stringify(entry) }).catch(() => {});
    };
    const centre = element => {
        if (!element)
            return null;
        const box = element.getBoundingClientRect();
        return { x: box.left + box.width / 2, y: box.top + box.height / 2 };
    };
    const last = selector => Array.from(document.querySelectorAll(selector)).pop();
    const log = window.__fixtureLog || [];
    const push = log.push.bind(log);
    log.push = (...entries) => {
        for (const entry of entries) {
            send(Object.assign({}, entry));
            if (entry.type === 'compose-opened')
                requestAnimationFrame(() => send({ type: 'controls', attach: centre(last('[command="Files"]')),
                    editor: centre(last('[aria-label="Message Body"], [aria-label="Message body"]')) }));
        }
        return push(...entries);
    };
    for (const type of ['dragenter', 'dragleave', 'drop'])
        document.addEventListener(type, event => send({ type: 'page-' + type }), true);
    document.addEventListener('input', event => {
        if (event.target.isContentEditable)
            send({ type: 'edited', text: event.target.innerText });
    }, true);
    document.addEventListener('mousemove', event => send({ type: 'pointer', x: event.clientX, y: event.clientY }), true);
    new MutationObserver(records => {
        for (const record of records) {
            if (record.target instanceof HTMLInputElement && record.target.type === 'file')
                send({ type: 'file-style', accept: record.target.getAttribute('accept'), style: record.target.getAttribute('style') });
        }
    }).observe(document.documentElement, { subtree: true, attributes: true, attributeFilter: ['style'] });
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
        for (const char* page : { "/gmail/", "/outlook/mail/", "/calendar/" })
            serveFixtureWithScript(server, page, std::string(page) + "index.html", [] { return std::string(kReporter); });
        folder = makeTempFolder("to-drop");
    }

    std::vector<nlohmann::json> reportsOf(const std::string& type, const std::string& page = "") const {
        std::vector<nlohmann::json> found;
        for (const auto& report : reports) {
            if (report.value("type", "") == type && (page.empty() || report.value("page", "") == page))
                found.push_back(report);
        }
        return found;
    }
    bool waitForReports(const std::string& type, size_t count, const std::string& page = "",
        std::chrono::milliseconds timeout = 20s) {
        return waitUntil([&] { return reportsOf(type, page).size() >= count; }, timeout);
    }

    std::string makeFile(const std::string& name) {
        std::string path = folder + "/" + name;
        EXPECT_TRUE(Files::replaceAtomically(path, "contents of " + name));
        return path;
    }

    // Where the pointer is, on screen and in the page under it.
    struct PagePoint {
        std::pair<int, int> screen;
        nlohmann::json page;
        // The screen point of a point of the same page.
        std::pair<int, int> map(const nlohmann::json& point) const {
            return { screen.first + int(point["x"].get<double>() - page["x"].get<double>()),
                screen.second + int(point["y"].get<double>() - page["y"].get<double>()) };
        }
    };

    // Moves the pointer to a screen point (the first time it goes there) and
    // waits until the page under it says where that is in its own
    // coordinates. Every account page fills the same web area, so the
    // answer maps page points to the screen for all of them.
    std::optional<PagePoint> mapPage(int x, int y, const std::string& page) {
        size_t before = reportsOf("pointer", page).size();
        if (!moveTo(x, y) || !waitForReports("pointer", before + 1, page, 10s))
            return std::nullopt;
        return PagePoint { { x, y }, reportsOf("pointer", page).back() };
    }

    bool moveTo(int x, int y) {
        auto moved = ChildProcess::run({ "xdotool", "mousemove", std::to_string(x), std::to_string(y) }, orvane.environment(), 20s);
        return moved && moved->status == 0;
    }

    bool chooserShown() const { return !orvane.windowsTitled("Select Files").empty(); }

    static nlohmann::json namesOf(const nlohmann::json& report) { return report.value("names", nlohmann::json()); }

    std::vector<nlohmann::json> reports;
    std::string folder;
};

TEST_F(DropAttachTest, GmailFilesAttachByDragAndDropWhileTextAndLinksStayThePages) {
    ASSERT_TRUE(startOrvane("/gmail/", "/outlook/mail/", "/calendar/"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForReports("loaded", 1, "/gmail/", 30s));
    DragSource source(orvane);
    std::vector<std::string> dropped = { makeFile("report.pdf"), makeFile("holiday photo.jpg") };
    ASSERT_TRUE(source.open(DragSource::files(dropped)));

    auto point = webAreaPoint();
    ASSERT_TRUE(source.dragTo(point.first, point.second));
    ASSERT_TRUE(waitForReports("files-chosen", 1, "/gmail/"));
    EXPECT_EQ(namesOf(reportsOf("files-chosen").front()), nlohmann::json::array({ "report.pdf", "holiday photo.jpg" }));
    // The drop opened a compose form first, and the page never got the drop.
    ASSERT_EQ(reportsOf("compose-clicked").size(), 1u);
    EXPECT_LT(reportsOf("compose-clicked").front()["at"].get<double>(), reportsOf("files-chosen").front()["at"].get<double>());
    EXPECT_TRUE(reportsOf("page-drop").empty());
    EXPECT_FALSE(chooserShown());
    EXPECT_TRUE(orvane.isRunning());

    // Text and web links dropped on the message body are the page's own.
    ASSERT_TRUE(waitForReports("controls", 1, "/gmail/"));
    auto controls = reportsOf("controls").back();
    auto pointer = mapPage(point.first + 20, point.second, "/gmail/");
    ASSERT_TRUE(pointer);
    auto editor = pointer->map(controls["editor"]);
    ASSERT_TRUE(source.setContent(DragSource::text("dragged words")));
    ASSERT_TRUE(source.dragTo(editor.first, editor.second));
    ASSERT_TRUE(waitForReports("page-drop", 1));
    ASSERT_TRUE(waitUntil([&] {
        auto edits = reportsOf("edited");
        return !edits.empty() && edits.back().value("text", "").find("dragged words") != std::string::npos;
    }, 20s));
    ASSERT_TRUE(source.setContent(DragSource::link("https://example.org/dropped-link")));
    ASSERT_TRUE(source.dragTo(editor.first, editor.second));
    ASSERT_TRUE(waitForReports("page-drop", 2));
    ASSERT_TRUE(waitUntil([&] {
        auto edits = reportsOf("edited");
        return !edits.empty() && edits.back().value("text", "").find("example.org/dropped-link") != std::string::npos;
    }, 20s));
    EXPECT_EQ(reportsOf("files-chosen").size(), 1u);
    EXPECT_FALSE(chooserShown());
}

TEST_F(DropAttachTest, OutlookDropOpensANewMessageAndPutsItsFileInputBack) {
    ASSERT_TRUE(startOrvane("/gmail/", "/outlook/mail/", "/calendar/"));
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(waitForReports("loaded", 1, "/outlook/mail/", 30s));
    DragSource source(orvane);
    ASSERT_TRUE(source.open(DragSource::files({ makeFile("minutes.odt") })));

    auto point = webAreaPoint();
    ASSERT_TRUE(source.dragTo(point.first, point.second));
    ASSERT_TRUE(waitForReports("files-chosen", 1, "/outlook/mail/"));
    auto chosen = reportsOf("files-chosen").front();
    EXPECT_EQ(namesOf(chosen), nlohmann::json::array({ "minutes.odt" }));
    // The input without an accept filter, of a form opened for the drop.
    EXPECT_TRUE(chosen["accept"].is_null());
    ASSERT_EQ(reportsOf("new-mail-clicked").size(), 1u);
    EXPECT_LT(reportsOf("compose-opened").at(0)["at"].get<double>(), chosen["at"].get<double>());
    EXPECT_TRUE(reportsOf("page-drop").empty());
    EXPECT_FALSE(chooserShown());

    // The input was moved on top for the click and gets its style back 4 s later.
    ASSERT_TRUE(waitForReports("file-style", 2, "/outlook/mail/", 15s));
    auto styles = reportsOf("file-style");
    EXPECT_NE(styles[0].value("style", "").find("position:fixed;left:60px;top:60px"), std::string::npos);
    EXPECT_EQ(styles[1].value("style", ""), "display:none");
    EXPECT_TRUE(styles[1]["accept"].is_null());
    double restoredAfter = styles[1]["at"].get<double>() - styles[0]["at"].get<double>();
    EXPECT_GE(restoredAfter, 3900);
    EXPECT_LT(restoredAfter, 8000);
}

TEST_F(DropAttachTest, DropsWithoutAnyAccountChangeNothing) {
    ASSERT_TRUE(startOrvane("/gmail/", "/outlook/mail/", "/calendar/"));
    unsigned long window = mainWindow();
    auto geometry = orvane.geometry(window);
    ASSERT_TRUE(geometry);
    DragSource source(orvane);
    ASSERT_TRUE(source.open(DragSource::files({ makeFile("lonely.txt"), folder })));
    ASSERT_TRUE(source.dragTo(geometry->x + geometry->width / 2, geometry->y + geometry->height / 2));
    // Still there and still answering; the first account's page loads as usual.
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForReports("loaded", 1, "/gmail/", 30s));
    EXPECT_TRUE(reportsOf("files-chosen").empty());
    EXPECT_FALSE(chooserShown());
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
