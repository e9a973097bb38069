// Routing a mailto: link to a sending account: which links are taken, when
// the picker waits, and what a choice writes to the store.
#include "MailtoRouter.h"

#include "AppPaths.h"
#include "Files.h"
#include "MailService.h"
#include "SenderChoice.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvane {
namespace {

class MailtoRouterTest : public ::testing::Test {
protected:
    struct Composed {
        std::string accountID;
        MailtoComponents mailto;
    };

    void SetUp() override {
        test::freshXDGFolders();
        store = std::make_unique<AccountStore>();
        router = std::make_unique<MailtoRouter>(*store, MailtoRouter::Hooks {
            [this] { ++presented; },
            [this](const Account& account, const MailtoComponents& mailto) {
                // The store already names the sender when the page is asked.
                EXPECT_EQ(store->selectedAccountID(), account.id);
                composed.push_back({ account.id, mailto });
            },
            [this] { ++pendingChanges; } });
    }

    static nlohmann::json savedFile() {
        auto bytes = Files::read(AppPaths::accountsFile(), 1 << 20);
        return bytes ? nlohmann::json::parse(*bytes, nullptr, false) : nlohmann::json();
    }

    std::unique_ptr<AccountStore> store;
    std::unique_ptr<MailtoRouter> router;
    int presented = 0;
    int pendingChanges = 0;
    std::vector<Composed> composed;
};

TEST_F(MailtoRouterTest, IgnoresOtherLinksAndEveryLinkWithoutMailAccounts) {
    // No account at all, then only a calendar: nothing happens, the window
    // is not even brought forward.
    router->handleOpenURL("mailto:a@example.com");
    const Account gmail = store->addAccount();
    store->addCalendar(gmail);
    store->remove(gmail);
    ASSERT_EQ(store->accounts().size(), 1u);
    ASSERT_TRUE(store->accounts()[0].isCalendar());
    router->handleOpenURL("mailto:a@example.com");
    EXPECT_EQ(presented, 0);
    EXPECT_FALSE(router->pendingMailto());

    store->addAccount();
    for (auto url : { "https://example.com/", "file:///etc/passwd", "", "mailtox:a@b.c", "javascript:alert(1)" })
        router->handleOpenURL(url);
    EXPECT_EQ(presented, 0);
    EXPECT_EQ(pendingChanges, 0);
    EXPECT_TRUE(composed.empty());
}

TEST_F(MailtoRouterTest, AlwaysAskShowsThePickerEvenWithAValidDefault) {
    const Account work = store->addAccount();
    store->setDefaultMailtoAccountID(work.id);
    ASSERT_TRUE(store->alwaysAskOnMailto());

    router->handleOpenURL("mailto:ana@example.com?subject=Hi");
    EXPECT_EQ(presented, 1);
    ASSERT_TRUE(router->pendingMailto());
    EXPECT_EQ(router->pendingMailto()->to, std::vector<std::string>({ "ana@example.com" }));
    EXPECT_TRUE(composed.empty());
    EXPECT_EQ(pendingChanges, 1);

    // A second link replaces the waiting one.
    router->handleOpenURL("MAILTO:tom@example.com");
    ASSERT_TRUE(router->pendingMailto());
    EXPECT_EQ(router->pendingMailto()->to, std::vector<std::string>({ "tom@example.com" }));
    EXPECT_FALSE(router->pendingMailto()->subject);
    EXPECT_EQ(pendingChanges, 2);
}

TEST_F(MailtoRouterTest, WithoutAskingTheDefaultComposesOrThePickerStandsIn) {
    const Account home = store->addAccount();
    const Account work = store->addOutlookAccount();
    const Account calendar = store->addCalendar(home);
    store->setAlwaysAskOnMailto(false);
    store->setSelectedAccountID(home.id);

    // No default: the picker.
    router->handleOpenURL("mailto:a@example.com");
    EXPECT_TRUE(router->pendingMailto());
    router->cancel();
    EXPECT_FALSE(router->pendingMailto());

    // A default that names no account: the picker.
    store->setDefaultMailtoAccountID("00000000-0000-4000-8000-000000000000");
    router->handleOpenURL("mailto:a@example.com");
    EXPECT_TRUE(router->pendingMailto());
    router->cancel();
    EXPECT_TRUE(composed.empty());

    // A valid default composes at once, and is selected, remembered and saved.
    store->setDefaultMailtoAccountID(work.id);
    presented = 0;
    router->handleOpenURL("mailto:a@example.com?body=Hello");
    EXPECT_FALSE(router->pendingMailto());
    ASSERT_EQ(composed.size(), 1u);
    EXPECT_EQ(composed[0].accountID, work.id);
    EXPECT_EQ(composed[0].mailto.body, "Hello");
    EXPECT_EQ(store->selectedAccountID(), work.id);
    EXPECT_EQ(store->lastUsedSenderID(), work.id);
    EXPECT_EQ(savedFile().value("selectedAccountID", ""), work.id);
    EXPECT_GE(presented, 1);

    // A calendar companion as default is still selected and remembered; the
    // web layer finds no compose script for it.
    store->setDefaultMailtoAccountID(calendar.id);
    router->handleOpenURL("mailto:b@example.com");
    ASSERT_EQ(composed.size(), 2u);
    EXPECT_EQ(composed[1].accountID, calendar.id);
    EXPECT_EQ(store->selectedAccountID(), calendar.id);
    EXPECT_EQ(store->lastUsedSenderID(), calendar.id);
    EXPECT_FALSE(MailService::forService(calendar.service).composeJS);
}

TEST_F(MailtoRouterTest, PickComposesTheWaitingLinkThenClearsItAndCancelLeavesNothing) {
    const Account home = store->addAccount();
    const Account work = store->addAccount();
    store->setSelectedAccountID(home.id);
    store->save();

    router->handleOpenURL("mailto:a@example.com?subject=One");
    router->cancel();
    EXPECT_FALSE(router->pendingMailto());
    EXPECT_EQ(store->selectedAccountID(), home.id);
    EXPECT_FALSE(store->lastUsedSenderID());
    EXPECT_TRUE(composed.empty());
    // A cancel or a pick with nothing waiting does nothing.
    router->cancel();
    router->pick(work);
    EXPECT_TRUE(composed.empty());
    EXPECT_EQ(store->selectedAccountID(), home.id);

    router->handleOpenURL("mailto:a@example.com?subject=Two");
    router->pick(work);
    ASSERT_EQ(composed.size(), 1u);
    EXPECT_EQ(composed[0].accountID, work.id);
    EXPECT_EQ(composed[0].mailto.subject, "Two");
    EXPECT_FALSE(router->pendingMailto());
    EXPECT_EQ(store->selectedAccountID(), work.id);
    EXPECT_EQ(store->lastUsedSenderID(), work.id);
    EXPECT_EQ(savedFile().value("selectedAccountID", ""), work.id);
    // The last sender now leads the next picker.
    EXPECT_EQ(SenderChoice::highlightedID(*store), work.id);
}

TEST_F(MailtoRouterTest, HostileLinksAreBoundedAndReachThePageOnlyAsText) {
    const Account home = store->addAccount();
    store->setAlwaysAskOnMailto(false);
    store->setDefaultMailtoAccountID(home.id);

    // A megabyte of body arrives whole and quickly.
    std::string big = "mailto:a@example.com?body=" + std::string(1024 * 1024, 'x');
    router->handleOpenURL(big);
    ASSERT_EQ(composed.size(), 1u);
    EXPECT_EQ(composed.back().mailto.body->size(), 1024u * 1024u);
    // Past the bound a link is not taken at all.
    router->handleOpenURL("mailto:a@example.com?body=" + std::string(MailtoRouter::kMaxURLBytes, 'x'));
    EXPECT_EQ(composed.size(), 1u);

    // Attachments are never asked for, and broken escapes give an empty link.
    router->handleOpenURL("mailto:a@example.com?attach=file:///etc/passwd&attachment=%2Fetc%2Fshadow&subject=s");
    ASSERT_EQ(composed.size(), 2u);
    EXPECT_EQ(composed.back().mailto, (MailtoComponents { { "a@example.com" }, {}, {}, "s", std::nullopt }));
    router->handleOpenURL("mailto:a@example.com?subject=%FF%FE");
    ASSERT_EQ(composed.size(), 3u);
    EXPECT_EQ(composed.back().mailto, MailtoComponents {});

    // Quotes and script end up inside JSON string literals.
    router->handleOpenURL("mailto:x@example.com?subject=%22);alert(1)//&body=%3C/script%3E%22");
    ASSERT_EQ(composed.size(), 4u);
    std::string script = MailService::gmail().composeJS(composed.back().mailto);
    EXPECT_NE(script.find(jsonLiteral("\");alert(1)//")), std::string::npos);
    for (size_t at = script.find("\");alert"); at != std::string::npos; at = script.find("\");alert", at + 1))
        EXPECT_EQ(script[at - 1], '\\') << "a quote from the link closes a string in the script";
    EXPECT_EQ(script.find("</script>\""), std::string::npos);
}

} // namespace
} // namespace orvane
