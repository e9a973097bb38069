#include "EmptyStateView.h"

#include <adwaita.h>

namespace orvane {

EmptyStateView::EmptyStateView(AccountStore& store)
    : m_store(store) {
    // The column is centred in a page that fills the whole content area, so
    // the window background reaches under every edge.
    GtkWidget* page = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_widget_set_hexpand(page, TRUE);
    gtk_widget_set_vexpand(page, TRUE);
    gtk_widget_add_css_class(page, "background");
    m_root = Ref<GtkWidget>(page);

    GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 16);
    gtk_widget_set_halign(column, GTK_ALIGN_CENTER);
    gtk_widget_set_valign(column, GTK_ALIGN_CENTER);
    gtk_widget_set_vexpand(column, TRUE);
    gtk_widget_set_margin_top(column, 40);
    gtk_widget_set_margin_bottom(column, 40);
    gtk_widget_set_margin_start(column, 40);
    gtk_widget_set_margin_end(column, 40);
    gtk_box_append(GTK_BOX(page), column);

    GtkWidget* icon = gtk_image_new_from_icon_name("mail-unread-symbolic");
    gtk_image_set_pixel_size(GTK_IMAGE(icon), 48);
    gtk_widget_add_css_class(icon, "dim-label");
    gtk_box_append(GTK_BOX(column), icon);

    GtkWidget* title = gtk_label_new(nullptr);
    gtk_label_set_markup(GTK_LABEL(title), "<span weight=\"medium\">All your Gmail accounts, one window.</span>");
    gtk_label_set_wrap(GTK_LABEL(title), TRUE);
    gtk_label_set_justify(GTK_LABEL(title), GTK_JUSTIFY_CENTER);
    gtk_widget_add_css_class(title, "title-3");
    gtk_box_append(GTK_BOX(column), title);

    GtkWidget* subtitle = gtk_label_new("Add an account and sign in. Each one keeps its own private session.");
    gtk_label_set_wrap(GTK_LABEL(subtitle), TRUE);
    gtk_label_set_justify(GTK_LABEL(subtitle), GTK_JUSTIFY_CENTER);
    gtk_widget_add_css_class(subtitle, "dim-label");
    gtk_box_append(GTK_BOX(column), subtitle);

    GtkWidget* content = adw_button_content_new();
    adw_button_content_set_icon_name(ADW_BUTTON_CONTENT(content), "list-add-symbolic");
    adw_button_content_set_label(ADW_BUTTON_CONTENT(content), "Add Gmail Account");
    m_addButton = gtk_button_new();
    gtk_button_set_child(GTK_BUTTON(m_addButton), content);
    gtk_widget_set_halign(m_addButton, GTK_ALIGN_CENTER);
    gtk_widget_set_margin_top(m_addButton, 4);
    gtk_widget_set_receives_default(m_addButton, TRUE);
    gtk_widget_add_css_class(m_addButton, "suggested-action");
    gtk_widget_add_css_class(m_addButton, "pill");
    gtk_box_append(GTK_BOX(column), m_addButton);

    m_clicked = SignalConnection::connect(m_addButton, "clicked", +[](GtkButton*, gpointer self) {
        static_cast<EmptyStateView*>(self)->m_store.addAccount();
    }, this);
}

} // namespace orvane
