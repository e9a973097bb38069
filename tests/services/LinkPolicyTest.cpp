// Where an address leaving an account's pages goes: an http(s) address for
// the browser (unwrapped from Google's redirect wrappers), a mailto: link for
// Orvane's own routing, or nothing; and what a pop-up window is titled. That
// only http(s) addresses of printable ASCII within the bound reach the
// browser, and that what does is stable when checked again, is
// fuzz/ExternalLinkFuzzer's.
#include "ExternalLink.h"
#include "LinkPolicy.h"

#include "support/TestServices.h"

#include <gtest/gtest.h>

namespace orvane::test {
namespace {

using enum ExternalLink::Action;

TEST(ExternalLinkTest, OnlyCheckedWebAddressesReachTheBrowserAndMailLinksTheRouting) {
    const std::string wrapper = "https://www.google.com/url?q=";
    const std::tuple<std::string, ExternalLink::Action, std::string> cases[] = {
        { "HTTP://Example.org:8080/a?b=1#c", Browser, "HTTP://Example.org:8080/a?b=1#c" },
        // Google's wrappers: q first, then url; percent-decoded; one level only.
        { wrapper + "https%3A%2F%2Fexample.org%2Fa%3Fb%3D1&sa=D", Browser, "https://example.org/a?b=1" },
        { "http://google.com/url?url=https://example.org/", Browser, "https://example.org/" },
        { "https://WWW.Google.com/url?q=javascript:alert(1)&url=https://example.org/x", Browser,
            "https://example.org/x" },
        { wrapper + "https%3A%2F%2Fwww.google.com%2Furl%3Fq%3Dhttps%3A%2F%2Fexample.org", Browser,
            wrapper + "https://example.org" },
        { "https://accounts.google.com/ServiceLogin?continue=https%3A%2F%2Fmail.google.com%2F", Browser,
            "https://mail.google.com/" },
        { wrapper + "https://example.org/a%20b%C3%A9%25", Browser, "https://example.org/a%20b%C3%A9%25" },
        // Wrappers that point nowhere usable are themselves the address.
        { wrapper + "mailto:a@b.c", Browser, wrapper + "mailto:a@b.c" },
        { wrapper + "%zz", Browser, wrapper + "%25zz" },
        { "https://maps.google.com/url?q=https://example.org/", Browser,
            "https://maps.google.com/url?q=https://example.org/" },
        // Another scheme unwraps nothing and opens nothing.
        { "ftp://www.google.com/url?q=https://example.org/", Nothing, "" },
        { "MailTo:someone@example.org?subject=Hi", Mail, "MailTo:someone@example.org?subject=Hi" },
        { "mailto:a@b.c\r\nBcc:x@y.z", Nothing, "" },
        { "https://exa%41mple.org/", Nothing, "" },
        { " https://example.org/", Nothing, "" },
        { "https://example.org/" + std::string(ExternalLink::kMaxAddressBytes, 'a'), Nothing, "" },
    };
    for (const auto& [address, action, handedOn] : cases) {
        ExternalLink link = externalLinkFor(address);
        EXPECT_EQ(link.action, action) << address;
        EXPECT_EQ(link.address, handedOn) << address;
    }
}

// With the real hosts: no overrides are set in the core tests, so the
// catalogue is the built-in one.
TEST(LinkPolicy, InAppHostsKeepTheirAddressesAndPopupTitlesNameOthers) {
    const LinkPolicy gmail(testServices().gmail());
    const LinkPolicy calendar(testServices().forService(AccountService::Calendar));
    const LinkPolicy outlook(testServices().forService(AccountService::Outlook));
    const std::tuple<const LinkPolicy&, std::string, ExternalLink::Action> cases[] = {
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fexample.org%2F", Browser },
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fmail.google.com%2Fmail%2F", Nothing },
        { gmail, "https://accounts.google.com/x?continue=https://mail.google.com/", Nothing },
        { gmail, "https://MAIL.google.com/mail/u/0/", Nothing },
        { gmail, "https://sub.mail.google.com/", Browser },
        { calendar, "https://calendar.google.com/calendar/r", Nothing },
        { calendar, "https://mail.google.com/", Browser },
        { outlook, "https://login.live.com/", Nothing },
    };
    for (const auto& [policy, uri, action] : cases)
        EXPECT_EQ(policy.leavingLink(uri).action, action) << uri;

    const std::pair<std::string, std::string> titles[] = {
        { "", "Orvane" },
        { "https://mail.google.com/mail/u/0/", "Orvane" },
        { "blob:https://mail.google.com/5d9e", "Orvane" },
        { "https://Login.Example.com/sso", "Orvane — login.example.com" },
        { "http://mail.google.com.evil.example/", "Orvane — mail.google.com.evil.example" },
        { "blob:https://evil.example/5d9e", "Orvane — evil.example" },
        { "about:blank", "Orvane — about:blank" },
        { "data:text/html,<title>Gmail</title>", "Orvane — data:" },
    };
    for (const auto& [uri, title] : titles)
        EXPECT_EQ(gmail.popupTitle(uri), title) << uri;
}

} // namespace
} // namespace orvane::test
