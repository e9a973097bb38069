// The preferences window of the real orvane: its switches write
// accounts.json at once, and its default-app row follows the desktop's
// mimeapps.list before and after app.make-default.
#include "E2ETest.h"

#include "Files.h"

namespace orvane::test {

class SettingsTest : public E2ETest {
protected:
    unsigned long preferencesWindow() {
        std::vector<unsigned long> windows;
        waitUntil([&] { return (windows = orvane.windowsTitled("Preferences")).size() == 1; }, 20s);
        return windows.size() == 1 ? windows.front() : 0;
    }

    // The share of the preferences window drawn in the green of "Orvane is
    // your default" (its check mark and text).
    double greenShare(const Screenshot& shot) {
        auto geometry = orvane.geometry(preferencesWindow());
        if (!geometry)
            return -1;
        return shot.share({ geometry->x, geometry->y, geometry->width, geometry->height }, kSuccessGreen, 40);
    }
    // Opens (or brings forward) the preferences, which asks the desktop
    // again, until the row shows what is expected.
    bool defaultRowShows(bool isDefault, const std::string& name) {
        return waitUntil([&] {
            if (!orvane.activateAction("preferences"))
                return false;
            auto shot = orvane.screenshot(name);
            if (!shot)
                return false;
            double share = greenShare(*shot);
            return isDefault ? share > 0.0002 : share >= 0 && share < 0.00002;
        }, 20s);
    }

    bool savedIs(const char* key, bool value) {
        return waitUntil([&] {
            auto file = orvane.accounts();
            return file.is_object() && file.contains(key) && file[key] == value;
        }, 10s);
    }

    void writeDesktopFiles() {
        std::string applications = orvane.dataHome() + "/applications";
        g_mkdir_with_parents(applications.c_str(), 0700);
        ASSERT_TRUE(Files::replaceAtomically(applications + "/app.orvane.Orvane.desktop",
            std::string("[Desktop Entry]\nType=Application\nName=Orvane\nExec=") + ORVANE_BINARY
                + " %U\nMimeType=x-scheme-handler/mailto;\n"));
        ASSERT_TRUE(Files::replaceAtomically(applications + "/other-mail.desktop",
            "[Desktop Entry]\nType=Application\nName=Other Mail\nExec=true %U\nMimeType=x-scheme-handler/mailto;\n"));
    }
    void setDefaultInFile(const std::string& desktopID) {
        ASSERT_TRUE(Files::replaceAtomically(orvane.configHome() + "/mimeapps.list",
            "[Default Applications]\nx-scheme-handler/mailto=" + desktopID + "\n"));
    }
    std::string mimeapps() const { return Files::read(orvane.configHome() + "/mimeapps.list", 1 << 20).value_or(""); }

    static constexpr Screenshot::Color kSuccessGreen { 0x1b, 0x85, 0x53 };
};

TEST_F(SettingsTest, SwitchesWriteAccountsFileAtOnce) {
    ASSERT_TRUE(startOrvane());
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(savedIs("alwaysAskOnMailto", true));
    ASSERT_TRUE(orvane.activateAction("preferences"));
    unsigned long window = preferencesWindow();
    ASSERT_NE(window, 0u);
    orvane.screenshot("preferences");

    // Each row's mnemonic flips its switch, as a click would.
    ASSERT_TRUE(orvane.pressKeys(window, "alt+a"));
    EXPECT_TRUE(savedIs("alwaysAskOnMailto", false));
    ASSERT_TRUE(orvane.pressKeys(window, "alt+n"));
    EXPECT_TRUE(savedIs("notificationsEnabled", true));
    ASSERT_TRUE(orvane.pressKeys(window, "alt+d"));
    EXPECT_TRUE(savedIs("showDockBadge", true));
    ASSERT_TRUE(orvane.pressKeys(window, "alt+d"));
    EXPECT_TRUE(savedIs("showDockBadge", false));
    orvane.screenshot("preferences-after");
}

TEST_F(SettingsTest, DefaultAppRowFollowsMimeappsListAndMakeDefault) {
    writeDesktopFiles();
    setDefaultInFile("other-mail.desktop");
    ASSERT_TRUE(startOrvane());
    EXPECT_TRUE(defaultRowShows(false, "default-app-other"));

    ASSERT_TRUE(orvane.activateAction("make-default"));
    EXPECT_NE(mimeapps().find("x-scheme-handler/mailto=app.orvane.Orvane.desktop"), std::string::npos);
    EXPECT_TRUE(defaultRowShows(true, "default-app-orvane"));

    // Changed back outside Orvane: shown when the window is brought up again.
    setDefaultInFile("other-mail.desktop");
    EXPECT_TRUE(defaultRowShows(false, "default-app-other-again"));
}

} // namespace orvane::test
