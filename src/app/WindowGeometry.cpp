#include "WindowGeometry.h"

namespace orvane::WindowGeometry {

void restore(GtkWindow* window, const SessionPreferences& preferences, int minimumWidth, int minimumHeight) {
    auto size = preferences.windowSize(minimumWidth, minimumHeight);
    if (!size)
        return;
    gtk_window_set_default_size(window, size->width, size->height);
    if (size->maximized)
        gtk_window_maximize(window);
}

// GTK follows the window's size in its default size except while it is
// maximised, so the size kept is the one to go back to when unmaximised.
void keep(GtkWindow* window, SessionPreferences& preferences) {
    if (!gtk_widget_get_realized(GTK_WIDGET(window)))
        return;
    SessionPreferences::WindowSize size;
    gtk_window_get_default_size(window, &size.width, &size.height);
    size.maximized = gtk_window_is_maximized(window);
    if (size.width > 0 && size.height > 0 && preferences.windowSize(1, 1) != size)
        preferences.setWindowSize(size);
}

void keepOnClose(GtkWindow* window, SessionPreferences& preferences) {
    // Runs before any handler that stops the close, and lets it go on.
    g_signal_connect(window, "close-request", G_CALLBACK(+[](GtkWindow* window, gpointer preferences) {
        keep(window, *static_cast<SessionPreferences*>(preferences));
        return FALSE;
    }), &preferences);
}

} // namespace orvane::WindowGeometry
