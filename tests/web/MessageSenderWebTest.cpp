// Which view a page's script message came from: the stamp Orvane's web
// extension puts in every frame names the exact view, and nothing a page can
// make or learn names another one. Pages of other sites may load in an
// account's view (sign-in redirects) and in frames of the service's pages;
// they are served nothing.
#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

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
    std::string stampOf(WebKitWebView* view) { return runJS(view, "window.__orvanePage").value.get<std::string>(); }

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
    // stamp posted to another account's handlers, nor a closed pop-up's.
    const std::string mainStamp = stampOf(main), popupStamp = stampOf(popup);
    const std::string claim = std::to_string(webkit_web_view_get_page_id(main)) + "."
        + runJS(main, "location.origin").value.get<std::string>();
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

} // namespace
} // namespace orvane::test
