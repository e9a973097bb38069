// What the relay accepts from a page and what it makes of it. Showing and
// clicking desktop notifications is tested end to end (tests/e2e).
#include "NotificationRelay.h"

#include "Account.h"
#include "web/ManagerWebFixture.h"

namespace orvane::test {
namespace {

using Message = NotificationRelay::Message;

// The relay's reading of a value made in a script context of its own.
std::optional<Message> parsed(const std::string& expression) {
    auto context = adopt(jsc_context_new());
    std::string script = "(" + expression + ")";
    auto value = adopt(jsc_context_evaluate(context.get(), script.c_str(), -1));
    return NotificationRelay::parse(value.get());
}

TEST(NotificationRelayWebTest, MalformedMessagesAreDroppedAndTextsBoundedAndPlain) {
    for (const char* malformed : { "[]", "['1']", "'1'", "null", "undefined", "({})", "({ id: 1 })",
             "({ id: null, title: 'x' })", "({ id: ['1'] })", "({ id: 'x'.repeat(65) })", "({ id: '1\\u0000' })" })
        EXPECT_FALSE(parsed(malformed)) << malformed;

    auto minimal = parsed("({ id: '1' })");
    ASSERT_TRUE(minimal);
    EXPECT_EQ(minimal->id, "1");
    EXPECT_EQ(minimal->title + minimal->body + minimal->tag, "");

    // Members that are not texts count as empty.
    auto odd = parsed("({ id: '7', title: 5, body: ['a'], tag: { t: 1 } })");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->title + odd->body + odd->tag, "");

    // Control characters become spaces; only the body keeps its lines.
    auto lines = parsed(R"(({ id: '2', title: ' Re:\u0007 hi\n ', body: 'a\r\nb\rc\u0000d', tag: 't\tx' }))");
    ASSERT_TRUE(lines);
    EXPECT_EQ(lines->title, "Re:  hi");
    EXPECT_EQ(lines->body, "a\nb\nc d");
    EXPECT_EQ(lines->tag, "t x");

    // Long texts are cut on a character boundary and end in an ellipsis.
    auto longer = parsed("({ id: '3', title: 'é'.repeat(500), body: '€'.repeat(5000), tag: 'ü'.repeat(300) })");
    ASSERT_TRUE(longer);
    EXPECT_EQ(g_utf8_strlen(longer->title.c_str(), -1), long(NotificationRelay::kMaxTitleChars));
    EXPECT_TRUE(g_str_has_suffix(longer->title.c_str(), "é…"));
    EXPECT_EQ(g_utf8_strlen(longer->body.c_str(), -1), long(NotificationRelay::kMaxBodyChars));
    EXPECT_EQ(g_utf8_strlen(longer->tag.c_str(), -1), long(NotificationRelay::kMaxTagChars));
    EXPECT_TRUE(g_utf8_validate(longer->body.c_str(), -1, nullptr));
    auto exact = parsed("({ id: '4', title: 'a'.repeat(200) })");
    ASSERT_TRUE(exact);
    EXPECT_EQ(exact->title, std::string(200, 'a'));
}

TEST(NotificationRelayWebTest, TitleSubtitleAndIdentifierFollowThePageAndTheAccount) {
    const std::string account = "0F8C2B6E-3C1D-4A57-9B0E-2D6A1F4E8C3B";

    // No title: the label is the title and is not repeated.
    auto untitled = NotificationRelay::content({ "1", "", "", "" }, account, "Work", false);
    EXPECT_EQ(untitled.title, "Work");
    EXPECT_FALSE(untitled.body);
    auto untitledWithBody = NotificationRelay::content({ "1", "", "Hello", "" }, account, "Work", false);
    EXPECT_EQ(untitledWithBody.body, "Hello");

    // A title: the label leads the body as its subtitle line.
    auto titled = NotificationRelay::content({ "2", "New mail", "From Ann", "" }, account, "Work", false);
    EXPECT_EQ(titled.title, "New mail");
    EXPECT_EQ(titled.body, "Work\nFrom Ann");
    EXPECT_EQ(NotificationRelay::content({ "2", "New mail", "", "" }, account, "Work", false).body, "Work");
    EXPECT_EQ(NotificationRelay::content({ "2", "", "", "" }, account, "", false).title, "Orvane");

    // A tag names the notification, per account; no tag gives a fresh UUID.
    EXPECT_EQ(titled.id.size(), 36u);
    EXPECT_EQ(canonicalUUID(titled.id), titled.id);
    EXPECT_NE(NotificationRelay::content({ "3", "x", "", "" }, account, "Work", false).id, titled.id);
    EXPECT_EQ(NotificationRelay::content({ "4", "x", "", "inbox" }, account, "Work", false).id,
        "orvane-" + account + "-inbox");

    // Markup stays text: escaped only for servers that would read it.
    Message markup { "5", "<b>Bold</b> & co", "<a href=\"https://evil.example/\">x</a> &amp; <img src=x>", "" };
    auto plain = NotificationRelay::content(markup, account, "A&B <W>", false);
    EXPECT_EQ(plain.title, "<b>Bold</b> & co");
    EXPECT_EQ(plain.body, "A&B <W>\n<a href=\"https://evil.example/\">x</a> &amp; <img src=x>");
    auto escaped = NotificationRelay::content(markup, account, "A&B <W>", true);
    EXPECT_EQ(escaped.title, "<b>Bold</b> & co") << "titles are never markup";
    EXPECT_EQ(escaped.body, "A&amp;B &lt;W&gt;\n&lt;a href=\"https://evil.example/\"&gt;x&lt;/a&gt; &amp;amp; &lt;img src=x&gt;");
}

class NotificationClickWebTest : public ManagerWebFixture { };

TEST_F(NotificationClickWebTest, AClickSelectsAndSavesButNeverCreatesAView) {
    useServices("/notify/shim.html");
    manager->configure(*store);
    const Account shown = store->addAccount();
    const Account hidden = store->addAccount();
    store->setSelectedAccountID(shown.id);
    WebKitWebView* view = show(shown);
    ASSERT_TRUE(waitLoaded(view));
    ASSERT_TRUE(runJS(view, "window.hits = []; const n = new Notification('a'); n.onclick = () => hits.push(n._id); true").ok);

    // Upper or lower case, the account is selected in canonical form and saved.
    std::string lower = GCharPtr(g_ascii_strdown(hidden.id.c_str(), -1)).get();
    manager->notificationRelay().clicked(lower, "1");
    EXPECT_EQ(store->selectedAccountID(), hidden.id);
    EXPECT_EQ(manager->webView(hidden.id), nullptr) << "a click never creates a view";
    AccountStore reloaded;
    EXPECT_EQ(reloaded.selectedAccountID(), hidden.id);

    manager->notificationRelay().clicked("not-a-uuid", "1");
    EXPECT_EQ(store->selectedAccountID(), hidden.id);

    manager->notificationRelay().clicked(shown.id, "1");
    EXPECT_EQ(store->selectedAccountID(), shown.id);
    EXPECT_TRUE(waitForJS(view, "hits.length === 1 && hits[0] === '1'"));
}

} // namespace
} // namespace orvane::test
