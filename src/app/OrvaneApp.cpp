#include "app/OrvaneApp.h"

#include <adwaita.h>

namespace orvane {

int runOrvane(int argc, char** argv) {
    AdwApplication* app = adw_application_new("app.orvane.Orvane", G_APPLICATION_HANDLES_OPEN);
    g_signal_connect(app, "activate", G_CALLBACK(+[](GApplication* app, gpointer) {
        GtkWidget* window = adw_application_window_new(GTK_APPLICATION(app));
        gtk_window_set_title(GTK_WINDOW(window), "Orvane");
        gtk_window_set_default_size(GTK_WINDOW(window), 1100, 720);
        gtk_window_present(GTK_WINDOW(window));
    }), nullptr);
    int status = g_application_run(G_APPLICATION(app), argc, argv);
    g_object_unref(app);
    return status;
}

} // namespace orvane
