#include "MailService.h"
#include "support/TestServices.h"
#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

// What Gmail's typing script answers for the stand-in page's compose forms:
// only text the user typed keeps an idle page awake.
using TypingScriptWebTest = WebViewTest;

TEST_F(TypingScriptWebTest, OnlyTypedTextInAComposeFormCounts) {
    const auto& gmail = test::testServices().gmail();
    ASSERT_TRUE(loadFixture("/gmail/"));
    auto answer = [&] { return callAsync(*gmail.typingJS).value; };
    EXPECT_EQ(answer(), "none") << "no form";
    ASSERT_TRUE(runJS("document.querySelector('[gh=\"cm\"]').click(); true").ok);
    ASSERT_TRUE(waitForJS("__fixture.dialogs().length === 1"));
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
        ASSERT_TRUE(runJS("document.getElementById('compose-area').replaceChildren("
            "document.getElementById('compose-template').content.firstElementChild.cloneNode(true)); true").ok);
        ASSERT_TRUE(runJS(std::string("{ const form = document.querySelector('.compose'); ") + change + " } true").ok) << change;
        EXPECT_EQ(answer(), expected) << change;
    }
}

} // namespace
} // namespace orvane::test
