#include "ExternalLink.h"

#include "GRef.h"
#include "MailService.h"

#include <glib.h>

#include <optional>

namespace orvane {

namespace {

struct Parsed {
    std::string host; // lower case
    std::string path; // still percent-encoded
    std::optional<std::string> query;
};

std::optional<Parsed> parse(const std::string& uri) {
    GUri* parsed = g_uri_parse(uri.c_str(), GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), nullptr);
    if (!parsed)
        return std::nullopt;
    Parsed result;
    if (const char* host = g_uri_get_host(parsed)) {
        GCharPtr lowered(g_ascii_strdown(host, -1));
        result.host = lowered.get();
    }
    result.path = g_uri_get_path(parsed);
    if (const char* query = g_uri_get_query(parsed))
        result.query = query;
    g_uri_unref(parsed);
    return result;
}

// The scheme in lower case, when the address starts with a well-formed one
// (a letter, then letters, digits, "+", "-" or ".", then ":").
std::string schemeOf(std::string_view address) {
    auto colon = address.find(':');
    if (colon == std::string_view::npos || colon == 0 || !g_ascii_isalpha(address[0]))
        return {};
    std::string scheme;
    for (char c : address.substr(0, colon)) {
        if (!g_ascii_isalnum(c) && c != '+' && c != '-' && c != '.')
            return {};
        scheme += g_ascii_tolower(c);
    }
    return scheme;
}

bool isWebScheme(const std::string& scheme) {
    return scheme == "http" || scheme == "https";
}

// The first query item named `name` (exact), when its value is an absolute
// http or https address. Names and values are percent-decoded ("+" stays a
// plus sign); a malformed escape or an item without "=" anywhere makes the
// whole query unreadable.
std::optional<std::string> param(const std::optional<std::string>& query, std::string_view name) {
    if (!query || query->empty())
        return std::nullopt;
    GUriParamsIter items;
    g_uri_params_iter_init(&items, query->c_str(), static_cast<gssize>(query->size()), "&", G_URI_PARAMS_NONE);
    std::optional<std::string> value;
    char* itemName = nullptr;
    char* itemValue = nullptr;
    GError* error = nullptr;
    while (g_uri_params_iter_next(&items, &itemName, &itemValue, &error)) {
        GCharPtr ownedName(itemName);
        GCharPtr ownedValue(itemValue);
        if (!value && name == ownedName.get()) {
            if (!ownedValue || !*ownedValue.get())
                return std::nullopt;
            value = ownedValue.get();
        }
    }
    if (error) {
        g_error_free(error);
        return std::nullopt;
    }
    if (!value || !isWebScheme(schemeOf(*value)))
        return std::nullopt;
    return value;
}

// The address a Google redirect wrapper on an http(s) address points at (one
// level), or the address itself.
std::string unwrapped(const std::string& address) {
    if (!isWebScheme(schemeOf(address)))
        return address;
    auto parsed = parse(address);
    if (!parsed)
        return address;
    if ((parsed->host == ServiceHosts::kGoogleMain || parsed->host == ServiceHosts::kGoogleMainWWW)
        && parsed->path == "/url") {
        if (auto target = param(parsed->query, "q"))
            return *target;
        if (auto target = param(parsed->query, "url"))
            return *target;
    }
    if (parsed->host == ServiceHosts::kGoogleSignIn) {
        if (auto target = param(parsed->query, "continue"))
            return *target;
    }
    return address;
}

// A host the desktop can be handed: a name of letters, digits, "-", "_" and
// "." (WebKit gives international names in their ASCII form), or an IPv6
// literal (GLib drops its brackets).
bool isPlainHost(const std::string& host) {
    if (host.empty())
        return false;
    if (host.find(':') != std::string::npos)
        return host.find_first_not_of("0123456789abcdef:.") == std::string::npos;
    return host.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_.") == std::string::npos;
}

// The address made fit for the desktop, when it is an http(s) address with a
// plain host: bytes a URL cannot hold (and a "%" that starts no escape) are
// percent-encoded first, and what is returned is exactly what was checked.
std::optional<std::string> webAddress(const std::string& address) {
    static const char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (size_t i = 0; i < address.size(); ++i) {
        auto c = static_cast<unsigned char>(address[i]);
        bool strayPercent = c == '%'
            && (i + 2 >= address.size() || !g_ascii_isxdigit(address[i + 1]) || !g_ascii_isxdigit(address[i + 2]));
        if (c <= 0x20 || c >= 0x7f || strayPercent) {
            encoded += '%';
            encoded += digits[c >> 4];
            encoded += digits[c & 15];
        } else {
            encoded += static_cast<char>(c);
        }
    }
    if (encoded.size() > ExternalLink::kMaxAddressBytes || !isWebScheme(schemeOf(encoded)))
        return std::nullopt;
    // GLib decodes escapes in the host; the desktop gets none to decode.
    auto authority = encoded.find(':') + 1;
    if (encoded.compare(authority, 2, "//") == 0) {
        auto end = encoded.find_first_of("/?#", authority + 2);
        if (encoded.substr(authority + 2, end - authority - 2).find('%') != std::string::npos)
            return std::nullopt;
    }
    auto parsed = parse(encoded);
    if (!parsed || !isPlainHost(parsed->host))
        return std::nullopt;
    return encoded;
}

} // namespace

ExternalLink externalLinkFor(std::string_view address) {
    if (address.empty() || address.size() > ExternalLink::kMaxAddressBytes)
        return {};
    // WebKit's addresses never hold control characters; one that does is not
    // handed on in any form.
    for (unsigned char c : address) {
        if (c < 0x20 || c == 0x7f)
            return {};
    }
    std::string scheme = schemeOf(address);
    if (scheme == "mailto")
        return { ExternalLink::Action::Mail, std::string(address) };
    if (!isWebScheme(scheme))
        return {};
    std::string original(address);
    std::string target = unwrapped(original);
    auto web = webAddress(target);
    if (!web && target != original)
        web = webAddress(original);
    if (!web)
        return {};
    return { ExternalLink::Action::Browser, *web };
}

} // namespace orvane
