#pragma once

#include "WebHost.h"

#include <gtk/gtk.h>

#include <optional>

namespace orvane {

// The web layer's host in the running application: links go to the desktop's
// browser with the window's launch context (so the browser comes to the
// front), mail links are routed as the desktop's, questions are modal
// AdwMessageDialogs, pop-ups are windows of the application (its shortcuts
// work there) and notifications go through GNotification.
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

private:
    // Borrowed references
    GtkApplication* m_application;

    // Owned references
    std::optional<bool> m_bodyIsMarkup; // decided at the first notification
};

} // namespace orvane
