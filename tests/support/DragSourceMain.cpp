// orvane_drag_source: a small window whose whole area is a drag source, for
// the end-to-end drag-and-drop tests. It is a program of its own, so orvane
// sees a drag from another client and the test process never holds a
// connection to the X server it stops at the end.
//
//   orvane_drag_source files PATH...   local files
//   orvane_drag_source text TEXT       plain text
//   orvane_drag_source link URI        a web link as browsers offer one
//
// The window is titled "Drag Source"; the test finds and moves it with
// xdotool. The program runs until it is stopped or loses its display.
#include <gtk/gtk.h>

#include <cstdio>
#include <cstring>

namespace {

GdkContentProvider* filesContent(int count, char** paths) {
    GSList* list = nullptr;
    for (int index = 0; index < count; ++index)
        list = g_slist_append(list, g_file_new_for_path(paths[index]));
    GdkFileList* files = gdk_file_list_new_from_list(list);
    g_slist_free_full(list, g_object_unref);
    GdkContentProvider* provider = gdk_content_provider_new_typed(GDK_TYPE_FILE_LIST, files);
    g_boxed_free(GDK_TYPE_FILE_LIST, files);
    return provider;
}

GdkContentProvider* linkContent(const char* uri) {
    char* list = g_strconcat(uri, "\r\n", nullptr);
    GdkContentProvider* providers[] = {
        gdk_content_provider_new_for_bytes("text/uri-list", g_bytes_new_take(list, strlen(list))),
        gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new(uri, strlen(uri))),
    };
    return gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers));
}

GdkContentProvider* contentFrom(int argc, char** argv) {
    if (argc >= 3 && !strcmp(argv[1], "files"))
        return filesContent(argc - 2, argv + 2);
    if (argc == 3 && !strcmp(argv[1], "text"))
        return gdk_content_provider_new_typed(G_TYPE_STRING, argv[2]);
    if (argc == 3 && !strcmp(argv[1], "link"))
        return linkContent(argv[2]);
    return nullptr;
}

} // namespace

int main(int argc, char** argv) {
    gtk_init();
    GdkContentProvider* content = contentFrom(argc, argv);
    if (!content) {
        std::fprintf(stderr, "usage: %s files PATH... | text TEXT | link URI\n", argv[0]);
        return 2;
    }
    constexpr int kSize = 100;
    GtkWindow* window = GTK_WINDOW(gtk_window_new());
    gtk_window_set_title(window, "Drag Source");
    gtk_window_set_decorated(window, FALSE);
    gtk_window_set_default_size(window, kSize, kSize);
    GtkWidget* label = gtk_label_new("drag");
    gtk_widget_set_size_request(label, kSize, kSize);
    GtkDragSource* source = gtk_drag_source_new();
    gtk_drag_source_set_actions(source, GDK_ACTION_COPY);
    gtk_drag_source_set_content(source, content);
    g_object_unref(content);
    gtk_widget_add_controller(label, GTK_EVENT_CONTROLLER(source));
    gtk_window_set_child(window, label);
    gtk_window_present(window);

    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_signal_connect_swapped(window, "destroy", G_CALLBACK(g_main_loop_quit), loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return 0;
}
