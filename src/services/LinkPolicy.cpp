#include "LinkPolicy.h"

#include "GRef.h"

#include <glib.h>

namespace orvane {

std::string LinkPolicy::hostOf(const std::string& uri) {
    if (uri.size() > ExternalLink::kMaxAddressBytes)
        return {};
    GUri* parsed = g_uri_parse(uri.c_str(), GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), nullptr);
    if (!parsed)
        return {};
    const char* host = g_uri_get_host(parsed);
    GCharPtr lowered(host ? g_ascii_strdown(host, -1) : nullptr);
    g_uri_unref(parsed);
    return lowered ? std::string(lowered.get()) : std::string();
}

std::string LinkPolicy::schemeOf(const std::string& uri) {
    const char* scheme = g_uri_peek_scheme(uri.c_str()); // already in lower case
    return scheme ? std::string(scheme) : std::string();
}

bool LinkPolicy::isPageAddress(const std::string& uri) {
    std::string scheme = schemeOf(uri);
    return scheme == "http" || scheme == "https" || scheme == "about" || scheme == "blob" || scheme == "data";
}

ExternalLink LinkPolicy::leavingLink(const std::string& uri) const {
    ExternalLink link = externalLinkFor(uri);
    if (link.action == ExternalLink::Action::Browser && m_inAppHosts.contains(hostOf(link.address)))
        return {};
    return link;
}

std::string LinkPolicy::popupTitle(const std::string& uri) const {
    std::string scheme = schemeOf(uri);
    // A blob: address belongs to the page at the address inside it.
    std::string host = hostOf(scheme == "blob" ? uri.substr(5) : uri);
    if (uri.empty() || ((scheme == "http" || scheme == "https" || scheme == "blob") && m_inAppHosts.contains(host)))
        return "Orvane";
    if (!host.empty())
        return "Orvane — " + host;
    // about:blank and about:srcdoc say what they are; data: pages only their scheme.
    constexpr size_t kMaxShown = 32;
    return "Orvane — " + (scheme == "about" ? uri.substr(0, kMaxShown) : scheme + ":");
}

} // namespace orvane
