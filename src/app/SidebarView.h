#pragma once

#include "AccountStore.h"
#include "GRef.h"
#include "Lifetime.h"
#include "SignalConnection.h"

#include <gtk/gtk.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

class WebViewManager;

// The account column at the left of the main window: one avatar tile per
// mail-side account, a short divider, the calendar tiles (scrolling when they
// do not fit), then the button that adds an account. A click on a tile selects its account; a secondary click,
// a long press, Shift+F10 or the Menu key opens the tile's context menu.
// Every command is an action of the "sidebar." group on the column, with the
// account id as its parameter where it needs one; the check marks of an
// account's switches are the tile's own "tile." actions, which run them. The column redraws from the
// store's and the manager's notifications and keeps no state of its own.
class SidebarView {
public:
    SidebarView(AccountStore& store, WebViewManager& manager);
    ~SidebarView();
    SidebarView(const SidebarView&) = delete;
    SidebarView& operator=(const SidebarView&) = delete;

    GtkWidget* widget() const { return m_root.get(); }

    // The items of an account's context menu, built from the current state.
    Ref<GMenuModel> contextMenu(const Account& account) const;
    // The section above them: what the account's page costs now, and
    // "Hibernate Now" for an account that may sleep and is neither selected
    // nor asleep.
    Ref<GMenuModel> pageSection(const Account& account) const;
    // Calendar accounts, and mail-side accounts that have a calendar companion
    // (an account of the calendar service on the same dataStoreID).
    bool hasServicePair(const Account& account) const;

private:
    void rebuild();
    GtkWidget* makeTile(const Account& account);
    void updateTile(GtkWidget* tile, const Account& account);
    using ActionHandler = void (*)(SidebarView&, const std::string& accountID);
    struct ActionBinding {
        SidebarView* self;
        ActionHandler handler;
    };
    void installActions();
    void addAction(const char* name, bool takesAccountID, ActionHandler handler);
    void openContextMenu(const std::string& accountID);
    void showMemory(const std::string& accountID, const std::string& text);
    // A copy of the stored account: store operations replace the list.
    std::optional<Account> findAccount(const std::string& accountID) const;

    // Borrowed references
    AccountStore& m_store;
    WebViewManager& m_manager;

    // Owned references
    Ref<GtkWidget> m_root;
    Ref<GSimpleActionGroup> m_actions;
    std::vector<std::unique_ptr<ActionBinding>> m_bindings;
    std::vector<SignalConnection> m_actionConnections;
    AccountStore::ChangeObservers::Subscription m_storeSubscription;
    Observers<>::Subscription m_unreadSubscription;
    Observers<>::Subscription m_sleepSubscription;
    Lifetime m_lifetime; // for memory answers

    // Template widgets (inside m_root)
    GtkWidget* m_stack = nullptr;     // the tiles and the divider, in a scrolled window
    GtkWidget* m_divider = nullptr;
    GtkWidget* m_addButton = nullptr;
    std::vector<GtkWidget*> m_tiles;  // OrvaneAvatarView, in column order
};

} // namespace orvane
