// What Orvane reads from the pages. Unread counts from the pages' titles,
// Outlook's poll and a sleeping Gmail account's feed, and their total on the
// launcher icon (reading the titles is TitleParsersTest's); the accounts' photos.
#include "AppPaths.h"
#include "AvatarPhoto.h"
#include "AvatarRefresher.h"
#include "DockBadge.h"
#include "FeedWatcher.h"
#include "PageProbe.h"
#include "SessionPreferences.h"
#include "Token.h"

#include "ManagerWebFixture.h"
#include "support/StandInFeed.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <glib/gstdio.h>

#include <deque>

namespace orvane::test {
namespace {

class UnreadCountsWebTest : public ManagerWebFixture {
protected:
    void setTitle(WebKitWebView* view, const std::string& title) {
        run(view, "document.title = " + jsonLiteral(title));
        ASSERT_TRUE(waitUntil([&] { return g_strcmp0(webkit_web_view_get_title(view), title.c_str()) == 0; }));
    }
    std::optional<int64_t> count(const std::string& id) const {
        auto it = manager->unreadCounts().find(id);
        return it == manager->unreadCounts().end() ? std::nullopt : std::optional(it->second);
    }
};

TEST_F(UnreadCountsWebTest, TitlesOfTheServicesOwnPagesSetCountsAndRenameOnce) {
    useServices("/web/plain.html");
    const Account account = store->addAccount();
    int notified = 0;
    auto subscription = manager->observeUnreadCounts([&] { ++notified; });
    ASSERT_TRUE(waitLoaded(view = show(account)));
    EXPECT_FALSE(count(account.id)) << "the page's own title carries no count";

    // Each title: the count and label after it, and whether accounts.json was written.
    const std::tuple<std::string, std::optional<int64_t>, std::string, bool> titles[] = {
        { "Inbox (3) - someone@example.com - Gmail", 3, "someone@example.com", true },
        { "Inbox (5) - someone@example.com - Gmail", 5, "someone@example.com", false },
        { "Loading", 5, "someone@example.com", false }, // no count keeps the count
        { "Inbox (0) - other@example.com - Gmail", 0, "other@example.com", true },
    };
    for (const auto& [title, unread, label, saved] : titles) {
        g_remove(AppPaths::accountsFile().c_str());
        setTitle(view, title);
        EXPECT_EQ(count(account.id), unread) << title;
        EXPECT_EQ(store->account(account.id)->label, label) << title;
        EXPECT_EQ(Files::exists(AppPaths::accountsFile()), saved) << title;
    }
    EXPECT_GE(notified, 3);

    // Another site that a script sent the view to names nothing: neither
    // once it shows, nor while it still runs as a redirect to the service's
    // page loads (the view's URI is the redirect's by then).
    const std::string intruder = "Inbox (9) - intruder@example.com - Gmail";
    server.serve("/elsewhere", "<!DOCTYPE html><title>" + intruder + "</title>");
    server.serve("/hop", "", "text/html", 302, { { "Location", server.uri("/web/held") } });
    SoupServerMessage* held = nullptr;
    server.handle("/web/held", [&](SoupServerMessage* message, const std::string&) {
        held = message;
        soup_server_message_pause(message);
    });
    run(view, "location = " + jsonLiteral(server.uriOnHost("localhost", "/elsewhere")));
    ASSERT_TRUE(waitUntil([&] { return g_strcmp0(webkit_web_view_get_title(view), intruder.c_str()) == 0; }));
    run(view, "location = " + jsonLiteral(server.uriOnHost("localhost", "/hop")));
    ASSERT_TRUE(waitUntil([&] { return held && g_str_has_suffix(webkit_web_view_get_uri(view), "/web/held"); }));
    setTitle(view, "Inbox (8) - intruder@example.com - Gmail");
    EXPECT_EQ(count(account.id), 0);
    EXPECT_EQ(store->account(account.id)->label, "other@example.com");
    FixtureServer::reply(held, 404);
    soup_server_message_unpause(held);
    EXPECT_TRUE(waitLoaded(view));
}

TEST_F(UnreadCountsWebTest, OutlookIsPolledAndTheDockBadgeShowsTheTotal) {
    // The launcher entry's signals: Orvane's connection to the session bus
    // gets them back as every other one does, its match rule ahead of them.
    std::vector<std::string> badge;
    auto bus = adopt(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    ASSERT_TRUE(bus) << "no session bus";
    guint subscription = g_dbus_connection_signal_subscribe(bus.get(), nullptr, DockBadge::kInterface,
        DockBadge::kMember, DockBadge::kObjectPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        +[](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters, gpointer data) {
            static_cast<std::vector<std::string>*>(data)->push_back(GCharPtr(g_variant_print(parameters, FALSE)).get());
        }, &badge, nullptr);
    auto badgeShows = [&](int total) {
        std::string shown = std::string("('") + DockBadge::kAppURI + "', {'count': <int64 " + std::to_string(total)
            + ">, 'count-visible': <" + (total > 0 ? "true" : "false") + ">})";
        return waitUntil([&] { return !badge.empty() && badge.back() == shown; });
    };

    useServices("/web/inbox.html", "/web/inbox.html?outlook", 100ms); // both pages count the polls
    EXPECT_TRUE(badgeShows(0));
    const Account outlook = store->addOutlookAccount();
    const Account gmail = store->addAccount();
    WebKitWebView* outlookView = show(outlook);
    WebKitWebView* gmailView = show(gmail);
    ASSERT_TRUE(waitLoaded(outlookView));
    ASSERT_TRUE(waitLoaded(gmailView));
    run(gmailView, "showInbox('Inbox (9 unread)')");
    // Changes the page, then waits until a poll that started after the change
    // has ended: the next one has started (the script is synchronous, and
    // its answer comes back before the test's own question).
    auto pollsAfter = [&](const std::string& change) {
        int before = runJS(outlookView, change + "; window.polls").value.get<int>();
        return waitForJS(outlookView, "window.polls > " + std::to_string(before + 1));
    };
    // No inbox folder: -1, which records nothing; a folder without a count:
    // 0 is a count; any spaces and letter case around the count, separators
    // end it; gone again, -1 keeps the count.
    const std::pair<const char*, std::optional<int64_t>> polls[] = { { "0", std::nullopt },
        { "showInbox('Inbox')", 0 }, { "showInbox('Inbox (7  UNREAD)')", 7 },
        { "showInbox('Inbox (1,234 unread)')", 0 }, { "showInbox('Inbox (4 unread)')", 4 },
        { "hideInbox()", 4 } };
    for (const auto& [change, unread] : polls) {
        ASSERT_TRUE(pollsAfter(change)) << change;
        EXPECT_EQ(count(outlook.id), unread) << change;
    }
    EXPECT_EQ(js(gmailView, "window.polls"), 0) << "the Gmail page is never asked";
    EXPECT_FALSE(count(gmail.id));

    // The badge is off: 0; on, it shows the total, again when Orvane becomes
    // active, and discarding an account takes its count out at once.
    setTitle(gmailView, "Inbox (3) - gmail@example.com - Gmail");
    manager->refreshDockBadge();
    EXPECT_TRUE(badgeShows(0));
    store->setShowDockBadge(true);
    manager->refreshDockBadge();
    EXPECT_TRUE(badgeShows(7));
    size_t seen = badge.size();
    manager->applicationBecameActive();
    EXPECT_TRUE(waitUntil([&] { return badge.size() > seen; }));
    EXPECT_TRUE(badgeShows(7));
    Preferences preferences;
    SessionPreferences session(preferences);
    manager->setSessionPreferences(session);
    ASSERT_TRUE(session.setLeftOutOfBadge(gmail.id, true));
    manager->refreshDockBadge();
    EXPECT_TRUE(badgeShows(4));
    EXPECT_EQ(count(gmail.id), 3) << "kept for its tile";
    ASSERT_TRUE(session.setLeftOutOfBadge(gmail.id, false));
    manager->discard(outlook);
    EXPECT_TRUE(badgeShows(3));
    EXPECT_FALSE(count(outlook.id));
    manager->discard(gmail);
    EXPECT_TRUE(badgeShows(0));
    EXPECT_TRUE(manager->unreadCounts().empty());
    g_dbus_connection_signal_unsubscribe(bus.get(), subscription);
}

// A sleeping account's feed read through real WebKit network sessions, and
// the account counting from it until it wakes; what the feed means is
// AtomFeedTest's (tests/services/MailServiceTest.cpp).
TEST_F(UnreadCountsWebTest, TheFeedIsReadWithItsSessionsCookiesNotifiesAfterTheBaselineAndCountsWhileAsleep) {
    StandInFeed feed(server);
    feed.unread = { { "m2", "Grace", "Minutes", "2026-11-25T09:00:00Z" },
        { "m1", "Shop", "Sale", "2026-11-25T08:00:00Z", false } };
    Account account = store->addAccount();
    account.label = "Work";
    store->setNotificationsEnabled(true);
    auto own = adopt(webkit_network_session_new_ephemeral());
    auto other = adopt(webkit_network_session_new_ephemeral());
    addCookie(own.get(), "SID", "own", "127.0.0.1");
    addCookie(other.get(), "SID", "other", "127.0.0.1");

    std::vector<int64_t> counts;
    std::vector<std::vector<AtomFeed::Entry>> news;
    const std::string address = server.uri("/gmail/feed/atom");
    std::make_unique<FeedWatcher>(account, other.get(), address,
        FeedWatcher::Callbacks { [&](int64_t) { ADD_FAILURE() << "a dropped watcher reported"; }, nullptr },
        FeedWatcher::Options { .interval = 50ms }).reset();
    // The page showed 2: the whole inbox, not the Primary tab's 1.
    FeedWatcher watcher(account, own.get(), address,
        { [&](int64_t count) { counts.push_back(count); }, [&](const auto& fresh) { news.push_back(fresh); } },
        { .interval = 100ms, .pageCount = 2 });
    ASSERT_TRUE(waitUntil([&] { return !counts.empty(); }));

    feed.unread.insert(feed.unread.begin(), { "m3", "Ada", "Lunch <Thu> & more", "2026-11-25T10:00:00Z" });
    ASSERT_TRUE(waitUntil([&] { return !news.empty(); }));
    EXPECT_EQ(counts, std::vector<int64_t>({ 2, 3 }));
    ASSERT_TRUE(news.size() == 1 && news[0].size() == 1) << "the first reading is the baseline";

    auto requests = server.requests("/gmail/feed/atom");
    auto primary = server.requests("/gmail/feed/atom/^sq_ig_i_personal");
    EXPECT_EQ(primary.size(), 1u) << "only the first round reads the Primary feed, to tell the inbox's kind";
    requests.insert(requests.end(), primary.begin(), primary.end());
    for (auto& request : requests)
        EXPECT_EQ(request.headers["cookie"], "SID=own") << request.path;

    host.bodyIsMarkup = true;
    FeedWatcher::notify(host, *store, account, news[0]);
    auto shown = FeedWatcher::content(news[0][0], account, true);
    EXPECT_EQ(shown.title + " | " + shown.body, "Ada | Work\nLunch &lt;Thu&gt; &amp; more");
    ASSERT_EQ(host.notifications.size(), 1u);
    EXPECT_EQ(host.notifications[0].id, shown.id);
    store->setNotificationsEnabled(false);
    FeedWatcher::notify(host, *store, account, news[0]);
    EXPECT_EQ(host.notifications.size(), 1u) << "nothing while notifications are off";

    // The account asleep counts from its feed until it wakes (all Primary now: 2; its page shows 3).
    feed.unread.pop_back();
    useServices("/gmail/");
    ASSERT_TRUE(waitLoaded(show(account)));
    ASSERT_TRUE(waitLoaded(showNewAccount())); // the page on screen stays awake
    ASSERT_NE(count(account.id), 2) << "the page's own count must differ from the feed's";
    manager->hibernateNow(account.id);
    ASSERT_TRUE(waitUntil([&] { return manager->isAsleep(account.id); }, 15s));
    EXPECT_TRUE(waitUntil([&] { return count(account.id) == 2; }));
    ASSERT_TRUE(waitLoaded(show(account)));
    EXPECT_FALSE(manager->isAsleep(account.id));
}

using Outcome = AvatarRefresher::Outcome;

std::string fixtureBytes(const std::string& path) {
    return Files::read(FixtureServer::fixturesDir() + path, 1 << 22).value_or("");
}
std::string avatarPath(const std::string& name) { return AppPaths::avatarsDir() + "/" + name; }

class AvatarWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        useServices("/gmail/");
        m_subscription = manager->avatars().observeFinished([this](const std::string& id, Outcome outcome) {
            m_outcomes[id].push_back(outcome);
        });
    }
    // The next refresh of the account to end, or nothing after the timeout.
    std::optional<Outcome> nextOutcome(const std::string& accountID) {
        auto& outcomes = m_outcomes[accountID];
        if (!waitUntil([&] { return !outcomes.empty(); }, 20s))
            return std::nullopt;
        Outcome next = outcomes.front();
        outcomes.pop_front();
        return next;
    }
    // Requests for the path that Orvane made itself, not a page (pages send the Safari user agent).
    std::vector<FixtureServer::Request> ownRequests(const std::string& path) const {
        auto own = server.requests(path);
        std::erase_if(own, [](auto& request) {
            return request.headers["user-agent"].find("AppleWebKit") != std::string::npos;
        });
        return own;
    }
    static std::map<std::string, std::string> avatars() { return filesIn(AppPaths::avatarsDir()); }
    // The stand-in Gmail page showing another photo address.
    void gmailPhotoAt(const std::string& source) {
        std::string page = fixtureBytes("/gmail/index.html");
        page.replace(page.find("src=\"photo.png\""), strlen("src=\"photo.png\""), "src=\"" + source + "\"");
        server.serve("/gmail/", page);
    }

    std::map<std::string, std::deque<Outcome>> m_outcomes;
    AvatarRefresher::FinishedObservers::Subscription m_subscription;
};

TEST_F(AvatarWebTest, PhotosAreFetchedWithoutCookiesSharedByTheDataStoreReplacedAndBadOnesRefused) {
    const Account account = store->addAccount();
    const Account calendar = store->addCalendar(account);
    const Account other = store->addAccount(); // another data store: untouched
    const std::string photoURL = server.uri("/gmail/photo.png");
    const std::string name = account.id + "-" + token(photoURL) + ".png";
    WebKitWebView* calendarView = show(calendar);
    WebKitWebView* view = show(account);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    ASSERT_TRUE(waitLoaded(calendarView));
    EXPECT_EQ(ownRequests("/gmail/photo.png").size(), 1u);
    const std::string photo = fixtureBytes("/gmail/photo.png");
    EXPECT_EQ(avatars(), (std::map<std::string, std::string> { { name, photo } }));
    for (const std::string& id : { account.id, calendar.id }) {
        EXPECT_EQ(store->account(id)->avatarFileName, name);
        EXPECT_EQ(store->account(id)->avatarSourceURL, photoURL);
    }
    EXPECT_FALSE(store->account(other.id)->avatarFileName);
    drainEvents();
    EXPECT_FALSE(m_outcomes.contains(calendar.id)) << "calendar pages never look for a photo";

    // The page probe the photo scripts run in: named arguments are variables
    // of the page's own world, the body may await, and only non-empty text up
    // to the limit comes back, once, cancelled or not.
    auto probe = [&](const std::string& body, GCancellable* cancellable = nullptr) {
        int calls = 0;
        std::optional<std::string> answer = "unset";
        PageProbe::photoURL(view, body, { { "acctName", "Ana \"Ruiz\" <ana@example.com>" } },
            [&](std::optional<std::string> text) {
                ++calls;
                answer = std::move(text);
            }, cancellable);
        if (cancellable)
            g_cancellable_cancel(cancellable);
        EXPECT_TRUE(waitUntil([&] { return calls > 0; })) << body;
        drainEvents();
        EXPECT_EQ(calls, 1) << body;
        return answer;
    };
    run(view, "window.pageValue = 'from the page'");
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 20)); return acctName + ' / ' + window.pageValue;"),
        "Ana \"Ruiz\" <ana@example.com> / from the page");
    const std::string limit = std::to_string(PageProbe::kMaxTextBytes);
    EXPECT_EQ(probe("return 'x'.repeat(" + limit + ");").value_or("").size(), PageProbe::kMaxTextBytes);
    for (const std::string& nothing : std::vector<std::string> { "return '';", "return 42;", "return { src: 'x' };",
             "return null;", "", "throw new Error('no photo');", "return Promise.reject('no');",
             "this is not a script", "return 'x'.repeat(" + limit + " + 1);" })
        EXPECT_EQ(probe(nothing), std::nullopt) << nothing;
    auto cancellable = adopt(g_cancellable_new());
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 300)); return 'late';", cancellable.get()), std::nullopt);

    // The same photo with its file in place: no fetch. The account's session
    // has a cookie for the host; the fetch after the file went does not carry it.
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Unchanged);
    run(view, "document.cookie = 'sid=secret-of-the-account; path=/'");
    ASSERT_TRUE(Files::removeTree(avatarPath(name)));
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    auto own = ownRequests("/gmail/photo.png");
    ASSERT_EQ(own.size(), 2u);
    EXPECT_FALSE(own.back().headers.contains("cookie"));
    EXPECT_NE(server.requests("/gmail/").back().headers["cookie"].find("secret-of-the-account"), std::string::npos)
        << "the page itself sends the cookie, so the test can tell";

    // A new address whose file cannot be written (a folder holds its name):
    // the old photo stays. Then it is written, both files exist while the
    // accounts switch over, and the old one goes.
    gmailPhotoAt("photo.png?size=96");
    const std::string newURL = server.uri("/gmail/photo.png?size=96");
    const std::string newName = account.id + "-" + token(newURL) + ".png";
    ASSERT_TRUE(Files::makeFolder(avatarPath(newName)));
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Failed);
    EXPECT_EQ(store->account(account.id)->avatarFileName, name);
    EXPECT_TRUE(Files::exists(avatarPath(name)));
    ASSERT_TRUE(Files::removeTree(avatarPath(newName)));
    std::vector<size_t> filesSeen;
    auto watch = store->observe([&](unsigned) { filesSeen.push_back(avatars().size()); });
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    EXPECT_EQ(avatars(), (std::map<std::string, std::string> { { newName, photo } }));
    for (const std::string& id : { account.id, calendar.id })
        EXPECT_EQ(store->account(id)->avatarSourceURL, newURL);
    EXPECT_TRUE(!filesSeen.empty() && std::ranges::all_of(filesSeen, [](size_t n) { return n == 2; }));
    const std::map<std::string, std::string> gmailPhoto = avatars();

    // Outlook's photo comes inline.
    const Account outlook = store->addOutlookAccount();
    // Named as a previous run's title left it: WebKit may report the first
    // load finished before the title that renames the account.
    Account named = outlook;
    named.label = "Display Name";
    store->update(named);
    show(outlook);
    ASSERT_EQ(nextOutcome(outlook.id), Outcome::Stored);
    std::string avatar = fixtureBytes("/outlook/mail/avatar.png");
    GCharPtr encoded(g_base64_encode(reinterpret_cast<const guchar*>(avatar.data()), avatar.size()));
    const std::string identity = "owa:" + token(std::string("data:image/png;base64,") + encoded.get());
    const std::string outlookName = outlook.id + "-" + token(identity) + ".png";
    EXPECT_EQ(store->account(outlook.id)->avatarSourceURL, identity);
    EXPECT_EQ(store->account(outlook.id)->avatarFileName, outlookName);
    EXPECT_EQ(avatars().at(outlookName), avatar);
    EXPECT_TRUE(ownRequests("/outlook/mail/avatar.png").empty()) << "Orvane fetched nothing itself";
    ASSERT_TRUE(Files::removeTree(avatarPath(outlookName)));

    // Only canonical account ids name a photo file, and only whole images of a
    // sensible size are kept. (Base64 decoding itself is ImageBytesTest's.)
    EXPECT_FALSE(AvatarPhoto::fileName("3f2504e0-4f89-11d3-9a0c-0305e82c3301", "x"))
        << "only the canonical form";
    EXPECT_FALSE(AvatarPhoto::fileName("../../etc/passwd", "x"));
    auto tooWide = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, AvatarRefresher::kMaxPhotoSide + 1, 1));
    gdk_pixbuf_fill(tooWide.get(), 0x336699ff);
    gchar* buffer = nullptr;
    gsize size = 0;
    ASSERT_TRUE(gdk_pixbuf_save_to_buffer(tooWide.get(), &buffer, &size, "png", nullptr, nullptr));
    GCharPtr wide(buffer);
    const std::string half = avatar.substr(0, avatar.size() / 2);
    for (const std::string& bad : { std::string(), half, std::string(wide.get(), size) })
        EXPECT_FALSE(AvatarRefresher::isImage(bad)) << bad.size();

    // Bytes that are not an image, and an address too long to record: nothing
    // written or recorded. (Error statuses are HTTPFetchTest's.)
    server.serve("/gmail/photo.png", "<html><body>Not Found</body></html>", "image/png");
    for (const auto& [source, fetches] : { std::pair { std::string("photo.png"), 1u },
             { "photo.png?" + std::string(Account::kMaxPhotoAddressBytes, 'q'), 0u } }) {
        gmailPhotoAt(source);
        server.resetCounts();
        const Account another = store->addAccount();
        show(another);
        EXPECT_EQ(nextOutcome(another.id), Outcome::Failed);
        EXPECT_EQ(ownRequests("/gmail/photo.png").size(), fetches);
        EXPECT_EQ(avatars(), gmailPhoto);
        EXPECT_FALSE(store->account(another.id)->avatarFileName);
        EXPECT_FALSE(store->account(another.id)->avatarSourceURL);
    }
}

} // namespace
} // namespace orvane::test
