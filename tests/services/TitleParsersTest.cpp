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
        { "Inbox ( 4 2 )", 42 },
        { "Inbox (3 new) (7)", 3 },
        { "Inbox (-5)", 5 },
        { "Inbox )(3)", 0 },
        { "Inbox (unread)", 0 },
        { "Inbox (9223372036854775807)", INT64_MAX },
        { "Inbox (9223372036854775808)", 0 },
        // Digits of other scripts fail the ASCII reading: 0, not a wrong number.
        { "Inbox (1\u0663)", 0 },
        { "Inbox (\uFF13)", 0 },
        { "Inbox (\u0628 5)", 5 },
        { std::nullopt, std::nullopt },
        { " Inbox (3)", std::nullopt },
        { "Sent Mail (3) - a@b.c - Gmail", std::nullopt },
        { "\u0130nbox (3)", std::nullopt }, // a dotted capital I does not fold to "i"
    };
    for (const auto& [title, count] : cases)
        EXPECT_EQ(TitleParsers::gmailInboxUnread(title), count) << title.value_or("no title");
}

TEST(TitleParsersTest, GmailEmailIsTheFirstAddressLikePiece) {
    const std::pair<Text, Text> cases[] = {
        { "Inbox (3) - someone@example.com - Gmail", "someone@example.com" },
        { "Inbox - @handle.x - user@localhost - real@host.org - Gmail", "real@host.org" },
        { "Inbox - <a@b.c> - Gmail", "<a@b.c>" },
        { "Inbox-a@b.c-Gmail", "Inbox-a@b.c-Gmail" }, // the hyphen and the tab do not separate
        { "x\ta@b.c", "x\ta@b.c" },
        { "a@b.c,d@e.f", "a@b.c" },
        { "x;a@b.c|y", "a@b.c" },
        { "Inbox \u2014a@b.c\u2013x", "a@b.c" }, // em and en dashes separate, other dashes do not
        { "x\u2012a@b.c", "x\u2012a@b.c" },
        { std::nullopt, std::nullopt },
        { "Inbox (3) - Gmail", std::nullopt },
        { "user@localhost", std::nullopt },
    };
    for (const auto& [title, email] : cases)
        EXPECT_EQ(TitleParsers::gmailEmail(title), email) << title.value_or("no title");
}

TEST(TitleParsersTest, OutlookNameIsThePieceBeforeTheFinalOutlook) {
    const std::pair<Text, Text> cases[] = {
        { "Mail - Display Name - OUTLOOK", "Display Name" },
        { "Inbox - Part One - Part Two - Outlook", "Part Two" },
        { "Mail -   Spaced\tName \t - Outlook  ", "Spaced\tName" },
        { "Mail - Jörg-Müller - Outlook", "Jörg-Müller" },
        { std::nullopt, std::nullopt },
        { "Display Name - Outlook", std::nullopt },
        { "Mail - \t - Outlook", std::nullopt },
        { "Mail - Display Name - Outlook Web", std::nullopt },
        { "Mail-Display Name-Outlook", std::nullopt },
        { "Mail \u2013 Display Name \u2013 Outlook", std::nullopt },
    };
    for (const auto& [title, name] : cases)
        EXPECT_EQ(TitleParsers::outlookName(title), name) << title.value_or("no title");
}

} // namespace
} // namespace orvane
