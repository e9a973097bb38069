#include "AppPaths.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

constexpr const char* kSafari = "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
                                "(KHTML, like Gecko) Version/18.3 Safari/605.1.15";

class WebViewManagerWebTest : public ManagerWebFixture { };

TEST_F(WebViewManagerWebTest, ViewsAreMadeOnceAndLookupsNeverMakeOne) {
    useServices("/web/plain.html");
    const Account account = store->addAccount(); // no service: a Gmail account
    const Account never = store->addAccount();
    EXPECT_EQ(manager->webView(never.id), nullptr);

    WebKitWebView* view = show(account);
    EXPECT_EQ(manager->webView(account), view);
    EXPECT_EQ(manager->webView(account.id), view);
    ASSERT_TRUE(waitLoaded(view));
    EXPECT_EQ(manager->webView(account), view);
    EXPECT_EQ(webkit_web_view_get_uri(view), server.uri("/web/plain.html"));
    EXPECT_EQ(server.requestCount("/web/plain.html"), 1);
    EXPECT_EQ(manager->webView(never.id), nullptr);
    EXPECT_EQ(manager->accountID(view), account.id);
    EXPECT_FALSE(manager->accountID(nullptr));

    // How every account view is set up.
    WebKitSettings* settings = webkit_web_view_get_settings(view);
    EXPECT_STREQ(webkit_settings_get_user_agent(settings), kSafari);
    EXPECT_EQ(runJS(view, "navigator.userAgent").value, kSafari);
    EXPECT_TRUE(webkit_settings_get_enable_developer_extras(settings));
    GdkRGBA background { 1, 1, 1, 1 };
    webkit_web_view_get_background_color(view, &background);
    EXPECT_EQ(background.alpha, 0);
    auto handlers = runJS(view, "['orvaneNotify', 'orvanePrint', 'orvaneContextImage']"
                                ".map(n => typeof window.webkit.messageHandlers[n])");
    EXPECT_EQ(handlers.value, nlohmann::json({ "object", "object", "object" }));

    // Discard tears the view down; a later request builds and loads a new one.
    expectDeletedAtEnd(view);
    manager->discard(account);
    EXPECT_EQ(manager->webView(account.id), nullptr);
    EXPECT_EQ(gtk_widget_get_parent(GTK_WIDGET(view)), nullptr);
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/plain.html") == 1; }));
    WebKitWebView* again = show(account);
    ASSERT_TRUE(waitLoaded(again));
    EXPECT_EQ(server.requestCount("/web/plain.html"), 2);
    EXPECT_NE(webkit_web_view_get_user_content_manager(again), nullptr);
}

TEST_F(WebViewManagerWebTest, CookiesFollowTheDataStore) {
    useServices("/web/plain.html", "/web/target.html", "/web/popup.html");
    manager->configure(*store);
    const Account mail = store->addAccount();
    const Account calendar = store->addCalendar(mail);
    const Account other = store->addAccount();
    ASSERT_EQ(calendar.dataStoreID, mail.dataStoreID);

    WebKitWebView* mailView = show(mail);
    WebKitWebView* calendarView = show(calendar);
    WebKitWebView* otherView = show(other);
    for (auto* view : { mailView, calendarView, otherView })
        ASSERT_TRUE(waitLoaded(view));
    EXPECT_EQ(webkit_web_view_get_network_session(mailView), webkit_web_view_get_network_session(calendarView));
    EXPECT_NE(webkit_web_view_get_network_session(mailView), webkit_web_view_get_network_session(otherView));
    EXPECT_NE(webkit_web_view_get_user_content_manager(mailView), webkit_web_view_get_user_content_manager(calendarView));

    ASSERT_TRUE(runJS(mailView, "document.cookie = 'orvane=shared; max-age=3600; path=/'; true").ok);
    EXPECT_TRUE(waitForJS(calendarView, "document.cookie.includes('orvane=shared')"));
    EXPECT_EQ(runJS(otherView, "document.cookie").value, "");
    // The same data store again after a reload of the other account: still nothing.
    webkit_web_view_reload(otherView);
    ASSERT_TRUE(waitLoaded(otherView));
    EXPECT_EQ(runJS(otherView, "document.cookie").value, "");

    // Removing the last account of a data store forgets its session and its folders.
    EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    expectDeletedAtEnd(otherView);
    manager->discard(other);
    store->remove(other);
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    EXPECT_FALSE(Files::exists(AppPaths::websiteCacheDir(other.dataStoreID)));
    // A companion still uses the shared one: it stays.
    manager->discard(calendar);
    store->remove(calendar);
    EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(mail.dataStoreID)));
    EXPECT_EQ(manager->networkSession(mail.dataStoreID), webkit_web_view_get_network_session(mailView));
}

TEST_F(WebViewManagerWebTest, DiscardClosesTheAccountsPopups) {
    useServices("/web/links.html");
    const Account account = store->addAccount();
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    ASSERT_TRUE(runJS(view, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    WebKitWebView* popup = manager->popupViews(account.id).front();
    expectDeletedAtEnd(popup);
    expectDeletedAtEnd(gtk_widget_get_root(GTK_WIDGET(popup)));
    expectDeletedAtEnd(view);
    manager->discard(account);
    EXPECT_TRUE(manager->popupViews(account.id).empty());
}

} // namespace
} // namespace orvane::test
