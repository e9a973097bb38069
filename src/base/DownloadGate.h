#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>

namespace orvane {

// Holds back a flood of downloads that nobody asked for, as browsers do:
// downloads without a user gesture beyond the first few within a few seconds
// wait, and the user is asked once whether to let them through. One per
// account; it only decides, the caller holds, starts or cancels the
// downloads. Pure: the caller passes the time. Main thread only.
class DownloadGate {
public:
    using Clock = std::chrono::steady_clock;

    enum class Verdict {
        Start, // let it go
        Ask,   // hold it and ask the user (the first held one of a flood)
        Hold,  // hold it until the user answers
        Drop,  // cancel it
    };

    // Downloads without a gesture that start freely within kWindow.
    static constexpr size_t kFreeDownloads = 3;
    static constexpr auto kWindow = std::chrono::seconds(5);
    // A gesture (key, button or touch on the account's views) lets one
    // download go within this time.
    static constexpr auto kGestureLifetime = std::chrono::seconds(5);
    // How long the user's answer stands for further downloads without a gesture.
    static constexpr auto kAnswerLifetime = std::chrono::seconds(60);
    // Held at most while the question is open; further ones are dropped.
    static constexpr size_t kMaxHeld = 100;

    // The user pressed a key or a button, or touched, on the account's views.
    void userInput(Clock::time_point now) { m_gestureAt = now; }

    // What to do with a download that has just started.
    Verdict arrive(Clock::time_point now);

    // The user's answer to the question: the held downloads may go (allow)
    // or are dropped (block), and so are further downloads without a gesture
    // for kAnswerLifetime.
    void answer(bool allow, Clock::time_point now);

    bool asking() const { return m_asking; }

private:
    std::optional<Clock::time_point> m_gestureAt;
    std::deque<Clock::time_point> m_recent; // starts without a gesture, within kWindow
    bool m_asking = false;
    size_t m_held = 0;
    std::optional<bool> m_allowed; // the last answer while it stands
    Clock::time_point m_answeredAt;
};

} // namespace orvane
