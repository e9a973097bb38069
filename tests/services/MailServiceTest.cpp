// What differs between the services: the hosts each owns, the values its page scripts get, what their
// titles and Gmail's unread feed mean, and where their links go.
#include "AtomFeed.h"
#include "ExternalLink.h"
#include "FeedNews.h"
#include "LinkPolicy.h"
#include "MailService.h"
#include "TitleParsers.h"

#include "Files.h"
#include "ScriptTemplate.h"
#include "support/TestServices.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvane {
namespace {

using Hosts = std::set<std::string>;
using Count = std::optional<int64_t>;
using Text = std::optional<std::string>;
using enum ExternalLink::Action;

std::string writeOverrides(const std::string& content) {
    std::string path = test::makeTempFolder("overrides") + "/services.json";
    EXPECT_TRUE(Files::replaceAtomically(path, content));
    return path;
}

// Own hosts: the service's pages and frames, not its sign-in pages; any port,
// http or https, addresses and serialized origins alike.
TEST(MailServiceTest, EachKindFindsItsEntryWhichOwnsOnlyItsOwnHostsAndOverridesReplaceThem) {
    const auto& services = test::testServices();
    const auto& gmail = services.gmail();
    const auto& calendar = services.calendar();
    const auto& outlook = services.outlook();
    EXPECT_EQ(&services.forService(std::nullopt), &gmail) << "no service: a Gmail account";
    const std::pair<const char*, bool> cases[] = {
        { "HTTPS://Mail.Google.COM:8443", true }, { "https://accounts.google.com/signin", false },
        { "https://mail.google.com.example.net/", false }, { "ftp://mail.google.com/", false },
        { "null", false },
    };
    for (const auto& [address, owned] : cases)
        EXPECT_EQ(gmail.ownsAddress(address), owned) << address;

    // Overrides replace the home and hosts of their entries only.
    std::string path = writeOverrides(R"({
        "gmail": {"homeURL": "http://127.0.0.1:4321/gmail/",
                  "feedURL": "http://127.0.0.1:4321/gmail/feed/atom",
                  "inAppHosts": ["127.0.0.1", "Accounts.Example.TEST"]},
        "outlook": {"homeURL": "https://mail.example.test/owa/"},
        "calendar": {"inAppHosts": ["localhost"]}
    })");
    auto builtGmail = MailService::build(AccountService::Mail, path);
    EXPECT_EQ(builtGmail.inAppHosts, Hosts({ "127.0.0.1", "accounts.example.test" }));
    EXPECT_EQ(builtGmail.ownHosts, builtGmail.inAppHosts) << "replaced hosts are the deployment's own";
    EXPECT_EQ(builtGmail.feedURL, "http://127.0.0.1:4321/gmail/feed/atom");
    auto builtOutlook = MailService::build(AccountService::Outlook, path);
    EXPECT_EQ(builtOutlook.inAppHosts, outlook.inAppHosts);
    EXPECT_TRUE(builtOutlook.ownsAddress("https://mail.example.test"));
    EXPECT_TRUE(builtOutlook.ownsAddress("https://outlook.office.com"));
    auto builtCalendar = MailService::build(AccountService::Calendar, path);
    EXPECT_EQ(builtCalendar.homeURL, calendar.homeURL);
    EXPECT_EQ(builtCalendar.inAppHosts, Hosts({ "localhost" }));

    // Bad overrides leave the built-in values; one bad field (a home that is
    // not http or https) spares the other.
    const std::string bad[] = {
        "not json",
        R"({"gmail": {"feedURL": "file:///feed"}})",
        R"({"gmail": {"inAppHosts": []}})",
        R"({"gmail": {"inAppHosts": ["ok.example", "example.com/path"]}})",
        R"({"gmail": {"homeURL": "http://127.0.0.1/"}, "pad": ")" + std::string(1024 * 1024, 'x') + "\"}",
    };
    for (const std::string& content : bad) {
        auto entry = MailService::build(AccountService::Mail, writeOverrides(content));
        EXPECT_EQ(std::tie(entry.homeURL, entry.feedURL, entry.inAppHosts),
            std::tie(gmail.homeURL, gmail.feedURL, gmail.inAppHosts)) << content.substr(0, 80);
    }
    auto half = MailService::build(AccountService::Mail,
        writeOverrides(R"({"gmail": {"homeURL": "ftp://x/", "inAppHosts": ["h.example"]}})"));
    EXPECT_EQ(half.homeURL, gmail.homeURL);
    EXPECT_EQ(half.inAppHosts, Hosts({ "h.example" }));
}

// Values reach page scripts as JSON literals that no text can break out of.
TEST(MailServiceTest, JSONLiteralsReadBackAsTheSameTextAndTemplatesFillOnce) {
    const std::string hard[] = {
        "\"); alert(1); //", "\\\"\\\\/'`${x}", std::string("nul\0inside", 10), "\x01\x1F\x7F",
        "Grüße — 📬 \u2028 \u2029 \uFEFF", "</script><script>alert(1)</script>",
    };
    for (const auto& text : hard) {
        std::string literal = jsonLiteral(text);
        EXPECT_EQ(literal.find_first_of("\n\r"), std::string::npos) << literal;
        EXPECT_EQ(literal.find("\u2028"), std::string::npos) << literal;
        EXPECT_EQ(literal.find("</"), std::string::npos) << literal;
        auto back = nlohmann::json::parse(literal, nullptr, false);
        EXPECT_EQ(back.is_string() ? back.get<std::string>() : "not a string", text);
    }
    EXPECT_EQ(jsonLiteral("bad \xFF byte"), "\"\"") << "text that is not UTF-8 cannot be encoded";
    // A value that is itself a marker is never replaced again.
    EXPECT_EQ(fillTemplate("f(A, B, A)", { { "A", "B" }, { "B", "A" } }), "f(B, A, B)");
    EXPECT_EQ(fillTemplate("x", { { "", "never" } }), "x");
}

// What the titles mean. That a count is never negative, that an address has an "@" and a dot and no
// separator, and that a name is a non-empty, trimmed piece of the title, is fuzz/TitleParsersFuzzer's.
TEST(TitleParsersTest, UnreadCountsAndAccountNamesArePiecesOfTheTitle) {
    // Gmail's unread count: the digits between the first parentheses of an inbox title.
    const std::pair<Text, Count> counts[] = {
        { "Inbox (3) - a@b.c - Gmail", 3 }, { "inbox(12)", 12 }, { "Inbox - a@b.c - Gmail", 0 },
        { "Inbox (1.234.567) - x - Gmail", 1234567 }, // separators are not digits
        { "Inbox (3 new) (7)", 3 }, { "Inbox (9223372036854775807)", INT64_MAX },
        { "Inbox (9223372036854775808)", 0 },
        // Digits of other scripts fail the ASCII reading: 0, not a wrong number.
        { "Inbox (1\u0663)", 0 },
        { std::nullopt, std::nullopt }, { "Sent Mail (3) - a@b.c - Gmail", std::nullopt },
        { " Inbox (3)", std::nullopt },
    };
    for (const auto& [title, count] : counts)
        EXPECT_EQ(TitleParsers::gmailInboxUnread(title), count) << title.value_or("no title");

    // Gmail: the first address-like piece names the account; Outlook: the piece before the final "Outlook".
    constexpr auto gmail = &TitleParsers::gmailEmail;
    constexpr auto outlook = &TitleParsers::outlookName;
    const std::tuple<Text (*)(const Text&), Text, Text> cases[] = {
        { gmail, "Inbox (3) - someone@example.com - Gmail", "someone@example.com" },
        { gmail, "Inbox - @handle.x - user@localhost - real@host.org - Gmail", "real@host.org" },
        { gmail, "Inbox - <a@b.c> - Gmail", "<a@b.c>" },
        { gmail, "Inbox-a@b.c-Gmail", "Inbox-a@b.c-Gmail" }, // the hyphen does not separate
        { gmail, "Inbox \u2014a@b.c\u2013x", "a@b.c" }, // em and en dashes do
        { gmail, std::nullopt, std::nullopt },
        { outlook, "Mail - Display Name - OUTLOOK", "Display Name" },
        { outlook, "Inbox - Part One - Part Two - Outlook", "Part Two" },
        { outlook, "Mail -   Spaced\tName \t - Outlook  ", "Spaced\tName" },
        { outlook, std::nullopt, std::nullopt },
        { outlook, "Display Name - Outlook", std::nullopt },
        { outlook, "Mail - Display Name - Outlook Web", std::nullopt },
        { outlook, "Mail-Display Name-Outlook", std::nullopt },
    };
    for (const auto& [parse, title, piece] : cases)
        EXPECT_EQ(parse(title), piece) << title.value_or("no title");
}

std::string feed(const std::string& body, const std::string& ns = "http://purl.org/atom/ns#") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><feed version=\"0.3\" xmlns=\"" + ns + "\">" + body
        + "</feed>";
}

// "count: id,subject,name,email,time,link; …" or "nothing".
std::string described(std::string_view bytes) {
    auto parsed = AtomFeed::parse(bytes);
    std::string out = parsed ? std::to_string(parsed->fullcount) + ":" : "nothing";
    for (const auto& e : parsed ? parsed->entries : std::vector<AtomFeed::Entry>())
        out += " " + e.id + "," + e.subject + "," + e.authorName + "," + e.authorEmail + ","
            + std::to_string(e.time()) + "," + e.link + ";";
    return out;
}

// Bounds and plain text hold for any input (fuzz/AtomFeedFuzzer); here is what a feed means.
TEST(AtomFeedTest, ReadsGmailsFeedAndRefusesWhatIsNotOne) {
    const std::string entry = "<entry><title>Lunch\n\t<b>?</b></title><id>tag:gmail.google.com,2004:1</id>"
        "<issued>2026-11-25T08:10:00Z</issued><modified>2026-11-25T08:12:00+00:00</modified>"
        "<link rel=\"alternate\" href=\"https://mail.google.com/mail?id=1&amp;view=conv\"/>"
        "<author><name>Ada</name><email>ada@example.com</email></author></entry>";
    const std::pair<std::string, std::string> cases[] = {
        { feed("<fullcount> 2 </fullcount>" + entry),
            "2: tag:gmail.google.com,2004:1,Lunch ?,Ada,ada@example.com,1795594320,"
            "https://mail.google.com/mail?id=1&view=conv;" },
        { feed("<fullcount>0</fullcount><entry><id>x</id><title>" + std::string(300, 'e')
              + "</title><link href=\"javascript:alert(1)\"/><author><email>a b@example.com</email></author>"
                "<issued>yesterday</issued></entry><entry><title>no id</title></entry>"),
            "0: x," + std::string(199, 'e') + "…,,,0,;" },
        { feed("<fullcount>1</fullcount><entry><id>y</id><published>1970-01-01T00:00:10Z</published></entry>",
              "http://www.w3.org/2005/Atom"), "1: y,,,,10,;" },
        { feed(entry), "nothing" },
        { feed("<fullcount>-1</fullcount>"), "nothing" },
        { feed("<fullcount>1000000000</fullcount>"), "nothing" },
        { feed("<fullcount>1</fullcount>", "http://example.com/other"), "nothing" },
        { "<!DOCTYPE feed><feed xmlns=\"http://purl.org/atom/ns#\"><fullcount>1</fullcount></feed>",
            "nothing" },
        { "<html><body>Sign in</body></html>", "nothing" },
        { feed("<fullcount>1</fullcount>" + std::string(AtomFeed::kMaxFeedBytes, ' ')), "nothing" },
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(described(bytes), expected) << bytes.substr(0, 120);
}

AtomFeed mails(int64_t count, const std::vector<std::pair<std::string, int64_t>>& entries) {
    AtomFeed feed { count, {} };
    for (const auto& [id, issued] : entries)
        feed.entries.push_back({ .id = id, .issued = issued });
    return feed;
}

// Rounds of one sleep: (inbox feed, Primary feed or refused) → count shown, ids notified.
TEST(AtomFeedTest, TellsTheInboxKindFromThePagesCountAndNotifiesOnlyNewMailAfterTheBaseline) {
    using Inbox = FeedNews::Inbox;
    // What a round reads, and what it gives: "count:ids", "-" for no count.
    struct Round { std::optional<AtomFeed> inbox, primary; bool refused; std::string expected; };
    const AtomFeed plain = mails(3, { { "c", 3000 }, { "b", 2000 }, { "a", 1000 } });
    const AtomFeed personal = mails(1, { { "b", 2000 } });
    const std::tuple<std::optional<int64_t>, Inbox, std::vector<Round>> sleeps[] = {
        { 1, Inbox::Categories, { { plain, personal, false, "1:" },
            { std::nullopt, mails(3, { { "e", 5000 }, { "d", 4000 }, { "b", 2000 } }), false, "3:e d" } } },
        { 3, Inbox::Plain, { { plain, personal, false, "3:" }, { std::nullopt, std::nullopt, false, "-" },
            { mails(5, { { "z", 1 }, { "f", 9000 }, { "e", 8000 }, { "d", 7000 }, { "c", 3000 },
                { "b", 2000 } }), std::nullopt, false, "5:f e d" } } },
        { 9, Inbox::Unknown, { { plain, personal, false, "3:" },
            { plain, mails(2, { { "x", 2500 }, { "b", 2000 }, { "z", 1 } }), false, "3:x" } } },
        { std::nullopt, Inbox::Plain, { { plain, std::nullopt, true, "3:" } } },
        { 1, Inbox::Categories,
            { { plain, std::nullopt, false, "-" }, { plain, mails(1, {}), false, "1:" } } },
    };
    for (const auto& [pageCount, kind, rounds] : sleeps) {
        FeedNews news(pageCount);
        for (const auto& round : rounds) {
            auto result = news.read({ round.inbox, round.primary, round.refused });
            std::string got = result.count ? std::to_string(*result.count) + ":" : "-";
            for (const auto& entry : result.fresh)
                got += (got.back() == ':' ? "" : " ") + entry.id;
            EXPECT_EQ(got, round.expected) << "page count " << pageCount.value_or(-1);
        }
        EXPECT_EQ(news.inbox(), kind) << "page count " << pageCount.value_or(-1);
    }
    // The feed follows the mailbox the page showed among those signed in to its session.
    const std::string gmail = "https://mail.google.com/mail/u/0/feed/atom";
    const std::pair<std::string, std::string> mailboxes[] = {
        { "https://MAIL.google.com/mail/u/12#inbox", "https://mail.google.com/mail/u/12/feed/atom" },
        { "https://mail.google.com/mail/u/0/", gmail }, { "https://mail.example/mail/u/3/", gmail },
        { "https://mail.google.com/mail/u/123/", gmail }, { "https://mail.google.com/mail/u/x/", gmail },
    };
    for (const auto& [page, address] : mailboxes)
        EXPECT_EQ(FeedNews::mailboxFeedAddress(gmail, page), address) << page;
    const std::string local = "http://127.0.0.1:9/gmail/feed/atom";
    EXPECT_EQ(FeedNews::mailboxFeedAddress(local, "http://127.0.0.1:9/mail/u/1/"), local) << "another host";
}

// Where an address leaving an account's pages goes: an http(s) address for the browser (unwrapped from
// Google's redirect wrappers), a mailto: link for Orvane's own routing, or nothing; and what a pop-up
// window is titled. That only http(s) addresses of printable ASCII within the bound reach the browser, and
// that what does is stable when checked again, is fuzz/ExternalLinkFuzzer's.
TEST(ExternalLinkTest, OnlyCheckedWebAddressesOfOtherHostsReachTheBrowserAndMailLinksTheRouting) {
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
        { "https://example.org/" + std::string(ExternalLink::kMaxAddressBytes, 'a'), Nothing, "" },
    };
    for (const auto& [address, action, handedOn] : cases) {
        ExternalLink link = externalLinkFor(address);
        EXPECT_EQ(link.action, action) << address;
        EXPECT_EQ(link.address, handedOn) << address;
    }

    // A service's own hosts keep their addresses; pop-up titles name others. With the real hosts: no
    // overrides are set in the core tests, so the catalogue is the built-in one.
    const LinkPolicy gmail(test::testServices().gmail());
    const LinkPolicy calendar(test::testServices().forService(AccountService::Calendar));
    const LinkPolicy outlook(test::testServices().forService(AccountService::Outlook));
    const std::tuple<const LinkPolicy&, std::string, ExternalLink::Action> policies[] = {
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fexample.org%2F", Browser },
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fmail.google.com%2Fmail%2F", Nothing },
        { gmail, "https://accounts.google.com/x?continue=https://mail.google.com/", Nothing },
        { gmail, "https://sub.mail.google.com/", Browser },
        { calendar, "https://calendar.google.com/calendar/r", Nothing },
        { calendar, "https://mail.google.com/", Browser },
        { outlook, "https://login.live.com/", Nothing },
    };
    for (const auto& [policy, uri, action] : policies)
        EXPECT_EQ(policy.leavingLink(uri).action, action) << uri;

    const std::pair<std::string, std::string> titles[] = {
        { "", "Orvane" }, { "https://mail.google.com/mail/u/0/", "Orvane" },
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
} // namespace orvane
