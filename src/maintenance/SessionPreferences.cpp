#include "SessionPreferences.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace orvane {

namespace {

constexpr const char* kRunInBackground = "run-in-background";
constexpr const char* kStartAtLogin = "start-at-login";
constexpr const char* kCheckSpelling = "check-spelling";
constexpr const char* kWindowWidth = "window-width";
constexpr const char* kWindowHeight = "window-height";
constexpr const char* kWindowMaximized = "window-maximized";

constexpr std::array kZoomSteps { 0.3, 0.5, 0.67, 0.8, 0.9, 1.0, 1.1, 1.25, 1.5, 1.75, 2.0, 2.5, 3.0 };

constexpr const char* kZoom = "zoom-";
constexpr const char* kMuted = "mute-notifications-";
constexpr const char* kLeftOutOfBadge = "leave-out-of-badge-";

// An account's keys are a prefix and its id; an id that could not be a
// key-file key (account ids are UUIDs) has nothing kept.
std::optional<std::string> accountKey(const char* prefix, const std::string& accountID) {
    if (accountID.empty() || accountID.size() > 64)
        return std::nullopt;
    bool plain = std::all_of(accountID.begin(), accountID.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
    });
    return plain ? std::optional(prefix + accountID) : std::nullopt;
}

} // namespace

std::optional<bool> SessionPreferences::flag(const std::string& key) const {
    auto text = m_preferences.string(key);
    if (text == "true")
        return true;
    if (text == "false")
        return false;
    return std::nullopt;
}

bool SessionPreferences::setFlag(const std::string& key, bool on) {
    return m_preferences.setString(key, on ? "true" : "false");
}

bool SessionPreferences::runInBackground() const { return flag(kRunInBackground).value_or(true); }
bool SessionPreferences::setRunInBackground(bool on) { return setFlag(kRunInBackground, on); }
bool SessionPreferences::startAtLogin() const { return flag(kStartAtLogin).value_or(false); }
bool SessionPreferences::setStartAtLogin(bool on) { return setFlag(kStartAtLogin, on); }

bool SessionPreferences::checkSpelling() const { return flag(kCheckSpelling).value_or(true); }
bool SessionPreferences::setCheckSpelling(bool on) { return setFlag(kCheckSpelling, on); }

std::optional<SessionPreferences::WindowSize> SessionPreferences::windowSize(int minimumWidth, int minimumHeight) const {
    auto width = m_preferences.number(kWindowWidth);
    auto height = m_preferences.number(kWindowHeight);
    if (!width || !height || *width < 1 || *height < 1)
        return std::nullopt;
    auto side = [](double value, int minimum) { return int(std::clamp(std::round(value), double(minimum), double(kMaxWindowSide))); };
    return WindowSize { side(*width, minimumWidth), side(*height, minimumHeight), flag(kWindowMaximized).value_or(false) };
}

// The maximised flag goes last: a file cut short between the writes still
// holds a size that belongs together.
bool SessionPreferences::setWindowSize(const WindowSize& size) {
    bool written = m_preferences.setNumber(kWindowWidth, size.width);
    written = m_preferences.setNumber(kWindowHeight, size.height) && written;
    return setFlag(kWindowMaximized, size.maximized) && written;
}

double SessionPreferences::zoom(const std::string& accountID) const {
    auto key = accountKey(kZoom, accountID);
    auto level = key ? m_preferences.number(*key) : std::nullopt;
    return level ? boundedZoom(*level) : 1.0;
}

bool SessionPreferences::setZoom(const std::string& accountID, double level) {
    auto key = accountKey(kZoom, accountID);
    return key && m_preferences.setNumber(*key, boundedZoom(level));
}

bool SessionPreferences::accountFlag(const char* prefix, const std::string& accountID) const {
    auto key = accountKey(prefix, accountID);
    return key && flag(*key).value_or(false);
}

bool SessionPreferences::setAccountFlag(const char* prefix, const std::string& accountID, bool on) {
    auto key = accountKey(prefix, accountID);
    return key && setFlag(*key, on);
}

bool SessionPreferences::notificationsMuted(const std::string& id) const { return accountFlag(kMuted, id); }
bool SessionPreferences::setNotificationsMuted(const std::string& id, bool on) { return setAccountFlag(kMuted, id, on); }
bool SessionPreferences::leftOutOfBadge(const std::string& id) const { return accountFlag(kLeftOutOfBadge, id); }
bool SessionPreferences::setLeftOutOfBadge(const std::string& id, bool on) { return setAccountFlag(kLeftOutOfBadge, id, on); }

bool SessionPreferences::forgetAccounts(const std::function<bool(const std::string& accountID)>& gone) {
    return m_preferences.removeKeys([&](const std::string& key) {
        for (std::string_view prefix : { kZoom, kMuted, kLeftOutOfBadge }) {
            if (key.starts_with(prefix))
                return gone(key.substr(prefix.size()));
        }
        return false;
    });
}

double SessionPreferences::boundedZoom(double level) {
    if (!std::isfinite(level))
        return 1.0;
    return std::clamp(level, kZoomSteps.front(), kZoomSteps.back());
}

// A level between steps (set by hand in the file) moves to the nearest step
// in the asked direction.
double SessionPreferences::zoomIn(double level) {
    level = boundedZoom(level);
    auto next = std::upper_bound(kZoomSteps.begin(), kZoomSteps.end(), level + 1e-6);
    return next == kZoomSteps.end() ? kZoomSteps.back() : *next;
}

double SessionPreferences::zoomOut(double level) {
    level = boundedZoom(level);
    auto next = std::lower_bound(kZoomSteps.begin(), kZoomSteps.end(), level - 1e-6);
    return next == kZoomSteps.begin() ? kZoomSteps.front() : *std::prev(next);
}

} // namespace orvane
