#include "web/NavigationDelegate.h"

#include "services/MailService.h"
#include "web/DownloadDestination.h"
#include "web/DownloadPolicy.h"
#include "web/FilePanels.h"
#include "web/ScriptDialogs.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace orvane {

namespace {

// A link the extension reports is matched by the navigation that follows it
// at once; anything older is stale.
constexpr auto kFrameLinkLifetime = std::chrono::seconds(2);
constexpr size_t kMaxFrameLinks = 16;
constexpr size_t kMaxURILength = 64 * 1024;
constexpr const char* kFrameLinkMessage = "orvane.frame-link";

NavigationDelegate::BrowserOpener& browserOpener() {
    static NavigationDelegate::BrowserOpener opener;
    return opener;
}

std::string lower(std::string_view text) {
    GCharPtr lowered(g_ascii_strdown(text.data(), static_cast<gssize>(text.size())));
    return lowered ? std::string(lowered.get()) : std::string();
}

struct Parsed {
    std::string host; // lower case
    std::string path; // still percent-encoded
    std::optional<std::string> query;
};

std::optional<Parsed> parse(const std::string& uri) {
    if (uri.size() > kMaxURILength)
        return std::nullopt;
    GUri* parsed = g_uri_parse(uri.c_str(), GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), nullptr);
    if (!parsed)
        return std::nullopt;
    Parsed result;
    if (const char* host = g_uri_get_host(parsed))
        result.host = lower(host);
    result.path = g_uri_get_path(parsed);
    if (const char* query = g_uri_get_query(parsed))
        result.query = query;
    g_uri_unref(parsed);
    return result;
}

std::string schemeOf(const std::string& uri) {
    auto colon = uri.find(':');
    return colon == std::string::npos ? std::string() : uri.substr(0, colon);
}

// The first query item named `name` (exact), when its value is an absolute
// http or https address. Names and values are percent-decoded; a malformed
// escape anywhere makes the whole query unreadable.
std::optional<std::string> param(const std::optional<std::string>& query, std::string_view name) {
    if (!query || query->empty())
        return std::nullopt;
    std::optional<std::string> value;
    std::string_view rest = *query;
    while (true) {
        auto amp = rest.find('&');
        std::string_view item = rest.substr(0, amp);
        auto eq = item.find('=');
        std::string rawName(item.substr(0, eq));
        GCharPtr itemName(g_uri_unescape_string(rawName.c_str(), nullptr));
        if (!itemName)
            return std::nullopt;
        std::optional<std::string> itemValue;
        if (eq != std::string_view::npos) {
            std::string rawValue(item.substr(eq + 1));
            GCharPtr decoded(g_uri_unescape_string(rawValue.c_str(), nullptr));
            if (!decoded)
                return std::nullopt;
            itemValue = decoded.get();
        }
        if (!value && name == itemName.get()) {
            if (!itemValue || itemValue->empty())
                return std::nullopt;
            value = itemValue;
        }
        if (amp == std::string_view::npos)
            break;
        rest.remove_prefix(amp + 1);
    }
    if (!value)
        return std::nullopt;
    std::string scheme = schemeOf(*value);
    if (scheme != "http" && scheme != "https")
        return std::nullopt;
    GUri* target = g_uri_parse(value->c_str(), G_URI_FLAGS_ENCODED, nullptr);
    if (!target)
        return std::nullopt;
    g_uri_unref(target);
    return value;
}

std::string requestURI(WebKitNavigationAction* action) {
    WebKitURIRequest* request = action ? webkit_navigation_action_get_request(action) : nullptr;
    const char* uri = request ? webkit_uri_request_get_uri(request) : nullptr;
    return uri ? std::string(uri) : std::string();
}

} // namespace

NavigationDelegate::NavigationDelegate(std::optional<AccountService> service, std::function<void()> onDidFinish)
    : m_onDidFinish(std::move(onDidFinish))
    , m_inAppHosts(MailService::forService(service).inAppHosts) {
}

NavigationDelegate::~NavigationDelegate() {
    *m_alive = false;
    m_connections.clear();
    auto popups = std::move(m_popups);
    for (auto& popup : popups) {
        popup.connections.clear();
        gtk_window_destroy(popup.window.get());
    }
}

void NavigationDelegate::attach(WebKitWebView* view) {
    m_mainView = view;
    connectView(view, m_connections);
    // Pop-ups are related views: they share this network session.
    if (WebKitNetworkSession* session = webkit_web_view_get_network_session(view))
        m_connections.push_back(SignalConnection::connect(session, "download-started", onDownloadStarted, this));
}

void NavigationDelegate::connectView(WebKitWebView* view, std::vector<SignalConnection>& connections) {
    connections.push_back(SignalConnection::connect(view, "decide-policy", onDecidePolicy, this));
    connections.push_back(SignalConnection::connect(view, "create", onCreate, this));
    connections.push_back(SignalConnection::connect(view, "close", onClose, this));
    connections.push_back(SignalConnection::connect(view, "load-changed", onLoadChanged, this));
    connections.push_back(SignalConnection::connect(view, "user-message-received", onUserMessage, this));
    connections.push_back(SignalConnection::connect(view, "run-file-chooser",
        +[](WebKitWebView* v, WebKitFileChooserRequest* request, gpointer) -> gboolean {
            return FilePanels::run(v, request);
        }, nullptr));
    connections.push_back(SignalConnection::connect(view, "script-dialog",
        +[](WebKitWebView* v, WebKitScriptDialog* dialog, gpointer) -> gboolean {
            return ScriptDialogs::run(v, dialog);
        }, nullptr));
}

std::string NavigationDelegate::resolvedTarget(const std::string& uri) {
    auto parsed = parse(uri);
    if (!parsed || parsed->host.empty())
        return uri;
    if ((parsed->host == ServiceHosts::kGoogleMain || parsed->host == ServiceHosts::kGoogleMainWWW)
        && parsed->path == "/url") {
        if (auto target = param(parsed->query, "q"))
            return *target;
        if (auto target = param(parsed->query, "url"))
            return *target;
    }
    if (parsed->host == ServiceHosts::kGoogleSignIn) {
        if (auto target = param(parsed->query, "continue"))
            return *target;
    }
    return uri;
}

bool NavigationDelegate::shouldOpenExternally(const std::string& uri) const {
    std::string target = resolvedTarget(uri);
    std::string scheme = lower(schemeOf(target));
    if (scheme != "http" && scheme != "https")
        return false;
    auto parsed = parse(target);
    if (!parsed || parsed->host.empty())
        return true;
    return !m_inAppHosts.contains(parsed->host);
}

std::vector<GtkWindow*> NavigationDelegate::popupWindows() const {
    std::vector<GtkWindow*> windows;
    for (const auto& popup : m_popups)
        windows.push_back(popup.window.get());
    return windows;
}

std::vector<WebKitWebView*> NavigationDelegate::popupViews() const {
    std::vector<WebKitWebView*> views;
    for (const auto& popup : m_popups)
        views.push_back(popup.view);
    return views;
}

void NavigationDelegate::setBrowserOpener(BrowserOpener opener) {
    browserOpener() = std::move(opener);
}

void NavigationDelegate::openInBrowser(const std::string& uri) {
    if (auto& opener = browserOpener()) {
        opener(uri);
        return;
    }
    g_app_info_launch_default_for_uri(uri.c_str(), nullptr, nullptr);
}

gboolean NavigationDelegate::onDecidePolicy(WebKitWebView* view, WebKitPolicyDecision* decision,
    WebKitPolicyDecisionType type, gpointer self) {
    if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE)
        return static_cast<NavigationDelegate*>(self)->decideResponse(view, WEBKIT_RESPONSE_POLICY_DECISION(decision));
    if (type != WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION && type != WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION)
        return FALSE;
    return static_cast<NavigationDelegate*>(self)->decideNavigation(view, WEBKIT_NAVIGATION_POLICY_DECISION(decision));
}

// Returns true when the decision was made here (the navigation is ignored);
// false lets WebKit go on with it.
bool NavigationDelegate::decideNavigation(WebKitWebView* view, WebKitNavigationPolicyDecision* decision) {
    WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(decision);
    std::string uri = requestURI(action);
    if (uri.empty())
        return false;
    // A navigation inside an embedded frame is always allowed.
    if (takeFrameLink(view, uri))
        return false;
    if (webkit_navigation_action_get_navigation_type(action) != WEBKIT_NAVIGATION_TYPE_LINK_CLICKED)
        return false;
    if (!shouldOpenExternally(uri))
        return false;
    openInBrowser(uri);
    webkit_policy_decision_ignore(WEBKIT_POLICY_DECISION(decision));
    return true;
}

bool NavigationDelegate::decideResponse(WebKitWebView* view, WebKitResponsePolicyDecision* decision) {
    if (!DownloadPolicy::shouldDownload(decision)) {
        webkit_policy_decision_use(WEBKIT_POLICY_DECISION(decision));
        return true;
    }
    if (std::find(m_responseDownloads.begin(), m_responseDownloads.end(), view) == m_responseDownloads.end())
        m_responseDownloads.push_back(view);
    webkit_policy_decision_download(WEBKIT_POLICY_DECISION(decision));
    return true;
}

bool NavigationDelegate::isOwnView(WebKitWebView* view) const {
    if (view && view == m_mainView)
        return true;
    return std::any_of(m_popups.begin(), m_popups.end(), [&](const Popup& popup) { return popup.view == view; });
}

void NavigationDelegate::onDownloadStarted(WebKitNetworkSession*, WebKitDownload* download, gpointer self) {
    auto* delegate = static_cast<NavigationDelegate*>(self);
    WebKitWebView* view = webkit_download_get_web_view(download);
    if (!view || !delegate->isOwnView(view))
        return; // another account sharing this session, or no view at all
    DownloadDestination::adopt(download);
    auto it = std::find(delegate->m_responseDownloads.begin(), delegate->m_responseDownloads.end(), view);
    if (it == delegate->m_responseDownloads.end())
        return;
    delegate->m_responseDownloads.erase(it);
    // A pop-up that only started a download has no more to show.
    delegate->closePopupSoon(view);
}

void NavigationDelegate::closePopupSoon(WebKitWebView* view) {
    auto it = std::find_if(m_popups.begin(), m_popups.end(), [&](const Popup& popup) { return popup.view == view; });
    if (it == m_popups.end())
        return;
    // Not while WebKit is still inside the response of this very view.
    struct Closing {
        std::weak_ptr<bool> alive;
        NavigationDelegate* delegate;
        Ref<GtkWindow> window;
    };
    g_idle_add_full(G_PRIORITY_DEFAULT, +[](gpointer data) -> gboolean {
        auto* closing = static_cast<Closing*>(data);
        if (closing->alive.lock())
            closing->delegate->forgetPopup(closing->window.get(), true);
        return G_SOURCE_REMOVE;
    }, new Closing { m_alive, this, it->window }, +[](gpointer data) { delete static_cast<Closing*>(data); });
}

GtkWidget* NavigationDelegate::onCreate(WebKitWebView* opener, WebKitNavigationAction* action, gpointer self) {
    return static_cast<NavigationDelegate*>(self)->createPopup(opener, action);
}

GtkWidget* NavigationDelegate::createPopup(WebKitWebView* opener, WebKitNavigationAction* action) {
    std::string uri = requestURI(action);
    if (!uri.empty() && shouldOpenExternally(uri)) {
        openInBrowser(uri);
        return nullptr;
    }
    if (!uri.empty()) {
        auto parsed = parse(uri);
        if (parsed && parsed->host == ServiceHosts::kGoogleSignIn) {
            webkit_web_view_load_uri(opener, uri.c_str());
            return nullptr;
        }
    }
    // A related view: WebKit requires it, and it shares the opener's web
    // process, settings (user agent) and user content manager.
    auto* view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW,
        "related-view", opener,
        "settings", webkit_web_view_get_settings(opener),
        nullptr));
    GdkRGBA background {};
    webkit_web_view_get_background_color(opener, &background);
    webkit_web_view_set_background_color(view, &background);

    auto* window = GTK_WINDOW(gtk_window_new());
    // A window of the application, so its keyboard shortcuts (paste as
    // plain text, print, quit…) work in pop-ups as in the main window.
    if (GApplication* application = g_application_get_default(); GTK_IS_APPLICATION(application))
        gtk_window_set_application(window, GTK_APPLICATION(application));
    gtk_window_set_title(window, "Orvane");
    gtk_window_set_default_size(window, kPopupWidth, kPopupHeight);
    gtk_window_set_resizable(window, TRUE);
    gtk_window_set_child(window, GTK_WIDGET(view));
    Popup& popup = m_popups.emplace_back(Popup { Ref<GtkWindow>(window), view, {} });
    popup.connections.push_back(SignalConnection::connect(view, "ready-to-show",
        +[](WebKitWebView* shown, gpointer) {
            if (auto* root = gtk_widget_get_root(GTK_WIDGET(shown)); GTK_IS_WINDOW(root))
                gtk_window_present(GTK_WINDOW(root));
        }, nullptr));
    popup.connections.push_back(SignalConnection::connect(window, "close-request", onPopupCloseRequest, this));
    connectView(view, popup.connections);
    if (m_popupOpened)
        m_popupOpened(view);
    return GTK_WIDGET(view);
}

void NavigationDelegate::onClose(WebKitWebView* view, gpointer self) {
    auto* delegate = static_cast<NavigationDelegate*>(self);
    auto it = std::find_if(delegate->m_popups.begin(), delegate->m_popups.end(),
        [&](const Popup& popup) { return popup.view == view; });
    if (it == delegate->m_popups.end())
        return;
    delegate->forgetPopup(it->window.get(), true);
}

gboolean NavigationDelegate::onPopupCloseRequest(GtkWindow* window, gpointer self) {
    // The user closed the window: it goes away as usual, and off the list.
    static_cast<NavigationDelegate*>(self)->forgetPopup(window, false);
    return FALSE;
}

void NavigationDelegate::forgetPopup(GtkWindow* window, bool destroy) {
    auto it = std::find_if(m_popups.begin(), m_popups.end(),
        [&](const Popup& popup) { return popup.window.get() == window; });
    if (it == m_popups.end())
        return;
    Popup popup = std::move(*it);
    m_popups.erase(it);
    popup.connections.clear();
    WebKitWebView* view = popup.view;
    std::erase_if(m_frameLinks, [&](const FrameLink& link) { return link.view == view; });
    std::erase(m_responseDownloads, view);
    if (destroy)
        gtk_window_destroy(popup.window.get());
}

void NavigationDelegate::onLoadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer self) {
    auto* delegate = static_cast<NavigationDelegate*>(self);
    if (event == WEBKIT_LOAD_FINISHED && delegate->m_onDidFinish)
        delegate->m_onDidFinish();
}

gboolean NavigationDelegate::onUserMessage(WebKitWebView* view, WebKitUserMessage* message, gpointer self) {
    const char* name = webkit_user_message_get_name(message);
    if (!name || !g_str_equal(name, kFrameLinkMessage))
        return FALSE;
    GVariant* parameters = webkit_user_message_get_parameters(message);
    if (!parameters || !g_variant_is_of_type(parameters, G_VARIANT_TYPE_STRING))
        return TRUE;
    gsize length = 0;
    const char* uri = g_variant_get_string(parameters, &length);
    if (length == 0 || length > kMaxURILength)
        return TRUE;
    auto* delegate = static_cast<NavigationDelegate*>(self);
    auto now = std::chrono::steady_clock::now();
    std::erase_if(delegate->m_frameLinks, [&](const FrameLink& link) { return now - link.seen > kFrameLinkLifetime; });
    if (delegate->m_frameLinks.size() >= kMaxFrameLinks)
        delegate->m_frameLinks.erase(delegate->m_frameLinks.begin());
    delegate->m_frameLinks.push_back({ view, uri, now });
    return TRUE;
}

bool NavigationDelegate::takeFrameLink(WebKitWebView* view, const std::string& uri) {
    auto now = std::chrono::steady_clock::now();
    auto it = std::find_if(m_frameLinks.begin(), m_frameLinks.end(), [&](const FrameLink& link) {
        return link.view == view && link.uri == uri && now - link.seen <= kFrameLinkLifetime;
    });
    if (it == m_frameLinks.end())
        return false;
    m_frameLinks.erase(it);
    return true;
}

} // namespace orvane
