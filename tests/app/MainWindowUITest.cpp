// The main window's search bar and removal toast. The keys that open and
// close the search bar, through the real binary, are PageKeysTest's; the
// store's removal rules are AccountStoreTest's.
#include "MainWindow.h"

#include "AppPaths.h"
#include "AvatarView.h"
#include "ContentView.h"
#include "Files.h"
#include "PageTools.h"
#include "RemovalToast.h"
#include "WidgetTest.h"

namespace orvane::test {
namespace {

using MainWindowTest = WidgetTest;

TEST_F(MainWindowTest, SearchCountsThePagesMatchesAndTheRemovalToastUndoesUntilItGoes) {
    const Account work = addAccount("Work & <Home>"), other = addAccount("Other");
    Preferences preferences;
    SessionPreferences session(preferences);
    auto main = std::make_unique<MainWindow>(nullptr, *store, *manager, nullptr);
    auto tools = std::make_unique<PageTools>(*main, *store, *manager, session);
    gtk_window_present(main->window());

    // The search bar counts the selected page's matches as one types,
    // whatever their case, and marks the entry when there are none.
    auto* page = WEBKIT_WEB_VIEW(main->content().visibleWebView());
    const std::string uri = "http://127.0.0.1/";
    webkit_web_view_load_html(page, "<p>hay needle hay NEEDLE haystack</p>", uri.c_str());
    auto loaded = [&] { return !webkit_web_view_is_loading(page) && webkit_web_view_get_uri(page) == uri; };
    ASSERT_TRUE(waitUntil(loaded));
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(main->window()), "page.find", nullptr));
    const std::pair<const char*, std::string> cases[] = { { "needle", "2 matches" }, { "hay", "3 matches" },
        { "needle haystack", "1 match" }, { "thread", "No matches" }, { "", "" } };
    for (auto [text, count] : cases) {
        gtk_editable_set_text(GTK_EDITABLE(tools->searchEntry()), text);
        GtkLabel* label = GTK_LABEL(tools->matchLabel());
        EXPECT_TRUE(waitUntil([&] { return gtk_label_get_text(label) == count; })) << text;
        EXPECT_EQ(gtk_widget_has_css_class(tools->searchEntry(), "error"), count == "No matches") << text;
    }

    // The toast names what it removed; its Undo brings the accounts back,
    // signed in as before.
    auto remove = [&](const Account& account) {
        GtkWidget* tile
            = findWidget(GTK_WIDGET(main->window()), [](GtkWidget* w) { return ORVANE_IS_AVATAR_VIEW(w); });
        return gtk_widget_activate_action(tile, "sidebar.remove", "s", account.id.c_str());
    };
    WebKitNetworkSession* signedIn = manager->networkSession(work.dataStoreID);
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
    EXPECT_EQ(manager->networkSession(work.dataStoreID), signedIn);

    // Closed, the toast commits, and so does the window's end.
    const std::string workData = AppPaths::websiteDataDir(work.dataStoreID);
    const std::string otherData = AppPaths::websiteDataDir(other.dataStoreID);
    ASSERT_TRUE(remove(work));
    adw_toast_dismiss(main->removals().toast());
    ASSERT_TRUE(remove(other));
    EXPECT_TRUE(!Files::exists(workData) && Files::exists(otherData));
    tools.reset();
    main.reset();
    EXPECT_FALSE(Files::exists(otherData));
}

} // namespace
} // namespace orvane::test
