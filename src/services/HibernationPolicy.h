#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string_view>

namespace orvane {

// When an account's page may sleep: its web process ends and its view goes,
// to come back when the account is selected. An account sleeps once it has
// not been selected for the limit ("Hibernate accounts not used for"), and
// never while anything of the user's would be lost with the page or while it
// holds their attention. Pure: the web layer gathers the facts.
class HibernationPolicy {
public:
    using Seconds = std::chrono::seconds;

    // What keeps a page awake whatever its idle time.
    struct Activity {
        bool selected = false;
        bool popupOpen = false;
        bool composing = false;   // a compose form holds typed text
        bool playingMedia = false; // sound, camera, microphone or screen capture
        bool downloading = false;
    };

    // Nothing: never sleep.
    explicit HibernationPolicy(std::optional<Seconds> limit = kDefaultLimit) : m_limit(limit) { }
    std::optional<Seconds> limit() const { return m_limit; }

    static bool keepsAwake(const Activity& activity) {
        return activity.selected || activity.popupOpen || activity.composing || activity.playingMedia
            || activity.downloading;
    }
    // After `idle` without being selected.
    bool maySleep(const Activity& activity, std::chrono::steady_clock::duration idle) const {
        return m_limit && idle >= *m_limit && !keepsAwake(activity);
    }

    // The preference's choices, in the order shown; 0 is "Never".
    static constexpr std::array<int, 5> kChoices { 5 * 60, 15 * 60, 30 * 60, 60 * 60, 0 };
    static constexpr Seconds kDefaultLimit { 15 * 60 };
    static constexpr Seconds kLongestLimit { 7 * 24 * 60 * 60 };
    // Its key in preferences.ini and the variable that replaces it.
    static constexpr const char* kPreferenceKey = "HibernateAfterSeconds";
    static constexpr const char* kEnvironmentVariable = "ORVANE_HIBERNATE_AFTER";

    // The limit for this run: ORVANE_HIBERNATE_AFTER's whole number of
    // seconds when it is one (0: never), else the stored preference (seconds,
    // 0: never), else the default. A stored value that is not one of the
    // choices is taken within [1 s, kLongestLimit]; a negative one is ignored.
    static std::optional<Seconds> limitFrom(std::optional<double> preference, std::optional<std::string_view> environment);

private:
    std::optional<Seconds> m_limit;
};

} // namespace orvane
