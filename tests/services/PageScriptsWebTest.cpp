#include "MailService.h"
#include "support/TestServices.h"
#include "web/ManagerWebFixture.h"

namespace orvane::test {
namespace {

using nlohmann::json;

// The page scripts' edges, in the stand-in provider pages of tests/fixtures.
// What the e2e suite shows through the real binary is not repeated: composing
// a link in Gmail and Outlook (e2e/MailtoTest), a drop opening a form and
// clicking its file control (e2e/DropAttachTest); the photo and unread
// scripts' answers are AvatarWebTest and UnreadCountsWebTest (tests/web), the
// attach script giving up tests/bridges/PageBridgesWebTest.
class PageScriptsWebTest : public ManagerWebFixture {
protected:
    // What an async function body (Orvane's scripts' form) settles to in the page, acctName in scope.
    json settled(const std::string& body, const std::string& acctName = "") {
        run(view, "window.__settled = null; (async acctName => {\n" + body + "\n})(" + jsonLiteral(acctName)
            + ").then(value => { window.__settled = { value }; })");
        EXPECT_TRUE(waitForJS(view, "window.__settled", 15s));
        return js(view, "window.__settled.value");
    }
};

// Gmail takes recipients on a real Enter (key, keyCode and which), after
// input and change; the script waits for the compose button and leaves the
// subject alone when the link has none.
TEST_F(PageScriptsWebTest, ComposeTypingPhotoAndAttachScriptsOnTheStandInPages) {
    const auto& gmail = testServices().gmail();
    const auto& outlook = testServices().outlook();
    showPlainView();
    ASSERT_TRUE(loadFixture(view, "/gmail/"));
    run(view, "window.__button = document.querySelector('[gh=\"cm\"]'); __button.remove()");
    MailtoComponents link;
    link.to = { "o\"brien@example.com", "tom@example.com" };
    link.subject = "";
    link.body = "Only a body";
    js(view, gmail.composeJS(link));
    run(view, "setTimeout(() => document.querySelector('nav').prepend(__button), 700)");
    ASSERT_TRUE(waitForJS(view, "__fixture.dialogs()[0].body === 'Only a body'"));
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.some(e => e.type === 'keyup')"));
    EXPECT_EQ(js(view, "__fixture.dialogs()[0].to"), json(link.to));
    const std::string to = "o\"brien@example.com, tom@example.com";
    const json events = js(view, "__fixtureLog.filter(e => e.field).map(e =>"
                             " [e.field, e.type, e.value, e.key || '', e.keyCode || 0, e.which || 0])");
    EXPECT_EQ(events, json({ { "to", "input", to, "", 0, 0 }, { "to", "change", to, "", 0, 0 },
        { "to", "keydown", to, "Enter", 13, 13 }, { "to", "keyup", "", "Enter", 13, 13 } }))
        << "an empty subject is no subject";
    EXPECT_EQ(js(view, "__fixtureLog.filter(e => e.type === 'compose-clicked').length"), 1);

    // What Gmail's typing script answers for the stand-in page's compose
    // forms: only text the user typed keeps an idle page awake.
    ASSERT_TRUE(loadFixture(view, "/gmail/"));
    auto answer = [&] { return settled(*gmail.typingJS); };
    EXPECT_EQ(answer(), "none") << "no form";
    run(view, "document.querySelector('[gh=\"cm\"]').click()");
    ASSERT_TRUE(waitForJS(view, "__fixture.dialogs().length === 1"));
    const std::pair<const char*, const char*> cases[] = {
        { "", "none" }, // the signature alone
        { "form.querySelector('[name=subjectbox]').value = 'Lunch'", "typed" },
        { "form.querySelector('[aria-label=\"To recipients\"]').value = 'tom'", "typed" },
        { "form.querySelector('[aria-label=\"Message Body\"]').prepend('See you')", "typed" },
        { "form.querySelector('[aria-label=\"Message Body\"]').prepend('  \\n ')", "none" },
        { "form.querySelector('.gmail_signature').append('Sent from home')", "none" },
        { "form.querySelector('[name=subjectbox]').value = 'Lunch'; form.classList.add('minimised')", "typed" },
    };
    for (const auto& [change, expected] : cases) {
        run(view, "document.getElementById('compose-area').replaceChildren("
            "document.getElementById('compose-template').content.firstElementChild.cloneNode(true))");
        run(view, std::string("{ const form = document.querySelector('.compose'); ") + change + " }");
        EXPECT_EQ(answer(), expected) << change;
    }

    // What the photo and attach scripts answer when the page has less.
    auto photo = [&](const MailService& service, const std::string& name) {
        return settled(*service.photoJS, name);
    };
    run(view, "document.getElementById('account-link').removeAttribute('aria-label')");
    EXPECT_EQ(photo(gmail, ""), server.uri("/gmail/photo.png")) << "img.gbii";
    run(view, "document.querySelector('img.gbii').remove()");
    EXPECT_EQ(photo(gmail, ""), "");

    ASSERT_TRUE(loadFixture(view, "/outlook/mail/"));
    EXPECT_EQ(photo(outlook, "Nobody Here"), photo(outlook, "")) << "no image labelled with the name: the first";
    run(view, "document.querySelector('[aria-label=\"New mail\"]').remove()");
    EXPECT_TRUE(settled(*outlook.attachClickJS).is_null()) << "no form opens";
    EXPECT_EQ(js(view, "[...document.querySelectorAll('input[type=file]')]"
                   ".every(i => i.getAttribute('style') === 'display:none')"), true);
}

} // namespace
} // namespace orvane::test
