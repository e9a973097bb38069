// The WebKit web processes under the real binary: one account's process
// killed leaves Orvane and the other accounts working, and an installed
// Orvane loads its web-process extension from beside itself, only from a
// folder no other user can change.
#include "E2ETest.h"

#include <csignal>
#include <set>
#include <sstream>
#include <sys/stat.h>

namespace orvane::test {

class WebProcessTest : public E2ETest {
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
    // How often a page of tests/fixtures/notify asked for its next command.
    int polls(const std::string& who) const {
        auto requests = server.requests("/notify/next");
        return int(std::count_if(requests.begin(), requests.end(), [&](const auto& r) { return r.query == "who=" + who; }));
    }
};

TEST_F(WebProcessTest, AKilledWebProcessTakesNoOtherAccountDown) {
    ASSERT_TRUE(startOrvane("/notify/index.html?who=gmail", "/notify/index.html?who=outlook"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded", 1, 30s));
    std::set<int> before = webProcesses();
    ASSERT_FALSE(before.empty());
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(waitForEvents("outlook", "loaded", 1, 30s));

    // The Outlook page runs in the web process that came with it.
    std::set<int> after = webProcesses(), added;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::inserter(added, added.end()));
    ASSERT_EQ(added.size(), 1u);
    ASSERT_EQ(kill(*added.begin(), SIGKILL), 0);

    // That page is gone, while the Gmail page goes on asking for commands
    // (every 50 ms) and answers them.
    ASSERT_TRUE(waitUntil([&] { return !webProcesses().contains(*added.begin()); }));
    int outlookPolls = polls("outlook"), gmailPolls = polls("gmail");
    runInPage("outlook", "report('alive')");
    ASSERT_TRUE(waitUntil([&] { return polls("gmail") >= gmailPolls + 20; }));
    EXPECT_LE(polls("outlook"), outlookPolls + 1) << "the killed page still asks";
    EXPECT_TRUE(events("outlook", "alive").empty());

    // Orvane still answers: the Gmail account can be selected and shows.
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_EQ(orvane.selectedAccountID(), orvane.accountIDs()[0]);
    runInPage("gmail", "report('still', document.visibilityState)");
    ASSERT_TRUE(waitForEvents("gmail", "still", 1));
    EXPECT_EQ(events("gmail", "still").front().data, "visible");
}

TEST_F(WebProcessTest, AnInstalledOrvaneLoadsItsExtensionOnlyFromAPrivateFolder) {
    std::string prefix = orvane.folder() + "/prefix";
    auto installed = orvane.run({ "cmake", "--install", ORVANE_BUILD_DIR, "--prefix", prefix }, 60s);
    ASSERT_TRUE(installed && installed->status == 0) << (installed ? installed->output : "cmake did not run");
    std::string extensions = prefix + "/" + ORVANE_WEBEXT_INSTALL_DIR;
    ASSERT_TRUE(g_file_test((extensions + "/liborvane_webext.so").c_str(), G_FILE_TEST_IS_REGULAR));
    orvane.setBinary(prefix + "/bin/orvane");
    // Whether the pages of the next run carry the extension's stamp.
    auto stampOnNextStart = [&](int run) -> std::string {
        if (!startOrvane("/notify/index.html?who=gmail") || (run == 1 && !orvane.activateAction("add-account"))
            || !waitForEvents("gmail", "loaded", run, 30s))
            return "no page";
        runInPage("gmail", "report('stamp', typeof window.__orvanePage)");
        if (!waitForEvents("gmail", "stamp", run))
            return "no answer";
        orvane.stop();
        return events("gmail", "stamp").back().data.get<std::string>();
    };

    // Group-writable: refused, so pages carry no stamp (the build tree's
    // folder, private, is no fallback).
    ASSERT_EQ(chmod(extensions.c_str(), 0775), 0);
    EXPECT_EQ(stampOnNextStart(1), "undefined");
    EXPECT_NE(orvane.log().find("Running without the web-process extension"), std::string::npos);
    ASSERT_EQ(chmod(extensions.c_str(), 0755), 0);
    EXPECT_EQ(stampOnNextStart(2), "string");
}

} // namespace orvane::test
