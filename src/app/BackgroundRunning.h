#pragma once

#include "BackgroundPortal.h"
#include "SessionPreferences.h"
#include "SignalConnection.h"

#include <gtk/gtk.h>

#include <functional>
#include <vector>

namespace orvane {

// Orvane running with its window closed. While "Run in background" is on,
// closing the main window hides it instead: the process, the pages, their
// notifications and unread counts go on, and the window comes back as it was
// on the next activation. The application is held while the window is
// hidden, so only Quit ends it. The desktop is asked through the Background
// portal where one answers; if it refuses, closing the window quits again.
// "Start at login" writes or removes the autostart entry (through the portal
// in a sandbox), which starts Orvane with --background.
class BackgroundRunning {
public:
    // `quit` ends the application (the portal refused while the window was
    // hidden). The application and the preferences outlive this object.
    BackgroundRunning(GApplication* application, SessionPreferences& preferences, std::function<void()> quit);
    ~BackgroundRunning();
    BackgroundRunning(const BackgroundRunning&) = delete;
    BackgroundRunning& operator=(const BackgroundRunning&) = delete;

    // The main window: its close button hides it while running in the
    // background is on.
    void attach(GtkWindow* window);
    // Started with --background: held as if the window had been closed.
    void startHidden();
    // The two switches of the preferences window; binding the same ones
    // again does nothing.
    void bindSwitches(GtkWidget* runInBackground, GtkWidget* startAtLogin);

    bool isHeld() const { return m_held; }

private:
    static gboolean onCloseRequest(GtkWindow*, gpointer self);
    void hold();
    void release();
    void requestBackground();
    void setStartAtLogin(bool on);

    // Borrowed references
    GApplication* m_application;
    SessionPreferences& m_preferences;

    // Owned references
    BackgroundPortal m_portal;
    std::function<void()> m_quit;
    std::vector<SignalConnection> m_connections;
    bool m_held = false;
    bool m_asked = false;   // the portal was asked this run
    bool m_refused = false; // and said no
    GtkWindow* m_window = nullptr; // the attached window while it lives
};

} // namespace orvane
