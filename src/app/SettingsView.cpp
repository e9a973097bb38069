#include "SettingsView.h"

#include "AppResources.h"
#include "DefaultMailClient.h"
#include "GRef.h"
#include "Preferences.h"
#include "WebViewManager.h"
#include "HeapBox.h"

#include <algorithm>

namespace orvane {

namespace {

constexpr const char* kViewKey = "orvane-settings-view";

// A menu item's label shows underscores as they are.
std::string menuLabel(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '_')
            out += '_';
        out += c;
    }
    return out;
}

} // namespace

SettingsView& SettingsView::open(AccountStore& store, WebViewManager& manager, GtkWindow* parent, GtkApplication* application) {
    SettingsView* view = find(application);
    if (!view)
        view = HeapBox::make<SettingsView>(store, manager, application);
    view->present(parent);
    return *view;
}

SettingsView* SettingsView::find(GtkApplication* application) {
    if (!application)
        return nullptr;
    for (GList* item = gtk_application_get_windows(application); item; item = item->next) {
        if (auto* view = static_cast<SettingsView*>(g_object_get_data(G_OBJECT(item->data), kViewKey)))
            return view;
    }
    return nullptr;
}

SettingsView::SettingsView(AccountStore& store, WebViewManager& manager, GtkApplication* application)
    : m_store(store)
    , m_manager(manager)
    , m_isDefaultMailClient(DefaultMailClient::isDefault()) {
    adw_init();
    ensureUIResources();
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/SettingsView.ui"));
    GtkWidget* window = GTK_WIDGET(gtk_builder_get_object(builder.get(), "window"));
    m_window = GTK_WINDOW(window);
    if (application)
        gtk_window_set_application(m_window, application);
    g_object_set_data(G_OBJECT(window), kViewKey, this);
    g_signal_connect(window, "destroy", G_CALLBACK(+[](GtkWidget* window, gpointer self) {
        g_object_set_data(G_OBJECT(window), kViewKey, nullptr);
        HeapBox::free<SettingsView>(self);
    }), this);
    build(builder.get());
    m_storeSubscription = m_store.observe([this](unsigned) { syncFromStore(); });
    syncFromStore();
    syncDefaultRow();
}

SettingsView::~SettingsView() {
    m_storeSubscription.reset();
    m_connections.clear();
}

void SettingsView::build(GtkBuilder* builder) {
    auto widget = [builder](const char* id) { return GTK_WIDGET(gtk_builder_get_object(builder, id)); };
    // Asked again each time the window appears.
    m_connections.push_back(SignalConnection::connect(m_window, "map", +[](GtkWidget*, gpointer self) {
        static_cast<SettingsView*>(self)->refreshDefaultMailClient();
    }, this));

    m_isDefaultBox = widget("is_default_box");
    m_makeDefaultButton = widget("make_default_button");
    m_connections.push_back(SignalConnection::connect(m_makeDefaultButton, "clicked", +[](GtkButton*, gpointer self) {
        static_cast<SettingsView*>(self)->makeDefault();
    }, this));
    m_failureRow = widget("failure_row");
    gtk_label_set_text(GTK_LABEL(widget("failure_label")), _(kFailureText));

    // Titles carry a mnemonic: Alt and the underlined letter flip the switch.
    m_alwaysAskSwitch = widget("always_ask_switch");
    m_notificationsSwitch = widget("notifications_switch");
    m_dockSwitch = widget("dock_switch");
    m_runInBackgroundSwitch = widget("run_in_background_switch");
    m_startAtLoginSwitch = widget("start_at_login_switch");
    m_spellingSwitch = widget("spelling_switch");
    for (GtkWidget* toggle : { m_alwaysAskSwitch, m_notificationsSwitch, m_dockSwitch })
        m_connections.push_back(SignalConnection::connect(toggle, "notify::active", &SettingsView::onSwitch, this));

    // A pop-up menu of the mail accounts, as radio items of a string action:
    // choosing the account already shown stores it too.
    m_actions = adopt(g_simple_action_group_new());
    GSimpleAction* choice = g_simple_action_new_stateful("default-account", G_VARIANT_TYPE_STRING, g_variant_new_string(""));
    m_connections.push_back(SignalConnection::connect(choice, "change-state", +[](GSimpleAction*, GVariant* value, gpointer self) {
        static_cast<SettingsView*>(self)->chooseDefaultAccount(g_variant_get_string(value, nullptr));
    }, this));
    g_action_map_add_action(G_ACTION_MAP(m_actions.get()), G_ACTION(choice));
    g_object_unref(choice);
    gtk_widget_insert_action_group(GTK_WIDGET(m_window), "settings", G_ACTION_GROUP(m_actions.get()));
    m_defaultAccountRow = widget("default_account_row");
    m_defaultAccountButton = widget("default_account_button");

    m_hibernateRow = widget("hibernate_row");
    syncHibernateRow();
    m_connections.push_back(SignalConnection::connect(m_hibernateRow, "notify::selected", +[](GObject* row, GParamSpec*, gpointer self) {
        static_cast<SettingsView*>(self)->chooseHibernation(adw_combo_row_get_selected(ADW_COMBO_ROW(row)));
    }, this));
}

HibernationPolicy SettingsView::hibernationPolicy() {
    const char* variable = g_getenv(HibernationPolicy::kEnvironmentVariable);
    return HibernationPolicy(HibernationPolicy::limitFrom(Preferences().number(HibernationPolicy::kPreferenceKey),
        variable ? std::optional<std::string_view>(variable) : std::nullopt));
}

// Shows the stored choice (a value the menu does not offer shows as the
// default); a run whose time the environment sets says so instead.
void SettingsView::syncHibernateRow() {
    const auto& choices = HibernationPolicy::kChoices;
    auto stored = HibernationPolicy::limitFrom(Preferences().number(HibernationPolicy::kPreferenceKey), std::nullopt);
    int seconds = stored ? int(stored->count()) : 0;
    auto shown = std::find(choices.begin(), choices.end(), seconds);
    if (shown == choices.end())
        shown = std::find(choices.begin(), choices.end(), int(HibernationPolicy::kDefaultLimit.count()));
    adw_combo_row_set_selected(ADW_COMBO_ROW(m_hibernateRow), guint(shown - choices.begin()));
    if (g_getenv(HibernationPolicy::kEnvironmentVariable)) {
        adw_action_row_set_subtitle(ADW_ACTION_ROW(m_hibernateRow), _("Set for this run by ORVANE_HIBERNATE_AFTER"));
        gtk_widget_set_sensitive(m_hibernateRow, FALSE);
    }
}

void SettingsView::chooseHibernation(guint index) {
    if (index >= HibernationPolicy::kChoices.size())
        return;
    Preferences().setNumber(HibernationPolicy::kPreferenceKey, HibernationPolicy::kChoices[index]);
    m_manager.setHibernationPolicy(hibernationPolicy());
}

void SettingsView::present(GtkWindow* parent) {
    if (parent && parent != m_window)
        gtk_window_set_transient_for(m_window, parent);
    refreshDefaultMailClient();
    gtk_window_present(m_window);
}

// --- Store to controls -------------------------------------------------------

void SettingsView::syncFromStore() {
    m_syncing = true;
    gtk_switch_set_active(GTK_SWITCH(m_alwaysAskSwitch), m_store.alwaysAskOnMailto());
    gtk_switch_set_active(GTK_SWITCH(m_notificationsSwitch), m_store.notificationsEnabled());
    gtk_switch_set_active(GTK_SWITCH(m_dockSwitch), m_store.showDockBadge());

    syncDefaultAccountMenu();
    m_syncing = false;
}

// The choices are the mail accounts by label. Shown: the stored default,
// else the first mail account (not stored until the user picks it).
void SettingsView::syncDefaultAccountMenu() {
    std::vector<std::string> ids;
    std::vector<std::string> labels;
    for (const Account& account : m_store.mailAccounts()) {
        ids.push_back(account.id);
        labels.push_back(account.label);
    }
    if (ids != m_accountIDs || labels != m_accountLabels) {
        auto menu = adopt(g_menu_new());
        for (size_t i = 0; i < ids.size(); ++i) {
            GMenuItem* item = g_menu_item_new(menuLabel(labels[i]).c_str(), nullptr);
            g_menu_item_set_action_and_target_value(item, "settings.default-account", g_variant_new_string(ids[i].c_str()));
            g_menu_append_item(menu.get(), item);
            g_object_unref(item);
        }
        gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(m_defaultAccountButton), G_MENU_MODEL(menu.get()));
        m_accountIDs = std::move(ids);
        m_accountLabels = std::move(labels);
    }

    std::string shown;
    std::string shownLabel;
    if (const auto& stored = m_store.defaultMailtoAccountID())
        shown = *stored;
    else if (!m_accountIDs.empty())
        shown = m_accountIDs.front();
    for (size_t i = 0; i < m_accountIDs.size(); ++i) {
        if (m_accountIDs[i] == shown)
            shownLabel = m_accountLabels[i];
    }
    GAction* choice = g_action_map_lookup_action(G_ACTION_MAP(m_actions.get()), "default-account");
    g_simple_action_set_state(G_SIMPLE_ACTION(choice), g_variant_new_string(shown.c_str()));
    g_simple_action_set_enabled(G_SIMPLE_ACTION(choice), !m_accountIDs.empty());
    gtk_menu_button_set_label(GTK_MENU_BUTTON(m_defaultAccountButton), shownLabel.c_str());
    gtk_widget_set_sensitive(m_defaultAccountRow, !m_accountIDs.empty());
}

void SettingsView::syncDefaultRow() {
    gtk_widget_set_visible(m_isDefaultBox, m_isDefaultMailClient);
    gtk_widget_set_visible(m_makeDefaultButton, !m_isDefaultMailClient);
    gtk_widget_set_visible(m_failureRow, m_triedAndFailed);
}

void SettingsView::refreshDefaultMailClient() {
    m_isDefaultMailClient = DefaultMailClient::isDefault();
    syncDefaultRow();
}

// --- Controls to store -------------------------------------------------------

// The request's own answer is not trusted: the desktop is asked again, and
// the explanation shows whenever it still does not name Orvane.
void SettingsView::makeDefault() {
    DefaultMailClient::makeDefault();
    m_isDefaultMailClient = DefaultMailClient::isDefault();
    m_triedAndFailed = !m_isDefaultMailClient;
    syncDefaultRow();
}

void SettingsView::chooseDefaultAccount(const std::string& accountID) {
    if (m_syncing || std::find(m_accountIDs.begin(), m_accountIDs.end(), accountID) == m_accountIDs.end())
        return;
    m_store.setDefaultMailtoAccountID(accountID);
    m_store.save();
}

// Each switch writes its setting at once. Desktop notifications need no
// permission here: their switch alone decides.
void SettingsView::onSwitch(GObject* toggle, GParamSpec*, gpointer data) {
    auto* self = static_cast<SettingsView*>(data);
    if (self->m_syncing)
        return;
    bool on = gtk_switch_get_active(GTK_SWITCH(toggle));
    AccountStore& store = self->m_store;
    if (toggle == G_OBJECT(self->m_alwaysAskSwitch))
        store.setAlwaysAskOnMailto(on);
    else if (toggle == G_OBJECT(self->m_notificationsSwitch))
        store.setNotificationsEnabled(on);
    else
        store.setShowDockBadge(on);
    store.save();
    if (toggle == G_OBJECT(self->m_dockSwitch))
        self->m_manager.refreshDockBadge();
}

} // namespace orvane
