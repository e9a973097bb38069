#include "services/MailService.h"

#include "base/Files.h"
#include "base/GRef.h"
#include "base/PageScripts.h"
#include "services/ScriptTemplate.h"
#include "services/TitleParsers.h"

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

constexpr const char* kGmailCompose = "services/gmail-compose.js";
constexpr const char* kOutlookCompose = "services/outlook-compose.js";
constexpr const char* kOutlookUnread = "services/outlook-unread.js";
constexpr const char* kGmailAttach = "services/gmail-attach.js";
constexpr const char* kOutlookAttach = "services/outlook-attach.js";
constexpr const char* kGmailPhoto = "services/gmail-photo.js";
constexpr const char* kOutlookPhoto = "services/outlook-photo.js";

std::string gmailComposeJS(const MailtoComponents& c) {
    return fillTemplate(PageScripts::text(kGmailCompose), {
        { "__ORVANE_TO__", jsonLiteral(joined(c.to, ", ")) },
        { "__ORVANE_SUBJECT__", jsonLiteral(c.subject.value_or("")) },
        { "__ORVANE_BODY__", jsonLiteral(c.body.value_or("")) },
    });
}

std::string outlookComposeJS(const MailtoComponents& c) {
    std::vector<std::string> literals;
    for (const auto& address : c.to)
        literals.push_back(jsonLiteral(address));
    return fillTemplate(PageScripts::text(kOutlookCompose), {
        { "__ORVANE_SUBJECT__", jsonLiteral(c.subject.value_or("")) },
        { "__ORVANE_TO__", "[" + joined(literals, ",") + "]" },
        { "__ORVANE_BODY__", jsonLiteral(c.body.value_or("")) },
    });
}

std::optional<int64_t> noCount(const std::optional<std::string>&) { return std::nullopt; }
std::optional<std::string> noLabel(const std::optional<std::string>&) { return std::nullopt; }

// Replaces homeURL and inAppHosts from ORVANE_SERVICE_OVERRIDES. A missing or
// bad file, entry or field leaves the built-in value.
void applyOverrides(MailService& service, const char* key) {
    const char* path = g_getenv("ORVANE_SERVICE_OVERRIDES");
    if (!path || !*path)
        return;
    auto bytes = Files::read(path, 1024 * 1024);
    if (!bytes)
        return;
    auto root = nlohmann::json::parse(*bytes, nullptr, false);
    if (!root.is_object() || !root.contains(key) || !root[key].is_object())
        return;
    const auto& entry = root[key];
    if (auto home = entry.find("homeURL"); home != entry.end() && home->is_string()) {
        const std::string& text = home->get_ref<const std::string&>();
        GUri* uri = g_uri_parse(text.c_str(), G_URI_FLAGS_NONE, nullptr);
        if (uri) {
            const char* scheme = g_uri_get_scheme(uri);
            bool web = scheme && (g_str_equal(scheme, "http") || g_str_equal(scheme, "https")) && g_uri_get_host(uri);
            if (web)
                service.homeURL = text;
            g_uri_unref(uri);
        }
    }
    if (auto hosts = entry.find("inAppHosts"); hosts != entry.end() && hosts->is_array()) {
        std::set<std::string> parsed;
        for (const auto& host : *hosts) {
            if (!host.is_string() || host.get_ref<const std::string&>().empty())
                return;
            GCharPtr lower(g_ascii_strdown(host.get_ref<const std::string&>().c_str(), -1));
            parsed.insert(lower.get());
        }
        service.inAppHosts = std::move(parsed);
    }
}

MailService makeGmail() {
    MailService s;
    s.homeURL = "https://mail.google.com/";
    s.inAppHosts = { std::string(ServiceHosts::kGmail), std::string(ServiceHosts::kGoogleSignIn) };
    s.unread = TitleParsers::gmailInboxUnread;
    s.label = TitleParsers::gmailEmail;
    s.composeJS = gmailComposeJS;
    s.attachClickJS = script(kGmailAttach);
    s.photoJS = script(kGmailPhoto);
    s.composeScriptName = kGmailCompose;
    s.attachScriptName = kGmailAttach;
    s.photoScriptName = kGmailPhoto;
    applyOverrides(s, "gmail");
    return s;
}

MailService makeCalendar() {
    MailService s;
    s.homeURL = "https://calendar.google.com/";
    s.inAppHosts = { std::string(ServiceHosts::kGoogleCalendar), std::string(ServiceHosts::kGoogleSignIn) };
    s.unread = noCount;
    s.label = noLabel;
    applyOverrides(s, "calendar");
    return s;
}

MailService makeOutlook() {
    MailService s;
    s.homeURL = "https://outlook.office.com/mail/";
    s.inAppHosts = {
        "outlook.office.com",        // Outlook on the web
        "outlook.live.com",          // its alternative host (personal accounts)
        "login.microsoftonline.com", // work or school sign-in
        "login.live.com",            // personal-account sign-in
        "login.microsoft.com",       // further sign-in hosts
        "login.windows.net",
        "account.live.com",          // Microsoft account pages
    };
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
    applyOverrides(s, "outlook");
    return s;
}

} // namespace

const MailService& MailService::gmail() {
    static const MailService entry = makeGmail();
    return entry;
}

const MailService& MailService::calendar() {
    static const MailService entry = makeCalendar();
    return entry;
}

const MailService& MailService::outlook() {
    static const MailService entry = makeOutlook();
    return entry;
}

const MailService& MailService::forService(std::optional<AccountService> service) {
    switch (service.value_or(AccountService::Mail)) {
    case AccountService::Calendar:
        return calendar();
    case AccountService::Outlook:
        return outlook();
    case AccountService::Mail:
        break;
    }
    return gmail();
}

} // namespace orvane
