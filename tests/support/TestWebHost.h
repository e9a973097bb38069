#pragma once

#include "GRef.h"
#include "WebHost.h"

#include <functional>
#include <string>
#include <vector>

namespace orvane::test {

// The web layer's host in tests: it records the addresses handed to the
// browser and the mail-link routing and the notifications sent, answers
// questions through `onAsk` (none set: the host has no dialogs), and makes
// plain windows for pop-ups. It records how downloads ended, the files
// saved and the failures reported.
class TestWebHost final : public WebHost {
public:
    struct Sent {
        std::string id;
        Ref<GNotification> notification;
    };
    using Ask = std::function<void(GtkWindow* parent, const ScriptDialogs::Request&, ScriptDialogs::Completion)>;

    std::vector<std::string> browserURIs;
    std::vector<std::string> mailURIs;
    std::vector<Sent> notifications;
    Ask onAsk;
    std::vector<std::pair<DownloadEnd, std::string>> downloadEnds; // with the path
    std::vector<std::string> savedFiles, failures;
    bool bodyIsMarkup = false;

    void openInBrowser(const std::string& address, WebKitWebView*) override { browserURIs.push_back(address); }
    void openMailLink(const std::string& address) override { mailURIs.push_back(address); }
    bool ask(GtkWindow* parent, const ScriptDialogs::Request& request, ScriptDialogs::Completion done) override {
        if (!onAsk)
            return false;
        onAsk(parent, request, std::move(done));
        return true;
    }
    GtkWindow* newWindow() override { return GTK_WINDOW(gtk_window_new()); }
    bool sendNotification(const std::string& id, GNotification* notification) override {
        notifications.push_back({ id, Ref<GNotification>(notification) });
        return true;
    }
    bool notificationBodyIsMarkup() override { return bodyIsMarkup; }
    void downloadEnded(WebKitDownload*, DownloadEnd end, const std::string& path) override { downloadEnds.emplace_back(end, path); }
    void fileSaved(const std::string& path, WebKitWebView*) override { savedFiles.push_back(path); }
    void reportFailure(const std::string& message, WebKitWebView*) override { failures.push_back(message); }
};

} // namespace orvane::test
