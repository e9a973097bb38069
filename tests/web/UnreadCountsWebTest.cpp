#include "AppPaths.h"
#include "MailService.h"
#include "DockBadge.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

// The launcher entry signals seen on the session bus, from a connection of
// the test's own.
class BadgeWatcher {
public:
    struct Update {
        std::string appURI;
        int64_t count = -1;
        bool visible = false;
    };

    BadgeWatcher() {
        GCharPtr address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
        if (!address)
            return;
        m_bus = adopt(g_dbus_connection_new_for_address_sync(address.get(),
            GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr));
        if (!m_bus)
            return;
        m_subscription = g_dbus_connection_signal_subscribe(m_bus.get(), nullptr, DockBadge::kInterface, DockBadge::kMember,
            DockBadge::kObjectPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
            +[](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters, gpointer self) {
                static_cast<BadgeWatcher*>(self)->record(parameters);
            },
            this, nullptr);
        // The match rule is in place once a round trip to the bus has completed.
        GVariantPtr reply(g_dbus_connection_call_sync(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr));
    }
    ~BadgeWatcher() {
        if (m_bus && m_subscription)
            g_dbus_connection_signal_unsubscribe(m_bus.get(), m_subscription);
    }

    bool ready() const { return m_bus && m_subscription; }
    const std::vector<Update>& updates() const { return m_updates; }
    // Waits for the next update and returns its count (-1 if none came).
    int64_t next() {
        size_t seen = m_seen;
        if (!waitUntil([&] { return m_updates.size() > seen; }))
            return -1;
        m_seen = m_updates.size();
        return m_updates.back().count;
    }

private:
    void record(GVariant* parameters) {
        if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv})")))
            return;
        Update update;
        const char* uri = nullptr;
        GVariant* properties = nullptr;
        g_variant_get(parameters, "(&s@a{sv})", &uri, &properties);
        update.appURI = uri;
        g_variant_lookup(properties, "count", "x", &update.count);
        g_variant_lookup(properties, "count-visible", "b", &update.visible);
        g_variant_unref(properties);
        m_updates.push_back(update);
    }

    Ref<GDBusConnection> m_bus;
    guint m_subscription = 0;
    std::vector<Update> m_updates;
    size_t m_seen = 0;
};

class UnreadCountsWebTest : public ManagerWebFixture {
protected:
    void setTitle(WebKitWebView* view, const std::string& title) {
        ASSERT_TRUE(runJS(view, "document.title = " + jsonLiteral(title) + "; true").ok);
        ASSERT_TRUE(waitUntil([&] { return webkit_web_view_get_title(view) && title == webkit_web_view_get_title(view); }));
    }
    std::optional<int64_t> count(const std::string& id) const {
        auto it = manager->unreadCounts().find(id);
        return it == manager->unreadCounts().end() ? std::nullopt : std::optional(it->second);
    }
};

TEST_F(UnreadCountsWebTest, TitlesSetCountsAndRenameOnce) {
    useServices("/web/plain.html");
    manager->configure(*store);
    const Account account = store->addAccount();
    int notified = 0;
    auto subscription = manager->observeUnreadCounts([&] { ++notified; });
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    EXPECT_FALSE(count(account.id)) << "the page's own title carries no count";

    setTitle(view, "Inbox (3) - someone@example.com - Gmail");
    EXPECT_EQ(count(account.id), 3);
    EXPECT_EQ(store->account(account.id)->label, "someone@example.com");
    auto saved = Files::read(AppPaths::accountsFile(), 1 << 20);
    ASSERT_TRUE(saved);
    EXPECT_NE(saved->find("someone@example.com"), std::string::npos);
    EXPECT_GE(notified, 1);

    // The same label again: counts change, the file is not written.
    ASSERT_TRUE(Files::removeTree(AppPaths::accountsFile()));
    setTitle(view, "Inbox (5) - someone@example.com - Gmail");
    EXPECT_EQ(count(account.id), 5);
    setTitle(view, "Inbox (6) someone@example.com Gmail");
    EXPECT_EQ(count(account.id), 6);
    EXPECT_FALSE(Files::exists(AppPaths::accountsFile()));

    // A title without a count keeps the count.
    setTitle(view, "Loading");
    EXPECT_EQ(count(account.id), 6);
    EXPECT_EQ(store->account(account.id)->label, "someone@example.com");

    // A new label renames again.
    setTitle(view, "Inbox (0) - other@example.com - Gmail");
    EXPECT_EQ(count(account.id), 0);
    EXPECT_EQ(store->account(account.id)->label, "other@example.com");
    EXPECT_TRUE(Files::exists(AppPaths::accountsFile()));

    // Another site that a script sent the view to names nothing: neither
    // once it shows, nor while it still runs as a redirect to the service's
    // page loads (the view's URI is the redirect's by then).
    const std::string intruder = "Inbox (9) - intruder@example.com - Gmail";
    server.serve("/elsewhere", "<!DOCTYPE html><title>" + intruder + "</title>");
    server.handle("/hop", [&](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_redirect(message, 302, server.uri("/web/held").c_str());
    });
    SoupServerMessage* held = nullptr;
    server.handle("/web/held", [&](SoupServerMessage* message, const std::string&) {
        held = message;
        soup_server_message_pause(message);
    });
    ASSERT_TRUE(runJS(view, "location = " + jsonLiteral(server.uriOnHost("localhost", "/elsewhere")) + "; true").ok);
    ASSERT_TRUE(waitUntil([&] { return webkit_web_view_get_title(view) && intruder == webkit_web_view_get_title(view); }));
    ASSERT_TRUE(runJS(view, "location = " + jsonLiteral(server.uriOnHost("localhost", "/hop")) + "; true").ok);
    ASSERT_TRUE(waitUntil([&] { return held != nullptr; }));
    ASSERT_TRUE(waitUntil([&] { return g_str_has_suffix(webkit_web_view_get_uri(view), "/web/held"); }));
    setTitle(view, "Inbox (8) - intruder@example.com - Gmail");
    EXPECT_EQ(count(account.id), 0);
    EXPECT_EQ(store->account(account.id)->label, "other@example.com");
    soup_server_message_set_status(held, 404, nullptr);
    soup_server_message_unpause(held);
    EXPECT_TRUE(waitLoaded(view));
}

TEST_F(UnreadCountsWebTest, OutlookIsPolledAndGmailIsNot) {
    useServices("/web/plain.html", "/web/plain.html?outlook");
    const Account outlook = store->addOutlookAccount();
    const Account gmail = store->addAccount();
    WebKitWebView* outlookView = show(outlook);
    WebKitWebView* gmailView = show(gmail);
    ASSERT_TRUE(waitLoaded(outlookView));
    ASSERT_TRUE(waitLoaded(gmailView));
    // Both pages count the poll script's look-ups of the inbox folder.
    const char* counter = R"JS(
        window.polls = 0;
        const find = document.querySelector.bind(document);
        document.querySelector = s => { if (String(s).includes('inbox')) window.polls++; return find(s); };
        const inbox = document.createElement('div');
        inbox.setAttribute('data-folder-name', 'inbox');
        window.showInbox = title => { inbox.title = title; document.body.append(inbox); };
        window.hideInbox = () => inbox.remove();
        true
    )JS";
    ASSERT_TRUE(runJS(outlookView, counter).ok);
    ASSERT_TRUE(runJS(gmailView, counter).ok);
    ASSERT_TRUE(runJS(gmailView, "showInbox('Inbox (9 unread)'); true").ok);
    auto polls = [&](WebKitWebView* view) { return runJS(view, "window.polls").value.get<int>(); };

    // No inbox folder yet: -1, which records nothing.
    ASSERT_TRUE(waitForJS(outlookView, "window.polls >= 1", 15s));
    EXPECT_FALSE(count(outlook.id));

    ASSERT_TRUE(runJS(outlookView, "showInbox('Inbox (4 unread)'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return count(outlook.id) == 4; }, 15s));

    // The folder gone again: -1 keeps the 4.
    ASSERT_TRUE(runJS(outlookView, "hideInbox(); true").ok);
    int before = polls(outlookView);
    ASSERT_TRUE(waitForJS(outlookView, "window.polls > " + std::to_string(before), 15s));
    EXPECT_EQ(count(outlook.id), 4);

    // A folder without a count: 0 is a count.
    ASSERT_TRUE(runJS(outlookView, "showInbox('Inbox'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return count(outlook.id) == 0; }, 15s));

    // Several polls of the Outlook page later, the Gmail page was never asked.
    EXPECT_GE(polls(outlookView), 3);
    EXPECT_EQ(polls(gmailView), 0);
    EXPECT_FALSE(count(gmail.id));

    // After discard the timer is gone: no count comes back.
    manager->discard(outlook);
    EXPECT_FALSE(count(outlook.id));
}

TEST_F(UnreadCountsWebTest, TheDockBadgeShowsTheTotal) {
    BadgeWatcher badge;
    ASSERT_TRUE(badge.ready()) << "no session bus";
    useServices("/web/plain.html");
    const Account first = store->addAccount();
    const Account second = store->addAccount();

    manager->configure(*store); // badge off: 0
    EXPECT_EQ(badge.next(), 0);
    ASSERT_FALSE(badge.updates().empty());
    EXPECT_EQ(badge.updates().back().appURI, "application://app.orvane.Orvane.desktop");
    EXPECT_FALSE(badge.updates().back().visible);

    WebKitWebView* firstView = show(first);
    WebKitWebView* secondView = show(second);
    ASSERT_TRUE(waitLoaded(firstView));
    ASSERT_TRUE(waitLoaded(secondView));
    setTitle(firstView, "Inbox (3) - first@example.com - Gmail");
    setTitle(secondView, "Inbox (4) - second@example.com - Gmail");
    manager->refreshDockBadge();
    ASSERT_TRUE(waitUntil([&] { return badge.updates().size() >= 4; }));
    for (const auto& update : badge.updates())
        EXPECT_EQ(update.count, 0) << "the badge setting is off";

    store->setShowDockBadge(true);
    manager->refreshDockBadge();
    ASSERT_TRUE(waitUntil([&] { return badge.updates().back().count == 7; }));
    EXPECT_TRUE(badge.updates().back().visible);

    size_t seen = badge.updates().size();
    manager->applicationBecameActive();
    ASSERT_TRUE(waitUntil([&] { return badge.updates().size() > seen; }));
    EXPECT_EQ(badge.updates().back().count, 7);

    // Discarding an account drops its count from the total at once.
    manager->discard(first);
    ASSERT_TRUE(waitUntil([&] { return badge.updates().back().count == 4; }));
    EXPECT_FALSE(manager->unreadCounts().contains(first.id));
    manager->discard(second);
    ASSERT_TRUE(waitUntil([&] { return badge.updates().back().count == 0; }));
    EXPECT_FALSE(badge.updates().back().visible);
    EXPECT_TRUE(manager->unreadCounts().empty());
}

} // namespace
} // namespace orvane::test
