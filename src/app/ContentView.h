#pragma once

#include "Lifetime.h"
#include "AccountStore.h"
#include "GRef.h"
#include "MailtoComponents.h"
#include "MailtoRouter.h"

#include <gtk/gtk.h>

#include <memory>
#include <optional>
#include <string>

namespace orvane {

class AccountPickerView;
class EmptyStateView;
class SidebarView;
class WebViewContainer;
class WebViewManager;

// The main window's content. Shows the first-run page while the store holds
// no account, otherwise the account column, a thin divider and the web area
// with every account's page (only the selected one visible). Redraws from the
// store's notifications. Links opened with Orvane arrive at handleOpenURL().
class ContentView {
public:
    ContentView(AccountStore& store, WebViewManager& manager);
    ~ContentView();
    ContentView(const ContentView&) = delete;
    ContentView& operator=(const ContentView&) = delete;

    // The root widget: an overlay whose base layer flips between the two
    // layouts (the sender picker takes the layer above it).
    GtkWidget* widget() const { return m_root.get(); }

    // Every URL that the desktop opens with Orvane while the window exists:
    // mail links compose at once from the default sending account or wait in
    // the sender picker (MailtoRouter); anything else is ignored.
    void handleOpenURL(const std::string& url);
    // Sends one link from one account: selects it and opens its compose form.
    void compose(const Account& account, const MailtoComponents& mailto);
    // The link waiting for the sender picker.
    const std::optional<MailtoComponents>& pendingMailto() const { return m_router.pendingMailto(); }
    AccountPickerView& picker() const { return *m_picker; }

    // Brings the widgets in line with the store; also makes the empty
    // state's button the window's default widget (call once the widget is in
    // its window).
    void refresh();

    // The selected account's web view on screen, or null.
    GtkWidget* visibleWebView() const;
    // The keyboard to that view.
    void focusPage();

    // For tests: the parts of the layout.
    bool showsEmptyState() const;
    GtkWidget* addAccountButton() const;

private:
    void updateDefaultWidget();
    void showPendingMailto();
    void presentWindow();
    void openComposeForm(const Account& account, const MailtoComponents& mailto);

    // Borrowed references
    AccountStore& m_store;
    WebViewManager& m_manager;

    // Owned references
    Ref<GtkWidget> m_root;
    std::unique_ptr<EmptyStateView> m_emptyState;
    std::unique_ptr<SidebarView> m_sidebar;
    std::unique_ptr<WebViewContainer> m_webArea;
    AccountStore::ChangeObservers::Subscription m_storeSubscription;

    // Template widgets (inside m_root)
    GtkWidget* m_base = nullptr;       // GtkStack: "empty" and "accounts"
    GtkWidget* m_workingLayout = nullptr;
    GtkWidget* m_columnSlot = nullptr; // 64 px wide, holds the sidebar

    // The sender picker (the layer above the base) and the link routing
    // that shows it; the router holds the waiting link.
    std::unique_ptr<AccountPickerView> m_picker;
    MailtoRouter m_router;
    Lifetime m_lifetime; // for deferred work
};

} // namespace orvane
