#pragma once

#include "PageFailure.h"
#include "SignalConnection.h"

#include <webkit/webkit.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// Watches one account's main view for a page that is not there (a failed or
// overlong load, a 5xx answer, a web process that crashed or no longer
// answers; PageFailure says which is which) and brings it back by itself
// where it may: when the network returns, and once after a crash (in a view
// the manager makes again). WebKit's
// own error page never shows: the app shows its status page instead. Ending
// the web process on purpose (sleep, TERMINATED_BY_API) is no failure.
// Main thread only.
class PageRecovery {
public:
    // What a view made again after a crash carries over from the one before.
    struct Carried {
        std::optional<PageFailure::Kind> failure;
        std::optional<PageFailure::Clock::time_point> lastCrash;
    };
    // `changed` is called whenever failure() changes; `restart` makes the
    // account's view again after a crash (a crashed view reloaded in place
    // can stay blank), and may destroy this recovery. A load that has not
    // finished within `loadBound` is given up.
    PageRecovery(WebKitWebView* view, Carried carried, std::function<void()> changed, std::function<void()> restart,
        std::chrono::milliseconds loadBound = PageFailure::kLoadBound);
    ~PageRecovery();
    PageRecovery(const PageRecovery&) = delete;
    PageRecovery& operator=(const PageRecovery&) = delete;

    // Why the page is not there; nothing while it is.
    std::optional<PageFailure::Kind> failure() const { return m_failure; }
    // Loads the page again: the failed address, or the current one; after a
    // crash, in a view made again.
    void reload();
    Carried carried() const { return { m_failure, m_lastCrash }; }

private:
    static void onLoadChanged(WebKitWebView*, WebKitLoadEvent, gpointer self);
    static gboolean onLoadFailed(WebKitWebView*, WebKitLoadEvent, const char* uri, GError*, gpointer self);
    static gboolean onLoadFailedWithTLSErrors(WebKitWebView*, const char* uri, GTlsCertificate*, GTlsCertificateFlags, gpointer self);
    static void onTerminated(WebKitWebView*, WebKitWebProcessTerminationReason, gpointer self);
    static void onResponsive(WebKitWebView*, GParamSpec*, gpointer self);
    static void onNetworkChanged(GNetworkMonitor*, gboolean available, gpointer self);

    void fail(PageFailure::Kind kind, const char* uri);
    void setFailure(std::optional<PageFailure::Kind> failure);
    void stopLoadBound();

    // Borrowed references
    WebKitWebView* m_view;

    // Owned references
    std::function<void()> m_changed;
    std::function<void()> m_restart;
    std::vector<SignalConnection> m_connections;
    std::optional<PageFailure::Kind> m_failure;
    std::string m_failedAddress;
    std::optional<PageFailure::Clock::time_point> m_lastCrash;
    std::chrono::milliseconds m_loadBoundInterval;
    guint m_loadBound = 0;
    guint m_crashRestart = 0;
    guint m_crashReload = 0;
};

} // namespace orvane
