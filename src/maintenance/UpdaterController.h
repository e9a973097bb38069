#pragma once

#include "GRef.h"
#include "Observers.h"
#include "Appcast.h"
#include "HTTPFetch.h"
#include "Lifetime.h"

#include <functional>
#include <optional>
#include <string>

namespace orvane {

// Checks Orvane's update feed on request. Orvane never replaces its own
// files (the package manager or Flatpak installs), so a check only finds out
// whether a newer release exists and hands back its details; the app layer
// shows them (maintenance/ui/UpdateDialog). There are no background checks.
//
// canCheckForUpdates() is true exactly while a check may start: a feed is
// configured and no check is running. "Check for Updates…" is enabled from it.
// Main thread only.
class UpdaterController {
public:
    struct Result {
        enum class Kind { UpToDate, UpdateAvailable, Failed };
        Kind kind = Kind::Failed;
        std::string currentVersion;       // Orvane's own version
        std::optional<Appcast::Item> item; // the newer release (UpdateAvailable)
        std::string notes;                // its release notes as plain text; may be empty
        std::string error;                // one sentence for the user (Failed)
    };
    using ResultCallback = std::function<void(const Result&)>;

    struct Configuration {
        std::string feedURL;                       // http(s); empty or invalid: no checks
        std::string currentVersion;                // compared with the items' sparkle:version
        std::optional<std::string> systemVersion;  // for sparkle:minimumSystemVersion
        unsigned timeoutMilliseconds = 30000;
    };

    // The build's feed (ORVANE_APPCAST_URL overrides it, also when set to the
    // empty text), the build's version and the system version from os-release.
    static Configuration defaultConfiguration();

    explicit UpdaterController(Configuration configuration = defaultConfiguration());
    ~UpdaterController();
    UpdaterController(const UpdaterController&) = delete;
    UpdaterController& operator=(const UpdaterController&) = delete;

    bool canCheckForUpdates() const { return m_canCheck; }
    bool isChecking() const { return bool(m_checking); }
    // Calls back at once with the current value and then on every change.
    [[nodiscard]] Observers<bool>::Subscription observeCanCheckForUpdates(Observers<bool>::Callback callback);

    // Starts a check; `done` gets the result on the main thread later, unless
    // the controller is destroyed first. Does nothing (and never calls back)
    // while canCheckForUpdates() is false.
    void checkForUpdates(ResultCallback done);

    // Reads a downloaded feed into a result (the check's last step).
    static Result evaluate(std::string_view feed, const Configuration& configuration);
    // The result of a finished fetch of the feed.
    static Result resultOf(const HTTPFetch::Outcome& outcome, const Configuration& configuration);

    static constexpr size_t kMaxNotesBytes = 4000;

private:
    void setCanCheck(bool value);

    // Owned
    Configuration m_configuration;
    Ref<GCancellable> m_checking; // the running check's; null when none runs
    Lifetime m_lifetime; // for the check's answer
    Observers<bool> m_canCheckObservers;
    bool m_canCheck = false;
};

} // namespace orvane
