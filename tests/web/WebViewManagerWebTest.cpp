// One view and session per account, the order the pages load in at start,
// where their links and pop-ups go, which view a page's message came from,
// and what a view makes of a page that is not there.
#include "AppPaths.h"
#include "PageRecovery.h"
#include "PopupWindows.h"
#include "SpellChecking.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

class WebViewManagerWebTest : public ManagerWebFixture { };

// At start only the selected account's page loads; the others wait until it
// has loaded, or until WebViewManager::kStartBound when it is slow.
TEST_F(WebViewManagerWebTest, TheSelectedPageLoadsFirstAndTheOthersAfterItOrAfterTheBound) {
    std::vector<std::string> order;
    Ref<SoupServerMessage> held;
    bool hold = false;
    server.handle("/web/selected", [&](SoupServerMessage* message, const std::string&) {
        order.push_back("selected");
        if (!hold)
            return FixtureServer::reply(message, 200, "<p>page</p>");
        held = Ref<SoupServerMessage>(message);
        soup_server_message_pause(message);
    });
    server.handle("/web/other", [&](SoupServerMessage* message, const std::string&) {
        order.push_back("other");
        FixtureServer::reply(message, 200, "<p>page</p>");
    });
    const Account other = store->addOutlookAccount();
    const Account selected = store->addAccount();
    store->setSelectedAccountID(selected.id);

    // The other account's view is made first, yet its page waits.
    useServices("/web/selected", "/web/other");
    WebKitWebView* otherView = show(other);
    ASSERT_TRUE(waitLoaded(show(selected)));
    ASSERT_TRUE(waitLoaded(otherView));
    EXPECT_EQ(order, (std::vector<std::string> { "selected", "other" }));

    // A slow selected page holds the others back only until the bound.
    order.clear();
    hold = true;
    manager = nullptr;
    useServices("/web/selected", "/web/other");
    otherView = show(other);
    show(selected);
    gint64 start = g_get_monotonic_time();
    ASSERT_TRUE(waitUntil([&] { return order.size() == 2; }, WebViewManager::kStartBound + 10s));
    EXPECT_EQ(order, (std::vector<std::string> { "selected", "other" }));
    EXPECT_GE(g_get_monotonic_time() - start, (WebViewManager::kStartBound - 500ms).count() * 1000);
    ASSERT_TRUE(held);
    FixtureServer::reply(held.get(), 200, "<p>page</p>");
    soup_server_message_unpause(held.get());
}

// One view and session per account, and where an account page's links and
// pop-ups go. Which addresses leave and what they become are ExternalLinkTest's
// (tests/services/MailServiceTest.cpp); a clicked outside link reaching the
// browser is tests/e2e/NotificationTest's, a clicked mailto: link reaching the
// picker tests/e2e/MailtoTest's.
TEST_F(WebViewManagerWebTest, OneViewAndSessionPerAccountAndOutsideLinksGoToTheBrowserAndPopupsOpenAndClose) {
    useServices("/web/links.html");
    const Account account = store->addAccount(); // no service: a Gmail account
    const Account calendar = store->addCalendar(account);
    const Account other = store->addAccount();
    view = show(account);
    EXPECT_EQ(manager->webView(account.id), view);
    EXPECT_EQ(manager->webView(other.id), nullptr) << "a lookup never makes a view";
    EXPECT_EQ(manager->accountID(view), account.id);
    WebKitWebView* calendarView = show(calendar);
    WebKitWebView* otherView = show(other);
    for (auto* shown : { view, calendarView, otherView })
        ASSERT_TRUE(waitLoaded(shown));
    EXPECT_EQ(server.requestCount("/web/links.html"), 2);

    // The providers' pages see Safari on a Mac, not WebKitGTK's own agent.
    EXPECT_EQ(js(view, "navigator.userAgent.includes('Macintosh')"), true);
    // Developer extras are on (HACKING.md's way to the page scripts); no background behind the page.
    EXPECT_TRUE(webkit_settings_get_enable_developer_extras(webkit_web_view_get_settings(view)));
    GdkRGBA background { 1, 1, 1, 1 };
    webkit_web_view_get_background_color(view, &background);
    EXPECT_EQ(background.alpha, 0);

    // A calendar shares its mail account's cookies, and no other account does.
    EXPECT_NE(webkit_web_view_get_user_content_manager(view),
        webkit_web_view_get_user_content_manager(calendarView));
    run(view, "document.cookie = 'orvane=shared; max-age=3600; path=/'");
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
    EXPECT_EQ(server.requestCount("/web/links.html"), 4);
    manager->discard(other);
    store->remove(other);
    manager->discard(calendar);
    store->remove(calendar);
    store->commitRemovals();
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(other.dataStoreID)));
    EXPECT_FALSE(Files::exists(AppPaths::websiteCacheDir(other.dataStoreID)));
    EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(account.dataStoreID)));
    EXPECT_EQ(manager->networkSession(account.dataStoreID), webkit_web_view_get_network_session(view));

    // Where the account's links and pop-ups go.
    const std::string frame = "document.getElementById('frame').contentDocument";
    ASSERT_TRUE(waitForJS(view, frame + ".readyState === 'complete'"));
    const std::string links = webkit_web_view_get_uri(view);
    const auto& browserURIs = host.browserURIs;

    // An outside address inside the embedded frame loads there, as does a
    // link of the page that targets the frame by name.
    run(view, frame + ".getElementById('outside').click()");
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 1; }));
    ASSERT_TRUE(waitForJS(view, frame + " === null")); // another origin now
    run(view, "document.getElementById('into-frame').click()");
    ASSERT_TRUE(waitUntil([&] { return server.requestCount("/web/frame-target.html") == 2; }));
    EXPECT_EQ(webkit_web_view_get_uri(view), links);

    // A pop-up of the service, told to observers with its account before it
    // shows, in a window of its own (820 x 620 whatever it asks) with the account's user agent; it closes.
    std::vector<std::string> told;
    auto recordTold = manager->observePopups([&](const std::string& id, WebKitWebView* popup) {
        told.push_back(id + (gtk_widget_get_mapped(GTK_WIDGET(popup)) ? " (shown)" : ""));
    });
    auto popups = [&] { return manager->popupViews(account.id); };
    auto windowOf = [](WebKitWebView* popup) { return GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup))); };
    WebKitWebView* popup = nextPopup(view, "window.open('/web/popup.html', 'popup', 'width=300,height=200')");
    ASSERT_TRUE(popup);
    EXPECT_EQ(popups(), std::vector<WebKitWebView*> { popup });
    EXPECT_STREQ(gtk_window_get_title(windowOf(popup)), "Orvane");
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(windowOf(popup))); }));
    GtkWidget* opened = GTK_WIDGET(windowOf(popup));
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_width(opened) > 0; }));
    EXPECT_EQ(std::pair(gtk_widget_get_width(opened), gtk_widget_get_height(opened)), std::pair(820, 620));
    ASSERT_TRUE(waitForJS(popup, "document.title === 'Popup'"));
    EXPECT_STREQ(webkit_settings_get_user_agent(webkit_web_view_get_settings(popup)),
        webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));
    EXPECT_FALSE(manager->accountID(popup));
    run(popup, "window.close()");
    ASSERT_TRUE(waitUntil([&] { return popups().empty(); }));
    EXPECT_EQ(told, std::vector<std::string> { account.id });

    // An outside address goes to the browser, once, with no window: by
    // window.open or a target=_blank link; mailto: is routed.
    std::string outside = server.uriOnHost("localhost", "/web/popup.html?outside");
    run(view, "window.open('" + outside + "'); window.open('mailto:someone@example.org')");
    run(view, "document.getElementById('blank').click()");
    ASSERT_TRUE(waitUntil([&] { return browserURIs.size() == 2 && !host.mailURIs.empty(); }));
    EXPECT_EQ(browserURIs, (std::vector<std::string> { outside,
        server.uriOnHost("localhost", "/web/target.html?outside&blank") }));
    EXPECT_EQ(host.mailURIs, std::vector<std::string> { "mailto:someone@example.org" });
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

// Which view a page's script message came from: the stamp Orvane's web
// extension puts in every frame names the exact view, and nothing a page can
// make or learn names another one. Pages of other sites may load in an
// account's view (sign-in redirects) and in frames of the service's pages;
// they are served nothing.
class MessageSenderWebTest : public ManagerWebFixture {
protected:
    // Posts {tag, orvanePage: <stamp expression>} to orvaneNotify.
    static void post(WebKitWebView* view, const std::string& tag, const std::string& stamp = "window.__orvanePage") {
        run(view, "window.webkit.messageHandlers.orvaneNotify.postMessage({ tag: '" + tag + "', orvanePage: "
            + stamp + " })");
    }
    // The view the message tagged so was attributed to (null: none), once it came.
    WebKitWebView* senderOf(const std::string& tag) {
        EXPECT_TRUE(waitUntil([&] { return senders.contains(tag); })) << tag;
        return senders.contains(tag) ? senders[tag] : reinterpret_cast<WebKitWebView*>(-1);
    }
    static std::string stampOf(WebKitWebView* page) {
        return js(page, "window.__orvanePage").get<std::string>();
    }

    std::map<std::string, WebKitWebView*> senders;
};

TEST_F(MessageSenderWebTest, MessagesNameTheExactSendingViewOfTheServiceAndForgedStampsNone) {
    useServices("/web/links.html");
    manager->setMessageReceiver("orvaneNotify", [this](WebKitWebView* sender, JSCValue* body) {
        senders.emplace(resultFromJSC(body, nullptr).value.value("tag", ""), sender);
    });
    const Account account = store->addAccount();
    WebKitWebView* second = showNewAccount();
    WebKitWebView* main = show(account);
    ASSERT_TRUE(waitLoaded(main));
    WebKitWebView* popup = nextPopup(main, "window.open('/web/popup.html', 'popup')");
    ASSERT_TRUE(popup && waitForJS(popup, "document.title === 'Popup'"));

    // A pop-up shares the opener's content manager, and is told apart.
    post(popup, "genuine");
    post(second, "from-other-account");
    EXPECT_EQ(senderOf("genuine"), popup);
    EXPECT_EQ(senderOf("from-other-account"), second);

    // The stamp cannot be replaced, deleted or redefined by the page.
    EXPECT_EQ(js(popup, R"JS(
        const before = window.__orvanePage;
        window.__orvanePage = 'x';
        try { delete window.__orvanePage; } catch (e) {}
        let redefined = true;
        try { Object.defineProperty(window, '__orvanePage', { value: 'y' }); } catch (e) { redefined = false; }
        [window.__orvanePage === before, redefined]
    )JS"), nlohmann::json({ true, false }));

    // Claiming the opener's page id with the pop-up's own signature, a
    // made-up one or none names no view; nor does this account's genuine
    // stamp posted to another account's handlers, nor a closed pop-up's.
    const std::string mainStamp = stampOf(main), popupStamp = stampOf(popup);
    const std::string claim = std::to_string(webkit_web_view_get_page_id(main)) + "."
        + js(main, "location.origin").get<std::string>();
    post(popup, "own-signature", "'" + claim + "." + popupStamp.substr(popupStamp.rfind('.') + 1) + "'");
    post(popup, "made-up", "'" + claim + "." + std::string(64, 'a') + "'");
    post(popup, "bare-id", "'" + std::to_string(webkit_web_view_get_page_id(main)) + "'");
    post(popup, "unstamped", "undefined");
    post(second, "other-account", "'" + mainStamp + "'");
    run(popup, "window.close()");
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    post(main, "closed-popup", "'" + popupStamp + "'");
    for (const char* tag : { "own-signature", "made-up", "bare-id", "unstamped", "other-account", "closed-popup" })
        EXPECT_EQ(senderOf(tag), nullptr) << tag;

    // Frames: a srcdoc document takes its parent's origin, unless sandboxed:
    // then it is opaque.
    auto poster = [](const std::string& tag) {
        return "<script>window.webkit.messageHandlers.orvaneNotify.postMessage({ tag: " + tag
            + ", orvanePage: window.__orvanePage });</script>";
    };
    server.serve("/posted", "<!DOCTYPE html><title>Posted</title>" + poster("location.hash.slice(1)"));
    const std::tuple<std::string, std::string, std::string, std::string, bool> frames[] = {
        { "same-origin", "src", server.uri("/posted#same-origin"), "", true },
        { "cross-origin", "src", server.uriOnHost("localhost", "/posted#cross-origin"), "", false },
        { "srcdoc", "srcdoc", poster("'srcdoc'"), "", true },
        { "sandboxed", "srcdoc", poster("'sandboxed'"), "f.sandbox = 'allow-scripts';", false },
    };
    for (const auto& [tag, property, value, sandbox, served] : frames)
        run(main, "{ const f = document.createElement('iframe'); f." + property + " = " + jsonLiteral(value) + ";"
            + sandbox + "document.body.append(f); }");
    for (const auto& [tag, property, value, sandbox, served] : frames)
        EXPECT_EQ(senderOf(tag), served ? main : nullptr) << tag;

    // The view sent to another site by a script: neither that site's own
    // stamp nor one it learned from the service's page makes it the account.
    run(main, "location = " + jsonLiteral(server.uriOnHost("localhost", "/posted#foreign-page")));
    EXPECT_EQ(senderOf("foreign-page"), nullptr);
    post(main, "learned-stamp", "'" + mainStamp + "'");
    EXPECT_EQ(senderOf("learned-stamp"), nullptr);
}

// A page that is not there, in a real view: a load that never finishes is
// given up at the bound, a server error fails, and the network coming back
// reloads a page that could not be reached.
class PageRecoveryWebTest : public ManagerWebFixture { };

TEST_F(PageRecoveryWebTest, TimeOutsAndServerErrorsFailAndTheNetworkComingBackReloads) {
    int changes = 0;
    PageRecovery recovery(showPlainView(), {}, [&] { ++changes; }, nullptr, 500ms);

    Ref<SoupServerMessage> held;
    server.handle("/never", [&](SoupServerMessage* message, const std::string&) {
        held = Ref<SoupServerMessage>(message);
        soup_server_message_pause(message);
    });
    webkit_web_view_load_uri(view, server.uri("/never").c_str());
    EXPECT_TRUE(waitUntil([&] { return recovery.failure() == PageFailure::Kind::TimedOut; }));
    ASSERT_TRUE(held);
    FixtureServer::reply(held.get(), 204);
    soup_server_message_unpause(held.get());

    server.serve("/busy", "<p>busy</p>", "text/html", 503);
    webkit_web_view_load_uri(view, server.uri("/busy").c_str());
    EXPECT_TRUE(waitUntil([&] { return recovery.failure() == PageFailure::Kind::ServerError; }));

    // A port nothing listens on, until a server is started there.
    const unsigned port = FixtureServer().port();
    webkit_web_view_load_uri(view, ("http://127.0.0.1:" + std::to_string(port) + "/").c_str());
    ASSERT_TRUE(waitUntil([&] { return recovery.failure() == PageFailure::Kind::NoNetwork; }));

    FixtureServer late(port);
    late.serve("/", "<p>back</p>");
    int before = changes;
    g_signal_emit_by_name(g_network_monitor_get_default(), "network-changed", TRUE);
    EXPECT_TRUE(waitUntil([&] { return !recovery.failure() && changes > before; }));
    EXPECT_TRUE(waitForJS(view, "document.body && document.body.textContent === 'back'"));
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
