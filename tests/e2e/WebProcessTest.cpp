// The WebKit web processes under the real binary: one account's process
// killed leaves Orvane and the other accounts working, and an installed
// Orvane loads its web-process extension from beside itself, only from a
// folder no other user can change.
#include "E2ETest.h"
#include "PageRemote.h"

#include "support/ChildProcess.h"

#include <csignal>
#include <map>
#include <set>
#include <sys/stat.h>

namespace orvane::test {

namespace {

// The WebKit web processes below a process (through the sandbox's own
// processes), read from /proc.
std::set<int> webProcessesUnder(int root) {
    std::map<int, int> parents;
    std::map<int, std::string> names;
    GDir* proc = g_dir_open("/proc", 0, nullptr);
    if (!proc)
        return {};
    while (const char* entry = g_dir_read_name(proc)) {
        int pid = atoi(entry);
        gchar* stat = nullptr;
        if (pid <= 0 || !g_file_get_contents(("/proc/" + std::string(entry) + "/stat").c_str(), &stat, nullptr, nullptr))
            continue;
        // "pid (name) state ppid …"; the name may hold spaces and parentheses.
        std::string text(stat);
        g_free(stat);
        auto open = text.find('('), close = text.rfind(')');
        if (open == std::string::npos || close == std::string::npos || close + 4 > text.size())
            continue;
        if (text[close + 2] != 'Z') // a dead one not yet reaped is gone
            names[pid] = text.substr(open + 1, close - open - 1);
        parents[pid] = atoi(text.c_str() + text.find(' ', close + 2) + 1);
    }
    g_dir_close(proc);
    std::set<int> found;
    for (const auto& [pid, name] : names) {
        for (int above = parents[pid]; above > 1; above = parents.count(above) ? parents[above] : 0) {
            if (above == root) {
                if (name.rfind("WebKitWebProces", 0) == 0)
                    found.insert(pid);
                break;
            }
        }
    }
    return found;
}

} // namespace

class WebProcessTest : public E2ETest {
protected:
    // How often a page of tests/fixtures/notify asked for its next command.
    int polls(const std::string& who) const {
        int count = 0;
        for (const auto& request : server.requests("/notify/next"))
            count += request.query == "who=" + who;
        return count;
    }

    PageRemote remote { server };
};

TEST_F(WebProcessTest, AKilledWebProcessTakesNoOtherAccountDown) {
    ASSERT_TRUE(startOrvane("/notify/index.html?who=gmail", "/notify/index.html?who=outlook"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(remote.waitForEvents("gmail", "loaded", 1, 30s));
    std::set<int> before = webProcessesUnder(orvane.pid());
    ASSERT_FALSE(before.empty());
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(remote.waitForEvents("outlook", "loaded", 1, 30s));
    auto ids = accountIDs();
    ASSERT_EQ(ids.size(), 2u);

    // The Outlook page runs in the web process that came with it.
    std::set<int> added;
    for (int pid : webProcessesUnder(orvane.pid()))
        if (!before.contains(pid))
            added.insert(pid);
    ASSERT_EQ(added.size(), 1u);
    ASSERT_EQ(kill(*added.begin(), SIGKILL), 0);

    // That page is gone, while the Gmail page goes on asking for commands
    // (every 50 ms) and answers them.
    ASSERT_TRUE(waitUntil([&] { return !webProcessesUnder(orvane.pid()).contains(*added.begin()); }));
    int outlookPolls = polls("outlook");
    int gmailPolls = polls("gmail");
    remote.run("gmail", "report('alive')");
    remote.run("outlook", "report('alive')");
    ASSERT_TRUE(remote.waitForEvents("gmail", "alive", 1));
    ASSERT_TRUE(waitUntil([&] { return polls("gmail") >= gmailPolls + 20; }));
    EXPECT_LE(polls("outlook"), outlookPolls + 1) << "the killed page still asks";
    EXPECT_TRUE(remote.events("outlook", "alive").empty());

    // Orvane still runs and answers: the Gmail account can be selected.
    EXPECT_TRUE(orvane.isRunning());
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[0]);
    remote.run("gmail", "report('still', document.visibilityState)");
    ASSERT_TRUE(remote.waitForEvents("gmail", "still", 1));
    EXPECT_EQ(remote.events("gmail", "still").front().data, "visible");
}

TEST_F(WebProcessTest, AnInstalledOrvaneLoadsItsExtensionOnlyFromAPrivateFolder) {
    std::string prefix = orvane.folder() + "/prefix";
    auto installed = ChildProcess::run({ "cmake", "--install", ORVANE_BUILD_DIR, "--prefix", prefix }, orvane.environment(), 60s);
    ASSERT_TRUE(installed && installed->status == 0) << (installed ? installed->output : "cmake did not run");
    std::string extensions = prefix + "/" + ORVANE_WEBEXT_INSTALL_DIR;
    ASSERT_TRUE(g_file_test((extensions + "/liborvane_webext.so").c_str(), G_FILE_TEST_IS_REGULAR));
    orvane.setBinary(prefix + "/bin/orvane");
    auto stampOnNextStart = [&](int start) -> std::string {
        if (!startOrvane("/notify/index.html?who=gmail"))
            return "not started";
        if (start == 1 && !orvane.activateAction("add-account"))
            return "no account";
        if (!remote.waitForEvents("gmail", "loaded", start, 30s))
            return "not loaded";
        remote.run("gmail", "report('stamp', typeof window.__orvanePage)");
        if (!remote.waitForEvents("gmail", "stamp", start))
            return "no answer";
        std::string type = remote.events("gmail", "stamp").back().data.get<std::string>();
        orvane.stop();
        return type;
    };

    // Group-writable: refused, so pages carry no stamp (the build tree's
    // folder, private, is not a fallback).
    ASSERT_EQ(chmod(extensions.c_str(), 0775), 0);
    EXPECT_EQ(stampOnNextStart(1), "undefined");
    EXPECT_NE(orvane.log().find("Running without the web-process extension"), std::string::npos) << orvane.log();
    ASSERT_EQ(chmod(extensions.c_str(), 0755), 0);
    EXPECT_EQ(stampOnNextStart(2), "string");
}

} // namespace orvane::test
