// What a screen reader finds in orvane over AT-SPI: the account tabs with their service, unread
// count and selection, the main menu, the sender picker; and, with LANGUAGE=fr, all in French.
#include "E2ETest.h"

namespace orvane::test {

// Orvane with a Gmail account with 3 unread, its calendar and the selected
// Outlook account, and its objects on the AT-SPI bus of its session.
class AccessibilityTest : public E2ETest {
protected:
    bool start() {
        auto account = [](const char* id, const char* label, const char* service, const char* dataStore) {
            return nlohmann::json { { "id", id }, { "label", label }, { "dataStoreID", dataStore }, { "colorSeed", 1 }, { "service", service } };
        };
        const char *mail = "6A2F3C1E-8D4B-4E7A-9C1D-2B3E4F5A6B7C", *outlook = "1B2C3D4E-5F60-4172-8394-A5B6C7D8E9F0";
        orvane.writeAccountsFile({ { "accounts", { account(mail, "ada@example.com", "mail", mail),
            account("3C4D5E6F-7081-4293-A4B5-C6D7E8F90A1B", "ada@example.com", "calendar", mail), account(outlook, "Outlook", "outlook", outlook) } },
            { "selectedAccountID", outlook }, { "alwaysAskOnMailto", true } });
        orvane.setEnvironment("GTK_A11Y", "atspi");
        if (!startOrvane("/gmail/index.html?email=ada@example.com&unread=3"))
            return false;
        GVariantPtr reply = callAndWait(orvane.bus(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr);
        const char* address = nullptr;
        if (reply && (g_variant_get(reply.get(), "(&s)", &address), address))
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address, GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr, nullptr, nullptr));
        return bool(m_bus);
    }

    // Once the application's objects of this role (not the pages', which the web processes serve) include
    // all these lines: "name · description", then "· selected" or "· selectable" for those that can be.
    bool shows(const std::string& role, const std::vector<std::string>& wanted) {
        return waitUntil([&] {
            m_seen.clear();
            walk("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", role, 0);
            return std::all_of(wanted.begin(), wanted.end(), [&](auto& line) { return std::find(m_seen.begin(), m_seen.end(), line) != m_seen.end(); });
        }, 30s);
    }
    std::string seen() const { return "seen: " + testing::PrintToString(m_seen); }
    GVariantPtr call(const std::string& bus, const std::string& path, const char* method, const char* property = nullptr) {
        return callAndWait(m_bus.get(), bus, path, property ? "org.freedesktop.DBus.Properties" : "org.a11y.atspi.Accessible", method,
            property ? g_variant_new("(ss)", "org.a11y.atspi.Accessible", property) : nullptr, 5s);
    }
    std::string text(const std::string& bus, const std::string& path, const char* method, const char* property = nullptr) {
        GVariantPtr reply = call(bus, path, method, property);
        GVariantPtr value(reply ? g_variant_get_child_value(reply.get(), 0) : nullptr);
        GVariantPtr string(value && property ? g_variant_get_variant(value.get()) : value.release());
        return string && g_variant_is_of_type(string.get(), G_VARIANT_TYPE_STRING) ? g_variant_get_string(string.get(), nullptr) : "";
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

TEST_F(AccessibilityTest, TabsMenuButtonAndPickerButtonsAreNamedWithTheirState) {
    ASSERT_TRUE(start());
    EXPECT_TRUE(shows("tab", { "ada@example.com · Gmail, 3 unread · selectable", "Outlook · Outlook · selected",
        "ada@example.com · Google Calendar · selectable" })) << seen();
    EXPECT_TRUE(shows("tab list", { "Accounts" })) << seen();
    EXPECT_TRUE(shows("button", { "Main Menu · Main Menu" })) << seen();
    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com"));
    EXPECT_TRUE(shows("button", { "ada@example.com · ada@example.com", "Outlook · Outlook" })) << seen();
}

TEST_F(AccessibilityTest, WithLanguageFrenchTheWindowAndItsMenuAreInFrench) {
    orvane.setEnvironment("LC_ALL", "C.UTF-8");
    orvane.setEnvironment("LANGUAGE", "fr");
    ASSERT_TRUE(start());
    EXPECT_TRUE(shows("tab", { "ada@example.com · Gmail, 3 non lus · selectable", "ada@example.com · Google Agenda · selectable" })) << seen();
    EXPECT_TRUE(shows("button", { "Menu principal · Menu principal" })) << seen();
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "F10"));
    EXPECT_TRUE(shows("menu item", { "Raccourcis clavier", "À propos d’Orvane" })) << seen();
    EXPECT_TRUE(orvane.screenshot("french-menu"));
}

} // namespace orvane::test
