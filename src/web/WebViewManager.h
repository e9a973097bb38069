#pragma once

#include "Lifetime.h"
#include "AccountStore.h"
#include "GRef.h"
#include "FeedNews.h"
#include "Observers.h"
#include "MailtoComponents.h"
#include "ServiceCatalog.h"
#include "SessionPreferences.h"
#include "HibernationPolicy.h"
#include "PageRecovery.h"

#include <webkit/webkit.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

class AvatarRefresher;
class FeedWatcher;
class Hibernator;
class NavigationDelegate;
class UnreadPoller;
class ViewExtension;
class WebHost;

// Owns every account's web session: one WebKitWebView per account over the
// WebKitNetworkSession of its dataStoreID, with Orvane's user agent, the
// message handlers its receivers listen on, title observation and (for
// services that need it) an UnreadPoller. A view is created the first time
// it is asked for and kept until discard(), so switching accounts never
// reloads. What it needs of the application around it (browser, dialogs,
// windows, notifications) it asks of its host; what the layers above add to
// every view (page scripts, bridges) are its ViewExtensions. Main thread only.
class WebViewManager {
public:
    static constexpr std::chrono::milliseconds kUnreadPollInterval { 5000 };

    // The host and the catalogue outlive the manager.
    WebViewManager(WebHost& host, const ServiceCatalog& services,
        std::chrono::milliseconds unreadPollInterval = kUnreadPollInterval);
    ~WebViewManager();
    WebViewManager(const WebViewManager&) = delete;
    WebViewManager& operator=(const WebViewManager&) = delete;

    // Binds the store (which outlives the manager); called each time the main
    // window's content appears. Refreshes the dock badge.
    void configure(AccountStore& store);
    AccountStore* store() const { return m_store; }
    WebHost& host() const { return m_host; }
    const ServiceCatalog& services() const { return m_services; }

    // The account's main view, created, configured and loading on first use
    // (and on waking). Until the selected account's page has loaded (or
    // kStartBound has passed), the pages of the others wait to load.
    WebKitWebView* webView(const Account& account);
    static constexpr std::chrono::milliseconds kStartBound { 3000 };
    // The existing main view of an account, or null; never creates one.
    WebKitWebView* webView(const std::string& accountID) const;
    // The account whose main view this is; nothing for pop-ups and others.
    std::optional<std::string> accountID(WebKitWebView* view) const;
    // Tears down the account's view, observation, poll timer and count.
    void discard(const Account& account);

    // Idle accounts sleep (Hibernator, by the policy): the view goes and its
    // web process ends, while its network session, count and photo stay, and
    // a snapshot of the page stands in for it until the account is selected
    // (its view asked for) and its page has loaded again.
    void setHibernationPolicy(HibernationPolicy policy);
    // Puts the account to sleep at once unless something keeps it awake.
    void hibernateNow(const std::string& accountID);
    bool isAsleep(const std::string& accountID) const { return m_asleep.contains(accountID); }
    // The snapshot to show for the account while it sleeps and until its
    // woken page has loaded; null when there is none.
    GdkTexture* snapshot(const std::string& accountID) const;
    // Whether the account's service lets it sleep at all.
    bool hibernates(const std::string& accountID) const;
    // What the manager knows keeps the account's page awake (all but typing).
    HibernationPolicy::Activity activity(const std::string& accountID) const;
    const MailService* serviceOf(const std::string& accountID) const;
    // Told whenever an account falls asleep, wakes or its woken page is live.
    [[nodiscard]] Observers<>::Subscription observeSleep(Observers<>::Callback callback) {
        return m_sleepObservers.add(std::move(callback));
    }
    // What the account's web process uses now (its proportional set size),
    // asked of Orvane's web-process extension; nothing when the account has
    // no live page or no answer comes.
    void measureMemory(const std::string& accountID, std::function<void(std::optional<uint64_t> bytes)> completion);

    // Why the account's page is not there (PageRecovery), or nothing while
    // it is or the account has no view; its unread polling waits meanwhile.
    std::optional<PageFailure::Kind> failure(const std::string& accountID) const;
    // Loads the account's page that is not there again.
    void reload(const std::string& accountID);
    // Told whenever an account's failure() changes.
    [[nodiscard]] Observers<>::Subscription observeFailures(Observers<>::Callback callback) {
        return m_failureObservers.add(std::move(callback));
    }

    // Unread counts reported during this run, by account id.
    const std::map<std::string, int64_t>& unreadCounts() const { return m_unreadCounts; }
    [[nodiscard]] Observers<>::Subscription observeUnreadCounts(Observers<>::Callback callback) {
        return m_unreadObservers.add(std::move(callback));
    }
    void refreshDockBadge();
    // The per-account switches (which outlive the manager); without them no
    // account is muted or left out.
    void setSessionPreferences(SessionPreferences& preferences) { m_preferences = &preferences; }
    SessionPreferences* sessionPreferences() const { return m_preferences; }
    // Whether the account's notifications are shown: the store's switch is
    // on and the account is not muted.
    bool showsNotifications(const std::string& accountID) const;
    // The app shell calls this each time its main window becomes active
    // (is-active turning true); it refreshes the dock badge.
    void applicationBecameActive();

    // Opens a compose form filled from the link in the account's page.
    void compose(const Account& account, const MailtoComponents& mailto);

    // Adds what a layer above puts into every account view, for the views
    // made from now on; the manager owns it and lets it go first.
    template<typename Extension> Extension& addExtension(std::unique_ptr<Extension> extension) {
        Extension& added = *extension;
        m_extensions.push_back(std::move(extension));
        return added;
    }

    // Receives the script messages a page posts to one of Orvane's handlers
    // (orvaneNotify, orvanePrint, orvaneContextImage). `sender` is the exact
    // view whose page posted it (a main view or pop-up of the account whose
    // handler received it), or null when that cannot be told or the posting
    // frame is not the service's own (see MessageSender).
    using MessageReceiver = std::function<void(WebKitWebView* sender, JSCValue* body)>;
    // Sets the receiver of a handler for every view, existing and future,
    // and listens on that handler from then on.
    void setMessageReceiver(const std::string& handlerName, MessageReceiver receiver);

    // Tells of every pop-up a page opens, with the id of the account it
    // belongs to, as soon as its view exists.
    using PopupObservers = Observers<const std::string& /* account id */, WebKitWebView* /* pop-up */>;
    [[nodiscard]] PopupObservers::Subscription observePopups(PopupObservers::Callback callback) {
        return m_popupObservers.add(std::move(callback));
    }
    // The open pop-up views of the account's main view, oldest first.
    std::vector<WebKitWebView*> popupViews(const std::string& accountID) const;
    // The network session for a dataStoreID, created on first use and shared
    // by every account with that dataStoreID.
    WebKitNetworkSession* networkSession(const std::string& dataStoreID);

    // Keeps the account photos in step with the pages (refreshed after every
    // finished load of a mail-side account's view or its pop-ups).
    AvatarRefresher& avatars() { return *m_avatars; }

private:
    struct Session;
    friend class Hibernator;

    void putToSleep(const std::string& accountID, Ref<GdkTexture> snapshot);
    // Makes the account's view again after its web process crashed.
    // By value: the caller's id may live in the recovery that this destroys.
    void restartView(std::string accountID);
    void release(Session& session);
    // A sleeping account's count and new mail come from its service's unread
    // feed, when it has one (FeedWatcher); `pageAddress` is where its page was.
    void startSleepingCount(const Account& account, const std::string& pageAddress);
    void stopSleepingCount(const std::string& accountID);
    void storeChanged();
    void startLoading(const std::string& accountID);
    void openStartGate();

    void handleTitle(const std::string& accountID, const std::optional<std::string>& title);
    void setUnreadCount(const std::string& accountID, int64_t count);
    void listen(Session& session, const std::string& handlerName);
    void pageDidFinish(const std::string& accountID);
    void deliverMessage(const std::string& accountID, const std::string& handlerName, JSCValue* body);
    bool showsOwnPage(const std::string& accountID) const;
    void forgetDataStore(const std::string& dataStoreID);

    // Borrowed references
    WebHost& m_host;
    const ServiceCatalog& m_services;
    AccountStore* m_store = nullptr;
    SessionPreferences* m_preferences = nullptr;

    // Owned references
    std::map<std::string, std::unique_ptr<Session>> m_sessions; // by account id
    std::map<std::string, Ref<WebKitNetworkSession>> m_networkSessions; // by dataStoreID
    std::map<std::string, int64_t> m_unreadCounts;
    std::map<std::string, MessageReceiver> m_receivers; // by handler name
    std::chrono::milliseconds m_pollInterval;
    Observers<> m_unreadObservers;
    PopupObservers m_popupObservers;
    PopupObservers::Subscription m_popupExtensions;
    Ref<GCancellable> m_cancellable;
    Lifetime m_lifetime; // for deferred work
    std::unique_ptr<AvatarRefresher> m_avatars;
    std::unique_ptr<Hibernator> m_hibernator;
    std::map<std::string, Ref<GdkTexture>> m_asleep; // by account id; the snapshot may be null
    std::map<std::string, Ref<GdkTexture>> m_waking;  // woken, their pages not loaded yet
    std::map<std::string, std::unique_ptr<FeedWatcher>> m_feedWatchers; // of sleeping accounts, by id
    std::map<std::string, FeedNews::Inbox> m_feedInboxes; // what earlier watchers found out, by id
    Observers<> m_sleepObservers;
    Observers<> m_failureObservers;
    std::map<std::string, PageRecovery::Carried> m_restarting; // by account id, while its view is made again
    AccountStore::ChangeObservers::Subscription m_storeSubscription;
    // Start order: the other pages wait for the selected one's first load.
    bool m_startGateOpen = false;
    std::vector<std::string> m_waitingLoads;
    guint m_startBound = 0;
    std::vector<std::unique_ptr<ViewExtension>> m_extensions; // let go first, while all else exists
};

} // namespace orvane
