#include "app/XInput.h"
#include "SaveImageWebView.h"
#include "DownloadDestination.h"
#include "DownloadGuard.h"
#include "ScriptDialogs.h"

#include "ManagerWebFixture.h"

#include <glib/gstdio.h>

#include <map>
#include <set>

namespace orvane::test {
namespace {

std::map<std::string, std::string> filesIn(const std::string& folder) {
    std::map<std::string, std::string> files;
    GDir* dir = g_dir_open(folder.c_str(), 0, nullptr);
    if (!dir)
        return files;
    while (const char* name = g_dir_read_name(dir)) {
        std::string path = folder + "/" + name;
        if (g_file_test(path.c_str(), G_FILE_TEST_IS_SYMLINK)) {
            files[name] = "<link>";
            continue;
        }
        files[name] = Files::read(path, 1024 * 1024).value_or("<unreadable>");
    }
    g_dir_close(dir);
    return files;
}

// Records each download that the session of a view starts, and whether it
// has ended.
struct DownloadWatch {
    explicit DownloadWatch(WebKitWebView* view) {
        connection = SignalConnection::connect(webkit_web_view_get_network_session(view), "download-started",
            +[](WebKitNetworkSession*, WebKitDownload* download, gpointer data) {
                auto* watch = static_cast<DownloadWatch*>(data);
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
        // The question about a flood of downloads: allowed at once unless a
        // test answers itself.
        ScriptDialogs::setPresenter([this](GtkWindow*, const ScriptDialogs::Request&, ScriptDialogs::Completion done) {
            if (answerFloodsAtOnce)
                done({ DownloadGuard::kAllow, {} });
            else
                questions.push_back(std::move(done));
        });
        root = makeTempFolder("downloads");
        downloads = root + "/Downloads";
        useDownloadsFolder(downloads);
        attachment("/files/attachment.pdf", "attachment; filename=\"report.pdf\"", "%PDF-1.4 report");
        attachment("/files/capital.pdf", "Attachment; filename=x.pdf", "%PDF-1.4 capital");
        attachment("/files/shown.pdf", "", "%PDF-1.4 shown");
        server.handle("/files/unknown.bin", [](SoupServerMessage* message, const std::string&) {
            soup_server_message_set_status(message, 200, nullptr);
            soup_server_message_set_response(message, "application/x-orvane-unknown", SOUP_MEMORY_STATIC, "raw", 3);
        });
    }

    void useDownloadsFolder(const std::string& folder) {
        std::string dirs = std::string(g_getenv("XDG_CONFIG_HOME")) + "/user-dirs.dirs";
        ASSERT_TRUE(Files::replaceAtomically(dirs, "XDG_DOWNLOAD_DIR=\"" + folder + "\"\n"));
    }

    void attachment(const std::string& path, std::string disposition, std::string body, guint status = 200) {
        server.handle(path, [=](SoupServerMessage* message, const std::string&) {
            soup_server_message_set_status(message, status, nullptr);
            if (!disposition.empty())
                soup_message_headers_append(soup_server_message_get_response_headers(message), "Content-Disposition",
                    disposition.c_str());
            soup_server_message_set_response(message, "application/pdf", SOUP_MEMORY_COPY, body.data(), body.size());
        });
    }

    WebKitWebView* openAccount() {
        useServices("/files/page.html");
        account = store->addAccount();
        WebKitWebView* view = show(account);
        EXPECT_TRUE(waitLoaded(view));
        return view;
    }

    bool waitForFiles(const std::map<std::string, std::string>& expected, std::chrono::milliseconds timeout = 20s) {
        bool ok = waitUntil([&] { return filesIn(downloads) == expected; }, timeout);
        EXPECT_EQ(filesIn(downloads), expected);
        return ok;
    }

    void TearDown() override {
        ScriptDialogs::setPresenter({});
        ManagerWebFixture::TearDown();
    }

    Account account;
    std::string root;
    std::string downloads;
    bool answerFloodsAtOnce = true;
    std::vector<ScriptDialogs::Completion> questions;
};

TEST_F(DownloadsWebTest, AttachmentsDownloadWhatWebKitCanShowIsShown) {
    WebKitWebView* view = openAccount();
    const std::string page = webkit_web_view_get_uri(view);

    ASSERT_TRUE(runJS(view, "location.href = '/files/attachment.pdf'; true").ok);
    waitForFiles({ { "report.pdf", "%PDF-1.4 report" } });
    // The page stays where it was.
    EXPECT_EQ(webkit_web_view_get_uri(view), page);

    // "Attachment" with a capital A downloads too, although WebKit shows PDFs.
    ASSERT_TRUE(runJS(view, "location.href = '/files/capital.pdf'; true").ok);
    waitForFiles({ { "report.pdf", "%PDF-1.4 report" }, { "x.pdf", "%PDF-1.4 capital" } });

    // A PDF without the header is shown in the view.
    ASSERT_TRUE(runJS(view, "location.href = '/files/shown.pdf'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return webkit_web_view_get_uri(view) == server.uri("/files/shown.pdf"); }));
    ASSERT_TRUE(waitLoaded(view));

    // What WebKit cannot show is downloaded; a second report lands beside the first.
    webkit_web_view_load_uri(view, page.c_str());
    ASSERT_TRUE(waitLoaded(view));
    ASSERT_TRUE(runJS(view, "location.href = '/files/unknown.bin'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return filesIn(downloads).contains("unknown.bin"); }));
    ASSERT_TRUE(runJS(view, "location.href = '/files/attachment.pdf'; true").ok);
    waitForFiles({ { "report.pdf", "%PDF-1.4 report" }, { "x.pdf", "%PDF-1.4 capital" },
        { "unknown.bin", "raw" }, { "report 1.pdf", "%PDF-1.4 report" } });
}

TEST_F(DownloadsWebTest, APopupThatOnlyDownloadsClosesAndTheFileArrives) {
    WebKitWebView* view = openAccount();
    WebKitWebView* popup = nullptr;
    auto subscription = manager->observePopups([&](const std::string&, WebKitWebView* opened) { popup = opened; });

    ASSERT_TRUE(runJS(view, "window.open('/files/attachment.pdf', 'download'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return popup != nullptr; }));
    expectDeletedAtEnd(popup);
    waitForFiles({ { "report.pdf", "%PDF-1.4 report" } });
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));

    // A pop-up that shows a page stays open.
    ASSERT_TRUE(runJS(view, "window.open('/files/shown.pdf', 'shown'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    ASSERT_TRUE(waitLoaded(manager->popupViews(account.id).front()));
    drainEvents();
    EXPECT_EQ(manager->popupViews(account.id).size(), 1u);
}

TEST_F(DownloadsWebTest, ParallelDownloadsOfOneNameNeverOverwriteAnything) {
    WebKitWebView* view = openAccount();
    int served = 0;
    server.handle("/files/numbered", [&](SoupServerMessage* message, const std::string&) {
        std::string body = "copy " + std::to_string(++served);
        soup_server_message_set_status(message, 200, nullptr);
        soup_message_headers_append(soup_server_message_get_response_headers(message), "Content-Disposition",
            "attachment; filename=report.pdf");
        soup_server_message_set_response(message, "application/pdf", SOUP_MEMORY_COPY, body.data(), body.size());
    });
    // Planted links: the name itself and a later name's partial file.
    std::string victim = root + "/victim";
    ASSERT_TRUE(Files::replaceAtomically(victim, "precious"));
    ASSERT_TRUE(Files::makeFolder(downloads));
    ASSERT_EQ(symlink(victim.c_str(), (downloads + "/report.pdf").c_str()), 0);
    ASSERT_EQ(symlink(victim.c_str(), (downloads + "/report 1.pdf" + DownloadDestination::kPartialSuffix).c_str()), 0);

    constexpr int kDownloads = 100;
    DownloadWatch watch(view);
    SaveImageWebView* saving = SaveImageWebView::of(view);
    ASSERT_TRUE(saving);
    for (int i = 0; i < kDownloads; ++i)
        saving->downloadLinkedFile(server.uri("/files/numbered?" + std::to_string(i)));
    ASSERT_TRUE(waitUntil([&] { return watch.finished == kDownloads; }, 60s)) << watch.finished;
    EXPECT_EQ(watch.failed, 0);

    std::map<std::string, std::string> files = filesIn(downloads);
    EXPECT_EQ(files.size(), size_t(kDownloads) + 2);
    EXPECT_EQ(files["report.pdf"], "<link>");
    EXPECT_EQ(files["report 1.pdf" + std::string(DownloadDestination::kPartialSuffix)], "<link>");
    EXPECT_FALSE(files.contains("report 1.pdf"));
    std::set<std::string> bodies;
    for (int n = 2; n < kDownloads + 2; ++n)
        bodies.insert(files["report " + std::to_string(n) + ".pdf"]);
    std::set<std::string> expected;
    for (int n = 1; n <= kDownloads; ++n)
        expected.insert("copy " + std::to_string(n));
    EXPECT_EQ(bodies, expected);
    EXPECT_EQ(Files::read(victim, 100).value_or(""), "precious");
    EXPECT_EQ(filesIn(root).size(), 2u) << "only Downloads and the victim";
}

TEST_F(DownloadsWebTest, HostileNamesLandInsideDownloads) {
    WebKitWebView* view = openAccount();
    std::string longName(300, 'n');
    attachment("/files/h1", "attachment; filename=\"../../.bashrc\"", "one");
    attachment("/files/h2", "attachment; filename=\"/etc/passwd\"", "two");
    attachment("/files/h3", "attachment; filename=\"..\"", "three");
    attachment("/files/h4", "attachment; filename*=UTF-8''invoice%E2%80%AEfdp.exe", "four");
    attachment("/files/h5", "attachment; filename=\"" + longName + ".pdf\"", "five");
    attachment("/files/h6", "attachment; filename=\"%2e%2e%2f\"", "six");
    DownloadWatch watch(view);
    int expected = 0;
    for (const char* path : { "/files/h1", "/files/h2", "/files/h3", "/files/h4", "/files/h5", "/files/h6" }) {
        ASSERT_TRUE(runJS(view, std::string("location.href = '") + path + "'; true").ok);
        ++expected;
        ASSERT_TRUE(waitUntil([&] { return watch.finished == expected; }, 20s)) << path;
    }
    EXPECT_EQ(watch.failed, 0);
    auto files = filesIn(downloads);
    EXPECT_EQ(files.size(), 6u);
    std::set<std::string> bodies;
    for (const auto& [name, body] : files) {
        bodies.insert(body);
        EXPECT_LE(name.size(), 255u) << name;
        EXPECT_EQ(name.find('/'), std::string::npos) << name;
        EXPECT_NE(name[0], '.') << name;
        EXPECT_EQ(name.find("\u202E"), std::string::npos) << name;
    }
    EXPECT_EQ(bodies, (std::set<std::string> { "one", "two", "three", "four", "five", "six" }));
    // WebKit adds the MIME type's extension and replaces the override
    // itself; what reaches Orvane loses its folders and leading dot.
    EXPECT_TRUE(files.contains("bashrc.pdf"));
    EXPECT_TRUE(files.contains("passwd.pdf"));
    EXPECT_TRUE(files.contains("download"));
    EXPECT_TRUE(files.contains("invoice_fdp.exe"));
    EXPECT_TRUE(files.contains("%2e%2e%2f.pdf"));
    // Cut to 255 bytes less room for WebKit's partial-file suffix.
    EXPECT_TRUE(files.contains(std::string(240, 'n') + ".pdf"));
    EXPECT_EQ(filesIn(root).size(), 1u);
    EXPECT_FALSE(Files::exists(std::string(g_getenv("HOME")) + "/.bashrc"));
}

TEST_F(DownloadsWebTest, FailedOrRefusedDownloadsLeaveNothing) {
    WebKitWebView* view = openAccount();
    attachment("/files/gone.pdf", "attachment; filename=gone.pdf", "not found", 404);
    DownloadWatch watch(view);
    ASSERT_TRUE(runJS(view, "location.href = '/files/gone.pdf'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 1; }));
    EXPECT_EQ(watch.failed, 1);
    EXPECT_TRUE(filesIn(downloads).empty());

    // No folder can be made where Downloads should be: the download is refused.
    std::string blocked = root + "/Blocked";
    ASSERT_TRUE(Files::replaceAtomically(blocked, "a file"));
    useDownloadsFolder(blocked);
    ASSERT_TRUE(runJS(view, "location.href = '/files/attachment.pdf'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 2; }));
    EXPECT_EQ(watch.failed, 2);
    EXPECT_EQ(Files::read(blocked, 100).value_or(""), "a file");
    EXPECT_EQ(filesIn(root).size(), 2u);
}

TEST_F(DownloadsWebTest, AFloodOfDownloadsWithoutAClickWaitsForOneAnswer) {
    WebKitWebView* view = openAccount();
    server.handle("/files/flood", [](SoupServerMessage* message, const std::string&) {
        std::string disposition = "attachment; filename=" + std::string(g_uri_get_query(soup_server_message_get_uri(message)));
        soup_server_message_set_status(message, 200, nullptr);
        soup_message_headers_append(soup_server_message_get_response_headers(message), "Content-Disposition",
            disposition.c_str());
        soup_server_message_set_response(message, "application/pdf", SOUP_MEMORY_STATIC, "%PDF", 4);
    });
    auto flood = [&](WebKitWebView* page, const std::string& prefix) {
        return runJS(page, "for (let i = 0; i < 6; i++) { const f = document.createElement('iframe');"
            " f.src = '/files/flood?" + prefix + "' + i + '.pdf'; document.body.append(f); } true").ok;
    };
    answerFloodsAtOnce = false;

    // Six files from hidden frames, no input at all: three land, the rest
    // wait for one question, and blocking drops them and the next one
    // without a click.
    DownloadWatch watch(view);
    ASSERT_TRUE(flood(view, "a"));
    ASSERT_TRUE(waitUntil([&] { return questions.size() == 1 && watch.finished == 3; }));
    EXPECT_EQ(filesIn(downloads).size(), 3u);
    EXPECT_EQ(watch.started, 6);
    questions.front()({ DownloadGuard::kBlock, {} });
    ASSERT_TRUE(runJS(view, "location.href = '/files/attachment.pdf'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 7; }));
    EXPECT_EQ(watch.failed, 4);
    EXPECT_EQ(filesIn(downloads).size(), 3u);
    // A real click on the page lets the next one through.
    if (!canSendXInput(GTK_WIDGET(view)))
        FAIL() << "needs X11 and xdotool (tools/setup.sh installs them)";
    {
        XInputLock lock;
        ASSERT_TRUE(lock.held());
        ASSERT_TRUE(pointerAt(GTK_WIDGET(view), { "click", "1" }, 20, gtk_widget_get_height(GTK_WIDGET(view)) - 20.0));
    }
    ASSERT_TRUE(runJS(view, "location.href = '/files/attachment.pdf'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 8; }));
    EXPECT_EQ(watch.failed, 4);
    EXPECT_EQ(filesIn(downloads).size(), 4u);

    // Another account asks on its own; allowing lets its held files land.
    const Account other = store->addAccount();
    WebKitWebView* otherView = show(other);
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
