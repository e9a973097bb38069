// Where an account page's links and pop-ups go. Which addresses leave and
// what they become are LinkPolicyTest's and ExternalLinkTest's; a clicked
// outside link reaching the browser is tests/e2e/PrintTest's, a clicked
// mailto: link reaching the picker tests/e2e/MailtoTest's.
#include "PopupWindows.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

class NavigationPolicyWebTest : public ManagerWebFixture { };

TEST_F(NavigationPolicyWebTest, OutsideLinksGoToTheBrowserFramesStayFreeAndPopupsOpenAndClose) {
    useServices("/web/links.html");
    const Account account = store->addAccount();
    WebKitWebView* view = show(account);
    ASSERT_TRUE(waitLoaded(view));
    const std::string frame = "document.getElementById('frame').contentDocument";
    ASSERT_TRUE(waitForJS(view, frame + ".readyState === 'complete'"));
    const std::string links = webkit_web_view_get_uri(view);
    const auto& browserURIs = host.browserURIs;
    const auto& mailURIs = host.mailURIs;

    // An outside address inside the embedded frame loads there, as does a
    // link of the page that targets the frame by name.
    run(view, frame + ".getElementById('outside').click()");
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 1; }));
    ASSERT_TRUE(waitForJS(view, frame + " === null")); // another origin now
    run(view, "document.getElementById('into-frame').click()");
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 2; }));
    EXPECT_EQ(webkit_web_view_get_uri(view), links);

    // A pop-up of the service: created, shown, closed, in that order, in a
    // window of its own with the account's user agent.
    std::vector<std::string> events;
    auto recordEvents = manager->observePopups([&](const std::string& id, WebKitWebView* popup) {
        EXPECT_EQ(id, account.id);
        events.push_back("create");
        g_signal_connect_swapped(popup, "ready-to-show", G_CALLBACK(+[](std::vector<std::string>* e) {
            e->push_back("ready-to-show");
        }), &events);
        g_signal_connect_swapped(popup, "close", G_CALLBACK(+[](std::vector<std::string>* e) {
            e->push_back("close");
        }), &events);
    });
    auto popups = [&] { return manager->popupViews(account.id); };
    auto windowOf = [](WebKitWebView* popup) { return GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup))); };
    WebKitWebView* popup = nextPopup(view, "window.open('/web/popup.html', 'popup')");
    ASSERT_TRUE(popup);
    EXPECT_EQ(popups(), std::vector<WebKitWebView*> { popup });
    EXPECT_STREQ(gtk_window_get_title(windowOf(popup)), "Orvane");
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(windowOf(popup))); }));
    ASSERT_TRUE(waitForJS(popup, "document.title === 'Popup'"));
    EXPECT_STREQ(webkit_settings_get_user_agent(webkit_web_view_get_settings(popup)),
        webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));
    EXPECT_FALSE(manager->accountID(popup));
    run(popup, "window.close()");
    ASSERT_TRUE(waitUntil([&] { return popups().empty(); }));
    EXPECT_EQ(events, (std::vector<std::string> { "create", "ready-to-show", "close" }));

    // An outside address goes to the browser, once, with no window: by
    // window.open or a target=_blank link; mailto: is routed.
    std::string outside = server.uriOnHost("localhost", "/web/popup.html?outside");
    run(view, "window.open('" + outside + "'); window.open('mailto:someone@example.org')");
    run(view, "document.getElementById('blank').click()");
    ASSERT_TRUE(waitUntil([&] { return browserURIs.size() == 2 && mailURIs.size() == 1; }));
    EXPECT_EQ(browserURIs[0], outside);
    EXPECT_EQ(browserURIs[1], server.uriOnHost("localhost", "/web/target.html?outside&blank"));
    EXPECT_EQ(mailURIs[0], "mailto:someone@example.org");
    EXPECT_TRUE(popups().empty());
    EXPECT_EQ(server.requestCount("/web/target.html"), 0);

    // A pop-up whose page leaves the service's hosts says where it is.
    WebKitWebView* moving = nextPopup(view, "window.open('/web/popup.html', 'moving')");
    ASSERT_TRUE(moving && waitForJS(moving, "document.title === 'Popup'"));
    run(moving, "location.href = '" + outside + "'");
    ASSERT_TRUE(waitUntil([&] { return std::string(gtk_window_get_title(windowOf(moving))) == "Orvane — localhost"; }));

    // One gesture opens at most five pop-ups per account; discarding the
    // account closes them and their windows.
    run(view, "for (let i = 0; i < 7; i++) window.open('/web/popup.html?' + i, 'many' + i)");
    EXPECT_EQ(popups().size(), PopupWindows::kMaxPopups);
    // An in-app link navigates the page itself.
    run(view, "document.getElementById('inside').click()");
    ASSERT_TRUE(waitForJS(view, "document.title === 'Target'"));
    EXPECT_EQ(webkit_web_view_get_uri(view), server.uri("/web/target.html?inside"));
    EXPECT_EQ(browserURIs.size(), 2u);
    for (WebKitWebView* open : popups()) {
        expectDeletedAtEnd(open);
        expectDeletedAtEnd(windowOf(open));
    }
    expectDeletedAtEnd(view);
    manager->discard(account);
    EXPECT_TRUE(popups().empty());
}

} // namespace
} // namespace orvane::test
