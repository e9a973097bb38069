#include "NavigationDelegate.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

// Which addresses leave an account with the real hosts (no overrides are set
// in this test, so the catalogue is the built-in one); externalLinkFor's own
// rules are in ExternalLinkTest.
TEST(NavigationRulesWebTest, InAppHostsKeepTheirAddresses) {
    using Action = ExternalLink::Action;
    NavigationDelegate gmail(std::nullopt, {});
    NavigationDelegate calendar(AccountService::Calendar, {});
    NavigationDelegate outlook(AccountService::Outlook, {});
    EXPECT_EQ(gmail.inAppHosts(), test::testServices().gmail().inAppHosts);
    EXPECT_EQ(outlook.inAppHosts(), test::testServices().outlook().inAppHosts);
    struct Case {
        const NavigationDelegate& delegate;
        std::string uri;
        Action action; // Nothing: the account keeps it
    };
    const Case cases[] = {
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fexample.org%2F", Action::Browser },
        { gmail, "https://www.google.com/url?q=https%3A%2F%2Fmail.google.com%2Fmail%2F", Action::Nothing },
        // A javascript: q and no url: judged by the wrapper's own host, which is not in-app.
        { gmail, "https://www.google.com/url?q=javascript:alert(1)", Action::Browser },
        { gmail, "https://accounts.google.com/x?continue=https://mail.google.com/", Action::Nothing },
        { gmail, "https://MAIL.google.com/mail/u/0/", Action::Nothing },
        { gmail, "https://sub.mail.google.com/", Action::Browser },
        { gmail, "http://example.org/", Action::Browser },
        { gmail, "mailto:a@b.c", Action::Mail },
        { gmail, "about:blank", Action::Nothing },
        { gmail, "file:///etc/passwd", Action::Nothing },
        { calendar, "https://calendar.google.com/calendar/r", Action::Nothing },
        { calendar, "https://mail.google.com/", Action::Browser },
        { outlook, "https://login.live.com/", Action::Nothing },
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.delegate.leavingLink(c.uri).action, c.action) << c.uri;

    // Pop-up titles name any page off the service's hosts.
    for (const auto& [uri, title] : std::vector<std::pair<std::string, std::string>> {
             { "", "Orvane" },
             { "https://mail.google.com/mail/u/0/", "Orvane" },
             { "blob:https://mail.google.com/5d9e", "Orvane" },
             { "https://Login.Example.com/sso", "Orvane — login.example.com" },
             { "http://mail.google.com.evil.example/", "Orvane — mail.google.com.evil.example" },
             { "blob:https://evil.example/5d9e", "Orvane — evil.example" },
             { "about:blank", "Orvane — about:blank" },
             { "data:text/html,<title>Gmail</title>", "Orvane — data:" },
         })
        EXPECT_EQ(gmail.popupTitle(uri), title) << uri;
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

    // A redirect wrapper's host and query on another scheme opens nothing;
    // a mail link goes to Orvane's mail-link routing.
    ASSERT_TRUE(runJS(view, "document.getElementById('odd').click(); true").ok);
    ASSERT_TRUE(runJS(view, "document.getElementById('mail').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return !mailURIs.empty(); }));
    EXPECT_EQ(mailURIs, std::vector<std::string> { "mailto:someone@example.org?subject=Hi" });
    EXPECT_EQ(browserURIs.size(), 1u);
    EXPECT_EQ(webkit_web_view_get_uri(view), links);

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

    // A wrapper's host and query on file: opens nothing anywhere; mailto: is routed.
    ASSERT_TRUE(runJS(view, "window.open('file://www.google.com/url?q=" + outside + "'); true").ok);
    ASSERT_TRUE(runJS(view, "window.open('mailto:someone@example.org'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return !mailURIs.empty(); }));
    EXPECT_EQ(mailURIs, std::vector<std::string> { "mailto:someone@example.org" });
    EXPECT_EQ(browserURIs.size(), 1u);
    EXPECT_TRUE(manager->popupViews(account.id).empty());

    // A target=_blank link to an outside address: the browser gets the clicked address once.
    ASSERT_TRUE(runJS(view, "document.getElementById('blank').click(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return browserURIs.size() == 2; }));
    EXPECT_EQ(browserURIs.back(), server.uriOnHost("localhost", "/web/target.html?outside&blank"));
    EXPECT_TRUE(manager->popupViews(account.id).empty());
    EXPECT_EQ(server.requestCount("/web/target.html"), 0);

    // A pop-up whose page leaves the service's hosts says where it is.
    ASSERT_TRUE(runJS(view, "window.open('/web/popup.html', 'moving'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    WebKitWebView* moving = manager->popupViews(account.id).front();
    ASSERT_TRUE(waitForJS(moving, "document.title === 'Popup'"));
    GtkWindow* movingWindow = GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(moving)));
    EXPECT_STREQ(gtk_window_get_title(movingWindow), "Orvane");
    ASSERT_TRUE(runJS(moving, "location.href = '" + outside + "'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return std::string(gtk_window_get_title(movingWindow)) == "Orvane — localhost"; }))
        << gtk_window_get_title(movingWindow);

    // One gesture opens at most five pop-ups per account.
    ASSERT_TRUE(runJS(view, "for (let i = 0; i < 7; i++) window.open('/web/popup.html?' + i, 'many' + i); true").ok);
    EXPECT_EQ(manager->popupViews(account.id).size(), NavigationDelegate::kMaxPopups);
}

} // namespace
} // namespace orvane::test
