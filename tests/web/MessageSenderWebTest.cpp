#include "MailService.h"
#include "MessageSender.h"
#include "PageStamp.h"

#include "ManagerWebFixture.h"

namespace orvane::test {
namespace {

class MessageSenderWebTest : public ManagerWebFixture {
protected:
    struct Received {
        WebKitWebView* sender;
        nlohmann::json body;
    };

    void receive() {
        manager->setMessageReceiver("orvaneNotify", [this](WebKitWebView* sender, JSCValue* body) {
            received.push_back({ sender, resultFromJSC(body, nullptr).value });
        });
    }

    // Posts {tag, orvanePage: <stamp expression>} to orvaneNotify from the view.
    static void post(WebKitWebView* view, const std::string& tag, const std::string& stamp = "window.__orvanePage",
        const std::string& from = "window") {
        auto result = runJS(view, from + ".webkit.messageHandlers.orvaneNotify.postMessage({ tag: '" + tag
                + "', orvanePage: " + stamp + " }); true");
        ASSERT_TRUE(result.ok) << result.error;
    }

    const Received* waitFor(const std::string& tag) {
        const Received* found = nullptr;
        waitUntil([&] {
            for (const auto& r : received)
                if (r.body.is_object() && r.body.value("tag", "") == tag)
                    found = &r;
            return found != nullptr;
        });
        return found;
    }

    std::vector<Received> received;
};

TEST_F(MessageSenderWebTest, MessagesAreAttributedToTheExactSendingView) {
    useServices("/web/links.html");
    receive();
    const Account account = store->addAccount();
    const Account other = store->addAccount();
    WebKitWebView* main = show(account);
    WebKitWebView* second = show(other);
    ASSERT_TRUE(waitLoaded(main));
    ASSERT_TRUE(waitLoaded(second));
    ASSERT_TRUE(waitForJS(main, "document.getElementById('frame').contentDocument.readyState === 'complete'"));

    // Every frame carries its page's stamp, and it names the view's page id.
    auto stamp = runJS(main, "window.__orvanePage");
    ASSERT_TRUE(stamp.ok && stamp.value.is_string()) << stamp.error;
    auto verified = PageStamp::verify(stamp.value.get<std::string>());
    ASSERT_TRUE(verified);
    EXPECT_EQ(verified->pageID, webkit_web_view_get_page_id(main));
    EXPECT_EQ(runJS(main, "document.getElementById('frame').contentWindow.__orvanePage").value, stamp.value);

    // A pop-up shares the opener's content manager: its message reaches the
    // same handler, and is still told apart from the opener's.
    ASSERT_TRUE(runJS(main, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    WebKitWebView* popup = manager->popupViews(account.id).front();
    ASSERT_TRUE(waitForJS(popup, "document.title === 'Popup'"));
    EXPECT_NE(webkit_web_view_get_page_id(popup), webkit_web_view_get_page_id(main));

    post(popup, "from-popup");
    post(main, "from-main");
    post(main, "from-frame", "window.__orvanePage", "document.getElementById('frame').contentWindow");
    post(second, "from-other-account");

    const Received* fromPopup = waitFor("from-popup");
    ASSERT_TRUE(fromPopup);
    EXPECT_EQ(fromPopup->sender, popup);
    EXPECT_FALSE(manager->accountID(fromPopup->sender)) << "a pop-up is no account's main view";
    const Received* fromMain = waitFor("from-main");
    ASSERT_TRUE(fromMain);
    EXPECT_EQ(fromMain->sender, main);
    const Received* fromFrame = waitFor("from-frame");
    ASSERT_TRUE(fromFrame);
    EXPECT_EQ(fromFrame->sender, main) << "an embedded frame belongs to its view";
    const Received* fromOther = waitFor("from-other-account");
    ASSERT_TRUE(fromOther);
    EXPECT_EQ(fromOther->sender, second);
    EXPECT_EQ(manager->accountID(fromOther->sender), other.id);

    // A message carrying the stamp as its whole body works too (the print override's form).
    std::vector<WebKitWebView*> printed;
    manager->setMessageReceiver("orvanePrint", [&](WebKitWebView* sender, JSCValue*) { printed.push_back(sender); });
    ASSERT_TRUE(runJS(popup, "window.webkit.messageHandlers.orvanePrint.postMessage(window.__orvanePage); true").ok);
    ASSERT_TRUE(waitUntil([&] { return !printed.empty(); }));
    EXPECT_EQ(printed.front(), popup);
}

TEST_F(MessageSenderWebTest, APageCannotClaimAnotherViewsIdentity) {
    useServices("/web/links.html");
    receive();
    const Account account = store->addAccount();
    const Account other = store->addAccount();
    WebKitWebView* main = show(account);
    WebKitWebView* otherView = show(other);
    ASSERT_TRUE(waitLoaded(main));
    ASSERT_TRUE(waitLoaded(otherView));
    ASSERT_TRUE(runJS(main, "window.open('/web/popup.html', 'popup'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).size() == 1; }));
    WebKitWebView* popup = manager->popupViews(account.id).front();
    ASSERT_TRUE(waitForJS(popup, "document.title === 'Popup'"));
    std::string mainStamp = runJS(main, "window.__orvanePage").value.get<std::string>();
    std::string mainID = std::to_string(webkit_web_view_get_page_id(main));
    std::string origin = runJS(main, "location.origin").value.get<std::string>();
    std::string popupStamp = runJS(popup, "window.__orvanePage").value.get<std::string>();
    std::string popupSignature = popupStamp.substr(popupStamp.rfind('.') + 1);
    EXPECT_EQ(popupStamp, PageStamp::make(webkit_web_view_get_page_id(popup), origin));

    // The stamp cannot be replaced, deleted or redefined by the page.
    auto tamper = runJS(popup, R"JS(
        const before = window.__orvanePage;
        window.__orvanePage = 'x';
        try { delete window.__orvanePage; } catch (e) {}
        let redefined = true;
        try { Object.defineProperty(window, '__orvanePage', { value: 'y' }); } catch (e) { redefined = false; }
        [window.__orvanePage === before, redefined]
    )JS");
    ASSERT_TRUE(tamper.ok) << tamper.error;
    EXPECT_EQ(tamper.value, nlohmann::json({ true, false }));

    // Claiming the opener's page id, with the pop-up's own signature, a made-up
    // one or none, names no view; nor does this account's genuine stamp
    // posted to another account's handlers.
    post(popup, "own-signature", "'" + mainID + "." + origin + "." + popupSignature + "'");
    post(popup, "made-up", "'" + mainID + "." + origin + "." + std::string(64, 'a') + "'");
    post(popup, "bare-id", "'" + mainID + "'");
    post(popup, "unstamped", "undefined");
    post(otherView, "other-account", "'" + mainStamp + "'");
    post(popup, "genuine");
    ASSERT_TRUE(waitFor("genuine"));
    for (const char* tag : { "own-signature", "made-up", "bare-id", "unstamped", "other-account" }) {
        const Received* r = waitFor(tag);
        ASSERT_TRUE(r) << tag;
        EXPECT_EQ(r->sender, nullptr) << tag;
    }
    EXPECT_EQ(waitFor("genuine")->sender, popup);

    // Once the pop-up is gone its stamp names nothing.
    ASSERT_TRUE(runJS(popup, "window.close(); true").ok);
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    post(main, "closed-popup", "'" + popupStamp + "'");
    ASSERT_TRUE(waitFor("closed-popup"));
    EXPECT_EQ(waitFor("closed-popup")->sender, nullptr);
}

// Pages of other sites may load in an account's view (sign-in redirects) and
// in frames of the service's pages; they are served nothing.
TEST_F(MessageSenderWebTest, OnlyFramesOfTheServicesOwnHostsAreServed) {
    useServices("/web/plain.html");
    receive();
    auto poster = [](const std::string& tag) {
        return "<script>window.webkit.messageHandlers.orvaneNotify.postMessage({ tag: " + tag
            + ", orvanePage: window.__orvanePage });</script>";
    };
    server.serve("/posted", "<!DOCTYPE html><title>Posted</title>" + poster("location.hash.slice(1)"));
    const Account account = store->addAccount();
    WebKitWebView* main = show(account);
    ASSERT_TRUE(waitLoaded(main));

    struct Frame {
        std::string tag;
        std::string property; // of the iframe element
        std::string value;
        std::string sandbox;
        bool served;
    };
    const std::vector<Frame> frames = {
        { "same-origin", "src", server.uri("/posted#same-origin"), "", true },
        { "cross-origin", "src", server.uriOnHost("localhost", "/posted#cross-origin"), "", false },
        // A srcdoc document takes its parent's origin, unless sandboxed: then it is opaque.
        { "srcdoc", "srcdoc", poster("'srcdoc'"), "", true },
        { "sandboxed", "srcdoc", poster("'sandboxed'"), "allow-scripts", false },
    };
    for (const auto& frame : frames) {
        std::string sandbox = frame.sandbox.empty() ? "" : "f.sandbox = " + jsonLiteral(frame.sandbox) + ";";
        ASSERT_TRUE(runJS(main, "{ const f = document.createElement('iframe'); f." + frame.property + " = "
                                    + jsonLiteral(frame.value) + ";" + sandbox + "document.body.append(f); } true").ok)
            << frame.tag;
    }
    for (const auto& frame : frames) {
        const Received* r = waitFor(frame.tag);
        ASSERT_TRUE(r) << frame.tag;
        EXPECT_EQ(r->sender, frame.served ? main : nullptr) << frame.tag;
    }

    // The view sent to another site by a script: neither that site's own
    // stamp nor one it learned from the service's page makes it the account.
    std::string learned = runJS(main, "window.__orvanePage").value.get<std::string>();
    ASSERT_TRUE(runJS(main, "location = " + jsonLiteral(server.uriOnHost("localhost", "/posted#foreign-page")) + "; true").ok);
    const Received* foreign = waitFor("foreign-page");
    ASSERT_TRUE(foreign);
    EXPECT_EQ(foreign->sender, nullptr);
    post(main, "learned-stamp", "'" + learned + "'");
    ASSERT_TRUE(waitFor("learned-stamp"));
    EXPECT_EQ(waitFor("learned-stamp")->sender, nullptr);
}

} // namespace
} // namespace orvane::test
