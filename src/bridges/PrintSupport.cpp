#include "PrintSupport.h"

#include "PageBridges.h"

#include <string>

namespace orvane {

PrintSupport::PrintSupport()
    : m_settings(adopt(gtk_print_settings_new())) {
}

void PrintSupport::serve(WebViewManager& manager) {
    // The body is the page's stamp, already turned into `sender`.
    manager.setMessageReceiver(std::string(PageBridges::kPrintHandler), [this](WebKitWebView* sender, JSCValue*) {
        if (sender)
            print(sender);
    });
}

void PrintSupport::print(WebKitWebView* view, Asker asker) {
    if (!view || m_gate.dialogOpen())
        return;
    if (asker == Asker::Page && !m_gate.allowsPageRequest(PrintGate::Clock::now())) {
        g_debug("Dropped a page's print request right after the print dialog closed");
        return;
    }
    const char* pdf = g_getenv("ORVANE_PRINT_TO_PDF");
    if (pdf && *pdf) {
        printToFile(view, pdf);
        return;
    }
    printWithDialog(view);
}

// WebKit keeps the operation alive while its job runs.
bool PrintSupport::printToFile(WebKitWebView* view, const char* path) {
    if (!g_path_is_absolute(path))
        return false;
    GCharPtr uri(g_filename_to_uri(path, nullptr, nullptr));
    if (!uri)
        return false;
    auto settings = adopt(gtk_print_settings_copy(m_settings.get()));
    // GTK names its file printer in the user's language.
    gtk_print_settings_set_printer(settings.get(), g_dgettext("gtk40", "Print to File"));
    gtk_print_settings_set(settings.get(), GTK_PRINT_SETTINGS_OUTPUT_FILE_FORMAT, "pdf");
    gtk_print_settings_set(settings.get(), GTK_PRINT_SETTINGS_OUTPUT_URI, uri.get());
    auto operation = adopt(webkit_print_operation_new(view));
    webkit_print_operation_set_print_settings(operation.get(), settings.get());
    webkit_print_operation_print(operation.get());
    return true;
}

void PrintSupport::printWithDialog(WebKitWebView* view) {
    Ref<WebKitWebView> keep(view); // a pop-up may close while the dialog runs
    auto operation = adopt(webkit_print_operation_new(view));
    webkit_print_operation_set_print_settings(operation.get(), m_settings.get());
    GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(view));
    GtkWindow* parent = root && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;

    // The dialog runs a loop of its own; prints asked for meanwhile are dropped.
    m_gate.dialogOpened();
    WebKitPrintOperationResponse response = webkit_print_operation_run_dialog(operation.get(), parent);
    m_gate.dialogClosed(PrintGate::Clock::now());
    if (response != WEBKIT_PRINT_OPERATION_RESPONSE_PRINT)
        return;
    // Remember what the user chose for the next print.
    GtkPrintSettings* chosen = webkit_print_operation_get_print_settings(operation.get());
    if (chosen && chosen != m_settings.get())
        m_settings = adopt(gtk_print_settings_copy(chosen));
}

} // namespace orvane
