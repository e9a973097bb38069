// What a screen reader finds in orvane, read over AT-SPI: the account tabs
// with their service, unread count and selection, the main menu and the
// sender picker; and, with LANGUAGE=fr, the same window in French.
#include "E2ETest.h"

namespace orvane::test {

namespace {

constexpr const char* kMailID = "6A2F3C1E-8D4B-4E7A-9C1D-2B3E4F5A6B7C";
constexpr const char* kCalendarID = "3C4D5E6F-7081-4293-A4B5-C6D7E8F90A1B";
constexpr const char* kOutlookID = "1B2C3D4E-5F60-4172-8394-A5B6C7D8E9F0";
constexpr int kSelectable = 22, kSelected = 23; // AtspiStateType

struct Accessible {
    std::string role, name, description;
    uint64_t states = 0;
};

// The application's own objects on the AT-SPI bus of orvane's session (the
// pages' objects, which the web processes serve, are left out).
class AccessibilityTree {
public:
    explicit AccessibilityTree(const OrvaneProcess& orvane) {
        GVariantPtr reply = callAndWait(orvane.bus(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr);
        const char* address = nullptr;
        if (reply)
            g_variant_get(reply.get(), "(&s)", &address);
        if (address)
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address, GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr, nullptr, nullptr));
    }
    ~AccessibilityTree() {
        if (m_bus)
            g_dbus_connection_close_sync(m_bus.get(), nullptr, nullptr);
    }

    std::vector<Accessible> read() {
        std::vector<Accessible> found;
        for (const auto& [bus, path] : children("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"))
            walk(bus, path, 0, found);
        return found;
    }
    // "name · description · selected|selectable|-" for each object of the role, once they are these.
    bool waitForRole(const std::string& role, const std::vector<std::string>& expected, std::vector<std::string>& seen) {
        return waitUntil([&] {
            seen.clear();
            for (const auto& a : read()) {
                if (a.role == role)
                    seen.push_back(a.name + " · " + a.description + " · "
                        + (a.states >> kSelected & 1 ? "selected" : a.states >> kSelectable & 1 ? "selectable" : "-"));
            }
            return seen == expected;
        }, 30s);
    }
    bool waitFor(const std::string& role, const std::string& name) {
        return waitUntil([&] {
            auto all = read();
            return std::any_of(all.begin(), all.end(), [&](const Accessible& a) { return a.role == role && a.name == name; });
        }, 20s);
    }

private:
    GVariantPtr call(const std::string& bus, const std::string& path, const char* interface, const char* method, GVariant* parameters = nullptr) {
        return callAndWait(m_bus.get(), bus, path, interface, method, parameters, 5s);
    }
    std::vector<std::pair<std::string, std::string>> children(const std::string& bus, const std::string& path) {
        std::vector<std::pair<std::string, std::string>> found;
        if (GVariantPtr reply = call(bus, path, "org.a11y.atspi.Accessible", "GetChildren")) {
            GVariantIter* iter = nullptr;
            const char *name = nullptr, *object = nullptr;
            g_variant_get(reply.get(), "(a(so))", &iter);
            while (g_variant_iter_next(iter, "(&s&o)", &name, &object))
                found.emplace_back(name, object);
            g_variant_iter_free(iter);
        }
        return found;
    }
    std::string text(const std::string& bus, const std::string& path, const char* property) {
        GVariantPtr reply = call(bus, path, "org.freedesktop.DBus.Properties", "Get",
            g_variant_new("(ss)", "org.a11y.atspi.Accessible", property));
        GVariant* value = nullptr;
        if (reply)
            g_variant_get(reply.get(), "(v)", &value);
        std::string result = value && g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) ? g_variant_get_string(value, nullptr) : "";
        if (value)
            g_variant_unref(value);
        return result;
    }
    void walk(const std::string& bus, const std::string& path, int depth, std::vector<Accessible>& found) {
        if (depth > 40 || found.size() > 5000)
            return;
        Accessible a { {}, text(bus, path, "Name"), text(bus, path, "Description") };
        if (GVariantPtr role = call(bus, path, "org.a11y.atspi.Accessible", "GetRoleName"))
            a.role = g_variant_get_string(GVariantPtr(g_variant_get_child_value(role.get(), 0)).get(), nullptr);
        if (GVariantPtr states = call(bus, path, "org.a11y.atspi.Accessible", "GetState")) {
            GVariantIter* iter = nullptr;
            guint32 word = 0;
            g_variant_get(states.get(), "(au)", &iter);
            for (int shift = 0; shift < 64 && g_variant_iter_next(iter, "u", &word); shift += 32)
                a.states |= uint64_t(word) << shift;
            g_variant_iter_free(iter);
        }
        found.push_back(a);
        for (const auto& [child, childPath] : children(bus, path)) {
            if (child == bus)
                walk(child, childPath, depth + 1, found);
        }
    }

    Ref<GDBusConnection> m_bus;
};

} // namespace

// A Gmail account with 3 unread and its calendar, and the selected Outlook account.
class AccessibilityTest : public E2ETest {
protected:
    bool start() {
        auto account = [](const char* id, const char* label, const char* service) {
            return nlohmann::json { { "id", id }, { "label", label }, { "dataStoreID", std::string(id) == kCalendarID ? kMailID : id },
                { "colorSeed", 1 }, { "service", service } };
        };
        orvane.writeAccountsFile({ { "accounts", { account(kMailID, "ada@example.com", "mail"),
            account(kCalendarID, "ada@example.com", "calendar"), account(kOutlookID, "Outlook", "outlook") } },
            { "selectedAccountID", kOutlookID }, { "alwaysAskOnMailto", true } });
        orvane.setEnvironment("GTK_A11Y", "atspi");
        return startOrvane("/gmail/index.html?email=ada@example.com&unread=3");
    }
    // What the last waitForRole() saw, one object a line.
    std::string shown() const {
        std::string text;
        for (const auto& line : seen)
            text += "\n  " + line;
        return text;
    }
    std::vector<std::string> seen;
};

TEST_F(AccessibilityTest, TabsMenuButtonAndPickerButtonsAreNamedWithTheirState) {
    ASSERT_TRUE(start());
    AccessibilityTree tree(orvane);
    EXPECT_TRUE(tree.waitForRole("tab", { "ada@example.com · Gmail, 3 unread · selectable", "Outlook · Outlook · selected",
        "ada@example.com · Google Calendar · selectable" }, seen)) << shown();
    EXPECT_TRUE(tree.waitForRole("tab list", { "Accounts ·  · -" }, seen)) << shown();
    EXPECT_TRUE(tree.waitFor("button", "Main Menu"));

    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com"));
    EXPECT_TRUE(tree.waitFor("button", "ada@example.com"));
    EXPECT_TRUE(tree.waitFor("button", "Outlook"));
}

TEST_F(AccessibilityTest, WithLanguageFrenchTheWindowAndItsMenuAreInFrench) {
    orvane.setEnvironment("LC_ALL", "C.UTF-8");
    orvane.setEnvironment("LANGUAGE", "fr");
    ASSERT_TRUE(start());
    AccessibilityTree tree(orvane);
    EXPECT_TRUE(tree.waitForRole("tab", { "ada@example.com · Gmail, 3 non lus · selectable", "Outlook · Outlook · selected",
        "ada@example.com · Google Agenda · selectable" }, seen)) << shown();
    EXPECT_TRUE(tree.waitFor("button", "Menu principal"));

    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "F10"));
    EXPECT_TRUE(tree.waitFor("menu item", "Raccourcis clavier"));
    EXPECT_TRUE(tree.waitFor("menu item", "À propos d’Orvane"));
    EXPECT_TRUE(orvane.screenshot("french-menu"));
}

} // namespace orvane::test
