#include "PageScripts.h"
#include "MailService.h"
#include "support/TestServices.h"
#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

using nlohmann::json;

// The page scripts' edges, in the stand-in provider pages of tests/fixtures,
// run the way Orvane runs them: compose scripts as programs named after their
// resource, the others as async function bodies. What the e2e suite shows
// through the real binary is not repeated: composing with hostile text
// and Outlook's To, subject and body (e2e/MailtoTest), a drop opening a form
// and clicking its file control, Outlook's unfiltered input put back
// (e2e/DropAttachTest); the photo and unread scripts' usual answers are
// tests/web/AvatarWebTest and UnreadCountsWebTest.
class PageScriptsWebTest : public WebViewTest {
protected:
    JSResult evaluate(const std::string& script, const std::string& scriptName) {
        struct Pending {
            bool done = false;
            JSResult result;
        };
        auto pending = std::make_shared<Pending>();
        std::string uri = PageScripts::sourceURI(scriptName);
        webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr, uri.c_str(),
            nullptr, [](GObject* source, GAsyncResult* res, gpointer data) {
                std::unique_ptr<std::shared_ptr<Pending>> p(static_cast<std::shared_ptr<Pending>*>(data));
                GErrorPtr error;
                Ref<JSCValue> value = adopt(webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), res, GErrorOut(error)));
                (*p)->result = resultFromJSC(value.get(), error.get());
                (*p)->done = true;
            }, new std::shared_ptr<Pending>(pending));
        if (!waitUntil([&] { return pending->done; }, 10s))
            return JSResult { false, nullptr, "timed out" };
        return pending->result;
    }

    void compose(const MailService& service, const MailtoComponents& link) {
        auto result = evaluate(service.composeJS(link), service.composeScriptName);
        EXPECT_TRUE(result.ok) << result.error;
    }

    json page(const std::string& expression) {
        auto result = runJS(expression);
        EXPECT_TRUE(result.ok) << expression << ": " << result.error;
        return result.value;
    }
    size_t logged(const std::string& type) { return page("__fixtureLog.filter(e => e.type === " + jsonLiteral(type) + ")").size(); }

};

// Gmail takes recipients on a real Enter (key, keyCode and which), after
// input and change; the script waits for the compose button and leaves the
// subject alone when the link has none.
TEST_F(PageScriptsWebTest, GmailComposeWaitsForTheButtonAndPressesEnterOnTo) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    page("window.__button = document.querySelector('[gh=\"cm\"]'); __button.remove(); true");
    MailtoComponents link;
    link.to = { "o\"brien@example.com", "tom@example.com" };
    link.subject = "";
    link.body = "Only a body";
    compose(test::testServices().gmail(), link);
    page("setTimeout(() => document.querySelector('nav').prepend(__button), 700); true");
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 1 && __fixture.dialogs()[0].body === 'Only a body'"));
    ASSERT_TRUE(waitForJS("__fixtureLog.some(e => e.type === 'keyup')"));
    EXPECT_EQ(page("__fixture.dialogs()[0].to"), json(link.to));
    const std::string joined = "o\"brien@example.com, tom@example.com";
    EXPECT_EQ(page("__fixtureLog.filter(e => e.field).map(e => [e.field, e.type, e.value, e.key || '', e.keyCode || 0, e.which || 0])"),
        json({ { "to", "input", joined, "", 0, 0 }, { "to", "change", joined, "", 0, 0 }, { "to", "keydown", joined, "Enter", 13, 13 },
            { "to", "keyup", "", "Enter", 13, 13 } })) << "an empty subject is no subject";
    EXPECT_EQ(logged("compose-clicked"), 1u);
}

TEST_F(PageScriptsWebTest, WhatTheOtherScriptsFallBackOnWhenThePageHasLess) {
    const auto& gmail = test::testServices().gmail();
    const auto& outlook = test::testServices().outlook();
    auto photo = [&](const MailService& service, const std::string& name) { return callAsync(*service.photoJS, { { "acctName", name } }).value; };
    auto poll = [&] { return evaluate(*outlook.unreadPollJS, outlook.unreadPollScriptName).value; };
    ASSERT_TRUE(loadFixture("/gmail/"));
    EXPECT_EQ(poll(), -1) << "not Outlook's page";
    page("document.getElementById('account-link').removeAttribute('aria-label'); true");
    EXPECT_EQ(photo(gmail, ""), server.uri("/gmail/photo.png")) << "img.gbii";
    page("document.querySelector('img.gbii').remove(); document.querySelector('[gh=\"cm\"]').remove(); true");
    EXPECT_EQ(photo(gmail, ""), "");
    auto attach = callAsync(*gmail.attachClickJS);
    EXPECT_TRUE(attach.ok && attach.value.is_null()) << "no form and no compose button: " << attach.error;

    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    const std::string first = photo(outlook, "").get<std::string>();
    EXPECT_EQ(first.rfind("data:image/png;base64,", 0), 0u);
    EXPECT_NE(photo(outlook, "Display Name"), first) << "the image labelled with the name";
    EXPECT_EQ(photo(outlook, "Nobody Here"), first) << "else the first image";
    for (const auto& [title, unread] : { std::pair("Inbox (7   UNREAD)", 7), std::pair("Inbox (1,234 unread)", 0) }) {
        page(std::string("document.querySelector('[data-folder-name=inbox]').title = ") + jsonLiteral(title) + "; true");
        EXPECT_EQ(poll(), unread) << title;
    }
    page("document.querySelector('[aria-label=\"New mail\"]').remove(); __fixture.signOut(); true");
    EXPECT_EQ(poll(), -1) << "signed out";
    EXPECT_TRUE(callAsync(*outlook.attachClickJS).value.is_null()) << "no form opens";
    EXPECT_EQ(page("[...document.querySelectorAll('input[type=file]')].every(i => i.getAttribute('style') === 'display:none')"), true);
}

} // namespace
} // namespace orvane::test
