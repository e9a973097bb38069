#include "MailService.h"

#include "Files.h"
#include "ScriptTemplate.h"
#include "support/TestServices.h"
#include "support/TestEnvironment.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace orvane {
namespace {

using Hosts = std::set<std::string>;

std::string writeOverrides(const std::string& content) {
    std::string path = test::makeTempFolder("overrides") + "/services.json";
    EXPECT_TRUE(Files::replaceAtomically(path, content));
    return path;
}

// Own hosts: the service's pages and frames, not its sign-in pages; any port,
// http or https, addresses and serialized origins alike.
TEST(MailServiceTest, EachKindFindsItsEntryWhichOwnsOnlyItsOwnHosts) {
    const auto& gmail = test::testServices().gmail();
    const auto& calendar = test::testServices().calendar();
    const auto& outlook = test::testServices().outlook();
    EXPECT_EQ(&test::testServices().forService(std::nullopt), &gmail);
    EXPECT_EQ(&test::testServices().forService(AccountService::Mail), &gmail);
    EXPECT_EQ(&test::testServices().forService(AccountService::Calendar), &calendar);
    EXPECT_EQ(&test::testServices().forService(AccountService::Outlook), &outlook);
    const std::tuple<const MailService*, const char*, bool> cases[] = {
        { &gmail, "https://chat.google.com", true },
        { &gmail, "HTTPS://Mail.Google.COM:8443", true },
        { &gmail, "https://accounts.google.com/signin", false },
        { &gmail, "https://mail.google.com.example.net/", false },
        { &gmail, "ftp://mail.google.com/", false },
        { &gmail, "null", false },
        { &calendar, "https://calendar.google.com/calendar/r", true },
        { &calendar, "https://mail.google.com/", false },
        { &outlook, "https://outlook.live.com/mail/", true },
        { &outlook, "https://login.microsoftonline.com/", false },
    };
    for (const auto& [service, address, owned] : cases)
        EXPECT_EQ(service->ownsAddress(address), owned) << service->homeURL << " " << address;

    // Titles are read only where the service's titles carry something
    // (Gmail's, tests/web/UnreadCountsWebTest).
    EXPECT_FALSE(outlook.unread("Inbox (4) - a@b.c - Gmail"));
    EXPECT_FALSE(calendar.unread("Inbox (4) - a@b.c - Gmail") || calendar.label("Inbox (4) - a@b.c - Gmail"));
    EXPECT_FALSE(calendar.composeJS || calendar.attachClickJS || calendar.photoJS || calendar.unreadPollJS);
    EXPECT_FALSE(gmail.unreadPollJS) << "Gmail's count comes from its title";
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

TEST(MailServiceTest, OverridesReplaceTheHomeAndHostsOfTheirEntriesOnly) {
    std::string path = writeOverrides(R"({
        "gmail": {"homeURL": "http://127.0.0.1:4321/gmail/", "feedURL": "http://127.0.0.1:4321/gmail/feed/atom", "inAppHosts": ["127.0.0.1", "Accounts.Example.TEST"]},
        "outlook": {"homeURL": "https://mail.example.test/owa/"},
        "calendar": {"inAppHosts": ["localhost"]}
    })");
    auto gmail = MailService::build(AccountService::Mail, path);
    EXPECT_EQ(gmail.inAppHosts, Hosts({ "127.0.0.1", "accounts.example.test" }));
    EXPECT_EQ(gmail.ownHosts, gmail.inAppHosts) << "replaced hosts are the deployment's own";
    EXPECT_EQ(gmail.feedURL, "http://127.0.0.1:4321/gmail/feed/atom");
    auto outlook = MailService::build(AccountService::Outlook, path);
    EXPECT_EQ(outlook.inAppHosts, test::testServices().outlook().inAppHosts);
    EXPECT_TRUE(outlook.ownsAddress("https://mail.example.test") && outlook.ownsAddress("https://outlook.office.com"));
    auto calendar = MailService::build(AccountService::Calendar, path);
    EXPECT_EQ(calendar.homeURL, test::testServices().calendar().homeURL);
    EXPECT_EQ(calendar.inAppHosts, Hosts({ "localhost" }));
    EXPECT_EQ(calendar.feedURL + outlook.feedURL, "") << "only Gmail has an unread feed";

    // Bad overrides leave the built-in values; one bad field spares the other.
    const auto& builtIn = test::testServices().gmail();
    for (const std::string& content : { std::string("not json"), std::string(R"({"gmail": {"homeURL": "file:///etc/passwd"}})"),
             std::string(R"x({"gmail": {"homeURL": "javascript:alert(1)", "feedURL": "file:///feed"}})x"), std::string(R"({"gmail": {"inAppHosts": []}})"),
             std::string(R"({"gmail": {"inAppHosts": ["ok.example", "example.com/path"]}})"),
             std::string(R"({"gmail": {"inAppHosts": ["ok.example", "127.0.0.1:8080"]}})"),
             R"({"gmail": {"homeURL": "http://127.0.0.1/"}, "pad": ")" + std::string(1024 * 1024, 'x') + "\"}" }) {
        auto entry = MailService::build(AccountService::Mail, writeOverrides(content));
        EXPECT_EQ(std::tie(entry.homeURL, entry.feedURL, entry.inAppHosts), std::tie(builtIn.homeURL, builtIn.feedURL, builtIn.inAppHosts)) << content.substr(0, 80);
    }
    auto half = MailService::build(AccountService::Mail, writeOverrides(R"({"gmail": {"homeURL": "ftp://x/", "inAppHosts": ["h.example"]}})"));
    EXPECT_EQ(half.homeURL, builtIn.homeURL);
    EXPECT_EQ(half.inAppHosts, Hosts({ "h.example" }));
}

// The shared entries read ORVANE_SERVICE_OVERRIDES once per process, so this
// runs in a child process of its own.
TEST(MailServiceTest, SharedEntriesReadTheOverridesFileOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::string path = writeOverrides(R"({"outlook": {"homeURL": "http://127.0.0.1:9/outlook/mail/"}})");
    EXPECT_EXIT({
        g_setenv("ORVANE_SERVICE_OVERRIDES", path.c_str(), TRUE);
        bool first = test::testServices().outlook().homeURL == "http://127.0.0.1:9/outlook/mail/"
            && test::testServices().gmail().homeURL == "https://mail.google.com/";
        Files::replaceAtomically(path, R"({"outlook": {"homeURL": "http://127.0.0.1:10/"}})");
        std::exit(first && test::testServices().outlook().homeURL == "http://127.0.0.1:9/outlook/mail/" ? 0 : 1);
    }, ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace orvane
