// Addresses leaving an account's pages: links and window.open.

#include "ExternalLink.h"
#include "FuzzCheck.h"
#include "GRef.h"
#include "MailService.h"

#include <cstring>

using orvane::ExternalLink;

namespace {

bool hasScheme(std::string_view address, const char* scheme) {
    size_t length = std::strlen(scheme);
    return address.size() > length && address[length] == ':'
        && g_ascii_strncasecmp(address.data(), scheme, length) == 0;
}

// Google's redirect wrappers are unwrapped one level only, and one whose
// query cannot be read is handed on as it is: fed back, such an address may
// unwrap (further), so for those the address can change.
bool isGoogleWrapper(const std::string& address) {
    GUri* uri = g_uri_parse(address.c_str(), GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), nullptr);
    if (!uri)
        return false;
    orvane::GCharPtr lowered(g_uri_get_host(uri) ? g_ascii_strdown(g_uri_get_host(uri), -1) : nullptr);
    std::string host = lowered ? lowered.get() : "";
    std::string path = g_uri_get_path(uri);
    bool hasQuery = g_uri_get_query(uri) != nullptr;
    g_uri_unref(uri);
    namespace Hosts = orvane::ServiceHosts;
    return hasQuery
        && (((host == Hosts::kGoogleMain || host == Hosts::kGoogleMainWWW) && path == "/url")
            || host == Hosts::kGoogleSignIn);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view address = orvane::fuzz::text(data, size);
    ExternalLink link = orvane::externalLinkFor(address);
    switch (link.action) {
    case ExternalLink::Action::Nothing:
        FUZZ_CHECK(link.address.empty());
        break;
    case ExternalLink::Action::Mail:
        FUZZ_CHECK(link.address == address && hasScheme(link.address, "mailto"));
        break;
    case ExternalLink::Action::Browser: {
        FUZZ_CHECK(hasScheme(link.address, "http") || hasScheme(link.address, "https"));
        FUZZ_CHECK(link.address.size() <= ExternalLink::kMaxAddressBytes);
        for (unsigned char c : link.address)
            FUZZ_CHECK(c > 0x20 && c < 0x7f);
        // What the browser gets is an address that was checked as it is.
        ExternalLink again = orvane::externalLinkFor(link.address);
        FUZZ_CHECK(again.action == ExternalLink::Action::Browser);
        FUZZ_CHECK(again.address == link.address || isGoogleWrapper(link.address));
        break;
    }
    }
    return 0;
}
