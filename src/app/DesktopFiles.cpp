#include "DesktopFiles.h"

#include "GRef.h"
#include "HeapBox.h"

namespace orvane::DesktopFiles {

namespace {

constexpr int kFileManagerTimeoutMs = 5000;

void showURI(GtkWindow* parent, const std::string& uri) {
    gtk_show_uri_full(parent, uri.c_str(), GDK_CURRENT_TIME, nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer) {
            GErrorPtr error;
            if (!gtk_show_uri_full_finish(GTK_WINDOW(source), result, GErrorOut(error)))
                g_warning("Could not open a file: %s", error->message);
        },
        nullptr);
}

std::string uriOf(const std::string& path) {
    GCharPtr uri(g_filename_to_uri(path.c_str(), nullptr, nullptr));
    return uri ? uri.get() : "";
}

// What the file manager's answer needs: the folder to open instead.
struct Fallback {
    Ref<GtkWindow> parent; // may be null
    std::string folderURI;
};

} // namespace

void open(GtkWindow* parent, const std::string& path) {
    if (std::string uri = uriOf(path); !uri.empty())
        showURI(parent, uri);
}

void showInFiles(GtkWindow* parent, const std::string& path) {
    std::string uri = uriOf(path);
    GCharPtr folder(g_path_get_dirname(path.c_str()));
    Fallback fallback { Ref<GtkWindow>(parent), uriOf(folder.get()) };
    GtkApplication* application = parent ? gtk_window_get_application(parent) : nullptr;
    GDBusConnection* bus = application ? g_application_get_dbus_connection(G_APPLICATION(application)) : nullptr;
    if (uri.empty() || !bus) {
        showURI(parent, fallback.folderURI);
        return;
    }
    const char* uris[] = { uri.c_str(), nullptr };
    g_dbus_connection_call(bus, kFileManagerName, kFileManagerPath, kFileManagerInterface, "ShowItems",
        g_variant_new("(^ass)", uris, ""), nullptr, G_DBUS_CALL_FLAGS_NONE, kFileManagerTimeoutMs, nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            auto fallback = HeapBox::take<Fallback>(data);
            GErrorPtr error;
            GVariantPtr reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, GErrorOut(error)));
            if (!reply)
                showURI(fallback->parent.get(), fallback->folderURI);
        },
        HeapBox::make<Fallback>(std::move(fallback)));
}

} // namespace orvane::DesktopFiles
