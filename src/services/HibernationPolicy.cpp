#include "HibernationPolicy.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace orvane {

namespace {

std::optional<HibernationPolicy::Seconds> fromSeconds(double seconds) {
    if (seconds == 0)
        return std::nullopt;
    double longest = double(HibernationPolicy::kLongestLimit.count());
    return HibernationPolicy::Seconds(int64_t(std::clamp(std::ceil(seconds), 1.0, longest)));
}

} // namespace

std::optional<HibernationPolicy::Seconds> HibernationPolicy::limitFrom(std::optional<double> preference,
    std::optional<std::string_view> environment) {
    if (environment && !environment->empty() && environment->size() <= 20) {
        uint64_t seconds = 0;
        auto [end, error] = std::from_chars(environment->data(), environment->data() + environment->size(), seconds);
        if (error == std::errc() && end == environment->data() + environment->size())
            return fromSeconds(double(std::min<uint64_t>(seconds, kLongestLimit.count())));
    }
    if (preference && std::isfinite(*preference) && *preference >= 0)
        return fromSeconds(*preference);
    return kDefaultLimit;
}

} // namespace orvane
