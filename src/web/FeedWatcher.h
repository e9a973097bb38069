#pragma once

#include "FeedNews.h"
#include "GRef.h"
#include "Lifetime.h"

#include <gio/gio.h>
#include <webkit/webkit.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

struct Account;
class AccountStore;
class WebHost;

// Keeps a sleeping Gmail account's count and new mail known without its
// page: reads the mailbox's unread feed (MailService::feedURL, and the
// Primary category's beside it, see FeedNews) at once and then every
// `interval`, with the cookies of the account's own network session and
// nobody else's, through HTTPFetch (status checked, size bounded, timed out).
// Every failure is silent and keeps the last count. Dropping the watcher
// cancels what is in flight; no callback runs after that. Main thread only.
class FeedWatcher {
public:
    static constexpr std::chrono::milliseconds kInterval { 3 * 60 * 1000 };
    static constexpr unsigned kTimeoutMilliseconds = 30000;

    struct Callbacks {
        std::function<void(int64_t count)> countChanged;                          // also the first count
        std::function<void(const std::vector<AtomFeed::Entry>& fresh)> newEntries; // newest first
    };
    struct Options {
        std::chrono::milliseconds interval = kInterval;
        std::optional<int64_t> pageCount;                 // what the page showed as it fell asleep
        FeedNews::Inbox inbox = FeedNews::Inbox::Unknown; // what an earlier watcher found out
    };

    // `session` is the account's own (WebViewManager::networkSession of its
    // dataStoreID); the watcher holds a reference to it. `feedAddress` is
    // FeedNews::mailboxFeedAddress(the service's feedURL, the page's last address).
    FeedWatcher(const Account& account, WebKitNetworkSession* session, std::string feedAddress, Callbacks callbacks,
        Options options);
    ~FeedWatcher();
    FeedWatcher(const FeedWatcher&) = delete;
    FeedWatcher& operator=(const FeedWatcher&) = delete;

    const std::string& accountID() const { return m_accountID; }
    // Whether the mailbox uses categories, as far as known: hand it to the
    // account's next watcher.
    FeedNews::Inbox inbox() const { return m_news.inbox(); }
    std::optional<int64_t> count() const { return m_count; }

    // What one notification shows: the sender (name, else address) as title,
    // the account's label and the subject as body (escaped for servers that
    // read markup), under an id of the account and the message.
    struct Shown {
        std::string id;
        std::string title;
        std::string body;
    };
    static Shown content(const AtomFeed::Entry& entry, const Account& account, bool markupBody);
    // Orvane's own desktop notification for each entry, while the store's
    // notifications are on, with a click that selects the account
    // (WebHost::kNotificationClickAction, no page-side id).
    static void notify(WebHost& host, const AccountStore& store, const Account& account,
        const std::vector<AtomFeed::Entry>& fresh);

private:
    enum class Feed { Inbox, Primary };
    struct Round;

    void startRound();
    void fetch(Feed feed);
    void landed(Feed feed, bool refused, std::optional<AtomFeed> read);

    // Owned references
    std::string m_accountID;
    Ref<WebKitNetworkSession> m_session;
    std::string m_feedAddress;
    std::string m_primaryAddress;
    Callbacks m_callbacks;
    FeedNews m_news;
    std::optional<int64_t> m_count;
    std::unique_ptr<Round> m_round; // the fetch round in flight
    Ref<GCancellable> m_cancellable;
    guint m_timer = 0;
    Lifetime m_lifetime;
};

} // namespace orvane
