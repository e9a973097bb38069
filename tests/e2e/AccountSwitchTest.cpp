// Switching accounts shows another page without reloading any, and a save
// that fails leaves Orvane running. (A killed web process: RecoveryTest.)
#include "E2ETest.h"

#include <sys/resource.h>

namespace orvane::test {

using AccountSwitchTest = E2ETest;

TEST_F(AccountSwitchTest, SelectAccountShowsEachPageUnreloadedAndAFailedSaveLeavesOrvaneRunning) {
    serveWithRemote("/e2e/red.html", "/e2e/red.html");
    serveWithRemote("/e2e/green.html", "/e2e/green.html");
    ASSERT_TRUE(startOrvane("/e2e/red.html?who=gmail", "/e2e/green.html?who=outlook"));
    EXPECT_EQ(orvane.actionEnabled("check-for-updates"), false) << "no update feed configured";
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(waitForEvents("outlook", "loaded"));
    auto ids = orvane.accountIDs();
    ASSERT_EQ(ids.size(), 2u);
    auto point = webAreaPoint();

    // The account added last is selected.
    EXPECT_EQ(orvane.selectedAccountID(), ids[1]);
    EXPECT_TRUE(waitForColor(point, kGreen, "second"));
    for (int position : { 1, 2, 1 }) {
        ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(position)));
        EXPECT_EQ(orvane.selectedAccountID(), ids[position - 1]);
        EXPECT_TRUE(waitForColor(point, position == 1 ? kRed : kGreen, "select" + std::to_string(position)));
    }
    for (int position : { 3, 9, 0, -1, 100 })
        ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(position)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[0]);
    EXPECT_EQ(orvane.accountIDs(), ids);
    EXPECT_EQ(loads("red"), 1);
    EXPECT_EQ(loads("green"), 1);

    // Under a file-size limit (ulimit -f) smaller than the file, the save
    // fails as on a full disk: Orvane goes on and the old file stays whole.
    const auto saved = Files::read(orvane.accountsFilePath(), 1 << 20);
    struct rlimit limit {
        16, RLIM_INFINITY
    };
    ASSERT_EQ(prlimit(orvane.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    EXPECT_TRUE(waitForColor(point, kGreen, "file-size-limit"));
    EXPECT_TRUE(orvane.isRunning());
    EXPECT_EQ(Files::read(orvane.accountsFilePath(), 1 << 20), saved);
    // Lifted again, so that nothing added below runs under it.
    limit.rlim_cur = RLIM_INFINITY;
    EXPECT_EQ(prlimit(orvane.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
}

} // namespace orvane::test
