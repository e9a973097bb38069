#pragma once

#include <chrono>
#include <optional>

namespace orvane {

// Keeps pages from bringing the modal print dialog back as soon as it
// closes: a page's print request is dropped while the dialog is open and for
// kQuietPeriod after it closed. Pure: the caller passes the time. Main
// thread only.
class PrintGate {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr auto kQuietPeriod = std::chrono::seconds(3);

    bool dialogOpen() const { return m_open; }
    bool allowsPageRequest(Clock::time_point now) const {
        return !m_open && (!m_closedAt || now - *m_closedAt > kQuietPeriod);
    }
    void dialogOpened() { m_open = true; }
    void dialogClosed(Clock::time_point now) {
        m_open = false;
        m_closedAt = now;
    }

private:
    bool m_open = false;
    std::optional<Clock::time_point> m_closedAt;
};

} // namespace orvane
