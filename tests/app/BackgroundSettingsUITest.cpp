// The preferences window's background switches keep their choice and "Start
// at login" writes and removes the autostart entry (closing the window: BackgroundTest).
#include "Autostart.h"
#include "BackgroundRunning.h"
#include "Files.h"
#include "SettingsView.h"
#include "WidgetTest.h"

namespace orvane::test {
namespace {

using BackgroundSettingsTest = WidgetTest;

TEST_F(BackgroundSettingsTest, SwitchesKeepTheirChoiceAndStartAtLoginOwnsTheAutostartEntry) {
    Preferences preferences;
    SessionPreferences session(preferences);
    auto application = adopt(g_application_new("app.orvane.BackgroundTest", G_APPLICATION_DEFAULT_FLAGS));
    BackgroundRunning background(application.get(), session, [] { });
    SettingsView& view = SettingsView::open(*store, *manager, nullptr);
    window = view.window();
    for (int time = 0; time < 2; ++time) // a second binding changes nothing
        background.bindSwitches(view.runInBackgroundSwitch(), view.startAtLoginSwitch());
    GtkSwitch *run = GTK_SWITCH(view.runInBackgroundSwitch()), *start = GTK_SWITCH(view.startAtLoginSwitch());
    EXPECT_TRUE(gtk_switch_get_active(run));
    EXPECT_FALSE(gtk_switch_get_active(start));

    auto fromFile = [] { Preferences fresh; return std::pair { SessionPreferences(fresh).runInBackground(), SessionPreferences(fresh).startAtLogin() }; };
    gtk_switch_set_active(start, TRUE);
    gtk_switch_set_active(run, FALSE);
    EXPECT_EQ(fromFile(), std::pair(false, true));
    EXPECT_EQ(Files::read(Autostart::entryPath(), 1 << 16), Autostart::entryText(Autostart::currentExecutable()));

    gtk_switch_set_active(start, FALSE);
    EXPECT_EQ(fromFile(), std::pair(false, false));
    EXPECT_FALSE(Files::exists(Autostart::entryPath()));
}

} // namespace
} // namespace orvane::test
