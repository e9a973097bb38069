#include "MainWindow.h"

#include "AppResources.h"
#include "ContentView.h"
#include "GRef.h"
#include "RemovalToast.h"

namespace orvane {

MainWindow::MainWindow(GtkApplication* application, AccountStore& store, WebViewManager& manager, GMenuModel* primaryMenu) {
    adw_init();
    ensureUIResources();
    ensureStyle(gdk_display_get_default());
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/MainWindow.ui"));
    m_window = GTK_WINDOW(gtk_builder_get_object(builder.get(), "window"));
    m_toasts = ADW_TOAST_OVERLAY(gtk_builder_get_object(builder.get(), "toasts"));
    m_headerBar = ADW_HEADER_BAR(gtk_builder_get_object(builder.get(), "header_bar"));
    g_object_add_weak_pointer(G_OBJECT(m_window), reinterpret_cast<gpointer*>(&m_window));
    gtk_window_set_application(m_window, application);
    gtk_widget_set_size_request(GTK_WIDGET(m_window), kMinimumWidth, kMinimumHeight);
    gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(gtk_builder_get_object(builder.get(), "menu_button")), primaryMenu);

    m_removals = std::make_unique<RemovalToast>(store, [this](AdwToast* toast) { showToast(toast); });
    m_content = std::make_unique<ContentView>(store, manager);
    gtk_box_append(GTK_BOX(gtk_builder_get_object(builder.get(), "layout")), m_content->widget());
    m_content->refresh();
    // Typing goes to the page from the start (a page's own shortcuts, its
    // search field), not to the first button of the header bar.
    if (GtkWidget* view = m_content->visibleWebView())
        gtk_window_set_focus(m_window, view);

    m_activeChanged = SignalConnection(m_window, g_signal_connect(m_window, "notify::is-active", G_CALLBACK(activeChanged), this));
}

MainWindow::~MainWindow() {
    m_activeChanged.disconnect();
    m_removals.reset();
    m_content.reset();
    if (m_window) {
        g_object_remove_weak_pointer(G_OBJECT(m_window), reinterpret_cast<gpointer*>(&m_window));
        if (!gtk_widget_in_destruction(GTK_WIDGET(m_window)))
            gtk_window_destroy(m_window);
    }
}

void MainWindow::showToast(AdwToast* toast) {
    if (m_window)
        adw_toast_overlay_add_toast(m_toasts, toast);
    else
        g_object_unref(g_object_ref_sink(toast));
}

void MainWindow::activeChanged(GObject* window, GParamSpec*, gpointer data) {
    auto* self = static_cast<MainWindow*>(data);
    if (gtk_window_is_active(GTK_WINDOW(window)) && self->m_onBecameActive)
        self->m_onBecameActive();
}

} // namespace orvane
