#pragma once

#include <webkit/webkit.h>

namespace orvane::DownloadPolicy {

// The decision for a response: an HTTP response whose Content-Disposition is
// of type attachment is downloaded; otherwise it is shown when WebKit can show its
// MIME type and downloaded when it cannot. Non-HTTP responses skip the header
// rule.
bool shouldDownload(WebKitResponsePolicyDecision* decision);

} // namespace orvane::DownloadPolicy
