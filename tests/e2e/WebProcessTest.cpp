// The WebKit web processes under the real binary: one account's process
// killed leaves Orvane and the other accounts working, and an installed
// Orvane loads its web-process extension from beside itself, only from a
// folder no other user can change.
#include "E2ETest.h"

#include <csignal>
#include <set>
#include <sys/stat.h>

namespace orvane::test {

namespace {

// The live WebKit web processes below a process (through the sandbox's own).
std::set<int> webProcessesUnder(int root) {
    std::map<int, int> parents;
    std::map<int, std::string> names;
    GDir* proc = g_dir_open("/proc", 0, nullptr);
    while (const char* entry = proc ? g_dir_read_name(proc) : nullptr) {
        // "pid (name) state ppid …"; the name may hold spaces and parentheses.
        gchar* stat = nullptr;
        if (atoi(entry) <= 0 || !g_file_get_contents(("/proc/" + std::string(entry) + "/stat").c_str(), &stat, nullptr, nullptr))
            continue;
        std::string text(stat);
        g_free(stat);
        auto open = text.find('('), close = text.rfind(')');
        if (open == std::string::npos || close == std::string::npos || close + 4 > text.size())
            continue;
        if (text[close + 2] != 'Z')
            names[atoi(entry)] = text.substr(open + 1, close - open - 1);
        parents[atoi(entry)] = atoi(text.c_str() + close + 4);
    }
    if (proc)
        g_dir_close(proc);
    std::set<int> found;
    for (const auto& [pid, name] : names)
        for (int above = parents[pid]; above > 1; above = parents.count(above) ? parents[above] : 0)
            if (above == root && name.rfind("WebKitWebProces", 0) == 0)
                found.insert(pid);
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
};

TEST_F(WebProcessTest, AKilledWebProcessTakesNoOtherAccountDown) {
    ASSERT_TRUE(startOrvane("/notify/index.html?who=gmail", "/notify/index.html?who=outlook"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded", 1, 30s));
    std::set<int> before = webProcessesUnder(orvane.pid());
    ASSERT_FALSE(before.empty());
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(waitForEvents("outlook", "loaded", 1, 30s));

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
