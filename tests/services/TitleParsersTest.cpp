#include "TitleParsers.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using TitleParsers::gmailEmail;
using TitleParsers::gmailInboxUnread;
using TitleParsers::outlookName;
using Count = std::optional<int64_t>;
using Text = std::optional<std::string>;

TEST(TitleParsersTest, GmailUnreadReadsOnlyInboxTitles) {
    EXPECT_EQ(gmailInboxUnread("Inbox (3) - a@b.c - Gmail"), Count(3));
    EXPECT_EQ(gmailInboxUnread("INBOX (3)"), Count(3));
    EXPECT_EQ(gmailInboxUnread("inbox(12)"), Count(12));
    EXPECT_EQ(gmailInboxUnread("Inbox - a@b.c - Gmail"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inboxes (4)"), Count(4)); // a prefix test, nothing more

    EXPECT_EQ(gmailInboxUnread(std::nullopt), Count());
    EXPECT_EQ(gmailInboxUnread(""), Count());
    EXPECT_EQ(gmailInboxUnread(" Inbox (3)"), Count());
    EXPECT_EQ(gmailInboxUnread("Starred - x - Gmail"), Count());
    EXPECT_EQ(gmailInboxUnread("Sent Mail (3) - a@b.c - Gmail"), Count());
}

TEST(TitleParsersTest, GmailUnreadCountsOnlyWhatStandsBetweenTheFirstParentheses) {
    EXPECT_EQ(gmailInboxUnread("Inbox (1,234) - x - Gmail"), Count(1234));
    EXPECT_EQ(gmailInboxUnread("Inbox (1.234.567) - x - Gmail"), Count(1234567));
    EXPECT_EQ(gmailInboxUnread("Inbox ( 4 2 )"), Count(42));
    EXPECT_EQ(gmailInboxUnread("Inbox (3 new) (7)"), Count(3));
    EXPECT_EQ(gmailInboxUnread("Inbox )(3)"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox (3"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox 3)"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox ()"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox (unread)"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox (-5)"), Count(5)); // the sign is no digit
}

TEST(TitleParsersTest, GmailUnreadRefusesNumbersItCannotReadAsPlainDigits) {
    EXPECT_EQ(gmailInboxUnread("Inbox (9223372036854775807)"), Count(INT64_MAX));
    EXPECT_EQ(gmailInboxUnread("Inbox (9223372036854775808)"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox (99999999999999999999)"), Count(0));
    // Digits of other scripts and numeric symbols are kept, then fail the
    // ASCII parse, so the count reads as 0 rather than a wrong number.
    EXPECT_EQ(gmailInboxUnread("Inbox (\u0663)"), Count(0));        // Arabic-Indic three
    EXPECT_EQ(gmailInboxUnread("Inbox (1\u0663)"), Count(0));
    EXPECT_EQ(gmailInboxUnread("Inbox (\u0969\u0968)"), Count(0));  // Devanagari
    EXPECT_EQ(gmailInboxUnread("Inbox (\uFF13)"), Count(0));        // full-width three
    EXPECT_EQ(gmailInboxUnread("Inbox (2\u00B2)"), Count(0));       // superscript two
    EXPECT_EQ(gmailInboxUnread("Inbox (\u00BD)"), Count(0));        // one half
    EXPECT_EQ(gmailInboxUnread("Inbox (\u2167)"), Count(0));        // Roman numeral eight
    // Letters of other scripts are dropped like any other non-digit.
    EXPECT_EQ(gmailInboxUnread("Inbox (\u0628 5)"), Count(5));
    // A dotted capital I folds to "i" and a combining dot: not "inbox".
    EXPECT_EQ(gmailInboxUnread("\u0130nbox (3)"), Count());
    EXPECT_EQ(gmailInboxUnread(std::string("Inbox (\xFF" "3)")), Count());
}

TEST(TitleParsersTest, GmailEmailTakesTheFirstAddressLikePiece) {
    EXPECT_EQ(gmailEmail("Inbox (3) - someone@example.com - Gmail"), Text("someone@example.com"));
    EXPECT_EQ(gmailEmail("Inbox - a@b.c - Gmail"), Text("a@b.c"));
    EXPECT_EQ(gmailEmail("x@y.z first@a.b"), Text("x@y.z"));
    EXPECT_EQ(gmailEmail("Inbox - @handle.x - real@host.org - Gmail"), Text("real@host.org"));
    EXPECT_EQ(gmailEmail("Inbox - user@localhost - other@host.org"), Text("other@host.org"));
    EXPECT_EQ(gmailEmail("Inbox - (someone@example.com) - Gmail"), Text("(someone@example.com)"));
    EXPECT_EQ(gmailEmail("Inbox - <a@b.c> - Gmail"), Text("<a@b.c>"));
    // The hyphen and the tab are not separators.
    EXPECT_EQ(gmailEmail("Inbox-a@b.c-Gmail"), Text("Inbox-a@b.c-Gmail"));
    EXPECT_EQ(gmailEmail("x\ta@b.c"), Text("x\ta@b.c"));

    EXPECT_EQ(gmailEmail(std::nullopt), Text());
    EXPECT_EQ(gmailEmail(""), Text());
    EXPECT_EQ(gmailEmail("   "), Text());
    EXPECT_EQ(gmailEmail("Inbox (3) - Gmail"), Text());
    EXPECT_EQ(gmailEmail("@a.b"), Text());
    EXPECT_EQ(gmailEmail("user@localhost"), Text());
}

TEST(TitleParsersTest, GmailEmailEndsThePieceAtEverySeparator) {
    for (std::string separator : { " ", ",", ";", "|", "\u2013", "\u2014" }) {
        SCOPED_TRACE(separator);
        EXPECT_EQ(gmailEmail("Inbox" + separator + "a@b.c" + separator + "Gmail"), Text("a@b.c"));
        EXPECT_EQ(gmailEmail("a@b.c" + separator), Text("a@b.c"));
        EXPECT_EQ(gmailEmail(separator + separator + "a@b.c"), Text("a@b.c"));
    }
    EXPECT_EQ(gmailEmail("a@b.c,d@e.f"), Text("a@b.c"));
    EXPECT_EQ(gmailEmail("Inbox \u2014a@b.c\u2013x"), Text("a@b.c"));
    // Other dashes stay inside the piece.
    EXPECT_EQ(gmailEmail("x\u2012a@b.c"), Text("x\u2012a@b.c"));
}

TEST(TitleParsersTest, OutlookNameIsThePieceBeforeTheFinalOutlook) {
    EXPECT_EQ(outlookName("Mail - Display Name - Outlook"), Text("Display Name"));
    EXPECT_EQ(outlookName("Mail - Display Name - OUTLOOK"), Text("Display Name"));
    EXPECT_EQ(outlookName("Inbox - Part One - Part Two - Outlook"), Text("Part Two"));
    EXPECT_EQ(outlookName("Mail -   Spaced\tName \t - Outlook  "), Text("Spaced\tName"));
    EXPECT_EQ(outlookName("Mail - Jörg-Müller - Outlook"), Text("Jörg-Müller"));
    EXPECT_EQ(outlookName(" - Name - Outlook"), Text("Name"));

    EXPECT_EQ(outlookName(std::nullopt), Text());
    EXPECT_EQ(outlookName(""), Text());
    EXPECT_EQ(outlookName("Display Name - Outlook"), Text());
    EXPECT_EQ(outlookName("Mail -  - Outlook"), Text());
    EXPECT_EQ(outlookName("Mail - \t - Outlook"), Text());
    EXPECT_EQ(outlookName("Mail - Display Name - Outlook Web"), Text());
    EXPECT_EQ(outlookName("Mail - Display Name - Outlook\n"), Text());
    EXPECT_EQ(outlookName("Mail-Display Name-Outlook"), Text());
    EXPECT_EQ(outlookName("Mail \u2013 Display Name \u2013 Outlook"), Text());
}

} // namespace
} // namespace orvane
