#include "MailService.h"

#include "Files.h"
#include "GRef.h"
#include "PageScripts.h"
#include "ScriptTemplate.h"
#include "Text.h"
#include "TitleParsers.h"

#include <glib.h>
#include <nlohmann/json.hpp>

namespace orvane {

std::string jsonLiteral(std::string_view text) {
    std::string literal;
    try {
        literal = nlohmann::json(std::string(text)).dump();
    } catch (const nlohmann::json::exception&) {
        return "\"\"";
    }
    // JSON allows U+2028 and U+2029 raw inside strings; older script engines
    // do not. Escape them so the literal is valid script everywhere.
    std::string out;
    out.reserve(literal.size());
    for (size_t i = 0; i < literal.size(); ++i) {
        if (literal.compare(i, 3, "\xE2\x80\xA8") == 0) {
            out += "\\u2028";
            i += 2;
        } else if (literal.compare(i, 3, "\xE2\x80\xA9") == 0) {
            out += "\\u2029";
            i += 2;
        } else if (literal[i] == '/') {
            out += "\\/"; // keeps "</script>" inert if a script ever lands in markup
        } else {
            out += literal[i];
        }
    }
    return out;
}

namespace {

std::string joined(const std::vector<std::string>& list, std::string_view separator) {
    std::string out;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i)
            out += separator;
        out += list[i];
    }
    return out;
}

std::string script(std::string_view name) {
    return std::string(PageScripts::text(name));
}

// The filled script ends with the call's ");", without the file's last newline.
std::string trimmedEnd(const std::string& text) {
    return std::string(Text::trimmedEnd(text, Text::isASCIISpace));
}

constexpr const char* kGmailCompose = "services/gmail-compose.js";
constexpr const char* kOutlookCompose = "services/outlook-compose.js";
constexpr const char* kOutlookUnread = "services/outlook-unread.js";
constexpr const char* kGmailAttach = "services/gmail-attach.js";
constexpr const char* kOutlookAttach = "services/outlook-attach.js";
constexpr const char* kGmailPhoto = "services/gmail-photo.js";
constexpr const char* kOutlookPhoto = "services/outlook-photo.js";
constexpr const char* kGmailTyping = "services/gmail-typing.js";

std::string gmailComposeJS(const MailtoComponents& c) {
    return trimmedEnd(fillTemplate(PageScripts::text(kGmailCompose), {
        { "__ORVANE_TO__", jsonLiteral(joined(c.to, ", ")) },
        { "__ORVANE_SUBJECT__", jsonLiteral(c.subject.value_or("")) },
        { "__ORVANE_BODY__", jsonLiteral(c.body.value_or("")) },
    }));
}

std::string outlookComposeJS(const MailtoComponents& c) {
    std::vector<std::string> literals;
    for (const auto& address : c.to)
        literals.push_back(jsonLiteral(address));
    return trimmedEnd(fillTemplate(PageScripts::text(kOutlookCompose), {
        { "__ORVANE_SUBJECT__", jsonLiteral(c.subject.value_or("")) },
        { "__ORVANE_TO__", "[" + joined(literals, ",") + "]" },
        { "__ORVANE_BODY__", jsonLiteral(c.body.value_or("")) },
    }));
}

std::optional<int64_t> noCount(const std::optional<std::string>&) { return std::nullopt; }
std::optional<std::string> noLabel(const std::optional<std::string>&) { return std::nullopt; }

// A web address Orvane may load as a home page: http or https with a host.
bool isWebAddress(const std::string& text) {
    GUri* uri = g_uri_parse(text.c_str(), G_URI_FLAGS_NONE, nullptr);
    if (!uri)
        return false;
    const char* scheme = g_uri_get_scheme(uri);
    const char* host = g_uri_get_host(uri);
    bool web = scheme && (g_str_equal(scheme, "http") || g_str_equal(scheme, "https")) && host && *host;
    g_uri_unref(uri);
    return web;
}

// A bare host name as a URL carries it: no scheme, port, path, user or space.
bool isHostName(const std::string& text) {
    if (text.empty() || text.size() > 253)
        return false;
    for (unsigned char c : text) {
        if (c <= ' ' || c == 0x7F || std::string_view("/\\?#@:[]%").find(static_cast<char>(c)) != std::string_view::npos)
            return false;
    }
    return true;
}

// The lower-case host of an http or https address, or nothing.
std::optional<std::string> webHost(std::string_view address) {
    if (address.empty() || address.size() > 64 * 1024)
        return std::nullopt;
    std::string text(address);
    GUri* uri = g_uri_parse(text.c_str(), GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), nullptr);
    if (!uri)
        return std::nullopt;
    const char* scheme = g_uri_get_scheme(uri);
    const char* host = g_uri_get_host(uri);
    std::optional<std::string> result;
    if (scheme && host && *host && (g_ascii_strcasecmp(scheme, "http") == 0 || g_ascii_strcasecmp(scheme, "https") == 0)) {
        GCharPtr lower(g_ascii_strdown(host, -1));
        result = lower.get();
    }
    g_uri_unref(uri);
    return result;
}

void applyOverridesFile(MailService& service, const char* key, const std::string& path) {
    if (path.empty())
        return;
    auto bytes = Files::read(path, 1024 * 1024);
    if (!bytes)
        return;
    const auto root = nlohmann::json::parse(*bytes, nullptr, false);
    if (!root.is_object())
        return;
    auto entry = root.find(key);
    if (entry == root.end() || !entry->is_object())
        return;
    for (auto [name, field] : { std::pair { "homeURL", &service.homeURL }, { "feedURL", &service.feedURL } }) {
        auto value = entry->find(name);
        if (value != entry->end() && value->is_string() && isWebAddress(value->get_ref<const std::string&>()))
            *field = value->get_ref<const std::string&>();
    }
    if (auto hosts = entry->find("inAppHosts"); hosts != entry->end() && hosts->is_array() && !hosts->empty()) {
        std::set<std::string> parsed;
        for (const auto& host : *hosts) {
            if (!host.is_string() || !isHostName(host.get_ref<const std::string&>()))
                return;
            GCharPtr lower(g_ascii_strdown(host.get_ref<const std::string&>().c_str(), -1));
            parsed.insert(lower.get());
        }
        service.ownHosts = parsed;
        service.inAppHosts = std::move(parsed);
    }
}

// Replaces homeURL, feedURL and inAppHosts from the overrides file. A missing or bad
// file, entry or field leaves the built-in value; one bad host drops the
// whole list, and so does an empty list (nothing would stay in the app).
// Replaced in-app hosts are the deployment's own hosts as well. The home
// page's host is always an own host.
void applyOverrides(MailService& service, const char* key, const std::string& path) {
    applyOverridesFile(service, key, path);
    if (auto host = webHost(service.homeURL))
        service.ownHosts.insert(*host);
}

MailService makeGmail(const std::string& overridesPath) {
    MailService s;
    s.homeURL = "https://" + std::string(ServiceHosts::kGmail) + "/";
    s.feedURL = "https://" + std::string(ServiceHosts::kGmail) + "/mail/u/0/feed/atom";
    s.inAppHosts = { std::string(ServiceHosts::kGmail), std::string(ServiceHosts::kGoogleSignIn) };
    // Gmail shows Google Chat in frames of its own hosts.
    s.ownHosts = { std::string(ServiceHosts::kGmail), std::string(ServiceHosts::kGoogleChat),
        std::string(ServiceHosts::kGoogleHangouts) };
    s.unread = TitleParsers::gmailInboxUnread;
    s.label = TitleParsers::gmailEmail;
    s.composeJS = gmailComposeJS;
    s.attachClickJS = script(kGmailAttach);
    s.photoJS = script(kGmailPhoto);
    s.composeScriptName = kGmailCompose;
    s.attachScriptName = kGmailAttach;
    s.photoScriptName = kGmailPhoto;
    s.typingJS = script(kGmailTyping);
    s.typingScriptName = kGmailTyping;
    applyOverrides(s, "gmail", overridesPath);
    return s;
}

MailService makeCalendar(const std::string& overridesPath) {
    MailService s;
    s.homeURL = "https://" + std::string(ServiceHosts::kGoogleCalendar) + "/";
    s.inAppHosts = { std::string(ServiceHosts::kGoogleCalendar), std::string(ServiceHosts::kGoogleSignIn) };
    s.ownHosts = { std::string(ServiceHosts::kGoogleCalendar) };
    s.unread = noCount;
    s.label = noLabel;
    applyOverrides(s, "calendar", overridesPath);
    return s;
}

MailService makeOutlook(const std::string& overridesPath) {
    MailService s;
    s.homeURL = "https://" + std::string(ServiceHosts::kOutlook) + "/mail/";
    s.inAppHosts = {
        std::string(ServiceHosts::kOutlook),
        std::string(ServiceHosts::kOutlookAlternative),
        std::string(ServiceHosts::kMicrosoftWorkSignIn),
        std::string(ServiceHosts::kMicrosoftPersonalSignIn),
        std::string(ServiceHosts::kMicrosoftSignIn),
        std::string(ServiceHosts::kMicrosoftSignInLegacy),
        std::string(ServiceHosts::kMicrosoftAccount),
    };
    s.ownHosts = { std::string(ServiceHosts::kOutlook), std::string(ServiceHosts::kOutlookAlternative) };
    s.unreadPollJS = script(kOutlookUnread);
    s.unread = noCount;
    s.label = TitleParsers::outlookName;
    s.composeJS = outlookComposeJS;
    s.attachClickJS = script(kOutlookAttach);
    s.photoJS = script(kOutlookPhoto);
    s.composeScriptName = kOutlookCompose;
    s.attachScriptName = kOutlookAttach;
    s.photoScriptName = kOutlookPhoto;
    s.unreadPollScriptName = kOutlookUnread;
    s.hibernates = false;
    applyOverrides(s, "outlook", overridesPath);
    return s;
}

} // namespace

bool MailService::ownsAddress(std::string_view address) const {
    auto host = webHost(address);
    return host && ownHosts.contains(*host);
}

MailService MailService::build(std::optional<AccountService> service, const std::string& overridesPath) {
    switch (service.value_or(AccountService::Mail)) {
    case AccountService::Calendar:
        return makeCalendar(overridesPath);
    case AccountService::Outlook:
        return makeOutlook(overridesPath);
    case AccountService::Mail:
        break;
    }
    return makeGmail(overridesPath);
}

} // namespace orvane
