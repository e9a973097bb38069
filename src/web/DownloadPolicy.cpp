#include "DownloadPolicy.h"

#include <libsoup/soup.h>

namespace orvane::DownloadPolicy {

namespace {

// Whether the headers' Content-Disposition asks for a download. libsoup parses
// the value, so a file name such as filename="attachment.pdf" on an inline
// response does not count.
bool isAttachment(SoupMessageHeaders* headers) {
    char* disposition = nullptr;
    if (!soup_message_headers_get_content_disposition(headers, &disposition, nullptr))
        return false;
    bool attachment = g_ascii_strcasecmp(disposition, "attachment") == 0;
    g_free(disposition);
    return attachment;
}

} // namespace

bool shouldDownload(WebKitResponsePolicyDecision* decision) {
    WebKitURIResponse* response = webkit_response_policy_decision_get_response(decision);
    // Only HTTP responses carry headers.
    if (SoupMessageHeaders* headers = response ? webkit_uri_response_get_http_headers(response) : nullptr) {
        if (isAttachment(headers))
            return true;
    }
    return !webkit_response_policy_decision_is_mime_type_supported(decision);
}

} // namespace orvane::DownloadPolicy
