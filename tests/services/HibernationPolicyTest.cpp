#include "HibernationPolicy.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Activity = HibernationPolicy::Activity;
using Limit = std::optional<HibernationPolicy::Seconds>;

// An account sleeps only when idle for the limit with nothing keeping it
// awake; the environment replaces the preference and bad values fall back.
TEST(HibernationPolicyTest, SleepsOnlyWhenIdleForTheLimitWhichTheEnvironmentMayReplace) {
    const std::tuple<const char*, Limit, Activity, std::chrono::steady_clock::duration, bool> cases[] = {
        { "idle for the limit", 900s, {}, 900s, true },
        { "idle a little less", 900s, {}, 899999ms, false },
        { "never", std::nullopt, {}, 1000h, false },
        { "selected", 2s, { .selected = true }, 1h, false },
        { "a pop-up open", 2s, { .popupOpen = true }, 1h, false },
        { "a compose form with text", 2s, { .composing = true }, 1h, false },
        { "media playing", 2s, { .playingMedia = true }, 1h, false },
        { "a download running", 2s, { .downloading = true }, 1h, false },
        { "everything at once", 2s, { true, true, true, true, true }, 1h, false },
    };
    for (const auto& [what, limit, activity, idle, sleeps] : cases)
        EXPECT_EQ(HibernationPolicy(limit).maySleep(activity, idle), sleeps) << what;

    // The preference, the environment and the limit they make.
    const std::tuple<std::optional<double>, std::optional<std::string_view>, Limit> limits[] = {
        { std::nullopt, std::nullopt, 900s },
        { 300, std::nullopt, 300s },
        { 0, std::nullopt, std::nullopt },
        { 1.2, std::nullopt, 2s },
        { -5, std::nullopt, 900s },
        { 1e300, std::nullopt, HibernationPolicy::kLongestLimit },
        { 300, "2", 2s },
        { 300, "0", std::nullopt },
        { 0, "60", 60s },
        { 300, "9999999999", HibernationPolicy::kLongestLimit },
        { 300, "99999999999999999999", 300s }, // past 64 bits
        { 300, "-2", 300s },
        { 300, "2s", 300s },
        { 300, " 2", 300s },
        { 300, "", 300s },
    };
    for (const auto& [preference, environment, limit] : limits)
        EXPECT_EQ(HibernationPolicy::limitFrom(preference, environment), limit)
            << preference.value_or(-1) << " / " << environment.value_or("(unset)");
}

} // namespace
} // namespace orvane
