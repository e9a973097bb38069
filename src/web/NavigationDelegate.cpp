#include "NavigationDelegate.h"

#include "MailService.h"
#include "DownloadPolicy.h"
#include "FilePanels.h"
#include "ScriptDialogs.h"
#include "WebHost.h"

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

std::string requestURI(WebKitNavigationAction* action) {
    WebKitURIRequest* request = action ? webkit_navigation_action_get_request(action) : nullptr;
    const char* uri = request ? webkit_uri_request_get_uri(request) : nullptr;
    return uri ? std::string(uri) : std::string();
}

} // namespace

NavigationDelegate::NavigationDelegate(WebHost& host, const MailService& service, std::function<void()> onDidFinish)
    : m_host(host)
    , m_policy(service)
    , m_onDidFinish(std::move(onDidFinish))
    , m_downloads(host)
    , m_popups(host, m_policy,
          [this](WebKitWebView* view, std::vector<SignalConnection>& connections) {
              connectView(view, connections);
              if (m_popupOpened)
                  m_popupOpened(view);
          },
          [this](WebKitWebView* view) {
              std::erase_if(m_frameLinks, [&](const FrameLink& link) { return link.view == view; });
              std::erase(m_responseDownloads, view);
          }) {
}

NavigationDelegate::~NavigationDelegate() {
    m_connections.clear();
}

void NavigationDelegate::attach(WebKitWebView* view) {
    m_mainView = view;
    connectView(view, m_connections);
    // Pop-ups are related views: they share this network session.
    if (WebKitNetworkSession* session = webkit_web_view_get_network_session(view))
        m_connections.push_back(SignalConnection::connect(session, "download-started", onDownloadStarted, this));
}

void NavigationDelegate::connectView(WebKitWebView* view, std::vector<SignalConnection>& connections) {
    connections.push_back(m_downloads.watch(view));
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
        +[](WebKitWebView* v, WebKitScriptDialog* dialog, gpointer self) -> gboolean {
            return ScriptDialogs::run(v, dialog, static_cast<NavigationDelegate*>(self)->m_host);
        }, this));
}

void NavigationDelegate::openExternally(const ExternalLink& link, WebKitWebView* from) {
    switch (link.action) {
    case ExternalLink::Action::Browser:
        m_host.openInBrowser(link.address, from);
        return;
    case ExternalLink::Action::Mail:
        m_host.openMailLink(link.address);
        return;
    case ExternalLink::Action::Nothing:
        return;
    }
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
    // A navigation inside an embedded frame is always allowed, but a mail
    // link has nothing to show there.
    bool inFrame = takeFrameLink(view, uri);
    if (webkit_navigation_action_get_navigation_type(action) != WEBKIT_NAVIGATION_TYPE_LINK_CLICKED)
        return false;
    ExternalLink link = m_policy.leavingLink(uri);
    if (inFrame && link.action != ExternalLink::Action::Mail)
        return false;
    if (link.action == ExternalLink::Action::Nothing) {
        if (LinkPolicy::isPageAddress(uri) || LinkPolicy::schemeOf(uri) == "javascript")
            return false;
        // Nothing a page can show and nothing for the desktop: the click does nothing.
        g_debug("Ignored a link to an address of scheme \"%s\"", LinkPolicy::schemeOf(uri).c_str());
    }
    openExternally(link, view);
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
    return view && (view == m_mainView || m_popups.contains(view));
}

void NavigationDelegate::onDownloadStarted(WebKitNetworkSession*, WebKitDownload* download, gpointer self) {
    auto* delegate = static_cast<NavigationDelegate*>(self);
    WebKitWebView* view = webkit_download_get_web_view(download);
    if (!view || !delegate->isOwnView(view))
        return; // another account sharing this session, or no view at all
    delegate->m_downloads.admit(download, delegate->m_mainView ? delegate->m_mainView : view);
    auto it = std::find(delegate->m_responseDownloads.begin(), delegate->m_responseDownloads.end(), view);
    if (it == delegate->m_responseDownloads.end())
        return;
    delegate->m_responseDownloads.erase(it);
    // A pop-up that only started a download has no more to show.
    delegate->m_popups.closeSoon(view);
}

GtkWidget* NavigationDelegate::onCreate(WebKitWebView* opener, WebKitNavigationAction* action, gpointer self) {
    return static_cast<NavigationDelegate*>(self)->createPopup(opener, action);
}

GtkWidget* NavigationDelegate::createPopup(WebKitWebView* opener, WebKitNavigationAction* action) {
    std::string uri = requestURI(action);
    if (!uri.empty()) {
        ExternalLink link = m_policy.leavingLink(uri);
        if (link.action != ExternalLink::Action::Nothing) {
            openExternally(link, opener);
            return nullptr;
        }
        // A window of its own only for what a page can show: other schemes
        // (file:, ftp:, javascript:…) open nothing anywhere.
        if (!LinkPolicy::isPageAddress(uri)) {
            g_debug("Refused a pop-up for an address of scheme \"%s\"", LinkPolicy::schemeOf(uri).c_str());
            return nullptr;
        }
        if (LinkPolicy::hostOf(uri) == ServiceHosts::kGoogleSignIn) {
            webkit_web_view_load_uri(opener, uri.c_str());
            return nullptr;
        }
    }
    return GTK_WIDGET(m_popups.open(opener));
}

void NavigationDelegate::onClose(WebKitWebView* view, gpointer self) {
    static_cast<NavigationDelegate*>(self)->m_popups.close(view);
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
