#pragma once

#include "DownloadList.h"
#include "WebHost.h"

#include <adwaita.h>

#include <gtk/gtk.h>

#include <functional>
#include <optional>

namespace orvane {

// The web layer's host in the running application: links go to the desktop's
// browser with the window's launch context (so the browser comes to the
// front), mail links are routed as the desktop's, questions are modal
// AdwMessageDialogs, pop-ups are windows of the application (its shortcuts
// work there) and notifications go through GNotification. Downloads and
// saved files are listed for the downloads button and, with failures the
// user should hear of, shown as toasts.
class AppWebHost final : public WebHost {
public:
    // The application outlives the host.
    explicit AppWebHost(GtkApplication* application) : m_application(application) { }

    void openInBrowser(const std::string& address, WebKitWebView* from) override;
    void openMailLink(const std::string& address) override;
    bool ask(GtkWindow* parent, const ScriptDialogs::Request& request, ScriptDialogs::Completion completion) override;
    GtkWindow* newWindow() override;
    bool sendNotification(const std::string& id, GNotification* notification) override;
    bool notificationBodyIsMarkup() override;
    void downloadStarted(WebKitDownload* download, WebKitWebView* from) override;
    void downloadEnded(WebKitDownload* download, DownloadEnd end, const std::string& path) override;
    void fileSaved(const std::string& path, WebKitWebView* from) override;
    void reportFailure(const std::string& message, WebKitWebView* from) override;

    // This run's downloads, for the window's downloads button.
    DownloadList& downloads() { return m_downloads; }
    // Where the toasts about downloads and failures go (takes the floating
    // reference; drops them when there is no window).
    void setToastShower(std::function<void(AdwToast*)> show) { m_showToast = std::move(show); }

private:
    // Borrowed references
    GtkApplication* m_application;

    // Owned references
    std::optional<bool> m_bodyIsMarkup; // decided at the first notification
    DownloadList m_downloads;
    std::function<void(AdwToast*)> m_showToast;
};

} // namespace orvane
