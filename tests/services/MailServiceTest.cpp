#include "MailService.h"

#include "Files.h"
#include "GRef.h"
#include "PageScripts.h"
#include "ScriptTemplate.h"
#include "support/TestEnvironment.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace orvane {
namespace {

using Hosts = std::set<std::string>;

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

std::string writeOverrides(const std::string& content) {
    std::string path = test::makeTempFolder("overrides") + "/services.json";
    EXPECT_TRUE(Files::replaceAtomically(path, content));
    return path;
}

TEST(MailServiceTest, EntriesHoldTheirHostsAndScripts) {
    const auto& gmail = MailService::gmail();
    const auto& calendar = MailService::calendar();
    const auto& outlook = MailService::outlook();

    EXPECT_EQ(gmail.homeURL, "https://mail.google.com/");
    EXPECT_EQ(calendar.homeURL, "https://calendar.google.com/");
    EXPECT_EQ(outlook.homeURL, "https://outlook.office.com/mail/");
    EXPECT_EQ(gmail.inAppHosts, Hosts({ "mail.google.com", "accounts.google.com" }));
    EXPECT_EQ(calendar.inAppHosts, Hosts({ "calendar.google.com", "accounts.google.com" }));
    EXPECT_EQ(outlook.inAppHosts.size(), 7u);
    EXPECT_TRUE(outlook.inAppHosts.count("outlook.office.com"));
    EXPECT_TRUE(outlook.inAppHosts.count("login.microsoftonline.com"));
    for (const auto* entry : { &gmail, &calendar, &outlook }) {
        for (const auto& host : entry->inAppHosts) {
            GCharPtr lower(g_ascii_strdown(host.c_str(), -1));
            EXPECT_EQ(host, lower.get());
        }
    }

    // Own hosts: the service's pages and frames, not its sign-in pages; any
    // port, http or https, addresses and serialized origins alike.
    struct Owned {
        const MailService* service;
        const char* address;
        bool owned;
    };
    for (const auto& c : std::vector<Owned> {
             { &gmail, "https://mail.google.com/mail/u/0/#inbox", true },
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
         }) {
        EXPECT_EQ(c.service->ownsAddress(c.address), c.owned) << c.address;
    }

    EXPECT_FALSE(gmail.unreadPollJS);
    EXPECT_TRUE(gmail.composeJS);
    EXPECT_TRUE(gmail.attachClickJS && !gmail.attachClickJS->empty());
    EXPECT_TRUE(gmail.photoJS && !gmail.photoJS->empty());

    EXPECT_FALSE(calendar.unreadPollJS);
    EXPECT_FALSE(calendar.composeJS);
    EXPECT_FALSE(calendar.attachClickJS);
    EXPECT_FALSE(calendar.photoJS);

    EXPECT_TRUE(outlook.unreadPollJS && !outlook.unreadPollJS->empty());
    EXPECT_TRUE(outlook.composeJS);
    EXPECT_TRUE(outlook.attachClickJS && !outlook.attachClickJS->empty());
    EXPECT_TRUE(outlook.photoJS && !outlook.photoJS->empty());
    EXPECT_NE(*gmail.attachClickJS, *outlook.attachClickJS);
    EXPECT_EQ(*outlook.photoJS, PageScripts::text(outlook.photoScriptName));
    EXPECT_EQ(*outlook.unreadPollJS, PageScripts::text(outlook.unreadPollScriptName));
}

TEST(MailServiceTest, TitleReadersFollowTheService) {
    const std::optional<std::string> gmailTitle = "Inbox (4) - a@b.c - Gmail";
    const std::optional<std::string> outlookTitle = "Mail - Display Name - Outlook";
    EXPECT_EQ(MailService::gmail().unread(gmailTitle), std::optional<int64_t>(4));
    EXPECT_EQ(MailService::gmail().label(gmailTitle), std::optional<std::string>("a@b.c"));
    EXPECT_EQ(MailService::outlook().label(outlookTitle), std::optional<std::string>("Display Name"));
    for (const auto& title : { gmailTitle, outlookTitle, std::optional<std::string>() }) {
        EXPECT_FALSE(MailService::outlook().unread(title));
        EXPECT_FALSE(MailService::calendar().unread(title));
        EXPECT_FALSE(MailService::calendar().label(title));
    }
}

TEST(MailServiceTest, EveryKindAndNoKindFindTheirEntry) {
    EXPECT_EQ(&MailService::forService(std::nullopt), &MailService::gmail());
    EXPECT_EQ(&MailService::forService(AccountService::Mail), &MailService::gmail());
    EXPECT_EQ(&MailService::forService(AccountService::Calendar), &MailService::calendar());
    EXPECT_EQ(&MailService::forService(AccountService::Outlook), &MailService::outlook());
    EXPECT_EQ(MailService::build(std::nullopt, "").homeURL, MailService::gmail().homeURL);
    EXPECT_EQ(MailService::build(AccountService::Outlook, "").inAppHosts, MailService::outlook().inAppHosts);
}

TEST(MailServiceTest, JSONLiteralsReadBackAsTheSameText) {
    EXPECT_EQ(jsonLiteral(""), "\"\"");
    EXPECT_EQ(jsonLiteral("plain"), "\"plain\"");
    EXPECT_EQ(jsonLiteral("say \"hi\""), "\"say \\\"hi\\\"\"");
    EXPECT_EQ(jsonLiteral("C:\\dir"), "\"C:\\\\dir\"");
    EXPECT_EQ(jsonLiteral("a\nb\r\tc"), "\"a\\nb\\r\\tc\"");
    EXPECT_EQ(jsonLiteral("</script>"), "\"<\\/script>\"");
    EXPECT_EQ(jsonLiteral("\u2028\u2029"), "\"\\u2028\\u2029\"");

    const std::string hard[] = {
        "\"); alert(1); //",
        "\\\"\\\\/'`${x}",
        std::string("nul\0inside", 10),
        "\x01\x1F\x7F",
        "Grüße — 📬 \u2028 \u2029 \uFEFF",
        "</script><script>alert(1)</script>",
    };
    for (const auto& text : hard) {
        std::string literal = jsonLiteral(text);
        EXPECT_EQ(literal.find('\n'), std::string::npos);
        EXPECT_EQ(literal.find("\u2028"), std::string::npos);
        EXPECT_EQ(literal.find("</"), std::string::npos);
        auto back = nlohmann::json::parse(literal, nullptr, false);
        ASSERT_TRUE(back.is_string()) << literal;
        EXPECT_EQ(back.get<std::string>(), text);
    }
    // Text that is not UTF-8 cannot be encoded: the empty literal instead.
    EXPECT_EQ(jsonLiteral("bad \xFF byte"), "\"\"");
    EXPECT_EQ(jsonLiteral("cut \xE2\x80"), "\"\"");
}

TEST(MailServiceTest, GmailComposeCallsTheScriptWithJoinedAddressesSubjectAndBody) {
    MailtoComponents link;
    link.to = { "a@x.y", "b \"quoted\"@x.y" };
    link.cc = { "cc@x.y" };
    link.bcc = { "bcc@x.y" };
    link.subject = "Hi";
    link.body = "Line 1\nLine 2";
    std::string script = MailService::gmail().composeJS(link);
    EXPECT_TRUE(endsWith(script, "(\"a@x.y, b \\\"quoted\\\"@x.y\", \"Hi\", \"Line 1\\nLine 2\");")) << script;
    EXPECT_EQ(script.find("__ORVANE_"), std::string::npos);
    EXPECT_EQ(script.find("cc@x.y"), std::string::npos);

    // No cc or bcc, no subject or body: same script as empty ones.
    MailtoComponents bare;
    bare.to = link.to;
    MailtoComponents empty = bare;
    empty.subject = "";
    empty.body = "";
    EXPECT_EQ(MailService::gmail().composeJS(bare), MailService::gmail().composeJS(empty));
    EXPECT_TRUE(endsWith(MailService::gmail().composeJS(MailtoComponents {}), "(\"\", \"\", \"\");"));
}

TEST(MailServiceTest, OutlookComposeCallsTheScriptWithSubjectAddressArrayAndBody) {
    MailtoComponents link;
    link.to = { "a@x.y", "b,\"c\"@x.y" };
    link.subject = "__ORVANE_BODY__";
    link.body = "</script>";
    std::string script = MailService::outlook().composeJS(link);
    EXPECT_TRUE(endsWith(script, "(\"__ORVANE_BODY__\", [\"a@x.y\",\"b,\\\"c\\\"@x.y\"], \"<\\/script>\");")) << script;
    EXPECT_TRUE(endsWith(MailService::outlook().composeJS(MailtoComponents {}), "(\"\", [], \"\");"));
}

TEST(MailServiceTest, ScriptTemplateReplacesEachMarkerOnceAndNeverWithinValues) {
    EXPECT_EQ(fillTemplate("f(A, B, A)", { { "A", "B" }, { "B", "A" } }), "f(B, A, B)");
    EXPECT_EQ(fillTemplate("x", { { "", "never" } }), "x");
    EXPECT_EQ(fillTemplate("", { { "A", "B" } }), "");
}

TEST(MailServiceTest, OverridesReplaceTheHomeAndHostsOfTheirEntriesOnly) {
    std::string path = writeOverrides(R"({
        "gmail": {"homeURL": "http://127.0.0.1:4321/gmail/", "inAppHosts": ["127.0.0.1", "Accounts.Example.TEST"]},
        "outlook": {"homeURL": "https://mail.example.test/owa/"},
        "calendar": {"inAppHosts": ["localhost"]},
        "other": {"homeURL": "http://x/"}
    })");
    auto gmail = MailService::build(AccountService::Mail, path);
    EXPECT_EQ(gmail.homeURL, "http://127.0.0.1:4321/gmail/");
    EXPECT_EQ(gmail.inAppHosts, Hosts({ "127.0.0.1", "accounts.example.test" }));
    // Replaced hosts are the deployment's own, and so is its home page's host.
    EXPECT_EQ(gmail.ownHosts, gmail.inAppHosts);
    EXPECT_TRUE(gmail.composeJS);
    EXPECT_EQ(gmail.attachClickJS, MailService::gmail().attachClickJS);

    auto outlook = MailService::build(AccountService::Outlook, path);
    EXPECT_EQ(outlook.homeURL, "https://mail.example.test/owa/");
    EXPECT_EQ(outlook.inAppHosts, MailService::outlook().inAppHosts);
    EXPECT_TRUE(outlook.ownsAddress("https://mail.example.test"));
    EXPECT_TRUE(outlook.ownsAddress("https://outlook.office.com"));

    auto calendar = MailService::build(AccountService::Calendar, path);
    EXPECT_EQ(calendar.homeURL, MailService::calendar().homeURL);
    EXPECT_EQ(calendar.inAppHosts, Hosts({ "localhost" }));
}

TEST(MailServiceTest, BadOverridesLeaveTheBuiltInValues) {
    const auto& builtIn = MailService::gmail();
    auto expectBuiltIn = [&](const std::string& path) {
        SCOPED_TRACE(path);
        auto entry = MailService::build(AccountService::Mail, path);
        EXPECT_EQ(entry.homeURL, builtIn.homeURL);
        EXPECT_EQ(entry.inAppHosts, builtIn.inAppHosts);
    };
    expectBuiltIn("");
    expectBuiltIn(test::tempRoot() + "/no-such-file.json");
    expectBuiltIn(test::tempRoot());
    for (const char* content : {
             "", "{", "not json", "[]", "\"gmail\"", "{\"gmail\": null}", "{\"gmail\": [\"x\"]}", "{\"gmail\": {}}",
             R"({"gmail": {"homeURL": 42, "inAppHosts": "127.0.0.1"}})",
             R"({"gmail": {"homeURL": "file:///etc/passwd"}})",
             R"x({"gmail": {"homeURL": "javascript:alert(1)"}})x",
             R"({"gmail": {"homeURL": "http://"}})",
             R"({"gmail": {"homeURL": "not a url"}})",
             R"({"gmail": {"inAppHosts": []}})",
             R"({"gmail": {"inAppHosts": ["ok.example", 7]}})",
             R"({"gmail": {"inAppHosts": ["ok.example", ""]}})",
             R"({"gmail": {"inAppHosts": ["ok.example", "bad host"]}})",
             R"({"gmail": {"inAppHosts": ["ok.example", "example.com/path"]}})",
             R"({"gmail": {"inAppHosts": ["ok.example", "127.0.0.1:8080"]}})",
             R"({"gmail": {"inAppHosts": ["ok.example", null]}})",
         }) {
        expectBuiltIn(writeOverrides(content));
    }
    // One bad field does not spoil the other.
    auto half = MailService::build(AccountService::Mail,
        writeOverrides(R"({"gmail": {"homeURL": "ftp://x/", "inAppHosts": ["h.example"]}})"));
    EXPECT_EQ(half.homeURL, builtIn.homeURL);
    EXPECT_EQ(half.inAppHosts, Hosts({ "h.example" }));
    // Files beyond 1 MiB are not read.
    std::string huge = R"({"gmail": {"homeURL": "http://127.0.0.1/"}, "pad": ")" + std::string(1024 * 1024, 'x') + "\"}";
    expectBuiltIn(writeOverrides(huge));
}

// The shared entries read ORVANE_SERVICE_OVERRIDES once per process, so this
// runs in a child process of its own.
TEST(MailServiceTest, SharedEntriesReadTheOverridesFileOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::string path = writeOverrides(R"({"outlook": {"homeURL": "http://127.0.0.1:9/outlook/mail/"}})");
    EXPECT_EXIT({
        g_setenv("ORVANE_SERVICE_OVERRIDES", path.c_str(), TRUE);
        bool first = MailService::outlook().homeURL == "http://127.0.0.1:9/outlook/mail/"
            && MailService::gmail().homeURL == "https://mail.google.com/";
        Files::replaceAtomically(path, R"({"outlook": {"homeURL": "http://127.0.0.1:10/"}})");
        bool kept = MailService::outlook().homeURL == "http://127.0.0.1:9/outlook/mail/";
        std::exit(first && kept ? 0 : 1);
    }, ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace orvane
