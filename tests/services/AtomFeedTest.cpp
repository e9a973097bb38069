#include "AtomFeed.h"
#include "FeedNews.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

std::string feed(const std::string& body, const std::string& ns = "http://purl.org/atom/ns#") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><feed version=\"0.3\" xmlns=\"" + ns + "\">" + body + "</feed>";
}

// "count: id,subject,name,email,time,link; …" or "nothing".
std::string described(std::string_view bytes) {
    auto parsed = AtomFeed::parse(bytes);
    std::string out = parsed ? std::to_string(parsed->fullcount) + ":" : "nothing";
    for (const auto& e : parsed ? parsed->entries : std::vector<AtomFeed::Entry>())
        out += " " + e.id + "," + e.subject + "," + e.authorName + "," + e.authorEmail + "," + std::to_string(e.time()) + "," + e.link + ";";
    return out;
}

// Bounds and plain text hold for any input (fuzz/AtomFeedFuzzer); here is what a feed means.
TEST(AtomFeedTest, ReadsGmailsFeedAndRefusesWhatIsNotOne) {
    const std::string entry = "<entry><title>Lunch\n\t<b>?</b></title><id>tag:gmail.google.com,2004:1</id>"
        "<issued>2026-11-25T08:10:00Z</issued><modified>2026-11-25T08:12:00+00:00</modified>"
        "<link rel=\"alternate\" href=\"https://mail.google.com/mail?id=1&amp;view=conv\"/>"
        "<author><name>Ada</name><email>ada@example.com</email></author></entry>";
    const std::pair<std::string, std::string> cases[] = {
        { feed("<fullcount> 2 </fullcount>" + entry), "2: tag:gmail.google.com,2004:1,Lunch ?,Ada,ada@example.com,1795594320,https://mail.google.com/mail?id=1&view=conv;" },
        { feed("<fullcount>0</fullcount><entry><id>x</id><title>" + std::string(300, 'e') + "</title><link href=\"javascript:alert(1)\"/>"
              "<author><email>a b@example.com</email></author><issued>yesterday</issued></entry><entry><title>no id</title></entry>"),
            "0: x," + std::string(199, 'e') + "…,,,0,;" },
        { feed("<fullcount>1</fullcount><entry><id>y</id><published>1970-01-01T00:00:10Z</published></entry>", "http://www.w3.org/2005/Atom"), "1: y,,,,10,;" },
        { feed(entry), "nothing" },
        { feed("<fullcount>-1</fullcount>"), "nothing" },
        { feed("<fullcount>1000000000</fullcount>"), "nothing" },
        { feed("<fullcount>1</fullcount>", "http://example.com/other"), "nothing" },
        { "<!DOCTYPE feed><feed xmlns=\"http://purl.org/atom/ns#\"><fullcount>1</fullcount></feed>", "nothing" },
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
    struct Round { std::optional<AtomFeed> inbox, primary; bool refused; std::string expected; }; // "count:ids", "-": none
    const AtomFeed plain = mails(3, { { "c", 3000 }, { "b", 2000 }, { "a", 1000 } });
    const AtomFeed personal = mails(1, { { "b", 2000 } });
    const std::tuple<std::optional<int64_t>, Inbox, std::vector<Round>> sleeps[] = {
        { 1, Inbox::Categories, { { plain, personal, false, "1:" },
            { std::nullopt, mails(3, { { "e", 5000 }, { "d", 4000 }, { "b", 2000 } }), false, "3:e d" } } },
        { 3, Inbox::Plain, { { plain, personal, false, "3:" }, { std::nullopt, std::nullopt, false, "-" },
            { mails(5, { { "z", 1 }, { "f", 9000 }, { "e", 8000 }, { "d", 7000 }, { "c", 3000 }, { "b", 2000 } }),
                std::nullopt, false, "5:f e d" } } },
        { 9, Inbox::Unknown, { { plain, personal, false, "3:" }, { plain, mails(2, { { "x", 2500 }, { "b", 2000 }, { "z", 1 } }), false, "3:x" } } },
        { std::nullopt, Inbox::Plain, { { plain, std::nullopt, true, "3:" } } },
        { 1, Inbox::Categories, { { plain, std::nullopt, false, "-" }, { plain, mails(1, {}), false, "1:" } } },
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
    for (const auto& [page, feed] : { std::pair { "https://MAIL.google.com/mail/u/12#inbox", "https://mail.google.com/mail/u/12/feed/atom" },
             { "https://mail.google.com/mail/u/0/", gmail.c_str() }, { "https://mail.example/mail/u/3/", gmail.c_str() },
             { "https://mail.google.com/mail/u/123/", gmail.c_str() }, { "https://mail.google.com/mail/u/x/", gmail.c_str() } })
        EXPECT_EQ(FeedNews::mailboxFeedAddress(gmail, page), feed) << page;
    EXPECT_EQ(FeedNews::mailboxFeedAddress("http://127.0.0.1:9/gmail/feed/atom", "http://127.0.0.1:9/mail/u/1/"), "http://127.0.0.1:9/gmail/feed/atom");
}

} // namespace
} // namespace orvane
