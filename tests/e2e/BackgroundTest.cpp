// With "Run in background" on (the default), closing the window leaves
// Orvane running with its pages alive and asks the Background portal; the
// next activation shows the same window with no page reloaded, and only
// Quit ends it. `orvane --background` starts it with the window hidden.
#include "E2ETest.h"

#include "Account.h"

namespace orvane::test {

// The Background portal on orvane's bus: records each request's options and
// grants it.
class BackgroundPortalStandIn {
public:
    explicit BackgroundPortalStandIn(GDBusConnection* bus) : m_bus(bus) {
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(
            "<node><interface name='org.freedesktop.portal.Background'><method name='RequestBackground'>"
            "<arg type='s' direction='in'/><arg type='a{sv}' direction='in'/><arg type='o' direction='out'/>"
            "</method></interface></node>", nullptr);
        static const GDBusInterfaceVTable vtable = { &BackgroundPortalStandIn::onCall, nullptr, nullptr, {} };
        m_registration = g_dbus_connection_register_object(bus, "/org/freedesktop/portal/desktop", node->interfaces[0], &vtable, this, nullptr, nullptr);
        m_ownership = g_bus_own_name_on_connection(bus, "org.freedesktop.portal.Desktop", G_BUS_NAME_OWNER_FLAGS_NONE,
            +[](GDBusConnection*, const char*, gpointer self) { static_cast<BackgroundPortalStandIn*>(self)->m_owned = true; }, nullptr, this, nullptr);
        g_dbus_node_info_unref(node);
        waitUntil([&] { return m_owned; });
    }
    ~BackgroundPortalStandIn() { g_bus_unown_name(m_ownership), g_dbus_connection_unregister_object(m_bus, m_registration); }
    std::vector<GVariantPtr> requests; // the options, a{sv}

private:
    static void onCall(GDBusConnection* bus, const char* sender, const char*, const char*, const char*, GVariant* parameters,
        GDBusMethodInvocation* invocation, gpointer data) {
        GVariant* options = g_variant_get_child_value(parameters, 1);
        const char* token = "";
        g_variant_lookup(options, "handle_token", "&s", &token);
        std::string path = "/org/freedesktop/portal/desktop/request/" + std::string(sender + 1) + "/" + token;
        std::replace(path.begin(), path.end(), '.', '_');
        static_cast<BackgroundPortalStandIn*>(data)->requests.emplace_back(options);
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path.c_str()));
        g_dbus_connection_emit_signal(bus, sender, path.c_str(), "org.freedesktop.portal.Request", "Response",
            g_variant_new_parsed("(@u 0, {'background': <true>, 'autostart': <false>})"), nullptr);
    }
    GDBusConnection* m_bus;
    unsigned m_registration = 0, m_ownership = 0;
    bool m_owned = false;
};

using BackgroundTest = E2ETest;

TEST_F(BackgroundTest, ClosedWindowKeepsPagesLiveUntilQuitAndBackgroundStartShowsNoWindow) {
    Account account { newUUID(), "someone@example.com", newUUID() };
    orvane.writeAccountsFile({ { "accounts", { account.toJSON() } }, { "selectedAccountID", account.id } });
    serveWithRemote("/e2e/live.html", "/e2e/red.html");
    ASSERT_TRUE(startOrvane("/e2e/live.html?who=gmail"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    auto point = webAreaPoint();
    ASSERT_TRUE(waitForColor(point, kRed, "background-before"));
    BackgroundPortalStandIn portal(orvane.bus());

    // The header bar's close button, at its right end.
    auto geometry = orvane.geometry(mainWindow()).value();
    ASSERT_TRUE(orvane.click(geometry.x + geometry.width - 24, geometry.y + 24));
    ASSERT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").empty(); }, 10s));
    runInPage("gmail", "report('alive', document.title)");
    EXPECT_TRUE(waitForEvents("gmail", "alive"));
    ASSERT_TRUE(waitUntil([&] { return portal.requests.size() == 1; }, 10s));
    gboolean autostart = TRUE;
    EXPECT_TRUE(g_variant_lookup(portal.requests[0].get(), "autostart", "b", &autostart) && !autostart);
    EXPECT_TRUE(orvane.isRunning());

    // Run again, Orvane shows the same page, not reloaded.
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-back"));
    EXPECT_EQ(server.requestCount("/e2e/live.html"), 1);
    EXPECT_EQ(events("gmail", "loaded").size(), 1u);
    EXPECT_TRUE(orvane.stop());

    // Started as at login: the page loads, no window shows until asked.
    ASSERT_TRUE(orvane.start({ "--background" }));
    ASSERT_TRUE(waitForEvents("gmail", "loaded", 2));
    EXPECT_TRUE(orvane.windowsTitled("Orvane").empty());
    ASSERT_TRUE(orvane.run({ ORVANE_BINARY }).value_or(OrvaneProcess::Result {}).status == 0);
    EXPECT_TRUE(waitForColor(webAreaPoint(), kRed, "background-started-hidden"));
    EXPECT_EQ(server.requestCount("/e2e/live.html"), 2);
}

} // namespace orvane::test
