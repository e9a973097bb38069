#pragma once

#include <libsoup/soup.h>
#include <webkit/webkit.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// Fetches an image outside the page, through Orvane's shared libsoup session,
// with the account's cookies for the image's host taken from the account's own
// network session. Cookies go only to that host (a cookie of a parent domain
// counts, a host-only cookie of another host does not), never a Secure cookie
// over plain http, and not at all after a redirect to another host. Redirects
// are followed here, at most kMaxRedirects, and only to http or https.
class NativeImageFetch {
public:
    struct Result {
        std::string data;
        std::string name; // the address's last path component, or "image" + extension
    };
    using Completion = std::function<void(std::optional<Result>)>;

    static constexpr size_t kMaxBytes = 32 * 1024 * 1024;
    static constexpr int kMaxRedirects = 5;
    static constexpr unsigned kTimeoutSeconds = 60;

    // Fetches `src` (http or https only). The completion runs on the main
    // thread once, with nothing for any failure (bad address or scheme,
    // transport error, status outside 200-299, an empty or too large body,
    // the time-out); when `cancellable` is cancelled it is not called at all.
    static void start(WebKitNetworkSession* session, const std::string& src, const std::string& userAgent,
        GCancellable* cancellable, Completion completion);

    // Whether a cookie of `domain` goes to `host` (both compared in lower case).
    static bool domainMatches(std::string_view domain, std::string_view host);
    // The Cookie header for a request to `host` out of a list of SoupCookie,
    // or "" when none applies.
    static std::string cookieHeader(GList* cookies, std::string_view host, bool secureScheme);

    struct Task; // one fetch in flight (NativeImageFetch.cpp)
};

} // namespace orvane
