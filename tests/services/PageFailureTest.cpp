#include "PageFailure.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Kind = PageFailure::Kind;

// Only real failures of the main load show the status page, and a page comes
// back by itself only where a reload can help.
TEST(PageFailureTest, OnlyRealFailuresShowTheStatusPageAndOnlySomeReloadByThemselves) {
    const std::string io = g_quark_to_string(G_IO_ERROR);
    const std::string resolver = g_quark_to_string(G_RESOLVER_ERROR), tls = g_quark_to_string(G_TLS_ERROR);
    const std::tuple<const char*, std::string, int, std::optional<Kind>> cases[] = {
        { "replaced by another load", "WebKitNetworkError", 302, std::nullopt },
        { "cancelled in the network layer", io, G_IO_ERROR_CANCELLED, std::nullopt },
        { "a link sent to the browser", "WebKitPolicyError", 102, std::nullopt },
        { "a response downloaded", "WebKitPolicyError", 101, std::nullopt },
        { "nothing listens", io, G_IO_ERROR_CONNECTION_REFUSED, Kind::NoNetwork },
        { "no route", io, G_IO_ERROR_NETWORK_UNREACHABLE, Kind::NoNetwork },
        { "WebKit's generic network failure", "WebKitNetworkError", 399, Kind::NoNetwork },
        { "name not resolved", resolver, G_RESOLVER_ERROR_NOT_FOUND, Kind::NameNotResolved },
        { "timed out", io, G_IO_ERROR_TIMED_OUT, Kind::TimedOut },
        { "bad certificate", tls, G_TLS_ERROR_BAD_CERTIFICATE, Kind::Insecure },
        { "another I/O error", io, G_IO_ERROR_FAILED, Kind::Other },
        { "an unknown domain", "soup-session-error-quark", 3, Kind::Other },
    };
    for (const auto& [what, domain, code, kind] : cases)
        EXPECT_EQ(PageFailure::ofLoadError(domain, code), kind) << what;

    const std::pair<unsigned, std::optional<Kind>> statuses[] = { { 200, {} }, { 404, {} }, { 499, {} },
        { 500, Kind::ServerError }, { 503, Kind::ServerError }, { 599, Kind::ServerError }, { 600, {} },
        { 0, {} } };
    for (auto [status, kind] : statuses)
        EXPECT_EQ(PageFailure::ofStatus(status), kind) << status;

    const std::pair<Kind, bool> reloads[] = { // the kind, and whether it reloads when online
        { Kind::NoNetwork, true }, { Kind::NameNotResolved, true }, { Kind::TimedOut, true },
        { Kind::Other, true },
        { Kind::ServerError, false }, { Kind::Insecure, false }, { Kind::Crashed, false },
        { Kind::OutOfMemory, false }, { Kind::NotResponding, false },
    };
    for (const auto& [kind, reloadsWhenOnline] : reloads)
        EXPECT_EQ(PageFailure::reloadsWhenOnline(kind), reloadsWhenOnline) << PageFailure::text(kind).title;

    const auto now = PageFailure::Clock::now();
    const std::tuple<const char*, std::optional<PageFailure::Clock::time_point>, bool> crashes[] = {
        { "the first", std::nullopt, true },
        { "a second soon after", now - 5s, false },
        { "a second just within the minute", now - 60s, false },
        { "a second after the minute", now - 61s, true },
    };
    for (const auto& [what, previous, reloadsAgain] : crashes)
        EXPECT_EQ(PageFailure::reloadsAfterCrash(previous, now), reloadsAgain) << what;
}

} // namespace
} // namespace orvane
