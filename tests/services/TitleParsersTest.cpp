// What the titles mean. That a count is never negative, that an address has
// an "@" and a dot and no separator, and that a name is a non-empty, trimmed
// piece of the title, is fuzz/TitleParsersFuzzer's.
#include "TitleParsers.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using Count = std::optional<int64_t>;
using Text = std::optional<std::string>;

TEST(TitleParsersTest, GmailUnreadIsTheDigitsBetweenTheFirstParenthesesOfAnInboxTitle) {
    const std::pair<Text, Count> cases[] = {
        { "Inbox (3) - a@b.c - Gmail", 3 },
        { "inbox(12)", 12 },
        { "Inbox - a@b.c - Gmail", 0 },
        { "Inbox (1.234.567) - x - Gmail", 1234567 }, // separators are not digits
        { "Inbox (3 new) (7)", 3 },
        { "Inbox (9223372036854775808)", 0 },
        // Digits of other scripts fail the ASCII reading: 0, not a wrong number.
        { "Inbox (1\u0663)", 0 },
        { std::nullopt, std::nullopt },
        { "Sent Mail (3) - a@b.c - Gmail", std::nullopt },
    };
    for (const auto& [title, count] : cases)
        EXPECT_EQ(TitleParsers::gmailInboxUnread(title), count) << title.value_or("no title");
}

// Gmail: the first address-like piece names the account; Outlook: the piece
// before the final "Outlook".
TEST(TitleParsersTest, GmailEmailAndOutlookNameArePiecesOfTheTitle) {
    constexpr auto gmail = &TitleParsers::gmailEmail;
    constexpr auto outlook = &TitleParsers::outlookName;
    const std::tuple<Text (*)(const Text&), Text, Text> cases[] = {
        { gmail, "Inbox (3) - someone@example.com - Gmail", "someone@example.com" },
        { gmail, "Inbox - @handle.x - user@localhost - real@host.org - Gmail", "real@host.org" },
        { gmail, "Inbox-a@b.c-Gmail", "Inbox-a@b.c-Gmail" }, // the hyphen and the tab do not separate
        { gmail, "x\ta@b.c", "x\ta@b.c" },
        { gmail, "Inbox \u2014a@b.c\u2013x", "a@b.c" }, // em and en dashes separate, other dashes do not
        { gmail, "x\u2012a@b.c", "x\u2012a@b.c" },
        { gmail, std::nullopt, std::nullopt },
        { outlook, "Mail - Display Name - OUTLOOK", "Display Name" },
        { outlook, "Inbox - Part One - Part Two - Outlook", "Part Two" },
        { outlook, "Mail -   Spaced\tName \t - Outlook  ", "Spaced\tName" },
        { outlook, std::nullopt, std::nullopt },
        { outlook, "Display Name - Outlook", std::nullopt },
        { outlook, "Mail - Display Name - Outlook Web", std::nullopt },
        { outlook, "Mail-Display Name-Outlook", std::nullopt },
        { outlook, "Mail \u2013 Display Name \u2013 Outlook", std::nullopt },
    };
    for (const auto& [parse, title, piece] : cases)
        EXPECT_EQ(parse(title), piece) << title.value_or("no title");
}

} // namespace
} // namespace orvane
