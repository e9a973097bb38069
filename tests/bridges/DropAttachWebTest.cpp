// Dropped-file attachment in the manager's real views on the stand-in
// provider pages: the waiting files and their expiry, the drop handler given
// a real GdkFileList, the attach flow up to the page's file input, and drops
// of things that are not ordinary files. Real drags with the mouse are in
// tests/e2e/DropAttachTest.cpp.
#include "DropAttach.h"
#include "PendingDrops.h"
#include "MailService.h"
#include "web/ManagerWebFixture.h"

#include <glib/gstdio.h>
#include <sys/stat.h>

namespace orvane::test {
namespace {

class DropAttachWebTest : public ManagerWebFixture {
protected:
    // A dropped value as GTK hands it to the drop target.
    struct FileListValue {
        explicit FileListValue(const std::vector<std::string>& uris) {
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

    static std::string uriOf(const std::string& path) {
        return GCharPtr(g_filename_to_uri(path.c_str(), nullptr, nullptr)).get();
    }

    std::string makeFile(const std::string& folder, const std::string& name) {
        std::string path = folder + "/" + name;
        EXPECT_TRUE(Files::replaceAtomically(path, "contents of " + name));
        return path;
    }

    // The names the page's file inputs received, drop by drop.
    nlohmann::json chosenNames(WebKitWebView* view) {
        auto result = runJS(view, "__fixtureLog.filter(e => e.type === 'files-chosen').map(e => e.names)");
        EXPECT_TRUE(result.ok) << result.error;
        return result.value;
    }

    // Choosers that Orvane showed instead of answering with dropped files;
    // closes them when asked.
    static int choosersShown(bool close = false) {
        int shown = 0;
        GListModel* windows = gtk_window_get_toplevels();
        for (guint i = 0; i < g_list_model_get_n_items(windows); ++i) {
            Ref<GtkWindow> window = adopt(GTK_WINDOW(g_list_model_get_item(windows, i)));
            const char* title = gtk_window_get_title(window.get());
            if (!title || !g_str_has_prefix(title, "Select File"))
                continue;
            ++shown;
            if (close)
                gtk_window_close(window.get());
        }
        return shown;
    }

    // Clicks a new file input in the view's page (for several files or one);
    // the names it receives land in window.__names.
    static void clickFileInput(WebKitWebView* view, bool multiple) {
        ASSERT_TRUE(runJS(view, std::string("{ const input = document.createElement('input'); input.type = 'file';")
                                    + (multiple ? "input.multiple = true;" : "")
                                    + "input.onchange = () => { window.__names = Array.from(input.files).map(f => f.name); };"
                                      "document.body.appendChild(input); input.click(); } true").ok);
    }
};

TEST_F(DropAttachWebTest, WaitingFilesFollowTheChooserRuleAndExpire) {
    auto newView = [] { return Ref<WebKitWebView>(WEBKIT_WEB_VIEW(webkit_web_view_new())); };
    Ref<WebKitWebView> first = newView(), second = newView(), popup = newView();
    using Paths = std::vector<std::string>;
    constexpr auto kExpiry = 400ms;
    PendingDrops drops(kExpiry);

    EXPECT_EQ(drops.add(first.get(), { "/tmp/one" }), 1u);
    EXPECT_EQ(drops.pending(first.get()), Paths { "/tmp/one" });
    EXPECT_EQ(drops.add(second.get(), { "/tmp/two", "/tmp/three" }), 2u);

    // A view takes its own files, else those of the view it belongs to (a
    // pop-up's main view), never another view's.
    EXPECT_FALSE(drops.take(popup.get(), nullptr));
    EXPECT_TRUE(drops.waiting(popup.get(), second.get()));
    EXPECT_EQ(drops.take(popup.get(), second.get()), (Paths { "/tmp/two", "/tmp/three" }));
    EXPECT_FALSE(drops.pending(second.get()));
    drops.add(popup.get(), { "/tmp/four" });
    EXPECT_EQ(drops.take(popup.get(), first.get()), Paths { "/tmp/four" });
    EXPECT_EQ(drops.take(first.get(), nullptr), Paths { "/tmp/one" });
    EXPECT_FALSE(drops.take(first.get(), nullptr));
    drops.add(second.get(), { "/tmp/five" });
    drops.clear(second.get());
    EXPECT_FALSE(drops.waiting(second.get(), nullptr));

    // A newer drop keeps its files for its own period: the older drop's timer
    // does not clear them.
    drops.add(first.get(), { "/tmp/old" });
    waitUntil([] { return false; }, kExpiry / 2); // part of the first period passes
    gint64 newer = g_get_monotonic_time();
    drops.add(first.get(), { "/tmp/new" });
    ASSERT_TRUE(waitUntil([&] { return !drops.pending(first.get()); }, 5s));
    EXPECT_GE(g_get_monotonic_time() - newer, std::chrono::microseconds(kExpiry).count());

    // A view's files do not outlive their own drop's period because another
    // view had a drop after them.
    drops.add(first.get(), { "/tmp/first" });
    drops.add(second.get(), { "/tmp/second" });
    ASSERT_TRUE(waitUntil([&] { return !drops.pending(first.get()) && !drops.pending(second.get()); }, 5s));

    // Files of a view that is gone are forgotten; its timer finds nothing.
    drops.add(popup.get(), { "/tmp/gone" });
    popup.reset();
    EXPECT_FALSE(drops.waiting(nullptr, first.get()));
    waitUntil([] { return false; }, kExpiry * 2);
}

TEST_F(DropAttachWebTest, GmailDropOpensComposeAndItsFileInputGetsExactlyTheDroppedFiles) {
    useServices("/gmail/");
    const Account account = store->addAccount();
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    // The account view carries the page scripts that need no native side.
    EXPECT_EQ(runJS(view, "window.__orvaneMarkdownPaste === true && document.documentElement.getAttribute('autocorrect')").value,
        "off");

    std::string folder = makeTempFolder("dropped");
    std::string report = makeFile(folder, "report.pdf");
    std::string photo = makeFile(folder, "photo 1 #ä.jpg");
    // A drag that mixes files and a web link is a file drop; the link is left out.
    FileListValue dropped({ uriOf(report), "https://example.com/page.html", uriOf(photo) });
    DropAttach* attachment = DropAttach::of(view);
    ASSERT_NE(attachment, nullptr);
    EXPECT_EQ(gtk_event_controller_get_propagation_phase(GTK_EVENT_CONTROLLER(attachment->dropTarget())), GTK_PHASE_CAPTURE);
    ASSERT_TRUE(attachment->drop(&dropped.value));
    EXPECT_EQ(manager->pendingDrops().pending(view), (std::vector<std::string> { report, photo }));

    ASSERT_TRUE(waitForJS(view, "__fixtureLog.some(e => e.type === 'files-chosen')", 15s));
    EXPECT_EQ(chosenNames(view), nlohmann::json::array({ { "report.pdf", "photo 1 #ä.jpg" } }));
    EXPECT_EQ(runJS(view, "__fixtureLog.filter(e => e.type === 'compose-clicked').length").value, 1);
    EXPECT_FALSE(manager->pendingDrops().pending(view));
    EXPECT_FALSE(choosersShown());

    // A drag of web links only is no file drop.
    FileListValue links({ "https://example.com/a", "http://127.0.0.1/b" });
    EXPECT_FALSE(attachment->drop(&links.value));
    EXPECT_FALSE(manager->pendingDrops().pending(view));

    // Pop-ups are drop sites too, and a chooser in a pop-up takes files that
    // were dropped on the main view.
    WebKitWebView* popup = nullptr;
    auto subscription = manager->observePopups([&](const std::string&, WebKitWebView* opened) { popup = opened; });
    ASSERT_TRUE(runJS(view, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return popup != nullptr; }));
    expectDeletedAtEnd(popup);
    EXPECT_NE(DropAttach::of(popup), nullptr);
    // (A pop-up starts on an empty document; the page replaces it.)
    ASSERT_TRUE(waitForJS(popup, "location.pathname === '/web/popup.html' && document.readyState === 'complete'"));
    manager->pendingDrops().add(view, { report });
    clickFileInput(popup, true);
    // The pop-up's chooser is answered with the main view's files, without a chooser.
    EXPECT_TRUE(waitForJS(popup, "JSON.stringify(window.__names) === '[\"report.pdf\"]'"));
    EXPECT_FALSE(manager->pendingDrops().pending(view));
    EXPECT_FALSE(choosersShown());
}

// Files dropped on one account's view answer only the service's own choosers
// in that view, with as many files as the input takes.
TEST_F(DropAttachWebTest, DroppedFilesReachOnlyTheirViewsOwnChoosersAndAsManyAsTheInputTakes) {
    useServices("/web/plain.html");
    // A frame of another site in the service's page opens a chooser when its
    // parent's message hands it the user's gesture.
    server.serve("/picker", "<!DOCTYPE html><script>addEventListener('message', () => {"
                            "const input = document.createElement('input'); input.type = 'file'; input.multiple = true;"
                            "document.body.append(input); input.click(); });</script>");
    const Account account = store->addAccount();
    const Account other = store->addAccount();
    WebKitWebView* otherView = show(other);
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    ASSERT_TRUE(waitLoaded(otherView));
    ASSERT_TRUE(runJS(view, "{ const f = document.createElement('iframe'); f.src = "
                                + jsonLiteral(server.uriOnHost("localhost", "/picker"))
                                + "; f.onload = () => { window.__frameLoaded = true; }; document.body.append(f); } true").ok);
    ASSERT_TRUE(waitForJS(view, "window.__frameLoaded === true"));
    std::string folder = makeTempFolder("dropped");
    const std::vector<std::string> files = { makeFile(folder, "first.txt"), makeFile(folder, "second.txt") };

    struct Case {
        const char* what;
        WebKitWebView* chooser;
        bool multiple;
        nlohmann::json names; // null: the ordinary chooser shows and the files wait
    };
    const std::string foreignPage = "another site in the view";
    const std::string foreignFrame = "a frame of another site in the page";
    const std::vector<Case> cases = {
        { "another account's page", otherView, true, nullptr },
        { foreignFrame.c_str(), view, true, nullptr },
        { "an input for one file", view, false, { "first.txt" } },
        { "an input for several", view, true, { "first.txt", "second.txt" } },
        { foreignPage.c_str(), view, true, nullptr },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        if (c.what == foreignPage) {
            ASSERT_TRUE(runJS(view, "location = " + jsonLiteral(server.uriOnHost("localhost", "/web/plain.html")) + "; true").ok);
            ASSERT_TRUE(waitForJS(view, "location.hostname === 'localhost' && document.readyState === 'complete'"));
        }
        manager->pendingDrops().add(view, files);
        if (c.what == foreignFrame) {
            ASSERT_TRUE(runJS(view, "document.querySelector('iframe').contentWindow.postMessage('open', '*'); true").ok);
        } else {
            clickFileInput(c.chooser, c.multiple);
        }
        if (c.names.is_null()) {
            ASSERT_TRUE(waitUntil([] { return choosersShown() == 1; }));
            EXPECT_EQ(manager->pendingDrops().pending(view), files);
            choosersShown(true);
            ASSERT_TRUE(waitUntil([] { return choosersShown() == 0; }));
            if (c.what != foreignFrame) {
                EXPECT_EQ(runJS(c.chooser, "window.__names ?? null").value, nullptr);
            }
        } else {
            ASSERT_TRUE(waitForJS(c.chooser, "JSON.stringify(window.__names) === " + jsonLiteral(c.names.dump())));
            EXPECT_FALSE(manager->pendingDrops().pending(view));
            EXPECT_EQ(choosersShown(), 0);
        }
        manager->pendingDrops().clear(view);
    }
}

TEST_F(DropAttachWebTest, FailedAttachClearsTheFilesAndCalendarDropsOnlyWait) {
    // Gmail's script finds no compose button on this page and gives up.
    useServices("/paste/");
    const Account mail = store->addAccount();
    const Account calendar = store->addCalendar(mail);
    WebKitWebView* calendarView = show(calendar);
    // Drops land on the view on screen; a hidden page's timers are slowed down.
    WebKitWebView* mailView = show(mail);
    ASSERT_TRUE(waitLoaded(mailView));
    ASSERT_TRUE(waitLoaded(calendarView));

    std::string file = makeFile(makeTempFolder("dropped"), "notes.txt");
    DropAttach::of(calendarView)->beginDropAttach({ file });
    drainEvents();
    EXPECT_EQ(manager->pendingDrops().pending(calendarView), std::vector<std::string> { file });

    gint64 dropped = g_get_monotonic_time();
    DropAttach::of(mailView)->beginDropAttach({ file });
    EXPECT_EQ(manager->pendingDrops().pending(mailView), std::vector<std::string> { file });
    ASSERT_TRUE(waitUntil([&] { return !manager->pendingDrops().pending(mailView); }, 15s));
    // Cleared by the failure (the script gives up after 5 s), not by expiry.
    EXPECT_LT(g_get_monotonic_time() - dropped, std::chrono::microseconds(PendingDrops::kExpiry).count() - 500000);
}

TEST_F(DropAttachWebTest, DropsOfFoldersSpecialFilesAndManyFilesOnlyPassPathsOn) {
    useServices("/gmail/");
    const Account account = store->addAccount();
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    DropAttach* attachment = DropAttach::of(view);

    std::string folder = makeTempFolder("odd-drops");
    std::string fifo = folder + "/pipe";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::string vanished = makeFile(folder, "vanished.txt");
    std::vector<std::string> many;
    for (int i = 0; i < 1000; ++i)
        many.push_back(uriOf(makeFile(folder, "file-" + std::to_string(i) + ".txt")));

    // A FIFO that anyone opened for reading would block this test for good;
    // /dev/zero never ends.
    std::vector<std::vector<std::string>> drops = {
        { uriOf(folder) }, { uriOf(fifo) }, { "file:///dev/zero" }, { uriOf(vanished) }, many,
    };
    size_t finished = 0;
    for (const auto& uris : drops) {
        FileListValue value(uris);
        ASSERT_TRUE(attachment->drop(&value.value));
        if (uris.front() == uriOf(vanished)) {
            ASSERT_EQ(g_remove(vanished.c_str()), 0);
        }
        // Each drop ends with a click on the page's file input and its files
        // handed over by the chooser rule, whatever the page makes of them.
        // (Had they expired first, a chooser would show: checked at the end.)
        ++finished;
        ASSERT_TRUE(waitForJS(view, "__fixtureLog.filter(e => e.type === 'file-input-click').length === " + std::to_string(finished), 20s))
            << uris.front();
        ASSERT_TRUE(waitUntil([&] { return !manager->pendingDrops().pending(view); }, 5s)) << uris.front();
        ASSERT_TRUE(waitForJS(view, "document.readyState === 'complete'"));
    }
    EXPECT_EQ(finished, drops.size());
    // The page hears of the files a little after the chooser was answered.
    EXPECT_TRUE(waitForJS(view, "__fixtureLog.filter(e => e.type === 'files-chosen').pop()?.names.length === 1000", 10s));
    auto names = chosenNames(view);
    ASSERT_TRUE(names.is_array());
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.back().size(), 1000u);
    EXPECT_EQ(names.back().front(), "file-0.txt");
    EXPECT_FALSE(choosersShown());
}

} // namespace
} // namespace orvane::test
