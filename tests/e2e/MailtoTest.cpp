// mailto: links end to end: a link orvane starts with, and one a page
// follows, go through the sender picker into the chosen account's compose
// form, which the Gmail and Outlook stand-ins report.
#include "E2ETest.h"

namespace orvane::test {

class MailtoTest : public E2ETest {
protected:
    // The picker's backdrop darkens the content; the point (lower left,
    // beside the account column) is well away from its card.
    bool pickerOnScreen(const std::string& name) {
        auto point = pointIn(mainWindow(), 0, 1);
        return waitForScreenshot(name, [&](const Screenshot& shot) {
            return shot.pixel(point.first + 120, point.second - 30).red < 190;
        });
    }
};

TEST_F(MailtoTest, LinksFromTheDesktopAndFromAPageGoThroughThePickerIntoTheChosenAccount) {
    const std::string kGmailID = newUUID(), kOutlookID = newUUID();
    writeAccounts(
        { account(kGmailID, "mail"), account(kOutlookID, "outlook") }, { { "alwaysAskOnMailto", true } });
    serveWithRemote("/gmail/", "/gmail/index.html", "compose-reporter.js");
    serveWithRemote("/outlook/mail/", "/outlook/mail/index.html", "compose-reporter.js");
    // A cold start with a link: the picker waits for the choice.
    ASSERT_TRUE(startOrvane("/gmail/?who=gmail", "/outlook/mail/?who=outlook", "/calendar/",
        { "mailto:tom@example.com,eva@example.com?subject=Quarterly%20numbers&body=See%20you%20at%2010" }));
    ASSERT_TRUE(waitForEvents("gmail", "loaded") && waitForEvents("outlook", "loaded"));
    ASSERT_TRUE(pickerOnScreen("picker"));

    // Its key 2 picks the second account, which composes the link and is shown.
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "2"));
    auto composed = [&] { return formField("outlook", "body").find("See you at 10") != std::string::npos; };
    ASSERT_TRUE(waitUntil(composed, 30s));
    auto outlook = events("outlook", "form").back();
    EXPECT_EQ(outlook["to"], nlohmann::json::array({ "tom@example.com", "eva@example.com" }));
    EXPECT_EQ(outlook["subject"], "Quarterly numbers");
    EXPECT_EQ(formField("gmail"), "");

    // A mailto: link the page follows is routed the same way.
    runInPage("outlook",
        "const link = document.createElement('a');"
        "link.href = 'mailto:eva@example.com?subject=From%20a%20page';"
        "document.body.append(link); link.click();");
    ASSERT_TRUE(pickerOnScreen("picker-for-the-page"));
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "1"));
    ASSERT_TRUE(waitUntil([&] { return formField("gmail") == "From a page"; }, 20s));
    EXPECT_EQ(events("gmail", "form").back()["to"], nlohmann::json::array({ "eva@example.com" }));
    EXPECT_EQ(formField("outlook"), "Quarterly numbers");
}

} // namespace orvane::test
