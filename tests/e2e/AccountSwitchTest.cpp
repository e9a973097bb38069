// Switching accounts shows another page without reloading any.
#include "E2ETest.h"

#include "Files.h"

#include <sys/resource.h>

namespace orvane::test {

class AccountSwitchTest : public E2ETest { };

TEST_F(AccountSwitchTest, SelectAccountShowsEachPageWithoutReloading) {
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    auto ids = accountIDs();
    ASSERT_EQ(ids.size(), 2u);
    ASSERT_TRUE(waitUntil([&] { return loads("red") == 1 && loads("green") == 1; }, 30s));
    auto point = webAreaPoint();

    // The account added last is selected.
    EXPECT_EQ(orvane.selectedAccountID(), ids[1]);
    EXPECT_TRUE(waitForColor(point, kGreen, "two-accounts"));

    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[0]);
    EXPECT_TRUE(waitForColor(point, kRed, "two-accounts-first"));

    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[1]);
    EXPECT_TRUE(waitForColor(point, kGreen, "two-accounts-second"));

    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_TRUE(waitForColor(point, kRed, "two-accounts-first-again"));

    EXPECT_EQ(server.requestCount("/e2e/red.html"), 1);
    EXPECT_EQ(server.requestCount("/e2e/green.html"), 1);
    EXPECT_EQ(loads("red"), 1);
    EXPECT_EQ(loads("green"), 1);

    // Under a file-size limit (ulimit -f) smaller than the file, the save
    // fails as on a full disk: Orvane goes on and the old file stays whole.
    const auto saved = Files::read(orvane.accountsFilePath(), 1 << 20);
    struct rlimit limit { 16, 16 };
    ASSERT_EQ(prlimit(orvane.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    EXPECT_TRUE(waitForColor(point, kGreen, "two-accounts-file-size-limit"));
    EXPECT_TRUE(orvane.isRunning());
    EXPECT_EQ(Files::read(orvane.accountsFilePath(), 1 << 20), saved);
}

TEST_F(AccountSwitchTest, SelectingAPositionBeyondTheListDoesNothing) {
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    auto ids = accountIDs();
    ASSERT_EQ(ids.size(), 3u);
    ASSERT_TRUE(waitUntil([&] { return loads("red") == 2 && loads("green") == 1; }, 30s));

    // Mail accounts in stored order: Gmail, Outlook, Gmail.
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    ASSERT_EQ(orvane.selectedAccountID(), ids[1]);
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kGreen, "three-accounts"));

    for (int position : { 4, 9, 0, -1, 100 })
        ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(position)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[1]);
    EXPECT_EQ(accountIDs(), ids);
    auto shot = orvane.screenshot("three-accounts-after");
    ASSERT_TRUE(shot);
    EXPECT_TRUE(shot->pixel(point.first, point.second).near(kGreen));

    // A stored selection that names no account leaves the web area empty.
    ASSERT_TRUE(orvane.stop());
    auto file = orvane.accounts();
    file["selectedAccountID"] = "00000000-0000-4000-8000-000000000000";
    orvane.writeAccountsFile(file);
    server.resetCounts();
    ASSERT_TRUE(orvane.start());
    ASSERT_TRUE(waitUntil([&] { return loads("red") == 2 && loads("green") == 1; }, 30s));
    point = webAreaPoint();
    const Screenshot::Color windowBackground { 0xfa, 0xfa, 0xfa };
    EXPECT_TRUE(waitForColor(point, windowBackground, "unknown-selection"));
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(3)));
    EXPECT_TRUE(waitForColor(point, kRed, "unknown-selection-then-third"));
}

} // namespace orvane::test
