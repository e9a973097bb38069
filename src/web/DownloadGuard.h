#pragma once

#include "Lifetime.h"
#include "DownloadGate.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "WebHost.h"

#include <webkit/webkit.h>

#include <memory>
#include <optional>
#include <vector>

namespace orvane {


// Applies DownloadGate to one account's downloads. It notes the user's input
// on the account's views (real GTK events, which no page can make), starts,
// holds or cancels each download they start, and asks once per flood
// whether the held ones may go (through the host's dialogs; a host without
// dialogs blocks them). It tells the host of each download it lets run and
// of how that one ended. Owned by the account's NavigationDelegate. Main
// thread only.
class DownloadGuard {
public:
    explicit DownloadGuard(WebHost& host) : m_host(host) { }
    // Downloads still held are cancelled.
    ~DownloadGuard();
    DownloadGuard(const DownloadGuard&) = delete;
    DownloadGuard& operator=(const DownloadGuard&) = delete;

    // Notes the user's presses on the view while the connection lasts.
    [[nodiscard]] SignalConnection watch(WebKitWebView* view);
    // Starts, holds or cancels a download that one of the account's views
    // started, and has DownloadDestination pick its file. A question goes
    // over the window of `parentView` (the account's main view: a pop-up
    // that only downloads closes at once).
    void admit(WebKitDownload* download, WebKitWebView* parentView);
    // Whether a download admitted here is running or held (its page must
    // not go away under it).
    bool inProgress() const { return !m_running.empty() || !m_held.empty(); }

    // The question's response ids.
    static constexpr const char* kAllow = "allow";
    static constexpr const char* kBlock = "block";

private:
    void ask(WebKitWebView* parentView);
    void answer(bool allow);
    // One download from admission to WebKit's "finished".
    struct Tracked {
        DownloadGuard* guard;
        Ref<WebKitDownload> download;
        bool started = false; // told to the host
        std::optional<WebHost::DownloadEnd> failure;
        SignalConnection failed;
        SignalConnection finished;
    };
    void track(WebKitDownload* download);
    void start(WebKitDownload* download);
    void ended(Tracked* tracked);

    // Borrowed references
    WebHost& m_host;

    // Owned references
    DownloadGate m_gate;
    std::vector<Ref<WebKitDownload>> m_held;
    std::vector<std::unique_ptr<Tracked>> m_running; // until "finished"
    Lifetime m_lifetime; // for the question's answer
};

} // namespace orvane
