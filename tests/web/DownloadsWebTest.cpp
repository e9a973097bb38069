// What an account's pages download, where it lands and how a flood is held;
// and the pages' script dialogs and file choosers, answered through the real
// libadwaita dialogs and GTK file chooser. The naming and numbering rules
// themselves are in tests/base/FilesTest.cpp (UniqueFileTest), the flood
// counting in FloodGatesTest; these tests show WebKit's downloads going
// through them.
#include "app/XInput.h"
#include "DownloadDestination.h"
#include "DownloadGuard.h"
#include "MessageDialogPresenter.h"
#include "ScriptDialogs.h"

#include "ManagerWebFixture.h"

#include <adwaita.h>

namespace orvane::test {
namespace {

// Counts the downloads that the session of a view starts, fail and end.
struct DownloadWatch {
    explicit DownloadWatch(WebKitWebView* view) {
        connection = SignalConnection::connect(webkit_web_view_get_network_session(view), "download-started",
            +[](WebKitNetworkSession*, WebKitDownload* download, DownloadWatch* watch) {
                watch->started++;
                g_signal_connect_swapped(download, "failed", G_CALLBACK(+[](DownloadWatch* w) { w->failed++; }), watch);
                g_signal_connect_swapped(download, "finished", G_CALLBACK(+[](DownloadWatch* w) { w->finished++; }),
                    watch);
            }, this);
    }
    int started = 0;
    int failed = 0;
    int finished = 0; // after a failure too
    SignalConnection connection;
};

class PageRequestsWebTest : public ManagerWebFixture {
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
        serveAttachment("/files/attachment.pdf", "report.pdf", "%PDF-1.4 report");
        useServices("/files/page.html");
        account = store->addAccount();
        ASSERT_TRUE(waitLoaded(view = show(account)));
    }

    // Serves `body` as an attachment of that name.
    void serveAttachment(const std::string& path, const std::string& name, std::string body, unsigned status = 200) {
        server.serve(path, std::move(body), "application/pdf", status,
            { { "Content-Disposition", "attachment; filename=\"" + name + "\"" } });
    }
    void go(WebKitWebView* page, const std::string& path) { run(page, "location.href = '" + path + "'"); }
    static GtkWindow* waitForToplevel(GType type) {
        waitUntil([&] { return !toplevels(type).empty(); });
        return toplevels(type).empty() ? nullptr : toplevels(type).front();
    }
    // The page's log since the last call, once it holds `until`.
    nlohmann::json logUntil(const std::string& until) {
        EXPECT_TRUE(waitForJS(view, "JSON.stringify(__fixtureLog).includes(" + jsonLiteral(until) + ")")) << until;
        return js(view, "(() => { const log = __fixtureLog; __fixtureLog = []; return log; })()");
    }

    Account account;
    std::string root, downloads;
    bool answerAtOnce = true;
    std::vector<ScriptDialogs::Completion> questions;
};

TEST_F(PageRequestsWebTest, AttachmentsAndWhatWebKitCannotShowAreDownloadedTheRestShown) {
    const std::string page = webkit_web_view_get_uri(view);
    server.serve("/files/capital.pdf", "%PDF-1.4 capital", "application/pdf", 200,
        { { "Content-Disposition", "Attachment; filename=x.pdf" } });
    server.serve("/files/shown.pdf", "%PDF-1.4 shown", "application/pdf");
    server.serve("/files/unknown.bin", "raw", "application/x-orvane-unknown");

    // "Attachment" with a capital A downloads too, although WebKit shows PDFs;
    // what WebKit cannot show is downloaded; a second report lands beside the first.
    for (const auto& [path, name] : { std::pair { "/files/attachment.pdf", "report.pdf" },
             { "/files/capital.pdf", "x.pdf" }, { "/files/unknown.bin", "unknown.bin" },
             { "/files/attachment.pdf", "report 1.pdf" } }) {
        go(view, path);
        EXPECT_TRUE(waitUntil([&] { return filesIn(downloads).contains(name); }, 20s)) << name;
    }
    const std::map<std::string, std::string> expected = { { "report.pdf", "%PDF-1.4 report" },
        { "x.pdf", "%PDF-1.4 capital" }, { "unknown.bin", "raw" }, { "report 1.pdf", "%PDF-1.4 report" } };
    EXPECT_TRUE(waitUntil([&] { return filesIn(downloads) == expected; }, 20s));
    EXPECT_EQ(webkit_web_view_get_uri(view), page) << "the page stays where it was";

    // A pop-up that only downloads closes; one that shows a page stays open.
    ASSERT_TRUE(nextPopup(view, "window.open('/files/attachment.pdf', 'download')"));
    ASSERT_TRUE(waitUntil([&] { return filesIn(downloads).contains("report 2.pdf"); }, 20s));
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    WebKitWebView* shown = nextPopup(view, "window.open('/files/shown.pdf', 'shown')");
    ASSERT_TRUE(shown && waitLoaded(shown));
    drainEvents();
    EXPECT_EQ(manager->popupViews(account.id).size(), 1u);
    // A PDF without the header is shown in the view.
    go(view, "/files/shown.pdf");
    ASSERT_TRUE(waitUntil([&] { return webkit_web_view_get_uri(view) == server.uri("/files/shown.pdf"); }));
}

TEST_F(PageRequestsWebTest, FilesLandOnlyInsideDownloadsAndNeverOverwriteAnything) {
    // Downloads of one name, past planted links: the name itself and a later
    // name's partial file.
    std::string victim = root + "/victim";
    ASSERT_TRUE(Files::replaceAtomically(victim, "precious"));
    ASSERT_TRUE(Files::makeFolder(downloads));
    ASSERT_EQ(symlink(victim.c_str(), (downloads + "/report.pdf").c_str()), 0);
    ASSERT_EQ(symlink(victim.c_str(), (downloads + "/report 1.pdf" + DownloadDestination::kPartialSuffix).c_str()), 0);
    // A long name leaves room for WebKit's partial-file suffix (WebKit adds the type's extension);
    // names with folders or a leading dot are UniqueFileTest's.
    // Failed or refused downloads leave nothing: a 404, and a Downloads
    // folder that cannot be made.
    serveAttachment("/files/long", std::string(300, 'n') + ".pdf", "long");
    serveAttachment("/files/gone.pdf", "gone.pdf", "not found", 404);
    DownloadWatch watch(view);
    for (const char* path : { "/files/attachment.pdf", "/files/attachment.pdf", "/files/long",
             "/files/gone.pdf" }) {
        int before = watch.finished;
        go(view, path);
        ASSERT_TRUE(waitUntil([&] { return watch.finished == before + 1; }, 20s)) << path;
    }
    EXPECT_EQ(watch.failed, 1);
    using End = WebHost::DownloadEnd;
    EXPECT_EQ(host.downloadEnds.back().first, End::NetworkFailed);
    const std::map<std::string, std::string> expected = { { "report.pdf", "<link>" },
        { "report 1.pdf" + std::string(DownloadDestination::kPartialSuffix), "<link>" },
        { "report 2.pdf", "%PDF-1.4 report" }, { "report 3.pdf", "%PDF-1.4 report" },
        { std::string(240, 'n') + ".pdf", "long" } };
    EXPECT_EQ(filesIn(downloads), expected);
    EXPECT_EQ(Files::read(victim, 100).value_or(""), "precious");
    std::string blocked = root + "/Blocked";
    ASSERT_TRUE(Files::replaceAtomically(blocked, "a file"));
    useDownloadsFolder(blocked);
    go(view, "/files/attachment.pdf");
    ASSERT_TRUE(waitUntil([&] { return watch.failed == 2; }));
    EXPECT_EQ(host.downloadEnds.back().first, End::NoPlace);
    EXPECT_EQ(Files::read(blocked, 100).value_or(""), "a file");
    EXPECT_EQ(filesIn(root).size(), 3u) << "only Downloads, Blocked and the victim";
}

TEST_F(PageRequestsWebTest, AFloodOfDownloadsWithoutAClickWaitsForOneAnswer) {
    serveAttachment("/files/flood", "flood.pdf", "%PDF");
    answerAtOnce = false;
    auto flood = [&](WebKitWebView* page, const std::string& prefix) {
        run(page, "for (let i = 0; i < 6; i++) { const f = document.createElement('iframe');"
            " f.src = '/files/flood?" + prefix + "' + i; document.body.append(f); }");
    };
    // Six files from hidden frames, no input at all: three land, the rest
    // wait for one question, and blocking drops them and the next one.
    DownloadWatch watch(view);
    flood(view, "a");
    ASSERT_TRUE(waitUntil([&] { return questions.size() == 1 && watch.finished == 3 && watch.started == 6; }));
    questions.front()({ DownloadGuard::kBlock, {} });
    go(view, "/files/attachment.pdf");
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 7; }));
    EXPECT_EQ(watch.failed, 4);
    EXPECT_EQ(filesIn(downloads).size(), 3u);
    EXPECT_EQ(host.downloadEnds.size(), 3u) << "what Orvane dropped ends silently";
    // A real click on the page lets the next one through.
    ASSERT_TRUE(canSendXInput(GTK_WIDGET(view))) << "needs X11 and xdotool (tools/setup.sh installs them)";
    ASSERT_TRUE(pointerAt(GTK_WIDGET(view), { "click", "1" }, 20, gtk_widget_get_height(GTK_WIDGET(view)) - 20.0));
    go(view, "/files/attachment.pdf");
    ASSERT_TRUE(waitUntil([&] { return watch.finished == 8; }));
    EXPECT_EQ(watch.failed, 4);

    // Another account asks on its own; allowing lets its held files land.
    WebKitWebView* otherView = showNewAccount();
    DownloadWatch otherWatch(otherView);
    flood(otherView, "b");
    ASSERT_TRUE(waitUntil([&] { return questions.size() == 2 && otherWatch.finished == 3; }));
    questions.back()({ DownloadGuard::kAllow, {} });
    ASSERT_TRUE(waitUntil([&] { return otherWatch.finished == 6; }));
    EXPECT_EQ(otherWatch.failed, 0);
    EXPECT_EQ(filesIn(downloads).size(), 10u);
}

TEST_F(PageRequestsWebTest, ScriptDialogsAndFileChoosersAnswerThePage) {
    host.onAsk = MessageDialogPresenter::present;
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.length > 0")); // the page's own "blob-ready"
    run(view, "__fixtureLog = []");
    // Each dialog: the response (none: the dialog closed), the prompt's text, what the page got.
    const std::tuple<std::string, std::string, std::optional<std::string>, const char*, std::string, nlohmann::json> cases[] = {
        { "alert", "Saved.", std::nullopt, ScriptDialogs::kOK, "", "undefined" },
        { "confirm", "Delete the draft?", std::nullopt, ScriptDialogs::kOK, "", true },
        { "confirm", "Delete the draft?", std::nullopt, ScriptDialogs::kCancel, "", false },
        { "confirm", "Close me", std::nullopt, nullptr, "", false },
        { "prompt", "Your name?", "Ada", ScriptDialogs::kOK, "Ada Lovelace", "Ada Lovelace" },
        { "prompt", "Your name?", "Ada", ScriptDialogs::kCancel, "", nullptr },
        { "prompt", "No default", std::nullopt, ScriptDialogs::kOK, "", "" },
    };
    for (const auto& [kind, message, defaultText, response, typed, result] : cases) {
        SCOPED_TRACE(kind + " " + message);
        run(view, "__fixture.dialog(" + jsonLiteral(kind) + ", " + jsonLiteral(message)
            + (defaultText ? ", " + jsonLiteral(*defaultText) : "") + ")");
        auto* dialog = ADW_MESSAGE_DIALOG(waitForToplevel(ADW_TYPE_MESSAGE_DIALOG));
        ASSERT_TRUE(dialog);
        EXPECT_EQ(adw_message_dialog_get_heading(dialog), message);
        EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), window);
        EXPECT_EQ(adw_message_dialog_has_response(dialog, ScriptDialogs::kCancel), kind != "alert");
        GtkWidget* entry = adw_message_dialog_get_extra_child(dialog);
        ASSERT_EQ(bool(entry), kind == "prompt");
        if (entry) {
            EXPECT_EQ(gtk_editable_get_text(GTK_EDITABLE(entry)), defaultText.value_or(""));
            if (!typed.empty())
                gtk_editable_set_text(GTK_EDITABLE(entry), typed.c_str());
        }
        // A click on a button gives its response and closes the dialog (as here); closing alone gives none.
        if (response)
            adw_message_dialog_response(dialog, response);
        gtk_window_close(GTK_WINDOW(dialog));
        EXPECT_EQ(logUntil("[\"after\""), nlohmann::json({ { "before", kind }, { "result", kind, result }, { "after", kind } }));
        EXPECT_TRUE(waitUntil([&] { return toplevels(ADW_TYPE_MESSAGE_DIALOG).empty(); }));
    }

    // A pop-up's question goes over the pop-up's window, and with it: the
    // user closes the window with the question still open.
    WebKitWebView* popup = nextPopup(view, "window.open('/files/page.html', 'second')");
    ASSERT_TRUE(popup && waitLoaded(popup));
    run(popup, "__fixture.dialog('confirm', 'From the pop-up')");
    GtkWindow* dialog = waitForToplevel(ADW_TYPE_MESSAGE_DIALOG);
    ASSERT_TRUE(dialog);
    expectDeletedAtEnd(dialog);
    GtkWindow* popupWindow = GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup)));
    EXPECT_EQ(gtk_window_get_transient_for(dialog), popupWindow);
    gtk_window_close(popupWindow);
    ASSERT_TRUE(waitUntil([&] {
        return manager->popupViews(account.id).empty()
            && toplevels(ADW_TYPE_MESSAGE_DIALOG).empty();
    }));
    EXPECT_EQ(js(view, "1 + 1"), 2) << "the account's page goes on";

    // File inputs get what the chooser chose.
    std::string folder = makeTempFolder("chosen");
    for (const char* name : { "first.txt", "second.txt" })
        ASSERT_TRUE(Files::replaceAtomically(folder + "/" + name, name));
    // Opens the input's chooser and answers it with a file, or cancels.
    auto choose = [&](const char* input, bool multiple, const char* name) {
        run(view, std::string("document.getElementById('") + input + "').click()");
        GtkWindow* panel = waitForToplevel(GTK_TYPE_FILE_CHOOSER_DIALOG);
        ASSERT_TRUE(panel);
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(panel);
        EXPECT_EQ(bool(gtk_file_chooser_get_select_multiple(chooser)), multiple);
        EXPECT_EQ(gtk_window_get_transient_for(panel), window) << "kept above the window showing the page";
        EXPECT_TRUE(gtk_window_get_modal(panel));
        if (name) {
            Ref<GFile> file = adopt(g_file_new_for_path((folder + "/" + name).c_str()));
            ASSERT_TRUE(gtk_file_chooser_set_file(chooser, file.get(), nullptr));
            // The chooser selects the file once it has read the folder.
            ASSERT_TRUE(waitUntil([&] {
                Ref<GFile> chosen = adopt(gtk_file_chooser_get_file(chooser));
                return chosen && g_file_equal(chosen.get(), file.get());
            }));
        }
        gtk_dialog_response(GTK_DIALOG(chooser), name ? GTK_RESPONSE_ACCEPT : GTK_RESPONSE_CANCEL);
        ASSERT_TRUE(waitUntil([&] { return toplevels(GTK_TYPE_FILE_CHOOSER_DIALOG).empty(); }));
    };
    choose("one", false, "first.txt");
    EXPECT_EQ(logUntil("[\"files\""), nlohmann::json::parse(R"([["files","one",["first.txt"]]])"));
    // Cancelling answers with nothing: the input keeps no new choice.
    choose("many", true, nullptr);
    choose("many", true, "second.txt");
    EXPECT_EQ(logUntil("[\"files\""), nlohmann::json::parse(R"([["files","many",["second.txt"]]])"));
}

} // namespace
} // namespace orvane::test
