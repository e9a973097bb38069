// The accounts' pages on screen: switching accounts shows another page
// without reloading any, a save that fails leaves Orvane running, a page
// that is not there shows Orvane's status page with a Reload button and
// comes back (after its web process was killed, by itself, the other
// account untouched; after its server could not be reached, on Reload), and
// a file a page downloads is toasted and its "Show in Files" asks the
// desktop's file manager, on the session bus, to show that file.
#include "AtSpi.h"
#include "DesktopFiles.h"
#include "E2ETest.h"

#include <sys/resource.h>

#include <csignal>
#include <set>

namespace orvane::test {

class AccountSwitchTest : public E2ETest {
protected:
    // The status page's Reload button is drawn in the accent colour; the
    // stand-in pages fill the web area with theirs.
    static constexpr Screenshot::Color kAccent { 0x35, 0x84, 0xe4 };
    bool waitForStatusPage(const std::string& name, Screenshot::Color page) {
        auto window = orvane.geometry(mainWindow()).value_or(Screenshot::Rect {});
        return waitForScreenshot(name, [&](auto& shot) {
            return shot.share(window, kAccent) > 0.002 && shot.share(window, page) < 0.01;
        });
    }
};

TEST_F(AccountSwitchTest, PagesShowUnreloadedThroughAFailedSaveAKilledProcessADownloadAndADeadServer) {
    server.serve("/files/report.pdf", "%PDF-1.4 report", "application/pdf", 200,
        { { "Content-Disposition", "attachment; filename=\"report.pdf\"" } });
    serveWithRemote("/e2e/red.html", "/e2e/red.html");
    // The Outlook page's second load waits until the test lets it go.
    holdSecondAnswer("/e2e/green.html");
    orvane.setEnvironment("GTK_A11Y", "atspi");
    orvane.setEnvironment("ORVANE_PRINT_TO_PDF", orvane.folder() + "/printed.pdf");
    ASSERT_TRUE(startOrvane("/e2e/red.html?who=gmail"));
    EXPECT_EQ(orvane.actionEnabled("check-for-updates"), false) << "no update feed configured";
    ASSERT_TRUE(orvane.activateAction("print")) << "no account: nothing to print";
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    std::set<int> before = webProcesses(), added;
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("green") == 1; }, 30s));
    std::ranges::set_difference(webProcesses(), before, std::inserter(added, added.end()));
    ASSERT_EQ(added.size(), 1u);
    auto ids = orvane.accountIDs();
    ASSERT_EQ(ids.size(), 2u);
    auto point = webAreaPoint();

    // The account added last is selected.
    EXPECT_EQ(orvane.selectedAccountID(), ids[1]);
    EXPECT_TRUE(waitForColor(point, kGreen, "second"));
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_EQ(orvane.selectedAccountID(), ids[0]);
    EXPECT_TRUE(waitForColor(point, kRed, "first"));
    EXPECT_FALSE(Files::exists(orvane.folder() + "/printed.pdf"));

    // Under a file-size limit (ulimit -f) smaller than the file, the save
    // fails as on a full disk: Orvane goes on and the old file stays whole.
    const auto saved = Files::read(orvane.accountsFilePath(), 1 << 20);
    struct rlimit limit { 16, RLIM_INFINITY };
    ASSERT_EQ(prlimit(orvane.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    EXPECT_TRUE(waitForColor(point, kGreen, "file-size-limit")) << "Orvane goes on";
    EXPECT_EQ(Files::read(orvane.accountsFilePath(), 1 << 20), saved);
    EXPECT_EQ(loads("green"), 1);
    // Lifted again, so that nothing added below runs under it.
    limit.rlim_cur = RLIM_INFINITY;
    EXPECT_EQ(prlimit(orvane.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);

    // The Outlook page's web process killed: the status page, then the page
    // again, loaded anew by itself; the Gmail page was never reloaded.
    ASSERT_EQ(kill(*added.begin(), SIGKILL), 0);
    EXPECT_TRUE(waitForStatusPage("killed", kGreen));
    ASSERT_TRUE(waitUntil([&] { return bool(held); }, 20s)) << "no reload by itself";
    soup_server_message_unpause(held.get());
    EXPECT_TRUE(waitForColor(point, kGreen, "back"));
    EXPECT_TRUE(waitUntil([&] { return loads("green") == 2; }, 20s));
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_TRUE(waitForColor(point, kRed, "other"));
    EXPECT_EQ(loads("red"), 1);

    // A download, and the desktop's file manager as far as ShowItems goes.
    std::vector<std::string> shown;
    BusService files(orvane.bus(), DesktopFiles::kFileManagerName, DesktopFiles::kFileManagerPath,
        "<node><interface name='org.freedesktop.FileManager1'><method name='ShowItems'>"
        "<arg type='as'/><arg type='s'/></method></interface></node>",
        [&](const std::string&, GVariant* parameters, const char*) {
            GVariantPtr uris(g_variant_get_child_value(parameters, 0));
            shown.push_back(GCharPtr(g_variant_print(uris.get(), FALSE)).get());
            return nullptr;
        });
    ASSERT_TRUE(files.owned);
    AtSpi atspi(orvane.bus());
    ASSERT_TRUE(atspi);
    runInPage("gmail", "location.href = '/files/report.pdf'");
    EXPECT_TRUE(atspi.shows("label", "“report.pdf” downloaded")) << atspi.seen();
    ASSERT_TRUE(atspi.press("button", "Show in Files")) << atspi.seen();
    EXPECT_TRUE(atspi.shows("button", "Downloads · Downloads")) << atspi.seen();
    std::string file = std::string(orvane.getenv("HOME")) + "/Downloads/report.pdf";
    EXPECT_TRUE(waitUntil([&] { return shown.size() == 1; }, 10s));
    EXPECT_EQ(shown, std::vector<std::string> { "['file://" + file + "']" });
    EXPECT_EQ(Files::read(file, 1 << 10), "%PDF-1.4 report");

    // Started again with the Gmail page's server gone (a port nothing listens
    // on until the test serves the page there): the status page, and the
    // page on Reload.
    const unsigned port = FixtureServer().port();
    ASSERT_TRUE(orvane.stop());
    orvane.overrideServices("http://127.0.0.1:" + std::to_string(port) + "/", server.uri("/e2e/green.html"),
        server.uri("/e2e/blue.html"));
    ASSERT_TRUE(orvane.start());
    EXPECT_TRUE(waitForStatusPage("unreachable", kRed));
    auto late = adopt(soup_server_new(nullptr, nullptr));
    auto serveRed = +[](SoupServer*, SoupServerMessage* message, const char*, GHashTable*, gpointer) {
        FixtureServer::reply(
            message, 200, "<html><body style='margin:0;height:100vh;background:#d62828'></body></html>");
    };
    soup_server_add_handler(late.get(), nullptr, serveRed, nullptr, nullptr);
    ASSERT_TRUE(soup_server_listen_local(late.get(), port, SOUP_SERVER_LISTEN_IPV4_ONLY, nullptr));
    // The Reload button has the keyboard.
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "Return"));
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "reloaded"));
}

} // namespace orvane::test
