#include "PageScripts.h"
#include "MailService.h"
#include "support/WebViewTest.h"

#include "Files.h"

namespace orvane::test {
namespace {

// The service scripts run in the stand-in provider pages of tests/fixtures,
// the way Orvane runs them: compose scripts evaluated as programs, attach and
// photo scripts as async function bodies, the unread poll as a program.
class PageScriptsWebTest : public WebViewTest {
protected:
    void SetUp() override {
        WebViewTest::SetUp();
        g_signal_connect(view, "script-dialog", G_CALLBACK(+[](WebKitWebView*, WebKitScriptDialog*, gpointer data) {
            ++*static_cast<int*>(data);
            return TRUE;
        }), &m_dialogs);
        g_signal_connect(view, "run-file-chooser", G_CALLBACK(+[](WebKitWebView*, WebKitFileChooserRequest* request, gpointer data) {
            ++*static_cast<int*>(data);
            webkit_file_chooser_request_cancel(request);
            return TRUE;
        }), &m_fileChoosers);
    }

    // As the app runs a compose script: in the main frame's page world, named
    // after its resource.
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
        ASSERT_TRUE(result.ok) << result.error;
        EXPECT_TRUE(result.value.is_null()) << "a compose program has no value";
    }

    nlohmann::json page(const std::string& expression) {
        auto result = runJS(expression);
        EXPECT_TRUE(result.ok) << expression << ": " << result.error;
        return result.value;
    }

    nlohmann::json logOf(const std::string& type) {
        return page("__fixtureLog.filter(e => e.type === " + jsonLiteral(type) + ")");
    }

    JSResult attach(const MailService& service) { return callAsync(*service.attachClickJS); }
    JSResult photo(const MailService& service, const std::string& acctName) {
        return callAsync(*service.photoJS, { { "acctName", acctName } });
    }

    // Values that break scripts built by pasting text together.
    static constexpr const char* kHostile = "\"q\" 'a' \\b\\ </script><script>window.__injected=1</script> \");window.__injected=2;alert(1)//";

    int m_dialogs = 0;
    int m_fileChoosers = 0;
};

TEST_F(PageScriptsWebTest, GmailComposeFillsToSubjectAndBodyAndPressesEnterOnTo) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    MailtoComponents link;
    link.to = { "ana@example.com", "tom@example.com" };
    link.cc = { "cc@example.com" };
    link.subject = "Lunch";
    link.body = "See you\nat noon";
    compose(MailService::gmail(), link);
    ASSERT_TRUE(waitForJS("__fixtureLog.some(e => e.type === 'keyup')"));

    auto dialogs = page("__fixture.dialogs()");
    ASSERT_EQ(dialogs.size(), 1u);
    EXPECT_EQ(dialogs[0]["to"], nlohmann::json({ "ana@example.com", "tom@example.com" }));
    EXPECT_EQ(dialogs[0]["subject"], "Lunch");
    EXPECT_EQ(dialogs[0]["body"], "See you\nat noon"); // the signature is gone

    // Value set, then input and change, then Enter down and up, on To.
    auto toEvents = page("__fixtureLog.filter(e => e.field === 'to').map(e => [e.type, e.value, e.key || '', e.keyCode || 0, e.which || 0])");
    EXPECT_EQ(toEvents, nlohmann::json::parse(R"([
        ["input", "ana@example.com, tom@example.com", "", 0, 0],
        ["change", "ana@example.com, tom@example.com", "", 0, 0],
        ["keydown", "ana@example.com, tom@example.com", "Enter", 13, 13],
        ["keyup", "", "Enter", 13, 13]])"));
    EXPECT_EQ(page("__fixtureLog.filter(e => e.field === 'subject').map(e => e.type)"), nlohmann::json({ "input", "change" }));
    EXPECT_EQ(logOf("compose-clicked").size(), 1u);
}

TEST_F(PageScriptsWebTest, GmailComposeValuesArriveUnchangedAndRunNothing) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    const std::string subject = std::string(kHostile) + " \u2028 \u2029 ${x} `y` end";
    const std::string body = std::string(kHostile) + "\nsecond line \u2028 \\n\n\nlast";
    MailtoComponents link;
    link.to = { "o\"brien@example.com", "back\\slash@example.com" };
    link.subject = subject;
    link.body = body;
    compose(MailService::gmail(), link);
    ASSERT_TRUE(waitForJS("__fixtureLog.some(e => e.type === 'keyup')"));

    auto dialog = page("__fixture.dialogs()[0]");
    EXPECT_EQ(dialog["to"], nlohmann::json({ "o\"brien@example.com", "back\\slash@example.com" }));
    EXPECT_EQ(dialog["subject"], subject);
    // The editor keeps every character; its lines become blocks, and its
    // text rendering shows U+2028 as a space.
    std::string flat = body;
    std::erase(flat, '\n');
    EXPECT_EQ(page("document.querySelector('[aria-label=\"Message Body\"]').textContent"), flat);
    EXPECT_EQ(page("__fixture.dialogs()[0].body.split('\\n').length"), 4);
    EXPECT_EQ(page("typeof window.__injected"), "undefined");
    EXPECT_EQ(page("document.scripts.length"), 1);
    EXPECT_EQ(m_dialogs, 0);
}

TEST_F(PageScriptsWebTest, GmailComposeLeavesToAndSubjectAloneWhenTheLinkHasNone) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    MailtoComponents link;
    link.body = "Only a body";
    compose(MailService::gmail(), link);
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 1 && __fixture.dialogs()[0].body === 'Only a body'"));
    EXPECT_EQ(page("__fixtureLog.filter(e => e.field).length"), 0);

    // An empty subject behaves like an absent one.
    page("document.querySelector('.compose .close').click(); true");
    link.subject = "";
    link.body = "Second";
    compose(MailService::gmail(), link);
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 1 && __fixture.dialogs()[0].body === 'Second'"));
    EXPECT_EQ(page("__fixture.dialogs()[0].subject"), "");
    EXPECT_EQ(page("__fixtureLog.filter(e => e.field).length"), 0);
}

TEST_F(PageScriptsWebTest, GmailComposeWaitsForTheComposeButton) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    page("window.__button = document.querySelector('[gh=\"cm\"]'); __button.remove(); true");
    MailtoComponents link;
    link.subject = "Late";
    compose(MailService::gmail(), link);
    // The script keeps looking for the button until the page shows it.
    page("setTimeout(() => document.querySelector('nav').prepend(__button), 700); true");
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 1 && __fixture.dialogs()[0].subject === 'Late'"));
    EXPECT_EQ(logOf("compose-clicked").size(), 1u);
}

TEST_F(PageScriptsWebTest, OutlookComposeOpensTheFormAndTypesEachAddressWithEnter) {
    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    MailtoComponents link;
    link.to = { "ana@example.com", "\");alert(1)//@example.com" };
    link.bcc = { "hidden@example.com" };
    link.subject = std::string(kHostile) + " \u2028 end";
    link.body = "Hello\n\"there\" \\ </script>";
    compose(MailService::outlook(), link);
    ASSERT_TRUE(waitForJS("__fixture.compose().body.includes('Hello')", 15s));

    auto form = page("__fixture.compose()");
    EXPECT_EQ(form["open"], true);
    EXPECT_EQ(form["to"], nlohmann::json({ "ana@example.com", "\");alert(1)//@example.com" }));
    EXPECT_EQ(form["toText"], "");
    EXPECT_EQ(form["subject"], *link.subject);
    std::string body = form["body"];
    EXPECT_EQ(body.rfind("Hello\n\"there\" \\ </script>", 0), 0u) << body;
    EXPECT_NE(body.find("Sent from Outlook"), std::string::npos) << "the body goes in at the caret";
    EXPECT_EQ(page("document.querySelector('[aria-label=\"Cc\"]').textContent"), "");

    EXPECT_EQ(logOf("new-mail-clicked").size(), 1u);
    auto keys = page("__fixtureLog.filter(e => e.type === 'keydown').map(e => [e.key, e.keyCode, e.text])");
    EXPECT_EQ(keys, nlohmann::json::parse(R"([["Enter", 13, "ana@example.com"], ["Enter", 13, "\");alert(1)//@example.com"]])"));
    EXPECT_EQ(page("__fixtureLog.filter(e => e.field === 'subject').length"), 1);
    EXPECT_EQ(page("typeof window.__injected"), "undefined");
    EXPECT_EQ(m_dialogs, 0);

    // With the form showing, an empty link clicks nothing and types nothing.
    // The script has no waits then, so it is done when the program returns.
    compose(MailService::outlook(), MailtoComponents {});
    EXPECT_EQ(logOf("new-mail-clicked").size(), 1u);
    EXPECT_EQ(logOf("keydown").size(), 2u);
    EXPECT_EQ(page("__fixture.compose().subject"), *link.subject);
}

TEST_F(PageScriptsWebTest, OutlookUnreadPollReadsTheInboxFolder) {
    const std::string& poll = *MailService::outlook().unreadPollJS;
    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    auto count = [&] {
        auto result = evaluate(poll, MailService::outlook().unreadPollScriptName);
        EXPECT_TRUE(result.ok) << result.error;
        return result.value;
    };
    EXPECT_EQ(count(), 3);
    page("__fixture.setUnread(1234); true");
    EXPECT_EQ(count(), 1234);
    page("__fixture.setUnread(0); true");
    EXPECT_EQ(count(), 0);
    page("document.querySelector('[data-folder-name=inbox]').setAttribute('title', 'Inbox (7   UNREAD)'); true");
    EXPECT_EQ(count(), 7);
    page("document.querySelector('[data-folder-name=inbox]').setAttribute('title', 'Inbox (1,234 unread)'); true");
    EXPECT_EQ(count(), 0);
    page("document.querySelector('[data-folder-name=inbox]').removeAttribute('title'); true");
    EXPECT_EQ(count(), 0);
    page("__fixture.signOut(); true");
    EXPECT_EQ(count(), -1);

    ASSERT_TRUE(loadFixture("/gmail/"));
    EXPECT_EQ(count(), -1);
}

TEST_F(PageScriptsWebTest, GmailAttachOpensComposeAndPointsAtTheNewestForm) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    const std::string centre = "(() => { const b = document.querySelector('.compose:not(.minimised) [command=\"Files\"]').getBoundingClientRect();"
                               " return {x: b.left + b.width / 2, y: b.top + b.height / 2}; })()";
    auto first = attach(MailService::gmail());
    ASSERT_TRUE(first.ok) << first.error;
    EXPECT_EQ(logOf("compose-clicked").size(), 1u);
    EXPECT_EQ(first.value, page(centre));

    page("document.querySelector('[gh=\"cm\"]').click(); true");
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 2"));
    auto second = attach(MailService::gmail());
    ASSERT_TRUE(second.ok) << second.error;
    EXPECT_EQ(second.value, page(centre));
    EXPECT_EQ(logOf("compose-clicked").size(), 2u) << "a form was open: no new one";

    // The app clicks at the point; the page's file input opens its chooser.
    double x = second.value["x"], y = second.value["y"];
    std::string hit = "document.elementFromPoint(" + std::to_string(x) + ", " + std::to_string(y) + ")";
    EXPECT_EQ(page(hit + ".closest('.compose') === document.querySelector('#compose-area .compose')"), true) << "the newest form";
    page(hit + ".click(); true");
    ASSERT_TRUE(waitUntil([&] { return m_fileChoosers == 1; }));
    EXPECT_EQ(logOf("file-input-click").size(), 1u);
}

TEST_F(PageScriptsWebTest, GmailAttachGivesNullWithoutControlOrComposeButton) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    page("document.querySelector('[gh=\"cm\"]').remove(); true");
    auto result = attach(MailService::gmail());
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_TRUE(result.value.is_null());
}

TEST_F(PageScriptsWebTest, OutlookAttachPlacesTheUnfilteredFileInputAndRestoresIt) {
    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    const std::string input = "document.querySelectorAll('input[type=file]')[1]";
    const std::string placed = "position:fixed;left:60px;top:60px;width:90px;height:44px;opacity:0.01;display:block;z-index:2147483647";

    auto result = attach(MailService::outlook());
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.value, nlohmann::json({ { "x", 105 }, { "y", 82 } }));
    EXPECT_EQ(logOf("new-mail-clicked").size(), 1u);
    EXPECT_EQ(page("__fixture.compose().open"), true);
    EXPECT_EQ(page(input + ".getAttribute('style')"), placed);
    EXPECT_EQ(page(input + ".dataset.orvaneOrigStyle"), "display:none");
    EXPECT_EQ(page("document.querySelectorAll('input[type=file]')[0].getAttribute('style')"), "display:none");
    EXPECT_EQ(page("document.elementFromPoint(105, 82) === " + input), true);

    // A second drop while the input is still placed keeps the page's style.
    auto again = attach(MailService::outlook());
    ASSERT_TRUE(again.ok) << again.error;
    EXPECT_EQ(again.value, result.value);
    EXPECT_EQ(logOf("new-mail-clicked").size(), 1u);

    page("document.elementFromPoint(105, 82).click(); true");
    ASSERT_TRUE(waitUntil([&] { return m_fileChoosers == 1; }));
    EXPECT_EQ(page("__fixtureLog.filter(e => e.type === 'file-input-click').map(e => e.accept)"), nlohmann::json({ nullptr }));

    ASSERT_TRUE(waitForJS(input + ".getAttribute('style') === 'display:none'", 8s));
    EXPECT_EQ(page(input + ".getBoundingClientRect().width"), 0);
}

TEST_F(PageScriptsWebTest, OutlookAttachGivesNullWhenNoFormOpens) {
    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    page("document.querySelector('[aria-label=\"New mail\"]').remove(); true");
    auto result = attach(MailService::outlook());
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_TRUE(result.value.is_null());
    EXPECT_EQ(page("[...document.querySelectorAll('input[type=file]')].every(i => i.getAttribute('style') === 'display:none')"), true);
}

TEST_F(PageScriptsWebTest, GmailPhotoIsTheAccountImageAddress) {
    ASSERT_TRUE(loadFixture("/gmail/"));
    auto result = photo(MailService::gmail(), "ignored");
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.value, server.uri("/gmail/photo.png"));

    page("document.getElementById('account-link').setAttribute('aria-label', 'Google account: x'); true");
    EXPECT_EQ(photo(MailService::gmail(), "").value, server.uri("/gmail/photo.png"));
    page("document.getElementById('account-link').removeAttribute('aria-label'); true");
    EXPECT_EQ(photo(MailService::gmail(), "").value, server.uri("/gmail/photo.png")) << "img.gbii";
    page("document.querySelector('img.gbii').remove(); true");
    EXPECT_EQ(photo(MailService::gmail(), "").value, "");
}

TEST_F(PageScriptsWebTest, OutlookPhotoIsFetchedInThePageAsADataAddress) {
    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    auto bytesOf = [](const nlohmann::json& value) -> std::string {
        if (!value.is_string())
            return "not text";
        const std::string text = value;
        const std::string prefix = "data:image/png;base64,";
        if (text.rfind(prefix, 0) != 0)
            return "not a PNG data address: " + text.substr(0, 40);
        gsize size = 0;
        GCharPtr decoded(reinterpret_cast<char*>(g_base64_decode(text.c_str() + prefix.size(), &size)));
        return std::string(decoded.get(), size);
    };
    auto own = Files::read(FixtureServer::fixturesDir() + "/outlook/mail/avatar.png", 1 << 20);
    auto other = Files::read(FixtureServer::fixturesDir() + "/outlook/mail/other-person.png", 1 << 20);
    ASSERT_TRUE(own && other);

    auto result = photo(MailService::outlook(), "Display Name");
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(bytesOf(result.value), *own);

    // No name, or a name without a labelled image with an address: the first image.
    EXPECT_EQ(bytesOf(photo(MailService::outlook(), "").value), *other);
    EXPECT_EQ(bytesOf(photo(MailService::outlook(), "Nobody Here").value), *other);
    EXPECT_EQ(bytesOf(photo(MailService::outlook(), "Ana Ruiz").value), *other);

    page("document.querySelectorAll('img.fui-Avatar__image').forEach(i => i.removeAttribute('src')); true");
    auto none = photo(MailService::outlook(), "Display Name");
    ASSERT_TRUE(none.ok) << none.error;
    EXPECT_EQ(none.value, "");
}

} // namespace
} // namespace orvane::test
