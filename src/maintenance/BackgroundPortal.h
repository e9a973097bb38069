#pragma once

#include "GRef.h"

#include <gio/gio.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// Asks the desktop, through the Background portal
// (org.freedesktop.portal.Background.RequestBackground), to let Orvane run
// with no window open and, when asked, to start it at login with a command
// line. Where no portal answers nothing happens but the completion with
// nothing. One request at a time: a new one drops the answer of the last;
// none is delivered once the object is gone.
class BackgroundPortal {
public:
    struct Answer {
        bool background = false;
        bool autostart = false;
    };
    using Completion = std::function<void(std::optional<Answer>)>;

    // The session bus when none is given.
    explicit BackgroundPortal(GDBusConnection* bus = nullptr);
    ~BackgroundPortal();
    BackgroundPortal(const BackgroundPortal&) = delete;
    BackgroundPortal& operator=(const BackgroundPortal&) = delete;

    void request(const std::string& reason, bool autostart, const std::vector<std::string>& commandLine, Completion completion);

    static constexpr const char* kBusName = "org.freedesktop.portal.Desktop";
    static constexpr const char* kObjectPath = "/org/freedesktop/portal/desktop";
    static constexpr const char* kInterface = "org.freedesktop.portal.Background";

private:
    void finish(std::optional<Answer> answer);
    void unsubscribe();

    // Owned references
    Ref<GDBusConnection> m_bus;
    Ref<GCancellable> m_cancellable;
    unsigned m_subscription = 0;
    unsigned m_requests = 0;
    Completion m_completion;
};

} // namespace orvane
