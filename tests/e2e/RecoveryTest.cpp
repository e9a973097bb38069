// A page that is not there shows Orvane's status page with a Reload button
// and comes back: after its web process was killed, by itself (the other
// account untouched); after its server could not be reached, on Reload.
#include "E2ETest.h"

#include <csignal>
#include <set>

namespace orvane::test {

class RecoveryTest : public E2ETest {
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

TEST_F(RecoveryTest, AKilledPageComesBackByItselfAndTheOtherAccountIsUntouched) {
    // The Outlook page's second load waits until the test lets it go.
    holdSecondAnswer("/e2e/green.html");
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("red") == 1; }, 30s));
    std::set<int> before = webProcesses();
    ASSERT_TRUE(orvane.activateAction("add-outlook-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("green") == 1; }, 30s));
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kGreen, "outlook"));

    std::set<int> after = webProcesses(), added;
    std::ranges::set_difference(after, before, std::inserter(added, added.end()));
    ASSERT_EQ(added.size(), 1u);
    ASSERT_EQ(kill(*added.begin(), SIGKILL), 0);
    EXPECT_TRUE(waitForStatusPage("killed", kGreen));
    ASSERT_TRUE(waitUntil([&] { return bool(held); }, 20s)) << "no reload by itself";

    soup_server_message_unpause(held.get());
    EXPECT_TRUE(waitForColor(point, kGreen, "back"));
    EXPECT_TRUE(waitUntil([&] { return loads("green") == 2; }, 20s));
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(1)));
    EXPECT_TRUE(waitForColor(point, kRed, "other"));
    EXPECT_EQ(loads("red"), 1);
}

TEST_F(RecoveryTest, AnUnreachablePageShowsWhyAndLoadsOnReloadOnceItsServerIsThere) {
    // A port nothing listens on, until the test serves the page there.
    auto late = adopt(soup_server_new(nullptr, nullptr));
    ASSERT_TRUE(soup_server_listen_local(late.get(), 0, SOUP_SERVER_LISTEN_IPV4_ONLY, nullptr));
    GSList* uris = soup_server_get_uris(late.get());
    int port = g_uri_get_port(static_cast<GUri*>(uris->data));
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    soup_server_disconnect(late.get());
    std::string home = "http://127.0.0.1:" + std::to_string(port) + "/";
    orvane.overrideServices(home, server.uri("/e2e/green.html"), server.uri("/e2e/blue.html"));
    ASSERT_TRUE(orvane.start());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    EXPECT_TRUE(waitForStatusPage("unreachable", kRed));

    late = adopt(soup_server_new(nullptr, nullptr));
    soup_server_add_handler(late.get(), nullptr, +[](SoupServer*, SoupServerMessage* message, const char*, GHashTable*, gpointer) {
        const char* page = "<html><body style='margin:0;height:100vh;background:#d62828'></body></html>";
        soup_server_message_set_status(message, 200, nullptr);
        soup_server_message_set_response(message, "text/html", SOUP_MEMORY_STATIC, page, strlen(page));
    }, nullptr, nullptr);
    ASSERT_TRUE(soup_server_listen_local(late.get(), port, SOUP_SERVER_LISTEN_IPV4_ONLY, nullptr));
    // The Reload button has the keyboard.
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "Return"));
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "reloaded"));
}

} // namespace orvane::test
