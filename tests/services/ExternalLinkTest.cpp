// What an address leaving an account's pages may become: an http(s) address
// for the browser (unwrapped from Google's redirect wrappers), a mailto: link
// for Orvane's own routing, or nothing.
#include "ExternalLink.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(ExternalLinkTest, OnlyCheckedWebAddressesReachTheBrowserAndMailLinksTheRouting) {
    using Action = ExternalLink::Action;
    struct Case {
        std::string address;
        Action action;
        std::string result; // the address handed on
    };
    const std::string longPath(ExternalLink::kMaxAddressBytes, 'a');
    const Case cases[] = {
        { "https://example.org/a?b=1#c", Action::Browser, "https://example.org/a?b=1#c" },
        { "HTTP://Example.org:8080/", Action::Browser, "HTTP://Example.org:8080/" },
        { "http://[::1]:8080/x", Action::Browser, "http://[::1]:8080/x" },
        // Google's /url wrapper: q first, then url; percent-decoded; one level only.
        { "https://www.google.com/url?q=https%3A%2F%2Fexample.org%2Fa%3Fb%3D1&sa=D", Action::Browser,
            "https://example.org/a?b=1" },
        { "http://google.com/url?url=https://example.org/", Action::Browser, "https://example.org/" },
        { "https://WWW.Google.com/url?q=javascript:alert(1)&url=https://example.org/x", Action::Browser,
            "https://example.org/x" },
        { "https://www.google.com/url?q=https%3A%2F%2Fwww.google.com%2Furl%3Fq%3Dhttps%3A%2F%2Fexample.org",
            Action::Browser, "https://www.google.com/url?q=https://example.org" },
        { "https://accounts.google.com/ServiceLogin?continue=https%3A%2F%2Fmail.google.com%2Fmail%2F", Action::Browser,
            "https://mail.google.com/mail/" },
        // The decoded target is encoded again where a URL cannot hold its bytes.
        { "https://www.google.com/url?q=https://example.org/a%20b%C3%A9%25", Action::Browser,
            "https://example.org/a%20b%C3%A9%25" },
        // Wrappers that point nowhere usable are themselves the address.
        { "https://www.google.com/url?q=mailto:a@b.c&q=https://example.org/", Action::Browser,
            "https://www.google.com/url?q=mailto:a@b.c&q=https://example.org/" },
        { "https://www.google.com/url?q=%zz&url=https://example.org/", Action::Browser,
            "https://www.google.com/url?q=%25zz&url=https://example.org/" },
        { "https://www.google.com/url?q=https://b%C3%BCcher.example/", Action::Browser,
            "https://www.google.com/url?q=https://b%C3%BCcher.example/" },
        { "https://maps.google.com/url?q=https://example.org/", Action::Browser,
            "https://maps.google.com/url?q=https://example.org/" },
        // A wrapper's host and query on another scheme unwrap nothing and open nothing.
        { "ftp://www.google.com/url?q=https://example.org/", Action::Nothing, "" },
        { "file://www.google.com/url?q=https://example.org/", Action::Nothing, "" },
        { "smb://accounts.google.com/x?continue=https://example.org/", Action::Nothing, "" },
        // Mail links as they are.
        { "mailto:someone@example.org?subject=Hi%20there", Action::Mail, "mailto:someone@example.org?subject=Hi%20there" },
        { "MailTo:someone@example.org", Action::Mail, "MailTo:someone@example.org" },
        // Everything else.
        { "javascript:alert(1)", Action::Nothing, "" },
        { "data:text/html,x", Action::Nothing, "" },
        { "about:blank", Action::Nothing, "" },
        { "file:///etc/passwd", Action::Nothing, "" },
        { "http:///no-host", Action::Nothing, "" },
        { "https://exa%41mple.org/", Action::Nothing, "" },
        { " https://example.org/", Action::Nothing, "" },
        { std::string("https://example.org/\0x", 21), Action::Nothing, "" },
        { "https://example.org/\nx", Action::Nothing, "" },
        { "mailto:a@b.c\r\nBcc:x@y.z", Action::Nothing, "" },
        { "https://example.org/" + longPath, Action::Nothing, "" },
        { "not a url", Action::Nothing, "" },
        { "", Action::Nothing, "" },
    };
    for (const auto& c : cases) {
        ExternalLink link = externalLinkFor(c.address);
        EXPECT_EQ(link.action, c.action) << c.address;
        EXPECT_EQ(link.address, c.result) << c.address;
    }
}

} // namespace
} // namespace orvane
