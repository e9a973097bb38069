// What the account pages open: outside links in the default browser,
// pop-ups of in-app addresses in windows of their own, which close again.
#include "E2ETest.h"

#include "Files.h"

#include <glib/gstdio.h>

namespace orvane::test {

using PageWindowsTest = E2ETest;

TEST_F(PageWindowsTest, OutsideLinksGoToTheBrowserAndPopupsOpenAndClose) {
    // A stand-in browser, the default for web links, notes each address it gets.
    std::string opened = orvane.folder() + "/browser-opened.txt", browser = orvane.folder() + "/browser.sh";
    ASSERT_TRUE(Files::replaceAtomically(browser, "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + opened + "'\n"));
    g_chmod(browser.c_str(), 0755);
    ASSERT_TRUE(Files::makeFolder(orvane.dataHome() + "/applications"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.dataHome() + "/applications/browser.desktop",
        "[Desktop Entry]\nType=Application\nName=Browser\nExec=" + browser + " %u\nMimeType=x-scheme-handler/https;\n"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.configHome() + "/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/https=browser.desktop\n"));
    ASSERT_TRUE(startOrvane("/e2e/links.html"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("links") == 1; }, 30s));
    unsigned long main = mainWindow();

    // The page's left half is the outside link, its right half the pop-up button.
    auto link = pointIn(main, 0.35), button = pointIn(main, 0.8);
    ASSERT_TRUE(waitForColor(link, kRed, "links-page"));
    ASSERT_TRUE(waitForColor(button, kBlue, "links-page"));
    ASSERT_TRUE(orvane.click(link.first, link.second));
    EXPECT_TRUE(waitUntil([&] { return Files::read(opened, 1 << 20) == "https://example.org/orvane-e2e-outside\n"; }, 20s));
    EXPECT_EQ(server.requestCount("/e2e/links.html"), 1);

    ASSERT_TRUE(orvane.click(button.first, button.second));
    unsigned long popup = windows(2)[1];
    ASSERT_TRUE(waitUntil([&] { return loads("popup") == 1; }, 20s));
    auto geometry = orvane.geometry(popup);
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->width, 820);
    EXPECT_EQ(geometry->height, 620);
    auto inPopup = pointIn(popup, 0.5, 0.7);
    ASSERT_TRUE(waitForColor(inPopup, kGreen, "popup"));
    // A click in the pop-up runs window.close().
    ASSERT_TRUE(orvane.click(inPopup.first, inPopup.second));
    EXPECT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane") == std::vector<unsigned long> { main }; }, 20s));
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
