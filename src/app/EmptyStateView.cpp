#include "EmptyStateView.h"

#include "AppResources.h"

#include <adwaita.h>

namespace orvane {

EmptyStateView::EmptyStateView(AccountStore& store)
    : m_store(store) {
    adw_init();
    ensureUIResources();
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/EmptyStateView.ui"));
    m_root = Ref<GtkWidget>(GTK_WIDGET(gtk_builder_get_object(builder.get(), "page")));
    m_addButton = GTK_WIDGET(gtk_builder_get_object(builder.get(), "add_button"));
    m_clicked = SignalConnection::connect(m_addButton, "clicked", +[](GtkButton*, gpointer self) {
        static_cast<EmptyStateView*>(self)->m_store.addAccount();
    }, this);
}

} // namespace orvane
