#include "WebViewManager.h"

#include "AppPaths.h"
#include "Files.h"
#include "PageScripts.h"
#include "SignalConnection.h"
#include "MailService.h"
#include "AvatarRefresher.h"
#include "DockBadge.h"
#include "FeedWatcher.h"
#include "Hibernator.h"
#include "MessageSender.h"
#include "NavigationDelegate.h"
#include "PageAddress.h"
#include "PageRecovery.h"
#include "PageStamp.h"
#include "UnreadPoller.h"
#include "ViewExtension.h"
#include "HeapBox.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvane {

namespace {

constexpr const char* kUserAgent = "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
                                   "(KHTML, like Gecko) Version/18.3 Safari/605.1.15";

// GTK 4 has no generic "remove child": each container has its own call.
void removeFromParent(GtkWidget* widget) {
    GtkWidget* parent = gtk_widget_get_parent(widget);
    if (!parent)
        return;
    if (GTK_IS_STACK(parent))
        gtk_stack_remove(GTK_STACK(parent), widget);
    else if (GTK_IS_BOX(parent))
        gtk_box_remove(GTK_BOX(parent), widget);
    else if (GTK_IS_OVERLAY(parent) && gtk_overlay_get_child(GTK_OVERLAY(parent)) != widget)
        gtk_overlay_remove_overlay(GTK_OVERLAY(parent), widget);
    else if (GTK_IS_OVERLAY(parent))
        gtk_overlay_set_child(GTK_OVERLAY(parent), nullptr);
    else if (GTK_IS_WINDOW(parent))
        gtk_window_set_child(GTK_WINDOW(parent), nullptr);
    else if (GTK_IS_GRID(parent))
        gtk_grid_remove(GTK_GRID(parent), widget);
    else if (GTK_IS_FIXED(parent))
        gtk_fixed_remove(GTK_FIXED(parent), widget);
    else
        gtk_widget_unparent(widget);
}

} // namespace

struct WebViewManager::Session {
    // One registered script-message handler of this view.
    struct Handler {
        WebViewManager* manager;
        std::string accountID;
        std::string name;
    };

    Account account;
    // Owned references
    Ref<WebKitWebView> view;
    Ref<WebKitUserContentManager> contentManager;
    std::unique_ptr<NavigationDelegate> delegate;
    std::vector<std::unique_ptr<Handler>> handlers;
    std::vector<SignalConnection> connections; // title, script messages
    std::unique_ptr<UnreadPoller> poller;
    std::unique_ptr<PageRecovery> recovery;
};

WebViewManager::WebViewManager(WebHost& host, const ServiceCatalog& services,
    std::chrono::milliseconds unreadPollInterval)
    : m_host(host)
    , m_services(services)
    , m_pollInterval(unreadPollInterval)
    , m_cancellable(adopt(g_cancellable_new())) {
    PageStamp::installExtension();
    m_avatars = std::make_unique<AvatarRefresher>(*this);
    m_hibernator = std::make_unique<Hibernator>(*this);
    m_popupExtensions = observePopups([this](const std::string& accountID, WebKitWebView* popup) {
        PageAddress::track(popup);
        auto it = m_sessions.find(accountID);
        if (it == m_sessions.end())
            return;
        const Account& account = it->second->account;
        for (auto& extension : m_extensions)
            extension->popupOpened(popup, it->second->view.get(), account, m_services.forService(account.service));
    });
}

WebViewManager::~WebViewManager() {
    m_extensions.clear();
    m_storeSubscription.reset();
    m_hibernator.reset();
    m_feedWatchers.clear();
    g_clear_handle_id(&m_startBound, g_source_remove);
    m_lifetime.end();
    g_cancellable_cancel(m_cancellable.get());
    m_sessions.clear();
}

void WebViewManager::configure(AccountStore& store) {
    m_store = &store;
    Lifetime::Watch alive = m_lifetime.watch();
    store.setDataStoreRemover([this, alive](const std::string& dataStoreID) {
        if (alive.alive())
            forgetDataStore(dataStoreID);
        AccountStore::removeWebsiteData(dataStoreID);
    });
    m_storeSubscription = store.observe([this](unsigned change) {
        if (change & StoreChangeSelection)
            storeChanged();
    });
    storeChanged();
    refreshDockBadge();
}

void WebViewManager::applicationBecameActive() {
    refreshDockBadge();
}

WebKitNetworkSession* WebViewManager::networkSession(const std::string& dataStoreID) {
    if (auto it = m_networkSessions.find(dataStoreID); it != m_networkSessions.end())
        return it->second.get();
    Ref<WebKitNetworkSession> session;
    auto canonical = canonicalUUID(dataStoreID);
    if (canonical && *canonical == dataStoreID) {
        std::string data = AppPaths::websiteDataDir(dataStoreID);
        std::string cache = AppPaths::websiteCacheDir(dataStoreID);
        session = adopt(webkit_network_session_new(data.c_str(), cache.c_str()));
        Files::makeFolder(data);
        webkit_cookie_manager_set_persistent_storage(webkit_network_session_get_cookie_manager(session.get()),
            (data + "/cookies.sqlite").c_str(), WEBKIT_COOKIE_PERSISTENT_STORAGE_SQLITE);
    } else {
        // Never a path from a malformed id: such an account keeps nothing.
        session = adopt(webkit_network_session_new_ephemeral());
    }
    return m_networkSessions.emplace(dataStoreID, std::move(session)).first->second.get();
}

void WebViewManager::forgetDataStore(const std::string& dataStoreID) {
    m_networkSessions.erase(dataStoreID);
}

WebKitWebView* WebViewManager::webView(const Account& account) {
    if (auto it = m_sessions.find(account.id); it != m_sessions.end())
        return it->second->view.get();

    const MailService& service = m_services.forService(account.service);
    if (auto asleep = m_asleep.find(account.id); asleep != m_asleep.end()) {
        m_waking[account.id] = std::move(asleep->second);
        m_asleep.erase(asleep);
        stopSleepingCount(account.id);
    }
    auto session = std::make_unique<Session>();
    session->account = account;
    session->contentManager = adopt(webkit_user_content_manager_new());
    for (auto& extension : m_extensions)
        extension->prepareContent(session->contentManager.get(), account);
    for (const auto& [name, receiver] : m_receivers)
        listen(*session, name);

    auto settings = adopt(webkit_settings_new());
    webkit_settings_set_user_agent(settings.get(), kUserAgent);
    webkit_settings_set_enable_developer_extras(settings.get(), TRUE);
    session->view = Ref<WebKitWebView>(WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW,
        "network-session", networkSession(account.dataStoreID),
        "user-content-manager", session->contentManager.get(),
        "settings", settings.get(),
        nullptr)));
    WebKitWebView* view = session->view.get();
    PageAddress::track(view);
    GdkRGBA transparent = { 0, 0, 0, 0 };
    webkit_web_view_set_background_color(view, &transparent);

    Lifetime::Watch alive = m_lifetime.watch();
    session->delegate = std::make_unique<NavigationDelegate>(m_host, m_services.forService(account.service), [this, alive, id = account.id] {
        if (alive.alive())
            pageDidFinish(id);
    });
    session->delegate->setPopupOpened([this, id = account.id](WebKitWebView* popup) {
        m_popupObservers.notify(id, popup);
    });
    session->delegate->attach(view);
    PageRecovery::Carried carried;
    if (auto restarting = m_restarting.find(account.id); restarting != m_restarting.end()) {
        carried = restarting->second;
        m_restarting.erase(restarting);
    }
    session->recovery = std::make_unique<PageRecovery>(view, carried, [this, alive] {
        if (alive.alive())
            m_failureObservers.notify();
    }, [this, alive, id = account.id] {
        if (alive.alive())
            restartView(id);
    });
    for (auto& extension : m_extensions)
        extension->viewCreated(view, account, service);

    if (service.unreadPollJS && !service.unreadPollJS->empty()) {
        session->poller = std::make_unique<UnreadPoller>(view, *service.unreadPollJS,
            PageScripts::sourceURI(service.unreadPollScriptName), m_pollInterval,
            [this, id = account.id] { return showsOwnPage(id) && !failure(id); },
            [this, id = account.id](int64_t count) { setUnreadCount(id, count); });
    }

    Session& stored = *m_sessions.emplace(account.id, std::move(session)).first->second;
    // The title is observed from here on, starting with its current value.
    stored.connections.push_back(SignalConnection::connect(view, "notify::title",
        +[](WebKitWebView* v, GParamSpec*, gpointer data) {
            auto* manager = static_cast<WebViewManager*>(data);
            auto id = manager->accountID(v);
            if (!id)
                return;
            // A sign-in page or another site the view was sent to names no account.
            if (!manager->showsOwnPage(*id)) {
                g_debug("Ignored the title of a page outside the service");
                return;
            }
            const char* title = webkit_web_view_get_title(v);
            manager->handleTitle(*id, title ? std::optional<std::string>(title) : std::nullopt);
        }, this));
    {
        const char* title = webkit_web_view_get_title(view);
        handleTitle(account.id, title ? std::optional<std::string>(title) : std::nullopt);
    }

    startLoading(account.id);
    if (m_waking.contains(account.id))
        m_sleepObservers.notify();
    return view;
}

void WebViewManager::startLoading(const std::string& accountID) {
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end())
        return;
    const auto& selected = m_store ? m_store->selectedAccountID() : std::nullopt;
    if (!m_startGateOpen && selected && *selected != accountID && m_store->account(*selected)) {
        m_waitingLoads.push_back(accountID);
        g_debug("A page waits for the selected account's page to load");
        if (!m_startBound) {
            m_startBound = g_timeout_add(guint(kStartBound.count()), +[](gpointer self) -> gboolean {
                auto* manager = static_cast<WebViewManager*>(self);
                manager->m_startBound = 0;
                manager->openStartGate();
                return G_SOURCE_REMOVE;
            }, this);
        }
        return;
    }
    const MailService& service = m_services.forService(it->second->account.service);
    webkit_web_view_load_uri(it->second->view.get(), service.homeURL.c_str());
}

void WebViewManager::openStartGate() {
    if (m_startGateOpen)
        return;
    m_startGateOpen = true;
    g_debug("The waiting pages load (%s)", m_startBound ? "the selected page has loaded" : "after the bound");
    g_clear_handle_id(&m_startBound, g_source_remove);
    for (const auto& id : std::exchange(m_waitingLoads, {}))
        startLoading(id);
}

void WebViewManager::storeChanged() {
    const auto& selected = m_store->selectedAccountID();
    m_hibernator->selectionChanged(selected);
    if (auto waiting = selected ? std::find(m_waitingLoads.begin(), m_waitingLoads.end(), *selected) : m_waitingLoads.end();
        waiting != m_waitingLoads.end()) {
        m_waitingLoads.erase(waiting);
        startLoading(*selected);
    }
}

void WebViewManager::pageDidFinish(const std::string& accountID) {
    if (!m_startGateOpen && m_store && m_store->selectedAccountID() == accountID)
        openStartGate();
    m_hibernator->pageLoaded(accountID);
    if (m_waking.erase(accountID))
        m_sleepObservers.notify();
    // Every finished load of the account's main view or its pop-ups ends
    // here. Calendar pages never look for a photo: they share their Gmail
    // account's through the data store.
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end() || it->second->account.isCalendar() || !showsOwnPage(accountID))
        return;
    m_avatars->refresh(accountID, it->second->view.get());
}

void WebViewManager::listen(Session& session, const std::string& handlerName) {
    WebKitUserContentManager* manager = session.contentManager.get();
    webkit_user_content_manager_register_script_message_handler(manager, handlerName.c_str(), nullptr);
    auto handler = std::make_unique<Session::Handler>(Session::Handler { this, session.account.id, handlerName });
    std::string signal = "script-message-received::" + handlerName;
    session.connections.push_back(SignalConnection::connect(manager, signal.c_str(),
        +[](WebKitUserContentManager*, JSCValue* body, gpointer data) {
            auto* h = static_cast<Session::Handler*>(data);
            h->manager->deliverMessage(h->accountID, h->name, body);
        }, handler.get()));
    session.handlers.push_back(std::move(handler));
}

void WebViewManager::setMessageReceiver(const std::string& handlerName, MessageReceiver receiver) {
    if (!receiver) {
        m_receivers.erase(handlerName);
        return;
    }
    bool listening = m_receivers.contains(handlerName);
    m_receivers[handlerName] = std::move(receiver);
    if (!listening) {
        for (auto& [id, session] : m_sessions)
            listen(*session, handlerName);
    }
}

void WebViewManager::deliverMessage(const std::string& accountID, const std::string& handlerName, JSCValue* body) {
    auto it = m_receivers.find(handlerName);
    auto session = m_sessions.find(accountID);
    if (it == m_receivers.end() || session == m_sessions.end())
        return;
    // Only this account's views: its content manager received the message.
    std::vector<WebKitWebView*> views = popupViews(accountID);
    views.insert(views.begin(), session->second->view.get());
    WebKitWebView* sender = MessageSender::sender(views, m_services.forService(session->second->account.service),
        handlerName, body);
    // Copy: a receiver may replace itself while it runs.
    MessageReceiver receiver = it->second;
    receiver(sender, body);
}

bool WebViewManager::showsOwnPage(const std::string& accountID) const {
    auto it = m_sessions.find(accountID);
    return it != m_sessions.end()
        && MessageSender::showsOwnPage(it->second->view.get(), m_services.forService(it->second->account.service));
}

std::optional<PageFailure::Kind> WebViewManager::failure(const std::string& accountID) const {
    auto it = m_sessions.find(accountID);
    return it == m_sessions.end() ? std::nullopt : it->second->recovery->failure();
}

void WebViewManager::reload(const std::string& accountID) {
    if (auto it = m_sessions.find(accountID); it != m_sessions.end())
        it->second->recovery->reload();
}

WebKitWebView* WebViewManager::webView(const std::string& accountID) const {
    auto it = m_sessions.find(accountID);
    return it == m_sessions.end() ? nullptr : it->second->view.get();
}

std::optional<std::string> WebViewManager::accountID(WebKitWebView* view) const {
    if (!view)
        return std::nullopt;
    for (const auto& [id, session] : m_sessions)
        if (session->view.get() == view)
            return id;
    return std::nullopt;
}

std::vector<WebKitWebView*> WebViewManager::popupViews(const std::string& accountID) const {
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end() || !it->second->delegate)
        return {};
    return it->second->delegate->popups().views();
}

void WebViewManager::release(Session& session) {
    session.connections.clear();
    session.recovery.reset();
    session.delegate.reset();
    session.poller.reset();
    webkit_web_view_stop_loading(session.view.get());
    removeFromParent(GTK_WIDGET(session.view.get()));
}

void WebViewManager::discard(const Account& account) {
    if (auto it = m_sessions.find(account.id); it != m_sessions.end()) {
        std::unique_ptr<Session> session = std::move(it->second);
        m_sessions.erase(it);
        release(*session);
    }
    m_hibernator->forget(account.id);
    std::erase(m_waitingLoads, account.id);
    m_waking.erase(account.id);
    if (m_asleep.erase(account.id))
        stopSleepingCount(account.id);
    m_feedInboxes.erase(account.id);
    m_unreadCounts.erase(account.id);
    m_unreadObservers.notify();
    refreshDockBadge();
}

void WebViewManager::handleTitle(const std::string& accountID, const std::optional<std::string>& title) {
    if (!m_store)
        return;
    const Account* stored = m_store->account(accountID);
    if (!stored)
        return;
    Account account = *stored;
    const MailService& service = m_services.forService(account.service);
    if (service.unread) {
        if (auto count = service.unread(title))
            setUnreadCount(accountID, *count);
    }
    if (service.label) {
        auto label = service.label(title);
        // Compared as it would be stored, so a long title does not save on every change.
        if (label && Account::boundedLabel(*label) != account.label) {
            account.label = *label;
            m_store->update(account);
        }
    }
}

void WebViewManager::setUnreadCount(const std::string& accountID, int64_t count) {
    m_unreadCounts[accountID] = count;
    m_unreadObservers.notify();
    refreshDockBadge();
}

void WebViewManager::refreshDockBadge() {
    int64_t total = 0;
    if (m_store && m_store->showDockBadge()) {
        for (const auto& [id, count] : m_unreadCounts) {
            if (m_preferences && m_preferences->leftOutOfBadge(id))
                continue;
            if (count > 0 && total > std::numeric_limits<int64_t>::max() - count)
                total = std::numeric_limits<int64_t>::max();
            else
                total += count;
        }
    }
    DockBadge::set(total);
}

bool WebViewManager::showsNotifications(const std::string& accountID) const {
    return m_store && m_store->notificationsEnabled() && !(m_preferences && m_preferences->notificationsMuted(accountID));
}

void WebViewManager::compose(const Account& account, const MailtoComponents& mailto) {
    const MailService& service = m_services.forService(account.service);
    if (!service.composeJS)
        return;
    std::string script = service.composeJS(mailto);
    if (script.empty())
        return;
    WebKitWebView* view = webView(account);
    std::string sourceURI = PageScripts::sourceURI(service.composeScriptName);
    webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr,
        sourceURI.c_str(), nullptr, nullptr, nullptr);
}

void WebViewManager::setHibernationPolicy(HibernationPolicy policy) {
    m_hibernator->setPolicy(policy);
}

void WebViewManager::hibernateNow(const std::string& accountID) {
    m_hibernator->hibernateNow(accountID);
}

const MailService* WebViewManager::serviceOf(const std::string& accountID) const {
    if (auto it = m_sessions.find(accountID); it != m_sessions.end())
        return &m_services.forService(it->second->account.service);
    const Account* account = m_store ? m_store->account(accountID) : nullptr;
    return account ? &m_services.forService(account->service) : nullptr;
}

bool WebViewManager::hibernates(const std::string& accountID) const {
    const MailService* service = serviceOf(accountID);
    return service && service->hibernates;
}

GdkTexture* WebViewManager::snapshot(const std::string& accountID) const {
    if (auto it = m_asleep.find(accountID); it != m_asleep.end())
        return it->second.get();
    auto it = m_waking.find(accountID);
    return it == m_waking.end() ? nullptr : it->second.get();
}

HibernationPolicy::Activity WebViewManager::activity(const std::string& accountID) const {
    HibernationPolicy::Activity activity;
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end())
        return activity;
    WebKitWebView* view = it->second->view.get();
    activity.selected = m_store && m_store->selectedAccountID() == accountID;
    activity.popupOpen = !popupViews(accountID).empty();
    activity.playingMedia = webkit_web_view_is_playing_audio(view)
        || webkit_web_view_get_camera_capture_state(view) != WEBKIT_MEDIA_CAPTURE_STATE_NONE
        || webkit_web_view_get_microphone_capture_state(view) != WEBKIT_MEDIA_CAPTURE_STATE_NONE
        || webkit_web_view_get_display_capture_state(view) != WEBKIT_MEDIA_CAPTURE_STATE_NONE;
    activity.downloading = it->second->delegate && it->second->delegate->downloading();
    return activity;
}

// Terminating the web process ends it even while something else still holds
// the view; each account view has a process of its own.
void WebViewManager::putToSleep(const std::string& accountID, Ref<GdkTexture> snapshot) {
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end())
        return;
    std::unique_ptr<Session> session = std::move(it->second);
    m_sessions.erase(it);
    const char* uri = webkit_web_view_get_uri(session->view.get());
    std::string pageAddress = uri ? uri : "";
    webkit_web_view_terminate_web_process(session->view.get());
    release(*session);
    m_asleep[accountID] = std::move(snapshot);
    startSleepingCount(session->account, pageAddress);
    g_info("An idle account went to sleep");
    m_sleepObservers.notify();
}

void WebViewManager::restartView(std::string accountID) {
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end())
        return;
    std::unique_ptr<Session> session = std::move(it->second);
    m_sessions.erase(it);
    m_restarting[accountID] = session->recovery->carried();
    release(*session);
    g_info("An account's view is made again after its web process ended");
    const Account* current = m_store ? m_store->account(accountID) : nullptr;
    webView(current ? *current : session->account);
    // The web area swaps the new view in, as on waking.
    m_sleepObservers.notify();
}

void WebViewManager::startSleepingCount(const Account& account, const std::string& pageAddress) {
    const MailService& service = m_services.forService(account.service);
    if (service.feedURL.empty())
        return;
    FeedWatcher::Options options;
    if (auto count = m_unreadCounts.find(account.id); count != m_unreadCounts.end())
        options.pageCount = count->second;
    if (auto inbox = m_feedInboxes.find(account.id); inbox != m_feedInboxes.end())
        options.inbox = inbox->second;
    FeedWatcher::Callbacks callbacks {
        [this, id = account.id](int64_t count) { setUnreadCount(id, count); },
        [this, id = account.id](const std::vector<AtomFeed::Entry>& fresh) {
            const Account* current = m_store ? m_store->account(id) : nullptr;
            if (current && showsNotifications(id))
                FeedWatcher::notify(m_host, *m_store, *current, fresh);
        },
    };
    m_feedWatchers[account.id] = std::make_unique<FeedWatcher>(account, networkSession(account.dataStoreID),
        FeedNews::mailboxFeedAddress(service.feedURL, pageAddress), std::move(callbacks), options);
}

void WebViewManager::stopSleepingCount(const std::string& accountID) {
    auto it = m_feedWatchers.find(accountID);
    if (it == m_feedWatchers.end())
        return;
    m_feedInboxes[accountID] = it->second->inbox();
    m_feedWatchers.erase(it);
}

void WebViewManager::measureMemory(const std::string& accountID,
    std::function<void(std::optional<uint64_t> bytes)> completion) {
    WebKitWebView* view = webView(accountID);
    if (!view) {
        completion(std::nullopt);
        return;
    }
    using Completion = std::function<void(std::optional<uint64_t>)>;
    webkit_web_view_send_message_to_page(view, webkit_user_message_new("orvane.memory", nullptr), m_cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            auto completion = HeapBox::take<Completion>(data);
            GErrorPtr error;
            auto reply = adopt(webkit_web_view_send_message_to_page_finish(WEBKIT_WEB_VIEW(source), result, GErrorOut(error)));
            if (isCancelled(error.get()))
                return;
            GVariant* bytes = reply ? webkit_user_message_get_parameters(reply.get()) : nullptr;
            // Whatever a web process answers is bounded: nothing over 1 TiB.
            if (bytes && g_variant_is_of_type(bytes, G_VARIANT_TYPE_UINT64) && g_variant_get_uint64(bytes) > 0
                && g_variant_get_uint64(bytes) < (uint64_t(1) << 40))
                (*completion)(g_variant_get_uint64(bytes));
            else
                (*completion)(std::nullopt);
        },
        HeapBox::make<Completion>(std::move(completion)));
}

} // namespace orvane
