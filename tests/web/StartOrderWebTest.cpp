// At start only the selected account's page loads; the others wait until it
// has loaded, or until WebViewManager::kStartBound when it is slow.
#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

class StartOrderWebTest : public ManagerWebFixture { };

TEST_F(StartOrderWebTest, TheSelectedPageLoadsFirstAndTheOthersAfterItOrAfterTheBound) {
    std::vector<std::string> order;
    Ref<SoupServerMessage> held;
    bool hold = false;
    server.handle("/web/selected", [&](SoupServerMessage* message, const std::string&) {
        order.push_back("selected");
        if (!hold)
            return FixtureServer::reply(message, 200, "<p>page</p>");
        held = Ref<SoupServerMessage>(message);
        soup_server_message_pause(message);
    });
    server.handle("/web/other", [&](SoupServerMessage* message, const std::string&) {
        order.push_back("other");
        FixtureServer::reply(message, 200, "<p>page</p>");
    });
    const Account other = store->addOutlookAccount();
    const Account selected = store->addAccount();
    store->setSelectedAccountID(selected.id);

    // The other account's view is made first, yet its page waits.
    useServices("/web/selected", "/web/other");
    WebKitWebView* otherView = show(other);
    ASSERT_TRUE(waitLoaded(show(selected)));
    ASSERT_TRUE(waitLoaded(otherView));
    EXPECT_EQ(order, (std::vector<std::string> { "selected", "other" }));

    // A slow selected page holds the others back only until the bound.
    order.clear();
    hold = true;
    manager = nullptr;
    useServices("/web/selected", "/web/other");
    otherView = show(other);
    show(selected);
    gint64 start = g_get_monotonic_time();
    ASSERT_TRUE(waitUntil([&] { return order.size() == 2; }, WebViewManager::kStartBound + 10s));
    EXPECT_EQ(order, (std::vector<std::string> { "selected", "other" }));
    EXPECT_GE(g_get_monotonic_time() - start, (WebViewManager::kStartBound - 500ms).count() * 1000);
    ASSERT_TRUE(held);
    FixtureServer::reply(held.get(), 200, "<p>page</p>");
    soup_server_message_unpause(held.get());
}

} // namespace
} // namespace orvane::test
