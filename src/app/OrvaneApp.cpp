#include "OrvaneApp.h"

#include "Beacon.h"
#include "RendererChoice.h"

#include "Autostart.h"
#include "ContentView.h"
#include "MainWindow.h"
#include "SettingsView.h"
#include "SpellChecking.h"
#include "BuildConfig.h"
#include "PageViewSettings.h"
#include "WindowGeometry.h"

#include <glib/gi18n-lib.h>

#include <clocale>
#include <csignal>

namespace orvane {

// Run from the build tree, before tools/install-desktop.sh has put the icon
// into the icon theme: take it from the source tree.
static void useIconFromSourceTree() {
#ifdef ORVANE_UNINSTALLED_ICONS_DIR
    GdkDisplay* display = gdk_display_get_default();
    if (!display)
        return;
    GtkIconTheme* theme = gtk_icon_theme_get_for_display(display);
    if (!gtk_icon_theme_has_icon(theme, build::kAppID) && g_file_test(ORVANE_UNINSTALLED_ICONS_DIR, G_FILE_TEST_IS_DIR))
        gtk_icon_theme_add_search_path(theme, ORVANE_UNINSTALLED_ICONS_DIR);
#endif
}

OrvaneApp::OrvaneApp()
    : m_app(adopt(adw_application_new("app.orvane.Orvane", G_APPLICATION_HANDLES_OPEN))) {
    m_startup = SignalConnection::connect(m_app.get(), "startup", &OrvaneApp::onStartup, this);
    m_activate = SignalConnection::connect(m_app.get(), "activate", &OrvaneApp::onActivate, this);
    m_open = SignalConnection::connect(m_app.get(), "open", &OrvaneApp::onOpen, this);
    m_shutdown = SignalConnection::connect(m_app.get(), "shutdown", &OrvaneApp::onShutdown, this);
    m_localOptions = SignalConnection::connect(m_app.get(), "handle-local-options", &OrvaneApp::onLocalOptions, this);
    g_application_add_main_option(G_APPLICATION(m_app.get()), Autostart::kBackgroundOption, 0, G_OPTION_FLAG_NONE, G_OPTION_ARG_NONE,
        _("Start with the window hidden, as at login"), nullptr);
}

OrvaneApp::~OrvaneApp() {
    mainWindowGone();
}

int OrvaneApp::run(int argc, char** argv) {
    return g_application_run(G_APPLICATION(m_app.get()), argc, argv);
}

// Runs in the primary instance only; a second `orvane` process hands its
// arguments over and exits without ever building these.
void OrvaneApp::onStartup(GApplication*, gpointer data) {
    auto* self = static_cast<OrvaneApp*>(data);
    RendererChoice::apply(gdk_display_get_default());
    useIconFromSourceTree();
    gtk_window_set_default_icon_name(build::kAppID);
    self->m_preferences.emplace();
    self->m_session.emplace(*self->m_preferences);
    self->m_store.emplace();
    SessionPreferences* session = &*self->m_session;
    self->m_store->setAccountForgetter([session](const std::string& accountID) {
        session->forgetAccounts([&](const std::string& id) { return id == accountID; });
    });
    // What a removal cut short by a crash left: the accounts file already went without it.
    if (self->m_store->removeOrphans())
        session->forgetAccounts([store = &*self->m_store](const std::string& id) { return !store->account(id); });
    self->m_webHost.emplace(GTK_APPLICATION(self->m_app.get()));
    self->m_webHost->setToastShower([self](AdwToast* toast) {
        if (self->m_mainWindow)
            self->m_mainWindow->showToast(toast);
        else
            g_object_unref(g_object_ref_sink(toast));
    });
    self->m_services.emplace(ServiceCatalog::fromEnvironment());
    self->m_manager.emplace(*self->m_webHost, *self->m_services);
    self->m_bridges = &self->m_manager->addExtension(std::make_unique<AccountBridges>(*self->m_manager));
    self->m_manager->setHibernationPolicy(SettingsView::hibernationPolicy());
    self->m_manager->setSessionPreferences(*self->m_session);
    SpellChecking::apply(self->m_session->checkSpelling());
    self->m_manager->addExtension(std::make_unique<PageViewSettings>(*self->m_session));
    self->m_background = std::make_unique<BackgroundRunning>(G_APPLICATION(self->m_app.get()), *self->m_session, [self] { self->quit(); });
    self->m_updater.emplace();
    self->m_beacon.emplace(Beacon::defaultConfiguration());
    self->m_primaryMenu = self->buildPrimaryMenu();
    self->addActions();
    self->m_checkForUpdates = std::make_unique<CheckForUpdatesAction>(GTK_APPLICATION(self->m_app.get()), *self->m_updater);
}

// `orvane --background` while Orvane runs changes nothing; the one that
// starts it builds the window and its pages without showing them.
int OrvaneApp::onLocalOptions(GApplication* application, GVariantDict* options, gpointer data) {
    if (!g_variant_dict_contains(options, Autostart::kBackgroundOption))
        return -1;
    GErrorPtr error;
    if (!g_application_register(application, nullptr, GErrorOut(error))) {
        g_printerr("%s\n", error ? error->message : "Could not register");
        return 1;
    }
    if (g_application_get_is_remote(application))
        return 0;
    static_cast<OrvaneApp*>(data)->m_startHidden = true;
    return -1;
}

void OrvaneApp::onActivate(GApplication*, gpointer data) {
    auto* self = static_cast<OrvaneApp*>(data);
    if (std::exchange(self->m_startHidden, false)) {
        self->ensureMainWindow();
        self->m_background->startHidden();
        return;
    }
    self->presentMainWindow();
}

void OrvaneApp::onOpen(GApplication*, GFile** files, int count, const char*, gpointer data) {
    auto* self = static_cast<OrvaneApp*>(data);
    // A link that reaches a running Orvane brings the window forward only
    // when the routing says so; one that starts Orvane opens the window.
    MainWindow& window = self->m_mainWindow ? *self->m_mainWindow : self->presentMainWindow();
    for (int i = 0; i < count; ++i) {
        GCharPtr uri(g_file_get_uri(files[i]));
        if (uri)
            window.content().handleOpenURL(uri.get());
    }
}

void OrvaneApp::onShutdown(GApplication*, gpointer data) {
    auto* self = static_cast<OrvaneApp*>(data);
    self->m_checkForUpdates.reset();
    self->mainWindowGone();
    self->m_store->commitRemovals();
    self->m_background.reset();
}

// A window closed while running in the background is only hidden: the same
// window, with its pages as they were, comes back.
MainWindow& OrvaneApp::ensureMainWindow() {
    if (!m_mainWindow) {
        mainContentAppears();
        m_mainWindow = std::make_unique<MainWindow>(GTK_APPLICATION(m_app.get()), *m_store, *m_manager, m_primaryMenu.get());
        m_mainWindow->setOnBecameActive([this] {
            m_manager->applicationBecameActive();
            m_beacon->applicationBecameActive();
        });
        GtkWindow* window = m_mainWindow->window();
        m_pageTools = std::make_unique<PageTools>(*m_mainWindow, *m_store, *m_manager, *m_session);
        m_downloadsButton = std::make_unique<DownloadsButton>(m_webHost->downloads(), window);
        adw_header_bar_pack_end(m_mainWindow->headerBar(), m_downloadsButton->widget());
        WindowGeometry::restore(window, *m_session, MainWindow::kMinimumWidth, MainWindow::kMinimumHeight);
        WindowGeometry::keepOnClose(window, *m_session);
        m_background->attach(window);
        m_mainWindowDestroyed = SignalConnection::connect(window, "destroy", +[](GtkWidget*, gpointer data) {
            static_cast<OrvaneApp*>(data)->mainWindowGone();
        }, this);
    }
    return *m_mainWindow;
}

MainWindow& OrvaneApp::presentMainWindow() {
    MainWindow& window = ensureMainWindow();
    gtk_window_present(window.window());
    return window;
}

void OrvaneApp::mainWindowGone() {
    m_mainWindowDestroyed.disconnect();
    m_pageTools.reset();
    m_downloadsButton.reset();
    m_mainWindow.reset();
}

// Each time a main window's content is built: bind the store to the web
// layer (and, with it, the notification relay and the dock badge). The usage
// ping starts here too; it ignores repeated starts.
void OrvaneApp::mainContentAppears() {
    m_manager->configure(*m_store);
    m_beacon->start();
}

void OrvaneApp::closeAllWindows() {
    // Pop-up windows of pages are not attached to the application; destroy
    // every toplevel so pages close before the process ends.
    GListModel* toplevels = gtk_window_get_toplevels();
    std::vector<Ref<GtkWindow>> windows;
    for (guint i = 0; i < g_list_model_get_n_items(toplevels); ++i)
        windows.push_back(adopt(GTK_WINDOW(g_list_model_get_item(toplevels, i))));
    if (m_mainWindow)
        WindowGeometry::keep(m_mainWindow->window(), *m_session);
    mainWindowGone();
    for (auto& window : windows) {
        if (!gtk_widget_in_destruction(GTK_WIDGET(window.get())))
            gtk_window_destroy(window.get());
    }
}

// The translations sit at the same place relative to the program in the
// build tree and once installed (src/CMakeLists.txt); a program moved away
// from them uses the configured installed folder.
static void bindTranslations() {
    std::setlocale(LC_ALL, "");
    std::string folder = ORVANE_INSTALLED_LOCALE_DIR;
    if (GCharPtr executable { g_file_read_link("/proc/self/exe", nullptr) }) {
        GCharPtr programFolder(g_path_get_dirname(executable.get()));
        GCharPtr candidate(g_build_filename(programFolder.get(), ORVANE_LOCALE_RELATIVE_DIR, nullptr));
        if (g_file_test(candidate.get(), G_FILE_TEST_IS_DIR))
            folder = candidate.get();
    }
    bindtextdomain(GETTEXT_PACKAGE, folder.c_str());
    bind_textdomain_codeset(GETTEXT_PACKAGE, "UTF-8");
    textdomain(GETTEXT_PACKAGE);
}

int runOrvane(int argc, char** argv) {
    bindTranslations();
    // Under a file-size limit (ulimit -f) a long write must fail like a full
    // disk, which every writer handles, rather than end Orvane; WebKit's
    // processes inherit the setting.
    std::signal(SIGXFSZ, SIG_IGN);
    // The window's class (WM_CLASS, the Wayland app id) is the application
    // id, as the desktop entry's StartupWMClass says, so docks match them.
    g_set_prgname(build::kAppID);
    g_set_application_name("Orvane");
    OrvaneApp app;
    return app.run(argc, argv);
}

} // namespace orvane
