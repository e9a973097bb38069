// The account column: its tiles follow the store, its menus and actions
// change the store, and real clicks, presses and keys reach them. The tile
// itself, whose drawing is the feature: its pixels are checked. The colours
// and texts it draws from are AvatarStyleTest's.
#include "SidebarView.h"

#include "AppPaths.h"
#include "AvatarView.h"
#include "Files.h"
#include "MainWindow.h"
#include "WidgetTest.h"
#include "XInput.h"
#include "support/Screenshot.h"

#include <cmath>

namespace orvane::test {

using Color = Screenshot::Color;
static std::ostream& operator<<(std::ostream& out, const Color& c) {
    return out << "rgb(" << c.red << "," << c.green << "," << c.blue << ")";
}

namespace {

constexpr double kSize = 44;
constexpr int kMargin = 20, kSide = 2 * kMargin + int(kSize);
constexpr Color kBackground { 0xfa, 0xfa, 0xfa }, kWhite { 0xff, 0xff, 0xff }, kDisc { 204, 153, 102 };
constexpr int64_t kSeed = 30; // its disc's three channels differ: none can stand in for another
constexpr Color kMail { 0xeb, 0x42, 0x36 }, kCalendar { 0x42, 0x85, 0xf5 }, kUnread { 0xe0, 0x1b, 0x24 };

// One tile with a margin around it, rendered by its window's renderer.
class AvatarViewTest : public WidgetTest {
protected:
    void SetUp() override {
        WidgetTest::SetUp();
        tile = ORVANE_AVATAR_VIEW(orvane_avatar_view_new());
        GtkWidget* area = gtk_fixed_new();
        gtk_fixed_put(GTK_FIXED(area), GTK_WIDGET(tile), kMargin, kMargin);
        present(area, kSide, kSide);
    }
    void show(int64_t seed, std::optional<AccountService> service = std::nullopt, std::string photo = "") {
        shown = Account { .label = "Work", .avatarFileName = photo, .colorSeed = seed, .service = service };
        orvane_avatar_view_set_account(tile, shown);
    }
    // Renders the window into a picture; pixels are then read at offsets
    // from the tile's corner. A widget whose size is being recomputed has
    // nothing to draw yet.
    void render() {
        drainEvents();
        auto paintable = adopt(gtk_widget_paintable_new(GTK_WIDGET(window)));
        GskRenderNode* node = nullptr;
        ASSERT_TRUE(waitUntil([&] {
            GtkSnapshot* snapshot = gtk_snapshot_new();
            gdk_paintable_snapshot(paintable.get(), snapshot, kSide, kSide);
            return (node = gtk_snapshot_free_to_node(snapshot)) != nullptr;
        }, 5s));
        GskRenderer* renderer = gtk_native_get_renderer(GTK_NATIVE(window));
        auto texture = adopt(gsk_renderer_render_texture(renderer, node, nullptr));
        gsk_render_node_unref(node);
        std::string path = makeTempFolder("avatar") + "/tile.png";
        ASSERT_TRUE(gdk_texture_save_to_png(texture.get(), path.c_str()));
        shot = Screenshot::load(path);
        ASSERT_TRUE(shot);
    }
    Color at(double dx, double dy) const { return shot->pixel(int(kMargin + dx), int(kMargin + dy)); }
    bool anyNear(Color color, double x0, double y0, double x1, double y1, int tolerance) const {
        Screenshot::Rect area { int(kMargin + x0), int(kMargin + y0), int(x1 - x0), int(y1 - y0) };
        return shot->share(area, color, tolerance) > 0;
    }

    OrvaneAvatarView* tile = nullptr;
    Account shown;
    int notified = 0; // outlives the tile
    std::optional<Screenshot> shot;
};

TEST_F(AvatarViewTest, DiscRingBadgeCapsuleAndPhotoAreDrawnWithoutResizingAndOnlyChangesNotify) {
    // The initial in white at the disc's centre; the disc's colour is checked with the photos below.
    show(kSeed);
    render();
    EXPECT_TRUE(anyNear(kWhite, kSize / 2 - 6, kSize / 2 - 6, kSize / 2 + 6, kSize / 2 + 6, 10));
    // The selection ring is drawn outside the tile; without it and the
    // badge, the space around is background.
    EXPECT_TRUE(at(-3, kSize / 2).near(kBackground, 4)) << at(-3, kSize / 2);
    EXPECT_TRUE(at(kSize + 2, kSize + 2).near(kBackground, 4));
    orvane_avatar_view_set_selected(tile, TRUE);
    render();
    for (auto [dx, dy] : { std::pair { -3.5, kSize / 2 }, { kSize / 2, -3.5 }, { kSize + 3, kSize / 2 },
             { kSize / 2, kSize + 3 } })
        EXPECT_TRUE(at(dx, dy).near({ 0x35, 0x84, 0xe4 }, 12)) << dx << "," << dy << ": " << at(dx, dy);
    EXPECT_TRUE(at(-0.9, kSize / 2).near(kBackground, 40)) << at(-0.9, kSize / 2);
    EXPECT_TRUE(at(-6, kSize / 2).near(kBackground, 4)) << at(-6, kSize / 2);

    // The service badge: red for mail, blue for calendars, overhanging the
    // tile's corner, ringed in the background colour, a white symbol inside.
    orvane_avatar_view_set_show_badge(tile, TRUE);
    const double side = kSize * 0.4, left = kSize - side + 4, top = kSize - side + 4;
    for (auto [service, color] :
        { std::pair { std::optional<AccountService>(), kMail }, { AccountService::Calendar, kCalendar } }) {
        SCOPED_TRACE(color.blue);
        show(200, service);
        render();
        EXPECT_TRUE(at(left + side / 2, top + side - 3).near(color, 3))
            << at(left + side / 2, top + side - 3);
        EXPECT_TRUE(at(kSize - 5, kSize + 1).near(color, 3)) << at(kSize - 5, kSize + 1);
        EXPECT_TRUE(at(left + side / 2, top + side - 0.7).near(kBackground, 6)) << "the ring";
        EXPECT_TRUE(anyNear(kWhite, left + 2, top + 2, left + side - 2, top + side - 2, 30));
    }

    // The unread capsule from one up, its red run on its middle row measured
    // from the tile's right edge, white text inside.
    orvane_avatar_view_set_show_badge(tile, FALSE);
    orvane_avatar_view_set_selected(tile, FALSE);
    show(kSeed);
    std::map<int64_t, int> runs;
    for (int64_t unread : { 0, 99, 100 }) {
        orvane_avatar_view_set_unread(tile, unread);
        render();
        for (double x = kSize - 1.5; x > 0; --x)
            runs[unread] += at(x, 7).near(kUnread, 20);
        EXPECT_EQ(runs[unread] > 3, unread > 0) << unread;
        EXPECT_EQ(at(kSize - 3, 7).near(kUnread, 20), unread > 0) << unread << ": " << at(kSize - 3, 7);
        EXPECT_TRUE(unread <= 0 || anyNear(kWhite, kSize - 30, 2, kSize, 13, 30)) << unread << ": white text";
    }
    EXPECT_GT(runs[100], runs[99]) << "99+ is wider than 99";

    // A photo when the file in the avatars folder is an image, else the disc.
    const std::string folder = AppPaths::avatarsDir();
    auto pixbuf = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 30, 60));
    gdk_pixbuf_fill(pixbuf.get(), 0x10c020ff);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/photo.png").c_str(), "png", nullptr, nullptr));
    ASSERT_TRUE(Files::replaceAtomically(folder + "/garbage.png", "this is not an image"));
    for (const char* file : { "photo.png", "garbage.png", "missing.png" }) {
        show(kSeed, std::nullopt, file);
        bool photo = file == std::string("photo.png");
        render();
        // Scaled to fill (a tall image covers the whole width), clipped to a
        // circle; else the disc (the initial at its centre).
        Color expected = photo ? Color { 0x10, 0xc0, 0x20 } : kDisc;
        for (double dx : { photo ? kSize / 2 : 6, 3.0 })
            EXPECT_TRUE(at(dx, kSize / 2).near(expected, 3)) << file << ": " << at(dx, kSize / 2);
        EXPECT_TRUE(at(1, 1).near(kBackground, 4)) << at(1, 1);
    }
    // A file that appears later is read on the next update of the account.
    shown.avatarFileName = "later.png";
    orvane_avatar_view_set_account(tile, shown);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/later.png").c_str(), "png", nullptr, nullptr));
    EXPECT_FALSE(orvane_avatar_view_has_photo(tile));
    orvane_avatar_view_set_account(tile, shown);
    EXPECT_TRUE(orvane_avatar_view_has_photo(tile));

    g_signal_connect_swapped(tile, "notify", G_CALLBACK(+[](int* count) { ++*count; }), &notified);
    g_object_set(tile, "selected", TRUE, "unread", gint64(5), "size", 52.0, "show-badge", TRUE, nullptr);
    g_object_set(tile, "selected", TRUE, nullptr);
    EXPECT_EQ(notified, 4) << "only changed values notify";
    EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_width(GTK_WIDGET(tile)) == 52; }));
    orvane_avatar_view_set_size(tile, std::nan(""));
    EXPECT_EQ(orvane_avatar_view_get_size(tile), 44.0);
}

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
    const Account work = addAccount("Work");
    const Account calendar = store->addCalendar(work);
    const Account home = addAccount("Home", AccountService::Outlook);
    const Account other = addAccount("Other");

    // A count and a new name arrive through the page title.
    OrvaneAvatarView* before = tile(work);
    store->setSelectedAccountID(work.id);
    WebKitWebView* view = manager->webView(*store->account(other.id));
    waitUntil([&] { return !webkit_web_view_is_loading(view); }); // its first load, to a closed port
    webkit_web_view_load_html(
        view, "<title>Inbox (7) - other@example.com - Gmail</title>", "http://127.0.0.1:9/");
    EXPECT_TRUE(waitUntil([&] { return orvane_avatar_view_get_unread(tile(other)) == 7; }));
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

    // Mail accounts, the divider, calendars. Moving swaps in the store (whose
    // rules, the ends and saving, are AccountStoreTest's).
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
    // account's switches are ticked as set, and removal is marked.
    ASSERT_TRUE(canSendXInput(sidebar->widget())) << "needs X11 and xdotool (tools/setup.sh installs them)";
    GtkWidget* homeTile = GTK_WIDGET(tile(home));
    GtkWidget* menu = findWidget(homeTile, [](GtkWidget* w) { return GTK_IS_POPOVER_MENU(w); });
    auto menuShows = [&](bool on) { return waitUntil([&] { return gtk_widget_get_mapped(menu) == on; }); };
    ASSERT_TRUE(pointerAt(homeTile, { "click", "3" }));
    ASSERT_TRUE(menuShows(true));
    EXPECT_EQ(store->selectedAccountID(), work.id);
    gboolean left = FALSE;
    g_object_get(menuButton(menu, "Leave Out of Dock Badge"), "active", &left, nullptr);
    EXPECT_TRUE(left);
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
    ASSERT_TRUE(activate("sidebar.reload", home.id));
    EXPECT_EQ(manager->webView(home.id), nullptr);
    // Loaded (the title's page); nothing runs between this wait and the reload.
    ASSERT_TRUE(waitUntil([&] { return !webkit_web_view_is_loading(view); }));
    ASSERT_TRUE(activate("sidebar.reload", other.id));
    EXPECT_TRUE(webkit_web_view_is_loading(view));

    // Only calendar accounts: no divider above them. The add button's items
    // add a Gmail and an Outlook account.
    for (const Account& account : store->mailAccounts())
        store->remove(account);
    EXPECT_EQ(column(), (Strings { "Home", "Work" }));
    GtkWidget* add = gtk_widget_get_last_child(sidebar->widget());
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
    EXPECT_TRUE(inView(add, sidebar->widget()));
}

} // namespace
} // namespace orvane::test
