#include "WebViewContainer.h"

#include "WebViewManager.h"

#include <set>

namespace orvane {

WebViewContainer::WebViewContainer(WebViewManager& manager)
    : m_manager(manager)
    , m_stack(gtk_stack_new()) {
    gtk_stack_set_transition_type(GTK_STACK(m_stack.get()), GTK_STACK_TRANSITION_TYPE_NONE);
    gtk_widget_set_hexpand(m_stack.get(), TRUE);
    gtk_widget_set_vexpand(m_stack.get(), TRUE);
    m_emptyPage = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_stack_add_child(GTK_STACK(m_stack.get()), m_emptyPage);
    m_snapshot = gtk_picture_new();
    gtk_picture_set_content_fit(GTK_PICTURE(m_snapshot), GTK_CONTENT_FIT_COVER);
    gtk_stack_add_child(GTK_STACK(m_stack.get()), m_snapshot);
    gtk_stack_set_visible_child(GTK_STACK(m_stack.get()), m_emptyPage);
    m_sleepSubscription = m_manager.observeSleep([this] {
        // Waking an account inside update() tells of it too.
        if (!m_updating)
            update(std::vector<Account>(m_accounts), std::optional<std::string>(m_selectedID));
    });
}

WebViewContainer::~WebViewContainer() {
    m_sleepSubscription.reset();
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
        }
    }

    bool wasSnapshot = showsSnapshot();
    gtk_picture_set_paintable(GTK_PICTURE(m_snapshot), snapshot ? GDK_PAINTABLE(snapshot) : nullptr);
    gtk_stack_set_visible_child(stack, snapshot ? m_snapshot : selected ? selected : m_emptyPage);
    // The live page takes over from its snapshot, and the keyboard with it.
    if (wasSnapshot && !snapshot && selected)
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
    return child == m_emptyPage || child == m_snapshot ? nullptr : child;
}

bool WebViewContainer::showsSnapshot() const {
    return gtk_stack_get_visible_child(GTK_STACK(m_stack.get())) == m_snapshot;
}

} // namespace orvane
