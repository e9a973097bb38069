#pragma once

#include "GRef.h"
#include "Lifetime.h"

#include <webkit/webkit.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace orvane {

// Asks one view's page for its unread count every so often, by a script that
// returns a whole number (Outlook's count is not in its title). One per
// account view that needs it; it stops when it goes. Main thread only.
class UnreadPoller {
public:
    // Whether the view shows a page the count may come from now.
    using Allowed = std::function<bool()>;
    using Report = std::function<void(int64_t count)>;

    UnreadPoller(WebKitWebView* view, std::string script, std::string sourceURI, std::chrono::milliseconds interval,
        Allowed allowed, Report report);
    ~UnreadPoller();
    UnreadPoller(const UnreadPoller&) = delete;
    UnreadPoller& operator=(const UnreadPoller&) = delete;

    // What a poll script may report: a whole number from 0 up; nothing else.
    static std::optional<int64_t> countOf(JSCValue* value);

private:
    void poll();

    // Borrowed references
    GWeakRef m_view;

    // Owned references
    std::string m_script;
    std::string m_sourceURI;
    Allowed m_allowed;
    Report m_report;
    Ref<GCancellable> m_cancellable; // cancels a poll in flight when the poller goes
    guint m_timer = 0;
};

} // namespace orvane
