#pragma once

#include <gio/gio.h>
#include <libsoup/soup.h>

#include <cstddef>
#include <functional>
#include <string>

namespace orvane {

// One GET through Orvane's shared libsoup session, by the rules every fetch
// of Orvane's own (account photos, images saved from a page, the update
// feed) shares:
// - only an http or https address with a host is fetched;
// - redirects are followed here, at most kMaxRedirects, and only to http or
//   https;
// - cookies, when given, go only to hops on the first address's host, and
//   only those that libsoup says apply there (domain, path, Secure, expiry);
//   none follow a redirect to another host;
// - only the body of a 2xx answer counts, and it is bounded twice: by the
//   announced length and by what arrives;
// - the whole fetch has a time-out.
class HTTPFetch {
public:
    struct Request {
        std::string address;
        size_t maxBytes = 10 * 1024 * 1024;
        unsigned timeoutMilliseconds = 60000;
        std::string userAgent; // empty: libsoup's own
        GList* cookies = nullptr; // SoupCookie, borrowed: copied by start()
        bool bypassCache = false;
    };

    enum class Failure {
        None,
        Address,   // not an http(s) address with a host, or a bad redirect
        Transport, // the connection or the read failed
        Status,    // an answer other than 2xx (after redirects)
        TooLarge,
        TimedOut,
        Cancelled, // by the caller's cancellable
    };

    struct Outcome {
        Failure failure = Failure::None;
        unsigned status = 0;     // the last answer's HTTP status, 0 without one
        std::string body;        // the whole body, only without a failure
        std::string contentType; // of the last answer, without parameters
        std::string error;       // the transport error's message
        bool ok() const { return failure == Failure::None; }
    };

    using Completion = std::function<void(Outcome)>;

    static constexpr int kMaxRedirects = 5;

    // Starts the fetch. The completion runs on the main thread exactly once,
    // never from inside start(), also when `cancellable` is cancelled.
    static void start(Request request, GCancellable* cancellable, Completion completion);
};

} // namespace orvane
