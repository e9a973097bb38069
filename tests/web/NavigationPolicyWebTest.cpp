#include "web/NavigationDelegate.h"

#include "web/ManagerWebFixture.h"

namespace orvane::test {
namespace {

// resolvedTarget and shouldOpenExternally with the real Gmail hosts (no
// overrides are set in this test, so the catalogue is the built-in one).
TEST(NavigationRulesWebTest, RedirectWrappersAndHostRules) {
    auto resolved = [](const std::string& uri) { return NavigationDelegate::resolvedTarget(uri); };
    // Google's /url wrapper: q first, then url; percent-decoded; one level only.
    EXPECT_EQ(resolved("https://www.google.com/url?q=https%3A%2F%2Fexample.org%2Fa%3Fb%3D1&sa=D"),
        "https://example.org/a?b=1");
    EXPECT_EQ(resolved("https://google.com/url?url=https://example.org/"), "https://example.org/");
    EXPECT_EQ(resolved("https://www.google.com/url?q=javascript:alert(1)&url=https://example.org/x"),
        "https://example.org/x");
    EXPECT_EQ(resolved("https://WWW.Google.com/url?q=https://example.org/"), "https://example.org/");
    EXPECT_EQ(resolved("https://www.google.com/url?q=https%3A%2F%2Fwww.google.com%2Furl%3Fq%3Dhttps%3A%2F%2Fexample.org"),
        "https://www.google.com/url?q=https://example.org");
    // The first q counts, even when a later one would do.
    EXPECT_EQ(resolved("https://www.google.com/url?q=mailto:a@b.c&q=https://example.org/"),
        "https://www.google.com/url?q=mailto:a@b.c&q=https://example.org/");
    // Not a wrapper: another path, another host, missing, empty or non-web values, bad escapes.
    for (const char* plain : {
             "https://www.google.com/search?q=https://example.org/",
             "https://www.google.com/url/?q=https://example.org/",
             "https://maps.google.com/url?q=https://example.org/",
             "https://www.google.com/url?q=",
             "https://www.google.com/url?q",
             "https://www.google.com/url?q=data:text/html,hi",
             "https://www.google.com/url?q=example.org",
             "https://www.google.com/url?q=%zz&url=https://example.org/",
             "mailto:someone@example.org",
             "not a url",
         })
        EXPECT_EQ(resolved(plain), plain);
    // The sign-in host's continue parameter.
    EXPECT_EQ(resolved("https://accounts.google.com/ServiceLogin?continue=https%3A%2F%2Fmail.google.com%2Fmail%2F"),
        "https://mail.google.com/mail/");
    EXPECT_EQ(resolved("https://accounts.google.com/ServiceLogin?q=https://example.org/"),
        "https://accounts.google.com/ServiceLogin?q=https://example.org/");

    NavigationDelegate gmail(std::nullopt, {});
    EXPECT_EQ(gmail.inAppHosts(), MailService::gmail().inAppHosts);
    EXPECT_TRUE(gmail.shouldOpenExternally("https://www.google.com/url?q=https%3A%2F%2Fexample.org%2F"));
    EXPECT_FALSE(gmail.shouldOpenExternally("https://www.google.com/url?q=https%3A%2F%2Fmail.google.com%2Fmail%2F"));
    // A javascript: q and no url: judged by the wrapper's own host, which is not in-app.
    EXPECT_TRUE(gmail.shouldOpenExternally("https://www.google.com/url?q=javascript:alert(1)"));
    EXPECT_FALSE(gmail.shouldOpenExternally("https://accounts.google.com/x?continue=https://mail.google.com/"));
    EXPECT_FALSE(gmail.shouldOpenExternally("https://MAIL.google.com/mail/u/0/"));
    EXPECT_TRUE(gmail.shouldOpenExternally("https://sub.mail.google.com/"));
    EXPECT_TRUE(gmail.shouldOpenExternally("http://example.org/"));
    for (const char* never : { "mailto:a@b.c", "about:blank", "javascript:void(0)", "data:text/html,x", "file:///etc/passwd" })
        EXPECT_FALSE(gmail.shouldOpenExternally(never)) << never;

    NavigationDelegate calendar(AccountService::Calendar, {});
    EXPECT_FALSE(calendar.shouldOpenExternally("https://calendar.google.com/calendar/r"));
    EXPECT_TRUE(calendar.shouldOpenExternally("https://mail.google.com/"));
    NavigationDelegate outlook(AccountService::Outlook, {});
    EXPECT_EQ(outlook.inAppHosts(), MailService::outlook().inAppHosts);
}

class NavigationPolicyWebTest : public ManagerWebFixture { };

TEST_F(NavigationPolicyWebTest, OutsideLinksGoToTheBrowserAndFramesStayFree) {
    useServices("/web/links.html");
    const Account account = store->addAccount();
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    ASSERT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument.readyState === 'complete'"));
    const std::string links = webkit_web_view_get_uri(view);

    // A click on an outside link: the clicked address goes to the browser and
    // the page stays where it is.
    ASSERT_TRUE(runJS(view, "document.getElementById('outside').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return !browserURIs.empty(); }));
    EXPECT_EQ(browserURIs, std::vector<std::string> { server.uriOnHost("localhost", "/web/target.html?outside") });
    EXPECT_EQ(runJS(view, "location.href").value, links);
    EXPECT_EQ(webkit_web_view_get_uri(view), links);
    EXPECT_EQ(server.requestCount("/web/target.html"), 0);

    // The same outside address inside the embedded frame loads there.
    ASSERT_TRUE(runJS(view, "document.getElementById('frame').contentDocument.getElementById('outside').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 1; }));
    // Now on another origin, the frame's document is out of the page's reach.
    ASSERT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument === null"));
    // A link in the page that targets the frame by name loads there too.
    ASSERT_TRUE(runJS(view, "document.getElementById('into-frame').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 2; }));
    EXPECT_EQ(browserURIs.size(), 1u);
    EXPECT_EQ(webkit_web_view_get_uri(view), links);

    // An in-app link navigates the page itself.
    ASSERT_TRUE(runJS(view, "document.getElementById('inside').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/target.html") == 1; }));
    ASSERT_TRUE(waitForJS(view, "document.title === 'Target'"));
    EXPECT_EQ(browserURIs.size(), 1u);
    EXPECT_EQ(webkit_web_view_get_uri(view), server.uri("/web/target.html?inside"));
}

TEST_F(NavigationPolicyWebTest, PopupsOpenCloseAndOutsideOnesGoToTheBrowser) {
    useServices("/web/links.html");
    const Account account = store->addAccount();
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));

    struct Events {
        std::vector<std::string> names;
        WebKitWebView* popup = nullptr;
    } events;
    auto subscription = manager->observePopups([&](const std::string& id, WebKitWebView* popup) {
        EXPECT_EQ(id, account.id);
        events.names.push_back("create");
        events.popup = popup;
        g_signal_connect_swapped(popup, "ready-to-show", G_CALLBACK(+[](Events* e) { e->names.push_back("ready-to-show"); }), &events);
        g_signal_connect_swapped(popup, "close", G_CALLBACK(+[](Events* e) { e->names.push_back("close"); }), &events);
    });

    ASSERT_TRUE(runJS(view, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return events.names.size() >= 2; }));
    ASSERT_TRUE(events.popup);
    expectDeletedAtEnd(events.popup);
    auto windows = [&] {
        // The delegate's list, reached through the pop-up's window.
        std::vector<GtkWindow*> list;
        for (WebKitWebView* popup : manager->popupViews(account.id))
            list.push_back(GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup))));
        return list;
    };
    ASSERT_EQ(windows().size(), 1u);
    GtkWindow* popupWindow = windows().front();
    EXPECT_STREQ(gtk_window_get_title(popupWindow), "Orvane");
    int width = 0, height = 0;
    gtk_window_get_default_size(popupWindow, &width, &height);
    EXPECT_EQ(width, 820);
    EXPECT_EQ(height, 620);
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(popupWindow)); }));
    ASSERT_TRUE(waitForJS(events.popup, "document.title === 'Popup'"));
    EXPECT_STREQ(webkit_settings_get_user_agent(webkit_web_view_get_settings(events.popup)),
        webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));
    EXPECT_FALSE(manager->accountID(events.popup));

    ASSERT_TRUE(runJS(events.popup, "window.close(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    EXPECT_EQ(events.names, (std::vector<std::string> { "create", "ready-to-show", "close" }));

    // window.open of an outside address: the browser gets it, no window opens.
    events.names.clear();
    std::string outside = server.uriOnHost("localhost", "/web/popup.html?outside");
    ASSERT_TRUE(runJS(view, "window.open('" + outside + "'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return !browserURIs.empty(); }));
    EXPECT_EQ(browserURIs, std::vector<std::string> { outside });
    EXPECT_TRUE(manager->popupViews(account.id).empty());

    // A target=_blank link to an outside address: the browser gets the clicked address once.
    ASSERT_TRUE(runJS(view, "document.getElementById('blank').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return browserURIs.size() == 2; }));
    EXPECT_EQ(browserURIs.back(), server.uriOnHost("localhost", "/web/target.html?outside&blank"));
    EXPECT_TRUE(manager->popupViews(account.id).empty());
    EXPECT_EQ(server.requestCount("/web/target.html"), 0);
}

} // namespace
} // namespace orvane::test
