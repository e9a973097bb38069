#include "web/ViewPrinter.h"

#include "base/GRef.h"

#include <gtk/gtk.h>

namespace orvane {

namespace {

GtkPrintSettings* sharedSettings() {
    static GtkPrintSettings* settings = gtk_print_settings_new(); // lives for the run
    return settings;
}

} // namespace

// WebKit keeps an operation alive while its job runs, so nothing here holds
// it past the call.
void ViewPrinter::print(WebKitWebView* view) {
    if (!view)
        return;
    auto operation = adopt(webkit_print_operation_new(view));
    const char* pdf = g_getenv("ORVANE_PRINT_TO_PDF");
    if (pdf && *pdf && g_path_is_absolute(pdf)) {
        auto settings = adopt(gtk_print_settings_copy(sharedSettings()));
        GCharPtr uri(g_filename_to_uri(pdf, nullptr, nullptr));
        if (!uri)
            return;
        gtk_print_settings_set_printer(settings.get(), "Print to File");
        gtk_print_settings_set(settings.get(), GTK_PRINT_SETTINGS_OUTPUT_FILE_FORMAT, "pdf");
        gtk_print_settings_set(settings.get(), GTK_PRINT_SETTINGS_OUTPUT_URI, uri.get());
        webkit_print_operation_set_print_settings(operation.get(), settings.get());
        webkit_print_operation_print(operation.get());
        return;
    }
    webkit_print_operation_set_print_settings(operation.get(), sharedSettings());
    GtkWidget* root = GTK_WIDGET(gtk_widget_get_root(GTK_WIDGET(view)));
    GtkWindow* parent = root && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
    if (webkit_print_operation_run_dialog(operation.get(), parent) != WEBKIT_PRINT_OPERATION_RESPONSE_PRINT)
        return;
    // Remember what the user chose for the next print.
    if (GtkPrintSettings* chosen = webkit_print_operation_get_print_settings(operation.get()); chosen && chosen != sharedSettings()) {
        gtk_print_settings_foreach(chosen, +[](const char* key, const char* value, gpointer) {
            gtk_print_settings_set(sharedSettings(), key, value);
        }, nullptr);
    }
}

} // namespace orvane
