#include "FilePanels.h"

#include "GRef.h"
#include "FileChooserInterceptor.h"
#include "HeapBox.h"

#include <glib/gi18n-lib.h>

#include <string>
#include <vector>

namespace orvane::FilePanels {

namespace {

// One open chooser and the request it answers; freed with the chooser.
struct PendingChoice {
    Ref<WebKitFileChooserRequest> request;
    bool answered = false;

    void answer(const std::vector<std::string>& paths) {
        if (answered)
            return;
        answered = true;
        if (paths.empty()) {
            webkit_file_chooser_request_cancel(request.get());
            return;
        }
        std::vector<const char*> list;
        for (const auto& path : paths)
            list.push_back(path.c_str());
        list.push_back(nullptr);
        webkit_file_chooser_request_select_files(request.get(), list.data());
    }
};

std::vector<std::string> chosenPaths(GtkFileChooser* chooser) {
    std::vector<std::string> paths;
    Ref<GListModel> files = adopt(gtk_file_chooser_get_files(chooser));
    guint count = files ? g_list_model_get_n_items(files.get()) : 0;
    for (guint i = 0; i < count; ++i) {
        Ref<GFile> file = adopt(G_FILE(g_list_model_get_item(files.get(), i)));
        GCharPtr path(file ? g_file_get_path(file.get()) : nullptr);
        if (path)
            paths.emplace_back(path.get());
    }
    return paths;
}

void onResponse(GtkNativeDialog* dialog, int response, gpointer data) {
    auto* pending = static_cast<PendingChoice*>(data);
    std::vector<std::string> paths;
    if (response == GTK_RESPONSE_ACCEPT)
        paths = chosenPaths(GTK_FILE_CHOOSER(dialog));
    pending->answer(paths);
    gtk_native_dialog_destroy(dialog);
    // The chooser held itself for the user; it goes now, and `pending` with it.
    g_object_unref(dialog);
}

} // namespace

bool run(WebKitWebView* view, WebKitFileChooserRequest* request) {
    if (FileChooserInterceptor::intercept(view, request))
        return true;
    bool multiple = webkit_file_chooser_request_get_select_multiple(request);
    // The chooser belongs to the window showing the page (the main window or
    // a pop-up), so the desktop keeps it above that window.
    GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(view));
    GtkWindow* parent = GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
    GtkFileChooserNative* chooser = gtk_file_chooser_native_new(multiple ? _("Select Files") : _("Select File"), parent,
        GTK_FILE_CHOOSER_ACTION_OPEN, nullptr, nullptr);
    gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(chooser), parent != nullptr);
    gtk_file_chooser_set_select_multiple(GTK_FILE_CHOOSER(chooser), multiple);
    auto* pending = HeapBox::make<PendingChoice>(PendingChoice { Ref<WebKitFileChooserRequest>(request) });
    // A chooser closed without an answer (never expected) still answers the page.
    g_object_set_data_full(G_OBJECT(chooser), "orvane-pending-choice", pending, [](gpointer data) {
        HeapBox::take<PendingChoice>(data)->answer({});
    });
    g_signal_connect(chooser, "response", G_CALLBACK(onResponse), pending);
    gtk_native_dialog_show(GTK_NATIVE_DIALOG(chooser));
    return true;
}

} // namespace orvane::FilePanels
