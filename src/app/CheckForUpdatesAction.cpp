#include "CheckForUpdatesAction.h"

#include "UpdateDialog.h"

namespace orvane {

CheckForUpdatesAction::CheckForUpdatesAction(GtkApplication* application, UpdaterController& updater)
    : m_application(application)
    , m_updater(updater)
    , m_action(adopt(g_simple_action_new(kName, nullptr))) {
    m_activate = SignalConnection::connect(m_action.get(), "activate", onActivate, this);
    m_canCheck = m_updater.observeCanCheckForUpdates([action = m_action.get()](bool can) {
        g_simple_action_set_enabled(action, can);
    });
    g_action_map_add_action(G_ACTION_MAP(m_application), G_ACTION(m_action.get()));
}

CheckForUpdatesAction::~CheckForUpdatesAction() {
    if (g_action_map_lookup_action(G_ACTION_MAP(m_application), kName) == G_ACTION(m_action.get()))
        g_action_map_remove_action(G_ACTION_MAP(m_application), kName);
}

void CheckForUpdatesAction::onActivate(GSimpleAction*, GVariant*, gpointer data) {
    auto* self = static_cast<CheckForUpdatesAction*>(data);
    UpdateDialog::checkAndPresent(self->m_updater, gtk_application_get_active_window(self->m_application));
}

} // namespace orvane
