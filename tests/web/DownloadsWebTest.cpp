// What an account's pages download, where it lands and how a flood is held.
// The naming rules themselves are in DownloadFilesTest, the flood counting in
// FloodGatesTest; these tests show WebKit's downloads going through them.
#include "app/XInput.h"
#include "DownloadDestination.h"
#include "DownloadGuard.h"
#include "SaveImageWebView.h"
#include "ScriptDialogs.h"

#include "ManagerWebFixture.h"

#include <map>
#include <set>

namespace orvane::test {
namespace {

std::map<std::string, std::string> filesIn(const std::string& folder) {
    std::map<std::string, std::string> files;
    GDir* dir = g_dir_open(folder.c_str(), 0, nullptr);
    while (const char* name = dir ? g_dir_read_name(dir) : nullptr) {
        std::string path = folder + "/" + name;
        files[name] = g_file_test(path.c_str(), G_FILE_TEST_IS_SYMLINK) ? "<link>" : Files::read(path, 1 << 20).value_or("?");
    }
    if (dir)
        g_dir_close(dir);
    return files;
}

// Counts the downloads that the session of a view starts, fail and end.
struct DownloadWatch {
    explicit DownloadWatch(WebKitWebView* view) {
        connection = SignalConnection::connect(webkit_web_view_get_network_session(view), "download-started",
            +[](WebKitNetworkSession*, WebKitDownload* download, DownloadWatch* watch) {
                watch->started++;
                g_signal_connect_swapped(download, "failed", G_CALLBACK(+[](DownloadWatch* w) { w->failed++; }), watch);
                g_signal_connect_swapped(download, "finished", G_CALLBACK(+[](DownloadWatch* w) { w->finished++; }), watch);
            }, this);
    }
    int started = 0;
    int failed = 0;
    int finished = 0; // after a failure too
    SignalConnection connection;
};

class DownloadsWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        // The question about a flood: allowed at once unless a test answers itself.
        host.onAsk = [this](GtkWindow*, const ScriptDialogs::Request&, ScriptDialogs::Completion done) {
            if (answerAtOnce)
                done({ DownloadGuard::kAllow, {} });
            else
                questions.push_back(std::move(done));
        };
        root = makeTempFolder("downloads");
        downloads = root + "/Downloads";
        useDownloadsFolder(downloads);
        serve("/files/attachment.pdf", "attachment; filename=\"report.pdf\"", "%PDF-1.4 report");
        useServices("/files/page.html");
        account = store->addAccount();
        view = show(account);
        ASSERT_TRUE(waitLoaded(view));
    }

    void useDownloadsFolder(const std::string& folder) {
        ASSERT_TRUE(Files::replaceAtomically(std::string(g_getenv("XDG_CONFIG_HOME")) + "/user-dirs.dirs",
            "XDG_DOWNLOAD_DIR=\"" + folder + "\"\n"));
    }
    // Serves `body` with a Content-Disposition ("" for none); "?" in it is
    // the request's query.
    void serve(const std::string& path, std::string disposition, std::string body, guint status = 200,
        std::string type = "application/pdf") {
        server.handle(path, [=](SoupServerMessage* message, const std::string&) {
            soup_server_message_set_status(message, status, nullptr);
            std::string header = disposition;
            if (auto at = header.find('?'); at != std::string::npos)
                header.replace(at, 1, g_uri_get_query(soup_server_message_get_uri(message)));
            if (!header.empty())
                soup_message_headers_append(soup_server_message_get_response_headers(message), "Content-Disposition", header.c_str());
            soup_server_message_set_response(message, type.c_str(), SOUP_MEMORY_COPY, body.data(), body.size());
        });
    }
    void go(WebKitWebView* page, const std::string& path) {
        ASSERT_TRUE(runJS(page, "location.href = '" + path + "'; true").ok) << path;
    }

    Account account;
    WebKitWebView* view = nullptr;
    std::string root;
    std::string downloads;
    bool answerAtOnce = true;
    std::vector<ScriptDialogs::Completion> questions;
};

TEST_F(DownloadsWebTest, AttachmentsAndWhatWebKitCannotShowAreDownloadedTheRestShown) {
    const std::string page = webkit_web_view_get_uri(view);
    serve("/files/capital.pdf", "Attachment; filename=x.pdf", "%PDF-1.4 capital");
    serve("/files/shown.pdf", "", "%PDF-1.4 shown");
    serve("/files/unknown.bin", "", "raw", 200, "application/x-orvane-unknown");

    // "Attachment" with a capital A downloads too, although WebKit shows PDFs;
    // what WebKit cannot show is downloaded; a second report lands beside the first.
    for (const auto& [path, name] : { std::pair { "/files/attachment.pdf", "report.pdf" }, { "/files/capital.pdf", "x.pdf" },
             { "/files/unknown.bin", "unknown.bin" }, { "/files/attachment.pdf", "report 1.pdf" } }) {
        go(view, path);
        EXPECT_TRUE(waitUntil([&] { return filesIn(downloads).contains(name); }, 20s)) << name;
    }
    const std::map<std::string, std::string> expected = { { "report.pdf", "%PDF-1.4 report" },
        { "x.pdf", "%PDF-1.4 capital" }, { "unknown.bin", "raw" }, { "report 1.pdf", "%PDF-1.4 report" } };
    EXPECT_TRUE(waitUntil([&] { return filesIn(downloads) == expected; }, 20s));
    EXPECT_EQ(webkit_web_view_get_uri(view), page) << "the page stays where it was";

    // A pop-up that only downloads closes; one that shows a page stays open.
    WebKitWebView* popup = nullptr;
    auto subscription = manager->observePopups([&](const std::string&, WebKitWebView* opened) { popup = opened; });
    ASSERT_TRUE(runJS(view, "window.open('/files/attachment.pdf', 'download'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return popup != nullptr; }));
    expectDeletedAtEnd(popup);
    ASSERT_TRUE(waitUntil([&] { return filesIn(downloads).contains("report 2.pdf"); }, 20s));
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    ASSERT_TRUE(runJS(view, "window.open('/files/shown.pdf', 'shown'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    ASSERT_TRUE(waitLoaded(manager->popupViews(account.id).front()));
    drainEvents();
    EXPECT_EQ(manager->popupViews(account.id).size(), 1u);
    // A PDF without the header is shown in the view.
    go(view, "/files/shown.pdf");
    ASSERT_TRUE(waitUntil([&] { return webkit_web_view_get_uri(view) == server.uri("/files/shown.pdf"); }));
}

TEST_F(DownloadsWebTest, FilesLandOnlyInsideDownloadsAndNeverOverwriteAnything) {
    // Parallel downloads of one name, past planted links: the name itself
    // and a later name's partial file.
    serve("/files/numbered", "attachment; filename=report.pdf", "a copy");
    std::string victim = root + "/victim";
    ASSERT_TRUE(Files::replaceAtomically(victim, "precious"));
    ASSERT_TRUE(Files::makeFolder(downloads));
    ASSERT_EQ(symlink(victim.c_str(), (downloads + "/report.pdf").c_str()), 0);
    ASSERT_EQ(symlink(victim.c_str(), (downloads + "/report 1.pdf" + DownloadDestination::kPartialSuffix).c_str()), 0);
    constexpr int kParallel = 20;
    DownloadWatch watch(view);
    for (int i = 0; i < kParallel; ++i)
        SaveImageWebView::of(view)->downloadLinkedFile(server.uri("/files/numbered?" + std::to_string(i)));
    ASSERT_TRUE(waitUntil([&] { return watch.finished == kParallel; }, 60s)) << watch.finished;
    EXPECT_EQ(watch.failed, 0);
    auto files = filesIn(downloads);
    EXPECT_EQ(files.size(), size_t(kParallel) + 2);
    EXPECT_FALSE(files.contains("report 1.pdf"));
    for (int n = 2; n < kParallel + 2; ++n)
        EXPECT_EQ(files["report " + std::to_string(n) + ".pdf"], "a copy") << n;
    EXPECT_EQ(Files::read(victim, 100).value_or(""), "precious");

    // Hostile names: no folders, no leading dot, and a long name leaves room
    // for WebKit's partial-file suffix (WebKit adds the type's extension).
    serve("/files/dots", "attachment; filename=\"../../.bashrc\"", "dots");
    serve("/files/long", "attachment; filename=\"" + std::string(300, 'n') + ".pdf\"", "long");
    // Failed or refused downloads leave nothing: a 404, and a Downloads
    // folder that cannot be made.
    serve("/files/gone.pdf", "attachment; filename=gone.pdf", "not found", 404);
    for (const char* path : { "/files/dots", "/files/long", "/files/gone.pdf" }) {
        int before = watch.finished;
        go(view, path);
        ASSERT_TRUE(waitUntil([&] { return watch.finished == before + 1; }, 20s)) << path;
    }
    EXPECT_EQ(watch.failed, 1);
    files = filesIn(downloads);
    EXPECT_EQ(files.size(), size_t(kParallel) + 4);
    EXPECT_EQ(files["bashrc.pdf"], "dots");
    EXPECT_EQ(files[std::string(240, 'n') + ".pdf"], "long");
    std::string blocked = root + "/Blocked";
    ASSERT_TRUE(Files::replaceAtomically(blocked, "a file"));
    useDownloadsFolder(blocked);
    go(view, "/files/attachment.pdf");
    ASSERT_TRUE(waitUntil([&] { return watch.failed == 2; }));
    EXPECT_EQ(Files::read(blocked, 100).value_or(""), "a file");
    EXPECT_EQ(filesIn(root).size(), 3u) << "only Downloads, Blocked and the victim";
}

TEST_F(DownloadsWebTest, AFloodOfDownloadsWithoutAClickWaitsForOneAnswer) {
    serve("/files/flood", "attachment; filename=?", "%PDF");
    answerAtOnce = false;
    auto flood = [&](WebKitWebView* page, const std::string& prefix) {
        return runJS(page, "for (let i = 0; i < 6; i++) { const f = document.createElement('iframe');"
            " f.src = '/files/flood?" + prefix + "' + i + '.pdf'; document.body.append(f); } true").ok;
    };
    // Six files from hidden frames, no input at all: three land, the rest
    // wait for one question, and blocking drops them and the next one.
    DownloadWatch watch(view);
    ASSERT_TRUE(flood(view, "a"));
    ASSERT_TRUE(waitUntil([&] { return questions.size() == 1 && watch.finished == 3 && watch.started == 6; }));
    questions.front()({ DownloadGuard::kBlock, {} });
    go(view, "/files/attachment.pdf");
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 7; }));
    EXPECT_EQ(watch.failed, 4);
    EXPECT_EQ(filesIn(downloads).size(), 3u);
    // A real click on the page lets the next one through.
    ASSERT_TRUE(canSendXInput(GTK_WIDGET(view))) << "needs X11 and xdotool (tools/setup.sh installs them)";
    {
        XInputLock lock;
        ASSERT_TRUE(lock.held());
        ASSERT_TRUE(pointerAt(GTK_WIDGET(view), { "click", "1" }, 20, gtk_widget_get_height(GTK_WIDGET(view)) - 20.0));
    }
    go(view, "/files/attachment.pdf");
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 8; }));
    EXPECT_EQ(watch.failed, 4);

    // Another account asks on its own; allowing lets its held files land.
    WebKitWebView* otherView = show(store->addAccount());
    ASSERT_TRUE(waitLoaded(otherView));
    DownloadWatch otherWatch(otherView);
    ASSERT_TRUE(flood(otherView, "b"));
    ASSERT_TRUE(waitUntil([&] { return questions.size() == 2 && otherWatch.finished == 3; }));
    questions.back()({ DownloadGuard::kAllow, {} });
    ASSERT_TRUE(waitUntil([&] { return otherWatch.finished == 6; }));
    EXPECT_EQ(otherWatch.failed, 0);
    EXPECT_EQ(filesIn(downloads).size(), 10u);
}

} // namespace
} // namespace orvane::test
