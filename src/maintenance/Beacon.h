#pragma once

#include "GRef.h"
#include "Preferences.h"

#include <functional>
#include <string>

namespace orvane {

// The anonymous usage ping: one HTTP GET to the configured endpoint with the
// query items id (the install id), v (Orvane's version), os (the system's
// major.minor version) and t (the time, whole seconds since 1970), sent when
// the main window first appears and whenever Orvane becomes active, but never
// within an hour of the last one (a last ping more than an hour in the future
// counts as none). The time is recorded before the request
// goes out, so a failed ping counts; the answer is never read and nothing is
// retried or logged. No endpoint configured means no ping at all.
//
// The application owns one, made from defaultConfiguration(): start() when
// the main window first appears, applicationBecameActive() each time it
// becomes active. Main thread only.
class Beacon {
public:
    // Seconds since 1970-01-01 00:00 UTC, with fractions.
    using Clock = std::function<double()>;
    // Sends one finished ping address; replaces the HTTP request in tests.
    using Sender = std::function<void(const std::string& uri)>;

    struct Configuration {
        std::string endpoint;        // http(s) address; empty or invalid: no ping
        std::string version;         // empty: sent as "?"
        std::string systemVersion;   // "12.0"; empty: sent as "?"
        std::string preferencesPath; // the key file holding the two values below
        unsigned timeoutMilliseconds = 15000;
    };

    // The build's endpoint (ORVANE_PING_URL overrides it, also when set to
    // the empty text), the build's version, the system version from
    // os-release and $XDG_CONFIG_HOME/Orvane/preferences.ini.
    static Configuration defaultConfiguration();

    explicit Beacon(Configuration configuration, Clock clock = {}, Sender sender = {});
    ~Beacon();
    Beacon(const Beacon&) = delete;
    Beacon& operator=(const Beacon&) = delete;

    // Begins pinging and pings (unless within the hour); later calls do nothing.
    void start();
    // Pings (unless within the hour) once start() has run.
    void applicationBecameActive();

    bool isEnabled() const { return !m_configuration.endpoint.empty(); }

    // The endpoint with exactly the items id, v, os and t as its query (any
    // query or fragment of the endpoint is dropped); empty when the endpoint
    // is not an http or https address.
    static std::string pingURI(const std::string& endpoint, const std::string& installID,
        const std::string& version, const std::string& systemVersion, double now);

    static constexpr double kMinimumInterval = 3600;
    static constexpr const char* kInstallIDKey = "OrvaneInstallID";
    static constexpr const char* kLastPingKey = "OrvaneLastPingAt";

private:
    void ping();
    std::string installID();
    void send(const std::string& uri);

    // Owned
    Configuration m_configuration;
    Preferences m_preferences;
    Clock m_clock;
    Sender m_sender;
    Ref<GCancellable> m_cancellable; // cancels every request in flight on teardown
    bool m_started = false;
};

} // namespace orvane
