#pragma once

#include "GRef.h"
#include "Observers.h"
#include "SignalConnection.h"
#include "UpdaterController.h"

#include <gtk/gtk.h>

namespace orvane {

// The application action "app.check-for-updates" ("Check for Updates…"):
// enabled exactly while the controller can start a check; activating it runs
// a check and shows the result over the application's active window. Adds
// the action on construction and removes it on destruction; the application
// and the controller must outlive it.
class CheckForUpdatesAction {
public:
    CheckForUpdatesAction(GtkApplication* application, UpdaterController& updater);
    ~CheckForUpdatesAction();
    CheckForUpdatesAction(const CheckForUpdatesAction&) = delete;
    CheckForUpdatesAction& operator=(const CheckForUpdatesAction&) = delete;

    GSimpleAction* action() const { return m_action.get(); }

    static constexpr const char* kName = "check-for-updates";

private:
    static void onActivate(GSimpleAction*, GVariant*, gpointer self);

    // Borrowed
    GtkApplication* m_application;
    UpdaterController& m_updater;
    // Owned
    Ref<GSimpleAction> m_action;
    SignalConnection m_activate;
    Observers<bool>::Subscription m_canCheck;
};

} // namespace orvane
