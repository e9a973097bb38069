#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace orvane {

// Why an account's page is not there, and what Orvane does about it. Pure:
// the web layer reports the facts (the load error's domain and code, the
// main resource's status, how the web process ended) and shows the status
// page this describes.
class PageFailure {
public:
    enum class Kind {
        NoNetwork,       // offline, or the server cannot be reached
        NameNotResolved, // the server's name does not resolve
        ServerError,     // the server answered the page with a 5xx status
        TimedOut,        // the page did not load within kLoadBound
        Insecure,        // the connection's certificate is not valid
        Crashed,         // the web process crashed or was killed
        OutOfMemory,     // the web process used more memory than allowed
        NotResponding,   // the web process no longer answers
        Other,           // any other load error
    };
    static constexpr std::chrono::seconds kLoadBound { 60 };
    // A second crash within this time after the last waits for the user.
    static constexpr std::chrono::seconds kCrashWindow { 60 };

    // What a failed main-frame load of this GError domain and code means;
    // nothing for a load that was merely cancelled or replaced by another.
    static std::optional<Kind> ofLoadError(const std::string& domain, int code);
    // A 5xx status of the main resource is a failure; every other status is
    // the server's own page.
    static std::optional<Kind> ofStatus(unsigned status);

    struct Text {
        const char* title;
        const char* description;
    };
    // What the status page says, in plain words.
    static Text text(Kind kind);
    // Whether the page reloads by itself when the network comes back.
    static bool reloadsWhenOnline(Kind kind);

    // Whether a crash now reloads the page by itself: the first does, and so
    // does one more than kCrashWindow after the last; the one before
    // (nothing when there was none) is when the last crash was.
    using Clock = std::chrono::steady_clock;
    static bool reloadsAfterCrash(std::optional<Clock::time_point> previousCrash, Clock::time_point now);
};

} // namespace orvane
