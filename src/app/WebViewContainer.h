#pragma once

#include "Account.h"
#include "GRef.h"

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
// views belong to the manager, not to the container.
class WebViewContainer {
public:
    explicit WebViewContainer(WebViewManager& manager);
    ~WebViewContainer();
    WebViewContainer(const WebViewContainer&) = delete;
    WebViewContainer& operator=(const WebViewContainer&) = delete;

    GtkWidget* widget() const { return m_stack.get(); }

    // Asks the manager for the view of every account (creating and loading
    // the missing ones), shows the selected one and drops views of accounts
    // no longer listed. An absent or unknown selection shows an empty page.
    void update(const std::vector<Account>& accounts, const std::optional<std::string>& selectedID);

    // The view currently shown, or null when the empty page is up.
    GtkWidget* visibleView() const;

private:
    // Borrowed references
    WebViewManager& m_manager;

    // Owned references
    Ref<GtkWidget> m_stack;

    // Template widgets (children of m_stack)
    GtkWidget* m_emptyPage = nullptr;
};

} // namespace orvane
