#include "AvatarDownload.h"

#include "HTTPFetch.h"

namespace orvane {

void AvatarDownload::start(const std::string& address, GCancellable* cancellable, Completion completion) {
    HTTPFetch::Request request;
    request.address = address;
    request.maxBytes = kMaxBytes;
    request.timeoutMilliseconds = kTimeoutSeconds * 1000;
    HTTPFetch::start(std::move(request), cancellable, [completion = std::move(completion)](HTTPFetch::Outcome outcome) {
        if (outcome.failure == HTTPFetch::Failure::Status)
            g_info("Refused an account photo answered with HTTP status %u", outcome.status);
        if (!outcome.ok() || outcome.body.empty())
            return completion(std::nullopt);
        completion(std::move(outcome.body));
    });
}

} // namespace orvane
