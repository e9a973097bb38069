// What a screen reader finds in orvane over AT-SPI, in French (LANGUAGE=fr):
// the account tabs with their service, unread count and selection, the main
// menu, the sender picker's buttons.
#include "E2ETest.h"

#include "support/BusCall.h"

namespace orvane::test {

// Orvane with a Gmail account with 3 unread, its calendar and the selected
// Outlook account, and its objects on the AT-SPI bus of its session.
class AccessibilityTest : public E2ETest {
protected:
    bool start() {
        const std::string mail = newUUID(), outlook = newUUID();
        writeAccounts({ account(mail, "mail", "ada@example.com"),
                          account(newUUID(), "calendar", "ada@example.com", mail),
                          account(outlook, "outlook", "Outlook") },
            { { "selectedAccountID", outlook }, { "alwaysAskOnMailto", true } });
        orvane.setEnvironment("GTK_A11Y", "atspi");
        orvane.setEnvironment("LC_ALL", "C.UTF-8");
        orvane.setEnvironment("LANGUAGE", "fr");
        if (!startOrvane("/gmail/index.html?email=ada@example.com&unread=3"))
            return false;
        GVariantPtr reply = callAndWait(
            orvane.bus(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr);
        const char* address = nullptr;
        if (reply && (g_variant_get(reply.get(), "(&s)", &address), address))
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address,
                GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                    | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, nullptr));
        return bool(m_bus);
    }

    // Once the application's objects of this role (not the pages', which the
    // web processes serve) include all these lines: "name · description",
    // then "· selected" or "· selectable" for those that can be.
    bool shows(const std::string& role, const std::vector<std::string>& wanted) {
        return waitUntil([&] {
            m_seen.clear();
            walk("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", role, 0);
            return std::ranges::all_of(wanted, [&](auto& line) { return std::ranges::count(m_seen, line); });
        }, 30s);
    }
    std::string seen() const { return "seen: " + testing::PrintToString(m_seen); }
    GVariantPtr call(const std::string& bus, const std::string& path, const char* method,
        const char* property = nullptr) {
        return callAndWait(m_bus.get(), bus, path,
            property ? "org.freedesktop.DBus.Properties" : "org.a11y.atspi.Accessible", method,
            property ? g_variant_new("(ss)", "org.a11y.atspi.Accessible", property) : nullptr, 5s);
    }
    std::string text(const std::string& bus, const std::string& path, const char* method,
        const char* property = nullptr) {
        GVariantPtr reply = call(bus, path, method, property);
        GVariantPtr value(reply ? g_variant_get_child_value(reply.get(), 0) : nullptr);
        GVariantPtr string(value && property ? g_variant_get_variant(value.get()) : value.release());
        bool isString = string && g_variant_is_of_type(string.get(), G_VARIANT_TYPE_STRING);
        return isString ? g_variant_get_string(string.get(), nullptr) : "";
    }
    // The registry's children are the applications, each on a bus of its own.
    void walk(const std::string& bus, const std::string& path, const std::string& role, int depth) {
        if (depth > 0 && text(bus, path, "GetRoleName") == role) {
            std::string line = text(bus, path, "Get", "Name");
            if (std::string description = text(bus, path, "Get", "Description"); !description.empty())
                line += " · " + description;
            GVariantPtr states = call(bus, path, "GetState");
            GVariantPtr words(states ? g_variant_get_child_value(states.get(), 0) : nullptr);
            guint32 word = 0; // AtspiStateType 22 is selectable, 23 selected
            if (words && g_variant_n_children(words.get()))
                g_variant_get_child(words.get(), 0, "u", &word);
            m_seen.push_back(line + (word >> 23 & 1 ? " · selected" : word >> 22 & 1 ? " · selectable" : ""));
        }
        GVariantPtr children = depth < 40 ? call(bus, path, "GetChildren") : nullptr;
        if (!children)
            return;
        GVariantPtr list(g_variant_get_child_value(children.get(), 0));
        GVariantIter iter;
        const char *child, *childPath;
        for (g_variant_iter_init(&iter, list.get()); g_variant_iter_next(&iter, "(&s&o)", &child, &childPath);)
            if (depth == 0 || bus == child)
                walk(child, childPath, role, depth + 1);
    }

    Ref<GDBusConnection> m_bus;
    std::vector<std::string> m_seen;
};

TEST_F(AccessibilityTest, TabsMenuAndPickerButtonsAreNamedWithTheirStateInTheUsersLanguage) {
    ASSERT_TRUE(start());
    EXPECT_TRUE(shows("tab", { "ada@example.com · Gmail, 3 non lus · selectable",
        "Outlook · Outlook · selected", "ada@example.com · Google Agenda · selectable" })) << seen();
    EXPECT_TRUE(shows("tab list", { "Comptes" })) << seen();
    EXPECT_TRUE(shows("button", { "Menu principal · Menu principal" })) << seen();
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "F10"));
    EXPECT_TRUE(shows("menu item", { "Raccourcis clavier", "À propos d’Orvane" })) << seen();
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "Escape"));
    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com"));
    EXPECT_TRUE(shows("button", { "ada@example.com · ada@example.com", "Outlook · Outlook" })) << seen();
}

} // namespace orvane::test
