// Removing an account from the main window: the toast's Undo brings it back
// with its session, and its data goes only with the toast. Where a pending
// removal goes back and what committing deletes is AccountStoreTest's.
#include "RemovalToast.h"

#include "AppPaths.h"
#include "AvatarView.h"
#include "Files.h"
#include "MainWindow.h"
#include "WidgetTest.h"

namespace orvane::test {
namespace {

// The first descendant that `match` picks.
GtkWidget* find(GtkWidget* root, const std::function<bool(GtkWidget*)>& match) {
    for (GtkWidget* c = gtk_widget_get_first_child(root); c; c = gtk_widget_get_next_sibling(c))
        if (GtkWidget* found = match(c) ? c : find(c, match))
            return found;
    return nullptr;
}

using RemovalToastTest = WidgetTest;

TEST_F(RemovalToastTest, UndoBringsTheAccountBackWithItsSessionAndItsDataGoesWithTheToast) {
    const Account work = addAccount("Work & <Home>"), other = addAccount("Other");
    store->setSelectedAccountID(work.id);
    auto main = std::make_unique<MainWindow>(nullptr, *store, *manager, nullptr);
    gtk_window_present(main->window());
    GtkWidget* root = GTK_WIDGET(main->window());
    auto remove = [&](const Account& account) {
        GtkWidget* tile = find(root, [](GtkWidget* w) { return ORVANE_IS_AVATAR_VIEW(w); });
        return gtk_widget_activate_action(tile, "sidebar.remove", "s", account.id.c_str());
    };
    auto title = [&] { return std::string(adw_toast_get_title(main->removals().toast())); };
    const std::string data = AppPaths::websiteDataDir(work.dataStoreID);
    WebKitNetworkSession* session = manager->networkSession(work.dataStoreID);
    const std::vector<Account> before = store->accounts();

    ASSERT_TRUE(remove(work));
    EXPECT_EQ(title(), "“Work &amp; &lt;Home&gt;” removed");
    EXPECT_FALSE(manager->webView(work.id) || store->account(work.id)) << "the view and the tile go at once";
    ASSERT_TRUE(remove(other));
    EXPECT_EQ(title(), "2 accounts removed");
    GtkWidget* undo = nullptr;
    ASSERT_TRUE(waitUntil([&] { return undo = find(root, [](GtkWidget* w) {
        return GTK_IS_BUTTON(w) && g_strcmp0(gtk_button_get_label(GTK_BUTTON(w)), "_Undo") == 0; }); }));
    gtk_widget_activate(undo);
    ASSERT_TRUE(waitUntil([&] { return store->accounts() == before; }));
    EXPECT_EQ(store->selectedAccountID(), work.id);
    EXPECT_TRUE(Files::exists(data));
    EXPECT_EQ(manager->networkSession(work.dataStoreID), session) << "signed in as before";
    EXPECT_TRUE(waitUntil([&] { return manager->webView(work.id) && !main->removals().toast(); }));

    // Closed or gone with the window, the toast commits.
    ASSERT_TRUE(remove(work));
    adw_toast_dismiss(main->removals().toast());
    EXPECT_FALSE(Files::exists(data));
    ASSERT_TRUE(remove(other));
    main.reset();
    EXPECT_TRUE(store->pendingRemovals().empty());
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
}

} // namespace
} // namespace orvane::test
