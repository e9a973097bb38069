#pragma once

#include <libsoup/soup.h>
#include <webkit/webkit.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace orvane {

// Fetches an image outside the page (HTTPFetch, through Orvane's shared
// libsoup session), with the account's cookies for the image's address taken
// from the account's own network session. Cookies go only where libsoup says
// they apply on the image's host (domain, path, Secure, expiry), and not at
// all after a redirect to another host. Redirects are followed at most
// HTTPFetch::kMaxRedirects times, and only to http or https.
class NativeImageFetch {
public:
    struct Result {
        std::string data;
        std::string name; // the address's last path component, or "image" + extension
    };
    using Completion = std::function<void(std::optional<Result>)>;

    static constexpr size_t kMaxBytes = 32 * 1024 * 1024;
    static constexpr unsigned kTimeoutSeconds = 60;

    // Fetches `src` (http or https only). The completion runs on the main
    // thread once, with nothing for any failure (bad address or scheme,
    // transport error, status outside 200-299, an empty or too large body,
    // the time-out); when `cancellable` is cancelled it is not called at all.
    static void start(WebKitNetworkSession* session, const std::string& src, const std::string& userAgent,
        GCancellable* cancellable, Completion completion);
};

} // namespace orvane
