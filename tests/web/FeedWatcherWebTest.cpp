// A sleeping account's feed read through real WebKit network sessions; what
// the feed means is tested in tests/services/AtomFeedTest.
#include "FeedWatcher.h"

#include "Account.h"
#include "AccountStore.h"
#include "support/StandInFeed.h"
#include "support/TestEnvironment.h"
#include "support/TestWebHost.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

namespace orvane::test {
namespace {

Ref<WebKitNetworkSession> sessionWithCookie(const char* value) {
    auto session = adopt(webkit_network_session_new_ephemeral());
    SoupCookie* cookie = soup_cookie_new("SID", value, "127.0.0.1", "/", -1);
    bool added = false;
    webkit_cookie_manager_add_cookie(webkit_network_session_get_cookie_manager(session.get()), cookie, nullptr,
        +[](GObject*, GAsyncResult*, gpointer done) { *static_cast<bool*>(done) = true; }, &added);
    EXPECT_TRUE(waitUntil([&] { return added; }));
    soup_cookie_free(cookie);
    return session;
}

TEST(FeedWatcherWebTest, ReadsWithItsOwnSessionsCookiesAndNotifiesOnlyMailAfterTheBaseline) {
    freshXDGFolders();
    FixtureServer server;
    StandInFeed feed(server);
    feed.unread = { { "m2", "Grace", "Minutes", "2026-11-25T09:00:00Z" }, { "m1", "Shop", "Sale", "2026-11-25T08:00:00Z", false } };
    TestWebHost host;
    AccountStore store;
    Account account = store.addAccount();
    account.label = "Work";
    store.setNotificationsEnabled(true);
    auto own = sessionWithCookie("own");
    auto other = sessionWithCookie("other");

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
    EXPECT_EQ(watcher.inbox(), FeedNews::Inbox::Plain);

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
    FeedWatcher::notify(host, store, account, news[0]);
    auto shown = FeedWatcher::content(news[0][0], account, true);
    EXPECT_EQ(shown.title + " | " + shown.body, "Ada | Work\nLunch &lt;Thu&gt; &amp; more");
    ASSERT_EQ(host.notifications.size(), 1u);
    EXPECT_EQ(host.notifications[0].id, shown.id);
    store.setNotificationsEnabled(false);
    FeedWatcher::notify(host, store, account, news[0]);
    EXPECT_EQ(host.notifications.size(), 1u) << "nothing while notifications are off";
}

} // namespace
} // namespace orvane::test
