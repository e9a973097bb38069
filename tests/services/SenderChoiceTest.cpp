// What the sender picker offers, highlights and says.
#include "SenderChoice.h"

#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

class SenderChoiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::freshXDGFolders();
        store = std::make_unique<AccountStore>();
    }
    std::unique_ptr<AccountStore> store;
};

TEST_F(SenderChoiceTest, HighlightFollowsDefaultThenLastSenderThenFirstMailAccount) {
    EXPECT_FALSE(SenderChoice::highlightedID(*store));
    EXPECT_FALSE(SenderChoice::forReturn(*store));

    const Account home = store->addAccount();
    const Account calendar = store->addCalendar(home);
    const Account work = store->addOutlookAccount();
    // Calendars come after the mail side, never first.
    EXPECT_EQ(SenderChoice::highlightedID(*store), home.id);
    EXPECT_EQ(SenderChoice::forReturn(*store)->id, home.id);

    store->setLastUsedSenderID(work.id);
    EXPECT_EQ(SenderChoice::highlightedID(*store), work.id);
    store->setDefaultMailtoAccountID(calendar.id);
    EXPECT_EQ(SenderChoice::highlightedID(*store), calendar.id);
    EXPECT_EQ(SenderChoice::forReturn(*store)->id, calendar.id);

    // A highlighted id that names no account: Return does nothing.
    store->setDefaultMailtoAccountID("00000000-0000-4000-8000-000000000000");
    EXPECT_EQ(SenderChoice::highlightedID(*store), "00000000-0000-4000-8000-000000000000");
    EXPECT_FALSE(SenderChoice::forReturn(*store));
}

TEST_F(SenderChoiceTest, OffersTheFirstNineMailAccountsAndReturnReachesATenth) {
    std::vector<Account> mail;
    for (int i = 0; i < 10; ++i) {
        mail.push_back(store->addAccount());
        if (i == 0)
            store->addCalendar(mail.back());
    }
    auto offered = SenderChoice::pickable(*store);
    ASSERT_EQ(offered.size(), 9u);
    for (size_t i = 0; i < offered.size(); ++i)
        EXPECT_EQ(offered[i].id, mail[i].id);
    EXPECT_EQ(SenderChoice::hint(offered.size()), "Press 1\u20139  \u00b7  Return = default  \u00b7  Esc to cancel");

    EXPECT_EQ(SenderChoice::forDigit(*store, 1)->id, mail[0].id);
    EXPECT_EQ(SenderChoice::forDigit(*store, 9)->id, mail[8].id);
    for (int digit : { 0, 10, -1 })
        EXPECT_FALSE(SenderChoice::forDigit(*store, digit));

    store->setDefaultMailtoAccountID(mail[9].id);
    EXPECT_EQ(SenderChoice::forReturn(*store)->id, mail[9].id);

    // Fewer accounts: digits past the count are not bound.
    for (size_t i = 2; i < mail.size(); ++i)
        store->remove(mail[i]);
    EXPECT_EQ(SenderChoice::pickable(*store).size(), 2u);
    EXPECT_EQ(SenderChoice::hint(2), "Press 1\u20132  \u00b7  Return = default  \u00b7  Esc to cancel");
    EXPECT_EQ(SenderChoice::forDigit(*store, 2)->id, mail[1].id);
    EXPECT_FALSE(SenderChoice::forDigit(*store, 3));
}

TEST(SenderChoiceText, RecipientLineJoinsAddressesOrSaysNewMessage) {
    EXPECT_EQ(SenderChoice::recipientLine({}), "To: New message");
    MailtoComponents cc;
    cc.cc = { "c@example.com" };
    EXPECT_EQ(SenderChoice::recipientLine(cc), "To: New message");
    EXPECT_EQ(SenderChoice::recipientLine(*MailtoComponents::fromURL("mailto:a@b.c,d@e.f?to=g@h.i")),
        "To: a@b.c, d@e.f, g@h.i");
}

} // namespace
} // namespace orvane
