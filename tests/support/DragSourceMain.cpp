// orvane_drag_source: a small undecorated window titled "Drag Source" whose
// whole area is a drag source, for the end-to-end drop tests:
//
//   orvane_drag_source files PATH...   local files
//   orvane_drag_source link URI        a web link as browsers offer one
#include <gtk/gtk.h>

#include <cstring>

int main(int argc, char** argv) {
    gtk_init();
    GdkContentProvider* content = nullptr;
    if (argc >= 3 && !strcmp(argv[1], "files")) {
        GSList* list = nullptr;
        for (int index = 2; index < argc; ++index)
            list = g_slist_append(list, g_file_new_for_path(argv[index]));
        GdkFileList* files = gdk_file_list_new_from_list(list);
        content = gdk_content_provider_new_typed(GDK_TYPE_FILE_LIST, files);
    } else if (argc == 3 && !strcmp(argv[1], "link")) {
        char* list = g_strconcat(argv[2], "\r\n", nullptr);
        GdkContentProvider* providers[] = {
            gdk_content_provider_new_for_bytes("text/uri-list", g_bytes_new_take(list, strlen(list))),
            gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new(argv[2], strlen(argv[2]))),
        };
        content = gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers));
    } else {
        g_printerr("usage: %s files PATH... | link URI\n", argv[0]);
        return 2;
    }
    GtkWindow* window = GTK_WINDOW(gtk_window_new());
    gtk_window_set_title(window, "Drag Source");
    gtk_window_set_decorated(window, FALSE);
    GtkWidget* label = gtk_label_new("drag");
    gtk_widget_set_size_request(label, 100, 100);
    GtkDragSource* source = gtk_drag_source_new();
    gtk_drag_source_set_actions(source, GDK_ACTION_COPY);
    gtk_drag_source_set_content(source, content);
    gtk_widget_add_controller(label, GTK_EVENT_CONTROLLER(source));
    gtk_window_set_child(window, label);
    gtk_window_present(window);
    while (g_list_model_get_n_items(gtk_window_get_toplevels()) > 0)
        g_main_context_iteration(nullptr, TRUE);
    return 0;
}
