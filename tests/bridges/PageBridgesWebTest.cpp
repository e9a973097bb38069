// What the page bridges do in the manager's real views on the stand-in
// provider pages. Dropped-file attachment: the waiting files and the chooser
// rule, the drop handler given a real GdkFileList, and drops of things that are
// not ordinary files. Real drags and links dropped are tests/e2e/DropAttachTest's.
#include "Account.h"
#include "BridgeScripts.h"
#include "DropAttach.h"
#include "NativeImageFetch.h"
#include "NotificationRelay.h"
#include "PendingDrops.h"
#include "SaveImageWebView.h"
#include "SessionPreferences.h"

#include "app/XInput.h"
#include "web/ManagerWebFixture.h"

#include <glib/gstdio.h>
#include <sys/stat.h>

#include <array>

namespace orvane::test {
namespace {

using nlohmann::json;
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
    // The drop target sits ahead of WebKit's own drop handling (the page never sees the drop; no other
    // test catches it in the bubble phase); only local files are kept: web links are left out.
    auto* dropTarget = GTK_EVENT_CONTROLLER(DropAttach::of(view)->dropTarget());
    EXPECT_EQ(gtk_event_controller_get_propagation_phase(dropTarget), GTK_PHASE_CAPTURE);
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

// The paste and input scripts of every account view, in an account's real
// view: pastes are real ClipboardEvents carrying a DataTransfer, dispatched on
// the element the user pastes into with the caret at its end (the page's
// __paste, __describe and __caretAtEnd, tests/fixtures/paste/index.html).
constexpr const char* kTD = "border:1px solid #cccccc;padding:6px 10px;";
constexpr const char* kTH = "border:1px solid #cccccc;padding:6px 10px;background:#f1f3f4;font-weight:bold;";
constexpr const char* kTBL = "border-collapse:collapse;margin:4px 0;font-size:14px;";

class TablePasteWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        useServices("/paste/");
        view = showNewAccount();
    }

    json js(const std::string& expression) { return ManagerWebFixture::js(view, expression); }
    json paste(const std::string& text, const std::string& selector = "#editor", const std::string& html = "") {
        return js("__paste(" + jsonLiteral(selector) + ", " + jsonLiteral(text) + ", " + jsonLiteral(html) + ")");
    }
    // The editor's content after pasting the text into an empty editor.
    json pasted(const std::string& text) {
        js("document.querySelector('#editor').textContent = ''");
        EXPECT_EQ(paste(text), taken()) << text;
        return js("__describe('#editor')");
    }
    static json table(json head, json body) { return { { "style", kTBL }, { "head", head }, { "body", body } }; }
    static json th(const std::string& text, const std::string& align = "") { return { "th", text, kTH + align, 0 }; }
    static json td(const std::string& text, const std::string& align = "") { return { "td", text, kTD + align, 0 }; }
    static json taken() { return { { "prevented", true }, { "pageSaw", 0 } }; }
    static json leftAlone() { return { { "prevented", false }, { "pageSaw", 1 } }; }
};

// Every element that takes focus, in every frame and whenever it was made,
// has correction, capitalisation and writing suggestions switched off; pipe
// and drawn tables pasted become tables, other pastes are left alone.
TEST_F(TablePasteWebTest, FocusedElementsAreTamedAndPlainTablesPastedBecomeTables) {
    auto attributes = [&](const std::string& element) {
        return js("(e => [e.getAttribute('autocorrect'), e.getAttribute('autocapitalize'), e.getAttribute('writingsuggestions')].join('/'))("
            + element + ")");
    };
    const std::string frame = "document.querySelector('#frame').contentDocument";
    EXPECT_EQ(attributes("document.documentElement"), "off/off/false");
    EXPECT_EQ(attributes("document.querySelector('#field')"), "//") << "nothing is tamed before it takes focus";
    run(view, "const late = document.createElement('input'); late.id = 'late'; late.setAttribute('autocorrect', 'on');"
              "document.body.appendChild(late)");
    ASSERT_TRUE(waitForJS(view, frame + ".readyState === 'complete'"));
    for (const std::string& element : std::vector<std::string> { "document.querySelector('#field')", "document.querySelector('#area')", "document.querySelector('#editor')",
             "document.querySelector('#late')", frame + ".documentElement", frame + ".querySelector('#frame-field')", frame + ".querySelector('#nested')" }) {
        js(element + ".focus(); true");
        EXPECT_EQ(attributes(element), "off/off/false") << element;
    }

    EXPECT_EQ(pasted("| Name | Size |\n| --- | --- |"), json::array({ table({ th("Name"), th("Size") }, json::array()) }));
    EXPECT_TRUE(js("__caretAtEnd()"));
    // Colons set every cell's alignment; outer pipes and LF line ends are optional.
    EXPECT_EQ(pasted("a | b | c | d\r\n:-: | --: | :-- | -\r\n1 | 2 | 3 | 4"), json::array({ table(
        { th("a", "text-align:center;"), th("b", "text-align:right;"), th("c", "text-align:left;"), th("d") },
        { { td("1", "text-align:center;"), td("2", "text-align:right;"), td("3", "text-align:left;"), td("4") } }) }));
    // Rows longer than the header lose cells, shorter ones get empty cells;
    // the table ends at the first line without a pipe, which stays text.
    EXPECT_EQ(pasted("|x|y|\n|-|-|\n|1|2|3|\n|4|\nafter"),
        json::array({ table({ th("x"), th("y") }, { { td("1"), td("2") }, { td("4"), td("") } }), "br", "after" }));
    EXPECT_TRUE(js("__caretAtEnd()"));
    EXPECT_EQ(pasted("┌──────┬──────┐\n│ Name │ Size │\n├──────┼──────┤\n│ a.txt│ 2 kB │\n└──────┴──────┘"),
        json::array({ table({ th("Name"), th("Size") }, { { td("a.txt"), td("2 kB") } }) }));
    // No break before a table, one after it; an empty line survives as an empty text.
    EXPECT_EQ(pasted("Hello,\n\nsee:\n| k | v |\n|---|---|\n| 1 | 2 |\nThanks"),
        json::array({ "Hello,", "br", "", "br", "see:", table({ th("k"), th("v") }, { { td("1"), td("2") } }), "br", "Thanks" }));

    // Cell text is never markup.
    js("window.__ran = 0");
    auto parts = pasted("| <img src=x onerror=\"window.__ran=1\"> | <b>b</b> |\n|---|---|\n| <script>window.__ran=2</script> | &amp; |");
    EXPECT_EQ(parts, json::array({ table({ th("<img src=x onerror=\"window.__ran=1\">"), th("<b>b</b>") },
        { { td("<script>window.__ran=2</script>"), td("&amp;") } }) }));
    EXPECT_EQ(js("window.__ran"), 0);

    // A second injection into the same frame adds nothing; the frame has its own copy.
    run(view, std::string(BridgeScripts::text("bridges/table-paste.js")));
    EXPECT_EQ(pasted("| a |\n|---|").size(), 1u);
    EXPECT_EQ(js("__paste('#nested', '| f |\\n| - |', '', document.querySelector('#frame').contentDocument).prevented"), true);
    EXPECT_EQ(js("document.querySelector('#frame').contentDocument.querySelectorAll('#nested table').length"), 1);
    EXPECT_EQ(js("__describe('#editor').length"), 1);

    // Pastes without plain tables are left to the page and the browser.
    js("document.querySelector('#editor').textContent = ''");
    EXPECT_EQ(paste("a | b"), leftAlone()) << "no delimiter line";
    EXPECT_EQ(paste("┌────┐\n└────┘ | not a table"), leftAlone());
    EXPECT_EQ(paste("| a | b |\n|---|---|", "#editor", "<meta charset=utf-8><TABLE\n><tr><td>a</td></tr></TABLE>"), leftAlone())
        << "a real table on the clipboard is the page's";
    for (const char* selector : { "#field", "#area", "#inner-field" })
        EXPECT_EQ(paste("| a | b |\n|---|---|", selector), leftAlone()) << selector;
    js("document.activeElement.blur()");
    EXPECT_EQ(paste("| a | b |\n|---|---|", "#static"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', null, '')"), leftAlone());
    EXPECT_EQ(js("__describe('#editor')"), json::array());
    // 5 MB of lines with pipes and no table, and lines of 10,000 pipes, end.
    EXPECT_EQ(js("__paste('#editor', 'a | b c d e f g h i j k\\n'.repeat(220000), '')"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', ' - | '.repeat(10000) + '\\n' + ' :-: | '.repeat(10000) + 'x\\n', '')"), leftAlone());
}

// Page notifications: what the relay accepts from a page and makes of it,
// and notification-shim.js in real account views (what the page sees of
// Notification, what it posts to orvaneNotify, what a click runs). Showing
// desktop notifications is tested end to end (tests/e2e).
using Message = NotificationRelay::Message;

// The relay's reading of a value made in a script context of its own.
std::optional<Message> parsed(const std::string& expression) {
    auto context = adopt(jsc_context_new());
    auto value = adopt(jsc_context_evaluate(context.get(), ("(" + expression + ")").c_str(), -1));
    return NotificationRelay::parse(value.get());
}

// Messages need a text id and their texts arrive bounded and plain; the
// title, subtitle and identifier follow the page and the account.
TEST(NotificationRelayTest, MessagesAreReadBoundedAndPlainAndNamedAfterThePageAndTheAccount) {
    for (const char* malformed : { "['1']", "null", "({})", "({ id: 1 })", "({ id: 'x'.repeat(65) })", "({ id: '1\\u0000' })" })
        EXPECT_FALSE(parsed(malformed)) << malformed;
    auto odd = parsed("({ id: '7', title: 5, body: ['a'] })");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->id + "|" + odd->title + odd->body + odd->tag, "7|") << "members that are not texts count as empty";
    // Control characters become spaces; only the body keeps its lines.
    auto lines = parsed(R"(({ id: '2', title: ' Re:\u0007 hi\n ', body: 'a\r\nb\rc\u0000d', tag: 't\tx' }))");
    ASSERT_TRUE(lines);
    EXPECT_EQ(lines->title + "|" + lines->body + "|" + lines->tag, "Re:  hi|a\nb\nc d|t x");
    // Long texts are cut on a character boundary and end in an ellipsis.
    auto longer = parsed("({ id: '3', title: 'é'.repeat(500), body: 'a'.repeat(1000) })");
    ASSERT_TRUE(longer);
    EXPECT_EQ(g_utf8_strlen(longer->title.c_str(), -1), long(NotificationRelay::kMaxTitleChars));
    EXPECT_TRUE(g_str_has_suffix(longer->title.c_str(), "é…"));
    EXPECT_EQ(longer->body, std::string(NotificationRelay::kMaxBodyChars, 'a')) << "a text at the limit is whole";

    const std::string account = "0F8C2B6E-3C1D-4A57-9B0E-2D6A1F4E8C3B";
    auto content = [&](const Message& message, const std::string& label, bool markup = false) {
        return NotificationRelay::content(message, account, label, markup);
    };
    auto untitled = content({ "1", "", "Hello", "" }, "Work");
    EXPECT_EQ(untitled.title, "Work") << "no title: the label is the title, not repeated";
    EXPECT_EQ(untitled.body, "Hello");
    EXPECT_FALSE(content({ "1", "", "", "" }, "Work").body);
    EXPECT_EQ(content({ "2", "", "", "" }, "").title, "Orvane");
    auto titled = content({ "2", "New mail", "From <Ann> & co", "" }, "Work");
    EXPECT_EQ(titled.title, "New mail");
    EXPECT_EQ(titled.body, "Work\nFrom <Ann> & co") << "the label leads the body as its subtitle, as text";

    // A tag names the notification, per account; no tag gives a fresh UUID.
    EXPECT_EQ(canonicalUUID(titled.id), titled.id);
    EXPECT_NE(content({ "3", "x", "", "" }, "Work").id, titled.id);
    EXPECT_EQ(content({ "4", "x", "", "inbox" }, "Work").id, "orvane-" + account + "-inbox");

    // Markup is escaped only for servers that would read it, and never in titles.
    auto escaped =
        content({ "5", "<b>Bold</b> & co", "<a href=\"https://evil.example/\">x</a> &amp;", "" }, "A&B", true);
    EXPECT_EQ(escaped.title, "<b>Bold</b> & co");
    EXPECT_EQ(escaped.body, "A&amp;B\n&lt;a href=&quot;https://evil.example/&quot;&gt;x&lt;/a&gt; &amp;amp;");
}

class NotificationShimWebTest : public ManagerWebFixture { };

// What the page sees of Notification and posts, and what a click does: it
// selects its account (and saves) without creating a view, and runs the
// page's own handler; anything else runs nothing. A muted account's
// notifications are not shown.
TEST_F(NotificationShimWebTest, PagesGetAGrantedNotificationWhoseClicksSelectTheAccountAndRunTheListener) {
    const Account shown = store->addAccount();
    const Account hidden = store->addAccount();
    store->setSelectedAccountID(shown.id);
    store->setNotificationsEnabled(true);
    useServices("/notify/shim.html");
    Preferences preferences;
    SessionPreferences session(preferences);
    manager->setSessionPreferences(session);
    manager->configure(*store);
    ASSERT_TRUE(waitLoaded(view = show(shown)));
    for (const char* tag : { "muted", "heard" }) {
        ASSERT_TRUE(session.setNotificationsMuted(shown.id, tag == std::string("muted")));
        run(view, "new Notification('Hi', { tag: '" + std::string(tag) + "' })");
    }
    ASSERT_TRUE(waitUntil([&] { return !host.notifications.empty(); }));
    EXPECT_EQ(host.notifications[0].id, "orvane-" + shown.id + "-heard") << "the muted one came first";

    std::vector<json> received; // what was posted to orvaneNotify, instead of shown
    manager->setMessageReceiver("orvaneNotify", [&](WebKitWebView* sender, JSCValue* body) {
        EXPECT_EQ(sender, view);
        received.push_back(resultFromJSC(body, nullptr).value);
    });
    ASSERT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument.readyState === 'complete'"));
    EXPECT_EQ(js(view, "let answer; Notification.requestPermission(p => { answer = p; }); answer"), "granted")
        << "the callback at once";
    run(view, "Notification.requestPermission(() => { throw new Error('page'); })"
        ".then(p => { window.promised = p; })");
    EXPECT_TRUE(waitForJS(view, "window.promised === 'granted'")) << "a throwing callback stays the page's";

    std::string stamp = js(view, "window.__orvanePage").get<std::string>();
    ASSERT_FALSE(stamp.empty());
    run(view, "new Notification('Hi');"
        "new Notification('New mail', { body: 'From Ann', tag: 'inbox', icon: 'x.png', data: { a: 1 } })");
    // A frame counts on its own.
    run(view, "new (document.getElementById('frame').contentWindow.Notification)('In frame')");
    // A second injection into the same frame leaves the first shim working: ids count on.
    run(view, std::string(BridgeScripts::text("bridges/notification-shim.js")));
    run(view, "new Notification('After')");
    ASSERT_TRUE(waitUntil([&] { return received.size() == 4; }));
    auto posted = [&](const char* id, const char* title, const char* body, const char* tag) {
        return json({ { "id", id }, { "title", title }, { "body", body }, { "tag", tag },
            { "orvanePage", stamp } });
    };
    // Ids count on from the two notifications above.
    EXPECT_EQ(received[0], posted("3", "Hi", "", ""));
    EXPECT_EQ(received[1], posted("4", "New mail", "From Ann", "inbox"));
    EXPECT_EQ(received[2].value("id", "") + received[2].value("orvanePage", ""), "1" + stamp);
    EXPECT_EQ(received[3].value("id", ""), "5");

    run(view, R"JS(window.calls = [];
        window.listener = event => calls.push('listener:' + typeof event.preventDefault);
        window.clicked = new Notification('Click me');
        clicked.addEventListener('click', listener);
        clicked.removeEventListener('click', () => {});
        clicked.onshow = () => calls.push('shown'))JS");
    EXPECT_TRUE(waitForJS(view, "calls.includes('shown')"));
    bridges->notifications().clicked(GCharPtr(g_ascii_strdown(hidden.id.c_str(), -1)).get(), "1");
    EXPECT_EQ(store->selectedAccountID(), hidden.id) << "in canonical form";
    EXPECT_EQ(manager->webView(hidden.id), nullptr) << "a click never creates a view";
    EXPECT_EQ(AccountStore().selectedAccountID(), hidden.id);
    bridges->notifications().clicked("not-a-uuid", "1");
    EXPECT_EQ(store->selectedAccountID(), hidden.id);
    bridges->notifications().clicked(shown.id, js(view, "clicked._id").get<std::string>());
    EXPECT_EQ(store->selectedAccountID(), shown.id);
    EXPECT_TRUE(waitForJS(view, "calls.length === 2 && calls[1] === 'listener:function'"));
    // Ids that would break out of a quoted script run nothing.
    for (const char* hostile : { "');window.__pwned=true;//", "\\');window.__pwned=true;//",
             "\");window.__pwned=true;//", "'+(window.__pwned=true)+'", "\u2028');window.__pwned=true;//" })
        bridges->notifications().clicked(shown.id, hostile);
    EXPECT_EQ(js(view, "window.__pwned === undefined"), true);
    // A page that brings its own window.print keeps it.
    EXPECT_EQ(js(view, "const own = () => {}; window.print = own; window.print === own"), true);

    // Removed, closed, unknown or odd ids run nothing; a throwing handler stays inside the page.
    EXPECT_EQ(js(view, R"JS(calls = [];
        clicked.removeEventListener('click', listener);
        __orvaneClickNotif(clicked._id);
        const closed = new Notification('Closed');
        closed.onclick = () => calls.push('closed clicked');
        closed.onclose = () => calls.push('onclose');
        closed.close();
        __orvaneClickNotif(closed._id);
        for (const id of ['99', '__proto__', 'constructor', 'toString', ''])
            __orvaneClickNotif(id);
        const throwing = new Notification('Throws');
        throwing.onclick = () => { calls.push('threw'); throw new Error('page'); };
        __orvaneClickNotif(throwing._id);
        calls)JS"), json({ "onclose", "threw" }));
    EXPECT_EQ(js(view, "Notification.prototype.dispatchEvent.call(clicked, {})"), true);
}

// A menu as GTK shows it: each item's label, action and string target,
// sections flattened in order.
using ShownItem = std::array<std::string, 3>;
void collectShown(GMenuModel* model, std::vector<ShownItem>& items) {
    for (int i = 0; i < g_menu_model_get_n_items(model); ++i) {
        if (Ref<GMenuModel> section = adopt(g_menu_model_get_item_link(model, i, G_MENU_LINK_SECTION))) {
            collectShown(section.get(), items);
            continue;
        }
        ShownItem& item = items.emplace_back();
        int field = 0;
        for (const char* attribute : { G_MENU_ATTRIBUTE_LABEL, G_MENU_ATTRIBUTE_ACTION, G_MENU_ATTRIBUTE_TARGET }) {
            GVariantPtr value { g_menu_model_get_item_attribute_value(model, i, attribute, G_VARIANT_TYPE_STRING) };
            item[field++] = value ? g_variant_get_string(value.get(), nullptr) : "";
        }
    }
}

GtkPopoverMenu* shownMenu(GtkWidget* widget) {
    for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
        if (GTK_IS_POPOVER_MENU(child) && gtk_widget_get_visible(child))
            return GTK_POPOVER_MENU(child);
        if (GtkPopoverMenu* found = shownMenu(child))
            return found;
    }
    return nullptr;
}

class SaveImageWebTest : public ManagerWebFixture {
protected:
    // Saves and waits for the outcome: the file's name in Downloads, or "".
    std::string saveAndWait(const std::string& src) {
        std::optional<std::optional<std::string>> outcome;
        saving->save(src, [&](const std::optional<std::string>& path) { outcome = path; });
        EXPECT_TRUE(waitUntil([&] { return outcome.has_value(); }, 30s)) << src;
        return outcome && *outcome ? (*outcome)->substr((*outcome)->rfind('/') + 1) : "";
    }

    SaveImageWebView* saving = nullptr;
};

// Which cookies go with a native fetch, and which addresses and answers it
// refuses, are HTTPFetchTest's.
TEST_F(SaveImageWebTest, ImagesSaveThroughThePageOrNativelyAndFromOrvanesItemsInPlaceOfWebKits) {
    const std::string downloads = makeTempFolder("saved") + "/Downloads";
    useDownloadsFolder(downloads);
    const std::string png =
        Files::read(FixtureServer::fixturesDir() + "/files/pixel.png", 1 << 20).value_or("");
    useServices("/files/page.html");
    view = showNewAccount();
    ASSERT_TRUE(saving = SaveImageWebView::of(view));
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.some(e => e[0] === 'blob-ready')"));
    // Another account, with its own session and its own cookie for the same host.
    addCookie(webkit_web_view_get_network_session(showNewAccount()), "theirs", "1", "localhost");
    addCookie(webkit_web_view_get_network_session(view), "mine", "1", "localhost");

    // Same-origin and blob: images come through the page, named "image" + type.
    EXPECT_EQ(saveAndWait(server.uri("/files/pixel.png")), "image.png");
    EXPECT_EQ(saveAndWait(js(view, "document.getElementById('blob').src").get<std::string>()), "image 1.png");
    // A cross-origin image without CORS: fetched natively, named after its
    // address, with this account's cookie and the view's agent.
    EXPECT_EQ(saveAndWait(server.uriOnHost("localhost", "/files/cross.png")), "cross.png");
    auto native = server.requests("/files/cross.png").back().headers;
    EXPECT_EQ(native["cookie"], "mine=1");
    EXPECT_EQ(native["user-agent"], webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));

    // A missing image and one too large: nothing is written.
    server.serve("/files/huge.png", std::string(NativeImageFetch::kMaxBytes + 1, 'x'), "image/png");
    for (const char* path : { "/files/missing.png", "/files/huge.png" })
        EXPECT_EQ(saveAndWait(server.uriOnHost("localhost", path)), "") << path;
    EXPECT_EQ(host.failures, std::vector<std::string>(2, "Could not save the image: it could not be fetched"));
    const std::string in = downloads + "/";
    EXPECT_EQ(host.savedFiles,
        (std::vector<std::string> { in + "image.png", in + "image 1.png", in + "cross.png" }));
    const std::string cross = Files::read(FixtureServer::fixturesDir() + "/files/cross.png", 1 << 20).value_or("");
    EXPECT_EQ(filesIn(downloads),
        (std::map<std::string, std::string> { { "image.png", png }, { "image 1.png", png }, { "cross.png", cross } }));

    // A right-click reports the image and link under the pointer; the menu
    // that follows gets Orvane's items in place of WebKit's, under WebKit's
    // labels and carrying their addresses.
    ASSERT_TRUE(canSendXInput(GTK_WIDGET(view))) << "needs X11 and xdotool (tools/setup.sh installs them)";
    gtk_stack_set_visible_child(stack, GTK_WIDGET(view));
    const auto at = js(view, "(r => [r.left + r.width / 2, r.top + r.height / 2])"
        "(document.getElementById('linked').getBoundingClientRect())");
    auto rightClick = [&] {
        std::vector<ShownItem> items;
        GtkPopoverMenu* popover = nullptr;
        if (pointerAt(GTK_WIDGET(view), { "click", "3" }, at[0].get<double>(), at[1].get<double>())
            && waitUntil([&] { return (popover = shownMenu(GTK_WIDGET(view))) != nullptr; }))
            collectShown(gtk_popover_menu_get_menu_model(popover), items);
        return std::pair(popover, items);
    };
    auto close = [&](GtkPopoverMenu* popover) {
        gtk_popover_popdown(GTK_POPOVER(popover));
        return waitUntil([&] { return !shownMenu(GTK_WIDGET(view)); });
    };
    g_signal_handlers_block_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, saving);
    auto [stockPopover, stock] = rightClick();
    g_signal_handlers_unblock_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, saving);
    ASSERT_TRUE(stockPopover && close(stockPopover));
    auto [popover, items] = rightClick();
    ASSERT_TRUE(popover);
    auto sameLabel = [](const ShownItem& a, const ShownItem& b) { return a[0] == b[0]; };
    EXPECT_TRUE(std::ranges::equal(items, stock, sameLabel)) << "WebKit's labels, in WebKit's order";
    std::map<std::string, ShownItem> orvanes; // by action
    for (const auto& item : items)
        if (size_t name = item[1].find("orvane-"); name != std::string::npos)
            orvanes[item[1].substr(name)] = item;
    EXPECT_EQ(orvanes.size(), 2u);
    EXPECT_EQ(orvanes["orvane-save-image"][2], server.uri("/files/pixel.png"));
    EXPECT_EQ(orvanes["orvane-download-linked-file"][2], server.uri("/files/attachment.pdf"));
    // A menu without a report of its own (a frame of another site) keeps WebKit's items.
    Ref<WebKitContextMenu> unreported = adopt(webkit_context_menu_new());
    const auto download = WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_IMAGE_TO_DISK;
    webkit_context_menu_append(unreported.get(), webkit_context_menu_item_new_from_stock_action(download));
    saving->retarget(unreported.get());
    EXPECT_EQ(webkit_context_menu_item_get_stock_action(webkit_context_menu_first(unreported.get())),
        download);

    // Choosing the items saves the image and downloads the linked file.
    server.serve("/files/attachment.pdf", "%PDF", "application/pdf");
    for (const auto& [action, item] : orvanes)
        EXPECT_TRUE(gtk_widget_activate_action_variant(GTK_WIDGET(popover), item[1].c_str(),
            g_variant_new_string(item[2].c_str()))) << action;
    EXPECT_TRUE(waitUntil([&] {
        auto files = filesIn(downloads);
        return files.size() == 5 && files["image 2.png"] == png && files["attachment.pdf"] == "%PDF";
    }, 20s));
    close(popover);
}

} // namespace
} // namespace orvane::test
