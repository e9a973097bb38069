#pragma once

#include "AccountBridges.h"
#include "AccountStore.h"
#include "AppWebHost.h"
#include "BackgroundRunning.h"
#include "Beacon.h"
#include "GRef.h"
#include "PageTools.h"
#include "Preferences.h"
#include "SessionPreferences.h"
#include "SignalConnection.h"
#include "UpdaterController.h"
#include "CheckForUpdatesAction.h"
#include "DownloadsButton.h"
#include "WebViewManager.h"

#include <adwaita.h>

#include <memory>
#include <optional>

namespace orvane {

class MainWindow;

// Orvane's application object: app.orvane.Orvane, single instance, opening
// the URLs it is given (`orvane URL` reaches the running instance). In the
// primary instance it creates the account store and the web view manager
// once for the whole run, builds the main window and offers every command as
// an application action with its shortcut (OrvaneAppActions.cpp):
//   app.add-account, app.add-outlook-account, app.select-account (int32 1-9),
//   app.print, app.paste-plain, app.make-default, app.check-for-updates,
//   app.preferences, app.shortcuts, app.about, app.quit;
// and the main window's page actions (PageTools).
// `orvane --background` starts it with the window hidden (BackgroundRunning).
// These names are also how tests and scripts drive Orvane over D-Bus
// (org.gtk.Actions at /app/orvane/Orvane).
class OrvaneApp {
public:
    OrvaneApp();
    ~OrvaneApp();
    OrvaneApp(const OrvaneApp&) = delete;
    OrvaneApp& operator=(const OrvaneApp&) = delete;

    int run(int argc, char** argv);

    AdwApplication* application() const { return m_app.get(); }
    // The main window, or null while none is open.
    MainWindow* mainWindow() const { return m_mainWindow.get(); }

private:
    static void onStartup(GApplication*, gpointer self);
    static void onActivate(GApplication*, gpointer self);
    static void onOpen(GApplication*, GFile** files, int count, const char* hint, gpointer self);
    static void onShutdown(GApplication*, gpointer self);
    static int onLocalOptions(GApplication*, GVariantDict* options, gpointer self);

    MainWindow& ensureMainWindow();
    MainWindow& presentMainWindow();
    void mainWindowGone();
    void mainContentAppears();
    void closeAllWindows();

    // OrvaneAppActions.cpp
    void addActions();
    void setActionEnabled(const char* name, bool enabled);
    Ref<GMenuModel> buildPrimaryMenu() const;
    void selectAccount(int number);
    void pasteAsPlainText();
    void showShortcuts();
    void showPreferences();
    void showAbout();
    void quit();
    GtkWindow* activeWindow() const;

    // Owned references. The store is declared before the manager so that it
    // outlives it; both exist only in the primary instance, from start-up on.
    Ref<AdwApplication> m_app;
    // Before the manager, whose page settings read them.
    std::optional<Preferences> m_preferences;
    std::optional<SessionPreferences> m_session;
    std::optional<AccountStore> m_store;
    std::optional<ServiceCatalog> m_services; // before the manager, which uses it
    std::optional<AppWebHost> m_webHost; // before the manager, which uses it
    std::optional<WebViewManager> m_manager;
    AccountBridges* m_bridges = nullptr; // owned by the manager
    std::optional<UpdaterController> m_updater;
    std::optional<Beacon> m_beacon;
    // Declared after the updater it watches, so it goes first.
    std::unique_ptr<CheckForUpdatesAction> m_checkForUpdates;
    Ref<GMenuModel> m_primaryMenu;
    std::unique_ptr<BackgroundRunning> m_background;
    std::unique_ptr<MainWindow> m_mainWindow;
    std::unique_ptr<PageTools> m_pageTools; // goes before the window
    std::unique_ptr<DownloadsButton> m_downloadsButton; // goes before the window
    bool m_startHidden = false; // --background, until the first activation
    SignalConnection m_mainWindowDestroyed;
    SignalConnection m_startup;
    SignalConnection m_activate;
    SignalConnection m_open;
    SignalConnection m_shutdown;
    SignalConnection m_localOptions;
};

// Runs Orvane (the process's main()).
int runOrvane(int argc, char** argv);

} // namespace orvane
