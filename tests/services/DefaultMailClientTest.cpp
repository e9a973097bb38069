// The default-mail-app question and request against a real GIO registry:
// desktop files in this process's user data folder and its mimeapps.list.
// The usual round (another app is the default, the request makes Orvane the
// default, a change made outside shows) is the e2e SettingsTest's; here are
// what it cannot reach.
#include "DefaultMailClient.h"

#include "Files.h"
#include "support/Wait.h"

#include <gio/gio.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

namespace orvane {
namespace {

using namespace test;

// GIO reads the user folders once per process, so the test uses the folders
// it reads rather than fresh ones.
TEST(DefaultMailClientTest, AsksAndSetsTheMailtoHandlerInAnyLetterCaseAndSoDoesTheScript) {
    const std::string applications = std::string(g_get_user_data_dir()) + "/applications";
    const std::string mimeapps = std::string(g_get_user_config_dir()) + "/mimeapps.list";
    g_mkdir_with_parents(applications.c_str(), 0700);
    g_mkdir_with_parents(g_get_user_config_dir(), 0700);
    auto install = [&](const std::string& name) {
        ASSERT_TRUE(Files::replaceAtomically(applications + "/" + name,
            "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true %U\nMimeType=x-scheme-handler/mailto;\n"));
    };
    auto setDefault = [&](const std::string& desktopID) {
        ASSERT_TRUE(Files::replaceAtomically(mimeapps, "[Default Applications]\nx-scheme-handler/mailto=" + desktopID + "\n"));
    };
    auto isDefault = [](bool expected) { return waitUntil([&] { return DefaultMailClient::isDefault() == expected; }, 5s); };

    EXPECT_EQ(DefaultMailClient::desktopID(), "app.orvane.Orvane.desktop");
    EXPECT_FALSE(DefaultMailClient::makeDefault()) << "not installed: the request is not even made";
    EXPECT_FALSE(Files::exists(mimeapps));

    // Installed under another letter case, as some packagers do.
    const std::string oddCase = "APP.Orvane.ORVANE.desktop";
    install("other-mail.desktop");
    install(oddCase);
    setDefault(oddCase);
    EXPECT_TRUE(isDefault(true));
    setDefault("other-mail.desktop");
    ASSERT_TRUE(isDefault(false));
    EXPECT_TRUE(DefaultMailClient::makeDefault());
    EXPECT_NE(Files::read(mimeapps, 1 << 20).value_or("").find("x-scheme-handler/mailto=" + oddCase), std::string::npos);
    g_remove((applications + "/" + oddCase).c_str());

    // tools/set-default-mail.sh, the way round a desktop that refuses the
    // request from inside the app, makes the same change.
    ASSERT_TRUE(g_find_program_in_path("xdg-mime")) << "needs xdg-mime (tools/setup.sh installs xdg-utils)";
    install("app.orvane.Orvane.desktop");
    setDefault("other-mail.desktop");
    ASSERT_TRUE(isDefault(false));
    std::string script = std::string(ORVANE_SOURCE_DIR) + "/tools/set-default-mail.sh";
    char* argv[] = { script.data(), nullptr };
    GStrv environment = g_environ_unsetenv(g_get_environ(), "XDG_CURRENT_DESKTOP");
    environment = g_environ_setenv(environment, "XDG_CONFIG_HOME", g_get_user_config_dir(), TRUE);
    environment = g_environ_setenv(environment, "XDG_DATA_HOME", g_get_user_data_dir(), TRUE);
    int status = -1;
    ASSERT_TRUE(g_spawn_sync(nullptr, argv, environment, G_SPAWN_STDOUT_TO_DEV_NULL, nullptr, nullptr, nullptr, nullptr, &status, nullptr));
    g_strfreev(environment);
    EXPECT_TRUE(g_spawn_check_wait_status(status, nullptr));
    EXPECT_TRUE(isDefault(true));
}

} // namespace
} // namespace orvane
