#include "DownloadPolicy.h"

#include "GRef.h"

#include <libsoup/soup.h>

namespace orvane::DownloadPolicy {

bool isAttachment(std::string_view contentDisposition) {
    GCharPtr lower(g_ascii_strdown(contentDisposition.data(), static_cast<gssize>(contentDisposition.size())));
    return lower && std::string_view(lower.get()).find("attachment") != std::string_view::npos;
}

bool shouldDownload(WebKitResponsePolicyDecision* decision) {
    WebKitURIResponse* response = webkit_response_policy_decision_get_response(decision);
    // Only HTTP responses carry headers.
    if (SoupMessageHeaders* headers = response ? webkit_uri_response_get_http_headers(response) : nullptr) {
        const char* disposition = soup_message_headers_get_one(headers, "Content-Disposition");
        if (disposition && isAttachment(disposition))
            return true;
    }
    return !webkit_response_policy_decision_is_mime_type_supported(decision);
}

} // namespace orvane::DownloadPolicy
