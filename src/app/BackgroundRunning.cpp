#include "BackgroundRunning.h"

#include "Autostart.h"

#include <glib/gi18n-lib.h>

namespace orvane {

namespace {

constexpr const char* kReason = N_("Orvane keeps your accounts' notifications and unread counts while its window is closed.");
constexpr const char* kBoundKey = "orvane-background-bound";

} // namespace

BackgroundRunning::BackgroundRunning(GApplication* application, SessionPreferences& preferences, std::function<void()> quit)
    : m_application(application)
    , m_preferences(preferences)
    , m_quit(std::move(quit)) {
}

BackgroundRunning::~BackgroundRunning() {
    m_connections.clear();
    if (m_window)
        g_object_remove_weak_pointer(G_OBJECT(m_window), reinterpret_cast<gpointer*>(&m_window));
    release();
}

void BackgroundRunning::attach(GtkWindow* window) {
    if (m_window)
        g_object_remove_weak_pointer(G_OBJECT(m_window), reinterpret_cast<gpointer*>(&m_window));
    m_window = window;
    g_object_add_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&m_window));
    m_connections.push_back(SignalConnection::connect(window, "close-request", &BackgroundRunning::onCloseRequest, this));
    m_connections.push_back(SignalConnection::connect(window, "show", +[](GtkWidget*, gpointer self) {
        static_cast<BackgroundRunning*>(self)->release();
    }, this));
}

gboolean BackgroundRunning::onCloseRequest(GtkWindow* window, gpointer data) {
    auto* self = static_cast<BackgroundRunning*>(data);
    if (!self->m_preferences.runInBackground() || self->m_refused)
        return FALSE;
    gtk_widget_set_visible(GTK_WIDGET(window), FALSE);
    self->hold();
    self->requestBackground();
    return TRUE;
}

void BackgroundRunning::startHidden() {
    hold();
    requestBackground();
}

void BackgroundRunning::hold() {
    if (!std::exchange(m_held, true))
        g_application_hold(m_application);
}

void BackgroundRunning::release() {
    if (std::exchange(m_held, false))
        g_application_release(m_application);
}

// Asked once a run, when Orvane first goes to the background, and again when
// "Start at login" changes in a sandbox (the portal writes that entry).
void BackgroundRunning::requestBackground() {
    if (m_asked)
        return;
    m_asked = true;
    bool sandboxed = Autostart::isSandboxed();
    std::vector<std::string> commandLine;
    if (sandboxed)
        commandLine = { "orvane", std::string("--") + Autostart::kBackgroundOption };
    m_portal.request(_(kReason), sandboxed && m_preferences.startAtLogin(), commandLine, [this](std::optional<BackgroundPortal::Answer> answer) {
        if (!answer || answer->background)
            return;
        g_message("The desktop does not let Orvane run in the background: closing the window quits it");
        m_refused = true;
        if (m_held && (!m_window || !gtk_widget_get_visible(GTK_WIDGET(m_window))))
            m_quit();
    });
}

void BackgroundRunning::bindSwitches(GtkWidget* runInBackground, GtkWidget* startAtLogin) {
    if (g_object_get_data(G_OBJECT(runInBackground), kBoundKey))
        return;
    g_object_set_data(G_OBJECT(runInBackground), kBoundKey, GINT_TO_POINTER(1));
    gtk_switch_set_active(GTK_SWITCH(runInBackground), m_preferences.runInBackground());
    gtk_switch_set_active(GTK_SWITCH(startAtLogin), m_preferences.startAtLogin());
    // The switches live in the preferences window, which goes first.
    g_signal_connect(runInBackground, "notify::active", G_CALLBACK(+[](GtkSwitch* toggle, GParamSpec*, gpointer self) {
        static_cast<BackgroundRunning*>(self)->m_preferences.setRunInBackground(gtk_switch_get_active(toggle));
    }), this);
    g_signal_connect(startAtLogin, "notify::active", G_CALLBACK(+[](GtkSwitch* toggle, GParamSpec*, gpointer self) {
        static_cast<BackgroundRunning*>(self)->setStartAtLogin(gtk_switch_get_active(toggle));
    }), this);
}

void BackgroundRunning::setStartAtLogin(bool on) {
    m_preferences.setStartAtLogin(on);
    if (Autostart::isSandboxed()) {
        m_asked = false;
        requestBackground();
        return;
    }
    bool done = on ? Autostart::enable(Autostart::currentExecutable()) : Autostart::disable();
    if (!done)
        g_warning("Could not %s %s", on ? "write" : "remove", Autostart::entryPath().c_str());
}

} // namespace orvane
