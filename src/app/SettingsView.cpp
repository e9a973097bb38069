#include "SettingsView.h"

#include "DefaultMailClient.h"
#include "WebViewManager.h"

#include <algorithm>

namespace orvane {

namespace {

constexpr const char* kViewKey = "orvane-settings-view";
constexpr int kWidth = 440;
constexpr int kHeight = 640;

GtkWidget* captionLabel(const char* text) {
    GtkWidget* label = gtk_label_new(text);
    gtk_label_set_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_widget_add_css_class(label, "caption");
    gtk_widget_add_css_class(label, "dim-label");
    return label;
}

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
        view = new SettingsView(store, manager, application);
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
    GtkWidget* window = adw_preferences_window_new();
    m_window = GTK_WINDOW(window);
    if (application)
        gtk_window_set_application(m_window, application);
    g_object_set_data(G_OBJECT(window), kViewKey, this);
    g_signal_connect(window, "destroy", G_CALLBACK(+[](GtkWidget* window, gpointer self) {
        g_object_set_data(G_OBJECT(window), kViewKey, nullptr);
        delete static_cast<SettingsView*>(self);
    }), this);
    build();
    m_storeSubscription = m_store.observe([this](unsigned) { syncFromStore(); });
    syncFromStore();
    syncDefaultRow();
}

SettingsView::~SettingsView() {
    m_storeSubscription.reset();
    m_connections.clear();
}

void SettingsView::build() {
    GtkWindow* window = m_window;
    gtk_window_set_title(window, "Preferences");
    gtk_window_set_modal(window, FALSE);
    gtk_window_set_default_size(window, kWidth, kHeight);
    adw_preferences_window_set_search_enabled(ADW_PREFERENCES_WINDOW(window), FALSE);
    // Asked again each time the window appears.
    m_connections.push_back(SignalConnection::connect(window, "map", +[](GtkWidget*, gpointer self) {
        static_cast<SettingsView*>(self)->refreshDefaultMailClient();
    }, this));

    GtkWidget* page = adw_preferences_page_new();
    adw_preferences_window_add(ADW_PREFERENCES_WINDOW(window), ADW_PREFERENCES_PAGE(page));

    // Email links (mailto:)
    GtkWidget* links = adw_preferences_group_new();
    adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(links), "Email links (mailto:)");
    adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(links));

    GtkWidget* defaultRow = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(defaultRow), "Default email app");
    m_isDefaultBox = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    gtk_widget_add_css_class(m_isDefaultBox, "success");
    gtk_widget_set_valign(m_isDefaultBox, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(m_isDefaultBox), gtk_image_new_from_icon_name("emblem-ok-symbolic"));
    gtk_box_append(GTK_BOX(m_isDefaultBox), gtk_label_new("Orvane is your default"));
    adw_action_row_add_suffix(ADW_ACTION_ROW(defaultRow), m_isDefaultBox);
    m_makeDefaultButton = gtk_button_new_with_label("Make Orvane the Default");
    gtk_widget_set_valign(m_makeDefaultButton, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(defaultRow), m_makeDefaultButton);
    m_connections.push_back(SignalConnection::connect(m_makeDefaultButton, "clicked", +[](GtkButton*, gpointer self) {
        static_cast<SettingsView*>(self)->makeDefault();
    }, this));
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(links), defaultRow);

    m_failureRow = adw_preferences_row_new();
    gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(m_failureRow), FALSE);
    gtk_list_box_row_set_selectable(GTK_LIST_BOX_ROW(m_failureRow), FALSE);
    GtkWidget* failure = captionLabel(kFailureText);
    gtk_widget_set_margin_start(failure, 12);
    gtk_widget_set_margin_end(failure, 12);
    gtk_widget_set_margin_top(failure, 8);
    gtk_widget_set_margin_bottom(failure, 8);
    gtk_list_box_row_set_child(GTK_LIST_BOX_ROW(m_failureRow), failure);
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(links), m_failureRow);

    m_alwaysAskSwitch = addSwitchRow(ADW_PREFERENCES_GROUP(links), "_Always ask which account to send from", &SettingsView::onAlwaysAsk);

    // A pop-up menu of the mail accounts, as radio items of a string action:
    // choosing the account already shown stores it too.
    m_actions = adopt(g_simple_action_group_new());
    GSimpleAction* choice = g_simple_action_new_stateful("default-account", G_VARIANT_TYPE_STRING, g_variant_new_string(""));
    m_connections.push_back(SignalConnection::connect(choice, "change-state", +[](GSimpleAction*, GVariant* value, gpointer self) {
        static_cast<SettingsView*>(self)->chooseDefaultAccount(g_variant_get_string(value, nullptr));
    }, this));
    g_action_map_add_action(G_ACTION_MAP(m_actions.get()), G_ACTION(choice));
    g_object_unref(choice);
    gtk_widget_insert_action_group(GTK_WIDGET(window), "settings", G_ACTION_GROUP(m_actions.get()));

    m_defaultAccountRow = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(m_defaultAccountRow), "Default sending account");
    m_defaultAccountButton = gtk_menu_button_new();
    gtk_menu_button_set_always_show_arrow(GTK_MENU_BUTTON(m_defaultAccountButton), TRUE);
    gtk_widget_add_css_class(m_defaultAccountButton, "flat");
    gtk_widget_set_valign(m_defaultAccountButton, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(m_defaultAccountRow), m_defaultAccountButton);
    adw_action_row_set_activatable_widget(ADW_ACTION_ROW(m_defaultAccountRow), m_defaultAccountButton);
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(links), m_defaultAccountRow);

    // Notifications
    GtkWidget* notifications = adw_preferences_group_new();
    adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(notifications), "Notifications");
    adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(notifications));
    m_notificationsSwitch = addSwitchRow(ADW_PREFERENCES_GROUP(notifications), "Show _notifications for new mail and events", &SettingsView::onNotifications);
    GtkWidget* footnote = captionLabel("Relays Gmail and Calendar's own notifications. Turn desktop notifications on in "
                                       "each account's Gmail and Calendar settings too.");
    gtk_widget_set_margin_top(footnote, 12);
    // Below the group's list, as a footnote.
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(notifications), footnote);

    // Dock
    GtkWidget* dock = adw_preferences_group_new();
    adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(dock), "Dock");
    adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(dock));
    m_dockSwitch = addSwitchRow(ADW_PREFERENCES_GROUP(dock), "Show total unread count on the _Dock icon", &SettingsView::onDock);
}

GtkWidget* SettingsView::addSwitchRow(AdwPreferencesGroup* group, const char* title, void (*changed)(GObject*, GParamSpec*, gpointer)) {
    // Titles carry a mnemonic: Alt and the underlined letter flip the switch.
    GtkWidget* row = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), title);
    adw_preferences_row_set_use_underline(ADW_PREFERENCES_ROW(row), TRUE);
    GtkWidget* toggle = gtk_switch_new();
    gtk_widget_set_valign(toggle, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(row), toggle);
    adw_action_row_set_activatable_widget(ADW_ACTION_ROW(row), toggle);
    adw_preferences_group_add(group, row);
    m_connections.push_back(SignalConnection::connect(toggle, "notify::active", changed, this));
    return toggle;
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

void SettingsView::onAlwaysAsk(GObject* toggle, GParamSpec*, gpointer data) {
    auto* self = static_cast<SettingsView*>(data);
    if (self->m_syncing)
        return;
    self->m_store.setAlwaysAskOnMailto(gtk_switch_get_active(GTK_SWITCH(toggle)));
    self->m_store.save();
}

// Desktop notifications need no permission here: the switch alone decides.
void SettingsView::onNotifications(GObject* toggle, GParamSpec*, gpointer data) {
    auto* self = static_cast<SettingsView*>(data);
    if (self->m_syncing)
        return;
    self->m_store.setNotificationsEnabled(gtk_switch_get_active(GTK_SWITCH(toggle)));
    self->m_store.save();
}

void SettingsView::onDock(GObject* toggle, GParamSpec*, gpointer data) {
    auto* self = static_cast<SettingsView*>(data);
    if (self->m_syncing)
        return;
    self->m_store.setShowDockBadge(gtk_switch_get_active(GTK_SWITCH(toggle)));
    self->m_store.save();
    self->m_manager.refreshDockBadge();
}

} // namespace orvane
