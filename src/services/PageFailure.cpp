#include "PageFailure.h"

#include <gio/gio.h>

namespace orvane {

namespace {

// WebKit's own error domain and codes (webkit/WebKitError.h), which the core
// does not include.
constexpr const char* kWebKitNetworkError = "WebKitNetworkError";
constexpr int kWebKitNetworkFailed = 399;
constexpr int kWebKitNetworkCancelled = 302;
constexpr const char* kWebKitPolicyError = "WebKitPolicyError";

} // namespace

std::optional<PageFailure::Kind> PageFailure::ofLoadError(const std::string& domain, int code) {
    if (domain == kWebKitNetworkError && code == kWebKitNetworkCancelled)
        return std::nullopt;
    // A navigation Orvane turned away (a link for the browser) or a response
    // downloaded instead of shown.
    if (domain == kWebKitPolicyError)
        return std::nullopt;
    if (domain == g_quark_to_string(G_RESOLVER_ERROR))
        return Kind::NameNotResolved;
    if (domain == g_quark_to_string(G_IO_ERROR)) {
        switch (code) {
        case G_IO_ERROR_CANCELLED:
            return std::nullopt;
        case G_IO_ERROR_TIMED_OUT:
            return Kind::TimedOut;
        case G_IO_ERROR_CONNECTION_REFUSED:
        case G_IO_ERROR_HOST_UNREACHABLE:
        case G_IO_ERROR_NETWORK_UNREACHABLE:
        case G_IO_ERROR_CONNECTION_CLOSED:
        case G_IO_ERROR_NOT_CONNECTED:
            return Kind::NoNetwork;
        default:
            return Kind::Other;
        }
    }
    if (domain == g_quark_to_string(G_TLS_ERROR))
        return Kind::Insecure;
    if (domain == kWebKitNetworkError && code == kWebKitNetworkFailed)
        return Kind::NoNetwork;
    return Kind::Other;
}

std::optional<PageFailure::Kind> PageFailure::ofStatus(unsigned status) {
    if (status >= 500 && status <= 599)
        return Kind::ServerError;
    return std::nullopt;
}

PageFailure::Text PageFailure::text(Kind kind) {
    switch (kind) {
    case Kind::NoNetwork:
        return { "No Connection", "The server cannot be reached. The page reloads when the network is back." };
    case Kind::NameNotResolved:
        return { "Server Not Found", "The server's name could not be found. Check the network connection." };
    case Kind::ServerError:
        return { "Server Error", "The server could not show the page. It may work again in a moment." };
    case Kind::TimedOut:
        return { "The Page Takes Too Long", "The page did not load within a minute." };
    case Kind::Insecure:
        return { "Connection Not Secure", "The server's certificate is not valid, so the page was not loaded." };
    case Kind::Crashed:
        return { "The Page Stopped", "The page crashed or was ended." };
    case Kind::OutOfMemory:
        return { "The Page Used Too Much Memory", "The page was ended because it used too much memory." };
    case Kind::NotResponding:
        return { "The Page Does Not Respond", "The page is busy or stuck. Reload it to start it again." };
    case Kind::Other:
        break;
    }
    return { "The Page Could Not Load", "Something went wrong while loading the page." };
}

bool PageFailure::reloadsWhenOnline(Kind kind) {
    switch (kind) {
    case Kind::NoNetwork:
    case Kind::NameNotResolved:
    case Kind::TimedOut:
    case Kind::Other:
        return true;
    case Kind::ServerError:
    case Kind::Insecure:
    case Kind::Crashed:
    case Kind::OutOfMemory:
    case Kind::NotResponding:
        return false;
    }
    return false;
}

bool PageFailure::reloadsAfterCrash(std::optional<Clock::time_point> previousCrash, Clock::time_point now) {
    return !previousCrash || now - *previousCrash > kCrashWindow;
}

} // namespace orvane
