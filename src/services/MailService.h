#pragma once

#include "AccountService.h"
#include "MailtoComponents.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace orvane {

// Everything that differs between the web services Orvane hosts. The
// application's ServiceCatalog holds the three entries, read-only. Their home
// address, unread feed and in-app hosts may be replaced for the whole run by the JSON file
// named in ORVANE_SERVICE_OVERRIDES (self-hosted or regional deployments,
// and the test suite's local pages).
//
// Two host lists: the in-app hosts are where the account's view may go (the
// service, its sign-in pages); the own hosts are the service's own pages,
// the only ones whose titles name the account and whose frames may ask
// anything of Orvane. A page reached through a sign-in redirect or a script
// navigation stays in the view but is a stranger there.
struct MailService {
    using TitleCount = std::function<std::optional<int64_t>(const std::optional<std::string>& title)>;
    using TitleLabel = std::function<std::optional<std::string>(const std::optional<std::string>& title)>;
    using ComposeBuilder = std::function<std::string(const MailtoComponents&)>;

    std::string homeURL;
    std::string feedURL;                       // the unread Atom feed (AtomFeed); empty: none
    std::set<std::string> inAppHosts;          // lower case, exact host names
    std::set<std::string> ownHosts;            // lower case, exact host names
    std::optional<std::string> unreadPollJS;   // evaluated every 5 s; returns an integer
    TitleCount unread;
    TitleLabel label;
    ComposeBuilder composeJS;                  // empty when the service cannot compose
    std::optional<std::string> attachClickJS;  // async function body → {x, y} or null
    std::optional<std::string> photoJS;        // async function body(acctName) → text
    std::optional<std::string> typingJS;       // async function body → 'typed' or 'none'
    // Whether an idle account of the service may hibernate: not when its
    // unread count can only come from its live page.
    bool hibernates = true;

    // Resource names of the scripts above, for error messages that name a file.
    std::string composeScriptName;
    std::string attachScriptName;
    std::string photoScriptName;
    std::string unreadPollScriptName;
    std::string typingScriptName;

    // Whether an address or a serialized origin ("https://host[:port]") is
    // http or https on one of the own hosts. An opaque origin ("null") never is.
    bool ownsAddress(std::string_view address) const;

    // The entry of that service kind (mail or absent → Gmail), with the
    // overrides file at overridesPath applied (none when empty).
    static MailService build(std::optional<AccountService> service, const std::string& overridesPath);
};

// Public hosts Orvane knows by role (listed in docs/platform.md).
namespace ServiceHosts {
inline constexpr std::string_view kGmail = "mail.google.com";
inline constexpr std::string_view kGoogleSignIn = "accounts.google.com";
inline constexpr std::string_view kGoogleCalendar = "calendar.google.com";
inline constexpr std::string_view kGoogleMain = "google.com";
inline constexpr std::string_view kGoogleMainWWW = "www.google.com";
inline constexpr std::string_view kGoogleChat = "chat.google.com";
inline constexpr std::string_view kGoogleHangouts = "hangouts.google.com";
inline constexpr std::string_view kOutlook = "outlook.office.com";
inline constexpr std::string_view kOutlookAlternative = "outlook.live.com";
inline constexpr std::string_view kMicrosoftWorkSignIn = "login.microsoftonline.com";
inline constexpr std::string_view kMicrosoftPersonalSignIn = "login.live.com";
inline constexpr std::string_view kMicrosoftSignIn = "login.microsoft.com";
inline constexpr std::string_view kMicrosoftSignInLegacy = "login.windows.net";
inline constexpr std::string_view kMicrosoftAccount = "account.live.com";
} // namespace ServiceHosts

// The text as a JSON string literal (quotes included) for use inside a page
// script; "\"\"" if it cannot be encoded.
std::string jsonLiteral(std::string_view text);

} // namespace orvane
