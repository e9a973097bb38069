// mailto: links end to end: a link orvane starts with, and one a page
// follows, go through the sender picker into the chosen account's compose
// form, which the Gmail and Outlook stand-ins report.
#include "E2ETest.h"

namespace orvane::test {

namespace {

constexpr const char* kGmailID = "6A2F3C1E-8D4B-4E7A-9C1D-2B3E4F5A6B7C";
constexpr const char* kOutlookID = "1B2C3D4E-5F60-4172-8394-A5B6C7D8E9F0";

// Reports every change of the page's compose form (Gmail's first dialog).
constexpr const char* kFormReporter = R"JS(
let lastForm = '';
setInterval(() => {
    let form;
    try {
        form = window.__fixture.dialogs ? window.__fixture.dialogs()[0] || null : window.__fixture.compose();
    } catch (e) {
        return;
    }
    if (JSON.stringify(form) !== lastForm)
        report('form', form), lastForm = JSON.stringify(form);
}, 100);
)JS";

} // namespace

class MailtoTest : public E2ETest {
protected:
    // A text field of the page's form as last reported, or "".
    std::string field(const std::string& who, const char* name = "subject") const {
        auto forms = events(who, "form");
        auto form = forms.empty() ? nlohmann::json() : forms.back().data;
        return form.is_object() && form[name].is_string() ? form[name].get<std::string>() : "";
    }

    // The picker's backdrop darkens the content; the point (lower left,
    // beside the account column) is well away from its card.
    bool pickerOnScreen(const std::string& name, bool shown) {
        auto point = pointIn(mainWindow(), 0, 1);
        return waitForScreenshot(name, [&](const Screenshot& shot) {
            int red = shot.pixel(point.first + 120, point.second - 30).red;
            return shown ? red < 190 : red > 215;
        });
    }
};

TEST_F(MailtoTest, LinksFromTheDesktopAndFromAPageGoThroughThePickerIntoTheChosenAccount) {
    orvane.writeAccountsFile({ { "accounts", { account(kGmailID, "mail"), account(kOutlookID, "outlook") } },
        { "selectedAccountID", kGmailID }, { "alwaysAskOnMailto", true } });
    serveWithRemote("/gmail/", "/gmail/index.html", kFormReporter);
    serveWithRemote("/outlook/mail/", "/outlook/mail/index.html", kFormReporter);
    // A cold start with a link: the picker waits for the choice.
    ASSERT_TRUE(startOrvane("/gmail/?who=gmail", "/outlook/mail/?who=outlook", "/calendar/",
        { "mailto:tom@example.com,eva@example.com?subject=Quarterly%20numbers&body=See%20you%20at%2010" }));
    ASSERT_TRUE(waitForEvents("gmail", "loaded") && waitForEvents("outlook", "loaded"));
    ASSERT_TRUE(pickerOnScreen("picker", true));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);

    // Its key 2 picks the second account, which composes the link and is shown.
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "2"));
    auto composed = [&] { return field("outlook", "body").find("See you at 10") != std::string::npos; };
    ASSERT_TRUE(waitUntil(composed, 30s));
    auto outlook = events("outlook", "form").back().data;
    EXPECT_EQ(outlook["to"], nlohmann::json::array({ "tom@example.com", "eva@example.com" }));
    EXPECT_EQ(outlook["subject"], "Quarterly numbers");
    EXPECT_EQ(orvane.selectedAccountID(), kOutlookID);
    EXPECT_TRUE(pickerOnScreen("picked", false));
    EXPECT_EQ(field("gmail"), "");

    // A mailto: link the page follows is routed the same way.
    runInPage("outlook",
        "const link = document.createElement('a');"
        "link.href = 'mailto:eva@example.com?subject=From%20a%20page';"
        "document.body.append(link); link.click();");
    ASSERT_TRUE(pickerOnScreen("picker-for-the-page", true));
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "1"));
    ASSERT_TRUE(waitUntil([&] { return field("gmail") == "From a page"; }, 20s));
    EXPECT_EQ(events("gmail", "form").back().data["to"], nlohmann::json::array({ "eva@example.com" }));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);
    EXPECT_EQ(field("outlook"), "Quarterly numbers");
}

} // namespace orvane::test
