#include "AppPaths.h"
#include "SpellChecking.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

constexpr const char* kSafari = "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
                                "(KHTML, like Gecko) Version/18.3 Safari/605.1.15";

class WebViewManagerWebTest : public ManagerWebFixture { };

TEST_F(WebViewManagerWebTest, OneViewPerAccountAndOneSessionPerDataStoreWhileItIsUsed) {
    useServices("/web/plain.html");
    const Account mail = store->addAccount(); // no service: a Gmail account
    const Account calendar = store->addCalendar(mail);
    const Account other = store->addAccount();
    WebKitWebView* mailView = show(mail);
    EXPECT_EQ(manager->webView(mail), mailView);
    EXPECT_EQ(manager->webView(mail.id), mailView);
    EXPECT_EQ(manager->webView(other.id), nullptr) << "a lookup never makes a view";
    EXPECT_EQ(manager->accountID(mailView), mail.id);
    WebKitWebView* calendarView = show(calendar);
    WebKitWebView* otherView = show(other);
    for (auto* view : { mailView, calendarView, otherView })
        ASSERT_TRUE(waitLoaded(view));
    EXPECT_EQ(server.requestCount("/web/plain.html"), 2);

    // The providers' pages see Safari; developer extras are on (HACKING.md's
    // way to the page scripts).
    EXPECT_EQ(runJS(mailView, "navigator.userAgent").value, kSafari);
    EXPECT_TRUE(webkit_settings_get_enable_developer_extras(webkit_web_view_get_settings(mailView)));
    GdkRGBA background { 1, 1, 1, 1 };
    webkit_web_view_get_background_color(mailView, &background);
    EXPECT_EQ(background.alpha, 0);

    // A calendar shares its mail account's cookies, and no other account does.
    EXPECT_NE(webkit_web_view_get_user_content_manager(mailView), webkit_web_view_get_user_content_manager(calendarView));
    run(mailView, "document.cookie = 'orvane=shared; max-age=3600; path=/'");
    EXPECT_TRUE(waitForJS(calendarView, "document.cookie.includes('orvane=shared')"));
    webkit_web_view_reload(otherView);
    ASSERT_TRUE(waitLoaded(otherView));
    EXPECT_EQ(runJS(otherView, "document.cookie").value, "");

    // Discarding tears the view down; a later request builds and loads a new
    // one. A committed removal of the last account of a data store forgets its
    // session and its folders; one a companion still uses stays.
    EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    expectDeletedAtEnd(otherView);
    manager->discard(other);
    EXPECT_EQ(manager->webView(other.id), nullptr);
    EXPECT_EQ(gtk_widget_get_parent(GTK_WIDGET(otherView)), nullptr);
    ASSERT_TRUE(waitLoaded(show(other)));
    EXPECT_EQ(server.requestCount("/web/plain.html"), 4);
    manager->discard(other);
    store->remove(other);
    manager->discard(calendar);
    store->remove(calendar);
    store->commitRemovals();
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    EXPECT_FALSE(Files::exists(AppPaths::websiteCacheDir(other.dataStoreID)));
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
