#pragma once

#include "MailService.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "ExternalLink.h"
#include "LinkPolicy.h"
#include "PopupWindows.h"
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

// One account's views as WebKit sees them: it decides where their links go
// (by the account's LinkPolicy: kept, for the browser, for the mail-link
// routing or nowhere), which responses are downloaded, whether their
// downloads may start (DownloadGuard), and answers their file choosers
// (FilePanels) and script dialogs (ScriptDialogs). The pop-up windows its
// pages open are PopupWindows; it calls back after every finished load.
// One per account, attached (by signal connections) to the account's main
// view and to each pop-up. Main thread only.
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

    const LinkPolicy& policy() const { return m_policy; }
    const PopupWindows& popups() const { return m_popups; }
    bool downloading() const { return m_downloads.inProgress(); }

    // Called with each pop-up view right after it is made (before WebKit
    // loads its page), so others can watch or attach to it.
    void setPopupOpened(std::function<void(WebKitWebView* popup)> callback) { m_popupOpened = std::move(callback); }

    // Hands a decision on to the host: its browser gets a Browser address,
    // its mail-link routing a Mail one; Nothing opens nothing.
    void openExternally(const ExternalLink& link, WebKitWebView* from);

private:
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
    static void onDownloadStarted(WebKitNetworkSession*, WebKitDownload*, gpointer self);

    void connectView(WebKitWebView* view, std::vector<SignalConnection>& connections);
    bool decideNavigation(WebKitWebView* view, WebKitNavigationPolicyDecision* decision);
    bool decideResponse(WebKitWebView* view, WebKitResponsePolicyDecision* decision);
    bool isOwnView(WebKitWebView* view) const;
    GtkWidget* createPopup(WebKitWebView* opener, WebKitNavigationAction* action);
    bool takeFrameLink(WebKitWebView* view, const std::string& uri);

    // Borrowed references
    WebHost& m_host;
    WebKitWebView* m_mainView = nullptr;

    // Owned references
    LinkPolicy m_policy;
    std::function<void()> m_onDidFinish;
    std::function<void(WebKitWebView*)> m_popupOpened;
    std::vector<FrameLink> m_frameLinks;
    std::vector<WebKitWebView*> m_responseDownloads; // views whose response became a download
    DownloadGuard m_downloads;
    std::vector<SignalConnection> m_connections; // to the main view and its network session
    PopupWindows m_popups; // last: its windows go first, while the rest still exists
};

} // namespace orvane
