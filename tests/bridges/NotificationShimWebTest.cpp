// Page notifications: what the relay accepts from a page and makes of it,
// and notification-shim.js in real account views (what the page sees of
// Notification, what it posts to orvaneNotify, what a click runs). Showing
// desktop notifications is tested end to end (tests/e2e).
#include "NotificationRelay.h"

#include "Account.h"
#include "BridgeScripts.h"
#include "SessionPreferences.h"
#include "web/ManagerWebFixture.h"

namespace orvane::test {
namespace {

using nlohmann::json;
using Message = NotificationRelay::Message;

// The relay's reading of a value made in a script context of its own.
std::optional<Message> parsed(const std::string& expression) {
    auto context = adopt(jsc_context_new());
    auto value = adopt(jsc_context_evaluate(context.get(), ("(" + expression + ")").c_str(), -1));
    return NotificationRelay::parse(value.get());
}

TEST(NotificationRelayTest, MessagesNeedATextIDAndTheirTextsArriveBoundedAndPlain) {
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
}

TEST(NotificationRelayTest, TitleSubtitleAndIdentifierFollowThePageAndTheAccount) {
    const std::string account = "0F8C2B6E-3C1D-4A57-9B0E-2D6A1F4E8C3B";
    auto untitled = NotificationRelay::content({ "1", "", "Hello", "" }, account, "Work", false);
    EXPECT_EQ(untitled.title, "Work") << "no title: the label is the title, not repeated";
    EXPECT_EQ(untitled.body, "Hello");
    EXPECT_FALSE(NotificationRelay::content({ "1", "", "", "" }, account, "Work", false).body);
    EXPECT_EQ(NotificationRelay::content({ "2", "", "", "" }, account, "", false).title, "Orvane");
    auto titled = NotificationRelay::content({ "2", "New mail", "From Ann", "" }, account, "Work", false);
    EXPECT_EQ(titled.title, "New mail");
    EXPECT_EQ(titled.body, "Work\nFrom Ann") << "the label leads the body as its subtitle";

    // A tag names the notification, per account; no tag gives a fresh UUID.
    EXPECT_EQ(canonicalUUID(titled.id), titled.id);
    EXPECT_NE(NotificationRelay::content({ "3", "x", "", "" }, account, "Work", false).id, titled.id);
    EXPECT_EQ(NotificationRelay::content({ "4", "x", "", "inbox" }, account, "Work", false).id, "orvane-" + account + "-inbox");

    // Markup stays text: escaped only for servers that would read it, never in titles.
    Message markup { "5", "<b>Bold</b> & co", "<a href=\"https://evil.example/\">x</a> &amp;", "" };
    auto plain = NotificationRelay::content(markup, account, "A&B <W>", false);
    EXPECT_EQ(plain.body, "A&B <W>\n<a href=\"https://evil.example/\">x</a> &amp;");
    auto escaped = NotificationRelay::content(markup, account, "A&B <W>", true);
    EXPECT_EQ(escaped.title, "<b>Bold</b> & co");
    EXPECT_EQ(escaped.body, "A&amp;B &lt;W&gt;\n&lt;a href=&quot;https://evil.example/&quot;&gt;x&lt;/a&gt; &amp;amp;");
}


class NotificationShimWebTest : public ManagerWebFixture {
protected:
    // An account view on shim.html with its frame loaded; messages to
    // orvaneNotify are recorded instead of shown.
    WebKitWebView* openPage(const Account& account) {
        useServices("/notify/shim.html");
        manager->configure(*store);
        manager->setMessageReceiver("orvaneNotify", [this](WebKitWebView* sender, JSCValue* body) {
            EXPECT_EQ(sender, view);
            received.push_back(resultFromJSC(body, nullptr).value);
        });
        view = show(account);
        EXPECT_TRUE(waitLoaded(view));
        EXPECT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument.readyState === 'complete'"));
        return view;
    }
    json run(const std::string& script) {
        auto result = runJS(view, script);
        EXPECT_TRUE(result.ok) << script << ": " << result.error;
        return result.value;
    }

    WebKitWebView* view = nullptr;
    std::vector<json> received;
};

TEST_F(NotificationShimWebTest, PagesGetAGrantedNotificationThatPostsEachOneWithItsStamp) {
    openPage(store->addAccount());
    EXPECT_EQ(run("[Notification.permission, Notification.maxActions]"), json({ "granted", 0 }));
    EXPECT_EQ(run("let answer; Notification.requestPermission(p => { answer = p; }); answer"), "granted") << "the callback at once";
    run("Notification.requestPermission(() => { throw new Error('page'); }).then(p => { window.promised = p; }); true");
    EXPECT_TRUE(waitForJS(view, "window.promised === 'granted'")) << "a throwing callback stays the page's; the promise comes";

    std::string stamp = run("window.__orvanePage").get<std::string>();
    ASSERT_FALSE(stamp.empty());
    run("new Notification('Hi'); new Notification('New mail', { body: 'From Ann', tag: 'inbox', icon: 'x.png', data: { a: 1 } }); true");
    run("new (document.getElementById('frame').contentWindow.Notification)('In frame'); true"); // a frame counts on its own
    // A second injection into the same frame leaves the first shim working.
    run("window.firstShim = window.Notification; true");
    run(std::string(BridgeScripts::text("bridges/notification-shim.js")) + "; true");
    EXPECT_EQ(run("window.Notification === window.firstShim"), true);
    run("new Notification('After'); true");
    ASSERT_TRUE(waitUntil([&] { return received.size() == 4; }));
    EXPECT_EQ(received[0], json({ { "id", "1" }, { "title", "Hi" }, { "body", "" }, { "tag", "" }, { "orvanePage", stamp } }));
    EXPECT_EQ(received[1], json({ { "id", "2" }, { "title", "New mail" }, { "body", "From Ann" }, { "tag", "inbox" }, { "orvanePage", stamp } }));
    EXPECT_EQ(received[2].value("id", "") + received[2].value("orvanePage", ""), "1" + stamp);
    EXPECT_EQ(received[3].value("id", ""), "3");
}

TEST_F(NotificationShimWebTest, AMutedAccountsNotificationsAreNotShown) {
    useServices("/notify/shim.html");
    Preferences preferences;
    SessionPreferences session(preferences);
    manager->setSessionPreferences(session);
    manager->configure(*store);
    store->setNotificationsEnabled(true);
    const Account account = store->addAccount();
    WebKitWebView* page = show(account);
    ASSERT_TRUE(waitLoaded(page));
    for (const char* tag : { "muted", "heard" }) {
        ASSERT_TRUE(session.setNotificationsMuted(account.id, tag == std::string("muted")));
        ASSERT_TRUE(runJS(page, "new Notification('Hi', { tag: '" + std::string(tag) + "' }); true").ok);
    }
    ASSERT_TRUE(waitUntil([&] { return !host.notifications.empty(); }));
    EXPECT_EQ(host.notifications[0].id, "orvane-" + account.id + "-heard") << "the muted one came first, from the same page";
}

// A click selects its account (and saves) without creating a view, and runs
// the page's own handler; anything else runs nothing.
TEST_F(NotificationShimWebTest, AClickSelectsTheAccountAndRunsTheListenerThePageLeftInPlace) {
    const Account shown = store->addAccount();
    const Account hidden = store->addAccount();
    store->setSelectedAccountID(shown.id);
    openPage(shown);
    run(R"JS(window.calls = [];
        window.listener = event => calls.push('listener:' + typeof event.preventDefault);
        window.clicked = new Notification('Click me');
        clicked.addEventListener('click', listener);
        clicked.removeEventListener('click', () => {});
        clicked.onshow = () => calls.push('shown'); true)JS");
    EXPECT_TRUE(waitForJS(view, "calls.includes('shown')"));

    bridges->notifications().clicked(GCharPtr(g_ascii_strdown(hidden.id.c_str(), -1)).get(), "1");
    EXPECT_EQ(store->selectedAccountID(), hidden.id) << "in canonical form";
    EXPECT_EQ(manager->webView(hidden.id), nullptr) << "a click never creates a view";
    EXPECT_EQ(AccountStore().selectedAccountID(), hidden.id);
    bridges->notifications().clicked("not-a-uuid", "1");
    EXPECT_EQ(store->selectedAccountID(), hidden.id);
    bridges->notifications().clicked(shown.id, run("clicked._id").get<std::string>());
    EXPECT_EQ(store->selectedAccountID(), shown.id);
    EXPECT_TRUE(waitForJS(view, "calls.length === 2 && calls[1] === 'listener:function'"));

    // Removed, closed, unknown or odd ids run nothing; a throwing handler stays inside the page.
    EXPECT_EQ(run(R"JS(calls = [];
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
    EXPECT_EQ(run("Notification.prototype.dispatchEvent.call(clicked, {})"), true);
}

} // namespace
} // namespace orvane::test
