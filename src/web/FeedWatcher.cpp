#include "FeedWatcher.h"

#include "Account.h"
#include "AccountStore.h"
#include "HTTPFetch.h"
#include "NotificationFields.h"
#include "WebHost.h"
#include "HeapBox.h"

#include <glib/gi18n-lib.h>

#include <algorithm>

namespace orvane {

namespace {

void freeCookies(GList* cookies) {
    g_list_free_full(cookies, reinterpret_cast<GDestroyNotify>(soup_cookie_free));
}

std::string escapedMarkup(const std::string& text) {
    GCharPtr escaped(g_markup_escape_text(text.data(), static_cast<gssize>(text.size())));
    return escaped ? escaped.get() : "";
}

} // namespace

// What one round has read so far.
struct FeedWatcher::Round {
    FeedNews::Reading reading;
    int pending = 0;
};

FeedWatcher::FeedWatcher(const Account& account, WebKitNetworkSession* session, std::string feedAddress,
    Callbacks callbacks, Options options)
    : m_accountID(account.id)
    , m_session(session)
    , m_feedAddress(std::move(feedAddress))
    , m_primaryAddress(FeedNews::primaryFeedAddress(m_feedAddress))
    , m_callbacks(std::move(callbacks))
    , m_news(options.pageCount, options.inbox)
    , m_cancellable(adopt(g_cancellable_new())) {
    m_timer = g_timeout_add(guint(std::max<int64_t>(options.interval.count(), 10)), +[](gpointer self) -> gboolean {
        static_cast<FeedWatcher*>(self)->startRound();
        return G_SOURCE_CONTINUE;
    }, this);
    // Every step is asynchronous: no callback runs from inside the constructor.
    startRound();
}

FeedWatcher::~FeedWatcher() {
    m_lifetime.end();
    g_clear_handle_id(&m_timer, g_source_remove);
    g_cancellable_cancel(m_cancellable.get());
}

void FeedWatcher::startRound() {
    // A round still in flight (a slow server) is not doubled.
    if (m_round || !m_session)
        return;
    m_round = std::make_unique<Round>();
    std::vector<Feed> feeds;
    if (m_news.needsInboxFeed())
        feeds.push_back(Feed::Inbox);
    if (m_news.needsPrimaryFeed())
        feeds.push_back(Feed::Primary);
    m_round->pending = int(feeds.size());
    for (Feed feed : feeds)
        fetch(feed);
}

void FeedWatcher::fetch(Feed feed) {
    struct CookieStep {
        Lifetime::Watch watch;
        FeedWatcher* watcher;
        Feed feed;
        std::string address;
    };
    const std::string& address = feed == Feed::Inbox ? m_feedAddress : m_primaryAddress;
    // The cookies the account's own session would send to the feed's address.
    webkit_cookie_manager_get_cookies(webkit_network_session_get_cookie_manager(m_session.get()), address.c_str(),
        m_cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            auto step = HeapBox::take<CookieStep>(data);
            GErrorPtr error;
            GList* cookies = webkit_cookie_manager_get_cookies_finish(WEBKIT_COOKIE_MANAGER(source), result,
                GErrorOut(error));
            if (!step->watch.alive() || isCancelled(error.get()))
                return freeCookies(cookies);
            if (error)
                return step->watcher->landed(step->feed, false, std::nullopt);
            HTTPFetch::Request request;
            request.address = step->address;
            request.maxBytes = AtomFeed::kMaxFeedBytes;
            request.timeoutMilliseconds = kTimeoutMilliseconds;
            request.cookies = cookies;
            request.bypassCache = true;
            HTTPFetch::start(std::move(request), step->watcher->m_cancellable.get(),
                [watch = step->watch, watcher = step->watcher, feed = step->feed](HTTPFetch::Outcome outcome) {
                    if (!watch.alive() || outcome.failure == HTTPFetch::Failure::Cancelled)
                        return;
                    auto read = outcome.ok() ? AtomFeed::parse(outcome.body) : std::nullopt;
                    // The server answered, and not with a feed: a sign-in page
                    // after a redirect looks the same, so only the Primary feed's
                    // answer is taken as "no such feed here".
                    bool refused = outcome.failure == HTTPFetch::Failure::Status || (outcome.ok() && !read);
                    watcher->landed(feed, refused, std::move(read));
                });
            freeCookies(cookies);
        },
        HeapBox::make<CookieStep>(CookieStep { m_lifetime.watch(), this, feed, address }));
}

void FeedWatcher::landed(Feed feed, bool refused, std::optional<AtomFeed> read) {
    if (!m_round)
        return;
    if (feed == Feed::Inbox) {
        m_round->reading.inbox = std::move(read);
    } else {
        m_round->reading.primary = std::move(read);
        m_round->reading.primaryRefused = refused;
    }
    if (--m_round->pending > 0)
        return;
    std::unique_ptr<Round> round = std::move(m_round);
    FeedNews::News news = m_news.read(round->reading);
    Lifetime::Watch watch = m_lifetime.watch();
    if (news.count && news.count != m_count) {
        m_count = news.count;
        if (m_callbacks.countChanged)
            m_callbacks.countChanged(*news.count);
    }
    // The count's callback may have dropped the watcher.
    if (watch.alive() && !news.fresh.empty() && m_callbacks.newEntries)
        m_callbacks.newEntries(news.fresh);
}

FeedWatcher::Shown FeedWatcher::content(const AtomFeed::Entry& entry, const Account& account, bool markupBody) {
    std::string label = NotificationFields::trimmed(
        NotificationFields::plainText(account.label, NotificationFields::kMaxTitleChars, false));
    Shown shown;
    shown.title = !entry.authorName.empty() ? entry.authorName
        : !entry.authorEmail.empty()        ? entry.authorEmail
        : !label.empty()                    ? label
                                            : "Orvane";
    std::string subject = entry.subject.empty() ? _("(no subject)") : entry.subject;
    shown.body = label.empty() ? subject : label + "\n" + subject;
    if (markupBody)
        shown.body = escapedMarkup(shown.body);
    GCharPtr digest(g_compute_checksum_for_string(G_CHECKSUM_SHA256, entry.id.c_str(), -1));
    shown.id = "orvane-" + account.id + "-mail-" + std::string(digest.get()).substr(0, 16);
    return shown;
}

void FeedWatcher::notify(WebHost& host, const AccountStore& store, const Account& account,
    const std::vector<AtomFeed::Entry>& fresh) {
    if (!store.notificationsEnabled())
        return;
    std::string action = std::string("app.") + WebHost::kNotificationClickAction;
    for (const auto& entry : fresh) {
        Shown shown = content(entry, account, host.notificationBodyIsMarkup());
        auto notification = adopt(g_notification_new(shown.title.c_str()));
        g_notification_set_body(notification.get(), shown.body.c_str());
        // No page-side id: the click selects the account, which wakes it.
        g_notification_set_default_action_and_target_value(notification.get(), action.c_str(),
            g_variant_new("(ss)", account.id.c_str(), ""));
        host.sendNotification(shown.id, notification.get());
    }
}

} // namespace orvane
