#pragma once

#include "Account.h"
#include "GRef.h"
#include "Observers.h"

#include <gtk/gtk.h>

#include <optional>
#include <string>
#include <vector>

namespace orvane {

class WebViewManager;

// The web area of the main window: a stack holding the main web view of
// every account, of which only the selected one is shown. A view is added
// once and afterwards only shown or hidden, so a page keeps its state across
// account switches; views of accounts that are gone leave the stack. The
// views belong to the manager, not to the container. A sleeping account has
// no view: selecting it wakes it, and the snapshot of its page shows at once
// until the live page has loaded and takes the keyboard. A page that is not
// there (WebViewManager::failure) gives way to a status page saying why,
// with a Reload button that takes the keyboard.
class WebViewContainer {
public:
    explicit WebViewContainer(WebViewManager& manager);
    ~WebViewContainer();
    WebViewContainer(const WebViewContainer&) = delete;
    WebViewContainer& operator=(const WebViewContainer&) = delete;

    GtkWidget* widget() const { return m_overlay.get(); }

    // Asks the manager for the view of every account (creating and loading
    // the missing ones), shows the selected one and drops views of accounts
    // no longer listed. An absent or unknown selection shows an empty page.
    void update(const std::vector<Account>& accounts, const std::optional<std::string>& selectedID);

    // The view currently shown, or null when the empty page, a snapshot or
    // the status page is up.
    GtkWidget* visibleView() const;
    bool showsSnapshot() const;
    bool showsFailure() const;

private:
    // Borrowed references
    WebViewManager& m_manager;

    // Owned references
    Ref<GtkWidget> m_overlay; // the stack, and the status page over it
    Ref<GtkWidget> m_stack;
    Observers<>::Subscription m_sleepSubscription;
    Observers<>::Subscription m_failureSubscription;
    std::vector<Account> m_accounts; // as last given to update()
    std::optional<std::string> m_selectedID;
    bool m_updating = false;

    // Template widgets (children of m_stack)
    GtkWidget* m_emptyPage = nullptr;
    GtkWidget* m_snapshot = nullptr; // GtkPicture
    GtkWidget* m_failurePage = nullptr; // AdwStatusPage, over m_stack: the view under it stays mapped
    GtkWidget* m_reloadButton = nullptr;
};

} // namespace orvane
