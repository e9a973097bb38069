// Printing end to end, into ORVANE_PRINT_TO_PDF: the print command prints the
// selected account's page, a page's window.print() prints the view it came
// from (a pop-up prints itself), and with no account nothing is printed.
#include "E2ETest.h"
#include "PageRemote.h"

#include "Files.h"
#include "support/ChildProcess.h"

#include <glib/gstdio.h>

namespace orvane::test {

class PrintTest : public E2ETest {
protected:
    // The PDF's text once the print has been written, or nothing.
    std::optional<std::string> waitForPDF() {
        std::optional<std::string> text;
        waitUntil([&] {
            if (!g_file_test(pdf.c_str(), G_FILE_TEST_EXISTS))
                return false;
            auto result = ChildProcess::run({ "pdftotext", pdf, "-" }, orvane.environment(), 20s);
            if (result && result->status == 0 && !result->output.empty())
                text = result->output;
            return text.has_value();
        }, 30s);
        if (text)
            g_remove(pdf.c_str());
        return text;
    }

    static bool has(const std::optional<std::string>& text, const char* word) {
        return text && text->find(word) != std::string::npos;
    }

    std::string pdf = orvane.folder() + "/printed.pdf";
    PageRemote remote { server };
};

TEST_F(PrintTest, PrintsTheViewThatAskedOrTheSelectedAccount) {
    orvane.setEnvironment("ORVANE_PRINT_TO_PDF", pdf);
    ASSERT_TRUE(startOrvane("/print/index.html?who=gmail"));

    // No account: the command has nothing to print.
    ASSERT_TRUE(orvane.activateAction("print"));

    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(remote.waitForEvents("gmail", "loaded", 1, 30s));
    EXPECT_FALSE(g_file_test(pdf.c_str(), G_FILE_TEST_EXISTS));
    ASSERT_TRUE(orvane.activateAction("print"));
    auto printed = waitForPDF();
    EXPECT_TRUE(has(printed, "ACCOUNTPAGE")) << printed.value_or("(no PDF)");

    // Ctrl+P is the same command.
    unsigned long main = mainWindow();
    ASSERT_TRUE(orvane.pressKeys(main, "ctrl+p"));
    printed = waitForPDF();
    EXPECT_TRUE(has(printed, "ACCOUNTPAGE")) << printed.value_or("(no PDF)");

    // window.print() in an embedded frame prints the whole page.
    remote.run("gmail", "document.getElementById('frame').contentWindow.print()");
    printed = waitForPDF();
    EXPECT_TRUE(has(printed, "ACCOUNTPAGE") && has(printed, "FRAMEPART")) << printed.value_or("(no PDF)");

    // The pop-up prints itself when it has loaded, not its opener.
    auto point = webAreaPoint();
    ASSERT_TRUE(orvane.click(point.first, point.second));
    ASSERT_TRUE(remote.waitForEvents("popup", "loaded", 1));
    printed = waitForPDF();
    EXPECT_TRUE(has(printed, "POPUPPAGE")) << printed.value_or("(no PDF)");
    EXPECT_FALSE(has(printed, "ACCOUNTPAGE"));

    // With the pop-up's window active, Ctrl+P and the print command print the pop-up.
    std::vector<unsigned long> windows;
    ASSERT_TRUE(waitUntil([&] { return (windows = orvane.windowsTitled("Orvane")).size() == 2; }, 20s));
    unsigned long popup = windows[0] == main ? windows[1] : windows[0];
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+p"));
    printed = waitForPDF();
    EXPECT_TRUE(has(printed, "POPUPPAGE")) << printed.value_or("(no PDF)");
    ASSERT_TRUE(orvane.activateAction("print"));
    printed = waitForPDF();
    EXPECT_TRUE(has(printed, "POPUPPAGE")) << printed.value_or("(no PDF)");

    // A page that brings its own window.print keeps it.
    remote.run("gmail", "window.print = () => report('own print'); window.print()");
    ASSERT_TRUE(remote.waitForEvents("gmail", "own print", 1));
    ASSERT_TRUE(orvane.actions());
    EXPECT_FALSE(g_file_test(pdf.c_str(), G_FILE_TEST_EXISTS));
}

} // namespace orvane::test
