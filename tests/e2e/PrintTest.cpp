// Printing end to end, into ORVANE_PRINT_TO_PDF: the print command prints the
// selected account's page, a page's window.print() prints the view it came
// from (a frame its whole page, a pop-up itself), and the command prints a
// pop-up whose window is active.
#include "E2ETest.h"

#include <glib/gstdio.h>

namespace orvane::test {

class PrintTest : public E2ETest {
protected:
    // The text of the next PDF printed, or "(no PDF)".
    std::string printed() {
        std::string text = "(no PDF)";
        waitUntil([&] {
            auto result = g_file_test(pdf.c_str(), G_FILE_TEST_EXISTS) ? orvane.run({ "pdftotext", pdf, "-" }) : std::nullopt;
            if (result && result->status == 0 && !result->output.empty())
                text = result->output;
            return text != "(no PDF)";
        }, 30s);
        g_remove(pdf.c_str());
        return text;
    }
    static bool has(const std::string& text, const char* word) { return text.find(word) != std::string::npos; }

    std::string pdf = orvane.folder() + "/printed.pdf";
};

TEST_F(PrintTest, PrintsTheViewThatAskedOrTheSelectedAccountsPage) {
    orvane.setEnvironment("ORVANE_PRINT_TO_PDF", pdf);
    ASSERT_TRUE(startOrvane("/print/index.html?who=gmail"));
    ASSERT_TRUE(orvane.activateAction("print")) << "no account: nothing to print";
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded", 1, 30s));
    EXPECT_FALSE(g_file_test(pdf.c_str(), G_FILE_TEST_EXISTS));
    ASSERT_TRUE(orvane.activateAction("print"));
    std::string text = printed();
    EXPECT_TRUE(has(text, "ACCOUNTPAGE")) << text;

    // window.print() in an embedded frame prints the whole page.
    runInPage("gmail", "document.getElementById('frame').contentWindow.print()");
    text = printed();
    EXPECT_TRUE(has(text, "ACCOUNTPAGE") && has(text, "FRAMEPART")) << text;

    // The pop-up prints itself when it has loaded, not its opener.
    auto point = webAreaPoint();
    ASSERT_TRUE(orvane.click(point.first, point.second));
    text = printed();
    EXPECT_TRUE(has(text, "POPUPPAGE") && !has(text, "ACCOUNTPAGE")) << text;

    // With the pop-up's window active, Ctrl+P prints the pop-up.
    ASSERT_TRUE(orvane.pressKeys(windows(2)[1], "ctrl+p"));
    text = printed();
    EXPECT_TRUE(has(text, "POPUPPAGE")) << text;

    // A page that brings its own window.print keeps it.
    runInPage("gmail", "window.print = () => report('own print'); window.print()");
    ASSERT_TRUE(waitForEvents("gmail", "own print", 1));
    ASSERT_TRUE(orvane.actions());
    EXPECT_FALSE(g_file_test(pdf.c_str(), G_FILE_TEST_EXISTS));
}

} // namespace orvane::test
