// The preferences window's state, and what an update check shows. The
// notifications switch through the real binary is NotificationTest's; the
// default-app request goes to a real GIO registry (desktop files and
// mimeapps.list in the test's folders). "Start at login" writes and removes
// the autostart entry (closing the window with "Run in background" on:
// PageKeysTest).
#include "SettingsView.h"

#include "AppPaths.h"
#include "Autostart.h"
#include "BackgroundRunning.h"
#include "Files.h"
#include "UpdateDialog.h"
#include "WidgetTest.h"

#include <glib/gstdio.h>
#include <nlohmann/json.hpp>

namespace orvane::test {
namespace {

using SettingsViewTest = WidgetTest;
using UpdateDialogTest = WidgetTest;

TEST_F(SettingsViewTest, ControlsShowTheStoreSaveOnlyTheirOwnChangesAndExplainAFailedDefaultAppRequest) {
    SettingsView* view = nullptr;
    auto saved = [] {
        auto text = Files::read(AppPaths::accountsFile(), 1 << 20).value_or("null");
        return nlohmann::json::parse(text, nullptr, false);
    };
    auto shownAccount = [&] {
        const char* label = gtk_menu_button_get_label(GTK_MENU_BUTTON(view->defaultAccountButton()));
        return std::string(label ? label : "");
    };
    auto choose = [&](const std::string& id) {
        gtk_widget_activate_action(view->defaultAccountButton(), "settings.default-account", "s", id.c_str());
    };
    auto active = [](GtkWidget* toggle) { return gtk_switch_get_active(GTK_SWITCH(toggle)); };
    auto shown = [](GtkWidget* widget) { return gtk_widget_get_visible(widget); };
    // GIO reads the user folders once per process: the registry lives in the folders it read.
    const std::string applications = std::string(g_get_user_data_dir()) + "/applications";
    g_mkdir_with_parents(applications.c_str(), 0700);
    auto install = [&](const std::string& name) {
        ASSERT_TRUE(Files::replaceAtomically(applications + "/" + name,
            "[Desktop Entry]\nType=Application\nExec=true %U\nMimeType=x-scheme-handler/mailto;\nName="
                + name));
    };
    install("other-mail.desktop");
    ASSERT_TRUE(Files::replaceAtomically(std::string(g_get_user_config_dir()) + "/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/mailto=other-mail.desktop\n"));
    store->setShowDockBadge(true);
    store->addCalendar(store->addAccount());
    store->remove(store->mailAccounts().front());
    Preferences preferences;
    SessionPreferences session(preferences);
    auto application = adopt(g_application_new("app.orvane.BackgroundTest", G_APPLICATION_DEFAULT_FLAGS));
    BackgroundRunning background(application.get(), session, [] { });
    view = &SettingsView::open(*store, *manager, nullptr);
    window = view->window();
    ASSERT_TRUE(waitUntil([&] {
        return gtk_widget_get_mapped(GTK_WIDGET(window)) && gtk_widget_get_width(view->dockSwitch()) > 0;
    }));
    EXPECT_TRUE(active(view->alwaysAskSwitch()) && !active(view->notificationsSwitch())
        && active(view->dockSwitch()));
    gtk_switch_set_active(GTK_SWITCH(view->dockSwitch()), FALSE);
    EXPECT_EQ(saved().value("showDockBadge", true), false);
    // A change made elsewhere shows in the open window, and saves nothing.
    g_remove(AppPaths::accountsFile().c_str());
    store->setNotificationsEnabled(true);
    EXPECT_TRUE(active(view->notificationsSwitch()));
    drainEvents();
    EXPECT_FALSE(Files::exists(AppPaths::accountsFile()));

    // No mail account: the sending account is disabled, nothing shown.
    EXPECT_TRUE(!gtk_widget_get_sensitive(view->defaultAccountRow()) && shownAccount().empty());
    // One mail account, no default: shown, not stored; choosing it stores it.
    const Account home = addAccount("home_office@example.com");
    EXPECT_TRUE(gtk_widget_get_sensitive(view->defaultAccountRow()));
    EXPECT_EQ(shownAccount(), "home_office@example.com");
    GMenuModel* menu = gtk_menu_button_get_menu_model(GTK_MENU_BUTTON(view->defaultAccountButton()));
    EXPECT_EQ(menuItems(menu, true),
        Strings { "home__office@example.com→settings.default-account(" + home.id + ")" })
        << "underscores stay text";
    EXPECT_FALSE(saved().contains("defaultMailtoAccountID"));
    choose(home.id);
    EXPECT_EQ(saved().value("defaultMailtoAccountID", ""), home.id);
    // The stored default stays shown beside a second account.
    const Account work = addAccount("work@example.com");
    EXPECT_EQ(shownAccount(), "home_office@example.com");
    // Ids that are not offered are refused; a default that names no account shows nothing.
    choose(store->addCalendar(work).id);
    EXPECT_EQ(store->defaultMailtoAccountID(), home.id);
    store->setDefaultMailtoAccountID("00000000-0000-4000-8000-000000000000");
    EXPECT_EQ(shownAccount(), "");

    background.bindSwitches(view->runInBackgroundSwitch(), view->startAtLoginSwitch());
    EXPECT_TRUE(active(view->runInBackgroundSwitch()) && !active(view->startAtLoginSwitch()));
    auto fromFile = [] {
        Preferences fresh;
        SessionPreferences session(fresh);
        return std::pair { session.runInBackground(), session.startAtLogin() };
    };
    gtk_switch_set_active(GTK_SWITCH(view->startAtLoginSwitch()), TRUE);
    gtk_switch_set_active(GTK_SWITCH(view->runInBackgroundSwitch()), FALSE);
    EXPECT_EQ(fromFile(), std::pair(false, true));
    auto entry = Autostart::entryText(Autostart::currentExecutable());
    EXPECT_EQ(Files::read(Autostart::entryPath(), 1 << 16), entry);
    gtk_switch_set_active(GTK_SWITCH(view->startAtLoginSwitch()), FALSE);
    EXPECT_EQ(fromFile(), std::pair(false, false));
    EXPECT_FALSE(Files::exists(Autostart::entryPath()));

    // Orvane's desktop file is not installed: the desktop cannot take it.
    EXPECT_FALSE(view->isDefaultMailClient() || shown(view->failureRow()));
    gtk_widget_activate(view->makeDefaultButton());
    EXPECT_TRUE(waitUntil([&] { return view->triedAndFailed(); }));
    EXPECT_TRUE(shown(view->failureRow()) && shown(view->makeDefaultButton()));
    // Installed, a press works and the explanation goes.
    install("app.orvane.Orvane.desktop");
    gtk_widget_activate(view->makeDefaultButton());
    EXPECT_TRUE(waitUntil([&] { return view->isDefaultMailClient(); }));
    EXPECT_TRUE(
        !shown(view->failureRow()) && shown(view->isDefaultLabel()) && !shown(view->makeDefaultButton()));
}

// What an update check shows and what its buttons may open. Reading feeds is
// AppcastTest's, the check itself UpdaterControllerTest's, the command in the
// real binary StartupTest's.
TEST_F(UpdateDialogTest, ANewerReleaseOffersItsWebPagesOthersOnlyClose) {
    using Result = UpdaterController::Result;
    const Result newer { .kind = Result::Kind::UpdateAvailable, .currentVersion = "0.1.0",
        .item = Appcast::Item { .version = "0.2.0", .downloadURL = "https://orvane.example/download",
            .releaseNotesURL = "https://orvane.example/notes" },
        .notes = "Account tiles show unread counts up to 99+" };
    // Addresses that are not the web's are never offered nor opened.
    Result hostile = newer;
    hostile.item->downloadURL = "javascript:alert(document.cookie)";
    hostile.item->releaseNotesURL = "file:///etc/passwd";
    const std::pair<Result, bool> cases[] = { { newer, true },
        { { .kind = Result::Kind::UpToDate, .currentVersion = "0.1.0" }, false }, { Result {}, false },
        { hostile, false } };

    window = GTK_WINDOW(gtk_window_new());
    std::vector<std::string> opened;
    std::vector<Ref<AdwMessageDialog>> dialogs; // a response closes a dialog
    auto open = [&](const std::string& uri) { opened.push_back(uri); };
    for (const auto& [result, offers] : cases) {
        auto* dialog = UpdateDialog::create(window, result, open);
        dialogs.emplace_back(dialog);
        EXPECT_STREQ(adw_message_dialog_get_default_response(dialog),
            offers ? UpdateDialog::kDownload : UpdateDialog::kClose);
        EXPECT_EQ(bool(adw_message_dialog_has_response(dialog, UpdateDialog::kReleaseNotes)), offers);
        for (const char* response :
            { UpdateDialog::kReleaseNotes, UpdateDialog::kDownload, UpdateDialog::kClose })
            adw_message_dialog_response(dialog, response);
    }
    EXPECT_TRUE(adw_message_dialog_get_extra_child(dialogs[0].get())) << "the notes are shown";
    EXPECT_EQ(opened,
        (std::vector<std::string> { "https://orvane.example/notes", "https://orvane.example/download" }));
    EXPECT_FALSE(UpdateDialog::openInBrowser("file:///etc/passwd"));
    // Before their parent, which the fixture closes.
    for (auto& dialog : dialogs)
        gtk_window_destroy(GTK_WINDOW(dialog.get()));
}

} // namespace
} // namespace orvane::test
