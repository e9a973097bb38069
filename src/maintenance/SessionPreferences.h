#pragma once

#include "Preferences.h"

#include <functional>
#include <optional>
#include <string>

namespace orvane {

// What Orvane remembers about how it runs on the desktop, kept in
// preferences.ini beside the update and usage settings: whether closing the
// window keeps it running, whether it starts at login, the window's size and
// each account's page zoom and notification and badge switches. Every value read is bounded, so a hand-edited or
// damaged file gives sensible values, never an unusable window or page.
class SessionPreferences {
public:
    explicit SessionPreferences(Preferences& preferences) : m_preferences(preferences) { }

    // On unless set off.
    bool runInBackground() const;
    bool setRunInBackground(bool on);
    // Off unless set on.
    bool startAtLogin() const;
    bool setStartAtLogin(bool on);

    // On unless set off.
    bool checkSpelling() const;
    bool setCheckSpelling(bool on);

    struct WindowSize {
        int width = 0;
        int height = 0;
        bool maximized = false;
        bool operator==(const WindowSize&) const = default;
    };
    // The size last kept, within [minimum, kMaxWindowSide]; nothing when
    // none was kept or it is not a size.
    std::optional<WindowSize> windowSize(int minimumWidth, int minimumHeight) const;
    bool setWindowSize(const WindowSize& size);

    // An account's page zoom, 1 unless kept; always one of the zoom steps'
    // range. Accounts are named by their id, which must be a key-file key.
    double zoom(const std::string& accountID) const;
    bool setZoom(const std::string& accountID, double level);

    // Per account, beside the store's global switches, off unless set on:
    // its page and feed notifications muted, its count left out of the dock
    // badge (its tile still shows it).
    bool notificationsMuted(const std::string& accountID) const;
    bool setNotificationsMuted(const std::string& accountID, bool on);
    bool leftOutOfBadge(const std::string& accountID) const;
    bool setLeftOutOfBadge(const std::string& accountID, bool on);
    // Removes the keys above of every account `gone` picks by its id.
    bool forgetAccounts(const std::function<bool(const std::string& accountID)>& gone);

    // The next zoom step up or down from a level (the steps browsers use,
    // from 30 % to 300 %); the last step stays where it is.
    static double zoomIn(double level);
    static double zoomOut(double level);
    static double boundedZoom(double level);

    static constexpr int kMaxWindowSide = 16384;

private:
    std::optional<bool> flag(const std::string& key) const;
    bool setFlag(const std::string& key, bool on);
    // An account's switch (prefix + id), off when absent or unreadable.
    bool accountFlag(const char* prefix, const std::string& accountID) const;
    bool setAccountFlag(const char* prefix, const std::string& accountID, bool on);

    // Borrowed references
    Preferences& m_preferences;
};

} // namespace orvane
