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
// scripts' usual answers are tests/web/AvatarWebTest and UnreadCountsWebTest.
class PageScriptsWebTest : public WebViewTest {
protected:
    json page(const std::string& script) {
        auto result = runJS(script);
        EXPECT_TRUE(result.ok) << script << ": " << result.error;
        return result.value;
    }
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
    page(testServices().gmail().composeJS(link));
    page("setTimeout(() => document.querySelector('nav').prepend(__button), 700); true");
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 1"));
    ASSERT_TRUE(waitForJS("__fixture.dialogs()[0].body === 'Only a body'"));
    ASSERT_TRUE(waitForJS("__fixtureLog.some(e => e.type === 'keyup')"));
    EXPECT_EQ(page("__fixture.dialogs()[0].to"), json(link.to));
    const std::string to = "o\"brien@example.com, tom@example.com";
    const json events = page("__fixtureLog.filter(e => e.field).map(e =>"
                             " [e.field, e.type, e.value, e.key || '', e.keyCode || 0, e.which || 0])");
    EXPECT_EQ(events, json({ { "to", "input", to, "", 0, 0 }, { "to", "change", to, "", 0, 0 },
        { "to", "keydown", to, "Enter", 13, 13 }, { "to", "keyup", "", "Enter", 13, 13 } }))
        << "an empty subject is no subject";
    EXPECT_EQ(page("__fixtureLog.filter(e => e.type === 'compose-clicked').length"), 1);
}

TEST_F(PageScriptsWebTest, WhatTheOtherScriptsFallBackOnWhenThePageHasLess) {
    const auto& gmail = testServices().gmail();
    const auto& outlook = testServices().outlook();
    auto photo = [&](const MailService& service, const std::string& name) {
        return callAsync(*service.photoJS, { { "acctName", name } }).value;
    };
    auto poll = [&] { return page(*outlook.unreadPollJS); };
    ASSERT_TRUE(loadFixture("/gmail/"));
    EXPECT_EQ(poll(), -1) << "not Outlook's page";
    page("document.getElementById('account-link').removeAttribute('aria-label'); true");
    EXPECT_EQ(photo(gmail, ""), server.uri("/gmail/photo.png")) << "img.gbii";
    page("document.querySelector('img.gbii').remove(); document.querySelector('[gh=\"cm\"]').remove(); true");
    EXPECT_EQ(photo(gmail, ""), "");
    auto attach = callAsync(*gmail.attachClickJS);
    EXPECT_TRUE(attach.ok && attach.value.is_null()) << "no form and no compose button: " << attach.error;

    ASSERT_TRUE(loadFixture("/outlook/mail/"));
    const json first = photo(outlook, "");
    EXPECT_EQ(first.get<std::string>().rfind("data:image/png;base64,", 0), 0u);
    EXPECT_NE(photo(outlook, "Display Name"), first) << "the image labelled with the name";
    EXPECT_EQ(photo(outlook, "Nobody Here"), first) << "else the first image";
    // Any spaces and letter case around the count; separators end it.
    const std::pair<const char*, int> polls[] = { { "Inbox (7  UNREAD)", 7 }, { "Inbox (1,234 unread)", 0 } };
    for (const auto& [title, unread] : polls) {
        page("document.querySelector('[data-folder-name=inbox]').title = " + jsonLiteral(title) + "; true");
        EXPECT_EQ(poll(), unread) << title;
    }
    page("document.querySelector('[aria-label=\"New mail\"]').remove(); __fixture.signOut(); true");
    EXPECT_EQ(poll(), -1) << "signed out";
    EXPECT_TRUE(callAsync(*outlook.attachClickJS).value.is_null()) << "no form opens";
    const char* hidden = "[...document.querySelectorAll('input[type=file]')]"
                         ".every(i => i.getAttribute('style') === 'display:none')";
    EXPECT_EQ(page(hidden), true);
}

} // namespace
} // namespace orvane::test
