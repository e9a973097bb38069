#pragma once

#include "Lifetime.h"
#include "MailService.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "ExternalLink.h"
#include "DownloadGuard.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvane {

class WebHost;

// The link, pop-up and load policy of one account: which link clicks stay in
// Orvane and which go to the default browser or the mail-link routing
// (ExternalLink), the pop-up windows its pages open, and a callback after
// every finished load. It also decides which responses are downloaded,
// whether its views' downloads may start (DownloadGuard) and where they land
// (DownloadDestination), and answers their file choosers (FilePanels) and
// script dialogs (ScriptDialogs). One per account, attached (by signal
// connections) to the account's main view and to each pop-up it opens.
// Main thread only.
class NavigationDelegate {
public:
    // The host outlives the delegate.
    NavigationDelegate(WebHost& host, const MailService& service, std::function<void()> onDidFinish);
    // Disconnects from every view and closes the pop-up windows still open.
    ~NavigationDelegate();
    NavigationDelegate(const NavigationDelegate&) = delete;
    NavigationDelegate& operator=(const NavigationDelegate&) = delete;

    // Takes over navigation and response decisions, new-window requests,
    // close requests, load completion, file choosers and script dialogs of
    // the view, and the downloads of its network session that its views start.
    void attach(WebKitWebView* view);

    // Where a link or window.open to `uri` in this account's pages leads
    // outside them: the browser for an http(s) address (unwrapped from a
    // redirect wrapper) whose host is not in-app, the mail-link routing for
    // mailto:. Nothing when the account's pages keep it.
    ExternalLink leavingLink(const std::string& uri) const;

    const std::set<std::string>& inAppHosts() const { return m_inAppHosts; }
    // A pop-up window's title while it shows `uri`: "Orvane" on the
    // service's own hosts, else "Orvane — " and the page's host (the scheme
    // for an address without one), so a page cannot pass for the service.
    std::string popupTitle(const std::string& uri) const;
    // The pop-up windows this delegate opened that are still open, oldest first.
    std::vector<GtkWindow*> popupWindows() const;
    // Their web views, in the same order.
    std::vector<WebKitWebView*> popupViews() const;

    // Called with each pop-up view right after it is made (before WebKit
    // loads its page), so others can watch or attach to it.
    void setPopupOpened(std::function<void(WebKitWebView* popup)> callback) { m_popupOpened = std::move(callback); }

    // Hands a decision on to the host: its browser gets a Browser address,
    // its mail-link routing a Mail one; Nothing opens nothing.
    void openExternally(const ExternalLink& link, WebKitWebView* from);

    // Size of a pop-up window's content.
    static constexpr int kPopupWidth = 820;
    static constexpr int kPopupHeight = 620;
    // Pop-up windows open at once per account; further requests are refused.
    static constexpr size_t kMaxPopups = 5;

private:
    struct Popup {
        Ref<GtkWindow> window;
        WebKitWebView* view; // owned by the window
        std::vector<SignalConnection> connections;
    };
    // A link activation the web-process extension saw inside an embedded frame.
    struct FrameLink {
        WebKitWebView* view;
        std::string uri;
        std::chrono::steady_clock::time_point seen;
    };

    static gboolean onDecidePolicy(WebKitWebView*, WebKitPolicyDecision*, WebKitPolicyDecisionType, gpointer self);
    static GtkWidget* onCreate(WebKitWebView*, WebKitNavigationAction*, gpointer self);
    static void onClose(WebKitWebView*, gpointer self);
    static void onLoadChanged(WebKitWebView*, WebKitLoadEvent, gpointer self);
    static gboolean onUserMessage(WebKitWebView*, WebKitUserMessage*, gpointer self);
    static gboolean onPopupCloseRequest(GtkWindow*, gpointer self);
    static void onDownloadStarted(WebKitNetworkSession*, WebKitDownload*, gpointer self);

    void connectView(WebKitWebView* view, std::vector<SignalConnection>& connections);
    bool decideNavigation(WebKitWebView* view, WebKitNavigationPolicyDecision* decision);
    bool decideResponse(WebKitWebView* view, WebKitResponsePolicyDecision* decision);
    bool isOwnView(WebKitWebView* view) const;
    void closePopupSoon(WebKitWebView* view);
    GtkWidget* createPopup(WebKitWebView* opener, WebKitNavigationAction* action);
    bool takeFrameLink(WebKitWebView* view, const std::string& uri);
    void forgetPopup(GtkWindow* window, bool destroy);

    // Borrowed references
    WebHost& m_host;
    WebKitWebView* m_mainView = nullptr;

    // Owned references
    std::function<void()> m_onDidFinish;
    std::function<void(WebKitWebView*)> m_popupOpened;
    std::vector<Popup> m_popups;
    std::set<std::string> m_inAppHosts;
    std::vector<FrameLink> m_frameLinks;
    std::vector<WebKitWebView*> m_responseDownloads; // views whose response became a download
    DownloadGuard m_downloads;
    std::vector<SignalConnection> m_connections; // to the main view and its network session
    Lifetime m_lifetime; // for deferred work
};

} // namespace orvane
