// The account column: its tiles follow the store, its menus and actions
// change the store, and real clicks, presses and keys reach them.
#include "SidebarView.h"

#include "AppPaths.h"
#include "AvatarView.h"
#include "Files.h"
#include "MainWindow.h"
#include "WidgetTest.h"
#include "XInput.h"

namespace orvane::test {
namespace {

const Strings kMailMenu = { "—", "Reload→sidebar.reload", "Add Calendar→sidebar.add-calendar",
    "Set as default for email links→sidebar.set-default", "—",
    "Mute Notifications→tile.mute-notifications", "Leave Out of Dock Badge→tile.leave-out-of-badge", "—",
    "Move Up→sidebar.move-up", "Move Down→sidebar.move-down", "—", "Remove Account→sidebar.remove" };

// The model button of a shown menu with this text.
GtkWidget* menuButton(GtkWidget* menu, const char* text) {
    return findWidget(menu, [&](GtkWidget* widget) {
        char* shown = nullptr;
        if (g_strcmp0(G_OBJECT_TYPE_NAME(widget), "GtkModelButton") == 0)
            g_object_get(widget, "text", &shown, nullptr);
        return g_strcmp0(GCharPtr(shown).get(), text) == 0;
    });
}

class SidebarViewTest : public WidgetTest {
protected:
    // What the column shows, top to bottom: tile labels, "|" for the divider.
    Strings column() {
        Strings shown;
        for (GtkWidget* c = gtk_widget_get_first_child(stack()); c; c = gtk_widget_get_next_sibling(c))
            if (gtk_widget_get_visible(c))
                shown.push_back(ORVANE_IS_AVATAR_VIEW(c)
                        ? orvane_avatar_view_get_account(ORVANE_AVATAR_VIEW(c)).label
                        : "|");
        return shown;
    }
    GtkWidget* scroller() { return gtk_widget_get_first_child(sidebar->widget()); }
    GtkWidget* stack() {
        GtkWidget* viewport = gtk_scrolled_window_get_child(GTK_SCROLLED_WINDOW(scroller()));
        return gtk_viewport_get_child(GTK_VIEWPORT(viewport));
    }
    GtkWidget* addButton() { return gtk_widget_get_last_child(sidebar->widget()); }
    OrvaneAvatarView* tile(const Account& account) {
        return ORVANE_AVATAR_VIEW(findWidget(stack(), [&](GtkWidget* w) {
            return ORVANE_IS_AVATAR_VIEW(w)
                && orvane_avatar_view_get_account(ORVANE_AVATAR_VIEW(w)).id == account.id;
        }));
    }
    bool activate(const char* action, const std::string& accountID) {
        return gtk_widget_activate_action(sidebar->widget(), action, "s", accountID.c_str());
    }
    std::string saved() { return Files::read(AppPaths::accountsFile(), 1 << 20).value_or(""); }

    std::unique_ptr<SidebarView> sidebar;
};

TEST_F(SidebarViewTest, TilesFollowTheStoreAndTheirMenusAndRealInputChangeIt) {
    Preferences preferences;
    SessionPreferences session(preferences);
    manager->setSessionPreferences(session);
    sidebar = std::make_unique<SidebarView>(*store, *manager);
    present(sidebar->widget(), -1, 600);
    EXPECT_EQ(column(), Strings {});
    const Account work = addAccount("Work");
    const Account calendar = store->addCalendar(work);
    const Account home = addAccount("Home", AccountService::Outlook);
    const Account other = addAccount("Other");
    EXPECT_EQ(column(), (Strings { "Work", "Home", "Other", "|", "Work" }));

    // A count and a new name arrive through the page title.
    OrvaneAvatarView* before = tile(work);
    store->setSelectedAccountID(work.id);
    WebKitWebView* view = manager->webView(*store->account(other.id));
    waitUntil([&] { return !webkit_web_view_is_loading(view); }); // its first load, to a closed port
    webkit_web_view_load_html(
        view, "<title>Inbox (7) - other@example.com - Gmail</title>", "http://127.0.0.1:9/");
    EXPECT_TRUE(waitUntil([&] { return orvane_avatar_view_get_unread(tile(other)) == 7; }));
    EXPECT_STREQ(gtk_widget_get_tooltip_text(GTK_WIDGET(tile(other))), "other@example.com");
    // Tiles are reused across updates, selected, badged (calendars and the
    // mail accounts that have one). What a screen reader finds, right after
    // the rename: the "Accounts" tab list, each tile a tab named by its label,
    // described by its service and count, and selected or not.
    EXPECT_EQ(tile(work), before);
    EXPECT_EQ(accessibleMismatch(stack(), GTK_ACCESSIBLE_PROPERTY_LABEL, "Accounts"), "");
    for (const auto& [account, label, selected, badge, description] :
        { std::tuple { work, "Work", true, true, "Gmail" }, { home, "Home", false, false, "Outlook" },
            { calendar, "Work", false, true, "Google Calendar" },
            { other, "other@example.com", false, false, "Gmail, 7 unread" } }) {
        GtkWidget* widget = GTK_WIDGET(tile(account));
        EXPECT_EQ(bool(orvane_avatar_view_get_selected(tile(account))), selected) << description;
        EXPECT_EQ(bool(orvane_avatar_view_get_show_badge(tile(account))), badge) << description;
        EXPECT_TRUE(gtk_test_accessible_has_role(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_ROLE_TAB));
        EXPECT_EQ(accessibleMismatch(widget, GTK_ACCESSIBLE_PROPERTY_LABEL, label), "") << description;
        EXPECT_EQ(accessibleMismatch(widget, GTK_ACCESSIBLE_PROPERTY_DESCRIPTION, description), "");
        EXPECT_FALSE(GCharPtr(gtk_test_accessible_check_state(
            GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_STATE_SELECTED, selected)))
            << description;
    }

    // Moving swaps in the store (whose rules, the ends and saving, are AccountStoreTest's).
    ASSERT_TRUE(activate("sidebar.move-down", work.id) && activate("sidebar.move-up", other.id));
    EXPECT_EQ(column(), (Strings { "Home", "other@example.com", "Work", "|", "Work" }));

    // Each kind's menu, and the default account's.
    EXPECT_EQ(menuItems(sidebar->contextMenu(calendar).get()),
        (Strings { "—", "Reload→sidebar.reload", "—", "Mute Notifications→tile.mute-notifications",
            "—", "Move Up→sidebar.move-up", "Move Down→sidebar.move-down", "—",
            "Remove Account→sidebar.remove" }));
    ASSERT_TRUE(activate("sidebar.set-default", home.id));
    EXPECT_NE(saved().find("\"defaultMailtoAccountID\":\"" + home.id + "\""), std::string::npos);
    Strings defaultMenu = kMailMenu;
    defaultMenu[3] = "Default for email links→sidebar.is-default";
    EXPECT_EQ(menuItems(sidebar->contextMenu(home).get()), defaultMenu);
    EXPECT_EQ(menuItems(sidebar->contextMenu(work).get()), kMailMenu);
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(tile(home)), "tile.leave-out-of-badge", nullptr));
    EXPECT_TRUE(session.leftOutOfBadge(home.id) && !session.leftOutOfBadge(work.id)
        && !session.notificationsMuted(home.id));

    // A secondary click opens the menu and selects nothing. Shown, the
    // default account's item is a ticked, inert check, and removal is marked.
    ASSERT_TRUE(canSendXInput(sidebar->widget())) << "needs X11 and xdotool (tools/setup.sh installs them)";
    GtkWidget* homeTile = GTK_WIDGET(tile(home));
    GtkWidget* menu = findWidget(homeTile, [](GtkWidget* w) { return GTK_IS_POPOVER_MENU(w); });
    auto menuShows = [&](bool on) { return waitUntil([&] { return gtk_widget_get_mapped(menu) == on; }); };
    ASSERT_TRUE(pointerAt(homeTile, { "click", "3" }));
    ASSERT_TRUE(menuShows(true));
    EXPECT_EQ(store->selectedAccountID(), work.id);
    GtkWidget* mark = menuButton(menu, "Default for email links");
    gboolean ticked = FALSE, left = FALSE;
    g_object_get(mark, "active", &ticked, nullptr);
    g_object_get(menuButton(menu, "Leave Out of Dock Badge"), "active", &left, nullptr);
    EXPECT_TRUE(ticked && !gtk_widget_is_sensitive(mark) && left);
    EXPECT_TRUE(gtk_widget_has_css_class(menuButton(menu, "Remove Account"), "error"));
    // Choosing an item with the pointer closes the menu and runs the command;
    // the column takes clicks again right after (the table's first row).
    GtkWidget* addCalendar = menuButton(menu, "Add Calendar");
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(addCalendar); }));
    ASSERT_TRUE(pointerAt(addCalendar, { "click", "1" }));
    ASSERT_TRUE(waitUntil([&] { return store->calendarAccounts().size() == 2; }));
    EXPECT_TRUE(menuShows(false));

    // A click or Return selects and saves. A press held past the long-press
    // delay (and the release that comes before the Escape), Shift+F10 and the
    // Menu key open the menu and select nothing.
    const std::tuple<Strings, const char*, bool> inputs[] = {
        { { "click", "1" }, "", false }, { {}, "Return", false }, { { "mousedown", "1" }, "", true },
        { {}, "shift+F10", true }, { {}, "Menu", true } };
    for (const auto& [pointer, keys, opensMenu] : inputs) {
        SCOPED_TRACE(*keys ? keys : pointer[0]);
        store->setSelectedAccountID(std::nullopt);
        gtk_widget_grab_focus(homeTile);
        ASSERT_TRUE(*keys ? pressKeys(keys, homeTile) : pointerAt(homeTile, pointer));
        if (!opensMenu) {
            EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == home.id; }));
            EXPECT_NE(saved().find("\"selectedAccountID\":\"" + home.id + "\""), std::string::npos);
            continue;
        }
        EXPECT_TRUE(menuShows(true));
        EXPECT_TRUE(pointer != Strings({ "mousedown", "1" }) || runXdotool({ "mouseup", "1" }));
        ASSERT_TRUE(pressKeys("Escape", menu));
        ASSERT_TRUE(menuShows(false));
        EXPECT_FALSE(store->selectedAccountID().has_value());
    }

    // Removing discards the view (WebViewManagerWebTest: it goes) before the
    // store tells of the removal.
    manager->webView(*store->account(work.id));
    std::optional<bool> viewAtRemoval;
    auto watch = store->observe([&](unsigned) {
        if (!store->account(work.id) && !viewAtRemoval)
            viewAtRemoval = manager->webView(work.id) != nullptr;
    });
    ASSERT_TRUE(activate("sidebar.remove", work.id));
    EXPECT_EQ(viewAtRemoval, false);
    EXPECT_TRUE(activate("sidebar.remove", "00000000-0000-0000-0000-000000000000"))
        << "unknown ids are ignored";
    EXPECT_EQ(store->accounts().size(), 4u);

    // Reload reloads an existing view, and makes none.
    const Account fresh = addAccount("Fresh");
    ASSERT_TRUE(activate("sidebar.reload", fresh.id));
    EXPECT_EQ(manager->webView(fresh.id), nullptr);
    // Loaded (the title's page); nothing runs between this wait and the reload.
    ASSERT_TRUE(waitUntil([&] { return !webkit_web_view_is_loading(view); }));
    ASSERT_TRUE(activate("sidebar.reload", other.id));
    EXPECT_TRUE(webkit_web_view_is_loading(view));

    // Only calendar accounts: no divider above them. The add button offers
    // Gmail and Outlook.
    for (const Account& account : store->mailAccounts())
        store->remove(account);
    EXPECT_EQ(column(), (Strings { "Home", "Work" }));
    GtkWidget* add = addButton();
    EXPECT_EQ(menuItems(gtk_menu_button_get_menu_model(GTK_MENU_BUTTON(add))),
        (Strings { "Gmail account→sidebar.add-gmail", "Outlook account→sidebar.add-outlook" }));
    ASSERT_TRUE(gtk_widget_activate_action(add, "sidebar.add-gmail", nullptr)
        && gtk_widget_activate_action(add, "sidebar.add-outlook", nullptr));
    EXPECT_EQ(column(), (Strings { "New Account", "Outlook", "|", "Home", "Work" }));

    // Many accounts scroll within the window's floor, the add button in view.
    for (int i = 0; i < 20; ++i)
        addAccount("Account " + std::to_string(i));
    int minimum = 0;
    gtk_widget_measure(sidebar->widget(), GTK_ORIENTATION_VERTICAL, -1, &minimum, nullptr, nullptr, nullptr);
    EXPECT_LE(minimum, MainWindow::kMinimumHeight);
    auto inView = [&](GtkWidget* widget, GtkWidget* area) {
        graphene_rect_t bounds;
        return gtk_widget_compute_bounds(widget, area, &bounds) && bounds.origin.y >= 0
            && bounds.origin.y + bounds.size.height <= gtk_widget_get_height(area);
    };
    GtkWidget* last = GTK_WIDGET(tile(store->accounts().back()));
    ASSERT_TRUE(waitUntil([&] { return !inView(last, scroller()); })) << "once laid out, below the fold";
    EXPECT_TRUE(inView(addButton(), sidebar->widget()));
    gtk_widget_grab_focus(last); // as Tab would
    EXPECT_TRUE(waitUntil([&] { return inView(last, scroller()); }));
}

} // namespace
} // namespace orvane::test
