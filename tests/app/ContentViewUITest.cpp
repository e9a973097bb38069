// The main window's content: the empty state, the working layout and the web
// area's rules (one view per account, added once, only the selected shown).
#include "ContentView.h"

#include "Files.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"
#include "WebViewManager.h"

#include <adwaita.h>
#include <gtest/gtest.h>

#include <set>

using namespace orvane;
using namespace orvane::test;

namespace {

class ContentViewTest : public testing::Test {
protected:
    void SetUp() override {
        adw_init();
        freshXDGFolders();
        sendServicesNowhere();
        store = std::make_unique<AccountStore>();
        manager = std::make_unique<WebViewManager>();
        manager->configure(*store);
        content = std::make_unique<ContentView>(*store, *manager);
        window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(window, 900, 600);
        gtk_window_set_child(window, content->widget());
        content->refresh();
        gtk_window_present(window);
    }

    void TearDown() override {
        content.reset();
        gtk_window_destroy(window);
        manager.reset();
        store.reset();
        drainEvents();
    }

    GtkWidget* viewOf(const Account& account) { return GTK_WIDGET(manager->webView(account.id)); }

    // The web area's children other than its empty page.
    std::set<GtkWidget*> webAreaViews() {
        std::set<GtkWidget*> views;
        for (const Account& account : store->accounts()) {
            GtkWidget* parent = viewOf(account) ? gtk_widget_get_parent(viewOf(account)) : nullptr;
            for (GtkWidget* child = parent ? gtk_widget_get_first_child(parent) : nullptr; child; child = gtk_widget_get_next_sibling(child)) {
                if (WEBKIT_IS_WEB_VIEW(child))
                    views.insert(child);
            }
        }
        return views;
    }

    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    std::unique_ptr<ContentView> content;
    GtkWindow* window = nullptr;
};

TEST_F(ContentViewTest, EmptyStateButtonIsTheDefaultAndAddsTheFirstGmailAccount) {
    EXPECT_TRUE(content->showsEmptyState());
    EXPECT_EQ(gtk_window_get_default_widget(window), content->addAccountButton());
    EXPECT_EQ(content->visibleWebView(), nullptr);

    // What Return does: activate the window's default widget.
    // A realized button shows itself pressed for a moment before it clicks.
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(window), "default.activate", nullptr));
    ASSERT_TRUE(waitUntil([&] { return store->accounts().size() == 1; }));
    const Account account = store->accounts().front();
    EXPECT_EQ(account.effectiveService(), AccountService::Mail);
    EXPECT_FALSE(content->showsEmptyState());
    EXPECT_EQ(content->visibleWebView(), viewOf(account));
    // Return now belongs to the page.
    EXPECT_EQ(gtk_window_get_default_widget(window), nullptr);

    // Removing the last account goes back to the empty state, without the
    // removed account's view.
    manager->discard(account);
    store->remove(account);
    EXPECT_TRUE(content->showsEmptyState());
    EXPECT_EQ(gtk_window_get_default_widget(window), content->addAccountButton());
    EXPECT_TRUE(webAreaViews().empty());
}

TEST_F(ContentViewTest, EveryAccountHasItsOwnViewAddedOnceAndOnlyTheSelectedIsShown) {
    const Account gmail = store->addAccount();
    const Account outlook = store->addOutlookAccount();
    const Account calendar = store->addCalendar(gmail);
    ASSERT_EQ(store->accounts().size(), 3u);

    // Every account's view exists as soon as the layout shows, the calendar
    // companion's too, although it shares the Gmail account's session.
    std::set<GtkWidget*> views { viewOf(gmail), viewOf(outlook), viewOf(calendar) };
    ASSERT_EQ(views.size(), 3u);
    EXPECT_FALSE(views.contains(nullptr));
    EXPECT_EQ(webAreaViews(), views);

    int reparented = 0;
    std::vector<gulong> handlers;
    for (GtkWidget* view : views)
        handlers.push_back(g_signal_connect_swapped(view, "notify::parent", G_CALLBACK(+[](int* count) { ++*count; }), &reparented));

    for (int round = 0; round < 2; ++round) {
        for (int index = 0; index < 3; ++index) {
            store->select(index);
            const Account& selected = store->accounts()[size_t(index)];
            EXPECT_EQ(content->visibleWebView(), viewOf(selected));
            for (GtkWidget* view : views)
                EXPECT_EQ(gtk_widget_get_child_visible(view), view == viewOf(selected));
        }
    }
    EXPECT_EQ(reparented, 0);
    auto it = views.begin();
    for (gulong handler : handlers)
        g_signal_handler_disconnect(*it++, handler);

    // A selection that names no account shows nothing.
    store->setSelectedAccountID(std::string("00000000-0000-4000-8000-000000000000"));
    EXPECT_EQ(content->visibleWebView(), nullptr);

    // Removing the selected account shows the first remaining one and takes
    // the removed account's view out of the web area.
    store->select(1);
    GtkWidget* removedView = viewOf(outlook);
    g_object_ref(removedView);
    manager->discard(outlook);
    store->remove(outlook);
    EXPECT_EQ(gtk_widget_get_parent(removedView), nullptr);
    g_object_unref(removedView);
    EXPECT_EQ(store->selectedAccountID(), gmail.id);
    EXPECT_EQ(content->visibleWebView(), viewOf(gmail));
    EXPECT_EQ(webAreaViews(), (std::set<GtkWidget*> { viewOf(gmail), viewOf(calendar) }));
}

} // namespace
