// What becomes of an account's page: when it may sleep, which failures show
// the status page, and which pages come back by themselves.
#include "HibernationPolicy.h"
#include "PageFailure.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Activity = HibernationPolicy::Activity;
using Limit = std::optional<HibernationPolicy::Seconds>;
using Kind = PageFailure::Kind;

TEST(PageLifecycleTest, SleepsOnlyWhenIdleForTheLimitAndOnlyRealFailuresShowTheStatusPage) {
    const std::tuple<const char*, Limit, Activity, std::chrono::steady_clock::duration, bool> cases[] = {
        { "idle for the limit", 900s, {}, 900s, true },
        { "idle a little less", 900s, {}, 899999ms, false },
        { "never", std::nullopt, {}, 1000h, false },
        { "selected", 2s, { .selected = true }, 1h, false },
        { "a pop-up open", 2s, { .popupOpen = true }, 1h, false },
        { "a compose form with text", 2s, { .composing = true }, 1h, false },
        { "media playing", 2s, { .playingMedia = true }, 1h, false },
        { "a download running", 2s, { .downloading = true }, 1h, false },
    };
    for (const auto& [what, limit, activity, idle, sleeps] : cases)
        EXPECT_EQ(HibernationPolicy(limit).maySleep(activity, idle), sleeps) << what;

    // The preference, the environment and the limit they make.
    const std::tuple<std::optional<double>, std::optional<std::string_view>, Limit> limits[] = {
        { 300, std::nullopt, 300s }, { 0, std::nullopt, std::nullopt }, { 1.2, std::nullopt, 2s },
        { -5, std::nullopt, 900s }, { 1e300, std::nullopt, HibernationPolicy::kLongestLimit },
        { 300, "2", 2s }, { 300, "0", std::nullopt }, { 300, "9999999999", HibernationPolicy::kLongestLimit },
        { 300, "99999999999999999999", 300s }, // past 64 bits
        { 300, "-2", 300s }, { 300, "2s", 300s },
    };
    for (const auto& [preference, environment, limit] : limits)
        EXPECT_EQ(HibernationPolicy::limitFrom(preference, environment), limit)
            << preference.value_or(-1) << " / " << environment.value_or("(unset)");

    // Which load errors are failures, and of what kind.
    const std::string io = g_quark_to_string(G_IO_ERROR);
    const std::string resolver = g_quark_to_string(G_RESOLVER_ERROR), tls = g_quark_to_string(G_TLS_ERROR);
    const std::tuple<const char*, std::string, int, std::optional<Kind>> errors[] = {
        { "replaced by another load", "WebKitNetworkError", 302, std::nullopt },
        { "cancelled in the network layer", io, G_IO_ERROR_CANCELLED, std::nullopt },
        { "a link sent to the browser", "WebKitPolicyError", 102, std::nullopt },
        { "nothing listens", io, G_IO_ERROR_CONNECTION_REFUSED, Kind::NoNetwork },
        { "WebKit's generic network failure", "WebKitNetworkError", 399, Kind::NoNetwork },
        { "name not resolved", resolver, G_RESOLVER_ERROR_NOT_FOUND, Kind::NameNotResolved },
        { "timed out", io, G_IO_ERROR_TIMED_OUT, Kind::TimedOut },
        { "bad certificate", tls, G_TLS_ERROR_BAD_CERTIFICATE, Kind::Insecure },
        { "another I/O error", io, G_IO_ERROR_FAILED, Kind::Other },
        { "an unknown domain", "soup-session-error-quark", 3, Kind::Other },
    };
    for (const auto& [what, domain, code, kind] : errors)
        EXPECT_EQ(PageFailure::ofLoadError(domain, code), kind) << what;

    // The bounds of the 5xx range.
    const std::pair<unsigned, std::optional<Kind>> statuses[] = { { 499, {} }, { 500, Kind::ServerError },
        { 599, Kind::ServerError }, { 600, {} } };
    for (auto [status, kind] : statuses)
        EXPECT_EQ(PageFailure::ofStatus(status), kind) << status;

    const auto now = PageFailure::Clock::now();
    const std::tuple<const char*, std::optional<PageFailure::Clock::time_point>, bool> crashes[] = {
        { "the first", std::nullopt, true },
        { "a second just within the minute", now - 60s, false },
        { "a second after the minute", now - 61s, true },
    };
    for (const auto& [what, previous, reloads] : crashes)
        EXPECT_EQ(PageFailure::reloadsAfterCrash(previous, now), reloads) << what;
}

} // namespace
} // namespace orvane
