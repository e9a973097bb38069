// What a screen reader finds in orvane over AT-SPI: the account tabs with their service, unread
// count and selection, the main menu, the sender picker; and, with LANGUAGE=fr, all in French.
#include "AtSpi.h"
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
        m_atspi.emplace(orvane.bus());
        return bool(*m_atspi);
    }
    bool shows(const std::string& role, const std::vector<std::string>& wanted) { return m_atspi->shows(role, wanted); }
    std::string seen() const { return m_atspi->seen(); }

    std::optional<AtSpi> m_atspi;
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
