#pragma once

#include "AccountStore.h"
#include "GRef.h"
#include "SignalConnection.h"

#include <gtk/gtk.h>

namespace orvane {

// The first-run page of the main window, shown while the store holds no
// account: an envelope, two lines of text and the "Add Gmail Account" button,
// which the window makes its default widget so Return adds the account.
class EmptyStateView {
public:
    explicit EmptyStateView(AccountStore& store);
    EmptyStateView(const EmptyStateView&) = delete;
    EmptyStateView& operator=(const EmptyStateView&) = delete;

    GtkWidget* widget() const { return m_root.get(); }
    GtkWidget* addButton() const { return m_addButton; }

private:
    // Borrowed references
    AccountStore& m_store;

    // Owned references
    Ref<GtkWidget> m_root;

    // Template widgets (children of m_root)
    GtkWidget* m_addButton = nullptr;

    SignalConnection m_clicked;
};

} // namespace orvane
