#include "DownloadGate.h"

namespace orvane {

DownloadGate::Verdict DownloadGate::arrive(Clock::time_point now) {
    if (m_gestureAt && now - *m_gestureAt <= kGestureLifetime) {
        m_gestureAt.reset(); // one download per gesture
        return Verdict::Start;
    }
    if (m_asking) {
        if (m_held >= kMaxHeld)
            return Verdict::Drop;
        ++m_held;
        return Verdict::Hold;
    }
    if (m_allowed && now - m_answeredAt <= kAnswerLifetime)
        return *m_allowed ? Verdict::Start : Verdict::Drop;
    m_allowed.reset();
    while (!m_recent.empty() && now - m_recent.front() > kWindow)
        m_recent.pop_front();
    if (m_recent.size() < kFreeDownloads) {
        m_recent.push_back(now);
        return Verdict::Start;
    }
    m_asking = true;
    m_held = 1;
    return Verdict::Ask;
}

void DownloadGate::answer(bool allow, Clock::time_point now) {
    m_asking = false;
    m_held = 0;
    m_allowed = allow;
    m_answeredAt = now;
    m_recent.clear();
}

} // namespace orvane
