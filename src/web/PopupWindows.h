#pragma once

#include "GRef.h"
#include "Lifetime.h"
#include "LinkPolicy.h"
#include "SignalConnection.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <functional>
#include <vector>

namespace orvane {

class WebHost;

// The pop-up windows of one account's pages. Each is a related view of the
// page that opened it, in a window the host makes (820 x 620), titled by the
// account's LinkPolicy as its page changes, shown on ready-to-show, and gone
// when its page closes it, the user does, or its only job (a download) is
// done. At most kMaxPopups are open at once. Main thread only.
class PopupWindows {
public:
    // Connects the account's own handlers to a new pop-up view before WebKit
    // loads its page; the connections live as long as the pop-up.
    using Prepare = std::function<void(WebKitWebView* view, std::vector<SignalConnection>& connections)>;
    // Told of each pop-up view as it goes.
    using Forget = std::function<void(WebKitWebView* view)>;

    // The host and the policy outlive the pop-ups.
    PopupWindows(WebHost& host, const LinkPolicy& policy, Prepare prepare, Forget forget);
    // Closes the windows still open.
    ~PopupWindows();
    PopupWindows(const PopupWindows&) = delete;
    PopupWindows& operator=(const PopupWindows&) = delete;

    // A new pop-up view for `opener`, or null when kMaxPopups are open.
    WebKitWebView* open(WebKitWebView* opener);
    bool contains(WebKitWebView* view) const;
    // Closes the view's window now (the page's window.close()), or from the
    // main loop (not while WebKit is inside the view's own response).
    void close(WebKitWebView* view);
    void closeSoon(WebKitWebView* view);

    // The open windows and their views, oldest first.
    std::vector<GtkWindow*> windows() const;
    std::vector<WebKitWebView*> views() const;

    static constexpr int kWidth = 820;
    static constexpr int kHeight = 620;
    static constexpr size_t kMaxPopups = 5;

private:
    struct Popup {
        Ref<GtkWindow> window;
        WebKitWebView* view; // owned by the window
        std::vector<SignalConnection> connections;
    };

    static gboolean onCloseRequest(GtkWindow*, gpointer self);
    void forget(GtkWindow* window, bool destroy);

    // Borrowed references
    WebHost& m_host;
    const LinkPolicy& m_policy;

    // Owned references
    Prepare m_prepare;
    Forget m_forget;
    std::vector<Popup> m_popups;
    Lifetime m_lifetime; // for closeSoon
};

} // namespace orvane
