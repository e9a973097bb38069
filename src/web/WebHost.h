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

    // How a download of an account's pages ended.
    enum class DownloadEnd {
        Finished,      // complete in the Downloads folder
        NetworkFailed, // the transfer broke off
        WriteFailed,   // the file could not be written (disk full, no permission)
        NoPlace,       // Orvane found no Downloads folder or no free name
        Cancelled,     // by the page, WebKit or the flood guard: nothing to say
    };
    // A download that Orvane lets run (at once, or once the user allowed a
    // flood of them); `from` is the view it came from (or null). The host
    // may follow its progress until downloadEnded.
    virtual void downloadStarted(WebKitDownload*, WebKitWebView* from) { }
    // `path` is the complete file for Finished, else empty.
    virtual void downloadEnded(WebKitDownload*, DownloadEnd, const std::string& path) { }
    // A file that Orvane itself saved into Downloads for a page (an image).
    virtual void fileSaved(const std::string& path, WebKitWebView* from) { }
    // Something the user asked of a page failed (the error bell has sounded):
    // `message` says what, in the user's words.
    virtual void reportFailure(const std::string& message, WebKitWebView* from) { }
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
