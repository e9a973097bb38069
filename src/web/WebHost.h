#pragma once

#include "ScriptDialogs.h"

#include <gio/gio.h>
#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <string>

namespace orvane {

// What the web layer asks of the application around it: the desktop's
// browser, mail-link routing, dialogs, windows and notifications. The
// application shell implements it and hands it to the WebViewManager it
// makes, which passes it on to what it owns; tests hand in their own.
// Main thread only.
class WebHost {
public:
    virtual ~WebHost() = default;

    // The application's action (app.<name>) that a click on one of Orvane's
    // notifications activates, with the target (account id, page-side id,
    // empty for none): it selects the account (NotificationRelay::clicked).
    static constexpr const char* kNotificationClickAction = "notification-clicked";

    // An http(s) address leaving an account's pages, exactly as it was
    // checked, for the default browser. `from` is the view it left (or null).
    virtual void openInBrowser(const std::string& address, WebKitWebView* from) = 0;
    // A mailto: link leaving an account's pages, routed as the desktop's are.
    virtual void openMailLink(const std::string& address) = 0;
    // Shows a question (a page's alert, confirm or prompt, or Orvane's own
    // about a page) over `parent` (may be null) and calls the completion
    // once. False, and nothing shown, for a host without dialogs; WebKit then
    // shows its own for a page's dialogs.
    virtual bool ask(GtkWindow* parent, const ScriptDialogs::Request& request, ScriptDialogs::Completion completion) = 0;
    // A new, empty top-level window for a pop-up page.
    virtual GtkWindow* newWindow() = 0;
    // Shows a desktop notification (the same id replaces the one shown
    // before). False when none can be shown.
    virtual bool sendNotification(const std::string& id, GNotification* notification) = 0;
    // Whether the notification server reads bodies as markup, so that a
    // page's text must be escaped to show as written.
    virtual bool notificationBodyIsMarkup() = 0;
};

// A host with nothing around it: addresses go to the desktop's default
// browser, mail links and notifications go nowhere, WebKit shows its own
// dialogs, and pop-ups get plain windows.
class PlainWebHost : public WebHost {
public:
    void openInBrowser(const std::string& address, WebKitWebView* from) override;
    void openMailLink(const std::string&) override { }
    bool ask(GtkWindow*, const ScriptDialogs::Request&, ScriptDialogs::Completion) override { return false; }
    GtkWindow* newWindow() override { return GTK_WINDOW(gtk_window_new()); }
    bool sendNotification(const std::string&, GNotification*) override { return false; }
    bool notificationBodyIsMarkup() override { return false; }
};

} // namespace orvane
