// A page that is not there, in a real view: a load that never finishes is
// given up at the bound, a server error fails, and the network coming back
// reloads a page that could not be reached.
#include "PageRecovery.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

using Kind = PageFailure::Kind;

class PageRecoveryWebTest : public ManagerWebFixture { };

TEST_F(PageRecoveryWebTest, TimeOutsAndServerErrorsFailAndTheNetworkComingBackReloads) {
    int changes = 0;
    PageRecovery recovery(showPlainView(), {}, [&] { ++changes; }, nullptr, 500ms);

    Ref<SoupServerMessage> held;
    server.handle("/never", [&](SoupServerMessage* message, const std::string&) {
        held = Ref<SoupServerMessage>(message);
        soup_server_message_pause(message);
    });
    webkit_web_view_load_uri(view, server.uri("/never").c_str());
    EXPECT_TRUE(waitUntil([&] { return recovery.failure() == Kind::TimedOut; }));
    ASSERT_TRUE(held);
    FixtureServer::reply(held.get(), 204);
    soup_server_message_unpause(held.get());

    server.serve("/busy", "<p>busy</p>", "text/html", 503);
    webkit_web_view_load_uri(view, server.uri("/busy").c_str());
    EXPECT_TRUE(waitUntil([&] { return recovery.failure() == Kind::ServerError; }));

    // A port nothing listens on, until a server is started there.
    const unsigned port = FixtureServer().port();
    webkit_web_view_load_uri(view, ("http://127.0.0.1:" + std::to_string(port) + "/").c_str());
    ASSERT_TRUE(waitUntil([&] { return recovery.failure() == Kind::NoNetwork; }));

    FixtureServer late(port);
    late.serve("/", "<p>back</p>");
    int before = changes;
    g_signal_emit_by_name(g_network_monitor_get_default(), "network-changed", TRUE);
    EXPECT_TRUE(waitUntil([&] { return !recovery.failure() && changes > before; }));
    EXPECT_TRUE(waitForJS(view, "document.body && document.body.textContent === 'back'"));
}

} // namespace
} // namespace orvane::test
