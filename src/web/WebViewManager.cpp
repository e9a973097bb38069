#include "WebViewManager.h"

#include "AppPaths.h"
#include "Files.h"
#include "PageScripts.h"
#include "SignalConnection.h"
#include "DropAttach.h"
#include "NotificationRelay.h"
#include "PageBridges.h"
#include "PendingDrops.h"
#include "PrintSupport.h"
#include "SaveImageWebView.h"
#include "MailService.h"
#include "AvatarRefresher.h"
#include "DockBadge.h"
#include "MessageSender.h"
#include "NavigationDelegate.h"
#include "PageAddress.h"
#include "PageStamp.h"

#include <cmath>
#include <limits>

namespace orvane {

namespace {

constexpr const char* kUserAgent = "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
                                   "(KHTML, like Gecko) Version/18.3 Safari/605.1.15";
constexpr guint kPollIntervalMs = 5000;

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

// A count a poll script may report: a whole number from 0 up.
std::optional<int64_t> pollCount(JSCValue* value) {
    if (!value || !jsc_value_is_number(value))
        return std::nullopt;
    double number = jsc_value_to_double(value);
    if (!std::isfinite(number) || number < 0 || number != std::floor(number) || number >= 9.0e18)
        return std::nullopt;
    return static_cast<int64_t>(number);
}

} // namespace

struct WebViewManager::Session {
    // One registered script-message handler of this view.
    struct Handler {
        WebViewManager* manager;
        std::string accountID;
        std::string name;
    };

    ~Session() { g_clear_handle_id(&pollTimer, g_source_remove); }

    Account account;
    // Owned references
    Ref<WebKitWebView> view;
    Ref<WebKitUserContentManager> contentManager;
    std::unique_ptr<NavigationDelegate> delegate;
    std::vector<std::unique_ptr<Handler>> handlers;
    std::vector<SignalConnection> connections; // title, script messages
    guint pollTimer = 0;
};

// What a poll timer and its script completion need; both hold the view and
// the manager weakly.
struct PollTask {
    PollTask(WebViewManager* manager, Lifetime::Watch alive, std::string accountID, std::string script,
        std::string sourceURI, WebKitWebView* view)
        : manager(manager), alive(std::move(alive)), accountID(std::move(accountID)), script(std::move(script))
        , sourceURI(std::move(sourceURI)) {
        g_weak_ref_init(&this->view, view);
    }
    ~PollTask() { g_weak_ref_clear(&view); }

    WebViewManager* manager; // valid while `alive` holds
    Lifetime::Watch alive;
    std::string accountID;
    std::string script;
    std::string sourceURI;
    GWeakRef view;
};

WebViewManager::WebViewManager(WebHost& host, const ServiceCatalog& services)
    : m_host(host)
    , m_services(services)
    , m_cancellable(adopt(g_cancellable_new()))
    , m_drops(std::make_shared<PendingDrops>()) {
    PageStamp::installExtension();
    m_notificationRelay = std::make_unique<NotificationRelay>(*this);
    m_print = std::make_unique<PrintSupport>();
    m_print->serve(*this);
    m_avatars = std::make_unique<AvatarRefresher>(*this);
    // Files dropped on a pop-up attach in the pop-up's page; files dropped
    // on the account's main view may attach there too.
    m_popupDropAttach = observePopups([this](const std::string& accountID, WebKitWebView* popup) {
        PageAddress::track(popup);
        if (auto it = m_sessions.find(accountID); it != m_sessions.end())
            DropAttach::attach(popup, m_services.forService(it->second->account.service), m_drops, it->second->view.get());
    });
}

WebViewManager::~WebViewManager() {
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
    auto session = std::make_unique<Session>();
    session->account = account;
    session->contentManager = adopt(webkit_user_content_manager_new());
    installBridges(*session);

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
    SaveImageWebView::enable(*this, view, account.service);
    DropAttach::attach(view, m_services.forService(account.service), m_drops);

    if (service.unreadPollJS && !service.unreadPollJS->empty())
        startPolling(*session, *service.unreadPollJS, PageScripts::sourceURI(service.unreadPollScriptName));

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

    webkit_web_view_load_uri(view, service.homeURL.c_str());
    return view;
}

void WebViewManager::pageDidFinish(const std::string& accountID) {
    // Every finished load of the account's main view or its pop-ups ends
    // here. Calendar pages never look for a photo: they share their Gmail
    // account's through the data store.
    auto it = m_sessions.find(accountID);
    if (it == m_sessions.end() || it->second->account.isCalendar() || !showsOwnPage(accountID))
        return;
    m_avatars->refresh(accountID, it->second->view.get());
}

void WebViewManager::installBridges(Session& session) {
    WebKitUserContentManager* manager = session.contentManager.get();
    for (const auto& item : PageBridges::items()) {
        if (item.kind == PageBridges::Item::Kind::Script) {
            if (WebKitUserScript* script = PageBridges::script(item)) {
                webkit_user_content_manager_add_script(manager, script);
                webkit_user_script_unref(script);
            }
            continue;
        }
        std::string name(item.name);
        webkit_user_content_manager_register_script_message_handler(manager, name.c_str(), nullptr);
        auto handler = std::make_unique<Session::Handler>(Session::Handler { this, session.account.id, name });
        std::string signal = "script-message-received::" + name;
        session.connections.push_back(SignalConnection::connect(manager, signal.c_str(),
            +[](WebKitUserContentManager*, JSCValue* body, gpointer data) {
                auto* h = static_cast<Session::Handler*>(data);
                h->manager->deliverMessage(h->accountID, h->name, body);
            }, handler.get()));
        session.handlers.push_back(std::move(handler));
    }
}

void WebViewManager::setMessageReceiver(const std::string& handlerName, MessageReceiver receiver) {
    if (receiver)
        m_receivers[handlerName] = std::move(receiver);
    else
        m_receivers.erase(handlerName);
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

void WebViewManager::startPolling(Session& session, const std::string& script, const std::string& sourceURI) {
    auto* task = new PollTask(this, m_lifetime.watch(), session.account.id, script, sourceURI, session.view.get());
    session.pollTimer = g_timeout_add_full(G_PRIORITY_DEFAULT, kPollIntervalMs, +[](gpointer data) -> gboolean {
        auto* task = static_cast<PollTask*>(data);
        if (!task->alive.alive())
            return G_SOURCE_CONTINUE;
        Ref<WebKitWebView> view = adopt(static_cast<WebKitWebView*>(g_weak_ref_get(&task->view)));
        if (!view)
            return G_SOURCE_CONTINUE;
        task->manager->pollUnread(view.get(), task->accountID, task->script, task->sourceURI);
        return G_SOURCE_CONTINUE;
    }, task, +[](gpointer data) { delete static_cast<PollTask*>(data); });
}

void WebViewManager::pollUnread(WebKitWebView* view, const std::string& accountID, const std::string& script,
    const std::string& sourceURI) {
    if (!showsOwnPage(accountID))
        return;
    auto* completion = new PollTask(this, m_lifetime.watch(), accountID, {}, {}, view);
    webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr,
        sourceURI.c_str(), m_cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::unique_ptr<PollTask> task(static_cast<PollTask*>(data));
            GErrorPtr error;
            auto value = adopt(webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result,
                GErrorOut(error)));
            if (isCancelled(error.get()) || !task->alive.alive())
                return;
            auto count = pollCount(value.get());
            if (!count)
                return;
            // Only for the view that was polled, while its account is live
            // and shows the service's own page.
            if (task->manager->webView(task->accountID) != WEBKIT_WEB_VIEW(source)
                || !task->manager->showsOwnPage(task->accountID))
                return;
            task->manager->setUnreadCount(task->accountID, *count);
        },
        completion);
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

void WebViewManager::discard(const Account& account) {
    if (auto it = m_sessions.find(account.id); it != m_sessions.end()) {
        std::unique_ptr<Session> session = std::move(it->second);
        m_sessions.erase(it);
        session->connections.clear();
        session->delegate.reset();
        g_clear_handle_id(&session->pollTimer, g_source_remove);
        webkit_web_view_stop_loading(session->view.get());
        removeFromParent(GTK_WIDGET(session->view.get()));
    }
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
            if (count > 0 && total > std::numeric_limits<int64_t>::max() - count)
                total = std::numeric_limits<int64_t>::max();
            else
                total += count;
        }
    }
    DockBadge::set(total);
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

void WebViewManager::printSelected() {
    for (const auto& [id, session] : m_sessions) {
        if (!session->delegate)
            continue;
        for (WebKitWebView* popup : session->delegate->popups().views()) {
            GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(popup));
            if (root && GTK_IS_WINDOW(root) && gtk_window_is_active(GTK_WINDOW(root))) {
                m_print->print(popup, PrintSupport::Asker::User);
                return;
            }
        }
    }
    if (!m_store || !m_store->selectedAccountID())
        return;
    if (WebKitWebView* view = webView(*m_store->selectedAccountID()))
        m_print->print(view, PrintSupport::Asker::User);
}

} // namespace orvane
