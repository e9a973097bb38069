// Switching accounts shows another page without reloading any, a save that
// fails leaves Orvane running, and one account's web process killed takes no
// other account down.
#include "E2ETest.h"

#include <csignal>
#include <set>
#include <sstream>
#include <sys/resource.h>

namespace orvane::test {

class AccountSwitchTest : public E2ETest {
protected:
    // The live WebKit web processes below orvane (through the sandbox's own).
    std::set<int> webProcesses() const {
        auto listing = orvane.run({ "ps", "-e", "-o", "pid=,ppid=,s=,comm=" });
        std::map<int, int> parents;
        std::set<int> candidates, found;
        std::istringstream lines(listing ? listing->output : "");
        for (std::string line; std::getline(lines, line);) {
            int pid = 0, parent = 0;
            char state = 0, name[32] = "";
            if (sscanf(line.c_str(), "%d %d %c %31s", &pid, &parent, &state, name) != 4)
                continue;
            parents[pid] = parent;
            if (state != 'Z' && g_str_has_prefix(name, "WebKitWebProces"))
                candidates.insert(pid);
        }
        for (int pid : candidates)
            for (int above = parents[pid]; above > 1; above = parents.count(above) ? parents[above] : 0)
                if (above == orvane.pid())
                    found.insert(pid);
        return found;
    }
    // How often a page asked for its next command (every 50 ms while alive).
    int polls(const std::string& who) const { return requests("/notify/next", "who=" + who); }
};

TEST_F(AccountSwitchTest, SelectAccountShowsEachPageUnreloadedAndAKilledWebProcessTakesNoOtherAccountDown) {
    serveWithRemote("/e2e/red.html", "/e2e/red.html");
    serveWithRemote("/e2e/green.html", "/e2e/green.html");
    ASSERT_TRUE(startOrvane("/e2e/red.html?who=gmail", "/e2e/green.html?who=outlook"));
    EXPECT_EQ(orvane.actionEnabled("check-for-updates"), false) << "no update feed configured";
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    std::set<int> before = webProcesses();
    ASSERT_FALSE(before.empty());
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
        16, 16
    };
    ASSERT_EQ(prlimit(orvane.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    EXPECT_TRUE(waitForColor(point, kGreen, "file-size-limit"));
    EXPECT_TRUE(orvane.isRunning());
    EXPECT_EQ(Files::read(orvane.accountsFilePath(), 1 << 20), saved);

    // The Outlook page runs in the web process that came with it. Killed,
    // that page is gone while the Gmail page goes on asking for commands and
    // answers them, and Orvane can still select and show it.
    std::set<int> after = webProcesses(), added;
    std::ranges::set_difference(after, before, std::inserter(added, added.end()));
    ASSERT_EQ(added.size(), 1u);
    ASSERT_EQ(kill(*added.begin(), SIGKILL), 0);
    ASSERT_TRUE(waitUntil([&] { return !webProcesses().contains(*added.begin()); }));
    int outlookPolls = polls("outlook"), gmailPolls = polls("gmail");
    runInPage("outlook", "report('alive')");
    ASSERT_TRUE(waitUntil([&] { return polls("gmail") >= gmailPolls + 20; }));
    EXPECT_LE(polls("outlook"), outlookPolls + 1) << "the killed page still asks";
    EXPECT_TRUE(events("outlook", "alive").empty());
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[0]);
    runInPage("gmail", "report('still', document.visibilityState)");
    ASSERT_TRUE(waitForEvents("gmail", "still"));
    EXPECT_EQ(events("gmail", "still").front().data, "visible");
    EXPECT_TRUE(waitForColor(point, kRed, "after-the-kill"));
}

} // namespace orvane::test
