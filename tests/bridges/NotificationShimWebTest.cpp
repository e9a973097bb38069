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

} // namespace
} // namespace orvane::test
