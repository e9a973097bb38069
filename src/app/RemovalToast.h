#pragma once

#include "AccountStore.h"
#include "GRef.h"
#include "SignalConnection.h"

#include <adwaita.h>

#include <functional>
#include <vector>

namespace orvane {

// The toast that offers to undo removing accounts. The store keeps each
// removal pending (AccountStore::remove); one toast tells of all of them and
// grows as more go, as "“Work” removed" and then "2 accounts removed", its
// time starting again with each. Its Undo button puts every one back; once it
// has gone (timed out or closed) the removals are committed, and so they are
// when this object goes with its window.
class RemovalToast {
public:
    using Show = std::function<void(AdwToast*)>; // takes a reference
    RemovalToast(AccountStore& store, Show show);
    ~RemovalToast();
    RemovalToast(const RemovalToast&) = delete;
    RemovalToast& operator=(const RemovalToast&) = delete;

    // The toast shown, or null.
    AdwToast* toast() const { return m_toast.get(); }

    // Labels longer than this many characters are cut in the title, "…" included.
    static constexpr size_t kMaxLabelCharacters = 40;

private:
    void update();
    void forgetToast();
    static void dismissed(AdwToast*, gpointer self);
    static void undo(AdwToast*, gpointer self);

    // Borrowed references
    AccountStore& m_store;

    // Owned references
    Show m_show;
    Ref<AdwToast> m_toast;
    size_t m_told = 0; // removals the toast tells of
    bool m_undoing = false;
    std::vector<SignalConnection> m_connections;
    AccountStore::ChangeObservers::Subscription m_storeSubscription;
};

} // namespace orvane
