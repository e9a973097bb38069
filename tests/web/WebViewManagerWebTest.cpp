#include "AppPaths.h"
#include "SpellChecking.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

constexpr const char* kSafari = "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
                                "(KHTML, like Gecko) Version/18.3 Safari/605.1.15";

class WebViewManagerWebTest : public ManagerWebFixture { };

TEST_F(WebViewManagerWebTest, ViewsAreMadeOnceLookupsNeverMakeOneAndDiscardEndsThem) {
    useServices("/web/plain.html");
    const Account account = store->addAccount(); // no service: a Gmail account
    const Account never = store->addAccount();
    WebKitWebView* view = show(account);
    EXPECT_EQ(manager->webView(account), view);
    EXPECT_EQ(manager->webView(account.id), view);
    ASSERT_TRUE(waitLoaded(view));
    EXPECT_EQ(webkit_web_view_get_uri(view), server.uri("/web/plain.html"));
    EXPECT_EQ(server.requestCount("/web/plain.html"), 1);
    EXPECT_EQ(manager->webView(never.id), nullptr);
    EXPECT_EQ(manager->accountID(view), account.id);
    EXPECT_FALSE(manager->accountID(nullptr));

    // The providers' pages see Safari; the bridges' handlers are in place;
    // developer extras are on (HACKING.md's way to the page scripts).
    EXPECT_EQ(runJS(view, "navigator.userAgent").value, kSafari);
    EXPECT_EQ(runJS(view, "['orvaneNotify', 'orvanePrint', 'orvaneContextImage']"
                          ".map(n => typeof window.webkit.messageHandlers[n])").value,
        nlohmann::json({ "object", "object", "object" }));
    EXPECT_TRUE(webkit_settings_get_enable_developer_extras(webkit_web_view_get_settings(view)));
    GdkRGBA background { 1, 1, 1, 1 };
    webkit_web_view_get_background_color(view, &background);
    EXPECT_EQ(background.alpha, 0);

    // Discard tears the view down; a later request builds and loads a new one.
    expectDeletedAtEnd(view);
    manager->discard(account);
    EXPECT_EQ(manager->webView(account.id), nullptr);
    EXPECT_EQ(gtk_widget_get_parent(GTK_WIDGET(view)), nullptr);
    ASSERT_TRUE(waitLoaded(show(account)));
    EXPECT_EQ(server.requestCount("/web/plain.html"), 2);
}

TEST_F(WebViewManagerWebTest, CookiesAndWebsiteDataFollowTheDataStore) {
    useServices("/web/plain.html");
    manager->configure(*store);
    const Account mail = store->addAccount();
    const Account calendar = store->addCalendar(mail);
    const Account other = store->addAccount();
    WebKitWebView* mailView = show(mail);
    WebKitWebView* calendarView = show(calendar);
    WebKitWebView* otherView = show(other);
    for (auto* view : { mailView, calendarView, otherView })
        ASSERT_TRUE(waitLoaded(view));
    EXPECT_NE(webkit_web_view_get_user_content_manager(mailView), webkit_web_view_get_user_content_manager(calendarView));

    ASSERT_TRUE(runJS(mailView, "document.cookie = 'orvane=shared; max-age=3600; path=/'; true").ok);
    EXPECT_TRUE(waitForJS(calendarView, "document.cookie.includes('orvane=shared')"));
    webkit_web_view_reload(otherView);
    ASSERT_TRUE(waitLoaded(otherView));
    EXPECT_EQ(runJS(otherView, "document.cookie").value, "");

    // Removing the last account of a data store forgets its session and its
    // folders; one a companion still uses stays.
    EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    expectDeletedAtEnd(otherView);
    manager->discard(other);
    store->remove(other);
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    EXPECT_FALSE(Files::exists(AppPaths::websiteCacheDir(other.dataStoreID)));
    manager->discard(calendar);
    store->remove(calendar);
    EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(mail.dataStoreID)));
    EXPECT_EQ(manager->networkSession(mail.dataStoreID), webkit_web_view_get_network_session(mailView));
}

// Spelling is checked in the locale's languages that have a dictionary
// (hunspell-en-us, which tools/install-packages.sh installs).
TEST(SpellCheckingWebTest, TheLocalesLanguagesThatHaveADictionaryAreChecked) {
    using Strings = std::vector<std::string>;
    const std::pair<std::vector<const char*>, Strings> cases[] = {
        { { "de_DE.UTF-8", "de_DE", "de.UTF-8", "de", "C", nullptr }, { "de_DE", "de" } },
        { { "sr_RS@latin", "sr_RS", "sr@latin", "POSIX", "", nullptr }, { "sr_RS", "sr" } },
    };
    for (const auto& [names, expected] : cases)
        EXPECT_EQ(SpellChecking::languages(names.data()), expected) << names[0];
    g_setenv("LANGUAGE", "xx_YY:en_US:en", TRUE);
    EXPECT_EQ(SpellChecking::apply(true), Strings { "en_US" });
}

} // namespace
} // namespace orvane::test
