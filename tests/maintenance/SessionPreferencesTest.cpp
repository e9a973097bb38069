// What a hand-edited or damaged preferences.ini gives for the window, the
// zoom and the two background switches, and the autostart entry's command.
#include "Autostart.h"
#include "Files.h"
#include "SessionPreferences.h"
#include "support/TestEnvironment.h"

#include <glib.h>
#include <gtest/gtest.h>

namespace orvane {
namespace {

std::optional<SessionPreferences::WindowSize> windowFrom(const std::string& lines) {
    std::string path = test::makeTempFolder("session") + "/preferences.ini";
    Files::replaceAtomically(path, "[Orvane]\n" + lines);
    Preferences preferences(path);
    return SessionPreferences(preferences).windowSize(820, 520);
}

// The window's size is within the minimum and the largest side; the zoom
// stays within its steps and belongs to one account.
TEST(SessionPreferencesTest, WindowSizeAndZoomStayWithinTheirBounds) {
    using Size = SessionPreferences::WindowSize;
    const std::pair<std::string, std::optional<Size>> cases[] = {
        { "window-width=1000\nwindow-height=640\nwindow-maximized=true\n", Size { 1000, 640, true } },
        { "window-width=300\nwindow-height=99999999\n", Size { 820, SessionPreferences::kMaxWindowSide, false } },
        { "window-width=1000.6\nwindow-height=700\nwindow-maximized=yes\n", Size { 1001, 700, false } },
        { "window-width=-5\nwindow-height=700\n", std::nullopt },
        { "window-width=nan\nwindow-height=700\n", std::nullopt },
        { "window-width=1000\n", std::nullopt },
        { "window-width=wide\nwindow-height=tall\n", std::nullopt },
    };
    for (const auto& [lines, expected] : cases)
        EXPECT_EQ(windowFrom(lines), expected) << lines;

    Preferences preferences(test::makeTempFolder("session") + "/preferences.ini");
    SessionPreferences session(preferences);
    const std::string id = "0F3C2B1A-9D8E-4C7B-A6F5-E4D3C2B1A098";
    EXPECT_EQ(session.zoom(id), 1.0);
    EXPECT_TRUE(session.setZoom(id, 40));
    EXPECT_EQ(session.zoom(id), 3.0);
    EXPECT_EQ(session.zoom("0F3C2B1A-9D8E-4C7B-A6F5-E4D3C2B1A099"), 1.0);
    for (const std::string& bad : std::vector<std::string> { "", "a=b", "x\ny", "zoom[1]", std::string(65, 'a') })
        EXPECT_FALSE(session.setZoom(bad, 2.0)) << bad;

    const std::tuple<double, double, double> steps[] = { // level, in, out
        { 1.0, 1.1, 0.9 }, { 0.3, 0.5, 0.3 }, { 3.0, 3.0, 2.5 }, { 1.2, 1.25, 1.1 }, { 0.01, 0.5, 0.3 }, { 1e9, 3.0, 2.5 },
    };
    for (auto [level, in, out] : steps) {
        EXPECT_EQ(SessionPreferences::zoomIn(level), in) << level;
        EXPECT_EQ(SessionPreferences::zoomOut(level), out) << level;
    }
}

// The desktop reads Exec as a quoted command line; the program and the
// option come back whole whatever the path holds.
TEST(SessionPreferencesTest, AutostartEntryRunsThisProgramInTheBackground) {
    for (const std::string path : { "/usr/bin/orvane", "/opt/My Apps/or\"va$ne`\\%u/orvane" }) {
        auto text = Autostart::entryText(path);
        ASSERT_TRUE(text) << path;
        g_autoptr(GKeyFile) file = g_key_file_new();
        ASSERT_TRUE(g_key_file_load_from_data(file, text->c_str(), text->size(), G_KEY_FILE_NONE, nullptr));
        g_autofree char* exec = g_key_file_get_string(file, "Desktop Entry", "Exec", nullptr);
        g_auto(GStrv) argv = nullptr;
        ASSERT_TRUE(g_shell_parse_argv(exec, nullptr, &argv, nullptr)) << exec;
        std::string program = argv[0];
        for (size_t at = 0; (at = program.find("%%", at)) != std::string::npos; ++at)
            program.erase(at, 1);
        EXPECT_EQ(program, path);
        EXPECT_EQ(std::vector<std::string>(argv + 1, argv + g_strv_length(argv)), std::vector<std::string> { "--background" });
    }
    for (const std::string path : { "", "orvane", "/bin/or\nvane" })
        EXPECT_FALSE(Autostart::entryText(path)) << path;
}

} // namespace
} // namespace orvane
