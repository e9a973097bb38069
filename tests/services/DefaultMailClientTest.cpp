// The default-mail-app question and request against a real GIO registry:
// desktop files in this process's user data folder and its mimeapps.list.
// The usual round (a failed request, then one that works) is
// tests/app/SettingsViewUITest's; here are what it cannot see: no request
// without a desktop file, one under another letter case, and
// tools/set-default-mail.sh.
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
    auto install = [&](const std::string& name) {
        const std::string entry = "[Desktop Entry]\nType=Application\nName=" + name
            + "\nExec=true %U\nMimeType=x-scheme-handler/mailto;\n";
        ASSERT_TRUE(Files::replaceAtomically(applications + "/" + name, entry));
    };
    auto setDefault = [&](const std::string& desktopID) {
        const std::string list = "[Default Applications]\nx-scheme-handler/mailto=" + desktopID + "\n";
        ASSERT_TRUE(Files::replaceAtomically(mimeapps, list));
    };
    auto isDefault = [](bool expected) {
        return waitUntil([&] { return DefaultMailClient::isDefault() == expected; }, 5s);
    };

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
    EXPECT_NE(Files::read(mimeapps, 1 << 20).value_or("").find("mailto=" + oddCase), std::string::npos);
    g_remove((applications + "/" + oddCase).c_str());

    // tools/set-default-mail.sh, the way round a desktop that refuses the
    // request from inside the app, makes the same change.
    ASSERT_TRUE(g_find_program_in_path("xdg-mime")) << "needs xdg-mime (tools/setup.sh installs xdg-utils)";
    install(DefaultMailClient::desktopID());
    setDefault("other-mail.desktop");
    ASSERT_TRUE(isDefault(false));
    std::string script = std::string(ORVANE_SOURCE_DIR) + "/tools/set-default-mail.sh";
    char* argv[] = { script.data(), nullptr };
    GStrv environment = g_environ_unsetenv(g_get_environ(), "XDG_CURRENT_DESKTOP");
    environment = g_environ_setenv(environment, "XDG_CONFIG_HOME", g_get_user_config_dir(), TRUE);
    environment = g_environ_setenv(environment, "XDG_DATA_HOME", g_get_user_data_dir(), TRUE);
    int status = -1;
    ASSERT_TRUE(g_spawn_sync(nullptr, argv, environment, G_SPAWN_STDOUT_TO_DEV_NULL, nullptr, nullptr,
        nullptr, nullptr, &status, nullptr));
    g_strfreev(environment);
    EXPECT_TRUE(g_spawn_check_wait_status(status, nullptr));
    EXPECT_TRUE(isDefault(true));
}

} // namespace
} // namespace orvane
