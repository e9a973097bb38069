#include "AppResources.h"

#include "GRef.h"

#include <gtk/gtk.h>

#include <mutex>

extern "C" void orvane_ui_register_resource(void);

namespace orvane {

void ensureUIResources() {
    // Registering a bundle twice corrupts GLib's list of static resources.
    static std::once_flag registered;
    std::call_once(registered, [] { orvane_ui_register_resource(); });
}

void ensureStyle(GdkDisplay* display) {
    constexpr const char* kKey = "orvane-style";
    if (!display || g_object_get_data(G_OBJECT(display), kKey))
        return;
    ensureUIResources();
    auto provider = adopt(gtk_css_provider_new());
    gtk_css_provider_load_from_resource(provider.get(), "/app/orvane/Orvane/app/style.css");
    gtk_style_context_add_provider_for_display(display, GTK_STYLE_PROVIDER(provider.get()),
        GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_set_data_full(G_OBJECT(display), kKey, provider.release(), g_object_unref);
}

} // namespace orvane
