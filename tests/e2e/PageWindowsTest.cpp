// What the account pages open: outside links in the default browser,
// pop-ups of in-app addresses in small windows of their own.
#include "E2ETest.h"

#include "Files.h"

namespace orvane::test {

class PageWindowsTest : public E2ETest { };

TEST_F(PageWindowsTest, OutsideLinksGoToTheBrowserAndPopupsOpenAndClose) {
    std::string opened = orvane.installStandInBrowser();
    ASSERT_TRUE(startOrvane("/e2e/links.html"));
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitUntil([&] { return loads("links") == 1; }, 30s));
    unsigned long main = mainWindow();
    auto geometry = orvane.geometry(main);
    ASSERT_TRUE(geometry);

    // The page is split in two: the outside link on the left, the pop-up
    // button on the right. Both halves are well inside the web area.
    int y = geometry->y + geometry->height * 6 / 10;
    std::pair<int, int> link { geometry->x + geometry->width * 35 / 100, y };
    std::pair<int, int> button { geometry->x + geometry->width * 8 / 10, y };
    ASSERT_TRUE(waitForColor(link, kRed, "links-page"));
    ASSERT_TRUE(waitForColor(button, kBlue, "links-page"));

    ASSERT_TRUE(orvane.click(link.first, link.second));
    ASSERT_TRUE(waitUntil([&] { return Files::read(opened, 1 << 20).value_or("").find("https://example.org/orvane-e2e-outside") != std::string::npos; }, 20s));
    EXPECT_EQ(Files::read(opened, 1 << 20).value_or(""), "https://example.org/orvane-e2e-outside\n");
    EXPECT_EQ(server.requestCount("/e2e/links.html"), 1);
    EXPECT_TRUE(waitForColor(link, kRed, "links-page-after-link"));

    ASSERT_TRUE(orvane.click(button.first, button.second));
    std::vector<unsigned long> windows;
    ASSERT_TRUE(waitUntil([&] { return (windows = orvane.windowsTitled("Orvane")).size() == 2; }, 20s));
    unsigned long popup = windows[0] == main ? windows[1] : windows[0];
    ASSERT_TRUE(waitUntil([&] { return loads("popup") == 1; }, 20s));
    auto popupGeometry = orvane.geometry(popup);
    ASSERT_TRUE(popupGeometry);
    EXPECT_EQ(popupGeometry->width, 820);
    EXPECT_EQ(popupGeometry->height, 620);
    std::pair<int, int> inPopup { popupGeometry->x + popupGeometry->width / 2, popupGeometry->y + popupGeometry->height * 7 / 10 };
    ASSERT_TRUE(waitForColor(inPopup, kGreen, "popup"));

    // A click in the pop-up runs window.close().
    ASSERT_TRUE(orvane.click(inPopup.first, inPopup.second));
    EXPECT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").size() == 1; }, 20s));
    EXPECT_EQ(orvane.windowsTitled("Orvane"), std::vector<unsigned long> { main });
    EXPECT_TRUE(orvane.isRunning());
}

} // namespace orvane::test
