#include "MainWindow.h"

#include "ContentView.h"

namespace orvane {

MainWindow::MainWindow(GtkApplication* application, AccountStore& store, WebViewManager& manager, GMenuModel* primaryMenu) {
    GtkWidget* window = adw_application_window_new(application);
    m_window = GTK_WINDOW(window);
    g_object_add_weak_pointer(G_OBJECT(m_window), reinterpret_cast<gpointer*>(&m_window));
    gtk_window_set_title(m_window, "Orvane");
    gtk_window_set_default_size(m_window, 1100, 720);
    gtk_widget_set_size_request(window, kMinimumWidth, kMinimumHeight);

    GtkWidget* header = adw_header_bar_new();
    GtkWidget* menuButton = gtk_menu_button_new();
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(menuButton), "open-menu-symbolic");
    gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(menuButton), primaryMenu);
    gtk_menu_button_set_primary(GTK_MENU_BUTTON(menuButton), TRUE);
    gtk_widget_set_tooltip_text(menuButton, "Main Menu");
    adw_header_bar_pack_end(ADW_HEADER_BAR(header), menuButton);

    m_content = std::make_unique<ContentView>(store, manager);

    GtkWidget* layout = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_append(GTK_BOX(layout), header);
    gtk_box_append(GTK_BOX(layout), m_content->widget());
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(window), layout);
    m_content->refresh();
    // Typing goes to the page from the start (a page's own shortcuts, its
    // search field), not to the first button of the header bar.
    if (GtkWidget* view = m_content->visibleWebView())
        gtk_window_set_focus(m_window, view);

    m_activeChanged = SignalConnection(m_window, g_signal_connect(m_window, "notify::is-active", G_CALLBACK(activeChanged), this));
}

MainWindow::~MainWindow() {
    m_activeChanged.disconnect();
    m_content.reset();
    if (m_window) {
        g_object_remove_weak_pointer(G_OBJECT(m_window), reinterpret_cast<gpointer*>(&m_window));
        if (!gtk_widget_in_destruction(GTK_WIDGET(m_window)))
            gtk_window_destroy(m_window);
    }
}

void MainWindow::activeChanged(GObject* window, GParamSpec*, gpointer data) {
    auto* self = static_cast<MainWindow*>(data);
    if (gtk_window_is_active(GTK_WINDOW(window)) && self->m_onBecameActive)
        self->m_onBecameActive();
}

} // namespace orvane
