#pragma once

#include <cstdint>

namespace orvane {

// The unread total on Orvane's launcher icon: the Unity LauncherEntry
// "Update" signal on the session bus, which Ubuntu Dock, Dash to Dock, KDE
// Plasma and Plank show. 0 hides the badge. Fire and forget: without a
// session bus nothing happens.
struct DockBadge {
    static constexpr const char* kAppURI = "application://app.orvane.Orvane.desktop";
    static constexpr const char* kObjectPath = "/app/orvane/Orvane";
    static constexpr const char* kInterface = "com.canonical.Unity.LauncherEntry";
    static constexpr const char* kMember = "Update";

    static void set(int64_t total);
};

} // namespace orvane
