#pragma once

#include "GRef.h"
#include "HibernationPolicy.h"

#include <gdk/gdk.h>
#include <webkit/webkit.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace orvane {

class WebViewManager;

// Puts the manager's idle accounts to sleep by its HibernationPolicy. It
// notes when each account stops being selected and looks every so often at
// the accounts whose pages are alive. For one idle long enough with nothing
// keeping it awake, it asks the page whether a compose form holds typed text,
// takes a snapshot of what the page shows, looks once more and has the
// manager release the view. A hidden view cannot always be pictured, so the
// page is also pictured as the user leaves it, and that picture stands in.
// Owned by the manager; main thread only.
class Hibernator {
public:
    using Clock = std::chrono::steady_clock;

    explicit Hibernator(WebViewManager& manager);
    ~Hibernator();
    Hibernator(const Hibernator&) = delete;
    Hibernator& operator=(const Hibernator&) = delete;

    void setPolicy(HibernationPolicy policy);
    const HibernationPolicy& policy() const { return m_policy; }

    // The store's selection now: the account it leaves starts its idle time.
    void selectionChanged(const std::optional<std::string>& selectedID);
    // An account's page (or one of its pop-ups) finished loading: idle from
    // now unless it is selected. A page that never finished loading never
    // sleeps.
    void pageLoaded(const std::string& accountID);
    void forget(const std::string& accountID);
    // Puts the account to sleep now, whatever its idle time, when nothing
    // keeps it awake.
    void hibernateNow(const std::string& accountID);

private:
    void restartTimer();
    void sweep();
    // The typing question, the snapshot, a last look, the release.
    void check(const std::string& accountID, bool ignoreIdleTime);
    void snapshotThenSleep(const std::string& accountID, bool ignoreIdleTime);
    bool maySleep(const std::string& accountID, bool ignoreIdleTime, bool composing = false) const;
    using Snapshot = std::function<void(Ref<GdkTexture>)>;
    void takeSnapshot(WebKitWebView* view, Snapshot done);

    // Borrowed references
    WebViewManager& m_manager; // owns this object

    // Owned references
    HibernationPolicy m_policy;
    std::optional<std::string> m_selected;
    std::map<std::string, Clock::time_point> m_idleSince; // accounts with a live page, not selected
    std::set<std::string> m_checking;
    std::map<std::string, Ref<GdkTexture>> m_lastSeen; // as the user left each account
    Ref<GCancellable> m_cancellable; // the questions and snapshots in flight
    guint m_timer = 0;
};

} // namespace orvane
