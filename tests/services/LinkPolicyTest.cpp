#include "LinkPolicy.h"

#include "support/TestServices.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace orvane::test {
namespace {

// Which addresses leave an account, with the real hosts (no overrides are set
// in this test, so the catalogue is the built-in one); externalLinkFor's own
// rules are in ExternalLinkTest.
TEST(LinkPolicy, InAppHostsKeepTheirAddressesAndPopupTitlesNameOthers) {
    using Action = ExternalLink::Action;
    const LinkPolicy gmail(testServices().gmail());
    const LinkPolicy calendar(testServices().forService(AccountService::Calendar));
    const LinkPolicy outlook(testServices().outlook());
    const std::tuple<const LinkPolicy&, std::string, Action> cases[] = {
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fexample.org%2F", Action::Browser },
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fmail.google.com%2Fmail%2F", Action::Nothing },
        { gmail, "https://accounts.google.com/x?continue=https://mail.google.com/", Action::Nothing },
        { gmail, "https://MAIL.google.com/mail/u/0/", Action::Nothing },
        { gmail, "https://sub.mail.google.com/", Action::Browser },
        { calendar, "https://calendar.google.com/calendar/r", Action::Nothing },
        { calendar, "https://mail.google.com/", Action::Browser },
        { outlook, "https://login.live.com/", Action::Nothing },
    };
    for (const auto& [policy, uri, action] : cases)
        EXPECT_EQ(policy.leavingLink(uri).action, action) << uri;

    for (const auto& [uri, title] : std::vector<std::pair<std::string, std::string>> {
             { "", "Orvane" },
             { "https://mail.google.com/mail/u/0/", "Orvane" },
             { "blob:https://mail.google.com/5d9e", "Orvane" },
             { "https://Login.Example.com/sso", "Orvane — login.example.com" },
             { "http://mail.google.com.evil.example/", "Orvane — mail.google.com.evil.example" },
             { "blob:https://evil.example/5d9e", "Orvane — evil.example" },
             { "about:blank", "Orvane — about:blank" },
             { "data:text/html,<title>Gmail</title>", "Orvane — data:" },
         })
        EXPECT_EQ(gmail.popupTitle(uri), title) << uri;
}

} // namespace
} // namespace orvane::test
