#include "WebViewContainer.h"

#include "WebViewManager.h"

#include <adwaita.h>

#include <set>

namespace orvane {

WebViewContainer::WebViewContainer(WebViewManager& manager)
    : m_manager(manager)
    , m_overlay(gtk_overlay_new())
    , m_stack(gtk_stack_new()) {
    gtk_stack_set_transition_type(GTK_STACK(m_stack.get()), GTK_STACK_TRANSITION_TYPE_NONE);
    gtk_widget_set_hexpand(m_stack.get(), TRUE);
    gtk_widget_set_vexpand(m_stack.get(), TRUE);
    m_emptyPage = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_stack_add_child(GTK_STACK(m_stack.get()), m_emptyPage);
    m_snapshot = gtk_picture_new();
    gtk_picture_set_content_fit(GTK_PICTURE(m_snapshot), GTK_CONTENT_FIT_COVER);
    gtk_stack_add_child(GTK_STACK(m_stack.get()), m_snapshot);
    m_failurePage = adw_status_page_new();
    m_reloadButton = gtk_button_new_with_mnemonic("_Reload");
    gtk_widget_set_halign(m_reloadButton, GTK_ALIGN_CENTER);
    gtk_widget_add_css_class(m_reloadButton, "pill");
    gtk_widget_add_css_class(m_reloadButton, "suggested-action");
    g_signal_connect_swapped(m_reloadButton, "clicked", G_CALLBACK(+[](WebViewContainer* self) {
        if (self->m_selectedID)
            self->m_manager.reload(*self->m_selectedID);
    }), this);
    adw_status_page_set_child(ADW_STATUS_PAGE(m_failurePage), m_reloadButton);
    // Over the stack, not in it: a web view hidden while its new web process
    // starts stays blank once shown again.
    gtk_widget_add_css_class(m_failurePage, "background");
    gtk_widget_set_visible(m_failurePage, FALSE);
    gtk_overlay_set_child(GTK_OVERLAY(m_overlay.get()), m_stack.get());
    gtk_overlay_add_overlay(GTK_OVERLAY(m_overlay.get()), m_failurePage);
    gtk_stack_set_visible_child(GTK_STACK(m_stack.get()), m_emptyPage);
    auto refresh = [this] {
        // Waking an account inside update() tells of it too.
        if (!m_updating)
            update(std::vector<Account>(m_accounts), std::optional<std::string>(m_selectedID));
    };
    m_sleepSubscription = m_manager.observeSleep(refresh);
    m_failureSubscription = m_manager.observeFailures(refresh);
}

WebViewContainer::~WebViewContainer() {
    m_sleepSubscription.reset();
    m_failureSubscription.reset();
    // The manager keeps the views; let them go from this stack so they can
    // join the stack of a later main window.
    GtkStack* stack = GTK_STACK(m_stack.get());
    while (GtkWidget* child = gtk_widget_get_first_child(m_stack.get()))
        gtk_stack_remove(stack, child);
}

void WebViewContainer::update(const std::vector<Account>& accounts, const std::optional<std::string>& selectedID) {
    m_accounts = accounts;
    m_selectedID = selectedID;
    m_updating = true;
    GtkStack* stack = GTK_STACK(m_stack.get());
    std::set<GtkWidget*> keep { m_emptyPage, m_snapshot };
    GtkWidget* selected = nullptr;
    GdkTexture* snapshot = nullptr;
    std::optional<PageFailure::Kind> failure;

    for (const Account& account : accounts) {
        bool isSelected = selectedID && *selectedID == account.id;
        if (m_manager.isAsleep(account.id) && !isSelected)
            continue;
        GtkWidget* view = GTK_WIDGET(m_manager.webView(account));
        if (!view)
            continue;
        keep.insert(view);
        GtkWidget* parent = gtk_widget_get_parent(view);
        if (!parent)
            gtk_stack_add_child(stack, view);
        else if (parent != m_stack.get())
            continue; // still held by a window that is going away
        if (isSelected) {
            selected = view;
            snapshot = m_manager.snapshot(account.id);
            failure = m_manager.failure(account.id);
        }
    }

    bool wasStandIn = showsSnapshot() || showsFailure();
    gtk_picture_set_paintable(GTK_PICTURE(m_snapshot), snapshot ? GDK_PAINTABLE(snapshot) : nullptr);
    gtk_stack_set_visible_child(stack, snapshot ? m_snapshot : selected ? selected : m_emptyPage);
    bool wasFailure = showsFailure();
    if (failure && selected) {
        PageFailure::Text text = PageFailure::text(*failure);
        bool offline = *failure == PageFailure::Kind::NoNetwork || *failure == PageFailure::Kind::NameNotResolved;
        adw_status_page_set_icon_name(ADW_STATUS_PAGE(m_failurePage), offline ? "network-offline-symbolic" : "dialog-warning-symbolic");
        adw_status_page_set_title(ADW_STATUS_PAGE(m_failurePage), text.title);
        adw_status_page_set_description(ADW_STATUS_PAGE(m_failurePage), text.description);
    }
    gtk_widget_set_visible(m_failurePage, failure && selected);
    if (failure && selected && !wasFailure)
        gtk_widget_grab_focus(m_reloadButton);
    // The live page takes over from its stand-in, and the keyboard with it.
    if (wasStandIn && !snapshot && !failure && selected)
        gtk_widget_grab_focus(selected);
    m_updating = false;

    std::vector<GtkWidget*> gone;
    for (GtkWidget* child = gtk_widget_get_first_child(m_stack.get()); child; child = gtk_widget_get_next_sibling(child)) {
        if (!keep.contains(child))
            gone.push_back(child);
    }
    for (GtkWidget* child : gone)
        gtk_stack_remove(stack, child);
}

GtkWidget* WebViewContainer::visibleView() const {
    GtkWidget* child = gtk_stack_get_visible_child(GTK_STACK(m_stack.get()));
    return child == m_emptyPage || child == m_snapshot || showsFailure() ? nullptr : child;
}

bool WebViewContainer::showsSnapshot() const {
    return gtk_stack_get_visible_child(GTK_STACK(m_stack.get())) == m_snapshot;
}

} // namespace orvane

namespace orvane {

bool WebViewContainer::showsFailure() const {
    return gtk_widget_get_visible(m_failurePage);
}

} // namespace orvane
