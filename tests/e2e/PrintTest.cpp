// What pages open and print: outside links go to the default browser, pop-ups
// open in windows of their own and close again; the print command prints the
// selected account's page or the active pop-up, a page's window.print() the
// view it came from (a frame its whole page). Prints go to ORVANE_PRINT_TO_PDF.
#include "E2ETest.h"

#include <glib/gstdio.h>

namespace orvane::test {

class PrintTest : public E2ETest {
protected:
    // The text of the next PDF printed, or "(no PDF)".
    std::string printed() {
        std::string text = "(no PDF)";
        waitUntil([&] {
            auto result = Files::exists(pdf) ? orvane.run({ "pdftotext", pdf, "-" }) : std::nullopt;
            if (result && result->status == 0 && !result->output.empty())
                text = result->output;
            return text != "(no PDF)";
        }, 30s);
        g_remove(pdf.c_str());
        return text;
    }
    static bool has(const std::string& text, const char* word) {
        return text.find(word) != std::string::npos;
    }

    std::string pdf = orvane.folder() + "/printed.pdf";
};

TEST_F(PrintTest, LinksPopupsAndPrintsFollowTheViewThatAsked) {
    // A stand-in browser, the default for web links, notes each address it gets.
    std::string opened = orvane.folder() + "/browser-opened.txt", browser = orvane.folder() + "/browser.sh";
    ASSERT_TRUE(Files::replaceAtomically(browser, "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + opened + "'\n"));
    g_chmod(browser.c_str(), 0755);
    ASSERT_TRUE(Files::makeFolder(orvane.dataHome() + "/applications"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.dataHome() + "/applications/browser.desktop",
        "[Desktop Entry]\nType=Application\nName=Browser\nMimeType=x-scheme-handler/https;\nExec=" + browser
            + " %u\n"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.configHome() + "/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/https=browser.desktop\n"));
    orvane.setEnvironment("ORVANE_PRINT_TO_PDF", pdf);
    ASSERT_TRUE(startOrvane("/print/index.html?who=gmail"));
    ASSERT_TRUE(orvane.activateAction("print")) << "no account: nothing to print";
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    EXPECT_FALSE(Files::exists(pdf));

    runInPage("gmail",
        "const a = document.createElement('a'); a.href = 'https://example.org/outside';"
        "document.body.append(a); a.click()");
    EXPECT_TRUE(waitUntil([&] { return Files::read(opened, 1 << 20) == "https://example.org/outside\n"; }));
    EXPECT_EQ(server.requestCount("/print/index.html"), 1);

    ASSERT_TRUE(orvane.activateAction("print"));
    std::string text = printed();
    EXPECT_TRUE(has(text, "ACCOUNTPAGE")) << text;
    runInPage("gmail", "document.getElementById('frame').contentWindow.print()");
    text = printed();
    EXPECT_TRUE(has(text, "ACCOUNTPAGE") && has(text, "FRAMEPART")) << text;

    // A click on the page opens the pop-up, a window of its own whatever size
    // it asks for, which prints itself when it has loaded.
    auto point = webAreaPoint();
    ASSERT_TRUE(orvane.click(point.first, point.second));
    text = printed();
    EXPECT_TRUE(has(text, "POPUPPAGE") && !has(text, "ACCOUNTPAGE")) << text;
    unsigned long popup = windows(2)[1];
    auto geometry = orvane.geometry(popup);
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->width, 820);
    EXPECT_EQ(geometry->height, 620);
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+p"));
    text = printed();
    EXPECT_TRUE(has(text, "POPUPPAGE")) << text;
    runInPage("popup", "window.close()");
    EXPECT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").size() == 1; }, 20s));

    // A page that brings its own window.print keeps it.
    runInPage("gmail", "window.print = () => report('own print'); window.print()");
    ASSERT_TRUE(waitForEvents("gmail", "own print"));
    ASSERT_TRUE(orvane.actionEnabled("quit"));
    EXPECT_FALSE(Files::exists(pdf));
}

} // namespace orvane::test
