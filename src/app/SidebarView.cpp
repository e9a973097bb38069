#include "SidebarView.h"

#include "AppResources.h"
#include "AvatarView.h"
#include "WebViewManager.h"

#include <glib/gi18n-lib.h>

#include <algorithm>

namespace orvane {

namespace {

constexpr int kColumnWidth = 64;
constexpr int kInset = 14;
constexpr int kSpacing = 10;
constexpr double kTileSize = 44;
constexpr int kDividerWidth = 28;
constexpr int kDividerGap = 2;
constexpr const char* kRemoveLabel = N_("Remove Account");
constexpr const char* kMemoryItem = "memory";
constexpr const char* kMemoryLabelKey = "orvane-memory-label";
constexpr const char* kMuteSwitch = "mute-notifications";
constexpr const char* kBadgeSwitch = "leave-out-of-badge";
constexpr const char* kSwitchesKey = "orvane-switches";

// --- Tile input ------------------------------------------------------------
// These handlers hold no pointer to the SidebarView: they turn input into the
// column's actions, found through the widget tree.

const std::string& tileAccountID(GtkWidget* tile) {
    return orvane_avatar_view_get_account(ORVANE_AVATAR_VIEW(tile)).id;
}

GtkPopover* tileMenu(GtkWidget* tile) {
    for (GtkWidget* child = gtk_widget_get_first_child(tile); child; child = gtk_widget_get_next_sibling(child))
        if (GTK_IS_POPOVER(child))
            return GTK_POPOVER(child);
    return nullptr;
}

void activateForTile(GtkWidget* tile, const char* action) {
    gtk_widget_activate_action(tile, action, "s", tileAccountID(tile).c_str());
}

void popUpMenuAt(GtkWidget* tile, double x, double y) {
    if (GtkPopover* menu = tileMenu(tile)) {
        GdkRectangle point = { int(x), int(y), 1, 1 };
        gtk_popover_set_pointing_to(menu, &point);
    }
    activateForTile(tile, "sidebar.context-menu");
}

void onPrimaryReleased(GtkGestureClick* gesture, int, double x, double y, gpointer) {
    GtkWidget* tile = gtk_event_controller_get_widget(GTK_EVENT_CONTROLLER(gesture));
    if (gtk_widget_contains(tile, x, y))
        activateForTile(tile, "sidebar.select");
}

void onSecondaryPressed(GtkGestureClick* gesture, int, double x, double y, gpointer) {
    gtk_gesture_set_state(GTK_GESTURE(gesture), GTK_EVENT_SEQUENCE_CLAIMED);
    popUpMenuAt(gtk_event_controller_get_widget(GTK_EVENT_CONTROLLER(gesture)), x, y);
}

void onLongPressed(GtkGestureLongPress* gesture, double x, double y, gpointer) {
    // Claiming the press keeps the click gesture from selecting on release.
    gtk_gesture_set_state(GTK_GESTURE(gesture), GTK_EVENT_SEQUENCE_CLAIMED);
    popUpMenuAt(gtk_event_controller_get_widget(GTK_EVENT_CONTROLLER(gesture)), x, y);
}

gboolean onMenuKey(GtkWidget* tile, GVariant*, gpointer) {
    popUpMenuAt(tile, gtk_widget_get_width(tile) / 2.0, gtk_widget_get_height(tile) / 2.0);
    return TRUE;
}

gboolean onActivateKey(GtkWidget* tile, GVariant*, gpointer) {
    activateForTile(tile, "sidebar.select");
    return TRUE;
}

void addShortcut(GtkShortcutController* controller, const char* triggers, GtkShortcutFunc callback) {
    gtk_shortcut_controller_add_shortcut(controller,
        gtk_shortcut_new(gtk_shortcut_trigger_parse_string(triggers), gtk_callback_action_new(callback, nullptr, nullptr)));
}

// Marks the destructive item of a freshly built menu, since menu models carry
// no style of their own.
void markDestructive(GtkWidget* widget) {
    for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(child), "text")
            && g_strcmp0(G_OBJECT_TYPE_NAME(child), "GtkModelButton") == 0) {
            char* text = nullptr;
            g_object_get(child, "text", &text, nullptr);
            if (g_strcmp0(text, _(kRemoveLabel)) == 0)
                gtk_widget_add_css_class(child, "error");
            g_free(text);
        }
        markDestructive(child);
    }
}

void showSwitch(GtkWidget* tile, const char* name, bool on) {
    auto* switches = G_ACTION_MAP(g_object_get_data(G_OBJECT(tile), kSwitchesKey));
    if (GAction* action = switches ? g_action_map_lookup_action(switches, name) : nullptr)
        g_simple_action_set_state(G_SIMPLE_ACTION(action), g_variant_new_boolean(on));
}

GMenuItem* accountItem(const char* label, const char* action, const std::string& accountID) {
    GMenuItem* item = g_menu_item_new(label, nullptr);
    g_menu_item_set_action_and_target_value(item, action, g_variant_new_string(accountID.c_str()));
    return item;
}

void appendItem(GMenu* menu, GMenuItem* item) {
    g_menu_append_item(menu, item);
    g_object_unref(item);
}

// What a screen reader says after a tile's name (the account's label, which
// a calendar shares with its mail account): the service, then the count,
// then whether the account sleeps.
std::string tileDescription(const Account& account, int64_t unread, bool asleep) {
    std::string text = account.isCalendar() ? C_("service", "Google Calendar")
        : account.effectiveService() == AccountService::Outlook ? C_("service", "Outlook")
                                                                : C_("service", "Gmail");
    if (unread > 0) {
        auto count = gulong(std::min<int64_t>(unread, G_MAXLONG));
        // Translators: a service ("Gmail") and its number of unread messages.
        GCharPtr withCount(g_strdup_printf(g_dngettext(GETTEXT_PACKAGE, "%s, %lu unread", "%s, %lu unread", count), text.c_str(), count));
        text = withCount.get();
    }
    if (asleep) {
        // Translators: a tile's description ("Gmail, 3 unread") when its account is asleep.
        GCharPtr sleeping(g_strdup_printf(_("%s, asleep"), text.c_str()));
        text = sleeping.get();
    }
    return text;
}

} // namespace

SidebarView::SidebarView(AccountStore& store, WebViewManager& manager)
    : m_store(store)
    , m_manager(manager)
    , m_root(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0))
    , m_actions(adopt(g_simple_action_group_new())) {
    GtkWidget* root = m_root.get();
    ensureStyle(gtk_widget_get_display(root));
    gtk_widget_add_css_class(root, "orvane-sidebar");
    gtk_widget_set_size_request(root, kColumnWidth, -1);
    gtk_widget_set_hexpand(root, FALSE);
    gtk_widget_set_vexpand(root, TRUE);

    // The tiles are the tabs of the web area, one selected at a time; the
    // list is the column's name for screen readers.
    m_stack = GTK_WIDGET(g_object_new(GTK_TYPE_BOX, "orientation", GTK_ORIENTATION_VERTICAL, "spacing", kSpacing,
        "accessible-role", GTK_ACCESSIBLE_ROLE_TAB_LIST, nullptr));
    gtk_accessible_update_property(GTK_ACCESSIBLE(m_stack), GTK_ACCESSIBLE_PROPERTY_LABEL, _("Accounts"), -1);
    gtk_widget_set_margin_top(m_stack, kInset);
    gtk_widget_set_margin_bottom(m_stack, kSpacing);
    gtk_widget_set_halign(m_stack, GTK_ALIGN_CENTER);
    gtk_widget_set_valign(m_stack, GTK_ALIGN_START);
    // Many accounts scroll, vertically only, so they never make the window
    // taller than its own minimum; the add button stays below them, in view.
    // With few, the tiles take their natural height and the button follows.
    GtkWidget* scroller = gtk_scrolled_window_new();
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scroller), TRUE);
    gtk_scrolled_window_set_propagate_natural_width(GTK_SCROLLED_WINDOW(scroller), TRUE);
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), m_stack);
    gtk_box_append(GTK_BOX(root), scroller);

    m_divider = gtk_separator_new(GTK_ORIENTATION_HORIZONTAL);
    gtk_widget_add_css_class(m_divider, "orvane-divider");
    gtk_widget_set_size_request(m_divider, kDividerWidth, -1);
    gtk_widget_set_halign(m_divider, GTK_ALIGN_CENTER);
    gtk_widget_set_margin_top(m_divider, kDividerGap);
    gtk_widget_set_margin_bottom(m_divider, kDividerGap);
    gtk_box_append(GTK_BOX(m_stack), m_divider);

    GMenu* addMenu = g_menu_new();
    g_menu_append(addMenu, _("Gmail account"), "sidebar.add-gmail");
    g_menu_append(addMenu, _("Outlook account"), "sidebar.add-outlook");
    m_addButton = gtk_menu_button_new();
    gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(m_addButton), G_MENU_MODEL(addMenu));
    g_object_unref(addMenu);
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(m_addButton), "list-add-symbolic");
    gtk_widget_set_tooltip_text(m_addButton, _("Add account"));
    gtk_accessible_update_property(GTK_ACCESSIBLE(m_addButton), GTK_ACCESSIBLE_PROPERTY_LABEL, _("Add account"), -1);
    gtk_widget_add_css_class(m_addButton, "orvane-add");
    gtk_widget_set_size_request(m_addButton, int(kTileSize), int(kTileSize));
    gtk_widget_set_halign(m_addButton, GTK_ALIGN_CENTER);
    gtk_widget_set_margin_bottom(m_addButton, kInset);
    gtk_box_append(GTK_BOX(root), m_addButton);

    installActions();
    m_storeSubscription = m_store.observe([this](unsigned) { rebuild(); });
    m_unreadSubscription = m_manager.observeUnreadCounts([this] { rebuild(); });
    m_sleepSubscription = m_manager.observeSleep([this] { rebuild(); });
    rebuild();
}

SidebarView::~SidebarView() {
    m_lifetime.end();
    m_storeSubscription.reset();
    m_unreadSubscription.reset();
    m_sleepSubscription.reset();
    m_actionConnections.clear();
    // The window may hold the column a little longer; its commands go now.
    gtk_widget_insert_action_group(m_root.get(), "sidebar", nullptr);
}

std::optional<Account> SidebarView::findAccount(const std::string& accountID) const {
    const Account* account = m_store.account(accountID);
    return account ? std::optional<Account>(*account) : std::nullopt;
}

bool SidebarView::hasServicePair(const Account& account) const {
    if (account.isCalendar())
        return true;
    const auto& all = m_store.accounts();
    return std::any_of(all.begin(), all.end(), [&](const Account& other) {
        return other.isCalendar() && other.dataStoreID == account.dataStoreID;
    });
}

// --- Tiles -----------------------------------------------------------------

GtkWidget* SidebarView::makeTile(const Account& account) {
    GtkWidget* tile = GTK_WIDGET(g_object_new(ORVANE_TYPE_AVATAR_VIEW,
        "accessible-role", GTK_ACCESSIBLE_ROLE_TAB, "size", kTileSize, nullptr));
    gtk_widget_set_halign(tile, GTK_ALIGN_CENTER);
    gtk_widget_set_focusable(tile, TRUE);
    gtk_widget_set_focus_on_click(tile, FALSE);
    gtk_accessible_update_property(GTK_ACCESSIBLE(tile), GTK_ACCESSIBLE_PROPERTY_HAS_POPUP, TRUE, -1);

    GtkGesture* primary = gtk_gesture_click_new();
    gtk_gesture_single_set_button(GTK_GESTURE_SINGLE(primary), GDK_BUTTON_PRIMARY);
    g_signal_connect(primary, "released", G_CALLBACK(onPrimaryReleased), nullptr);
    gtk_widget_add_controller(tile, GTK_EVENT_CONTROLLER(primary));

    GtkGesture* secondary = gtk_gesture_click_new();
    gtk_gesture_single_set_button(GTK_GESTURE_SINGLE(secondary), GDK_BUTTON_SECONDARY);
    g_signal_connect(secondary, "pressed", G_CALLBACK(onSecondaryPressed), nullptr);
    gtk_widget_add_controller(tile, GTK_EVENT_CONTROLLER(secondary));

    GtkGesture* longPress = gtk_gesture_long_press_new();
    g_signal_connect(longPress, "pressed", G_CALLBACK(onLongPressed), nullptr);
    gtk_widget_add_controller(tile, GTK_EVENT_CONTROLLER(longPress));

    GtkEventController* keys = gtk_shortcut_controller_new();
    addShortcut(GTK_SHORTCUT_CONTROLLER(keys), "<Shift>F10|Menu", onMenuKey);
    addShortcut(GTK_SHORTCUT_CONTROLLER(keys), "Return|KP_Enter|space", onActivateKey);
    gtk_widget_add_controller(tile, keys);

    // The switches' check marks: each tile's own stateful actions, whose
    // changes go to the column's commands for the account.
    auto switches = adopt(g_simple_action_group_new());
    for (const char* name : { kMuteSwitch, kBadgeSwitch }) {
        auto action = adopt(g_simple_action_new_stateful(name, nullptr, g_variant_new_boolean(FALSE)));
        g_signal_connect_object(action.get(), "change-state", G_CALLBACK(+[](GSimpleAction* action, GVariant*, GtkWidget* tile) {
            activateForTile(tile, (std::string("sidebar.toggle-") + g_action_get_name(G_ACTION(action))).c_str());
        }), tile, GConnectFlags(0));
        g_action_map_add_action(G_ACTION_MAP(switches.get()), G_ACTION(action.get()));
    }
    gtk_widget_insert_action_group(tile, "tile", G_ACTION_GROUP(switches.get()));
    g_object_set_data_full(G_OBJECT(tile), kSwitchesKey, switches.get(), g_object_unref);
    g_object_ref(switches.get());

    GtkWidget* menu = gtk_popover_menu_new_from_model(nullptr);
    gtk_popover_set_has_arrow(GTK_POPOVER(menu), FALSE);
    gtk_popover_set_position(GTK_POPOVER(menu), GTK_POS_BOTTOM);
    gtk_widget_set_halign(menu, GTK_ALIGN_START);
    gtk_widget_set_parent(menu, tile);

    updateTile(tile, account);
    return tile;
}

void SidebarView::updateTile(GtkWidget* tile, const Account& account) {
    auto* avatar = ORVANE_AVATAR_VIEW(tile);
    if (!(orvane_avatar_view_get_account(avatar) == account))
        orvane_avatar_view_set_account(avatar, account);
    bool selected = m_store.selectedAccountID() == account.id;
    orvane_avatar_view_set_selected(avatar, selected);
    const auto& counts = m_manager.unreadCounts();
    auto count = counts.find(account.id);
    int64_t unread = count == counts.end() ? 0 : count->second;
    orvane_avatar_view_set_unread(avatar, unread);
    orvane_avatar_view_set_show_badge(avatar, hasServicePair(account));
    bool asleep = m_manager.isAsleep(account.id);
    if (asleep != gtk_widget_has_css_class(tile, "orvane-asleep")) {
        if (asleep)
            gtk_widget_add_css_class(tile, "orvane-asleep");
        else
            gtk_widget_remove_css_class(tile, "orvane-asleep");
    }
    const SessionPreferences* preferences = m_manager.sessionPreferences();
    showSwitch(tile, kMuteSwitch, preferences && preferences->notificationsMuted(account.id));
    showSwitch(tile, kBadgeSwitch, preferences && preferences->leftOutOfBadge(account.id));
    gtk_accessible_update_state(GTK_ACCESSIBLE(tile), GTK_ACCESSIBLE_STATE_SELECTED, selected, -1);
    const char* tooltip = gtk_widget_get_tooltip_text(tile);
    if (g_strcmp0(tooltip, account.label.c_str()) != 0) {
        gtk_widget_set_tooltip_text(tile, account.label.c_str());
        gtk_accessible_update_property(GTK_ACCESSIBLE(tile), GTK_ACCESSIBLE_PROPERTY_LABEL, account.label.c_str(), -1);
    }
    // After the tooltip, which GTK also makes the accessible description.
    gtk_accessible_update_property(GTK_ACCESSIBLE(tile), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
        tileDescription(account, unread, asleep).c_str(), -1);

    // The menu is rebuilt ahead of time, whenever what it shows changes: a
    // popover menu lays out its section separators in an idle after a new
    // model, which would show a frame without them if built on opening.
    std::string menuKey = account.id + (account.isCalendar() ? "/calendar" : "/mail")
        + (m_store.defaultMailtoAccountID() == account.id ? "/default" : "")
        + (m_store.selectedAccountID() == account.id ? "/selected" : "") + (asleep ? "/asleep" : "");
    auto* shownKey = static_cast<const char*>(g_object_get_data(G_OBJECT(tile), "orvane-menu-key"));
    GtkPopover* menu = tileMenu(tile);
    if (menu && g_strcmp0(shownKey, menuKey.c_str()) != 0) {
        auto model = adopt(g_menu_new());
        g_menu_append_section(model.get(), nullptr, pageSection(account).get());
        auto commands = contextMenu(account);
        for (int i = 0; i < g_menu_model_get_n_items(commands.get()); ++i) {
            auto section = adopt(g_menu_model_get_item_link(commands.get(), i, G_MENU_LINK_SECTION));
            g_menu_append_section(model.get(), nullptr, section.get());
        }
        gtk_popover_menu_set_menu_model(GTK_POPOVER_MENU(menu), G_MENU_MODEL(model.get()));
        GtkWidget* memory = gtk_label_new(nullptr);
        gtk_label_set_xalign(GTK_LABEL(memory), 0);
        gtk_widget_add_css_class(memory, "dim-label");
        gtk_widget_add_css_class(memory, "orvane-memory");
        gtk_popover_menu_add_child(GTK_POPOVER_MENU(menu), memory, kMemoryItem);
        g_object_set_data(G_OBJECT(tile), kMemoryLabelKey, memory);
        markDestructive(GTK_WIDGET(menu));
        g_object_set_data_full(G_OBJECT(tile), "orvane-menu-key", g_strdup(menuKey.c_str()), g_free);
    }
}

void SidebarView::rebuild() {
    std::vector<Account> mail = m_store.mailAccounts();
    std::vector<Account> calendar = m_store.calendarAccounts();

    // Tiles are reused by account id, in order, so a tile keeps its focus and
    // its loaded photo across updates.
    std::vector<GtkWidget*> unused = m_tiles;
    std::vector<GtkWidget*> tiles;
    auto tileFor = [&](const Account& account) {
        auto it = std::find_if(unused.begin(), unused.end(), [&](GtkWidget* t) { return tileAccountID(t) == account.id; });
        GtkWidget* tile = nullptr;
        if (it != unused.end()) {
            tile = *it;
            unused.erase(it);
            updateTile(tile, account);
        } else {
            tile = makeTile(account);
            gtk_box_append(GTK_BOX(m_stack), tile);
        }
        tiles.push_back(tile);
        return tile;
    };

    GtkWidget* previous = nullptr;
    auto place = [&](GtkWidget* widget) {
        gtk_box_reorder_child_after(GTK_BOX(m_stack), widget, previous);
        previous = widget;
    };
    for (const Account& account : mail)
        place(tileFor(account));
    gtk_widget_set_visible(m_divider, !mail.empty() && !calendar.empty());
    place(m_divider);
    for (const Account& account : calendar)
        place(tileFor(account));

    for (GtkWidget* tile : unused)
        gtk_box_remove(GTK_BOX(m_stack), tile);
    m_tiles = std::move(tiles);
}

// --- Context menu ----------------------------------------------------------

Ref<GMenuModel> SidebarView::contextMenu(const Account& account) const {
    GMenu* first = g_menu_new();
    appendItem(first, accountItem(_("Reload"), "sidebar.reload", account.id));
    if (account.isMailSide()) {
        appendItem(first, accountItem(_("Add Calendar"), "sidebar.add-calendar", account.id));
        if (m_store.defaultMailtoAccountID() == account.id) {
            // A checked, disabled toggle: shown with its checkmark, inert.
            g_menu_append(first, _("Default for email links"), "sidebar.is-default");
        } else {
            appendItem(first, accountItem(_("Set as default for email links"), "sidebar.set-default", account.id));
        }
    }
    // Beside the global switches in the preferences; only mail-side
    // accounts have a count.
    GMenu* switches = g_menu_new();
    g_menu_append(switches, _("Mute Notifications"), "tile.mute-notifications");
    if (account.isMailSide())
        g_menu_append(switches, _("Leave Out of Dock Badge"), "tile.leave-out-of-badge");
    GMenu* moves = g_menu_new();
    appendItem(moves, accountItem(_("Move Up"), "sidebar.move-up", account.id));
    appendItem(moves, accountItem(_("Move Down"), "sidebar.move-down", account.id));
    GMenu* removal = g_menu_new();
    appendItem(removal, accountItem(_(kRemoveLabel), "sidebar.remove", account.id));

    GMenu* menu = g_menu_new();
    g_menu_append_section(menu, nullptr, G_MENU_MODEL(first));
    g_menu_append_section(menu, nullptr, G_MENU_MODEL(switches));
    g_menu_append_section(menu, nullptr, G_MENU_MODEL(moves));
    g_menu_append_section(menu, nullptr, G_MENU_MODEL(removal));
    g_object_unref(first);
    g_object_unref(switches);
    g_object_unref(moves);
    g_object_unref(removal);
    return adopt(G_MENU_MODEL(menu));
}

Ref<GMenuModel> SidebarView::pageSection(const Account& account) const {
    GMenu* section = g_menu_new();
    GMenuItem* memory = g_menu_item_new(nullptr, nullptr);
    g_menu_item_set_attribute(memory, "custom", "s", kMemoryItem);
    appendItem(section, memory);
    if (m_manager.hibernates(account.id) && !m_manager.isAsleep(account.id)
        && m_store.selectedAccountID() != account.id)
        appendItem(section, accountItem(_("Hibernate Now"), "sidebar.hibernate", account.id));
    return adopt(G_MENU_MODEL(section));
}

void SidebarView::showMemory(const std::string& accountID, const std::string& text) {
    auto tile = std::find_if(m_tiles.begin(), m_tiles.end(), [&](GtkWidget* t) { return tileAccountID(t) == accountID; });
    if (tile == m_tiles.end())
        return;
    if (auto* label = static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(*tile), kMemoryLabelKey)))
        gtk_label_set_text(GTK_LABEL(label), text.c_str());
}

void SidebarView::openContextMenu(const std::string& accountID) {
    auto tile = std::find_if(m_tiles.begin(), m_tiles.end(), [&](GtkWidget* t) { return tileAccountID(t) == accountID; });
    if (tile == m_tiles.end())
        return;
    if (m_manager.isAsleep(accountID)) {
        showMemory(accountID, _("Asleep: its page uses no memory"));
    } else {
        showMemory(accountID, _("Page memory: measuring\u2026"));
        Lifetime::Watch alive = m_lifetime.watch();
        m_manager.measureMemory(accountID, [this, alive, accountID](std::optional<uint64_t> bytes) {
            if (!alive.alive())
                return;
            GCharPtr size(bytes ? g_format_size(*bytes) : nullptr);
            GCharPtr text(size ? g_strdup_printf(_("Page memory: %s"), size.get()) : g_strdup(_("Page memory: unknown")));
            showMemory(accountID, text.get());
        });
    }
    if (GtkPopover* menu = tileMenu(*tile))
        gtk_popover_popup(menu);
}

// --- Actions ---------------------------------------------------------------

void SidebarView::addAction(const char* name, bool takesAccountID, ActionHandler handler) {
    GSimpleAction* action = g_simple_action_new(name, takesAccountID ? G_VARIANT_TYPE_STRING : nullptr);
    auto binding = std::make_unique<ActionBinding>(ActionBinding { this, handler });
    m_actionConnections.push_back(SignalConnection::connect(action, "activate",
        +[](GSimpleAction*, GVariant* parameter, gpointer data) {
            auto* binding = static_cast<ActionBinding*>(data);
            std::string accountID = parameter ? g_variant_get_string(parameter, nullptr) : "";
            binding->handler(*binding->self, accountID);
        }, binding.get()));
    m_bindings.push_back(std::move(binding));
    g_action_map_add_action(G_ACTION_MAP(m_actions.get()), G_ACTION(action));
    g_object_unref(action);
}

void SidebarView::installActions() {
    addAction("select", true, [](SidebarView& self, const std::string& id) {
        if (!self.findAccount(id))
            return;
        self.m_store.setSelectedAccountID(id);
        self.m_store.save();
    });
    addAction("context-menu", true, [](SidebarView& self, const std::string& id) { self.openContextMenu(id); });
    addAction("reload", true, [](SidebarView& self, const std::string& id) {
        if (WebKitWebView* view = self.m_manager.webView(id))
            webkit_web_view_reload(view);
    });
    addAction("hibernate", true, [](SidebarView& self, const std::string& id) { self.m_manager.hibernateNow(id); });
    addAction("add-calendar", true, [](SidebarView& self, const std::string& id) {
        if (auto account = self.findAccount(id); account && account->isMailSide())
            self.m_store.addCalendar(*account);
    });
    addAction("set-default", true, [](SidebarView& self, const std::string& id) {
        if (!self.findAccount(id))
            return;
        self.m_store.setDefaultMailtoAccountID(id);
        self.m_store.save();
    });
    addAction("move-up", true, [](SidebarView& self, const std::string& id) {
        if (auto account = self.findAccount(id))
            self.m_store.move(*account, -1);
    });
    addAction("move-down", true, [](SidebarView& self, const std::string& id) {
        if (auto account = self.findAccount(id))
            self.m_store.move(*account, 1);
    });
    addAction("remove", true, [](SidebarView& self, const std::string& id) {
        if (auto account = self.findAccount(id)) {
            self.m_manager.discard(*account);
            self.m_store.remove(*account);
        }
    });
    addAction("toggle-mute-notifications", true, [](SidebarView& self, const std::string& id) {
        SessionPreferences* preferences = self.m_manager.sessionPreferences();
        if (!preferences || !self.findAccount(id))
            return;
        preferences->setNotificationsMuted(id, !preferences->notificationsMuted(id));
        self.rebuild();
    });
    addAction("toggle-leave-out-of-badge", true, [](SidebarView& self, const std::string& id) {
        SessionPreferences* preferences = self.m_manager.sessionPreferences();
        if (!preferences || !self.findAccount(id))
            return;
        preferences->setLeftOutOfBadge(id, !preferences->leftOutOfBadge(id));
        self.m_manager.refreshDockBadge();
        self.rebuild();
    });
    addAction("add-gmail", false, [](SidebarView& self, const std::string&) { self.m_store.addAccount(); });
    addAction("add-outlook", false, [](SidebarView& self, const std::string&) { self.m_store.addOutlookAccount(); });

    GSimpleAction* mark = g_simple_action_new_stateful("is-default", nullptr, g_variant_new_boolean(TRUE));
    g_simple_action_set_enabled(mark, FALSE);
    g_action_map_add_action(G_ACTION_MAP(m_actions.get()), G_ACTION(mark));
    g_object_unref(mark);

    gtk_widget_insert_action_group(m_root.get(), "sidebar", G_ACTION_GROUP(m_actions.get()));
}

} // namespace orvane
