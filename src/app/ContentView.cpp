#include "ContentView.h"

#include "EmptyStateView.h"
#include "SidebarView.h"
#include "WebViewContainer.h"
#include "AccountPickerView.h"
#include "WebViewManager.h"
#include "HeapBox.h"

namespace orvane {

static constexpr int kColumnWidth = 64;

ContentView::ContentView(AccountStore& store, WebViewManager& manager)
    : m_store(store)
    , m_manager(manager)
    , m_root(gtk_overlay_new())
    , m_emptyState(std::make_unique<EmptyStateView>(store))
    , m_sidebar(std::make_unique<SidebarView>(store, manager))
    , m_webArea(std::make_unique<WebViewContainer>(manager))
    , m_router(store, { [this] { presentWindow(); },
          [this](const Account& account, const MailtoComponents& mailto) { openComposeForm(account, mailto); },
          [this] { showPendingMailto(); } }) {
    m_base = gtk_stack_new();
    gtk_stack_set_transition_type(GTK_STACK(m_base), GTK_STACK_TRANSITION_TYPE_NONE);
    gtk_overlay_set_child(GTK_OVERLAY(m_root.get()), m_base);
    gtk_stack_add_named(GTK_STACK(m_base), m_emptyState->widget(), "empty");

    m_workingLayout = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    m_columnSlot = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_widget_set_size_request(m_columnSlot, kColumnWidth, -1);
    gtk_widget_set_hexpand(m_columnSlot, FALSE);
    gtk_widget_set_vexpand(m_sidebar->widget(), TRUE);
    gtk_box_append(GTK_BOX(m_columnSlot), m_sidebar->widget());
    gtk_box_append(GTK_BOX(m_workingLayout), m_columnSlot);
    gtk_box_append(GTK_BOX(m_workingLayout), gtk_separator_new(GTK_ORIENTATION_VERTICAL));
    gtk_box_append(GTK_BOX(m_workingLayout), m_webArea->widget());
    gtk_stack_add_named(GTK_STACK(m_base), m_workingLayout, "accounts");

    m_picker = std::make_unique<AccountPickerView>(store,
        [this](const Account& account) { m_router.pick(account); },
        [this] { m_router.cancel(); });
    gtk_overlay_add_overlay(GTK_OVERLAY(m_root.get()), m_picker->widget());

    m_storeSubscription = m_store.observe([this](unsigned change) {
        refresh();
        // Whatever switched the account (a shortcut, a tile, a notification,
        // a mail link), typing goes to its page.
        if (change & StoreChangeSelection)
            focusPage();
    });
    refresh();
}

ContentView::~ContentView() { m_lifetime.end(); }

void ContentView::refresh() {
    const auto& accounts = m_store.accounts();
    gtk_stack_set_visible_child_name(GTK_STACK(m_base), accounts.empty() ? "empty" : "accounts");
    m_webArea->update(accounts, m_store.selectedAccountID());
    updateDefaultWidget();
}

void ContentView::updateDefaultWidget() {
    GtkRoot* root = gtk_widget_get_root(m_root.get());
    if (!GTK_IS_WINDOW(root))
        return;
    GtkWindow* window = GTK_WINDOW(root);
    if (showsEmptyState()) {
        gtk_window_set_default_widget(window, m_emptyState->addButton());
        gtk_widget_grab_focus(m_emptyState->addButton());
    } else if (gtk_window_get_default_widget(window) == m_emptyState->addButton()) {
        // Return in the working layout belongs to the pages.
        gtk_window_set_default_widget(window, nullptr);
    }
}

bool ContentView::showsEmptyState() const {
    return gtk_stack_get_visible_child(GTK_STACK(m_base)) == m_emptyState->widget();
}

GtkWidget* ContentView::addAccountButton() const { return m_emptyState->addButton(); }

GtkWidget* ContentView::visibleWebView() const { return m_webArea->visibleView(); }

void ContentView::focusPage() {
    GtkRoot* root = gtk_widget_get_root(m_root.get());
    GtkWidget* view = visibleWebView();
    if (GTK_IS_WINDOW(root) && view && !m_router.pendingMailto())
        gtk_window_set_focus(GTK_WINDOW(root), view);
}

void ContentView::handleOpenURL(const std::string& url) { m_router.handleOpenURL(url); }

void ContentView::compose(const Account& account, const MailtoComponents& mailto) { m_router.compose(account, mailto); }

void ContentView::showPendingMailto() {
    if (const auto& pending = m_router.pendingMailto()) {
        m_picker->present(*pending);
        return;
    }
    m_picker->dismiss();
    // The keyboard goes back to the page (the sender's, after a pick).
    if (GtkWidget* view = visibleWebView())
        gtk_widget_grab_focus(view);
}

// A script evaluated while a page is still loading runs in the document the
// load replaces, and is lost with it: when a link starts Orvane, the form
// opens once the sender's page has loaded. A loaded page gets it at once.
void ContentView::openComposeForm(const Account& account, const MailtoComponents& mailto) {
    WebKitWebView* view = m_manager.webView(account);
    if (!view || !webkit_web_view_is_loading(view)) {
        m_manager.compose(account, mailto);
        return;
    }
    struct Deferred {
        Lifetime::Watch alive;
        ContentView* content;
        Account account;
        MailtoComponents mailto;
    };
    g_signal_connect_data(view, "load-changed", G_CALLBACK(+[](WebKitWebView* view, WebKitLoadEvent event, gpointer data) {
        if (event != WEBKIT_LOAD_FINISHED)
            return;
        Deferred deferred = *static_cast<Deferred*>(data);
        g_signal_handlers_disconnect_by_data(view, data); // deletes data
        if (deferred.alive.alive())
            deferred.content->m_manager.compose(deferred.account, deferred.mailto);
    }), HeapBox::make<Deferred>(Deferred { m_lifetime.watch(), this, account, mailto }),
        [](gpointer data, GClosure*) { HeapBox::free<Deferred>(data); }, GConnectFlags(0));
}

// Brings the main window to the front.
void ContentView::presentWindow() {
    GtkRoot* root = gtk_widget_get_root(m_root.get());
    if (GTK_IS_WINDOW(root))
        gtk_window_present(GTK_WINDOW(root));
}

} // namespace orvane
