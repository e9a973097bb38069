#pragma once

#include <webkit/webkit.h>

#include <string_view>

namespace orvane::DownloadPolicy {

// Whether a Content-Disposition value asks for a download: it contains
// "attachment" in any letter case.
bool isAttachment(std::string_view contentDisposition);

// The decision for a response: an HTTP response whose Content-Disposition is
// an attachment is downloaded; otherwise it is shown when WebKit can show its
// MIME type and downloaded when it cannot. Non-HTTP responses skip the header
// rule.
bool shouldDownload(WebKitResponsePolicyDecision* decision);

} // namespace orvane::DownloadPolicy
