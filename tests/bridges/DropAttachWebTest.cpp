// Dropped-file attachment in the manager's real views on the stand-in
// provider pages: the waiting files and the chooser rule, the drop handler
// given a real GdkFileList, and drops of things that are not ordinary files.
// Real drags with the mouse, and links dropped, are tests/e2e/DropAttachTest's.
#include "DropAttach.h"
#include "PendingDrops.h"
#include "web/ManagerWebFixture.h"

#include <glib/gstdio.h>
#include <sys/stat.h>

namespace orvane::test {
namespace {

using Paths = std::vector<std::string>;

// A dropped value as GTK hands it to the drop target.
struct FileListValue {
    explicit FileListValue(const Paths& uris) {
        GSList* files = nullptr;
        for (const auto& uri : uris)
            files = g_slist_append(files, g_file_new_for_uri(uri.c_str()));
        g_value_init(&value, GDK_TYPE_FILE_LIST);
        g_value_take_boxed(&value, gdk_file_list_new_from_list(files));
        g_slist_free_full(files, g_object_unref);
    }
    ~FileListValue() { g_value_unset(&value); }
    GValue value = G_VALUE_INIT;
};

std::string uriOf(const std::string& path) { return GCharPtr(g_filename_to_uri(path.c_str(), nullptr, nullptr)).get(); }

class DropAttachWebTest : public ManagerWebFixture {
protected:
    std::string makeFile(const std::string& folder, const std::string& name) {
        EXPECT_TRUE(Files::replaceAtomically(folder + "/" + name, "contents of " + name));
        return folder + "/" + name;
    }
    // Choosers that Orvane showed instead of answering with dropped files.
    static size_t choosersShown() { return toplevels(GTK_TYPE_FILE_CHOOSER_DIALOG).size(); }
    // Clicks a new file input in the page; the names it receives land in window.__names.
    static void clickFileInput(WebKitWebView* view, bool multiple) {
        run(view, std::string("{ const input = document.createElement('input'); input.type = 'file';")
            + (multiple ? "input.multiple = true;" : "")
            + "input.onchange = () => { window.__names = Array.from(input.files).map(f => f.name); };"
              "document.body.appendChild(input); input.click(); }");
    }
};

// Files dropped on one account's view answer only the service's own choosers
// in that view or its pop-ups, with as many files as the input takes, and
// expire with their own drop.
TEST_F(DropAttachWebTest, DroppedFilesReachOnlyTheirAccountsOwnChoosersAsManyAsTheInputTakesUntilTheyExpire) {
    auto newView = [] { return Ref<WebKitWebView>(WEBKIT_WEB_VIEW(webkit_web_view_new())); };
    Ref<WebKitWebView> first = newView(), second = newView(), popupView = newView();
    constexpr auto kExpiry = 400ms;
    PendingDrops drops(kExpiry);

    // A view takes its own files, else those of the view it belongs to (a
    // pop-up's main view), never another view's.
    drops.add(first.get(), { "/tmp/one" });
    drops.add(second.get(), { "/tmp/two", "/tmp/three" });
    EXPECT_FALSE(drops.take(popupView.get(), nullptr));
    EXPECT_EQ(drops.take(popupView.get(), second.get()), (Paths { "/tmp/two", "/tmp/three" }));
    EXPECT_FALSE(drops.pending(second.get()));
    drops.add(popupView.get(), { "/tmp/four" });
    EXPECT_EQ(drops.take(popupView.get(), first.get()), Paths { "/tmp/four" });
    EXPECT_EQ(drops.take(first.get(), nullptr), Paths { "/tmp/one" });
    EXPECT_FALSE(drops.take(first.get(), nullptr));

    // A newer drop keeps its files for its own period, whatever the older
    // drop's timer or another view's drop does.
    drops.add(first.get(), { "/tmp/old" });
    const gint64 older = g_get_monotonic_time();
    ASSERT_TRUE(waitUntil([&] { return g_get_monotonic_time() - older > 200'000; })); // part of the first period
    const gint64 newer = g_get_monotonic_time();
    drops.add(first.get(), { "/tmp/new" });
    drops.add(popupView.get(), { "/tmp/gone" });
    popupView.reset(); // the files of a view that is gone are forgotten; its timer finds nothing
    drops.add(second.get(), { "/tmp/second" });
    ASSERT_TRUE(waitUntil([&] { return !drops.pending(first.get()) && !drops.pending(second.get()); }, 5s));
    EXPECT_GE(g_get_monotonic_time() - newer, std::chrono::microseconds(kExpiry).count());

    useServices("/web/plain.html");
    WebKitWebView* otherView = showNewAccount();
    view = showNewAccount();
    // A frame of another site that opens a chooser.
    const std::string picker = jsonLiteral(server.uriOnHost("localhost", "/web/picker.html"));
    run(view, "{ const f = document.createElement('iframe'); f.src = " + picker
        + "; f.onload = () => { window.__frameLoaded = true; }; document.body.append(f); }");
    ASSERT_TRUE(waitForJS(view, "window.__frameLoaded === true"));
    WebKitWebView* popup = nextPopup(view, "window.open('/web/popup.html', 'popup')");
    ASSERT_TRUE(popup);
    ASSERT_TRUE(waitForJS(popup, "location.pathname === '/web/popup.html' && document.readyState === 'complete'"));
    std::string folder = makeTempFolder("dropped");
    const Paths files = { makeFile(folder, "first.txt"), makeFile(folder, "second.txt") };
    // Only local files are kept: web links are left out.
    FileListValue mixed(
        { "file:///tmp/report.pdf", "https://example.com/page.html", "file:///tmp/photo%201%20%23.jpg" });
    EXPECT_EQ(DropAttach::localPaths(&mixed.value), (Paths { "/tmp/report.pdf", "/tmp/photo 1 #.jpg" }));
    FileListValue links({ "https://example.com/a", "http://127.0.0.1/b" });
    EXPECT_FALSE(DropAttach::of(view)->drop(&links.value)) << "a drag of web links only is no file drop";

    enum Chooser { OtherAccount, ForeignFrame, OneFile, SeveralFiles, Popup, ForeignPage };
    const std::pair<Chooser, nlohmann::json> cases[] = { // null: the ordinary chooser shows and the files wait
        { OtherAccount, nullptr }, { ForeignFrame, nullptr }, { OneFile, { "first.txt" } },
        { SeveralFiles, { "first.txt", "second.txt" } }, { Popup, { "first.txt", "second.txt" } },
        { ForeignPage, nullptr },
    };
    for (const auto& [chooser, names] : cases) {
        SCOPED_TRACE(chooser);
        if (chooser == ForeignPage) {
            run(view, "location = " + jsonLiteral(server.uriOnHost("localhost", "/web/plain.html")));
            ASSERT_TRUE(waitForJS(view, "location.hostname === 'localhost' && document.readyState === 'complete'"));
        }
        bridges->pendingDrops().add(view, files);
        WebKitWebView* target = chooser == OtherAccount ? otherView : chooser == Popup ? popup : view;
        if (chooser == ForeignFrame)
            run(view, "document.querySelector('iframe').contentWindow.postMessage('open', '*')");
        else
            clickFileInput(target, chooser != OneFile);
        if (names.is_null()) {
            ASSERT_TRUE(waitUntil([] { return choosersShown() == 1; }));
            EXPECT_EQ(bridges->pendingDrops().pending(view), files);
            gtk_window_close(toplevels(GTK_TYPE_FILE_CHOOSER_DIALOG).front());
            ASSERT_TRUE(waitUntil([] { return choosersShown() == 0; }));
        } else {
            ASSERT_TRUE(waitForJS(target, "JSON.stringify(window.__names) === " + jsonLiteral(names.dump())));
            EXPECT_FALSE(bridges->pendingDrops().pending(view));
            EXPECT_EQ(choosersShown(), 0u);
        }
        bridges->pendingDrops().clear(view);
    }
}

// (A calendar has no attach script: its drops only wait, MailServiceTest.)
TEST_F(DropAttachWebTest, AFailedAttachClearsTheFiles) {
    useServices("/paste/"); // Gmail's script finds no compose button here and gives up
    WebKitWebView* mailView = showNewAccount();
    std::string file = makeFile(makeTempFolder("dropped"), "notes.txt");
    gint64 dropped = g_get_monotonic_time();
    DropAttach::of(mailView)->beginDropAttach({ file });
    ASSERT_TRUE(waitUntil([&] { return !bridges->pendingDrops().pending(mailView); }, 15s));
    EXPECT_LT(g_get_monotonic_time() - dropped, std::chrono::microseconds(PendingDrops::kExpiry).count() - 500000)
        << "cleared by the failure (the script gives up after 5 s), not by expiry";
    EXPECT_EQ(host.failures, std::vector<std::string> { "Could not attach “notes.txt”: the page has no place for attachments" });
}

// Each drop on Gmail's page ends with its files in the page's file input.
// Nothing opens a dropped path: a FIFO that anyone opened for reading would
// block for good, /dev/zero never ends.
TEST_F(DropAttachWebTest, DropsOfFoldersSpecialFilesAndManyFilesOnlyPassPathsOn) {
    useServices("/gmail/");
    view = showNewAccount();
    std::string folder = makeTempFolder("odd-drops");
    ASSERT_EQ(mkfifo((folder + "/pipe").c_str(), 0600), 0);
    std::string vanished = makeFile(folder, "vanished.txt");
    Paths many;
    for (int i = 0; i < 1000; ++i)
        many.push_back(uriOf(makeFile(folder, "file-" + std::to_string(i) + ".txt")));
    const std::vector<Paths> drops = { { uriOf(folder) }, { uriOf(folder + "/pipe") }, { "file:///dev/zero" },
        { uriOf(vanished) }, many };
    for (size_t finished = 1; finished <= drops.size(); ++finished) {
        const Paths& uris = drops[finished - 1];
        FileListValue value(uris);
        ASSERT_TRUE(DropAttach::of(view)->drop(&value.value));
        if (uris.front() == uriOf(vanished))
            g_remove(vanished.c_str());
        // Each drop ends with a click on the page's file input, answered by the chooser rule.
        ASSERT_TRUE(waitForJS(view, "__fixtureLog.filter(e => e.type === 'file-input-click').length === "
            + std::to_string(finished), 20s)) << uris.front();
        ASSERT_TRUE(waitUntil([&] { return !bridges->pendingDrops().pending(view); }, 5s)) << uris.front();
        // The page has its files before the next drop: WebKit opens no
        // chooser while the last one's answer is still on its way.
        ASSERT_TRUE(waitForJS(view, "__fixtureLog.filter(e => e.type === 'files-chosen').length === "
            + std::to_string(finished))) << uris.front();
    }
    const std::string last = "__fixtureLog.filter(e => e.type === 'files-chosen').pop()";
    EXPECT_EQ(js(view, last + ".names.length"), 1000);
    EXPECT_FALSE(choosersShown()) << "no drop expired before its chooser";
}

} // namespace
} // namespace orvane::test
