#pragma once

#include "AccountStore.h"
#include "HibernationPolicy.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "HeapBox.h"

#include <adwaita.h>
#include <glib/gi18n-lib.h>

#include <string>
#include <vector>

namespace orvane {

class WebViewManager;

// The preferences window (Ctrl+comma): how mailto: links are handled, the
// default email app, notifications and the dock count. Every change is
// written to the store and saved at once; the window holds no copy of any
// setting. Not modal; transient for the main window.
//
// The object belongs to its window: open() makes both (or brings an open
// one forward) and the object goes when the window is destroyed.
class SettingsView {
public:
    // Presents the preferences window of `application` (a new one when none
    // is open), transient for `parent`. Asks again whether Orvane is the
    // default email app.
    static SettingsView& open(AccountStore& store, WebViewManager& manager, GtkWindow* parent,
        GtkApplication* application = nullptr);
    // The open window's view, if any.
    static SettingsView* find(GtkApplication* application);

    SettingsView(const SettingsView&) = delete;
    SettingsView& operator=(const SettingsView&) = delete;

    GtkWindow* window() const { return m_window; }
    void present(GtkWindow* parent);

    // Asks the desktop again whether Orvane handles mailto: links.
    void refreshDefaultMailClient();
    bool isDefaultMailClient() const { return m_isDefaultMailClient; }
    bool triedAndFailed() const { return m_triedAndFailed; }

    // For tests: the rows and controls.
    GtkWidget* makeDefaultButton() const { return m_makeDefaultButton; }
    GtkWidget* isDefaultLabel() const { return m_isDefaultBox; }
    GtkWidget* failureRow() const { return m_failureRow; }
    GtkWidget* alwaysAskSwitch() const { return m_alwaysAskSwitch; }
    GtkWidget* defaultAccountRow() const { return m_defaultAccountRow; }
    // The pop-up menu of the "Default sending account" row.
    GtkWidget* defaultAccountButton() const { return m_defaultAccountButton; }
    GtkWidget* notificationsSwitch() const { return m_notificationsSwitch; }
    GtkWidget* dockSwitch() const { return m_dockSwitch; }
    GtkWidget* hibernateRow() const { return m_hibernateRow; }

    // The policy for this run: the preference, or ORVANE_HIBERNATE_AFTER.
    static HibernationPolicy hibernationPolicy();
    // Bound by the application (BackgroundRunning), which keeps these two.
    GtkWidget* runInBackgroundSwitch() const { return m_runInBackgroundSwitch; }
    GtkWidget* startAtLoginSwitch() const { return m_startAtLoginSwitch; }
    // Bound by the application, which keeps it.
    GtkWidget* spellingSwitch() const { return m_spellingSwitch; }

    static constexpr const char* kFailureText = N_("Your desktop did not accept the change. Run "
        "tools/set-default-mail.sh once, or set \u201cOrvane\u201d as the email app in your system's Default "
        "Applications settings.");

private:
    friend struct HeapBox::Access;
    SettingsView(AccountStore& store, WebViewManager& manager, GtkApplication* application);
    ~SettingsView();

    // Takes the widgets of SettingsView.ui and connects them.
    void build(GtkBuilder* builder);
    void syncFromStore();
    void syncDefaultRow();
    void makeDefault();
    void chooseDefaultAccount(const std::string& accountID);
    void syncDefaultAccountMenu();
    void syncHibernateRow();
    void chooseHibernation(guint index);

    static void onSwitch(GObject*, GParamSpec*, gpointer self);

    // Borrowed references
    AccountStore& m_store;
    WebViewManager& m_manager;
    GtkWindow* m_window = nullptr; // owns this object

    // Owned references
    AccountStore::ChangeObservers::Subscription m_storeSubscription;
    std::vector<SignalConnection> m_connections;
    Ref<GSimpleActionGroup> m_actions;     // "settings.default-account"
    std::vector<std::string> m_accountIDs; // the menu's choices, in order
    std::vector<std::string> m_accountLabels;

    // Template widgets (inside m_window)
    GtkWidget* m_makeDefaultButton = nullptr;
    GtkWidget* m_isDefaultBox = nullptr;
    GtkWidget* m_failureRow = nullptr;
    GtkWidget* m_alwaysAskSwitch = nullptr;
    GtkWidget* m_defaultAccountRow = nullptr;
    GtkWidget* m_defaultAccountButton = nullptr;
    GtkWidget* m_notificationsSwitch = nullptr;
    GtkWidget* m_dockSwitch = nullptr;
    GtkWidget* m_hibernateRow = nullptr; // AdwComboRow over HibernationPolicy::kChoices
    GtkWidget* m_runInBackgroundSwitch = nullptr;
    GtkWidget* m_startAtLoginSwitch = nullptr;
    GtkWidget* m_spellingSwitch = nullptr;

    // View state
    bool m_isDefaultMailClient = false;
    bool m_triedAndFailed = false;
    bool m_syncing = false; // controls are being set from the store
};

} // namespace orvane
