// notification-shim.js in real account views: what the page sees of
// Notification, what it posts to orvaneNotify, and what a click runs.
#include "WebScripts.h"
#include "web/ManagerWebFixture.h"

namespace orvane::test {
namespace {

class NotificationShimWebTest : public ManagerWebFixture {
protected:
    struct Received {
        WebKitWebView* sender;
        nlohmann::json body;
    };

    // An account view on shim.html, its frame loaded, with the messages to
    // orvaneNotify recorded instead of shown.
    WebKitWebView* openPage() {
        useServices("/notify/shim.html");
        manager->setMessageReceiver("orvaneNotify", [this](WebKitWebView* sender, JSCValue* body) {
            received.push_back({ sender, resultFromJSC(body, nullptr).value });
        });
        WebKitWebView* view = show(store->addAccount());
        EXPECT_TRUE(waitLoaded(view));
        EXPECT_TRUE(waitForJS(view, "document.getElementById('frame').contentDocument.readyState === 'complete'"));
        return view;
    }

    nlohmann::json run(WebKitWebView* view, const std::string& script) {
        auto result = runJS(view, script);
        EXPECT_TRUE(result.ok) << script << ": " << result.error;
        return result.value;
    }

    std::vector<Received> received;
};

TEST_F(NotificationShimWebTest, PagesGetAGrantedNotificationThatPostsEachOneWithItsStamp) {
    WebKitWebView* view = openPage();
    ASSERT_FALSE(HasFatalFailure());

    EXPECT_EQ(run(view, "[Notification.permission, Notification.maxActions]"), nlohmann::json({ "granted", 0 }));
    // The callback is answered at once, the promise soon after.
    EXPECT_EQ(run(view, "let answer; Notification.requestPermission(p => { answer = p; }); answer"), "granted");
    run(view, "Notification.requestPermission().then(p => { window.promised = p; }); true");
    EXPECT_TRUE(waitForJS(view, "window.promised === 'granted'"));
    // A callback that throws stays in the page's hands; the promise still comes.
    EXPECT_EQ(run(view, "let p = Notification.requestPermission(() => { throw new Error('page'); }); p instanceof Promise"), true);

    std::string stamp = run(view, "window.__orvanePage").get<std::string>();
    ASSERT_FALSE(stamp.empty());
    run(view, "new Notification('Hi'); true");
    run(view, "new Notification('New mail', { body: 'From Ann', tag: 'inbox', icon: 'x.png', data: { a: 1 } }); true");
    // An embedded frame counts on its own.
    run(view, "new (document.getElementById('frame').contentWindow.Notification)('In frame'); true");
    ASSERT_TRUE(waitUntil([&] { return received.size() == 3; }));
    EXPECT_EQ(received[0].body, nlohmann::json({ { "id", "1" }, { "title", "Hi" }, { "body", "" }, { "tag", "" }, { "orvanePage", stamp } }));
    EXPECT_EQ(received[1].body, nlohmann::json({ { "id", "2" }, { "title", "New mail" }, { "body", "From Ann" }, { "tag", "inbox" }, { "orvanePage", stamp } }));
    EXPECT_EQ(received[2].body.value("id", ""), "1");
    EXPECT_EQ(received[2].body.value("orvanePage", ""), stamp);
    for (const auto& message : received)
        EXPECT_EQ(message.sender, view);

    // A second injection into the same frame leaves the first shim working.
    run(view, "window.firstShim = window.Notification; true");
    run(view, std::string(WebScripts::text("bridges/notification-shim.js")) + "; true");
    EXPECT_EQ(run(view, "window.Notification === window.firstShim"), true);
    run(view, "new Notification('After'); true");
    ASSERT_TRUE(waitUntil([&] { return received.size() == 4; }));
    EXPECT_EQ(received[3].body.value("id", ""), "3");
    EXPECT_EQ(run(view, "[new Notification('x').title, new Notification().title, new Notification('y').body]"),
        nlohmann::json({ "x", "", "" }));
}

TEST_F(NotificationShimWebTest, AClickRunsTheListenerThePageLeftInPlace) {
    WebKitWebView* view = openPage();
    ASSERT_FALSE(HasFatalFailure());
    run(view, R"JS(
        window.calls = [];
        window.listener = event => calls.push('listener:' + typeof event.preventDefault);
        window.clicked = new Notification('Click me');
        clicked.addEventListener('click', listener);
        clicked.removeEventListener('click', () => {});
        clicked.onshow = () => calls.push('shown');
        true)JS");
    EXPECT_TRUE(waitForJS(view, "calls.includes('shown')"));
    EXPECT_EQ(run(view, "__orvaneClickNotif(clicked._id); calls.filter(c => c !== 'shown')"),
        nlohmann::json({ "listener:function" }));

    // Removed, closed, unknown or odd ids run nothing; a throwing handler
    // stays inside the page.
    EXPECT_EQ(run(view, R"JS(
        calls = [];
        clicked.removeEventListener('click', listener);
        __orvaneClickNotif(clicked._id);
        const closed = new Notification('Closed');
        closed.onclick = () => calls.push('closed clicked');
        closed.onclose = () => calls.push('onclose');
        closed.close();
        __orvaneClickNotif(closed._id);
        for (const id of ['99', '__proto__', 'constructor', 'toString', ''])
            __orvaneClickNotif(id);
        const throwing = new Notification('Throws');
        throwing.onclick = () => { calls.push('threw'); throw new Error('page'); };
        __orvaneClickNotif(throwing._id);
        calls)JS"),
        nlohmann::json({ "onclose", "threw" }));
    EXPECT_EQ(run(view, "Notification.prototype.dispatchEvent.call(clicked, {})"), true);
}

} // namespace
} // namespace orvane::test
