// The default-mail-app question and request against a real GIO registry:
// desktop files in this process's user data folder and its mimeapps.list.
#include "DefaultMailClient.h"

#include "Files.h"
#include "support/Wait.h"

#include <gio/gio.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace test;

// GIO reads the user folders once per process, so these tests use the
// folders it reads rather than fresh ones.
class DefaultMailClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        applications = std::string(g_get_user_data_dir()) + "/applications";
        g_mkdir_with_parents(applications.c_str(), 0700);
        g_mkdir_with_parents(g_get_user_config_dir(), 0700);
        clear();
    }
    void TearDown() override { clear(); }

    void clear() {
        for (const char* name : { "app.orvane.Orvane.desktop", "APP.Orvane.ORVANE.desktop", "other-mail.desktop" })
            g_remove((applications + "/" + name).c_str());
        g_remove(mimeapps().c_str());
        waitUntil([] { return !DefaultMailClient::isDefault(); }, 5s);
    }

    static std::string mimeapps() { return std::string(g_get_user_config_dir()) + "/mimeapps.list"; }

    void installDesktopFile(const std::string& name, const std::string& appName) {
        std::string text = "[Desktop Entry]\nType=Application\nName=" + appName
            + "\nExec=true %U\nMimeType=x-scheme-handler/mailto;\n";
        ASSERT_TRUE(Files::replaceAtomically(applications + "/" + name, text));
    }
    static void setDefaultInFile(const std::string& desktopID) {
        ASSERT_TRUE(Files::replaceAtomically(mimeapps(),
            "[Default Applications]\nx-scheme-handler/mailto=" + desktopID + "\n"));
    }
    static std::string fileText() {
        auto bytes = Files::read(mimeapps(), 1 << 20);
        return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
    }

    std::string applications;
};

TEST_F(DefaultMailClientTest, AsksAndSetsTheMailtoHandlerThroughMimeappsList) {
    EXPECT_EQ(DefaultMailClient::desktopID(), "app.orvane.Orvane.desktop");
    // Not installed: never the default, and the request is not even made.
    EXPECT_FALSE(DefaultMailClient::isDefault());
    EXPECT_FALSE(DefaultMailClient::makeDefault());
    EXPECT_FALSE(Files::exists(mimeapps()));

    // Another mail app is the user's choice.
    installDesktopFile("other-mail.desktop", "Other Mail");
    installDesktopFile("app.orvane.Orvane.desktop", "Orvane");
    setDefaultInFile("other-mail.desktop");
    ASSERT_TRUE(waitUntil([] {
        GAppInfo* handler = g_app_info_get_default_for_uri_scheme("mailto");
        bool other = handler && g_strcmp0(g_app_info_get_id(handler), "other-mail.desktop") == 0;
        g_clear_object(&handler);
        return other;
    }, 5s));
    EXPECT_FALSE(DefaultMailClient::isDefault());

    // The request writes the user's mimeapps.list, and the answer follows.
    EXPECT_TRUE(DefaultMailClient::makeDefault());
    EXPECT_TRUE(DefaultMailClient::isDefault());
    EXPECT_NE(fileText().find("x-scheme-handler/mailto=app.orvane.Orvane.desktop"), std::string::npos);

    // A change made outside Orvane (xdg-mime, the desktop's settings) shows.
    setDefaultInFile("other-mail.desktop");
    EXPECT_TRUE(waitUntil([] { return !DefaultMailClient::isDefault(); }, 5s));
}

TEST_F(DefaultMailClientTest, LetterCaseOfTheDesktopIDDoesNotMatter) {
    installDesktopFile("other-mail.desktop", "Other Mail");
    installDesktopFile("APP.Orvane.ORVANE.desktop", "Orvane");
    setDefaultInFile("APP.Orvane.ORVANE.desktop");
    EXPECT_TRUE(waitUntil([] { return DefaultMailClient::isDefault(); }, 5s));

    setDefaultInFile("other-mail.desktop");
    ASSERT_TRUE(waitUntil([] { return !DefaultMailClient::isDefault(); }, 5s));
    // The request finds the file under its other spelling too.
    EXPECT_TRUE(DefaultMailClient::makeDefault());
    EXPECT_TRUE(DefaultMailClient::isDefault());
    EXPECT_NE(fileText().find("x-scheme-handler/mailto=APP.Orvane.ORVANE.desktop"), std::string::npos);
}

// tools/set-default-mail.sh, the way round a desktop that refuses the
// request from inside the app, makes the same change.
TEST_F(DefaultMailClientTest, ShippedScriptMakesOrvaneTheDefault) {
    if (!g_find_program_in_path("xdg-mime"))
        FAIL() << "needs xdg-mime (tools/setup.sh installs xdg-utils)";
    installDesktopFile("other-mail.desktop", "Other Mail");
    installDesktopFile("app.orvane.Orvane.desktop", "Orvane");
    setDefaultInFile("other-mail.desktop");
    ASSERT_TRUE(waitUntil([] { return !DefaultMailClient::isDefault(); }, 5s));

    std::string script = std::string(ORVANE_SOURCE_DIR) + "/tools/set-default-mail.sh";
    char* argv[] = { script.data(), nullptr };
    GStrv environment = g_get_environ();
    environment = g_environ_setenv(environment, "XDG_CONFIG_HOME", g_get_user_config_dir(), TRUE);
    environment = g_environ_setenv(environment, "XDG_DATA_HOME", g_get_user_data_dir(), TRUE);
    environment = g_environ_unsetenv(environment, "XDG_CURRENT_DESKTOP");
    int status = -1;
    ASSERT_TRUE(g_spawn_sync(nullptr, argv, environment, G_SPAWN_STDOUT_TO_DEV_NULL, nullptr, nullptr, nullptr,
        nullptr, &status, nullptr));
    g_strfreev(environment);
    EXPECT_TRUE(g_spawn_check_wait_status(status, nullptr));
    EXPECT_TRUE(waitUntil([] { return DefaultMailClient::isDefault(); }, 5s));
}

} // namespace
} // namespace orvane
