// Which view a page's script message came from: the stamp Orvane's web
// extension puts in every frame names the exact view, and nothing a page can
// make or learn names another one.
#include "PageStamp.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

class MessageSenderWebTest : public ManagerWebFixture {
protected:
    void useServicesAndListen(const std::string& gmailPath) {
        useServices(gmailPath);
        manager->setMessageReceiver("orvaneNotify", [this](WebKitWebView* sender, JSCValue* body) {
            std::string tag = resultFromJSC(body, nullptr).value.value("tag", "");
            senders.emplace(tag, sender);
        });
    }
    // Posts {tag, orvanePage: <stamp expression>} to orvaneNotify from `from` of the view.
    static void post(WebKitWebView* view, const std::string& tag, const std::string& stamp = "window.__orvanePage",
        const std::string& from = "window") {
        auto result = runJS(view, from + ".webkit.messageHandlers.orvaneNotify.postMessage({ tag: '" + tag
                + "', orvanePage: " + stamp + " }); true");
        ASSERT_TRUE(result.ok) << result.error;
    }
    // The view the message tagged so was attributed to (null: none), once it came.
    WebKitWebView* senderOf(const std::string& tag) {
        EXPECT_TRUE(waitUntil([&] { return senders.contains(tag); })) << tag;
        return senders.contains(tag) ? senders[tag] : reinterpret_cast<WebKitWebView*>(-1);
    }
    std::string stampOf(WebKitWebView* view) { return runJS(view, "window.__orvanePage").value.get<std::string>(); }

    std::map<std::string, WebKitWebView*> senders;
};

TEST_F(MessageSenderWebTest, MessagesNameTheExactSendingViewAndForgedStampsNone) {
    useServicesAndListen("/web/links.html");
    const Account account = store->addAccount();
    const Account other = store->addAccount();
    WebKitWebView* main = show(account);
    WebKitWebView* second = show(other);
    ASSERT_TRUE(waitLoaded(main));
    ASSERT_TRUE(waitLoaded(second));
    ASSERT_TRUE(runJS(main, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    WebKitWebView* popup = manager->popupViews(account.id).front();
    ASSERT_TRUE(waitForJS(popup, "document.title === 'Popup'"));

    // Every frame carries its page's stamp, naming the view's page id. Which
    // view a genuine stamp names through printing is PrintTest's.
    const std::string mainStamp = stampOf(main);
    const std::string origin = runJS(main, "location.origin").value;
    EXPECT_EQ(mainStamp, PageStamp::make(webkit_web_view_get_page_id(main), origin));
    EXPECT_EQ(PageStamp::verify(mainStamp)->pageID, webkit_web_view_get_page_id(main));
    const std::string popupStamp = stampOf(popup);
    EXPECT_EQ(popupStamp, PageStamp::make(webkit_web_view_get_page_id(popup), origin));
    post(popup, "genuine");
    post(second, "from-other-account");
    EXPECT_EQ(senderOf("genuine"), popup) << "a pop-up shares the opener's content manager, and is told apart";
    EXPECT_EQ(senderOf("from-other-account"), second);

    // The stamp cannot be replaced, deleted or redefined by the page.
    auto tamper = runJS(popup, R"JS(
        const before = window.__orvanePage;
        window.__orvanePage = 'x';
        try { delete window.__orvanePage; } catch (e) {}
        let redefined = true;
        try { Object.defineProperty(window, '__orvanePage', { value: 'y' }); } catch (e) { redefined = false; }
        [window.__orvanePage === before, redefined]
    )JS");
    EXPECT_EQ(tamper.value, nlohmann::json({ true, false })) << tamper.error;

    // Claiming the opener's page id with the pop-up's own signature, a
    // made-up one or none names no view; nor does this account's genuine
    // stamp posted to another account's handlers.
    const std::string mainID = std::to_string(webkit_web_view_get_page_id(main));
    post(popup, "own-signature", "'" + mainID + "." + origin + "." + popupStamp.substr(popupStamp.rfind('.') + 1) + "'");
    post(popup, "made-up", "'" + mainID + "." + origin + "." + std::string(64, 'a') + "'");
    post(popup, "bare-id", "'" + mainID + "'");
    post(popup, "unstamped", "undefined");
    post(second, "other-account", "'" + mainStamp + "'");
    for (const char* tag : { "own-signature", "made-up", "bare-id", "unstamped", "other-account" })
        EXPECT_EQ(senderOf(tag), nullptr) << tag;

    // Once the pop-up is gone its stamp names nothing.
    ASSERT_TRUE(runJS(popup, "window.close(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    post(main, "closed-popup", "'" + popupStamp + "'");
    EXPECT_EQ(senderOf("closed-popup"), nullptr);
}

// Pages of other sites may load in an account's view (sign-in redirects) and
// in frames of the service's pages; they are served nothing.
TEST_F(MessageSenderWebTest, OnlyFramesOfTheServicesOwnHostsAreServed) {
    useServicesAndListen("/web/plain.html");
    auto poster = [](const std::string& tag) {
        return "<script>window.webkit.messageHandlers.orvaneNotify.postMessage({ tag: " + tag
            + ", orvanePage: window.__orvanePage });</script>";
    };
    server.serve("/posted", "<!DOCTYPE html><title>Posted</title>" + poster("location.hash.slice(1)"));
    WebKitWebView* main = show(store->addAccount());
    ASSERT_TRUE(waitLoaded(main));

    // A srcdoc document takes its parent's origin, unless sandboxed: then it is opaque.
    const std::tuple<std::string, std::string, std::string, std::string, bool> frames[] = {
        { "same-origin", "src", server.uri("/posted#same-origin"), "", true },
        { "cross-origin", "src", server.uriOnHost("localhost", "/posted#cross-origin"), "", false },
        { "srcdoc", "srcdoc", poster("'srcdoc'"), "", true },
        { "sandboxed", "srcdoc", poster("'sandboxed'"), "f.sandbox = 'allow-scripts';", false },
    };
    for (const auto& [tag, property, value, sandbox, served] : frames)
        ASSERT_TRUE(runJS(main, "{ const f = document.createElement('iframe'); f." + property + " = " + jsonLiteral(value)
            + ";" + sandbox + "document.body.append(f); } true").ok) << tag;
    for (const auto& [tag, property, value, sandbox, served] : frames)
        EXPECT_EQ(senderOf(tag), served ? main : nullptr) << tag;

    // The view sent to another site by a script: neither that site's own
    // stamp nor one it learned from the service's page makes it the account.
    const std::string learned = stampOf(main);
    ASSERT_TRUE(runJS(main, "location = " + jsonLiteral(server.uriOnHost("localhost", "/posted#foreign-page")) + "; true").ok);
    EXPECT_EQ(senderOf("foreign-page"), nullptr);
    post(main, "learned-stamp", "'" + learned + "'");
    EXPECT_EQ(senderOf("learned-stamp"), nullptr);
}

} // namespace
} // namespace orvane::test
