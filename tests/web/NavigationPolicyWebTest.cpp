#include "PopupWindows.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

class NavigationPolicyWebTest : public ManagerWebFixture {
protected:
    WebKitWebView* openLinks() {
        useServices("/web/links.html");
        account = store->addAccount();
        WebKitWebView* view = show(account);
        EXPECT_TRUE(waitLoaded(view));
        return view;
    }
    void click(WebKitWebView* view, const std::string& element) {
        ASSERT_TRUE(runJS(view, element + ".click(); true").ok) << element;
    }
    Account account;
};

TEST_F(NavigationPolicyWebTest, OutsideLinksGoToTheBrowserAndFramesStayFree) {
    WebKitWebView* view = openLinks();
    ASSERT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument.readyState === 'complete'"));
    const std::string links = webkit_web_view_get_uri(view);

    // The clicked outside address goes to the browser; the page stays.
    click(view, "document.getElementById('outside')");
    ASSERT_TRUE(waitUntil([&] { return !browserURIs.empty(); }));
    EXPECT_EQ(browserURIs, std::vector<std::string> { server.uriOnHost("localhost", "/web/target.html?outside") });
    EXPECT_EQ(runJS(view, "location.href").value, links);
    EXPECT_EQ(server.requestCount("/web/target.html"), 0);

    // A wrapper's host and query on another scheme opens nothing; a mail
    // link goes to Orvane's mail-link routing.
    click(view, "document.getElementById('odd')");
    click(view, "document.getElementById('mail')");
    ASSERT_TRUE(waitUntil([&] { return !mailURIs.empty(); }));
    EXPECT_EQ(mailURIs, std::vector<std::string> { "mailto:someone@example.org?subject=Hi" });

    // The same outside address inside the embedded frame loads there, as
    // does a link of the page that targets the frame by name.
    click(view, "document.getElementById('frame').contentDocument.getElementById('outside')");
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 1; }));
    ASSERT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument === null")); // another origin now
    click(view, "document.getElementById('into-frame')");
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 2; }));
    EXPECT_EQ(webkit_web_view_get_uri(view), links);

    // An in-app link navigates the page itself.
    click(view, "document.getElementById('inside')");
    ASSERT_TRUE(waitForJS(view, "document.title === 'Target'"));
    EXPECT_EQ(webkit_web_view_get_uri(view), server.uri("/web/target.html?inside"));
    EXPECT_EQ(browserURIs.size(), 1u);
}

TEST_F(NavigationPolicyWebTest, PopupsOpenCloseAndOutsideOnesGoToTheBrowser) {
    WebKitWebView* view = openLinks();
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
    auto popups = [&] { return manager->popupViews(account.id); };
    auto windowOf = [](WebKitWebView* popup) { return GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup))); };

    ASSERT_TRUE(runJS(view, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return events.names.size() >= 2; }));
    expectDeletedAtEnd(events.popup);
    ASSERT_EQ(popups(), std::vector<WebKitWebView*> { events.popup });
    GtkWindow* popupWindow = windowOf(events.popup);
    EXPECT_STREQ(gtk_window_get_title(popupWindow), "Orvane");
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(popupWindow)); }));
    ASSERT_TRUE(waitForJS(events.popup, "document.title === 'Popup'"));
    EXPECT_STREQ(webkit_settings_get_user_agent(webkit_web_view_get_settings(events.popup)),
        webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));
    EXPECT_FALSE(manager->accountID(events.popup));
    ASSERT_TRUE(runJS(events.popup, "window.close(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return popups().empty(); }));
    EXPECT_EQ(events.names, (std::vector<std::string> { "create", "ready-to-show", "close" }));

    // An outside address goes to the browser, once, with no window: by
    // window.open or a target=_blank link. A wrapper's host and query on
    // file: opens nothing anywhere; mailto: is routed.
    std::string outside = server.uriOnHost("localhost", "/web/popup.html?outside");
    ASSERT_TRUE(runJS(view, "window.open('" + outside + "'); window.open('file://www.google.com/url?q=" + outside
        + "'); window.open('mailto:someone@example.org'); true").ok);
    click(view, "document.getElementById('blank')");
    ASSERT_TRUE(waitUntil([&] { return browserURIs.size() == 2 && mailURIs.size() == 1; }));
    EXPECT_EQ(browserURIs, (std::vector<std::string> { outside, server.uriOnHost("localhost", "/web/target.html?outside&blank") }));
    EXPECT_EQ(mailURIs, std::vector<std::string> { "mailto:someone@example.org" });
    EXPECT_TRUE(popups().empty());
    EXPECT_EQ(server.requestCount("/web/target.html"), 0);

    // A pop-up whose page leaves the service's hosts says where it is.
    ASSERT_TRUE(runJS(view, "window.open('/web/popup.html', 'moving'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return popups().size() == 1; }));
    WebKitWebView* moving = popups().front();
    ASSERT_TRUE(waitForJS(moving, "document.title === 'Popup'"));
    ASSERT_TRUE(runJS(moving, "location.href = '" + outside + "'; true").ok);
    ASSERT_TRUE(waitUntil([&] { return std::string(gtk_window_get_title(windowOf(moving))) == "Orvane — localhost"; }));

    // One gesture opens at most five pop-ups per account.
    ASSERT_TRUE(runJS(view, "for (let i = 0; i < 7; i++) window.open('/web/popup.html?' + i, 'many' + i); true").ok);
    EXPECT_EQ(popups().size(), PopupWindows::kMaxPopups);

    // Discarding the account closes its pop-ups and their windows.
    for (WebKitWebView* popup : popups()) {
        expectDeletedAtEnd(popup);
        expectDeletedAtEnd(windowOf(popup));
    }
    expectDeletedAtEnd(view);
    manager->discard(account);
    EXPECT_TRUE(popups().empty());
}

} // namespace
} // namespace orvane::test
