// The application's commands: one GAction each, with the shortcuts and the
// primary menu that offer them.
#include "OrvaneApp.h"

#include "AppResources.h"
#include "MainWindow.h"
#include "BuildConfig.h"
#include "NotificationRelay.h"
#include "DefaultMailClient.h"
#include "SettingsView.h"
#include "SpellChecking.h"

#include <glib/gi18n-lib.h>

#include <string>

namespace orvane {

namespace {

OrvaneApp* appFrom(gpointer data) { return static_cast<OrvaneApp*>(data); }

struct Shortcut {
    const char* detailedAction;
    std::initializer_list<const char*> accels;
};

const Shortcut kShortcuts[] = {
    { "app.add-account", { "<Control><Shift>n" } },
    { "app.print", { "<Control>p" } },
    { "app.paste-plain", { "<Control><Shift>v", "<Control><Alt><Shift>v" } },
    { "app.preferences", { "<Control>comma" } },
    { "app.shortcuts", { "<Control>question" } },
    { "app.quit", { "<Control>q" } },
};

} // namespace

void OrvaneApp::addActions() {
    static const GActionEntry entries[] = {
        { "add-account", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->m_store->addAccount(); }, nullptr, nullptr, nullptr, {} },
        { "add-outlook-account", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->m_store->addOutlookAccount(); }, nullptr, nullptr, nullptr, {} },
        { "select-account", +[](GSimpleAction*, GVariant* number, gpointer data) { appFrom(data)->selectAccount(g_variant_get_int32(number)); }, "i", nullptr, nullptr, {} },
        { "print", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->m_bridges->printSelected(); }, nullptr, nullptr, nullptr, {} },
        { "paste-plain", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->pasteAsPlainText(); }, nullptr, nullptr, nullptr, {} },
        { "make-default", +[](GSimpleAction*, GVariant*, gpointer) { DefaultMailClient::makeDefault(); }, nullptr, nullptr, nullptr, {} },
        { "preferences", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->showPreferences(); }, nullptr, nullptr, nullptr, {} },
        { "shortcuts", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->showShortcuts(); }, nullptr, nullptr, nullptr, {} },
        { "about", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->showAbout(); }, nullptr, nullptr, nullptr, {} },
        { "quit", +[](GSimpleAction*, GVariant*, gpointer data) { appFrom(data)->quit(); }, nullptr, nullptr, nullptr, {} },
        // The default action of the desktop notifications (bridges/NotificationRelay.h),
        // also when it starts Orvane through D-Bus activation.
        { NotificationRelay::kClickAction, +[](GSimpleAction*, GVariant* target, gpointer data) {
            const char* account = nullptr;
            const char* notif = nullptr;
            g_variant_get(target, "(&s&s)", &account, &notif);
            OrvaneApp* self = appFrom(data);
            self->presentMainWindow();
            self->m_bridges->notifications().clicked(account, notif);
        }, NotificationRelay::kClickActionTarget, nullptr, nullptr, {} },
    };
    g_action_map_add_action_entries(G_ACTION_MAP(m_app.get()), entries, G_N_ELEMENTS(entries), this);

    GtkApplication* app = GTK_APPLICATION(m_app.get());
    for (const auto& shortcut : kShortcuts) {
        std::vector<const char*> accels(shortcut.accels);
        accels.push_back(nullptr);
        gtk_application_set_accels_for_action(app, shortcut.detailedAction, accels.data());
    }
    PageTools::addShortcuts(app);
    for (int n = 1; n <= 9; ++n) {
        std::string action = "app.select-account(" + std::to_string(n) + ")";
        std::string accel = "<Control>" + std::to_string(n);
        const char* accels[] = { accel.c_str(), nullptr };
        gtk_application_set_accels_for_action(app, action.c_str(), accels);
    }
}

void OrvaneApp::setActionEnabled(const char* name, bool enabled) {
    GAction* action = g_action_map_lookup_action(G_ACTION_MAP(m_app.get()), name);
    if (G_IS_SIMPLE_ACTION(action))
        g_simple_action_set_enabled(G_SIMPLE_ACTION(action), enabled);
}

Ref<GMenuModel> OrvaneApp::buildPrimaryMenu() const {
    auto section = [](std::initializer_list<std::pair<const char*, const char*>> items) {
        GMenu* menu = g_menu_new();
        for (auto [label, action] : items)
            g_menu_append(menu, label, action);
        return menu;
    };

    auto menu = adopt(g_menu_new());
    auto appendSection = [&](GMenu* part) {
        g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(part));
        g_object_unref(part);
    };

    appendSection(section({ { _("Add Account"), "app.add-account" }, { _("Add Outlook Account"), "app.add-outlook-account" } }));

    GMenu* accounts = g_menu_new();
    for (int n = 1; n <= 9; ++n) {
        GCharPtr label(g_strdup_printf(_("Select Account %d"), n));
        std::string action = "app.select-account(" + std::to_string(n) + ")";
        g_menu_append(accounts, label.get(), action.c_str());
    }
    GMenu* select = g_menu_new();
    g_menu_append_submenu(select, _("Select Account"), G_MENU_MODEL(accounts));
    g_object_unref(accounts);
    appendSection(select);

    appendSection(section({ { _("Print…"), "app.print" }, { _("Paste and Match Style"), "app.paste-plain" } }));
    // A build without an update feed has nothing to check: no greyed-out item.
    GMenu* maintenance = section({ { _("Make Orvane Default Email App"), "app.make-default" } });
    if (m_updater && m_updater->canCheckForUpdates())
        g_menu_append(maintenance, _("Check for Updates…"), "app.check-for-updates");
    appendSection(maintenance);
    appendSection(section({ { _("Preferences"), "app.preferences" }, { _("Keyboard Shortcuts"), "app.shortcuts" }, { _("About Orvane"), "app.about" } }));
    // Closing the window no longer ends Orvane while it runs in the background.
    appendSection(section({ { _("Quit"), "app.quit" } }));
    return Ref<GMenuModel>(G_MENU_MODEL(menu.get()));
}

// Position n counts in the whole account list in its stored order; a
// position that does not exist does nothing (the store checks).
void OrvaneApp::selectAccount(int number) {
    if (number < 1 || number > 9)
        return;
    m_store->select(number - 1);
}

GtkWindow* OrvaneApp::activeWindow() const {
    GListModel* toplevels = gtk_window_get_toplevels();
    for (guint i = 0; i < g_list_model_get_n_items(toplevels); ++i) {
        auto window = adopt(GTK_WINDOW(g_list_model_get_item(toplevels, i)));
        if (gtk_window_is_active(window.get()))
            return window.get();
    }
    return m_mainWindow ? m_mainWindow->window() : nullptr;
}

// The focused web view (in the main window or a page's pop-up) pastes the
// clipboard as plain text into its focused field.
void OrvaneApp::pasteAsPlainText() {
    GtkWindow* window = activeWindow();
    if (!window)
        return;
    for (GtkWidget* widget = gtk_root_get_focus(GTK_ROOT(window)); widget; widget = gtk_widget_get_parent(widget)) {
        if (WEBKIT_IS_WEB_VIEW(widget)) {
            webkit_web_view_execute_editing_command(WEBKIT_WEB_VIEW(widget), WEBKIT_EDITING_COMMAND_PASTE_AS_PLAIN_TEXT);
            return;
        }
    }
}

void OrvaneApp::showShortcuts() {
    ensureUIResources();
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/ShortcutsWindow.ui"));
    GObject* shortcuts = gtk_builder_get_object(builder.get(), "shortcuts");
    if (!GTK_IS_WINDOW(shortcuts))
        return;
    if (m_mainWindow)
        gtk_window_set_transient_for(GTK_WINDOW(shortcuts), m_mainWindow->window());
    gtk_window_present(GTK_WINDOW(shortcuts));
}

// One preferences window at a time; opening it again brings it forward.
void OrvaneApp::showPreferences() {
    SettingsView& view = SettingsView::open(*m_store, *m_manager, m_mainWindow ? m_mainWindow->window() : nullptr, GTK_APPLICATION(m_app.get()));
    m_background->bindSwitches(view.runInBackgroundSwitch(), view.startAtLoginSwitch());
    GtkWidget* spelling = view.spellingSwitch();
    if (g_object_get_data(G_OBJECT(spelling), "orvane-bound"))
        return;
    g_object_set_data(G_OBJECT(spelling), "orvane-bound", GINT_TO_POINTER(1));
    gtk_switch_set_active(GTK_SWITCH(spelling), m_session->checkSpelling());
    // The switch lives in the preferences window, which goes before the application.
    g_signal_connect(spelling, "notify::active", G_CALLBACK(+[](GtkSwitch* toggle, GParamSpec*, gpointer session) {
        bool on = gtk_switch_get_active(toggle);
        static_cast<SessionPreferences*>(session)->setCheckSpelling(on);
        SpellChecking::apply(on);
    }), &*m_session);
}

void OrvaneApp::showAbout() {
    GtkWidget* about = adw_about_window_new();
    AdwAboutWindow* window = ADW_ABOUT_WINDOW(about);
    adw_about_window_set_application_name(window, "Orvane");
    adw_about_window_set_application_icon(window, build::kAppID);
    adw_about_window_set_version(window, build::kVersion);
    adw_about_window_set_developer_name(window, _("The Orvane developers"));
    adw_about_window_set_comments(window, _("All your Gmail accounts, one window."));
    adw_about_window_set_website(window, build::kHomepageURL);
    adw_about_window_set_issue_url(window, build::kIssuesURL);
    adw_about_window_set_license_type(window, GTK_LICENSE_GPL_3_0);
    adw_about_window_set_copyright(window, _("© 2025 The Orvane developers"));
    const char* developers[] = { _("The Orvane developers"), nullptr };
    adw_about_window_set_developers(window, developers);
    // Translators: your name and address, one translator a line.
    if (const char* credits = _("translator-credits"); g_strcmp0(credits, "translator-credits") != 0)
        adw_about_window_set_translator_credits(window, credits);
    if (m_mainWindow)
        gtk_window_set_transient_for(GTK_WINDOW(about), m_mainWindow->window());
    gtk_window_present(GTK_WINDOW(about));
}

void OrvaneApp::quit() {
    closeAllWindows();
    g_application_quit(G_APPLICATION(m_app.get()));
}

} // namespace orvane
