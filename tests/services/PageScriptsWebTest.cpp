#include "MailService.h"
#include "support/TestServices.h"
#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

using nlohmann::json;

// The page scripts' edges, in the stand-in provider pages of tests/fixtures.
// What the e2e suite shows through the real binary is not repeated: composing
// a link in Gmail and Outlook (e2e/MailtoTest), a drop opening a form and
// clicking its file control (e2e/DropAttachTest); the photo and unread
// scripts' answers are tests/web/AvatarWebTest and UnreadCountsWebTest, the
// attach script giving up tests/bridges/DropAttachWebTest.
class PageScriptsWebTest : public WebViewTest {
protected:
    json page(const std::string& script) { return js(view, script); }
    bool waitFor(const std::string& expression) { return waitForJS(view, expression); }
};

// Gmail takes recipients on a real Enter (key, keyCode and which), after
// input and change; the script waits for the compose button and leaves the
// subject alone when the link has none.
TEST_F(PageScriptsWebTest, ComposeTypingPhotoPollAndAttachScriptsOnTheStandInPages) {
    const auto& gmail = testServices().gmail();
    const auto& outlook = testServices().outlook();
    ASSERT_TRUE(loadFixture("/gmail/"));
    page("window.__button = document.querySelector('[gh=\"cm\"]'); __button.remove(); true");
    MailtoComponents link;
    link.to = { "o\"brien@example.com", "tom@example.com" };
    link.subject = "";
    link.body = "Only a body";
    page(gmail.composeJS(link));
    page("setTimeout(() => document.querySelector('nav').prepend(__button), 700); true");
    ASSERT_TRUE(waitFor("__fixture.dialogs().length === 1"));
    ASSERT_TRUE(waitFor("__fixture.dialogs()[0].body === 'Only a body'"));
    ASSERT_TRUE(waitFor("__fixtureLog.some(e => e.type === 'keyup')"));
    EXPECT_EQ(page("__fixture.dialogs()[0].to"), json(link.to));
    const std::string to = "o\"brien@example.com, tom@example.com";
    const json events = page("__fixtureLog.filter(e => e.field).map(e =>"
                             " [e.field, e.type, e.value, e.key || '', e.keyCode || 0, e.which || 0])");
    EXPECT_EQ(events, json({ { "to", "input", to, "", 0, 0 }, { "to", "change", to, "", 0, 0 },
        { "to", "keydown", to, "Enter", 13, 13 }, { "to", "keyup", "", "Enter", 13, 13 } }))
        << "an empty subject is no subject";
    EXPECT_EQ(page("__fixtureLog.filter(e => e.type === 'compose-clicked').length"), 1);

    // What Gmail's typing script answers for the stand-in page's compose
    // forms: only text the user typed keeps an idle page awake.
    ASSERT_TRUE(loadFixture("/gmail/"));
    auto answer = [&] { return callAsync(*gmail.typingJS).value; };
    EXPECT_EQ(answer(), "none") << "no form";
    page("document.querySelector('[gh=\"cm\"]').click(); true");
    ASSERT_TRUE(waitFor("__fixture.dialogs().length === 1"));
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
        page("document.getElementById('compose-area').replaceChildren("
             "document.getElementById('compose-template').content.firstElementChild.cloneNode(true)); true");
        page(std::string("{ const form = document.querySelector('.compose'); ") + change + " } true");
        EXPECT_EQ(answer(), expected) << change;
    }

    // What the photo, poll and attach scripts answer when the page has less.
    auto photo = [&](const MailService& service, const std::string& name) {
        return callAsync(*service.photoJS, { { "acctName", name } }).value;
    };
    EXPECT_EQ(page(*outlook.unreadPollJS), -1) << "not Outlook's page";
    page("document.getElementById('account-link').removeAttribute('aria-label'); true");
    EXPECT_EQ(photo(gmail, ""), server.uri("/gmail/photo.png")) << "img.gbii";
    page("document.querySelector('img.gbii').remove(); true");
    EXPECT_EQ(photo(gmail, ""), "");

    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    EXPECT_EQ(photo(outlook, "Nobody Here"), photo(outlook, "")) << "no image labelled with the name: the first";
    page("document.querySelector('[aria-label=\"New mail\"]').remove(); true");
    EXPECT_TRUE(callAsync(*outlook.attachClickJS).value.is_null()) << "no form opens";
    EXPECT_EQ(page("[...document.querySelectorAll('input[type=file]')]"
                   ".every(i => i.getAttribute('style') === 'display:none')"), true);
}

} // namespace
} // namespace orvane::test
