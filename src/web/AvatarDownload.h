#pragma once

#include <gio/gio.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace orvane {

// A plain GET of an account photo (HTTPFetch, through Orvane's own session):
// not an account's network session, so no cookies or storage of any account
// go with it, and no extra headers. Only the body of a successful (2xx)
// answer counts: an error page is never taken for the photo, whatever it
// holds.
class AvatarDownload {
public:
    using Completion = std::function<void(std::optional<std::string> body)>;

    // Longest body accepted; a longer one ends the attempt.
    static constexpr size_t kMaxBytes = 10 * 1024 * 1024;
    // A server that has not finished by then ends the attempt.
    static constexpr unsigned kTimeoutSeconds = 60;

    // Fetches an http or https address. The completion runs on the main
    // thread exactly once, never from inside start(): with the whole body,
    // or with nothing for another scheme, an address that does not parse, a
    // transport error, a status other than 2xx, an empty or too long body,
    // the time-out, or `cancellable` being cancelled.
    static void start(const std::string& address, GCancellable* cancellable, Completion completion);
};

} // namespace orvane
