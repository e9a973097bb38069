// The removal toast in a main window; the store's rules are AccountStoreTest's.
#include "RemovalToast.h"

#include "AppPaths.h"
#include "AvatarView.h"
#include "Files.h"
#include "MainWindow.h"
#include "WidgetTest.h"

namespace orvane::test {
namespace {

using RemovalToastTest = WidgetTest;

TEST_F(RemovalToastTest, UndoBringsTheAccountBackWithItsSessionAndItsDataGoesWithTheToast) {
    const Account work = addAccount("Work & <Home>"), other = addAccount("Other");
    auto main = std::make_unique<MainWindow>(nullptr, *store, *manager, nullptr);
    gtk_window_present(main->window());
    auto remove = [&](const Account& account) {
        GtkWidget* tile
            = findWidget(GTK_WIDGET(main->window()), [](GtkWidget* w) { return ORVANE_IS_AVATAR_VIEW(w); });
        return gtk_widget_activate_action(tile, "sidebar.remove", "s", account.id.c_str());
    };
    WebKitNetworkSession* session = manager->networkSession(work.dataStoreID);
    const std::vector<Account> before = store->accounts();

    ASSERT_TRUE(remove(work));
    EXPECT_STREQ(adw_toast_get_title(main->removals().toast()), "“Work &amp; &lt;Home&gt;” removed");
    ASSERT_TRUE(remove(other));
    EXPECT_STREQ(adw_toast_get_title(main->removals().toast()), "2 accounts removed");
    gtk_widget_activate(findWidget(GTK_WIDGET(main->window()), [](GtkWidget* w) {
        return GTK_IS_BUTTON(w) && g_strcmp0(gtk_button_get_label(GTK_BUTTON(w)), "_Undo") == 0;
    }));
    EXPECT_TRUE(waitUntil([&] {
        return store->accounts() == before && manager->webView(work.id) && !main->removals().toast();
    }));
    EXPECT_EQ(manager->networkSession(work.dataStoreID), session) << "signed in as before";

    // Closed, the toast commits, and so does the window's end.
    const std::string workData = AppPaths::websiteDataDir(work.dataStoreID);
    const std::string otherData = AppPaths::websiteDataDir(other.dataStoreID);
    ASSERT_TRUE(remove(work));
    adw_toast_dismiss(main->removals().toast());
    ASSERT_TRUE(remove(other));
    EXPECT_TRUE(!Files::exists(workData) && Files::exists(otherData));
    main.reset();
    EXPECT_FALSE(Files::exists(otherData));
}

} // namespace
} // namespace orvane::test
